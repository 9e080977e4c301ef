// The dialog that writes a device settings file's values into the connected camera.
#include "dialogloaddevicesettings.h"

#include "ui_dialogloaddevicesettings.h"

#include <devicesettingsjob.h>

#include <QFileDialog>

CDialogLoadDeviceSettings::CDialogLoadDeviceSettings(CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEventCameraAccess(camera, parent),
      ui(std::make_unique<Ui::CDialogLoadDeviceSettings>()) {
    ui->setupUi(this);
    SetJobControls({ui->pushButton_load_settings, ui->pushButton_browse}, ui->progressBar);
}

CDialogLoadDeviceSettings::~CDialogLoadDeviceSettings() {
    StopJob();
}

void CDialogLoadDeviceSettings::on_pushButton_browse_clicked() {
    const QString name = QFileDialog::getOpenFileName(this, "Load Device Settings", QString(),
                                                      "Device Settings File (*)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogLoadDeviceSettings::on_pushButton_load_settings_clicked() {
    StartWithFile(ui->lineEdit_fileName->text());
}

void CDialogLoadDeviceSettings::RunInThread() {
    DeviceSettingsJob(this, Camera()).Load(JobFileName());
}

void CDialogLoadDeviceSettings::EventHandle(int event, const QString* text) {
    std::unique_ptr<const QString> owned(text);
    HandleEventState(event, text);
    if (event == 4 && m_rebuild) {
        try {
            m_rebuild();
        } catch (const std::exception&) {
            // The load's own message says what happened; a tree that cannot be rebuilt shows
            // what it could build.
        }
    }
    ShowEventText(event, text);
    if (event == 4)
        ui->progressBar->setValue(0);
}
