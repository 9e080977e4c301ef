// The dialog that saves the connected camera's feature values to a device settings file.
#pragma once

#include "dialogprogressthreadeventcameraaccess.h"

#include <memory>

namespace Ui {
class CDialogSaveDeviceSettings;
}

class CDialogSaveDeviceSettings : public CDialogProgressThreadEventCameraAccess {
    Q_OBJECT
public:
    CDialogSaveDeviceSettings(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogSaveDeviceSettings() override;

    // Worker thread: the save job on the file named when the job started.
    void RunInThread() override;

private slots:
    void on_pushButton_browse_clicked();
    void on_pushButton_save_settings_clicked();

private:
    std::unique_ptr<Ui::CDialogSaveDeviceSettings> ui;
};
