// The network tools' dialogs and the check of the address texts they collect.
#include "uitesthelpers.h"

#include <dialogforceip.h>
#include <dialogforcereboot.h>
#include <dialogipconfiguration.h>
#include <validateaddresses.h>

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatinexception.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include <cstring>

namespace {

const char* const kForceIpHelp =
    "MAC address: string of 6 heximal digists delimited with '-', i.e., 0a-3c-51-06-1a-fb.\n"
    "Serial number:  string of a decimal number, i.e., 400123.\n"
    "Ip address example: 192.168.1.70";
const char* const kRebootHelp =
    "MAC address: string of 6 heximal digists delimited with '-', i.e., 0a-3c-51-06-1a-fb.\n"
    "Serial number: string of a decimal number, i.e., 400123.";

// The text ValidateAddresses throws for the arguments, or "" when it accepts them; the code of
// every refusal must be QRN_ERR_INVALID, else "wrong code" comes back.
QString Refusal(const char* mac, const char* ip, const char* mask, const char* gateway) {
    try {
        ValidateAddresses(mac, ip, mask, gateway);
        return QString();
    } catch (const CKorvatinException& error) {
        return error.Code() == QRN_ERR_INVALID ? QString(error.what()) : QString("wrong code");
    }
}

void Copy(char* field, size_t size, const char* text) {
    std::strncpy(field, text, size - 1);
}

GigEVisionDeviceInfo SampleDevice() {
    GigEVisionDeviceInfo device{};
    Copy(device.macAddress, sizeof device.macAddress, "0a-3c-51-06-1a-fb");
    Copy(device.currentIp, sizeof device.currentIp, "192.168.7.21");
    Copy(device.currentSubnetMask, sizeof device.currentSubnetMask, "255.255.0.0");
    Copy(device.defaultGateway, sizeof device.defaultGateway, "192.168.7.1");
    Copy(device.manufacturerName, sizeof device.manufacturerName, "Korvatin");
    Copy(device.serialNumber, sizeof device.serialNumber, "400123");
    Copy(device.userDefinedName, sizeof device.userDefinedName, "line-3");
    Copy(device.hostInterfaceAddress, sizeof device.hostInterfaceAddress, "192.168.7.2");
    return device;
}

QLineEdit* Edit(QWidget& dialog, const char* name) {
    return dialog.findChild<QLineEdit*>(name);
}

QPushButton* BoxButton(QWidget& dialog, QDialogButtonBox::StandardButton which) {
    return dialog.findChild<QDialogButtonBox*>("buttonBox")->button(which);
}

void FillForceIp(QWidget& dialog, const QString& ip, const QString& mask, const QString& gateway) {
    Edit(dialog, "lineEdit_ip")->setText(ip);
    Edit(dialog, "lineEdit_subnetMask")->setText(mask);
    Edit(dialog, "lineEdit_defaultGateway")->setText(gateway);
}

QString LabelText(QWidget& dialog, const char* name) {
    return dialog.findChild<QLabel*>(name)->text();
}

} // namespace

class TestNetworkDialogs : public QObject {
    Q_OBJECT

private slots:
    void validAddressesAreAccepted_data();
    void validAddressesAreAccepted();
    void eachRefusalHasItsText_data();
    void eachRefusalHasItsText();
    void firstFailureInCheckOrderWins();
    void allOnesIsRefusedForEachAddress();
    void forceIpWithoutDeviceOffersTheCandidatesAndDefaults();
    void forceIpWithDeviceOffersItsMacAndCurrentAddresses();
    void forceIpApplyWithValidInputCloses();
    void forceIpApplyWithBadInputShowsWhyAndStaysOpen_data();
    void forceIpApplyWithBadInputShowsWhyAndStaysOpen();
    void forceIpCloseNeverValidates();
    void forceRebootOffersEditableCandidates();
    void forceRebootOkAndCancel();
    void ipConfigurationShowsTheDeviceAndStoredConfiguration();
    void writeConfigurationWithBadInputShowsWhyAndStaysOpen();
    void writeConfigurationWithValidInputClosesWithoutSubDialog();
    void cancellingTheNestedForceIpLeavesTheDialogOpen();
    void acceptedNestedForceIpClosesWithItsFields();
};

void TestNetworkDialogs::validAddressesAreAccepted_data() {
    QTest::addColumn<QByteArray>("mac");
    QTest::addColumn<QByteArray>("ip");
    QTest::addColumn<QByteArray>("mask");
    QTest::addColumn<QByteArray>("gateway");
    QTest::newRow("no MAC") << QByteArray() << QByteArray("192.168.1.70")
                            << QByteArray("255.255.255.0") << QByteArray("0.0.0.0");
    QTest::newRow("MAC") << QByteArray("0a-3c-51-06-1a-fb") << QByteArray("10.0.0.1")
                         << QByteArray("255.0.0.0") << QByteArray("10.0.0.254");
    QTest::newRow("upper-case MAC") << QByteArray("0A-3C-51-06-1A-FB") << QByteArray("10.0.0.1")
                                    << QByteArray("255.0.0.0") << QByteArray("0.0.0.0");
    // Only the separators after the six groups' first five and the sixth's end are looked at.
    QTest::newRow("text after the sixth group")
        << QByteArray("0a-3c-51-06-1a-fb-zz") << QByteArray("10.0.0.1") << QByteArray("255.0.0.0")
        << QByteArray("0.0.0.0");
    QTest::newRow("zero gateway") << QByteArray() << QByteArray("172.16.0.9")
                                  << QByteArray("255.255.0.0") << QByteArray("0.0.0.0");
}

void TestNetworkDialogs::validAddressesAreAccepted() {
    QFETCH(QByteArray, mac);
    QFETCH(QByteArray, ip);
    QFETCH(QByteArray, mask);
    QFETCH(QByteArray, gateway);
    QCOMPARE(Refusal(mac.isNull() ? nullptr : mac.constData(), ip, mask, gateway), QString());
}

void TestNetworkDialogs::eachRefusalHasItsText_data() {
    QTest::addColumn<QByteArray>("mac");
    QTest::addColumn<QByteArray>("ip");
    QTest::addColumn<QByteArray>("mask");
    QTest::addColumn<QByteArray>("gateway");
    QTest::addColumn<QString>("text");
    const QByteArray ip("192.168.1.70");
    const QByteArray mask("255.255.255.0");
    const QByteArray gateway("0.0.0.0");
    const QString badMac("Invalid MAC address.");
    QTest::newRow("MAC without dashes")
        << QByteArray("0a3c51061afb") << ip << mask << gateway << badMac;
    QTest::newRow("MAC with colons")
        << QByteArray("0a:3c:51:06:1a:fb") << ip << mask << gateway << badMac;
    QTest::newRow("MAC with a non-hex group")
        << QByteArray("0a-3c-51-gg-1a-fb") << ip << mask << gateway << badMac;
    QTest::newRow("MAC of five groups")
        << QByteArray("0a-3c-51-06-1a") << ip << mask << gateway << badMac;
    QTest::newRow("MAC shorter than 17 characters")
        << QByteArray("a-3c-51-06-1a-fb") << ip << mask << gateway << badMac;
    QTest::newRow("MAC with a character after the sixth group")
        << QByteArray("0a-3c-51-06-1a-fbX") << ip << mask << gateway << badMac;
    QTest::newRow("empty MAC") << QByteArray("") << ip << mask << gateway << badMac;
    QTest::newRow("IP not an address")
        << QByteArray() << QByteArray("192.168.1.") << mask << gateway << "Invalid IP address.";
    QTest::newRow("IP empty") << QByteArray() << QByteArray("") << mask << gateway
                              << "Invalid IP address.";
    QTest::newRow("mask empty") << QByteArray() << ip << QByteArray("") << gateway
                                << "Invalid IP Subnetmask.";
    QTest::newRow("mask words") << QByteArray() << ip << QByteArray("mask") << gateway
                                << "Invalid IP Subnetmask.";
    QTest::newRow("gateway out of range")
        << QByteArray() << ip << mask << QByteArray("10.0.0.256") << "Invalid default gateway.";
}

void TestNetworkDialogs::eachRefusalHasItsText() {
    QFETCH(QByteArray, mac);
    QFETCH(QByteArray, ip);
    QFETCH(QByteArray, mask);
    QFETCH(QByteArray, gateway);
    QFETCH(QString, text);
    QCOMPARE(Refusal(mac.isNull() ? nullptr : mac.constData(), ip, mask, gateway), text);
}

void TestNetworkDialogs::firstFailureInCheckOrderWins() {
    QCOMPARE(Refusal("bad", "bad", "bad", "bad"), QString("Invalid MAC address."));
    QCOMPARE(Refusal(nullptr, "bad", "bad", "bad"), QString("Invalid IP address."));
    QCOMPARE(Refusal(nullptr, "10.0.0.1", "bad", "bad"), QString("Invalid IP Subnetmask."));
    QCOMPARE(Refusal(nullptr, "10.0.0.1", "255.0.0.0", "bad"), QString("Invalid default gateway."));
}

void TestNetworkDialogs::allOnesIsRefusedForEachAddress() {
    const char* allOnes = "255.255.255.255";
    QCOMPARE(Refusal(nullptr, allOnes, "255.0.0.0", "0.0.0.0"), QString("Invalid IP address."));
    QCOMPARE(Refusal(nullptr, "10.0.0.1", allOnes, "0.0.0.0"), QString("Invalid IP Subnetmask."));
    QCOMPARE(Refusal(nullptr, "10.0.0.1", "255.0.0.0", allOnes),
             QString("Invalid default gateway."));
}

void TestNetworkDialogs::forceIpWithoutDeviceOffersTheCandidatesAndDefaults() {
    CDialogForceIP dialog(nullptr, {"400123", "400124"}, nullptr);
    QCOMPARE(dialog.windowTitle(), QString("Force IP"));
    auto* combo = dialog.findChild<QComboBox*>("comboBoxMacSn");
    QCOMPARE(combo->count(), 2);
    QCOMPARE(combo->itemText(0), QString("400123"));
    QCOMPARE(combo->itemText(1), QString("400124"));
    QCOMPARE(Edit(dialog, "lineEdit_ip")->text(), QString("192.168.0.0"));
    QCOMPARE(Edit(dialog, "lineEdit_subnetMask")->text(), QString("255.255.255.0"));
    QCOMPARE(Edit(dialog, "lineEdit_defaultGateway")->text(), QString("0.0.0.0"));
    QCOMPARE(LabelText(dialog, "label"), QString(kForceIpHelp));
    QStringList captions;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        captions << label->text();
    for (const char* caption : {"MAC/SN:", "IP Address:", "Subnet Mask:", "Default Gateway:"})
        QVERIFY2(captions.contains(caption), caption);
    QVERIFY(BoxButton(dialog, QDialogButtonBox::Apply));
    QVERIFY(BoxButton(dialog, QDialogButtonBox::Close));
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    uitest::SaveScreenshot(&dialog, "dialog_force_ip");
}

void TestNetworkDialogs::forceIpWithDeviceOffersItsMacAndCurrentAddresses() {
    const GigEVisionDeviceInfo device = SampleDevice();
    CDialogForceIP dialog(&device, {"ignored"}, nullptr);
    auto* combo = dialog.findChild<QComboBox*>("comboBoxMacSn");
    QCOMPARE(combo->count(), 1);
    QCOMPARE(dialog.MacOrSerial(), QString("0a-3c-51-06-1a-fb"));
    QCOMPARE(dialog.IpAddress(), QString("192.168.7.21"));
    QCOMPARE(dialog.SubnetMask(), QString("255.255.0.0"));
    QCOMPARE(dialog.DefaultGateway(), QString("192.168.7.1"));
}

void TestNetworkDialogs::forceIpApplyWithValidInputCloses() {
    uitest::MessageBoxWatcher messages;
    CDialogForceIP dialog(nullptr, {"400123"}, nullptr);
    dialog.show();
    FillForceIp(dialog, "10.1.2.3", "255.0.0.0", "0.0.0.0");
    BoxButton(dialog, QDialogButtonBox::Apply)->click();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(messages.texts.isEmpty());
    QCOMPARE(dialog.MacOrSerial(), QString("400123"));
    QCOMPARE(dialog.IpAddress(), QString("10.1.2.3"));
}

void TestNetworkDialogs::forceIpApplyWithBadInputShowsWhyAndStaysOpen_data() {
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("mask");
    QTest::addColumn<QString>("gateway");
    QTest::addColumn<QString>("text");
    QTest::newRow("all-ones gateway") << "10.1.2.3"
                                      << "255.0.0.0"
                                      << "255.255.255.255"
                                      << "Invalid default gateway.";
    QTest::newRow("empty mask") << "10.1.2.3"
                                << ""
                                << "0.0.0.0"
                                << "Invalid IP Subnetmask.";
    QTest::newRow("bad IP") << "10.1.2.x"
                            << "255.0.0.0"
                            << "0.0.0.0"
                            << "Invalid IP address.";
}

void TestNetworkDialogs::forceIpApplyWithBadInputShowsWhyAndStaysOpen() {
    QFETCH(QString, ip);
    QFETCH(QString, mask);
    QFETCH(QString, gateway);
    QFETCH(QString, text);
    uitest::MessageBoxWatcher messages;
    CDialogForceIP dialog(nullptr, {}, nullptr);
    dialog.show();
    FillForceIp(dialog, ip, mask, gateway);
    BoxButton(dialog, QDialogButtonBox::Apply)->click();
    QCOMPARE(messages.texts, QStringList{text});
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    // The input is kept for the user to correct.
    QCOMPARE(dialog.IpAddress(), ip);
    QCOMPARE(dialog.SubnetMask(), mask);
    QCOMPARE(dialog.DefaultGateway(), gateway);
    // Corrected, Apply closes it.
    FillForceIp(dialog, "10.1.2.3", "255.0.0.0", "0.0.0.0");
    BoxButton(dialog, QDialogButtonBox::Apply)->click();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void TestNetworkDialogs::forceIpCloseNeverValidates() {
    uitest::MessageBoxWatcher messages;
    CDialogForceIP dialog(nullptr, {}, nullptr);
    dialog.show();
    FillForceIp(dialog, "bad", "", "255.255.255.255");
    BoxButton(dialog, QDialogButtonBox::Close)->click();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(messages.texts.isEmpty());
}

void TestNetworkDialogs::forceRebootOffersEditableCandidates() {
    CDialogForceReboot dialog({"400123", "400124"}, nullptr);
    QCOMPARE(dialog.windowTitle(), QString("Force Reboot"));
    auto* combo = dialog.findChild<QComboBox*>("comboBoxMacSn");
    QVERIFY(combo->isEditable());
    QCOMPARE(combo->count(), 2);
    QCOMPARE(dialog.MacOrSerial(), QString("400123"));
    QCOMPARE(LabelText(dialog, "label_2"), QString(kRebootHelp));
    QCOMPARE(LabelText(dialog, "label"), QString("MAC/SN:"));
    combo->setEditText("0a-3c-51-06-1a-fb");
    QCOMPARE(dialog.MacOrSerial(), QString("0a-3c-51-06-1a-fb"));
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    uitest::SaveScreenshot(&dialog, "dialog_force_reboot");
}

void TestNetworkDialogs::forceRebootOkAndCancel() {
    CDialogForceReboot accepted({}, nullptr);
    accepted.show();
    BoxButton(accepted, QDialogButtonBox::Ok)->click();
    QCOMPARE(accepted.result(), int(QDialog::Accepted));
    CDialogForceReboot cancelled({}, nullptr);
    cancelled.show();
    BoxButton(cancelled, QDialogButtonBox::Cancel)->click();
    QCOMPARE(cancelled.result(), int(QDialog::Rejected));
    QVERIFY(!cancelled.isVisible());
}

void TestNetworkDialogs::ipConfigurationShowsTheDeviceAndStoredConfiguration() {
    GigEVisionDeviceInfo device = SampleDevice();
    CDialogIpConfiguration dialog(&device, true, false, "192.168.7.50", "255.255.255.0",
                                  "192.168.7.1", nullptr);
    QCOMPARE(dialog.windowTitle(), QString("IP Configuration"));
    QCOMPARE(dialog.minimumSize(), dialog.maximumSize());
    QCOMPARE(LabelText(dialog, "label_manufacturer"), QString("Korvatin"));
    QCOMPARE(LabelText(dialog, "label_serialNumber"), QString("400123"));
    QCOMPARE(LabelText(dialog, "label_macAddress"), QString("0a-3c-51-06-1a-fb"));
    QCOMPARE(LabelText(dialog, "label_userId"), QString("line-3"));
    QCOMPARE(LabelText(dialog, "label_currentIp"), QString("192.168.7.21"));
    QCOMPARE(LabelText(dialog, "label_currentSubnetMask"), QString("255.255.0.0"));
    QCOMPARE(LabelText(dialog, "label_defaultGateway"), QString("192.168.7.1"));
    QCOMPARE(LabelText(dialog, "label_hostInterfaceIp"), QString("192.168.7.2"));
    QCOMPARE(Edit(dialog, "lineEdit_ip")->text(), QString("192.168.7.50"));
    QCOMPARE(Edit(dialog, "lineEdit_subnetMask")->text(), QString("255.255.255.0"));
    QCOMPARE(Edit(dialog, "lineEdit_defaultGateway")->text(), QString("192.168.7.1"));
    QVERIFY(dialog.UseDHCP());
    QVERIFY(!dialog.UsePersistentIP());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    uitest::SaveScreenshot(&dialog, "dialog_ip_configuration");
    QCOMPARE(dialog.findChild<QCheckBox*>("checkBox_useDHCP")->text(), QString("Use DHCP"));
    QCOMPARE(dialog.findChild<QCheckBox*>("checkBox_usePersistentIP")->text(),
             QString("Use Persistent IP"));
    QCOMPARE(dialog.findChild<QCheckBox*>("checkBox_useAutoIP")->text(),
             QString("Use Auto IP (LLA)"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_forceTempIp")->text(),
             QString("Force a Temp IP"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_writeConfig")->text(),
             QString("Write Configuration"));

    CDialogIpConfiguration other(&device, false, true, "0.0.0.0", "0.0.0.0", "0.0.0.0", nullptr);
    QVERIFY(!other.UseDHCP());
    QVERIFY(other.UsePersistentIP());
}

void TestNetworkDialogs::writeConfigurationWithBadInputShowsWhyAndStaysOpen() {
    uitest::MessageBoxWatcher messages;
    GigEVisionDeviceInfo device = SampleDevice();
    CDialogIpConfiguration dialog(&device, false, true, "192.168.7.50", "", "192.168.7.1", nullptr);
    dialog.show();
    dialog.findChild<QPushButton*>("pushButton_writeConfig")->click();
    QCOMPARE(messages.texts, QStringList{"Invalid IP Subnetmask."});
    QVERIFY(dialog.isVisible());
    Edit(dialog, "lineEdit_subnetMask")->setText("255.255.255.0");
    Edit(dialog, "lineEdit_defaultGateway")->setText("255.255.255.255");
    dialog.findChild<QPushButton*>("pushButton_writeConfig")->click();
    QCOMPARE(messages.texts, (QStringList{"Invalid IP Subnetmask.", "Invalid default gateway."}));
    QVERIFY(dialog.isVisible());
    QCOMPARE(Edit(dialog, "lineEdit_ip")->text(), QString("192.168.7.50"));
}

void TestNetworkDialogs::writeConfigurationWithValidInputClosesWithoutSubDialog() {
    uitest::MessageBoxWatcher messages;
    GigEVisionDeviceInfo device = SampleDevice();
    CDialogIpConfiguration dialog(&device, false, false, "0.0.0.0", "0.0.0.0", "0.0.0.0", nullptr);
    dialog.show();
    Edit(dialog, "lineEdit_ip")->setText("192.168.7.60");
    Edit(dialog, "lineEdit_subnetMask")->setText("255.255.255.0");
    dialog.findChild<QCheckBox*>("checkBox_usePersistentIP")->setChecked(true);
    dialog.findChild<QPushButton*>("pushButton_writeConfig")->click();
    QVERIFY(messages.texts.isEmpty());
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(!dialog.ForceIPDialog());
    QVERIFY(dialog.UsePersistentIP());
    QCOMPARE(dialog.PersistentIp(), QString("192.168.7.60"));
    QCOMPARE(dialog.PersistentSubnetMask(), QString("255.255.255.0"));
    QCOMPARE(dialog.PersistentGateway(), QString("0.0.0.0"));
}

void TestNetworkDialogs::cancellingTheNestedForceIpLeavesTheDialogOpen() {
    GigEVisionDeviceInfo device = SampleDevice();
    CDialogIpConfiguration dialog(&device, false, false, "0.0.0.0", "0.0.0.0", "0.0.0.0", nullptr);
    dialog.show();
    QString nestedMac;
    const bool shown = uitest::WithModal<CDialogForceIP>(
        this, [&] { dialog.findChild<QPushButton*>("pushButton_forceTempIp")->click(); },
        [&](CDialogForceIP& forceIp) {
            nestedMac = forceIp.MacOrSerial();
            BoxButton(forceIp, QDialogButtonBox::Close)->click();
        });
    QVERIFY(shown);
    QCOMPARE(nestedMac, QString("0a-3c-51-06-1a-fb"));
    QVERIFY(dialog.isVisible());
    QVERIFY(!dialog.ForceIPDialog());
}

void TestNetworkDialogs::acceptedNestedForceIpClosesWithItsFields() {
    GigEVisionDeviceInfo device = SampleDevice();
    CDialogIpConfiguration dialog(&device, false, false, "0.0.0.0", "0.0.0.0", "0.0.0.0", nullptr);
    dialog.show();
    const bool shown = uitest::WithModal<CDialogForceIP>(
        this, [&] { dialog.findChild<QPushButton*>("pushButton_forceTempIp")->click(); },
        [&](CDialogForceIP& forceIp) {
            FillForceIp(forceIp, "192.168.7.99", "255.255.255.0", "192.168.7.1");
            BoxButton(forceIp, QDialogButtonBox::Apply)->click();
        });
    QVERIFY(shown);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(dialog.ForceIPDialog());
    QCOMPARE(dialog.ForceIPDialog()->MacOrSerial(), QString("0a-3c-51-06-1a-fb"));
    QCOMPARE(dialog.ForceIPDialog()->IpAddress(), QString("192.168.7.99"));
    QCOMPARE(dialog.ForceIPDialog()->SubnetMask(), QString("255.255.255.0"));
    QCOMPARE(dialog.ForceIPDialog()->DefaultGateway(), QString("192.168.7.1"));
}

QTEST_MAIN(TestNetworkDialogs)
#include "tst_networkdialogs.moc"
