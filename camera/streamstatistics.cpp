// The stream's figures since a starting point (a connection), from the SDK's counts.
#include "streamstatistics.h"

#include "korvatincameraviewlane.h"

#include <korvatin/korvatinexception.h>

#include <cstdio>

void CStreamStatistics::Start(CKorvatinCameraViewlane& session, Clock::time_point now) {
    m_startReceived = session.grabbedFrameCount.load();
    m_startTotals = session.GetStreamTotals();
    m_previousReceived = m_startReceived;
    m_previousTime = now;
}

CStreamStatistics::Figures CStreamStatistics::Sample(CKorvatinCameraViewlane& session,
                                                     double payloadBytes, Clock::time_point now) {
    Figures figures;
    const uint32_t received = session.grabbedFrameCount.load();
    // The counter wraps at 2^32 frames; unsigned arithmetic keeps the difference right.
    figures.framesReceived = uint32_t(received - m_startReceived);
    const double seconds = std::chrono::duration<double>(now - m_previousTime).count();
    if (seconds > 0) {
        figures.framesPerSecond = double(uint32_t(received - m_previousReceived)) / seconds;
        figures.megabytesPerSecond = figures.framesPerSecond * payloadBytes / 1e6;
    }
    m_previousReceived = received;
    m_previousTime = now;
    const CKorvatinCamera::StreamTotals totals = session.GetStreamTotals();
    figures.droppedFrames = totals.droppedFrames - m_startTotals.droppedFrames;
    figures.incompleteFrames = totals.incompleteFrames - m_startTotals.incompleteFrames;
    figures.resentPackets = totals.resentPackets - m_startTotals.resentPackets;
    figures.missingPackets = totals.missingPackets - m_startTotals.missingPackets;
    return figures;
}

double CStreamStatistics::PayloadBytes(CKorvatinCameraViewlane& session) {
    try {
        return double(session.GetUInt32("PayloadSize"));
    } catch (const CKorvatinException&) {
        // A camera without PayloadSize: one byte a pixel is the least a frame holds.
        return double(session.GetUInt32("Width")) * session.GetUInt32("Height");
    }
}

std::string CStreamStatistics::Text(const Figures& figures) {
    char rates[96];
    std::snprintf(rates, sizeof rates, "Frames/s: %.1f\nMB/s: %.2f\n", figures.framesPerSecond,
                  figures.megabytesPerSecond);
    return "Received: " + std::to_string(figures.framesReceived) + "\n" + rates +
           "Dropped: " + std::to_string(figures.droppedFrames) +
           "\nIncomplete: " + std::to_string(figures.incompleteFrames) +
           "\nResent packets: " + std::to_string(figures.resentPackets) +
           "\nMissing packets: " + std::to_string(figures.missingPackets);
}
