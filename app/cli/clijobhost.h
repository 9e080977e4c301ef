// Runs a maintenance job from the command line: direct feature writes, a progress bar and the
// job's texts.
#pragma once

#include <maintenancejobhost.h>

#include <iosfwd>
#include <string>

class CKorvatinCamera;

// The job runs on the calling thread and writes straight to the camera. Progress is drawn as a
// bar on standard error when that is a terminal; message texts (event 3) and the final text
// (event 4) go to `out`, one per line, as the dialogs show them in their message boxes.
class CCliJobHost : public CMaintenanceJobHost {
public:
    CCliJobHost(CKorvatinCamera& camera, std::ostream& out);

    // The SDK's progress callback, for transfers the SDK runs itself: `context` is a
    // CCliJobHost.
    static void ProgressCallback(void* context, int event, int value, const char* text);

    void SendThreadEvent(int event, int value, const char* text) override;
    void SendThreadEventNumber(int event, int value) override;
    bool CameraSet(const TCameraNodeSetting& setting, QString& error) override;

private:
    void DrawProgress(int percent);
    void EndProgressLine();

    CKorvatinCamera& camera_;
    std::ostream& out_;
    bool drawProgress_; // standard error is a terminal
    bool progressShown_ = false;
    int lastPercent_ = -1;
};
