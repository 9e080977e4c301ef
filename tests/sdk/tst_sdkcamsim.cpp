// The SDK against the project's simulator, korvatin-camsim: discovery, tree, values, callbacks.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingenicamnodecallback.h>

#include <QSet>
#include <QtTest>

#include <cstring>
#include <list>

namespace {

constexpr const char* kAddress = "127.0.0.101";

class CountingCallback : public CKorvatinGenICamNodeCallback {
public:
    void NodeChanged() override { ++calls; }
    int calls = 0;
};

void walk(const CKorvatinGenICamNodeT& node, QSet<QString>* visited) {
    char name[128];
    node.Name(name, sizeof name, nullptr);
    visited->insert(name);
    if (node.DataType() == QRN_PARAM_CATEGORY) {
        std::list<CKorvatinGenICamNodeT> features;
        node.GetCategoryFeatures(&features);
        for (const auto& feature : features)
            walk(feature, visited);
    }
}

// The same walk as Aravis itself sees it, on a connection of its own.
QSet<QString> aravisWalk(const char* address) {
    QSet<QString> visited;
    GInetAddress* inet = g_inet_address_new_from_string(address);
    ArvDevice* device = arv_gv_device_new(inet, inet, nullptr);
    g_object_unref(inet);
    if (device == nullptr)
        return visited;
    ArvGc* genicam = arv_device_get_genicam(device);
    QStringList pending{"Root"};
    while (!pending.isEmpty()) {
        const QString name = pending.takeFirst();
        ArvGcNode* node = arv_gc_get_node(genicam, name.toUtf8().constData());
        if (node == nullptr || visited.contains(name))
            continue;
        visited.insert(name);
        if (ARV_IS_GC_CATEGORY(node))
            for (const GSList* item = arv_gc_category_get_features(ARV_GC_CATEGORY(node));
                 item != nullptr; item = item->next)
                pending << QString::fromUtf8(static_cast<const char*>(item->data));
    }
    g_object_unref(device);
    return visited;
}

} // namespace

class TestSdkCamsim : public QObject {
    Q_OBJECT

private:
    SimulatorProcess camsim_;
    GigEVisionDeviceInfo device_{};

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for the simulator (run through ctest as "
                  "root)");
        if (!QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"))
            QSKIP("korvatin-camsim is not built in this tree");
        QVERIFY2(camsim_.startCamsim(
                     {"--address", kAddress, "--serial", "CS0101", "--mac", "02:00:00:00:01:01"}),
                 qPrintable(camsim_.errorString()));
    }

    void discoveryReportsTheSimulatorsDescriptor() {
        GigEVisionDeviceInfo found[4];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.broadcast = 1;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 4, &count, &settings);
        QCOMPARE(count, 1u);
        device_ = found[0];
        QCOMPARE(QString(device_.serialNumber), QString("CS0101"));
        QCOMPARE(QString(device_.macAddress), QString("02-00-00-00-01-01"));
        const uint8_t mac[6] = {0x02, 0x00, 0x00, 0x00, 0x01, 0x01};
        QCOMPARE(std::memcmp(device_.mac, mac, 6), 0);
        QCOMPARE(QString(device_.currentIp), QString(kAddress));
        QCOMPARE(QString(device_.manufacturerName), QString("Korvatin"));
        QCOMPARE(QString(device_.modelName), QString("Korvatin Camsim"));
        QCOMPARE(QString(device_.hostInterfaceName), QString("lo"));
        QVERIFY(device_.gevVersionMajor >= 1);
    }

    void treeWalkMatchesAravis() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        QSet<QString> visited;
        walk(camera.GetGENiCAMRoot(), &visited);
        const QSet<QString> expected = aravisWalk(kAddress);
        QVERIFY(expected.size() > 20);
        QCOMPARE(visited, expected);
    }

    void wideIntegersReadAsTheirLow32Bits() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        // The MAC address is a 48-bit feature: its 32-bit reading is the address' last four
        // bytes, the 64-bit one the whole address.
        CKorvatinGenICamNodeT mac = camera.GetNodeByName("GevMACAddress");
        uint64_t expected = 0;
        for (uint8_t byte : device_.mac)
            expected = (expected << 8) | byte;
        QCOMPARE(uint64_t(mac.GetInt64()), expected);
        QCOMPARE(mac.GetUInt32(), uint32_t(expected));
        QVERIFY(expected > 0xFFFFFFFFull);
    }

    void valuesAndCallbacks() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        QCOMPARE(camera.GetNodeByName("FrameRate").DataType(), QRN_PARAM_UINT32);
        const uint32_t frameRate = camera.GetUInt32("FrameRate");
        QVERIFY(frameRate > 0);
        QCOMPARE(camera.GetNodeByName("DeviceTemperature").IsCachable(), false);
        QCOMPARE(camera.GetNodeByName("Width").IsCachable(), true);

        CountingCallback onPayload, onExposure;
        CKorvatinGenICamNodeT payload = camera.GetNodeByName("PayloadSize");
        CKorvatinGenICamNodeT exposure = camera.GetNodeByName("Exposure");
        payload.RegisterCallBack(onPayload);
        exposure.RegisterCallBack(onExposure);
        const uint32_t width = camera.GetUInt32Max("Width") / 2;
        camera.SetUInt32("Width", width - width % camera.GetUInt32Inc("Width"));
        QCOMPARE(onPayload.calls, 1);
        QCOMPARE(onExposure.calls, 0);
        QCOMPARE(camera.GetUInt32("Width"), width - width % camera.GetUInt32Inc("Width"));
        payload.DeregisterCallBack();
        exposure.DeregisterCallBack();
    }
};

QTEST_GUILESS_MAIN(TestSdkCamsim)
#include "tst_sdkcamsim.moc"
