// The dialog that collects a device (MAC or serial number) and the temporary address, subnet
// mask and default gateway to force on it.
#pragma once

#include <QDialog>
#include <QStringList>

class QAbstractButton;
class QComboBox;
class QDialogButtonBox;
class QGridLayout;
class QLineEdit;
struct GigEVisionDeviceInfo;

class CDialogForceIP : public QDialog {
    Q_OBJECT
public:
    // With a device the choice is its MAC address and the fields start with its current
    // address, mask and gateway; without one the choice is `candidates` and the fields start
    // with "192.168.0.0", "255.255.255.0" and "0.0.0.0". The device is not kept.
    CDialogForceIP(const GigEVisionDeviceInfo* device, const QStringList& candidates,
                   QWidget* parent);

    QString MacOrSerial() const;
    QString IpAddress() const;
    QString SubnetMask() const;
    QString DefaultGateway() const;

public slots:
    // Closes with result 1 only after Apply found the addresses valid.
    void accept() override;

private slots:
    // Apply validates the three addresses and shows why they are refused.
    void on_buttonBox_clicked(QAbstractButton* button);

private:
    QComboBox* m_comboMacSn;
    QLineEdit* m_lineEditIp;
    QLineEdit* m_lineEditSubnetMask;
    QLineEdit* m_lineEditGateway;
    QGridLayout* m_layout;
    bool m_valid = false;
};
