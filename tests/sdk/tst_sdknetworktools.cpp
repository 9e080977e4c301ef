// The SDK's network tools against korvatin-camsim and Aravis' simulator: force IP, force reboot,
// the IP configuration registers, and finding one device by address, serial number or MAC.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>

#include <QElapsedTimer>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

// Every camera of these tests is reached through the loopback interface only.
std::vector<GigEVisionDeviceInfo> discover(int timeoutMs = 300) {
    std::vector<GigEVisionDeviceInfo> buffer(16);
    ListDevicesSettings settings{};
    settings.timeoutMs = timeoutMs;
    unsigned int count = 0;
    CKorvatinCamera::ListDevices(buffer.data(), unsigned(buffer.size()), &count, &settings);
    buffer.resize(count);
    return buffer;
}

// The device with `serial` as the next discovery sees it; an empty descriptor when it is absent.
GigEVisionDeviceInfo discoverSerial(const QString& serial, int timeoutMs = 300) {
    for (const auto& device : discover(timeoutMs))
        if (serial == device.serialNumber)
            return device;
    return GigEVisionDeviceInfo{};
}

QString dotted(uint32_t networkOrder) {
    in_addr address{};
    address.s_addr = networkOrder;
    return QString::fromLatin1(inet_ntoa(address));
}

// The exception `call` throws, or a default one (code 0) when it throws none.
template <typename Call> CKorvatinException thrownBy(Call call) {
    try {
        call();
    } catch (const CKorvatinException& e) {
        return e;
    }
    return CKorvatinException();
}

// Another host's control connection: Aravis opens the device and takes control, and its
// heartbeat thread keeps it.
class AravisController {
public:
    explicit AravisController(const char* address) {
        GInetAddress* interfaceAddress = g_inet_address_new_from_string("127.0.0.1");
        GInetAddress* deviceAddress = g_inet_address_new_from_string(address);
        device_ = arv_gv_device_new(interfaceAddress, deviceAddress, nullptr);
        g_object_unref(interfaceAddress);
        g_object_unref(deviceAddress);
    }
    ~AravisController() {
        if (device_ != nullptr)
            g_object_unref(device_);
    }
    AravisController(const AravisController&) = delete;
    AravisController& operator=(const AravisController&) = delete;
    bool hasControl() const {
        return device_ != nullptr && arv_gv_device_is_controller(ARV_GV_DEVICE(device_));
    }
    bool writePrivilege(guint32 value) {
        return arv_device_write_register(device_, 0x0A00, value, nullptr);
    }
    // The privilege register as the device answers it now; 0 when it does not answer.
    guint32 readPrivilege() {
        guint32 value = 0;
        arv_device_read_register(device_, 0x0A00, &value, nullptr);
        return value;
    }

private:
    ArvDevice* device_ = nullptr;
};

// A device that hears broadcast discovery (on 255.255.255.255:3956) but reports an address
// nothing listens on, as a camera on a subnet the host has no route to looks from the host.
class UnreachableResponder {
public:
    UnreachableResponder() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(3956);
        local.sin_addr.s_addr = htonl(INADDR_BROADCAST);
        bound_ = ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0;
        if (bound_)
            thread_ = std::thread([this] { serve(); });
    }
    ~UnreachableResponder() {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
        ::close(fd_);
    }
    UnreachableResponder(const UnreachableResponder&) = delete;
    UnreachableResponder& operator=(const UnreachableResponder&) = delete;
    bool isBound() const { return bound_; }

private:
    // Responder thread.
    void serve() {
        while (!stop_) {
            pollfd ready{fd_, POLLIN, 0};
            if (::poll(&ready, 1, 50) <= 0)
                continue;
            uint8_t command[64];
            sockaddr_in from{};
            socklen_t fromSize = sizeof from;
            const ssize_t size = ::recvfrom(fd_, command, sizeof command, 0,
                                            reinterpret_cast<sockaddr*>(&from), &fromSize);
            if (size < 8 || command[0] != 0x42 || command[2] != 0 || command[3] != 0x02)
                continue;
            uint8_t ack[8 + 0xF8] = {};
            ack[3] = 0x03;
            ack[5] = 0xF8;
            ack[6] = command[6];
            ack[7] = command[7];
            uint8_t* data = ack + 8;
            data[1] = 0x02; // GigE Vision 2.0
            const uint8_t mac[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0xF1};
            std::memcpy(data + 0x0A, mac, 6);
            const uint8_t address[4] = {127, 0, 16, 241};
            std::memcpy(data + 0x24, address, 4);
            std::memcpy(data + 0xD8, "GHOST", 5);
            ::sendto(fd_, ack, sizeof ack, 0, reinterpret_cast<sockaddr*>(&from), fromSize);
        }
    }

    int fd_ = -1;
    bool bound_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace

class TestSdkNetworkTools : public QObject {
    Q_OBJECT

private:
    // Starts korvatin-camsim on `address` and returns its descriptor from discovery.
    bool startCamsim(SimulatorProcess& simulator, const QString& address,
                     GigEVisionDeviceInfo* device) {
        if (!simulator.startCamsim({"--address", address})) {
            qWarning("%s", qPrintable(simulator.errorString()));
            return false;
        }
        for (const auto& found : discover())
            if (address == found.currentIp) {
                *device = found;
                return true;
            }
        qWarning("camsim on %s did not answer discovery", qPrintable(address));
        return false;
    }

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("FORCEIP and discovery are broadcast: these tests need a private network "
                  "namespace (run through ctest as root)");
        if (!QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"))
            QSKIP("korvatin-camsim is not built in this tree");
    }

    void forceIpMovesTheCameraAndTheNextDiscoveryFindsItThere() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.1", &device));
        CKorvatinCamera::ForceIPEx(device.macAddress, "127.0.16.77", "255.255.0.0", "127.0.16.254");
        const GigEVisionDeviceInfo moved = discoverSerial(device.serialNumber);
        QCOMPARE(QString(moved.currentIp), QString("127.0.16.77"));
        QCOMPARE(QString(moved.currentSubnetMask), QString("255.255.0.0"));
        QCOMPARE(QString(moved.defaultGateway), QString("127.0.16.254"));
        QCOMPARE(QString(moved.macAddress), QString(device.macAddress));
        QCOMPARE(discover().size(), std::size_t(1));
        // It is reachable there: a connection reads its features.
        CKorvatinCamera camera;
        camera.Connect(moved, nullptr);
        QCOMPARE(camera.GetUInt32("Width"), 1280u);
    }

    void forceIpBySerialNumberMovesTheCamera() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.2", &device));
        CKorvatinCamera::ForceIPEx(device.serialNumber, "127.0.16.78", "255.0.0.0", "0.0.0.0");
        QCOMPARE(QString(discoverSerial(device.serialNumber).currentIp), QString("127.0.16.78"));
        QTRY_VERIFY(simulator.output().contains("moved to 127.0.16.78"));
    }

    void forceIpOnTheInterfaceGivenMovesTheCamera() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.3", &device));
        CKorvatinCamera::ForceIPEx(device.macAddress, "127.0.16.79", "255.0.0.0", "0.0.0.0",
                                   "127.0.0.1");
        QCOMPARE(QString(discoverSerial(device.serialNumber).currentIp), QString("127.0.16.79"));
    }

    void persistentConfigurationThenForceIpToZeroBringsTheCameraUpOnItsPersistentAddress() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.4", &device));
        {
            CKorvatinCamera camera;
            camera.Connect(device, nullptr);
            camera.WriteIpConfigure(false, true, "127.0.16.99", "255.255.255.0", "127.0.16.1");
        }
        // Written, not yet used: the camera is where it was.
        QCOMPARE(QString(discoverSerial(device.serialNumber).currentIp), QString("127.0.16.4"));
        CKorvatinCamera::ForceIPEx(device.macAddress, "0.0.0.0", "0.0.0.0", "0.0.0.0");
        const GigEVisionDeviceInfo back = discoverSerial(device.serialNumber);
        QCOMPARE(QString(back.currentIp), QString("127.0.16.99"));
        QCOMPARE(QString(back.currentSubnetMask), QString("255.255.255.0"));
        QCOMPARE(QString(back.defaultGateway), QString("127.0.16.1"));
    }

    void readIpConfigureGivesWhatWasWrittenInNetworkByteOrder() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.5", &device));
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        bool dhcp = false;
        bool persistent = true;
        uint32_t ip = 1;
        uint32_t mask = 1;
        uint32_t gateway = 1;
        // The simulator starts as a camera out of the box: DHCP on, no persistent address.
        camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway);
        QVERIFY(dhcp);
        QVERIFY(!persistent);
        QCOMPARE(dotted(ip), QString("0.0.0.0"));

        camera.WriteIpConfigure(true, true, "192.168.1.70", "255.255.255.0", "192.168.1.1");
        camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway);
        QVERIFY(dhcp);
        QVERIFY(persistent);
        QCOMPARE(dotted(ip), QString("192.168.1.70"));
        QCOMPARE(dotted(mask), QString("255.255.255.0"));
        QCOMPARE(dotted(gateway), QString("192.168.1.1"));
        QCOMPARE(ip, uint32_t(inet_addr("192.168.1.70")));
        // The registers hold the same, as the camera's own features show them.
        QCOMPARE(camera.GetNodeByName("GevPersistentIPAddress").GetInt64(), int64_t(0xC0A80146));

        camera.WriteIpConfigure(false, false, "0.0.0.0", "0.0.0.0", "0.0.0.0");
        camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway);
        QVERIFY(!dhcp);
        QVERIFY(!persistent);
        QCOMPARE(ip, 0u);
        QCOMPARE(mask, 0u);
        QCOMPARE(gateway, 0u);
    }

    void writeIpConfigureKeepsTheLinkLocalBit() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.6", &device));
        QCOMPARE(device.ipConfigCurrent, 0x6u); // DHCP and link-local
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        camera.WriteIpConfigure(false, true, "127.0.16.60", "255.0.0.0", "0.0.0.0");
        QCOMPARE(discoverSerial(device.serialNumber).ipConfigCurrent, 0x5u);
        QVERIFY(camera.GetBool("GevCurrentIPConfigurationLLA"));
        QVERIFY(!camera.GetBool("GevCurrentIPConfigurationDHCP"));
        QVERIFY(camera.GetBool("GevCurrentIPConfigurationPersistentIP"));
    }

    void writeIpConfigureRefusesInvalidAddressesAndWritesNothing_data() {
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("mask");
        QTest::addColumn<QString>("gateway");
        QTest::addColumn<QString>("expected");
        QTest::newRow("address not dotted") << "192.168.1"
                                            << "255.255.255.0"
                                            << "0.0.0.0"
                                            << "Invalid IP address \"192.168.1\"";
        QTest::newRow("broadcast address") << "255.255.255.255"
                                           << "255.255.255.0"
                                           << "0.0.0.0"
                                           << "Invalid IP address \"255.255.255.255\"";
        QTest::newRow("zero address") << "0.0.0.0"
                                      << "255.255.255.0"
                                      << "0.0.0.0"
                                      << "Invalid IP address \"0.0.0.0\"";
        QTest::newRow("mask with a hole") << "10.0.0.5"
                                          << "255.0.255.0"
                                          << "0.0.0.0"
                                          << "Invalid subnet mask \"255.0.255.0\"";
        QTest::newRow("empty mask") << "10.0.0.5"
                                    << ""
                                    << "0.0.0.0"
                                    << "Invalid subnet mask \"\"";
        QTest::newRow("gateway broadcast") << "10.0.0.5"
                                           << "255.0.0.0"
                                           << "255.255.255.255"
                                           << "Invalid default gateway \"255.255.255.255\"";
    }

    void writeIpConfigureRefusesInvalidAddressesAndWritesNothing() {
        QFETCH(QString, ip);
        QFETCH(QString, mask);
        QFETCH(QString, gateway);
        QFETCH(QString, expected);
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.7", &device));
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        const CKorvatinException e = thrownBy([&] {
            camera.WriteIpConfigure(false, true, ip.toLatin1().constData(),
                                    mask.toLatin1().constData(), gateway.toLatin1().constData());
        });
        QCOMPARE(e.Code(), QRN_ERR_INVALID);
        QVERIFY2(QString(e.what()).startsWith(expected), e.what());
        bool dhcp = false;
        bool persistent = true;
        uint32_t readIp = 1;
        uint32_t readMask = 1;
        uint32_t readGateway = 1;
        camera.ReadIpConfigure(dhcp, persistent, readIp, readMask, readGateway);
        QVERIFY(dhcp);
        QVERIFY(!persistent);
        QCOMPARE(readIp, 0u);
        QCOMPARE(readMask, 0u);
    }

    void ipConfigurationNeedsAConnection() {
        CKorvatinCamera camera;
        bool dhcp = false;
        bool persistent = false;
        uint32_t ip = 0;
        uint32_t mask = 0;
        uint32_t gateway = 0;
        QCOMPARE(
            thrownBy([&] { camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway); }).Code(),
            QRN_ERR_NOT_CONNECTED);
        QCOMPARE(thrownBy([&] {
                     camera.WriteIpConfigure(false, true, "10.0.0.5", "255.0.0.0", "0.0.0.0");
                 }).Code(),
                 QRN_ERR_NOT_CONNECTED);
    }

    void rebootBringsTheCameraBack() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.8", &device));
        {
            CKorvatinCamera camera;
            camera.Connect(device, nullptr);
            camera.SetUInt32("Width", 640);
        }
        CKorvatinCamera::ForceReboot(device.macAddress);
        QTRY_VERIFY(simulator.output().contains("resetting"));
        QTRY_VERIFY_WITH_TIMEOUT(
            QString(discoverSerial(device.serialNumber, 200).currentIp) == "127.0.16.8", 10000);
        // Back as after power-on, and free for the next host.
        CKorvatinCamera camera;
        camera.Connect(discoverSerial(device.serialNumber), nullptr);
        QCOMPARE(camera.GetUInt32("Width"), 1280u);
    }

    void rebootBySerialNumberResetsTheCamera() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.9", &device));
        CKorvatinCamera::ForceReboot(device.serialNumber);
        QTRY_VERIFY(simulator.output().contains("resetting"));
        QTRY_VERIFY_WITH_TIMEOUT(simulator.output().contains("back on 127.0.16.9"), 10000);
    }

    void rebootOfACameraHeldByAnotherHostIsRefusedWithTheClearText_data() {
        QTest::addColumn<uint>("privilege");
        QTest::newRow("control") << 2u;
        QTest::newRow("exclusive control") << 3u;
    }

    void rebootOfACameraHeldByAnotherHostIsRefusedWithTheClearText() {
        QFETCH(uint, privilege);
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.10", &device));
        AravisController other("127.0.16.10");
        QVERIFY(other.hasControl());
        QVERIFY(other.writePrivilege(privilege));
        const CKorvatinException e =
            thrownBy([&] { CKorvatinCamera::ForceReboot(device.macAddress); });
        QCOMPARE(e.Code(), QRN_ERR_ACCESS);
        QCOMPARE(QString(e.what()), QString("The device %1 (serial number %2, IP address "
                                            "127.0.16.10) is controlled by another host; it was "
                                            "not reset.")
                                        .arg(device.macAddress, device.serialNumber));
        // Not reset: the other host still holds the device (a reset would have dropped it).
        QCOMPARE(uint(other.readPrivilege()), privilege);
    }

    void rebootOfADeviceThatAnswersOnlyBroadcastSaysItCannotBeReached() {
        UnreachableResponder responder;
        QVERIFY(responder.isBound());
        const CKorvatinException e = thrownBy([] { CKorvatinCamera::ForceReboot("GHOST"); });
        QCOMPARE(e.Code(), QRN_ERR_TIMEOUT);
        QCOMPARE(QString(e.what()),
                 QString("The device 02-00-00-00-00-f1 (serial number GHOST, IP address "
                         "127.0.16.241) answered discovery but not a register read sent to its "
                         "address; give it an address this host reaches (force IP)"));
    }

    void forceIpToAnUnknownMacIsAnUnknownDevice() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.11", &device));
        const CKorvatinException e = thrownBy([] {
            CKorvatinCamera::ForceIPEx("02-00-00-00-00-99", "127.0.16.90", "255.0.0.0", "0.0.0.0");
        });
        QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        QCOMPARE(QString(e.what()),
                 QString("Unknown device: no device with the MAC address 02-00-00-00-00-99 "
                         "answered FORCEIP or discovery on lo (127.0.0.1)"));
        // The camera that is there took nothing.
        QCOMPARE(QString(discoverSerial(device.serialNumber).currentIp), QString("127.0.16.11"));
    }

    void unknownSerialNumberIsAnUnknownDevice() {
        const char* expected = "Unknown device: no device with the serial number 400123 answered "
                               "discovery on lo (127.0.0.1)";
        CKorvatinException e = thrownBy(
            [] { CKorvatinCamera::ForceIPEx("400123", "127.0.16.91", "255.0.0.0", "0.0.0.0"); });
        QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        QCOMPARE(QString(e.what()), QString(expected));
        e = thrownBy([] { CKorvatinCamera::ForceReboot("400123"); });
        QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        QCOMPARE(QString(e.what()), QString(expected));
    }

    void rebootOfAnUnknownMacIsAnUnknownDevice() {
        const CKorvatinException e =
            thrownBy([] { CKorvatinCamera::ForceReboot("0a-3c-51-06-1a-fb"); });
        QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        QCOMPARE(QString(e.what()),
                 QString("Unknown device: no device with the MAC address 0a-3c-51-06-1a-fb "
                         "answered discovery on lo (127.0.0.1)"));
    }

    void deviceThatIgnoresForceIpGivesTheNoAcknowledgeError() {
        // Aravis' simulator answers discovery but not FORCEIP.
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.16.12", "FAKE12"), qPrintable(fake.errorString()));
        const auto devices = discover();
        QCOMPARE(devices.size(), std::size_t(1));
        const CKorvatinException e = thrownBy(
            [] { CKorvatinCamera::ForceIPEx("FAKE12", "127.0.16.92", "255.0.0.0", "0.0.0.0"); });
        QCOMPARE(e.Code(), QRN_ERR_TIMEOUT);
        QCOMPARE(QString(e.what()),
                 QString("The device %1 (serial number FAKE12, IP address 127.0.16.12) answers "
                         "discovery but did not acknowledge FORCEIP to 127.0.16.92")
                     .arg(devices[0].macAddress));
    }

    void invalidForceIpArgumentsAreRefusedWithTheirTexts_data() {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("mask");
        QTest::addColumn<QString>("gateway");
        QTest::addColumn<QString>("expected");
        QTest::newRow("MAC too short") << "0a-3c-51-06-1a"
                                       << "10.0.0.5"
                                       << "255.0.0.0"
                                       << "0.0.0.0"
                                       << "Invalid MAC address \"0a-3c-51-06-1a\"";
        QTest::newRow("MAC not hex") << "0a-3c-51-06-1a-fg"
                                     << "10.0.0.5"
                                     << "255.0.0.0"
                                     << "0.0.0.0"
                                     << "Invalid MAC address \"0a-3c-51-06-1a-fg\"";
        QTest::newRow("empty device") << ""
                                      << "10.0.0.5"
                                      << "255.0.0.0"
                                      << "0.0.0.0"
                                      << "No MAC address or serial number given";
        QTest::newRow("IP not an address") << "0a-3c-51-06-1a-fb"
                                           << "abc"
                                           << "255.0.0.0"
                                           << "0.0.0.0"
                                           << "Invalid IP address \"abc\"";
        QTest::newRow("IP broadcast") << "0a-3c-51-06-1a-fb"
                                      << "255.255.255.255"
                                      << "255.0.0.0"
                                      << "0.0.0.0"
                                      << "Invalid IP address \"255.255.255.255\"";
        QTest::newRow("IP multicast") << "0a-3c-51-06-1a-fb"
                                      << "224.0.0.1"
                                      << "255.0.0.0"
                                      << "0.0.0.0"
                                      << "Invalid IP address \"224.0.0.1\"";
        QTest::newRow("mask empty") << "0a-3c-51-06-1a-fb"
                                    << "10.0.0.5"
                                    << ""
                                    << "0.0.0.0"
                                    << "Invalid subnet mask \"\"";
        QTest::newRow("mask with a hole") << "0a-3c-51-06-1a-fb"
                                          << "10.0.0.5"
                                          << "255.0.255.0"
                                          << "0.0.0.0"
                                          << "Invalid subnet mask \"255.0.255.0\"";
        QTest::newRow("gateway not an address") << "0a-3c-51-06-1a-fb"
                                                << "10.0.0.5"
                                                << "255.0.0.0"
                                                << "10.0.0"
                                                << "Invalid default gateway \"10.0.0\"";
        QTest::newRow("gateway broadcast") << "0a-3c-51-06-1a-fb"
                                           << "10.0.0.5"
                                           << "255.0.0.0"
                                           << "255.255.255.255"
                                           << "Invalid default gateway \"255.255.255.255\"";
    }

    void invalidForceIpArgumentsAreRefusedWithTheirTexts() {
        QFETCH(QString, device);
        QFETCH(QString, ip);
        QFETCH(QString, mask);
        QFETCH(QString, gateway);
        QFETCH(QString, expected);
        const CKorvatinException e = thrownBy([&] {
            CKorvatinCamera::ForceIPEx(device.toLatin1().constData(), ip.toLatin1().constData(),
                                       mask.toLatin1().constData(), gateway.toLatin1().constData());
        });
        QCOMPARE(e.Code(), QRN_ERR_INVALID);
        QVERIFY2(QString(e.what()).startsWith(expected), e.what());
    }

    void networkToolsHonourTheInterfaceLimits() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.13", &device));
        const QByteArray saved = qgetenv("KORVATIN_GEV_INTERFACES");
        qputenv("KORVATIN_GEV_INTERFACES", "nosuchif0");
        const CKorvatinException forceIp = thrownBy([&] {
            CKorvatinCamera::ForceIPEx(device.macAddress, "127.0.16.93", "255.0.0.0", "0.0.0.0");
        });
        const CKorvatinException reboot =
            thrownBy([&] { CKorvatinCamera::ForceReboot(device.macAddress); });
        GigEVisionDeviceInfo found{};
        ListDevicesSettings settings{};
        settings.timeoutMs = 200;
        const bool foundByAddress = CKorvatinCamera::FindDevice("127.0.16.13", &found, &settings);
        qputenv("KORVATIN_GEV_INTERFACES", saved);
        QCOMPARE(forceIp.Code(), QRN_ERR_NOT_FOUND);
        QCOMPARE(QString(forceIp.what()),
                 QString("No network interface to send FORCEIP on: KORVATIN_GEV_INTERFACES "
                         "names none of this host's"));
        QCOMPARE(reboot.Code(), QRN_ERR_NOT_FOUND);
        QVERIFY(!foundByAddress);

        // An interface address this host does not have is named.
        const CKorvatinException unknownInterface = thrownBy([&] {
            CKorvatinCamera::ForceIPEx(device.macAddress, "127.0.16.93", "255.0.0.0", "0.0.0.0",
                                       "10.123.45.67");
        });
        QCOMPARE(unknownInterface.Code(), QRN_ERR_NOT_FOUND);
        QVERIFY2(QString(unknownInterface.what()).contains("10.123.45.67"),
                 unknownInterface.what());
        // Neither moved nor reset (a reset would keep it silent for a second).
        QCOMPARE(QString(discoverSerial(device.serialNumber).currentIp), QString("127.0.16.13"));
    }

    void findDeviceByAddressAsksTheDeviceDirectly() {
        // Aravis' simulator on 127.0.0.1 (the address of lo, as with -i lo) listens on its own
        // address and on 255.255.255.255 only: a directed discovery of lo's subnet misses it.
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.1", "FAKELO"), qPrintable(fake.errorString()));
        QCOMPARE(discover().size(), std::size_t(0));
        GigEVisionDeviceInfo device{};
        ListDevicesSettings settings{};
        settings.timeoutMs = 1000;
        QVERIFY(CKorvatinCamera::FindDevice("127.0.0.1", &device, &settings));
        QCOMPARE(QString(device.serialNumber), QString("FAKELO"));
        QCOMPARE(QString(device.currentIp), QString("127.0.0.1"));
        QCOMPARE(QString(device.hostInterfaceName), QString("lo"));
        // An address where nothing answers is not found.
        QVERIFY(!CKorvatinCamera::FindDevice("127.0.16.250", &device, &settings));
    }

    void findDeviceBySerialEndsAsSoonAsTheDeviceAnswers() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.14", &device));
        constexpr int kTimeoutMs = 10000;
        ListDevicesSettings settings{};
        settings.timeoutMs = kTimeoutMs;
        GigEVisionDeviceInfo found{};
        QElapsedTimer timer;
        timer.start();
        QVERIFY(CKorvatinCamera::FindDevice(device.serialNumber, &found, &settings));
        const qint64 elapsed = timer.elapsed();
        QCOMPARE(QString(found.macAddress), QString(device.macAddress));
        // The margin is wide on purpose: a loaded machine still answers in far less than half.
        QVERIFY2(elapsed < kTimeoutMs / 2, qPrintable(QString::number(elapsed)));
    }

    void findDeviceByMacTakesColonsAndCapitals() {
        SimulatorProcess simulator;
        GigEVisionDeviceInfo device{};
        QVERIFY(startCamsim(simulator, "127.0.16.15", &device));
        const QString colons = QString(device.macAddress).toUpper().replace('-', ':');
        ListDevicesSettings settings{};
        settings.timeoutMs = 1000;
        GigEVisionDeviceInfo found{};
        QVERIFY(CKorvatinCamera::FindDevice(colons.toLatin1().constData(), &found, &settings));
        QCOMPARE(QString(found.currentIp), QString("127.0.16.15"));
    }
};

QTEST_GUILESS_MAIN(TestSdkNetworkTools)
#include "tst_sdknetworktools.moc"
