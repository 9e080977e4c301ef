// The dialog that writes a GenICam description into the connected camera.
#include "dialogprogramxml.h"

#include "ui_dialogprogramxml.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/qrnutil.h>

#include <QFileDialog>

CDialogProgramXML::CDialogProgramXML(CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEvent(parent), ui(std::make_unique<Ui::CDialogProgramXML>()),
      m_camera(camera) {
    ui->setupUi(this);
    SetJobControls({ui->pushButton_program, ui->pushButton_browse}, ui->progressBar);
    // The SDK sends event 4 before its call returns; the worker ends by itself right after.
    SetJoinOnFinish(false);
    if (CQrnUtil::EnvToInt("QRN_DEBUG_EEPROM_UPDATE") == 0)
        setWindowTitle(windowTitle() + " (QRN_DEBUG_EEPROM_UPDATE=0)");
    setFixedSize(sizeHint());
}

CDialogProgramXML::~CDialogProgramXML() = default;

void CDialogProgramXML::on_pushButton_browse_clicked() {
    const QString name = QFileDialog::getOpenFileName(
        this, "Program XML file (uncompressed or compressed)", QString(), "XML file (*.xml *.zip)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogProgramXML::on_pushButton_program_clicked() {
    StartWithFile(ui->lineEdit_fileName->text());
}

void CDialogProgramXML::RunInThread() {
    const QByteArray file = JobFileName().toLatin1();
    m_camera->ProgramXML(file.constData(), &ProgressCallback, this);
}
