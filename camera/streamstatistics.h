// The stream's figures since a starting point (a connection): frames received and their rate,
// data rate, and the SDK's counts of dropped and incomplete frames and resent and missing packets.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <korvatin/korvatincamera.h>

class CKorvatinCameraViewlane;

class CStreamStatistics {
public:
    using Clock = std::chrono::steady_clock;

    struct Figures {
        uint64_t framesReceived = 0;
        double framesPerSecond = 0;    // over the time since the previous sample
        double megabytesPerSecond = 0; // frames per second times the payload, 10^6 bytes
        uint64_t droppedFrames = 0;
        uint64_t incompleteFrames = 0;
        uint64_t resentPackets = 0;
        uint64_t missingPackets = 0;
    };

    // Takes the session's counts now as the starting point.
    void Start(CKorvatinCameraViewlane& session, Clock::time_point now);
    // The figures since Start; the rates over the time since the previous Sample (or Start),
    // the data rate with frames of `payloadBytes`.
    Figures Sample(CKorvatinCameraViewlane& session, double payloadBytes, Clock::time_point now);

    // One frame's payload: the camera's PayloadSize, or Width x Height without it. GUI thread
    // (reads features).
    static double PayloadBytes(CKorvatinCameraViewlane& session);

    // "Received: 120", "Frames/s: 30.0", "MB/s: 27.65", "Dropped: 0", "Incomplete: 0",
    // "Resent packets: 12", "Missing packets: 0": one line per figure, short enough for the side
    // panel.
    static std::string Text(const Figures& figures);

private:
    uint32_t m_startReceived = 0;
    CKorvatinCamera::StreamTotals m_startTotals;
    uint32_t m_previousReceived = 0;
    Clock::time_point m_previousTime;
};
