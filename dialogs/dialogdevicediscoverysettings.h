// The dialog that chooses whether, where and how devices are discovered.
#pragma once

#include <QDialog>
#include <QList>
#include <QString>

#include <memory>

class QRadioButton;

namespace Ui {
class CDialogDeviceDiscoverySettings;
}

class CDialogDeviceDiscoverySettings : public QDialog {
    Q_OBJECT
public:
    // `selectedInterface` is the interface address text discovery is limited to, or null for
    // every interface.
    CDialogDeviceDiscoverySettings(bool discoverEnabled, const char* selectedInterface,
                                   bool broadcast, QWidget* parent);
    ~CDialogDeviceDiscoverySettings() override;

    bool DiscoverEnabled() const;
    bool Broadcast() const;
    // Null when discovery runs on every interface; otherwise the checked interface's address
    // text, or null when none is checked.
    QString SelectedInterface() const;
    // One radio button per interface, in the order the system lists them.
    const QList<QRadioButton*>& InterfaceButtons() const { return m_interfaceButtons; }

private slots:
    void on_checkBoxAllInterfaces_toggled(bool checked);

private:
    std::unique_ptr<Ui::CDialogDeviceDiscoverySettings> ui;
    QList<QRadioButton*> m_interfaceButtons; // owned by the scroll area's layout
};
