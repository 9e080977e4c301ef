// The SDK against Aravis' simulated camera: connection, description, tree, values, callbacks.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingenicamnodecallback.h>

#include <QSet>
#include <QXmlStreamReader>
#include <QtTest>

#include <atomic>
#include <cstring>
#include <list>

namespace {

constexpr const char* kAddress = "127.0.0.71";
constexpr const char* kSerial = "SN0071";

// Counts NodeChanged() calls and remembers the thread they came on.
class CountingCallback : public CKorvatinGenICamNodeCallback {
public:
    void NodeChanged() override {
        ++calls;
        thread = QThread::currentThread();
    }
    int calls = 0;
    QThread* thread = nullptr;
};

// The description Aravis' fake camera serves, as Aravis itself holds it.
QByteArray fakeCameraXml() {
    ArvFakeCamera* camera = arv_fake_camera_new("XMLSOURCE");
    size_t size = 0;
    const char* xml = arv_fake_camera_get_genicam_xml(camera, &size);
    QByteArray copy(xml, static_cast<int>(size));
    g_object_unref(camera);
    return copy;
}

// Feature names reachable from the Root category of `xml`, categories included.
QSet<QString> featuresUnderRoot(const QByteArray& xml) {
    QHash<QString, QStringList> categories;
    QXmlStreamReader reader(xml);
    QString category;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement() && reader.name() == QLatin1String("Category"))
            category = reader.attributes().value("Name").toString();
        else if (reader.isEndElement() && reader.name() == QLatin1String("Category"))
            category.clear();
        else if (reader.isStartElement() && reader.name() == QLatin1String("pFeature") &&
                 !category.isEmpty())
            categories[category] << reader.readElementText().trimmed();
    }
    QSet<QString> reached;
    QStringList pending{"Root"};
    while (!pending.isEmpty()) {
        const QString name = pending.takeFirst();
        if (reached.contains(name))
            continue;
        reached.insert(name);
        pending << categories.value(name);
    }
    return reached;
}

void walk(const CKorvatinGenICamNodeT& node, QSet<QString>* visited, int* nodes) {
    char name[128];
    node.Name(name, sizeof name, nullptr);
    visited->insert(name);
    ++*nodes;
    if (node.DataType() == QRN_PARAM_CATEGORY) {
        std::list<CKorvatinGenICamNodeT> features;
        node.GetCategoryFeatures(&features);
        for (const auto& feature : features)
            walk(feature, visited, nodes);
    }
}

} // namespace

class TestSdkFakeCamera : public QObject {
    Q_OBJECT

private:
    SimulatorProcess fake_;
    GigEVisionDeviceInfo device_{};

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for Aravis' fake camera (run through ctest "
                  "as root)");
        QVERIFY2(fake_.startAravisFake(kAddress, kSerial), qPrintable(fake_.errorString()));
        GigEVisionDeviceInfo found[4];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = kAddress;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 4, &count, &settings);
        QCOMPARE(count, 1u);
        device_ = found[0];
        QCOMPARE(QString(device_.serialNumber), QString(kSerial));
    }

    void connectionOpensTheDevicesDescription() {
        CKorvatinCamera camera;
        QVERIFY(!camera.IsConnected());
        QVERIFY(camera.ConnectedDeviceInfo() == nullptr);
        camera.Connect(device_, nullptr);
        QVERIFY(camera.IsConnected());
        QVERIFY(camera.ConnectedDeviceInfo() != nullptr);
        QCOMPARE(std::memcmp(camera.ConnectedDeviceInfo(), &device_, sizeof device_), 0);
        QCOMPARE(camera.XmlIndexLoaded(), 0);
        CKorvatinGenICamNodeT root = camera.GetGENiCAMRoot();
        QVERIFY(root.IsValid());
        QCOMPARE(root.DataType(), QRN_PARAM_CATEGORY);
        char vendor[64];
        camera.GetString("DeviceVendorName", vendor, sizeof vendor);
        QCOMPARE(QString(vendor), QString("Aravis"));
        char serial[64];
        camera.GetString("DeviceID", serial, sizeof serial);
        QCOMPARE(QString(serial), QString(kSerial));
        QCOMPARE(camera.ClearGvcpReplyBuffer(), QRN_OK);
        camera.Disconnect();
        QVERIFY(!camera.IsConnected());
        // A handle outliving the connection fails cleanly.
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, root.AccessMode());
        camera.Disconnect(); // harmless when not connected
        // And the camera connects again.
        camera.Connect(device_, nullptr);
        QVERIFY(camera.IsConnected());

        // A descriptor written by hand, with the device address only, finds its interface.
        GigEVisionDeviceInfo byAddress{};
        std::strcpy(byAddress.currentIp, kAddress);
        camera.Connect(byAddress, nullptr);
        QVERIFY(camera.IsConnected());
        QCOMPARE(camera.GetUInt32("SensorWidth"), camera.GetUInt32Max("Width"));
    }

    void treeWalkFromRootVisitsEveryFeature() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        QSet<QString> visited;
        int nodes = 0;
        walk(camera.GetGENiCAMRoot(), &visited, &nodes);
        const QSet<QString> expected = featuresUnderRoot(fakeCameraXml());
        QVERIFY(expected.size() > 20);
        QCOMPARE(visited, expected);
        QCOMPARE(nodes, expected.size());
    }

    void valuesReadAndWrite() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        QCOMPARE(camera.GetNodeByName("Width").DataType(), QRN_PARAM_UINT32);
        QCOMPARE(camera.GetNodeByName("Width").AccessMode(), CKorvatinGenICamNodeT::RW);
        QCOMPARE(camera.GetNodeByName("PayloadSize").AccessMode(), CKorvatinGenICamNodeT::RO);
        QCOMPARE(camera.GetNodeByName("PixelFormat").DataType(), QRN_PARAM_ENUMERATION);
        QCOMPARE(camera.GetNodeByName("AcquisitionStart").DataType(), QRN_PARAM_COMMAND);
        QCOMPARE(camera.GetNodeByName("ExposureTimeAbs").DataType(), QRN_PARAM_FLOAT);
        QCOMPARE(camera.GetNodeByName("DeviceVendorName").DataType(), QRN_PARAM_STRING);

        const uint32_t sensorWidth = camera.GetUInt32("SensorWidth");
        QCOMPARE(camera.GetUInt32Max("Width"), sensorWidth);
        QCOMPARE(camera.GetUInt32Min("Width"), 1u);
        QCOMPARE(camera.GetUInt32Inc("Width"), 1u);
        camera.SetUInt32("Width", 320);
        QCOMPARE(camera.GetUInt32("Width"), 320u);
        camera.SetInt32("Height", 200);
        QCOMPARE(camera.GetInt32("Height"), 200);

        camera.SetEnumByString("PixelFormat", "Mono16");
        char pixelFormat[64];
        camera.GetEnum("PixelFormat", pixelFormat, sizeof pixelFormat);
        QCOMPARE(QString(pixelFormat), QString("Mono16"));
        QCOMPARE(camera.GetUInt32("PayloadSize"), 320u * 200u * 2u);
        camera.SetEnumByString("PixelFormat", "Mono8");

        camera.SetDouble("ExposureTimeAbs", 2000.0);
        QCOMPARE(camera.GetDouble("ExposureTimeAbs"), 2000.0);
        camera.ExecuteCommand("AcquisitionStop");

        // The fake has no integer FrameRate: it is read through AcquisitionFrameRate.
        const double frameRate = camera.GetDouble("AcquisitionFrameRate");
        QCOMPARE(camera.GetUInt32("FrameRate"), static_cast<uint32_t>(frameRate));
        QCOMPARE(
            camera.GetUInt32Max("FrameRate"),
            static_cast<uint32_t>(camera.GetNodeByName("AcquisitionFrameRate").GetDoubleMax()));
        QCOMPARE(camera.GetUInt32Inc("FrameRate"), 1u);

        QrnParamAttribute attribute;
        camera.GetParamAttr("Width", &attribute);
        QCOMPARE(attribute.dataType, uint32_t(QRN_PARAM_UINT32));
        QCOMPARE(attribute.accessMode, uint32_t(CKorvatinGenICamNodeT::RW));
        QCOMPARE(QString(attribute.name), QString("Width"));
        camera.GetParamAttr("NoSuchFeatureAnywhere", &attribute);
        QCOMPARE(attribute.dataType, 0xFFFFFFFFu);
    }

    void writesAreCheckedWithClearTexts() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        const uint32_t maximum = camera.GetUInt32Max("Width");
        try {
            camera.SetUInt32("Width", maximum + 1);
            QFAIL("an out-of-range width was accepted");
        } catch (const CKorvatinException& e) {
            QCOMPARE(
                QString(e.what()),
                QString("Width: value %1 is out of range (1 .. %2)").arg(maximum + 1).arg(maximum));
            QCOMPARE(e.Code(), QRN_ERR_RANGE);
        }
        try {
            camera.SetUInt32("PayloadSize", 10);
            QFAIL("a read-only feature was written");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()), QString("PayloadSize: feature is not writable"));
            QCOMPARE(e.Code(), QRN_ERR_ACCESS);
        }
        try {
            camera.GetUInt32("Foo");
            QFAIL("a missing feature was read");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()), QString("Foo: no such feature"));
            QCOMPARE(e.Code(), QRN_ERR_NOT_FOUND);
        }
        try {
            camera.SetEnumByString("PixelFormat", "NoSuchFormat");
            QFAIL("an unknown entry was accepted");
        } catch (const CKorvatinException& e) {
            QVERIFY2(QString(e.what()).startsWith("PixelFormat: "), e.what());
        }
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetBool("Width"));
    }

    void widthWriteNotifiesDependentsOnly() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        CountingCallback onWidth, onPayload, onGain, onExposure;
        CKorvatinGenICamNodeT width = camera.GetNodeByName("Width");
        CKorvatinGenICamNodeT payload = camera.GetNodeByName("PayloadSize");
        CKorvatinGenICamNodeT gain = camera.GetNodeByName("GainRaw");
        CKorvatinGenICamNodeT exposure = camera.GetNodeByName("ExposureTimeAbs");
        width.RegisterCallBack(onWidth);
        payload.RegisterCallBack(onPayload);
        gain.RegisterCallBack(onGain);
        exposure.RegisterCallBack(onExposure);

        camera.SetUInt32("Width", 256);
        QCOMPARE(onWidth.calls, 1);
        QCOMPARE(onPayload.calls, 1);
        QCOMPARE(onGain.calls, 0);
        QCOMPARE(onExposure.calls, 0);
        QCOMPARE(onPayload.thread, QThread::currentThread());

        // Through the node handle as well; the unrelated nodes stay quiet.
        width.SetUInt32(128);
        QCOMPARE(onWidth.calls, 2);
        QCOMPARE(onPayload.calls, 2);
        QCOMPARE(onGain.calls, 0);

        // A pixel format change also changes the payload size.
        camera.SetEnumByString("PixelFormat", "Mono16");
        QCOMPARE(onPayload.calls, 3);
        QCOMPARE(onWidth.calls, 2);
        camera.SetEnumByString("PixelFormat", "Mono8");

        // A failed write notifies nobody.
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.SetUInt32("Width", 0));
        QCOMPARE(onWidth.calls, 2);

        // Deregistered callbacks are not called any more; a copy made after the registration
        // deregisters too.
        CKorvatinGenICamNodeT payloadCopy = payload;
        payloadCopy.DeregisterCallBack();
        width.DeregisterCallBack();
        camera.SetUInt32("Width", 64);
        QCOMPARE(onWidth.calls, 2);
        QCOMPARE(onPayload.calls, 4); // three writes above, and the return to Mono8
        gain.DeregisterCallBack();
        exposure.DeregisterCallBack();
    }

    void sharedRegisterAndRepeatedNamesNotifyCorrectly() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        CountingCallback onBoolean, onHighHalf, onSelector, onStop, onWidth;
        CKorvatinGenICamNodeT boolean = camera.GetNodeByName("TestBoolean");
        CKorvatinGenICamNodeT highHalf = camera.GetNodeByName("StructEntry_16_31");
        CKorvatinGenICamNodeT selector = camera.GetNodeByName("TriggerSelector");
        CKorvatinGenICamNodeT stop = camera.GetNodeByName("AcquisitionStop");
        CKorvatinGenICamNodeT width = camera.GetNodeByName("Width");
        boolean.RegisterCallBack(onBoolean);
        highHalf.RegisterCallBack(onHighHalf);
        selector.RegisterCallBack(onSelector);
        stop.RegisterCallBack(onStop);
        width.RegisterCallBack(onWidth);

        // Struct entries, TestRegister and TestBoolean all live in the register at 0x1f0.
        camera.SetUInt32("StructEntry_0_15", 0x1234);
        QCOMPARE(onBoolean.calls, 1);
        QCOMPARE(onHighHalf.calls, 1);
        QCOMPARE(onWidth.calls, 0);

        // AcquisitionStart and AcquisitionStop write the same command register. TriggerSelector
        // has an entry that is also called AcquisitionStart, which links nothing to the command.
        camera.ExecuteCommand("AcquisitionStart");
        QCOMPARE(onStop.calls, 1);
        QCOMPARE(onSelector.calls, 0);
        camera.ExecuteCommand("AcquisitionStop");
        QCOMPARE(onStop.calls, 2);
        QCOMPARE(onSelector.calls, 0);
        QCOMPARE(onWidth.calls, 0);

        for (CKorvatinGenICamNodeT* node : {&boolean, &highHalf, &selector, &stop, &width})
            node->DeregisterCallBack();
    }

    void connectionLossIsReported() {
        SimulatorProcess doomed;
        QVERIFY2(doomed.startAravisFake("127.0.0.72", "SN0072"), qPrintable(doomed.errorString()));
        GigEVisionDeviceInfo found[2];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = "127.0.0.72";
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 2, &count, &settings);
        QCOMPARE(count, 1u);
        static std::atomic<int> lost{0};
        static std::atomic<bool> offCallerThread{false};
        static QThread* testThread = nullptr;
        testThread = QThread::currentThread();
        CKorvatinCamera camera;
        camera.SetConnectionCallBackFunc(
            [](void* context, void* reserved) {
                offCallerThread = QThread::currentThread() != testThread;
                if (context == &lost && reserved == nullptr)
                    ++lost;
            },
            &lost);
        camera.Connect(found[0], nullptr);
        doomed.kill();
        QTRY_COMPARE_WITH_TIMEOUT(lost.load(), 1, 15000);
        QVERIFY(offCallerThread.load());
        camera.Disconnect();
        QCOMPARE(lost.load(), 1);
    }

    void gvcpTimeoutBoundsAnUnansweredRead() {
        if (arv_get_major_version() != 0 || arv_get_minor_version() != 8 ||
            arv_get_micro_version() != 26)
            QSKIP("the control-channel time-out can only be set on Aravis 0.8.26");
        SimulatorProcess silent;
        QVERIFY2(silent.startAravisFake("127.0.0.73", "SN0073"), qPrintable(silent.errorString()));
        GigEVisionDeviceInfo found[2];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = "127.0.0.73";
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 2, &count, &settings);
        QCOMPARE(count, 1u);
        CKorvatinCamera camera;
        QCOMPARE(camera.GvcpTimeout(), 5);
        camera.SetGvcpTimeout(1); // 100 ms per attempt
        QCOMPARE(camera.GvcpTimeout(), 1);
        camera.Connect(found[0], nullptr);
        silent.kill();
        QElapsedTimer timer;
        timer.start();
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetUInt32("Width"));
        // Aravis tries five times; at the default 500 ms that would be 2.5 s.
        const qint64 elapsed = timer.elapsed();
        QVERIFY2(elapsed >= 300 && elapsed < 1500, qPrintable(QString::number(elapsed)));
    }
};

QTEST_GUILESS_MAIN(TestSdkFakeCamera)
#include "tst_sdkfakecamera.moc"
