// The dialog that collects a device and the temporary address to force on it.
#include "dialogforceip.h"

#include "showmessage.h"
#include "validateaddresses.h"

#include "korvatin/gigevisiondeviceinfo.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <exception>

namespace {

const char* const g_help =
    "MAC address: string of 6 heximal digists delimited with '-', i.e., 0a-3c-51-06-1a-fb.\n"
    "Serial number:  string of a decimal number, i.e., 400123.\n"
    "Ip address example: 192.168.1.70";

QLineEdit* AddRow(QGridLayout* grid, int row, const QString& caption, const QString& objectName,
                  QWidget* field) {
    grid->addWidget(new QLabel(caption), row, 0);
    grid->addWidget(field, row, 1);
    field->setObjectName(objectName);
    return qobject_cast<QLineEdit*>(field);
}

} // namespace

CDialogForceIP::CDialogForceIP(const GigEVisionDeviceInfo* device, const QStringList& candidates,
                               QWidget* parent)
    : QDialog(parent), m_comboMacSn(new QComboBox), m_layout(new QGridLayout) {
    setWindowTitle("Force IP");
    m_comboMacSn->setEditable(true);
    AddRow(m_layout, 0, "MAC/SN:", "comboBoxMacSn", m_comboMacSn);
    m_lineEditIp = AddRow(m_layout, 1, "IP Address:", "lineEdit_ip", new QLineEdit);
    m_lineEditSubnetMask =
        AddRow(m_layout, 2, "Subnet Mask:", "lineEdit_subnetMask", new QLineEdit);
    m_lineEditGateway =
        AddRow(m_layout, 3, "Default Gateway:", "lineEdit_defaultGateway", new QLineEdit);

    if (device) {
        m_comboMacSn->addItem(QString::fromLocal8Bit(device->macAddress));
        m_lineEditIp->setText(QString::fromLocal8Bit(device->currentIp));
        m_lineEditSubnetMask->setText(QString::fromLocal8Bit(device->currentSubnetMask));
        m_lineEditGateway->setText(QString::fromLocal8Bit(device->defaultGateway));
    } else {
        m_comboMacSn->addItems(candidates);
        m_lineEditIp->setText("192.168.0.0");
        m_lineEditSubnetMask->setText("255.255.255.0");
        m_lineEditGateway->setText("0.0.0.0");
    }

    auto* help = new QLabel(g_help);
    help->setObjectName("label");
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Apply | QDialogButtonBox::Close);
    buttons->setObjectName("buttonBox");

    auto* outer = new QVBoxLayout(this);
    outer->addLayout(m_layout);
    outer->addWidget(help);
    outer->addWidget(buttons);

    // The box reports the click before the button's own clicked() reaches accept(), so the
    // validation has set or cleared the flag by then.
    connect(buttons, &QDialogButtonBox::clicked, this, &CDialogForceIP::on_buttonBox_clicked);
    connect(buttons->button(QDialogButtonBox::Apply), &QPushButton::clicked, this,
            &CDialogForceIP::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &CDialogForceIP::reject);
}

QString CDialogForceIP::MacOrSerial() const {
    return m_comboMacSn->currentText();
}

QString CDialogForceIP::IpAddress() const {
    return m_lineEditIp->text();
}

QString CDialogForceIP::SubnetMask() const {
    return m_lineEditSubnetMask->text();
}

QString CDialogForceIP::DefaultGateway() const {
    return m_lineEditGateway->text();
}

void CDialogForceIP::accept() {
    if (m_valid)
        QDialog::accept();
}

void CDialogForceIP::on_buttonBox_clicked(QAbstractButton* button) {
    auto* box = qobject_cast<QDialogButtonBox*>(sender());
    if (!box || box->buttonRole(button) != QDialogButtonBox::ApplyRole)
        return;
    m_valid = false;
    try {
        ValidateAddresses(nullptr, m_lineEditIp->text().toLocal8Bit().constData(),
                          m_lineEditSubnetMask->text().toLocal8Bit().constData(),
                          m_lineEditGateway->text().toLocal8Bit().constData());
        m_valid = true;
    } catch (const std::exception& error) {
        ShowMessage(QString::fromLocal8Bit(error.what()), this);
    }
}
