// Discovery: our GVCP client finds Aravis' simulated cameras on private loopback addresses.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingigevision.h>

#include <QElapsedTimer>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

std::vector<GigEVisionDeviceInfo> discover(int timeoutMs, const char* interfaceAddress,
                                           bool broadcast, unsigned int maxCount = 16) {
    std::vector<GigEVisionDeviceInfo> buffer(maxCount);
    ListDevicesSettings settings{};
    settings.timeoutMs = timeoutMs;
    settings.interfaceAddress = interfaceAddress;
    settings.broadcast = broadcast ? 1 : 0;
    unsigned int count = 12345;
    const unsigned int returned =
        CKorvatinCamera::ListDevices(buffer.data(), maxCount, &count, &settings);
    if (returned != count)
        qFatal("ListDevices returned %u but stored %u", returned, count);
    buffer.resize(count);
    return buffer;
}

// Discovery asked again until at least `expected` devices answered one round (a busy machine
// may keep a simulator from answering within one round's time-out), at most for 20 s; the last
// round's list. A round's own behaviour (each device once, its fields) is what the tests check.
std::vector<GigEVisionDeviceInfo> discoverAtLeast(std::size_t expected, int timeoutMs,
                                                  const char* interfaceAddress, bool broadcast) {
    std::vector<GigEVisionDeviceInfo> devices;
    QTest::qWaitFor(
        [&] {
            devices = discover(timeoutMs, interfaceAddress, broadcast);
            return devices.size() >= expected;
        },
        20000);
    return devices;
}

const GigEVisionDeviceInfo* findSerial(const std::vector<GigEVisionDeviceInfo>& devices,
                                       const char* serial) {
    for (const auto& device : devices)
        if (std::strcmp(device.serialNumber, serial) == 0)
            return &device;
    return nullptr;
}

// Writes bootstrap registers of the device at `address` through Aravis, as a configuration
// tool would, then gives control back.
bool writeBootstrap(const char* address,
                    std::initializer_list<std::pair<guint64, guint32>> values) {
    GInetAddress* interfaceAddress = g_inet_address_new_from_string(address);
    GInetAddress* deviceAddress = g_inet_address_new_from_string(address);
    GError* error = nullptr;
    ArvDevice* device = arv_gv_device_new(interfaceAddress, deviceAddress, &error);
    g_object_unref(interfaceAddress);
    g_object_unref(deviceAddress);
    bool written = device != nullptr && error == nullptr;
    for (const auto& [registerAddress, value] : values)
        written = written && arv_device_write_register(device, registerAddress, value, nullptr);
    if (error != nullptr)
        g_error_free(error);
    if (device != nullptr)
        g_object_unref(device);
    return written;
}

bool allZeroAfterText(const char* field, std::size_t size) {
    const std::size_t length = strnlen(field, size);
    for (std::size_t i = length; i < size; ++i)
        if (field[i] != 0)
            return false;
    return true;
}

} // namespace

class TestSdkDiscovery : public QObject {
    Q_OBJECT

private slots:
    void init() {
        if (!TestNetwork::isIsolated())
            QSKIP("discovery tests need a private network namespace (run through ctest as root)");
    }

    void discoveryFindsFakeWithDescriptorFields() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.21", "SN0021"), qPrintable(fake.errorString()));
        // The fake leaves version, IP configuration, mask and gateway zero; give them values
        // through its bootstrap registers so that the parsing of these fields is seen.
        QVERIFY(writeBootstrap(
            "127.0.0.21",
            {{0x00, 0x00020001u}, {0x14, 0x00000005u}, {0x34, 0xFFFFFF00u}, {0x44, 0x7F0000FEu}}));
        const auto devices = discoverAtLeast(1, 300, nullptr, true);
        const GigEVisionDeviceInfo* device = findSerial(devices, "SN0021");
        QVERIFY(device != nullptr);
        QCOMPARE(QString(device->currentIp), QString("127.0.0.21"));
        QCOMPARE(QString(device->manufacturerName), QString("Aravis"));
        QVERIFY(QString(device->modelName).contains("Fake"));
        QCOMPARE(QString(device->currentSubnetMask), QString("255.255.255.0"));
        QCOMPARE(QString(device->defaultGateway), QString("127.0.0.254"));
        const QRegularExpression macFormat("^[0-9a-f]{2}(-[0-9a-f]{2}){5}$");
        QVERIFY2(macFormat.match(device->macAddress).hasMatch(), device->macAddress);
        const QString rawMac =
            QString::asprintf("%02x-%02x-%02x-%02x-%02x-%02x", device->mac[0], device->mac[1],
                              device->mac[2], device->mac[3], device->mac[4], device->mac[5]);
        QCOMPARE(QString(device->macAddress), rawMac);
        QCOMPARE(QString(device->hostInterfaceName), QString("lo"));
        QVERIFY(QString(device->hostInterfaceAddress).startsWith("127."));
        QCOMPARE(device->gevVersionMajor, uint16_t(2));
        QCOMPARE(device->gevVersionMinor, uint16_t(1));
        QCOMPARE(device->ipConfigCurrent, 5u);
        QCOMPARE(QString(device->deviceVersion),
                 QString::asprintf("%u.%u.%u", arv_get_major_version(), arv_get_minor_version(),
                                   arv_get_micro_version()));
        // Every byte not written is zero.
        QVERIFY(allZeroAfterText(device->serialNumber, sizeof device->serialNumber));
        QVERIFY(allZeroAfterText(device->macAddress, sizeof device->macAddress));
        QVERIFY(allZeroAfterText(device->hostInterfaceName, sizeof device->hostInterfaceName));
        for (uint8_t byte : device->reserved)
            QCOMPARE(byte, uint8_t(0));
        QCOMPARE(device->reserved0[0], uint8_t(0));
        QCOMPARE(device->reserved0[1], uint8_t(0));
    }

    void directedDiscoveryReachesFakeOnItsOwnAddress() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.22", "SN0022"), qPrintable(fake.errorString()));
        // The /32 interface 127.0.0.22 has itself as directed broadcast address.
        const auto devices = discoverAtLeast(1, 300, "127.0.0.22", false);
        QCOMPARE(devices.size(), std::size_t(1));
        QCOMPARE(QString(devices[0].serialNumber), QString("SN0022"));
        QCOMPARE(QString(devices[0].hostInterfaceAddress), QString("127.0.0.22"));
    }

    void noDeviceGivesEmptyResult() {
        std::vector<GigEVisionDeviceInfo> buffer(4);
        std::memset(buffer.data(), 0xAB, buffer.size() * sizeof(GigEVisionDeviceInfo));
        ListDevicesSettings settings{};
        settings.timeoutMs = 100;
        settings.broadcast = 1;
        unsigned int count = 99;
        QCOMPARE(CKorvatinCamera::ListDevices(buffer.data(), 4, &count, &settings), 0u);
        QCOMPARE(count, 0u);
        // Null settings: every interface, directed, 100 ms.
        count = 99;
        QCOMPARE(CKorvatinCamera::ListDevices(buffer.data(), 4, &count, nullptr), 0u);
        QCOMPARE(count, 0u);
    }

    void moreDevicesThanMaxCountGivesMaxCount() {
        SimulatorProcess fakes[3];
        for (int i = 0; i < 3; ++i) {
            const QString address = QString("127.0.0.%1").arg(31 + i);
            QVERIFY2(fakes[i].startAravisFake(address, QString("SN003%1").arg(i)),
                     qPrintable(fakes[i].errorString()));
        }
        QCOMPARE(discoverAtLeast(3, 300, nullptr, true).size(), std::size_t(3));
        std::vector<GigEVisionDeviceInfo> buffer(3);
        std::memset(buffer.data(), 0xCD, buffer.size() * sizeof(GigEVisionDeviceInfo));
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.broadcast = 1;
        unsigned int count = 0;
        QCOMPARE(CKorvatinCamera::ListDevices(buffer.data(), 2, &count, &settings), 2u);
        QCOMPARE(count, 2u);
        QVERIFY(QString(buffer[0].serialNumber).startsWith("SN003"));
        QVERIFY(QString(buffer[1].serialNumber).startsWith("SN003"));
        QVERIFY(QString(buffer[0].serialNumber) != QString(buffer[1].serialNumber));
        // The third slot was not touched.
        QCOMPARE(static_cast<unsigned char>(buffer[2].macAddress[0]), (unsigned char)0xCD);
    }

    void lateAcknowledgementIsNotCountedAndTimeoutIsKept() {
        // A peer on 127.0.0.41:3956 that answers discovery only after the pass has ended.
        QVERIFY(TestNetwork::addLoopbackAddress("127.0.0.41"));
        const int peer = ::socket(AF_INET, SOCK_DGRAM, 0);
        QVERIFY(peer >= 0);
        const auto closePeer = qScopeGuard([peer] { ::close(peer); });
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(3956);
        local.sin_addr.s_addr = inet_addr("127.0.0.41");
        QCOMPARE(::bind(peer, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);

        QElapsedTimer timer;
        timer.start();
        const auto devices = discover(200, "127.0.0.41", false);
        const qint64 elapsed = timer.elapsed();
        QCOMPARE(devices.size(), std::size_t(0));
        QVERIFY2(elapsed >= 180 && elapsed < 600, qPrintable(QString::number(elapsed)));

        // The command did arrive, as GVCP DISCOVERY_CMD allowing a broadcast ack.
        pollfd ready{peer, POLLIN, 0};
        QCOMPARE(::poll(&ready, 1, 2000), 1);
        unsigned char command[64] = {};
        sockaddr_in sender{};
        socklen_t senderSize = sizeof sender;
        QCOMPARE(::recvfrom(peer, command, sizeof command, 0, reinterpret_cast<sockaddr*>(&sender),
                            &senderSize),
                 ssize_t(8));
        QCOMPARE(command[0], (unsigned char)0x42);
        QCOMPARE(command[1] & 0x10, 0x10);
        QCOMPARE(command[2], (unsigned char)0x00);
        QCOMPARE(command[3], (unsigned char)0x02);

        // An answer sent now reaches a socket whose pass is over; a new pass ignores it too.
        unsigned char ack[8 + 0xF8] = {};
        ack[3] = 0x03;
        ack[5] = 0xF8;
        ack[6] = command[6];
        ack[7] = command[7];
        std::memcpy(ack + 8 + 0xD8, "LATE", 4);
        ::sendto(peer, ack, sizeof ack, 0, reinterpret_cast<sockaddr*>(&sender), senderSize);
        QCOMPARE(discover(150, "127.0.0.41", false).size(), std::size_t(0));
    }

    void interfaceFilterAsksOnlyThatInterface() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.51", "SN0051"), qPrintable(fake.errorString()));
        QVERIFY(TestNetwork::addLoopbackAddress("127.0.0.52"));
        const auto onFakeInterface = discoverAtLeast(1, 250, "127.0.0.51", false);
        QCOMPARE(onFakeInterface.size(), std::size_t(1));
        QCOMPARE(QString(onFakeInterface[0].hostInterfaceAddress), QString("127.0.0.51"));
        // Directed discovery on the other interface reaches only 127.0.0.52 itself.
        QCOMPARE(discover(250, "127.0.0.52", false).size(), std::size_t(0));
        // Broadcast from the other interface reaches the fake, reported through that interface.
        const auto broadcast = discoverAtLeast(1, 250, "127.0.0.52", true);
        QCOMPARE(broadcast.size(), std::size_t(1));
        QCOMPARE(QString(broadcast[0].hostInterfaceAddress), QString("127.0.0.52"));
    }

    void unknownInterfaceAddressIsAnError() {
        ListDevicesSettings settings{};
        settings.timeoutMs = 50;
        settings.interfaceAddress = "10.123.45.67";
        GigEVisionDeviceInfo buffer[1];
        unsigned int count = 7;
        try {
            CKorvatinCamera::ListDevices(buffer, 1, &count, &settings);
            QFAIL("an unknown interface address was accepted");
        } catch (const CKorvatinException& e) {
            QVERIFY2(QString(e.what()).contains("10.123.45.67"), e.what());
            QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        }
        QCOMPARE(count, 0u);
    }

    void deviceAnsweringOnTwoInterfacesIsListedOnce() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.1.1", "SN0101"), qPrintable(fake.errorString()));
        // KORVATIN_GEV_INTERFACES=lo: both 127.0.0.1/8 and 127.0.1.1/32 are asked.
        const auto interfaces = CKorvatinGigEVision::EnumerateNICs();
        int loopbackAddresses = 0;
        for (const auto& nic : interfaces)
            if (QString(nic.systemName) == "lo")
                ++loopbackAddresses;
        QVERIFY(loopbackAddresses >= 2);
        const auto devices = discoverAtLeast(1, 300, nullptr, true);
        QCOMPARE(devices.size(), std::size_t(1));
        QCOMPARE(QString(devices[0].serialNumber), QString("SN0101"));
        // Both interfaces' subnets hold the device; the more specific one is chosen.
        QCOMPARE(QString(devices[0].hostInterfaceAddress), QString("127.0.1.1"));
    }

    void environmentLimitsEveryInterface() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.61", "SN0061"), qPrintable(fake.errorString()));
        const QByteArray saved = qgetenv("KORVATIN_GEV_INTERFACES");
        qputenv("KORVATIN_GEV_INTERFACES", "127.0.0.61");
        const auto byAddress = discoverAtLeast(1, 250, nullptr, false);
        qputenv("KORVATIN_GEV_INTERFACES", "nosuchif0");
        const auto none = discover(100, nullptr, true);
        qputenv("KORVATIN_GEV_INTERFACES", saved);
        QCOMPARE(byAddress.size(), std::size_t(1));
        QCOMPARE(QString(byAddress[0].hostInterfaceAddress), QString("127.0.0.61"));
        QCOMPARE(none.size(), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestSdkDiscovery)
#include "tst_sdkdiscovery.moc"
