// GVSP sender of one simulated camera: paced frames, a ring of recent frames for resends.
#pragma once

#include "testpattern.h"
#include "udpsocket.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// What the stream needs from the camera's registers, read once per frame.
struct StreamSettings {
    FrameGeometry geometry;
    uint32_t packetSize = 1500; // IP datagram size, IP and UDP headers included
    uint32_t destination = 0;   // 0: no host yet, nothing is sent
    uint16_t port = 0;
    double frameRate = 0; // 0: as fast as the socket takes the packets
    bool triggered = false;
    bool moving = true;
    uint32_t seed = 0;
    uint32_t seedGeneration = 0; // changes with each seed written: the pattern restarts at it
    uint32_t packetDelayNs = 0;
    bool lutEnabled = false;
    LutTable lut;
    std::chrono::steady_clock::time_point timestampOrigin;
};

class CStreamer {
public:
    // Both callbacks run on the stream thread. settings returns the current stream settings;
    // frameSent is told about each frame sent.
    using SettingsSource = std::function<void(StreamSettings&)>;
    using FrameSent = std::function<void()>;

    CStreamer(int lostRatioPerMille, SettingsSource settings, FrameSent frameSent);
    ~CStreamer();
    CStreamer(const CStreamer&) = delete;
    CStreamer& operator=(const CStreamer&) = delete;

    // The control thread calls everything below.

    // (Re)binds the stream socket to address with a free source port; only while stopped.
    std::string bind(uint32_t address);
    uint16_t sourcePort() const { return socket_.localPort(); }
    void setDoNotFragment(bool enabled);

    void start();
    // Stops the stream thread and waits for it.
    void stop();
    bool isRunning() const { return thread_.joinable(); }
    // Block ids start again at 1, as after a power cycle.
    void resetBlockId();

    // One frame per call while the trigger mode is on.
    void trigger();

    // Sends packets first..last of block blockId again from the ring, or a "packet unavailable"
    // packet when that block is no longer kept.
    void resend(uint16_t blockId, uint32_t firstPacket, uint32_t lastPacket);

    // Sends one datagram of packetSize bytes (IP and UDP headers counted) to the host, so that it
    // can find the largest packet the path carries.
    void sendTestPacket(uint32_t destination, uint16_t port, uint32_t packetSize);

private:
    struct Slot {
        bool valid = false;
        uint16_t blockId = 0;
        std::vector<uint8_t> data;
        uint32_t payloadSize = 0;
        FrameGeometry geometry;
        uint64_t timestamp = 0;
        uint32_t packetSize = 0;
        sockaddr_in destination{};
        uint32_t packetCount = 0; // leader, payload packets, trailer
    };

    enum class Wait { Send, Skip, Stop };
    void run();
    Wait waitForNextFrame(const StreamSettings& settings,
                          std::chrono::steady_clock::time_point* due);
    void sendPackets(const Slot& slot, uint32_t first, uint32_t last, bool mayDrop,
                     uint32_t packetDelayNs);
    bool dropNext();
    // Updates the adaptive period after a frame and waits it out; false when asked to stop.
    bool adaptToHost(int64_t frameStartNs, uint32_t payloadSize);

    const int lostRatioPerMille_;
    SettingsSource settings_;
    FrameSent frameSent_;
    CUdpSocket socket_;
    CTestPattern pattern_;                    // stream thread only
    uint32_t step_ = 0;                       // stream thread only
    uint32_t seedGeneration_ = 0;             // stream thread only
    uint64_t random_ = 0x9E3779B97F4A7C15ull; // stream thread only

    std::mutex ringMutex_; // Protects slots_ (valid, blockId and the vector itself) and the
                           // sockets' use by resend() against the stream thread's refills.
    std::vector<Slot> slots_;
    std::size_t nextSlot_ = 0; // stream thread only

    std::atomic<uint16_t> nextBlockId_{1};
    // A resend request means the host fell behind: the stream pauses until this time (steady
    // clock, nanoseconds) so that the host drains its socket and the resent packets get through.
    std::atomic<int64_t> pauseUntilNs_{0};
    // Time of the latest resend request (steady clock, nanoseconds).
    std::atomic<int64_t> lastResendNs_{0};
    // Without a frame rate limit the stream still adapts to what the host takes: each new
    // burst of resend requests doubles the frame period, a quiet second lets it shrink
    // again slowly. Stream thread only.
    double adaptivePeriodNs_ = 0;
    double measuredPeriodNs_ = 0;
    int64_t lastFrameNs_ = 0;
    int64_t lastSlowDownNs_ = 0;

    std::mutex stateMutex_; // Protects stopRequested_ and triggers_.
    std::condition_variable stateChanged_;
    bool stopRequested_ = false;
    uint32_t triggers_ = 0;
    std::thread thread_;
};
