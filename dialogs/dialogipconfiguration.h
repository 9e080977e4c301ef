// The dialog that shows a connected device's addresses and edits its persistent IP
// configuration, or hands over to a temporary forced address.
#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class CDialogIpConfiguration;
}
class CDialogForceIP;
struct GigEVisionDeviceInfo;

class CDialogIpConfiguration : public QDialog {
    Q_OBJECT
public:
    // `device` is shown and not owned; the flags and texts are the device's stored
    // configuration as read before opening.
    CDialogIpConfiguration(GigEVisionDeviceInfo* device, bool useDHCP, bool usePersistentIP,
                           const char* persistentIp, const char* persistentMask,
                           const char* persistentGateway, QWidget* parent);
    ~CDialogIpConfiguration() override;

    // Set when the dialog was left through "Force a Temp IP": the caller forces the address
    // this sub-dialog holds. Null when it was left through "Write Configuration".
    CDialogForceIP* ForceIPDialog() const { return m_forceIp.get(); }

    bool UseDHCP() const;
    bool UsePersistentIP() const;
    bool UseAutoIP() const;
    QString PersistentIp() const;
    QString PersistentSubnetMask() const;
    QString PersistentGateway() const;

private slots:
    void on_pushButton_forceTempIp_clicked();
    void on_pushButton_writeConfig_clicked();

private:
    std::unique_ptr<Ui::CDialogIpConfiguration> ui;
    GigEVisionDeviceInfo* m_device; // borrowed
    std::unique_ptr<CDialogForceIP> m_forceIp;
};
