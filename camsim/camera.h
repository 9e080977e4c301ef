// One simulated GigE Vision camera: its control channel (GVCP), registers, files and stream.
#pragma once

#include "fileaccess.h"
#include "registermemory.h"
#include "streamer.h"
#include "udpsocket.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class COptions;
struct CRange;

// The description a camera serves: the file's bytes and the name its URL gives.
struct Description {
    std::vector<uint8_t> bytes;
    std::string fileName;
};

class CCamera {
public:
    CCamera(const COptions& options, int index, Description description);
    ~CCamera();
    CCamera(const CCamera&) = delete;
    CCamera& operator=(const CCamera&) = delete;

    // Binds the control sockets and starts the control thread. Returns an empty string on
    // success, otherwise why the camera cannot run.
    std::string start();
    // Ends the stream and control threads and closes the sockets.
    void stop();

    uint32_t address() const { return address_; }

private:
    struct Actions {
        bool startStream = false;
        bool stopStream = false;
        bool reset = false;
        bool trigger = false;
        bool fireTestPacket = false;
        bool doNotFragmentChanged = false;
    };
    struct Controller {
        bool active = false;
        uint32_t address = 0;
        uint16_t port = 0;
        uint32_t privilege = 0;
        std::chrono::steady_clock::time_point lastSeen;
    };
    struct Request {
        uint8_t flags;
        uint16_t command;
        uint16_t id;
        const uint8_t* payload;
        uint16_t length;
        sockaddr_in from;
    };

    // Control thread.
    void run();
    std::string openControlSockets(uint32_t address);
    void closeControlSockets();
    void handleDatagram(const uint8_t* data, std::size_t size, const sockaddr_in& from,
                        bool broadcast);
    void reply(const Request& request, uint16_t status, const uint8_t* payload, std::size_t length,
               const CUdpSocket* socket = nullptr);
    void handleDiscovery(const Request& request);
    void handleForceIp(const Request& request);
    void handleReadRegisters(const Request& request);
    void handleWriteRegisters(const Request& request);
    void handleReadMemory(const Request& request);
    void handleWriteMemory(const Request& request);
    void handlePacketResend(const Request& request);
    void performActions(const Actions& actions);
    void performReset();
    void checkHeartbeat();
    void dropControl();

    // Under mutex_.
    void initialiseRegisters(bool powerOn);
    void installDescription();
    void refreshDynamicRegisters();
    bool isController(const sockaddr_in& from) const;
    uint16_t writeRegister(uint32_t address, uint32_t value, const sockaddr_in& from,
                           Actions* actions);
    uint16_t writeDeviceRegister(uint32_t address, uint32_t value, Actions* actions);
    // The longest exposure (microseconds) a frame rate leaves: its frame period, or the camera's
    // limit when the rate is 0.
    static uint32_t exposureLimit(uint32_t frameRate);
    // Within the range and on its increment, counted from its minimum.
    static bool inRange(const CRange& range, uint32_t value);
    // The table entry a LUTIndex value selects.
    std::size_t lutEntry(uint32_t index) const;
    // Sets the exposure and keeps the knee points at or below it.
    void limitExposure(uint32_t exposure);
    void executeFileOperation();
    void readStreamSettings(StreamSettings& settings) const;
    bool deviceRegistersActive() const;

    const COptions& options_;
    const std::string serial_;
    const std::array<uint8_t, 6> mac_;
    const uint32_t startupAddress_;
    std::atomic<uint32_t> address_; // current address; written by the control thread only

    mutable std::mutex
        mutex_; // Protects registers_, lut_, controller_, files_, description_,
                // frameCounter_, seedGeneration_ and timestampOrigin_ (control and stream threads).
    CRegisterMemory registers_;
    std::vector<uint16_t> lut_; // the table's entries, in index order
    Controller controller_;
    CFileAccess files_;
    Description description_;
    uint32_t frameCounter_ = 0;
    uint32_t seedGeneration_ = 0;
    std::chrono::steady_clock::time_point timestampOrigin_;

    // Control thread only (and start()/stop() while it is not running).
    CUdpSocket control_;
    std::vector<CUdpSocket> broadcast_;
    int wakeFd_ = -1; // eventfd that stop() signals
    std::unique_ptr<CStreamer> streamer_;
    std::thread thread_;
};
