// The grab thread: receives frames from the camera's stream and hands them to the conversion
// thread.
#pragma once

#include <QThread>

class CKorvatinCameraViewlane;

// Runs the grab loop of one streaming session: waits for each filled stream buffer, swaps it
// into a spare frame wrapper and queues the spare's buffer back to the stream, so the number of
// buffers in the stream never changes and no pixel is copied. Started and stopped by the
// session's StartGrab/StopGrab on the GUI thread; run() is the only code on the thread itself.
class CFrameGrabThread : public QThread {
public:
    explicit CFrameGrabThread(CKorvatinCameraViewlane* session);
    // Stopping always waits for the thread first. Destroying it while it still runs raises
    // "GrabThread has not Stopped.", which cannot leave a destructor and so ends the process.
    ~CFrameGrabThread() override;

protected:
    // The grab loop; runs on the grab thread until the session clears its grab-running flag.
    void run() override;

private:
    CKorvatinCameraViewlane* m_session; // borrowed: the session outlives its thread
};
