// The grab thread: receives frames from the camera's stream and hands them to the conversion
// thread.
#include "framegrabthread.h"

#include "korvatincameraviewlane.h"

#include <korvatin/korvatinexception.h>

#include <QMutexLocker>

namespace {

// Thrown from a destructor, which lets no exception out: the process ends with this text.
[[noreturn]] void raiseNotStopped() {
    throw CKorvatinException("GrabThread has not Stopped.", CKorvatinCameraViewlane::kSessionError);
}

// The wait of each turn when the configured time-out has no usable length: 0 would make the loop
// spin and a negative one, read as unsigned, wait for weeks. Time-outs cost only a turn of the
// loop, so these turns change nothing else, and a stop is seen at least this often.
constexpr uint32_t kFallbackFrameWaitMs = 100;

// A positive time-out is used as configured: a stop waits for the wait in progress to end.
uint32_t frameWaitMs(int32_t configuredMs) {
    return configuredMs > 0 ? uint32_t(configuredMs) : kFallbackFrameWaitMs;
}

} // namespace

CFrameGrabThread::CFrameGrabThread(CKorvatinCameraViewlane* session) : m_session(session) {}

CFrameGrabThread::~CFrameGrabThread() {
    if (isRunning())
        raiseNotStopped();
}

void CFrameGrabThread::run() {
    CKorvatinCameraViewlane& session = *m_session;
    // Describes each buffer the stream hands over until it is swapped into a spare.
    CKorvatinFrame received;
    const uint32_t timeoutMs = frameWaitMs(session.m_getFrameTimeoutMs);

    while (session.m_grabRunning) {
        // Time-outs and errors only cost one turn; they are neither reported nor counted.
        if (session.GetFrame(&received, timeoutMs) != QRN_OK)
            continue;
        ++session.grabbedFrameCount;

        QMutexLocker lock(&session.m_rawListMutex);
        if (!session.m_spareRawFrames.isEmpty()) {
            CKorvatinFrame* spare = session.m_spareRawFrames.takeFirst();
            // The spare's old buffer goes back to the stream and the spare takes the new image,
            // so the stream keeps the same number of buffers.
            session.QueueFrame(spare);
            spare->UpdateFrame(received);
            session.m_grabbedRawFrames.append(spare);
        } else {
            // No spare free (display and recorder both behind): the image is dropped by the
            // application and its buffer reused at once.
            session.QueueFrame(&received);
            ++session.framesWithoutSpare;
        }
    }
}
