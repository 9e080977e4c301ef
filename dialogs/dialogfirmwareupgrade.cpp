// The dialog that writes a firmware image into the connected camera's flash.
#include "dialogfirmwareupgrade.h"

#include "ui_dialogfirmwareupgrade.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/qrnutil.h>

#include <QFileDialog>
#include <QKeyEvent>

#include <memory>

namespace {

const char* const g_normalAddress = "Writing to address: 0x30800000";
const char* const g_alternateAddress = "Writing to address: 0x30000000";

} // namespace

CDialogFirmwareUpgrade::CDialogFirmwareUpgrade(CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEvent(parent), ui(std::make_unique<Ui::CDialogFirmwareUpgrade>()),
      m_camera(camera) {
    ui->setupUi(this);
    SetJobControls({ui->pushButton_upgrade, ui->pushButton_browse}, ui->progressBar);
    // The SDK sends event 4 before its call returns; the worker ends by itself right after.
    SetJoinOnFinish(false);
    RefreshAddressLabel();
    if (CQrnUtil::EnvToInt("QRN_DEBUG_EEPROM_UPDATE") == 0)
        setWindowTitle(windowTitle() + " (QRN_DEBUG_EEPROM_UPDATE=0)");
    setFixedSize(sizeHint());
}

CDialogFirmwareUpgrade::~CDialogFirmwareUpgrade() = default;

void CDialogFirmwareUpgrade::on_pushButton_browse_clicked() {
    const QString name = QFileDialog::getOpenFileName(this, "Open Firmware Binary", QString(),
                                                      "Firmware Binaries (*.rbf *.bin)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogFirmwareUpgrade::on_pushButton_upgrade_clicked() {
    m_jobAlternate = m_altHeld && m_controlHeld;
    StartWithFile(ui->lineEdit_fileName->text());
}

void CDialogFirmwareUpgrade::RunInThread() {
    const QByteArray file = JobFileName().toLatin1();
    m_camera->FirmwareUpgrade(file.constData(), m_jobAlternate, &ProgressCallback, this);
}

void CDialogFirmwareUpgrade::EventHandle(int event, const QString* text) {
    std::unique_ptr<const QString> owned(text);
    HandleEventState(event, text);
    if (event == 4)
        RefreshAddressLabel();
    ShowEventText(event, text);
}

void CDialogFirmwareUpgrade::keyPressEvent(QKeyEvent* event) {
    TrackModifier(event->key(), true);
    CDialogProgressThreadEvent::keyPressEvent(event);
}

void CDialogFirmwareUpgrade::keyReleaseEvent(QKeyEvent* event) {
    TrackModifier(event->key(), false);
    CDialogProgressThreadEvent::keyReleaseEvent(event);
}

void CDialogFirmwareUpgrade::TrackModifier(int key, bool held) {
    if (key == Qt::Key_Control)
        m_controlHeld = held;
    else if (key == Qt::Key_Alt)
        m_altHeld = held;
    else
        return;
    const bool alternate = m_altHeld && m_controlHeld;
    if (alternate == m_alternate)
        return;
    m_alternate = alternate;
    if (!IsBusy())
        RefreshAddressLabel();
}

void CDialogFirmwareUpgrade::RefreshAddressLabel() {
    ui->writingAddress->setText(m_alternate ? g_alternateAddress : g_normalAddress);
}
