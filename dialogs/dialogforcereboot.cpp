// The dialog that asks which device to restart.
#include "dialogforcereboot.h"

#include "ui_dialogforcereboot.h"

CDialogForceReboot::CDialogForceReboot(const QStringList& candidates, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::CDialogForceReboot>()) {
    ui->setupUi(this);
    ui->comboBoxMacSn->setEditable(true);
    ui->comboBoxMacSn->addItems(candidates);
}

CDialogForceReboot::~CDialogForceReboot() = default;

QString CDialogForceReboot::MacOrSerial() const {
    return ui->comboBoxMacSn->currentText();
}
