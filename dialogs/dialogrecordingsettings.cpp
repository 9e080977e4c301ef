// The dialog that edits the recording's AVI file name and frame limit.
#include "dialogrecordingsettings.h"

#include "ui_dialogrecordingsettings.h"

#include <QFileDialog>
#include <QFileInfo>

CDialogRecordingSettings::CDialogRecordingSettings(const QString& fileName, int maxRecordedFrames,
                                                   QObject* caller, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::CDialogRecordingSettings>()), m_caller(caller) {
    ui->setupUi(this);
    ui->lineEdit_fileName->setText(fileName);
    ui->lineEdit_maxRecordFrames->setText(QString::number(maxRecordedFrames));
    setFixedSize(sizeHint());
}

CDialogRecordingSettings::~CDialogRecordingSettings() = default;

QString CDialogRecordingSettings::FileName() const {
    return ui->lineEdit_fileName->text();
}

int CDialogRecordingSettings::MaxRecordedFrames() const {
    return ui->lineEdit_maxRecordFrames->text().toInt(nullptr, 10);
}

void CDialogRecordingSettings::on_pushButton_browse_clicked() {
    const QString name =
        QFileDialog::getSaveFileName(this, "AVI File Name", QString(), "Images (*.avi)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogRecordingSettings::on_lineEdit_fileName_editingFinished() {
    const QFileInfo file(ui->lineEdit_fileName->text());
    if (file.suffix().compare("avi", Qt::CaseInsensitive) == 0)
        return;
    ui->lineEdit_fileName->setText(file.absolutePath() + "/" + file.baseName() + ".avi");
}
