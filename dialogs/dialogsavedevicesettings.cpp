// The dialog that saves the connected camera's feature values to a device settings file.
#include "dialogsavedevicesettings.h"

#include "ui_dialogsavedevicesettings.h"

#include <devicesettingsjob.h>

#include <QFileDialog>

CDialogSaveDeviceSettings::CDialogSaveDeviceSettings(CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEventCameraAccess(camera, parent),
      ui(std::make_unique<Ui::CDialogSaveDeviceSettings>()) {
    ui->setupUi(this);
    SetJobControls({ui->pushButton_save_settings, ui->pushButton_browse}, ui->progressBar);
}

CDialogSaveDeviceSettings::~CDialogSaveDeviceSettings() {
    StopJob();
}

void CDialogSaveDeviceSettings::on_pushButton_browse_clicked() {
    // The filter has no space before its parenthesis, unlike the load dialog's.
    const QString name =
        QFileDialog::getSaveFileName(this, "Save Settings", QString(), "Device Settings File(*)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogSaveDeviceSettings::on_pushButton_save_settings_clicked() {
    StartWithFile(ui->lineEdit_fileName->text());
}

void CDialogSaveDeviceSettings::RunInThread() {
    DeviceSettingsJob(this, Camera()).Save(JobFileName());
}
