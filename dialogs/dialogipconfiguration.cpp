// The dialog that shows a device's addresses and edits its persistent IP configuration.
#include "dialogipconfiguration.h"

#include "ui_dialogipconfiguration.h"

#include "dialogforceip.h"
#include "showmessage.h"
#include "validateaddresses.h"

#include "korvatin/gigevisiondeviceinfo.h"

#include <exception>

CDialogIpConfiguration::CDialogIpConfiguration(GigEVisionDeviceInfo* device, bool useDHCP,
                                               bool usePersistentIP, const char* persistentIp,
                                               const char* persistentMask,
                                               const char* persistentGateway, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::CDialogIpConfiguration>()), m_device(device) {
    ui->setupUi(this);
    if (device) {
        ui->label_manufacturer->setText(QString::fromLocal8Bit(device->manufacturerName));
        ui->label_serialNumber->setText(QString::fromLocal8Bit(device->serialNumber));
        ui->label_macAddress->setText(QString::fromLocal8Bit(device->macAddress));
        ui->label_userId->setText(QString::fromLocal8Bit(device->userDefinedName));
        ui->label_currentIp->setText(QString::fromLocal8Bit(device->currentIp));
        ui->label_currentSubnetMask->setText(QString::fromLocal8Bit(device->currentSubnetMask));
        ui->label_defaultGateway->setText(QString::fromLocal8Bit(device->defaultGateway));
        ui->label_hostInterfaceIp->setText(QString::fromLocal8Bit(device->hostInterfaceAddress));
    }
    ui->lineEdit_ip->setText(QString::fromLocal8Bit(persistentIp ? persistentIp : ""));
    ui->lineEdit_subnetMask->setText(QString::fromLocal8Bit(persistentMask ? persistentMask : ""));
    ui->lineEdit_defaultGateway->setText(
        QString::fromLocal8Bit(persistentGateway ? persistentGateway : ""));
    ui->checkBox_usePersistentIP->setChecked(usePersistentIP);
    ui->checkBox_useDHCP->setChecked(useDHCP);
    setFixedSize(sizeHint());
}

CDialogIpConfiguration::~CDialogIpConfiguration() = default;

bool CDialogIpConfiguration::UseDHCP() const {
    return ui->checkBox_useDHCP->isChecked();
}

bool CDialogIpConfiguration::UsePersistentIP() const {
    return ui->checkBox_usePersistentIP->isChecked();
}

bool CDialogIpConfiguration::UseAutoIP() const {
    return ui->checkBox_useAutoIP->isChecked();
}

QString CDialogIpConfiguration::PersistentIp() const {
    return ui->lineEdit_ip->text();
}

QString CDialogIpConfiguration::PersistentSubnetMask() const {
    return ui->lineEdit_subnetMask->text();
}

QString CDialogIpConfiguration::PersistentGateway() const {
    return ui->lineEdit_defaultGateway->text();
}

void CDialogIpConfiguration::on_pushButton_forceTempIp_clicked() {
    auto forceIp = std::make_unique<CDialogForceIP>(m_device, QStringList(), this);
    if (forceIp->exec() != QDialog::Accepted)
        return;
    m_forceIp = std::move(forceIp);
    done(QDialog::Accepted);
}

void CDialogIpConfiguration::on_pushButton_writeConfig_clicked() {
    try {
        ValidateAddresses(nullptr, ui->lineEdit_ip->text().toLocal8Bit().constData(),
                          ui->lineEdit_subnetMask->text().toLocal8Bit().constData(),
                          ui->lineEdit_defaultGateway->text().toLocal8Bit().constData());
    } catch (const std::exception& error) {
        ShowMessage(QString::fromLocal8Bit(error.what()), this);
        return;
    }
    done(QDialog::Accepted);
}
