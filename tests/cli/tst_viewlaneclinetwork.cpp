// viewlane-cli's network commands (force-ip, reboot, ip-config) against korvatin-camsim, and
// devices reached by their address or found by serial number.
#include "aravisreference.h"
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QElapsedTimer>
#include <QtTest>

namespace {

// What `list` shows of one device.
struct Listed {
    QString serial;
    QString ip;
    QString mac;
};

QList<Listed> list() {
    QList<Listed> devices;
    const CliRun run = RunCli({"list", "--no-header", "--timeout", "300"});
    for (const QString& line : run.out.split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.split('\t');
        if (fields.size() == 6)
            devices.append(Listed{fields[1], fields[2], fields[4]});
    }
    return devices;
}

// The device with `serial` in a fresh `list`, or an empty entry.
Listed listed(const QString& serial) {
    for (const Listed& device : list())
        if (device.serial == serial)
            return device;
    return Listed{};
}

} // namespace

class TestViewlaneCliNetwork : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();

    void getByAddressReachesAravisSimulatorWithoutBroadcast();
    void lookupBySerialReturnsWellBeforeTheTimeout();
    void forceIpMovesTheCameraAndListShowsItThere();
    void forceIpBySerialNumberMovesTheCamera();
    void forceIpToZeroRestartsTheIpConfiguration();
    void rebootBringsTheCameraBack();
    void ipConfigPrintsTheConfiguration();
    void ipConfigWritesOnlyWhatIsGiven();
    void ipConfigPersistentWithApplyBringsTheCameraUpThere();
    void rebootOfACameraHeldByAnotherHostFailsWithTheClearText();
    void forceIpToAnUnknownMacFailsWithOneLine();
    void forceIpWithAnInvalidAddressFailsWithOneLine();
    void badNetworkUsageGivesOneLineAndNonzeroExit_data();
    void badNetworkUsageGivesOneLineAndNonzeroExit();
    void helpListsTheNetworkCommands();

private:
    // Starts korvatin-camsim on `address`; its serial number and MAC as `list` shows them.
    bool startCamsim(SimulatorProcess& simulator, const QString& address, Listed* device);
    void verifyOneErrorLine(const CliRun& run, const QString& expected);
};

void TestViewlaneCliNetwork::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("viewlane-cli's network commands are tested in a private network namespace only "
              "(run through ctest as root): FORCEIP and discovery are broadcast");
    QVERIFY2(QFile::exists(TestNetwork::binDir() + "/viewlane-cli"),
             qPrintable(TestNetwork::binDir() + "/viewlane-cli is not built"));
    QVERIFY2(QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"),
             qPrintable(TestNetwork::binDir() + "/korvatin-camsim is not built"));
}

bool TestViewlaneCliNetwork::startCamsim(SimulatorProcess& simulator, const QString& address,
                                         Listed* device) {
    if (!simulator.startCamsim({"--address", address})) {
        qWarning("%s", qPrintable(simulator.errorString()));
        return false;
    }
    for (const Listed& found : list())
        if (found.ip == address) {
            *device = found;
            return true;
        }
    qWarning("camsim on %s is not listed", qPrintable(address));
    return false;
}

void TestViewlaneCliNetwork::verifyOneErrorLine(const CliRun& run, const QString& expected) {
    QVERIFY2(run.exitCode == 1, qPrintable("exit code " + QString::number(run.exitCode)));
    QVERIFY2(run.errLines.size() == 1, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.errLines[0], "viewlane-cli: " + expected);
    QCOMPARE(run.out, QString());
}

void TestViewlaneCliNetwork::getByAddressReachesAravisSimulatorWithoutBroadcast() {
    // Aravis' simulator on 127.0.0.1, the address `-i lo` gives it: it listens on that address
    // and on 255.255.255.255 only, so the loopback's directed discovery does not reach it.
    SimulatorProcess fake;
    QVERIFY2(fake.startAravisFake("127.0.0.1", "CLINET1"), qPrintable(fake.errorString()));
    QVERIFY(list().isEmpty());
    qint64 width = -1;
    {
        AravisReference reference;
        QString error;
        QVERIFY2(reference.open("127.0.0.1", &error), qPrintable(error));
        width = reference.integerValue("Width");
    }
    QVERIFY(width > 0);
    const CliRun run = RunCli({"get", "127.0.0.1", "Width"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, QString::number(width) + "\n");
    QCOMPARE(run.errLines, QStringList());
}

void TestViewlaneCliNetwork::lookupBySerialReturnsWellBeforeTheTimeout() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.1", &device));
    constexpr int kTimeoutMs = 10000;
    QElapsedTimer timer;
    timer.start();
    const CliRun run =
        RunCli({"get", device.serial, "Width", "--timeout", QString::number(kTimeoutMs)});
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, QString("1280\n"));
    // A wide margin: the program starts, finds, connects and reads in far less than half.
    QVERIFY2(elapsed < kTimeoutMs / 2, qPrintable(QString::number(elapsed)));
}

void TestViewlaneCliNetwork::forceIpMovesTheCameraAndListShowsItThere() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.2", &device));
    const CliRun run =
        RunCli({"force-ip", device.mac, "127.0.18.72", "255.255.0.0", "127.0.18.254"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, device.mac + ": now at 127.0.18.72, subnet mask 255.255.0.0, default gateway "
                                   "127.0.18.254\n");
    QCOMPARE(run.errLines, QStringList());
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.72"));
    QCOMPARE(list().size(), 1);
}

void TestViewlaneCliNetwork::forceIpBySerialNumberMovesTheCamera() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.3", &device));
    const CliRun run = RunCli({"force-ip", device.serial, "127.0.18.73", "255.0.0.0", "0.0.0.0"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, device.serial +
                          ": now at 127.0.18.73, subnet mask 255.0.0.0, default gateway "
                          "0.0.0.0\n");
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.73"));
}

void TestViewlaneCliNetwork::forceIpToZeroRestartsTheIpConfiguration() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.4", &device));
    QCOMPARE(RunCli({"force-ip", device.mac, "127.0.18.74", "255.0.0.0", "0.0.0.0"}).exitCode, 0);
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.74"));
    // Persistent IP is off: the camera restarts on its start-up address.
    const CliRun run = RunCli({"force-ip", device.mac, "0.0.0.0", "0.0.0.0", "0.0.0.0"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, device.mac + ": restarting its IP configuration\n");
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.4"));
}

void TestViewlaneCliNetwork::rebootBringsTheCameraBack() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.5", &device));
    QCOMPARE(RunCli({"set", device.serial, "Width", "640"}).exitCode, 0);
    const CliRun run = RunCli({"reboot", device.serial});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, device.serial + ": reset; the device restarts\n");
    QCOMPARE(run.errLines, QStringList());
    QTRY_VERIFY(simulator.output().contains("resetting"));
    QTRY_VERIFY_WITH_TIMEOUT(listed(device.serial).ip == "127.0.18.5", 10000);
    // Back as after power-on.
    QCOMPARE(RunCli({"get", device.serial, "Width"}).out, QString("1280\n"));
}

void TestViewlaneCliNetwork::ipConfigPrintsTheConfiguration() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.6", &device));
    for (const QString& name : {device.serial, device.mac, QString("127.0.18.6")}) {
        const CliRun run = RunCli({"ip-config", name});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
        QCOMPARE(run.out, QString("DHCP\ton\n"
                                  "Persistent IP\toff\n"
                                  "Persistent IP address\t0.0.0.0\n"
                                  "Persistent subnet mask\t0.0.0.0\n"
                                  "Persistent default gateway\t0.0.0.0\n"
                                  "Current IP address\t127.0.18.6\n"
                                  "Current subnet mask\t255.0.0.0\n"
                                  "Current default gateway\t0.0.0.0\n"));
        QCOMPARE(run.errLines, QStringList());
    }
}

void TestViewlaneCliNetwork::ipConfigWritesOnlyWhatIsGiven() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.7", &device));
    CliRun run = RunCli({"ip-config", device.serial, "--ip", "192.168.7.70", "--mask",
                         "255.255.255.0", "--gateway", "192.168.7.1"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(
        run.out.startsWith("DHCP\ton\nPersistent IP\toff\nPersistent IP address\t192.168.7.70\n"
                           "Persistent subnet mask\t255.255.255.0\n"
                           "Persistent default gateway\t192.168.7.1\n"),
        qPrintable(run.out));
    run = RunCli({"ip-config", device.serial, "--dhcp", "off"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(run.out.startsWith("DHCP\toff\nPersistent IP\toff\nPersistent IP address\t"
                                "192.168.7.70\nPersistent subnet mask\t255.255.255.0\n"
                                "Persistent default gateway\t192.168.7.1\n"),
             qPrintable(run.out));
    // Written, not used: the camera stays where it is.
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.7"));
}

void TestViewlaneCliNetwork::ipConfigPersistentWithApplyBringsTheCameraUpThere() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.8", &device));
    const CliRun run =
        RunCli({"ip-config", "127.0.18.8", "--persistent", "on", "--ip", "127.0.18.99", "--mask",
                "255.255.0.0", "--gateway", "127.0.18.254", "--apply"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, QString("DHCP\ton\n"
                              "Persistent IP\ton\n"
                              "Persistent IP address\t127.0.18.99\n"
                              "Persistent subnet mask\t255.255.0.0\n"
                              "Persistent default gateway\t127.0.18.254\n"
                              "Current IP address\t127.0.18.8\n"
                              "Current subnet mask\t255.0.0.0\n"
                              "Current default gateway\t0.0.0.0\n") +
                          device.mac + ": restarting its IP configuration\n");
    QCOMPARE(listed(device.serial).ip, QString("127.0.18.99"));
    const CliRun after = RunCli({"ip-config", "127.0.18.99"});
    QVERIFY2(after.out.endsWith("Current IP address\t127.0.18.99\n"
                                "Current subnet mask\t255.255.0.0\n"
                                "Current default gateway\t127.0.18.254\n"),
             qPrintable(after.out));
}

void TestViewlaneCliNetwork::rebootOfACameraHeldByAnotherHostFailsWithTheClearText() {
    SimulatorProcess simulator;
    Listed device;
    QVERIFY(startCamsim(simulator, "127.0.18.9", &device));
    AravisReference otherHost;
    QString error;
    QVERIFY2(otherHost.open("127.0.18.9", &error), qPrintable(error));
    // The test's Aravis client reaches the simulator from the loopback's first address.
    verifyOneErrorLine(RunCli({"reboot", device.mac}),
                       device.mac + " is controlled by another host (127.0.0.1)");
    verifyOneErrorLine(RunCli({"reboot", device.serial}),
                       device.serial + " is controlled by another host (127.0.0.1)");
    // Not reset: the other host still reads through its connection.
    QCOMPARE(otherHost.integerValue("Width"), qint64(1280));
}

void TestViewlaneCliNetwork::forceIpToAnUnknownMacFailsWithOneLine() {
    verifyOneErrorLine(
        RunCli({"force-ip", "02-00-00-00-00-99", "127.0.18.90", "255.0.0.0", "0.0.0.0"}),
        "Unknown device: no device with the MAC address 02-00-00-00-00-99 "
        "answered FORCEIP or discovery on lo (127.0.0.1)");
    verifyOneErrorLine(RunCli({"reboot", "400123"}),
                       "Unknown device: no device with the serial number 400123 answered "
                       "discovery on lo (127.0.0.1)");
}

void TestViewlaneCliNetwork::forceIpWithAnInvalidAddressFailsWithOneLine() {
    verifyOneErrorLine(
        RunCli({"force-ip", "0a-3c-51-06-1a-fb", "192.168.1.300", "255.255.255.0", "0.0.0.0"}),
        "Invalid IP address \"192.168.1.300\": expected four decimal numbers "
        "such as 192.168.1.70");
    verifyOneErrorLine(
        RunCli({"force-ip", "0a-3c-51-06-1a", "192.168.1.30", "255.255.255.0", "0.0.0.0"}),
        "Invalid MAC address \"0a-3c-51-06-1a\": expected six hexadecimal pairs "
        "separated by '-', such as 0a-3c-51-06-1a-fb");
}

void TestViewlaneCliNetwork::badNetworkUsageGivesOneLineAndNonzeroExit_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected");
    QTest::newRow("force-ip without a gateway")
        << QStringList{"force-ip", "0a-3c-51-06-1a-fb", "10.0.0.5", "255.0.0.0"}
        << "wrong number of arguments, expected: force-ip MAC|SERIAL IP MASK GATEWAY";
    QTest::newRow("reboot without a device")
        << QStringList{"reboot"} << "wrong number of arguments, expected: reboot MAC|SERIAL";
    QTest::newRow("ip-config with two devices")
        << QStringList{"ip-config", "a", "b"}
        << "wrong number of arguments, expected: ip-config DEVICE";
    QTest::newRow("dhcp neither on nor off") << QStringList{"ip-config", "a", "--dhcp", "maybe"}
                                             << "--dhcp needs on or off, not \"maybe\"";
    QTest::newRow("persistent without a value")
        << QStringList{"ip-config", "a", "--persistent"} << "--persistent needs a value";
    QTest::newRow("empty ip") << QStringList{"ip-config", "a", "--ip="}
                              << "--ip needs an IPv4 address";
    QTest::newRow("apply with a value")
        << QStringList{"ip-config", "a", "--apply=yes"} << "unknown option --apply=yes";
}

void TestViewlaneCliNetwork::badNetworkUsageGivesOneLineAndNonzeroExit() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);
    const CliRun run = RunCli(arguments);
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.errLines, QStringList{"viewlane-cli: " + expected + " (see viewlane-cli --help)"});
    QCOMPARE(run.out, QString());
}

void TestViewlaneCliNetwork::helpListsTheNetworkCommands() {
    const CliRun run = RunCli({"--help"});
    QCOMPARE(run.exitCode, 0);
    for (const char* text :
         {"force-ip MAC|SERIAL IP MASK GATEWAY", "reboot MAC|SERIAL", "ip-config DEVICE",
          "--dhcp on|off", "--persistent on|off", "--ip A, --mask M, --gateway G", "--apply"})
        QVERIFY2(run.out.contains(text), text);
}

QTEST_GUILESS_MAIN(TestViewlaneCliNetwork)
#include "tst_viewlaneclinetwork.moc"
