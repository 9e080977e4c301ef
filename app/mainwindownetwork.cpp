// The main window's network tools: force a temporary address, restart a device, and edit the
// connected device's persistent IP configuration.
#include "mainwindow.h"

#include <dialogforceip.h>
#include <dialogforcereboot.h>
#include <dialogipconfiguration.h>
#include <korvatincameraviewlane.h>

#include <korvatin/gigevisiondeviceinfo.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>
#include <exception>

namespace {

// The dotted text of an address held in network byte order.
void AddressText(uint32_t address, char (&text)[16]) {
    in_addr in{};
    in.s_addr = address;
    std::strncpy(text, inet_ntoa(in), sizeof text - 1);
    text[sizeof text - 1] = '\0';
}

} // namespace

void MainWindow::on_pushButton_force_ip_clicked() {
    CDialogForceIP dialog(nullptr, m_serialNumbers, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    try {
        CKorvatinCamera::ForceIPEx(dialog.MacOrSerial().toLocal8Bit().constData(),
                                   dialog.IpAddress().toLocal8Bit().constData(),
                                   dialog.SubnetMask().toLocal8Bit().constData(),
                                   dialog.DefaultGateway().toLocal8Bit().constData(), nullptr);
        ClearDeviceList();
    } catch (const std::exception& error) {
        ShowMessage("Force IP failed: " + QString::fromLocal8Bit(error.what()), this);
    }
}

bool MainWindow::NamesDevice(const QString& macOrSerial, const GigEVisionDeviceInfo& device) {
    const QString text = macOrSerial.trimmed();
    if (text.contains('-'))
        return text.compare(QString::fromLatin1(device.macAddress), Qt::CaseInsensitive) == 0;
    return text == QString::fromLocal8Bit(device.serialNumber);
}

void MainWindow::on_pushButton_force_reboot_clicked() {
    for (;;) {
        CDialogForceReboot dialog(m_serialNumbers, this);
        if (dialog.exec() != QDialog::Accepted)
            return;
        const QString macOrSerial = dialog.MacOrSerial();
        if (macOrSerial.isEmpty()) {
            ShowMessage("The MAC address or serial number is empty.", this);
            continue;
        }
        // A text without '-' is a serial number; one that is not a decimal number reads as 0.
        if (!macOrSerial.contains('-') && macOrSerial.toULongLong(nullptr, 10) == 0) {
            ShowMessage("The serial number is 0.", this);
            continue;
        }
        // The connected camera is controlled by this window: it lets the camera go first, as a
        // disconnect does, so that the reset is not refused as another host's camera.
        std::optional<GigEVisionDeviceInfo> released;
        const GigEVisionDeviceInfo* connected = m_session->ConnectedDeviceInfo();
        if (connected && NamesDevice(macOrSerial, *connected)) {
            released = *connected;
            DisconnectCamera();
            UncheckConnectedRow();
        }
        try {
            CKorvatinCamera::ForceReboot(macOrSerial.toLocal8Bit().constData(), nullptr);
            // The camera restarts: its row goes, as after a lost connection, and discovery
            // lists it again once it is back.
            if (released)
                RemoveDeviceRow(*released);
            ShowMessage("Force reboot command has been sent.", this);
            return;
        } catch (const std::exception& error) {
            ShowMessage("Force reboot failed: " + QString::fromLocal8Bit(error.what()), this);
        }
    }
}

void MainWindow::on_pushButton_ip_configuration_clicked() {
    const GigEVisionDeviceInfo* connected = m_session->ConnectedDeviceInfo();
    if (!connected)
        return;
    bool dhcp = false;
    bool persistentIp = false;
    char ip[16] = {};
    char subnetMask[16] = {};
    char gateway[16] = {};
    try {
        uint32_t ipValue = 0;
        uint32_t maskValue = 0;
        uint32_t gatewayValue = 0;
        m_session->ReadIpConfigure(dhcp, persistentIp, ipValue, maskValue, gatewayValue);
        AddressText(ipValue, ip);
        AddressText(maskValue, subnetMask);
        AddressText(gatewayValue, gateway);
    } catch (const std::exception& error) {
        ShowMessage("Failed to get the camera configuration: " +
                        QString::fromLocal8Bit(error.what()),
                    this);
        return;
    }

    GigEVisionDeviceInfo device = *connected;
    CDialogIpConfiguration dialog(&device, dhcp, persistentIp, ip, subnetMask, gateway, this);
    if (dialog.exec() != QDialog::Accepted)
        return;

    try {
        if (const CDialogForceIP* forceIp = dialog.ForceIPDialog()) {
            DisconnectCamera();
            UncheckConnectedRow();
            CKorvatinCamera::ForceIPEx(forceIp->MacOrSerial().toLocal8Bit().constData(),
                                       forceIp->IpAddress().toLocal8Bit().constData(),
                                       forceIp->SubnetMask().toLocal8Bit().constData(),
                                       forceIp->DefaultGateway().toLocal8Bit().constData(),
                                       nullptr);
        } else {
            m_session->WriteIpConfigure(dialog.UseDHCP(), dialog.UsePersistentIP(),
                                        dialog.PersistentIp().toLocal8Bit().constData(),
                                        dialog.PersistentSubnetMask().toLocal8Bit().constData(),
                                        dialog.PersistentGateway().toLocal8Bit().constData());
            char mac[sizeof device.macAddress];
            std::memcpy(mac, m_session->ConnectedDeviceInfo()->macAddress, sizeof mac);
            mac[sizeof mac - 1] = '\0';
            DisconnectCamera();
            UncheckConnectedRow();
            // A FORCEIP to 0.0.0.0 makes the camera restart its IP configuration.
            CKorvatinCamera::ForceIPEx(mac, "0.0.0.0", "0.0.0.0", "0.0.0.0", nullptr);
        }
        ClearDeviceList();
    } catch (const std::exception& error) {
        ShowMessage("Force IP failed: " + QString::fromLocal8Bit(error.what()), this);
    }
}
