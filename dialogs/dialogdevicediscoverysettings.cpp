// The dialog that chooses whether, where and how devices are discovered.
#include "dialogdevicediscoverysettings.h"

#include "ui_dialogdevicediscoverysettings.h"

#include <korvatin/korvatingigevision.h>

#include <QRadioButton>

CDialogDeviceDiscoverySettings::CDialogDeviceDiscoverySettings(bool discoverEnabled,
                                                               const char* selectedInterface,
                                                               bool broadcast, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::CDialogDeviceDiscoverySettings>()) {
    ui->setupUi(this);
    ui->checkBoxDiscoverEnabled->setChecked(discoverEnabled);
    ui->checkBoxBroadcast->setChecked(broadcast);
    {
        // The radio buttons are made below, from what the box says now.
        const QSignalBlocker quiet(ui->checkBoxAllInterfaces);
        ui->checkBoxAllInterfaces->setChecked(selectedInterface == nullptr);
    }
    const QString selected =
        selectedInterface != nullptr ? QString::fromLocal8Bit(selectedInterface) : QString();
    for (const NetworkInterfaceController& nic : CKorvatinGigEVision::EnumerateNICs()) {
        auto* button = new QRadioButton(QString::fromLatin1(nic.name), this);
        button->setChecked(selectedInterface != nullptr && button->text() == selected);
        ui->verticalLayout_nics->addWidget(button);
        m_interfaceButtons.append(button);
    }
    ui->verticalLayout_nics->addStretch();
    for (QRadioButton* button : m_interfaceButtons)
        button->setEnabled(selectedInterface != nullptr);
}

CDialogDeviceDiscoverySettings::~CDialogDeviceDiscoverySettings() = default;

bool CDialogDeviceDiscoverySettings::DiscoverEnabled() const {
    return ui->checkBoxDiscoverEnabled->isChecked();
}

bool CDialogDeviceDiscoverySettings::Broadcast() const {
    return ui->checkBoxBroadcast->isChecked();
}

QString CDialogDeviceDiscoverySettings::SelectedInterface() const {
    if (ui->checkBoxAllInterfaces->isChecked())
        return QString();
    for (QRadioButton* button : m_interfaceButtons) {
        if (button->isChecked())
            return button->text();
    }
    return QString();
}

void CDialogDeviceDiscoverySettings::on_checkBoxAllInterfaces_toggled(bool checked) {
    for (QRadioButton* button : m_interfaceButtons)
        button->setEnabled(!checked);
    if (checked || m_interfaceButtons.isEmpty())
        return;
    for (QRadioButton* button : m_interfaceButtons) {
        if (button->isChecked())
            return;
    }
    m_interfaceButtons.first()->setChecked(true);
}
