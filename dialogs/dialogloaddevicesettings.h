// The dialog that writes a device settings file's values into the connected camera.
#pragma once

#include "dialogprogressthreadeventcameraaccess.h"

#include <functional>
#include <memory>

namespace Ui {
class CDialogLoadDeviceSettings;
}

class CDialogLoadDeviceSettings : public CDialogProgressThreadEventCameraAccess {
    Q_OBJECT
public:
    CDialogLoadDeviceSettings(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogLoadDeviceSettings() override;

    // GUI thread: called when a load has ended, before its message shows, so that the feature
    // panel shows the camera's new values. What it throws is ignored. The main window passes its
    // tree rebuild.
    void SetFeatureTreeRebuild(std::function<void()> rebuild) { m_rebuild = std::move(rebuild); }

    // Worker thread: the load job on the file named when the job started.
    void RunInThread() override;

protected slots:
    // The common handling, plus the tree rebuild at the end of a job and the progress bar
    // back to 0 once its message is closed.
    void EventHandle(int event, const QString* text) override;

private slots:
    void on_pushButton_browse_clicked();
    void on_pushButton_load_settings_clicked();

private:
    std::unique_ptr<Ui::CDialogLoadDeviceSettings> ui;
    std::function<void()> m_rebuild;
};
