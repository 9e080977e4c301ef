// The conversion and recording thread: moves received frames to the display and into AVI files.
#pragma once

#include <QThread>

class CKorvatinCameraViewlane;

// Runs the conversion loop of one streaming session: takes each received raw frame into a
// converted holder for the display (recycling the oldest waiting holder when two already wait)
// and, while a recording is active, converts the frame and appends it to the AVI file. Started
// by StartAcquisition and stopped by StopConversion on the GUI thread.
class CAviRecordingThread : public QThread {
public:
    explicit CAviRecordingThread(CKorvatinCameraViewlane* session);
    // Stopping always waits for the thread first. Destroying it while it still runs raises
    // "AviRecordingThread has not Stopped.", which cannot leave a destructor and so ends the
    // process.
    ~CAviRecordingThread() override;

protected:
    // The conversion loop; runs on the conversion thread until the session clears its
    // conversion-running flag.
    void run() override;

private:
    CKorvatinCameraViewlane* m_session; // borrowed: the session outlives its thread
};
