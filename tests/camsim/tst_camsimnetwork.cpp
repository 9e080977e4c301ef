// The simulator on the wire with raw GVCP: discovery, FORCEIP, reset, privilege, bad packets.
#include "gvcpclient.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QtTest>

namespace {

constexpr uint16_t kReadMem = 0x0084;
constexpr uint32_t kCcp = 0x0A00;
constexpr uint32_t kHeartbeatTimeout = 0x0938;
constexpr uint32_t kDeviceReset = 0x10044;
constexpr uint32_t kWidth = 0x10000;

QByteArray macBytes(const QString& text) {
    return QByteArray::fromHex(text.toLatin1().replace(':', ""));
}

QByteArray be32(uint32_t v) {
    QByteArray b;
    for (int shift = 24; shift >= 0; shift -= 8)
        b.append(char(v >> shift));
    return b;
}

} // namespace

class TestCamsimNetwork : public QObject {
    Q_OBJECT

private slots:
    void broadcastDiscoveryFindsThreeCamerasWithDistinctSerialsAndMacs();
    void directedBroadcastAndUnicastDiscoveryAnswer();
    void sixtyCamerasRunInOneProcess();
    void sharesTheBroadcastPortWithAravisSimulator();
    void cameraOnAnInterfaceAnswersItsDirectedBroadcast();
    void forceIpMovesTheCameraAndItAnswersThere();
    void forceIpForAnotherMacIsIgnored();
    void deviceResetMakesTheCameraSilentThenBack();
    void resetComesBackOnThePersistentAddressWhenEnabled();
    void forceIpToZeroComesUpOnThePersistentAddressMaskAndGateway();
    void forceIpToZeroWithoutPersistentIpReturnsToTheStartupAddress();
    void dhcpAndLinkLocalFlagsAreStoredReportedAndKeptOverAReset();
    void onlyTheControllingHostMayWrite();
    void silentControllerLosesControlAfterHeartbeatTimeout();
    void badRequestsGetErrorStatus();
    void malformedPacketsDoNotBringItDown();
};

void TestCamsimNetwork::broadcastDiscoveryFindsThreeCamerasWithDistinctSerialsAndMacs() {
    if (!TestNetwork::isIsolated())
        QSKIP("broadcast discovery needs a private network namespace (run through ctest as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.14.1", "--count", "3"}, 3),
             qPrintable(simulator.errorString()));
    QCOMPARE(simulator.addresses(), QStringList({"127.0.14.1", "127.0.14.2", "127.0.14.3"}));
    CGvcpClient client;
    QVERIFY(client.isOpen());
    const QList<DiscoveredCamera> cameras = client.discover("255.255.255.255", 3, 3000);
    QCOMPARE(cameras.size(), 3);
    QSet<QString> serials, macs, addresses;
    for (const DiscoveredCamera& camera : cameras) {
        QCOMPARE(camera.address, camera.currentIp); // answers leave from the camera's address
        QCOMPARE(camera.model, QString("Korvatin Camsim"));
        serials << camera.serial;
        macs << camera.mac;
        addresses << camera.address;
    }
    QCOMPARE(serials.size(), 3);
    QCOMPARE(macs.size(), 3);
    QCOMPARE(addresses, QSet<QString>({"127.0.14.1", "127.0.14.2", "127.0.14.3"}));
}

void TestCamsimNetwork::directedBroadcastAndUnicastDiscoveryAnswer() {
    if (!TestNetwork::isIsolated())
        QSKIP("broadcast discovery needs a private network namespace (run through ctest as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.14.10", "--count", "2", "--serial",
                                    "400123", "--mac", "0a:3c:51:06:1a:f0"},
                                   2),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QList<DiscoveredCamera> directed = client.discover("127.255.255.255", 2, 3000);
    QCOMPARE(directed.size(), 2);
    const QList<DiscoveredCamera> unicast = client.discover("127.0.14.11", 1, 2000);
    QCOMPARE(unicast.size(), 1);
    QCOMPARE(unicast[0].serial, QString("400124"));
    QCOMPARE(unicast[0].mac, QString("0a:3c:51:06:1a:f1"));
    QCOMPARE(unicast[0].address, QString("127.0.14.11"));
}

void TestCamsimNetwork::sixtyCamerasRunInOneProcess() {
    if (!TestNetwork::isIsolated())
        QSKIP("broadcast discovery needs a private network namespace (run through ctest as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.16.1", "--count", "60"}, 60),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QList<DiscoveredCamera> cameras = client.discover("255.255.255.255", 60, 5000);
    QSet<QString> serials;
    for (const DiscoveredCamera& camera : cameras)
        serials << camera.serial;
    QCOMPARE(cameras.size(), 60);
    QCOMPARE(serials.size(), 60);
}

void TestCamsimNetwork::sharesTheBroadcastPortWithAravisSimulator() {
    if (!TestNetwork::isIsolated())
        QSKIP("broadcast discovery needs a private network namespace (run through ctest as root)");
    SimulatorProcess aravis;
    QVERIFY2(aravis.startAravisFake("127.0.14.50", "FAKE0001"), qPrintable(aravis.errorString()));
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.14.51", "--count", "2"}, 2),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QList<DiscoveredCamera> cameras = client.discover("255.255.255.255", 3, 3000);
    // Aravis' simulator answers from the broadcast socket, so its descriptor names its address.
    QSet<QString> addresses;
    for (const DiscoveredCamera& camera : cameras)
        addresses << camera.currentIp;
    QCOMPARE(addresses, QSet<QString>({"127.0.14.50", "127.0.14.51", "127.0.14.52"}));
}

// An address on a real interface (a veth in the test's namespace) with a /24: the camera
// reports the interface's mask and answers discovery sent to the subnet's broadcast address.
void TestCamsimNetwork::cameraOnAnInterfaceAnswersItsDirectedBroadcast() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace to add an interface (run through ctest as root)");
    auto ip = [](const QStringList& arguments) {
        QProcess process;
        process.start("ip", arguments);
        return process.waitForFinished(5000) && process.exitCode() == 0;
    };
    if (!ip({"link", "add", "camsim0", "type", "veth", "peer", "name", "camsim1"}))
        QSKIP("this kernel offers no veth interfaces");
    QVERIFY(ip({"addr", "add", "10.77.0.1/24", "dev", "camsim0"}));
    QVERIFY(ip({"addr", "add", "10.77.0.5/24", "dev", "camsim0"}));
    QVERIFY(ip({"link", "set", "camsim0", "up"}));
    QVERIFY(ip({"link", "set", "camsim1", "up"}));
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "10.77.0.5"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client("10.77.0.1");
    QVERIFY(client.isOpen());
    const QList<DiscoveredCamera> cameras = client.discover("10.77.0.255", 1, 3000);
    QCOMPARE(cameras.size(), 1);
    QCOMPARE(cameras[0].address, QString("10.77.0.5"));
    uint32_t mask = 0;
    QCOMPARE(client.readRegister("10.77.0.5", 0x0034, &mask).status, uint16_t(0));
    QCOMPARE(mask, 0xFFFFFF00u);
    ip({"link", "del", "camsim0"});
}

void TestCamsimNetwork::forceIpMovesTheCameraAndItAnswersThere() {
    if (!TestNetwork::isIsolated())
        QSKIP("FORCEIP is broadcast: it needs a private network namespace (run through ctest "
              "as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.1"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QList<DiscoveredCamera> before = client.discover("127.0.15.1", 1, 2000);
    QCOMPARE(before.size(), 1);
    const GvcpAck ack = client.forceIp("255.255.255.255", macBytes(before[0].mac), "127.0.15.77",
                                       "255.0.0.0", "0.0.0.0");
    QVERIFY(ack.received);
    QCOMPARE(ack.status, uint16_t(0));
    QCOMPARE(ack.command, uint16_t(0x0005));
    QCOMPARE(ack.from, QString("127.0.15.77"));

    const QList<DiscoveredCamera> after = client.discover("127.0.15.77", 1, 2000);
    QCOMPARE(after.size(), 1);
    QCOMPARE(after[0].currentIp, QString("127.0.15.77"));
    QCOMPARE(after[0].serial, before[0].serial);
    QVERIFY(client.discover("127.0.15.1", 1, 500).isEmpty());
    QTRY_VERIFY(simulator.output().contains("moved to 127.0.15.77"));

    // Also sent straight to the camera's address.
    const GvcpAck back = client.forceIp("127.0.15.77", macBytes(before[0].mac), "127.0.15.1",
                                        "255.0.0.0", "0.0.0.0");
    QCOMPARE(back.status, uint16_t(0));
    QCOMPARE(back.from, QString("127.0.15.1"));
    QCOMPARE(client.discover("127.0.15.1", 1, 2000).size(), 1);
}

void TestCamsimNetwork::forceIpForAnotherMacIsIgnored() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.20"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const GvcpAck ack = client.forceIp("127.0.15.20", QByteArray::fromHex("0a0b0c0d0e0f"),
                                       "127.0.15.21", "255.0.0.0", "0.0.0.0", 500);
    QVERIFY(!ack.received);
    QCOMPARE(client.discover("127.0.15.20", 1, 2000).size(), 1);
}

void TestCamsimNetwork::deviceResetMakesTheCameraSilentThenBack() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.30"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    QCOMPARE(client.writeRegister("127.0.15.30", kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister("127.0.15.30", kWidth, 640).status, uint16_t(0));
    QElapsedTimer timer;
    timer.start();
    const GvcpAck ack = client.writeRegister("127.0.15.30", kDeviceReset, 1);
    QVERIFY(ack.received);
    QCOMPARE(ack.status, uint16_t(0));
    QVERIFY(client.discover("127.0.15.30", 1, 300).isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(client.discover("127.0.15.30", 1, 200).size() == 1, 10000);
    QVERIFY2(timer.elapsed() >= 800, qPrintable(QString::number(timer.elapsed())));
    // Back as after power-on: nobody in control, settings at their defaults.
    uint32_t value = 0;
    QCOMPARE(client.readRegister("127.0.15.30", kCcp, &value).status, uint16_t(0));
    QCOMPARE(value, 0u);
    QCOMPARE(client.readRegister("127.0.15.30", kWidth, &value).status, uint16_t(0));
    QCOMPARE(value, 1280u);
    QVERIFY(simulator.isRunning());
}

void TestCamsimNetwork::resetComesBackOnThePersistentAddressWhenEnabled() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.40"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QString address("127.0.15.40");
    QCOMPARE(client.writeRegister(address, kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x064C, 0x7F000F63).status, uint16_t(0)); // .99
    QCOMPARE(client.writeRegister(address, 0x065C, 0xFF000000).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x066C, 0x7F000F01).status, uint16_t(0));
    uint32_t config = 0;
    QCOMPARE(client.readRegister(address, 0x0014, &config).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x0014, config | 0x1).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, kDeviceReset, 1).status, uint16_t(0));
    QTRY_VERIFY_WITH_TIMEOUT(client.discover("127.0.15.99", 1, 200).size() == 1, 10000);
    QVERIFY(client.discover(address, 1, 300).isEmpty());
    uint32_t value = 0;
    QCOMPARE(client.readRegister("127.0.15.99", 0x0044, &value).status, uint16_t(0));
    QCOMPARE(value, 0x7F000F01u);
    QCOMPARE(client.readRegister("127.0.15.99", 0x064C, &value).status, uint16_t(0));
    QCOMPARE(value, 0x7F000F63u);

    // With persistent IP off again the next reset returns to the start-up address.
    QCOMPARE(client.writeRegister("127.0.15.99", kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister("127.0.15.99", 0x0014, config & ~0x1u).status, uint16_t(0));
    QCOMPARE(client.writeRegister("127.0.15.99", kDeviceReset, 1).status, uint16_t(0));
    QTRY_VERIFY_WITH_TIMEOUT(client.discover(address, 1, 200).size() == 1, 10000);
}

void TestCamsimNetwork::forceIpToZeroComesUpOnThePersistentAddressMaskAndGateway() {
    if (!TestNetwork::isIsolated())
        QSKIP("FORCEIP is broadcast: it needs a private network namespace (run through ctest "
              "as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.42"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QString address("127.0.15.42");
    const QList<DiscoveredCamera> before = client.discover(address, 1, 2000);
    QCOMPARE(before.size(), 1);
    QCOMPARE(client.writeRegister(address, kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x064C, 0x7F000F64).status, uint16_t(0)); // .100
    QCOMPARE(client.writeRegister(address, 0x065C, 0xFFFF0000).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x066C, 0x7F000FFE).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x0014, 0x5).status, uint16_t(0)); // persistent, LLA

    // Mask and gateway of the command do not matter when the address is 0.
    const GvcpAck ack = client.forceIp("255.255.255.255", macBytes(before[0].mac), "0.0.0.0",
                                       "255.0.0.0", "127.0.0.9");
    QCOMPARE(ack.status, uint16_t(0));
    QCOMPARE(ack.from, QString("127.0.15.100"));
    const QList<DiscoveredCamera> after = client.discover("127.0.15.100", 1, 2000);
    QCOMPARE(after.size(), 1);
    QCOMPARE(after[0].currentIp, QString("127.0.15.100"));
    QCOMPARE(after[0].currentMask, QString("255.255.0.0"));
    QCOMPARE(after[0].currentGateway, QString("127.0.15.254"));
    QCOMPARE(after[0].ipConfig, 0x5u);
    QVERIFY(client.discover(address, 1, 300).isEmpty());
    QTRY_VERIFY(simulator.output().contains("restarted its IP configuration on 127.0.15.100"));
}

void TestCamsimNetwork::forceIpToZeroWithoutPersistentIpReturnsToTheStartupAddress() {
    if (!TestNetwork::isIsolated())
        QSKIP("FORCEIP is broadcast: it needs a private network namespace (run through ctest "
              "as root)");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.43"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QList<DiscoveredCamera> before = client.discover("127.0.15.43", 1, 2000);
    QCOMPARE(before.size(), 1);
    const QByteArray mac = macBytes(before[0].mac);
    QCOMPARE(client.forceIp("255.255.255.255", mac, "127.0.15.143", "255.255.255.0", "127.0.15.1")
                 .status,
             uint16_t(0));
    // A persistent address is set but persistent IP stays off (DHCP and LLA, as at power-on):
    // with no DHCP server the camera comes back on its start-up address.
    QCOMPARE(client.writeRegister("127.0.15.143", kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister("127.0.15.143", 0x064C, 0x7F000F65).status, uint16_t(0));
    QCOMPARE(client.writeRegister("127.0.15.143", 0x065C, 0xFF000000).status, uint16_t(0));
    const GvcpAck ack = client.forceIp("255.255.255.255", mac, "0.0.0.0", "0.0.0.0", "0.0.0.0");
    QCOMPARE(ack.status, uint16_t(0));
    QCOMPARE(ack.from, QString("127.0.15.43"));
    const QList<DiscoveredCamera> after = client.discover("127.0.15.43", 1, 2000);
    QCOMPARE(after.size(), 1);
    QCOMPARE(after[0].currentMask, QString("255.0.0.0"));
    QCOMPARE(after[0].currentGateway, QString("0.0.0.0"));
    QCOMPARE(after[0].ipConfig, 0x6u);
    QVERIFY(client.discover("127.0.15.143", 1, 300).isEmpty());
}

void TestCamsimNetwork::dhcpAndLinkLocalFlagsAreStoredReportedAndKeptOverAReset() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.44"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    const QString address("127.0.15.44");
    QList<DiscoveredCamera> found = client.discover(address, 1, 2000);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].ipConfig, 0x6u); // DHCP and LLA at power-on
    QCOMPARE(client.writeRegister(address, kCcp, 2).status, uint16_t(0));
    // Only the three configuration bits are kept.
    QCOMPARE(client.writeRegister(address, 0x0014, 0xFFFFFFF4).status, uint16_t(0));
    uint32_t value = 0;
    QCOMPARE(client.readRegister(address, 0x0014, &value).status, uint16_t(0));
    QCOMPARE(value, 0x4u);
    found = client.discover(address, 1, 2000);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].ipConfig, 0x4u);
    QCOMPARE(client.writeRegister(address, 0x0014, 0x2).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, kDeviceReset, 1).status, uint16_t(0));
    QTRY_VERIFY(simulator.output().contains("resetting"));
    QTRY_VERIFY_WITH_TIMEOUT(client.discover(address, 1, 200).size() == 1, 10000);
    found = client.discover(address, 1, 2000);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].ipConfig, 0x2u);
    QCOMPARE(client.readRegister(address, 0x0014, &value).status, uint16_t(0));
    QCOMPARE(value, 0x2u);
}

void TestCamsimNetwork::onlyTheControllingHostMayWrite() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.50"}),
             qPrintable(simulator.errorString()));
    const QString address("127.0.15.50");
    CGvcpClient first;
    CGvcpClient second;
    // Without control nobody writes.
    QCOMPARE(first.writeRegister(address, kWidth, 640).status, uint16_t(0x8006));
    QCOMPARE(first.writeRegister(address, kCcp, 2).status, uint16_t(0));
    QCOMPARE(second.writeRegister(address, kCcp, 2).status, uint16_t(0x8006));
    QCOMPARE(second.writeRegister(address, kWidth, 640).status, uint16_t(0x8006));
    uint32_t value = 0;
    QCOMPARE(second.readRegister(address, kCcp, &value).status, uint16_t(0));
    QCOMPARE(value, 2u);
    QCOMPARE(first.writeRegister(address, kWidth, 640).status, uint16_t(0));
    // Giving control up lets the other host take it.
    QCOMPARE(first.writeRegister(address, kCcp, 0).status, uint16_t(0));
    QCOMPARE(second.writeRegister(address, kCcp, 2).status, uint16_t(0));
    // Exclusive access also keeps others from reading.
    QCOMPARE(second.writeRegister(address, kCcp, 1).status, uint16_t(0));
    QCOMPARE(first.readRegister(address, kWidth, &value).status, uint16_t(0x8006));
}

void TestCamsimNetwork::silentControllerLosesControlAfterHeartbeatTimeout() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.60"}),
             qPrintable(simulator.errorString()));
    const QString address("127.0.15.60");
    CGvcpClient vanished;
    QCOMPARE(vanished.writeRegister(address, kCcp, 2).status, uint16_t(0));
    QCOMPARE(vanished.writeRegister(address, kHeartbeatTimeout, 500).status, uint16_t(0));
    CGvcpClient next;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(next.writeRegister(address, kCcp, 2).status, uint16_t(0x8006));
    QTRY_COMPARE_WITH_TIMEOUT(next.writeRegister(address, kCcp, 2).status, uint16_t(0), 5000);
    QVERIFY2(timer.elapsed() >= 400, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(vanished.writeRegister(address, kWidth, 640).status, uint16_t(0x8006));
    QTRY_VERIFY(simulator.output().contains("heartbeat time-out"));

    // A host that keeps talking keeps control past the time-out.
    QCOMPARE(next.writeRegister(address, kHeartbeatTimeout, 1000).status, uint16_t(0));
    for (int i = 0; i < 12; ++i) {
        QTest::qWait(150);
        uint32_t value = 0;
        QCOMPARE(next.readRegister(address, kCcp, &value).status, uint16_t(0));
        QCOMPARE(value, 2u);
    }
}

void TestCamsimNetwork::badRequestsGetErrorStatus() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.70"}),
             qPrintable(simulator.errorString()));
    const QString address("127.0.15.70");
    CGvcpClient client;
    uint32_t value = 0;
    QCOMPARE(client.command(address, 0x0012, QByteArray()).status, uint16_t(0x8001));
    QCOMPARE(client.readRegister(address, 0x0002, &value).status, uint16_t(0x8005));
    QCOMPARE(client.readRegister(address, 0x12345670, &value).status, uint16_t(0x8003));
    QCOMPARE(client.writeRegister(address, kCcp, 2).status, uint16_t(0));
    QCOMPARE(client.writeRegister(address, 0x0048, 1).status, uint16_t(0x8004)); // vendor name
    QCOMPARE(client.writeRegister(address, kWidth, 3).status, uint16_t(0x8002));
    QByteArray readMemory = be32(0x0048) + QByteArray(2, '\0') + QByteArray::fromHex("0400");
    QCOMPARE(client.command(address, kReadMem, readMemory).status, uint16_t(0x8002));
    readMemory = be32(0x0048) + QByteArray(2, '\0') + QByteArray::fromHex("0006");
    QCOMPARE(client.command(address, kReadMem, readMemory).status, uint16_t(0x8005));
    readMemory = be32(0x0048) + QByteArray(2, '\0') + QByteArray::fromHex("0020");
    const GvcpAck vendor = client.command(address, kReadMem, readMemory);
    QCOMPARE(vendor.status, uint16_t(0));
    QVERIFY(vendor.payload.mid(4).startsWith("Korvatin"));
}

void TestCamsimNetwork::malformedPacketsDoNotBringItDown() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.15.80"}),
             qPrintable(simulator.errorString()));
    const QString address("127.0.15.80");
    CGvcpClient client;
    QRandomGenerator random(20261122);
    // Random datagrams, some of them with a valid key so that they reach the command decoder.
    for (int i = 0; i < 2000; ++i) {
        QByteArray datagram(int(random.bounded(1, 600)), '\0');
        for (char& c : datagram)
            c = char(random.bounded(256));
        if (i % 2 == 0)
            datagram[0] = char(0x42);
        if (i % 4 == 0 && datagram.size() >= 4) {
            const uint16_t commands[] = {0x0002, 0x0004, 0x0040, 0x0080, 0x0082, 0x0084, 0x0086};
            const uint16_t command = commands[random.bounded(7)];
            datagram[2] = char(command >> 8);
            datagram[3] = char(command);
        }
        client.sendRaw(address, datagram);
    }
    // Short headers, a wrong key, lengths beyond the datagram, huge counts.
    client.sendRaw(address, QByteArray());
    client.sendRaw(address, QByteArray::fromHex("42"));
    client.sendRaw(address, QByteArray::fromHex("42010080"));
    client.sendRaw(address, QByteArray::fromHex("4301008000040001") + be32(0));
    // Drop whatever the storm was answered with, so that each answer below is the one expected.
    while (client.receive(300).received) {
    }
    const GvcpAck tooLong = client.command(address, 0x0080, QByteArray());
    QCOMPARE(tooLong.status, uint16_t(0x8002));
    client.sendRaw(address, CGvcpClient::header(0x0080, 0xFFFF, 77) + be32(0));
    GvcpAck ack = client.receive(1000);
    QVERIFY(ack.received);
    QCOMPARE(ack.status, uint16_t(0x800E));
    client.sendRaw(address, CGvcpClient::header(0x0084, 8, 78) + be32(0xFFFFFFFC) +
                                QByteArray::fromHex("0000FFFF"));
    ack = client.receive(1000);
    QCOMPARE(ack.status, uint16_t(0x8002));
    client.sendRaw(address, CGvcpClient::header(0x0084, 8, 79) + be32(0xFFFFFFFC) +
                                QByteArray::fromHex("00000200"));
    ack = client.receive(1000);
    QCOMPARE(ack.status, uint16_t(0x8003));
    client.sendRaw(address, CGvcpClient::header(0x0082, 7, 80) + be32(kWidth) +
                                QByteArray::fromHex("000280"));
    ack = client.receive(1000);
    QCOMPARE(ack.status, uint16_t(0x8002));
    client.sendRaw(address, CGvcpClient::header(0x0040, 12, 81, 0) + be32(0xFFFF) + be32(0) +
                                be32(0xFFFFFF));

    QVERIFY(simulator.isRunning());
    uint32_t version = 0;
    QTRY_COMPARE_WITH_TIMEOUT(client.readRegister(address, 0x0000, &version).status, uint16_t(0),
                              5000);
    QCOMPARE(version, 0x00020000u);
    QCOMPARE(client.discover(address, 1, 2000).size(), 1);
}

QTEST_GUILESS_MAIN(TestCamsimNetwork)
#include "tst_camsimnetwork.moc"
