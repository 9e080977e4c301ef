// The device table of the main window: how discovery results fill it, what a click on a row does
// when the row or the camera is not usable, and the table operations of the window.
#include "windowdriver.h"

#include <devicediscoverythread.h>
#include <korvatincameraviewlane.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <memory>

using namespace e2e;

namespace {

GigEVisionDeviceInfo Device(const char* ip, const char* serial, uint8_t lastMacByte) {
    GigEVisionDeviceInfo info;
    std::memset(&info, 0, sizeof info);
    std::strncpy(info.currentIp, ip, sizeof info.currentIp - 1);
    std::strncpy(info.currentSubnetMask, "255.0.0.0", sizeof info.currentSubnetMask - 1);
    std::strncpy(info.manufacturerName, "Maker", sizeof info.manufacturerName - 1);
    std::strncpy(info.modelName, "Model", sizeof info.modelName - 1);
    std::strncpy(info.serialNumber, serial, sizeof info.serialNumber - 1);
    std::strncpy(info.hostInterfaceAddress, "127.0.0.1", sizeof info.hostInterfaceAddress - 1);
    std::strncpy(info.hostInterfaceName, "lo", sizeof info.hostInterfaceName - 1);
    const uint8_t mac[6] = {0x02, 0x4b, 0x56, 0x00, 0x00, lastMacByte};
    std::memcpy(info.mac, mac, sizeof mac);
    std::snprintf(info.macAddress, sizeof info.macAddress, "02-4b-56-00-00-%02x", lastMacByte);
    return info;
}

// Hands `devices` to the window as one discovery result, in a freshly allocated array as the
// discovery thread does.
void Discover(MainWindow& window, const QList<GigEVisionDeviceInfo>& devices) {
    auto* array = new GigEVisionDeviceInfo[std::max<qsizetype>(devices.size(), 1)];
    for (qsizetype i = 0; i < devices.size(); ++i)
        array[i] = devices[i];
    window.DevicesDiscovered(array, int(devices.size()));
}

} // namespace

class TestDeviceTable : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // A window whose own discovery is switched off, so that only the results the test hands
    // it reach the table.
    std::unique_ptr<MainWindow> QuietWindow() {
        auto window =
            std::make_unique<MainWindow>(nullptr, WriteSettings(m_dir.filePath("settings.ini")));
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        window->DiscoveryThread()->SetDiscovery(false, settings, true);
        // A result gathered before discovery went off may still be queued.
        QTest::qWait(200);
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void resultFillsRowsSortedByAddressTextWithTheDescriptor() {
        auto window = QuietWindow();
        const QList<GigEVisionDeviceInfo> devices = {Device("10.0.0.9", "S9", 9),
                                                     Device("10.0.0.10", "S10", 10),
                                                     Device("10.0.0.2", "S2", 2)};
        Discover(*window, devices);
        QTableWidget* table = Table(*window);
        QCOMPARE(table->rowCount(), 3);
        QCOMPARE(table->item(0, 2)->text(), QString("10.0.0.10"));
        QCOMPARE(table->item(1, 2)->text(), QString("10.0.0.2"));
        QCOMPARE(table->item(2, 2)->text(), QString("10.0.0.9"));
        QCOMPARE(table->item(0, 1)->text(), QString("S10"));
        QCOMPARE(table->item(0, 0)->text(), QString("Maker"));
        QCOMPARE(table->item(0, 3)->text(), QString("Model"));
        QCOMPARE(table->item(0, 2)->toolTip(), QString("On 127.0.0.1"));
        const auto stored =
            table->item(0, 0)->data(MainWindow::DeviceInfoRole).value<GigEVisionDeviceInfo>();
        QCOMPARE(std::memcmp(&stored, &devices[1], sizeof stored), 0);
        QCOMPARE(table->item(0, 0)->checkState(), Qt::Unchecked);
        // The serial numbers keep the order of arrival.
        QCOMPARE(window->SerialNumbers(), QStringList({"S9", "S10", "S2"}));
        // Sorting is not left on: a later change does not reorder.
        QVERIFY(!table->isSortingEnabled());
        QCOMPARE(table->horizontalHeaderItem(0)->text(), QString("Manufacturer"));
        QCOMPARE(table->horizontalHeaderItem(1)->text(), QString("Serial Number"));
        QCOMPARE(table->horizontalHeaderItem(2)->text(), QString("Ip Address"));
        QCOMPARE(table->horizontalHeaderItem(3)->text(), QString("Model Name"));
    }

    void emptyResultEmptiesTheTableAndTheSerialList() {
        auto window = QuietWindow();
        Discover(*window, {Device("10.0.0.1", "S1", 1), Device("10.0.0.2", "S2", 2)});
        QCOMPARE(Table(*window)->rowCount(), 2);
        Discover(*window, {});
        QCOMPARE(Table(*window)->rowCount(), 0);
        QVERIFY(window->SerialNumbers().isEmpty());
    }

    void rowWithoutDeviceInfoShowsTheMessageAndChangesNothing() {
        auto window = QuietWindow();
        Discover(*window, {Device("10.0.0.1", "S1", 1)});
        QTableWidget* table = Table(*window);
        table->setItem(0, 0, new QTableWidgetItem("no descriptor"));
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QTRY_COMPARE(boxes.texts, QStringList{"Device Info is not available"});
        QVERIFY(!window->IsConnected());
        QCOMPARE(table->rowCount(), 1);
    }

    void unreachableCameraShowsTheConnectErrorAndStaysDisconnected() {
        auto window = QuietWindow();
        // Nothing answers on this address.
        Discover(*window, {Device("127.0.9.99", "S99", 99)});
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts.size(), 1, 20000);
        QVERIFY(!boxes.texts.first().isEmpty());
        QVERIFY(!window->IsConnected());
        QCOMPARE(ConnectionCaption(*window), QString("Not Connected"));
        QCOMPARE(Table(*window)->item(0, 0)->checkState(), Qt::Unchecked);
        QCOMPARE(EnabledSwitchedCount(*window), 0);
        // The discovery time-out is the configured one again.
        QCOMPARE(window->DiscoveryThread()->DiscoveryTimeout(), 300);
    }

    void connectedCameraMissingFromAResultStaysConnectedUnmarked() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.9.10"}), qPrintable(sim.errorString()));
        auto window =
            std::make_unique<MainWindow>(nullptr, WriteSettings(m_dir.filePath("settings.ini")));
        QTRY_COMPARE_WITH_TIMEOUT(Table(*window)->rowCount(), 1, 20000);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QVERIFY(window->IsConnected());
        // While connected, discovery passes wait longer for answers.
        QCOMPARE(window->DiscoveryThread()->DiscoveryTimeout(), 2000);
        const GigEVisionDeviceInfo camera = *window->Session()->ConnectedDeviceInfo();
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        window->DiscoveryThread()->SetDiscovery(false, settings, true);
        QTest::qWait(200);

        Discover(*window, {Device("127.0.9.11", "other", 11)});
        QCOMPARE(Table(*window)->rowCount(), 1);
        QCOMPARE(Table(*window)->item(0, 0)->checkState(), Qt::Unchecked);
        QVERIFY(window->IsConnected());

        // Back in a result, its row is marked and selected again.
        Discover(*window, {Device("127.0.9.11", "other", 11), camera});
        const int row = RowOf(*window, "127.0.9.10");
        QCOMPARE(Table(*window)->item(row, 0)->checkState(), Qt::Checked);
        QVERIFY(Table(*window)->item(row, 0)->isSelected());

        // A click on another row disconnects first; when that connect fails the window ends
        // disconnected and shows why.
        ClickRow(*window, RowOf(*window, "127.0.9.11"));
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts.size(), 1, 20000);
        QVERIFY(!window->IsConnected());
        QCOMPARE(Table(*window)->item(RowOf(*window, "127.0.9.10"), 0)->checkState(),
                 Qt::Unchecked);
        QCOMPARE(window->DiscoveryThread()->DiscoveryTimeout(), 300);
    }

    void tableOperationsRemoveUncheckAndClear() {
        auto window = QuietWindow();
        const GigEVisionDeviceInfo a = Device("10.0.0.1", "A", 1);
        const GigEVisionDeviceInfo b = Device("10.0.0.2", "B", 2);
        Discover(*window, {a, b});
        QTableWidget* table = Table(*window);
        table->item(1, 0)->setCheckState(Qt::Checked);
        table->item(1, 0)->setData(MainWindow::ConnectedRole, true);
        window->UncheckConnectedRow();
        QCOMPARE(table->item(1, 0)->checkState(), Qt::Unchecked);
        QCOMPARE(table->item(1, 0)->data(MainWindow::ConnectedRole).toBool(), false);

        window->RemoveDeviceRow(a);
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(table->item(0, 2)->text(), QString("10.0.0.2"));

        window->ClearDeviceList();
        QCOMPARE(table->rowCount(), 0);
        // The serial numbers of the last result are kept.
        QCOMPARE(window->SerialNumbers(), QStringList({"A", "B"}));
    }

    void messageBoxHasOnlyOk() {
        QWidget parent;
        bool checked = false;
        QTimer::singleShot(50, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            QVERIFY(box);
            QCOMPARE(box->text(), QString("Some text"));
            QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::Ok));
            QCOMPARE(box->parentWidget(), &parent);
            checked = true;
            box->button(QMessageBox::Ok)->click();
        });
        MainWindow::ShowMessage("Some text", &parent);
        QVERIFY(checked);
    }
};

QTEST_MAIN(TestDeviceTable)
#include "tst_devicetable.moc"
