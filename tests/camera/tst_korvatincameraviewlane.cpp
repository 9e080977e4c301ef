// The camera session: settings copied at construction, the connect checks and steps, disconnect.
#include "appsettings.h"
#include "aravisreference.h"
#include "korvatincameraviewlane.h"
#include "loopbackdevice.h"
#include "metatypes.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatinexception.h>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <cstring>
#include <memory>

namespace {

const char* const kTooFewBuffers =
    "Too few buffers have been allocated. A minimum of 8 buffers should be allocated.";
const char* const kFakeAddress = "127.0.0.31";

} // namespace

class TestCameraSession : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void bufferCountOfZeroOrLessYieldsTen_data();
    void bufferCountOfZeroOrLessYieldsTen();
    void bufferCountFromEightIsKept_data();
    void bufferCountFromEightIsKept();
    void rawFramePointersStartNull();
    void maxBitsPerPixelSelectsTheDisplayPixelType_data();
    void maxBitsPerPixelSelectsTheDisplayPixelType();
    void settingsAreCopiedAtConstruction();
    void deviceInfoIsARegisteredMetaType();
    void fewerThanEightBuffersFailsConnectBeforeConnectIsCalled_data();
    void fewerThanEightBuffersFailsConnectBeforeConnectIsCalled();
    void fewerThanEightBuffersFailsConnectEvenToAReachableCamera();
    void connectErrorFromTheSdkPassesThroughUnchanged();
    void emptyLocalXmlConnectsWithTheCamerasOwnDescription();
    void localXmlPathLoadsThatFile();
    void heartbeatSettingSetsTheHeartbeatDisableFlagAtConnect_data();
    void heartbeatSettingSetsTheHeartbeatDisableFlagAtConnect();
    void maxWidthAndHeightAreReadAtConnect();
    void disconnectDeviceClosesTheConnection();
    void sessionIsReusedForAnotherConnection();

private:
    std::unique_ptr<CAppSettings> settings(const QByteArray& contents);
    bool startFake(SimulatorProcess& fake, const char* address = kFakeAddress);

    std::unique_ptr<QTemporaryDir> dir_;
    int files_ = 0;
};

void TestCameraSession::init() {
    dir_ = std::make_unique<QTemporaryDir>();
    QVERIFY(dir_->isValid());
}

void TestCameraSession::cleanup() {
    dir_.reset();
}

std::unique_ptr<CAppSettings> TestCameraSession::settings(const QByteArray& contents) {
    // A file of its own each time: QSettings caches what it read per file name.
    const QString path = dir_->filePath(QString("settings%1.ini").arg(++files_));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(contents);
    file.close();
    return std::make_unique<CAppSettings>(path);
}

bool TestCameraSession::startFake(SimulatorProcess& fake, const char* address) {
    if (!TestNetwork::isIsolated())
        return false;
    return fake.startAravisFake(address, "SESSION01");
}

#define REQUIRE_FAKE(fake)                                                                         \
    do {                                                                                           \
        if (!TestNetwork::isIsolated())                                                            \
            QSKIP("needs a private network namespace (run through ctest as root)");                \
        QVERIFY2(startFake(fake), qPrintable(fake.errorString()));                                 \
    } while (0)

void TestCameraSession::bufferCountOfZeroOrLessYieldsTen_data() {
    QTest::addColumn<int>("configured");
    QTest::newRow("0") << 0;
    QTest::newRow("-1") << -1;
    QTest::newRow("-100") << -100;
}

void TestCameraSession::bufferCountOfZeroOrLessYieldsTen() {
    QFETCH(int, configured);
    auto s = settings(QByteArray("[resource]\nallocatedBuffersCount=") +
                      QByteArray::number(configured) + "\n");
    QCOMPARE(s->allocatedBuffersCount, configured);
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.RawFrameBufferCount(), 10);
}

void TestCameraSession::bufferCountFromEightIsKept_data() {
    QTest::addColumn<int>("configured");
    QTest::newRow("1") << 1;
    QTest::newRow("7") << 7;
    QTest::newRow("8") << 8;
    QTest::newRow("10") << 10;
    QTest::newRow("64") << 64;
}

// Values of 1 and above are copied as they are; only connecting refuses fewer than 8.
void TestCameraSession::bufferCountFromEightIsKept() {
    QFETCH(int, configured);
    auto s = settings(QByteArray("[resource]\nallocatedBuffersCount=") +
                      QByteArray::number(configured) + "\n");
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.RawFrameBufferCount(), configured);
}

void TestCameraSession::rawFramePointersStartNull() {
    auto s = settings("[resource]\nallocatedBuffersCount=12\n");
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.RawFrameBufferCount(), 12);
    for (int i = 0; i < session.RawFrameBufferCount(); ++i)
        QVERIFY(session.RawFrame(i) == nullptr);
    QCOMPARE(session.RawFramesAllocated(), 0);
    QCOMPARE(session.grabbedFrameCount.load(), 0u);
    QCOMPARE(session.MaxWidth(), 0u);
    QCOMPARE(session.MaxHeight(), 0u);
}

void TestCameraSession::maxBitsPerPixelSelectsTheDisplayPixelType_data() {
    QTest::addColumn<QByteArray>("configured");
    QTest::addColumn<int>("maxBits");
    QTest::addColumn<uint>("pixelType");
    QTest::newRow("missing (0): BGR8Packed") << QByteArray() << 24 << 0x02180015u;
    QTest::newRow("0: BGR8Packed") << QByteArray("0") << 24 << 0x02180015u;
    QTest::newRow("-5: BGR8Packed") << QByteArray("-5") << 24 << 0x02180015u;
    QTest::newRow("not a number: BGR8Packed") << QByteArray("many") << 24 << 0x02180015u;
    QTest::newRow("1: Mono8") << QByteArray("1") << 1 << 0x01080001u;
    QTest::newRow("8: Mono8") << QByteArray("8") << 8 << 0x01080001u;
    QTest::newRow("9: Mono10Packed") << QByteArray("9") << 9 << 0x010C0004u;
    QTest::newRow("12: Mono10Packed") << QByteArray("12") << 12 << 0x010C0004u;
    QTest::newRow("13: Mono10") << QByteArray("13") << 13 << 0x01100003u;
    QTest::newRow("16: Mono10") << QByteArray("16") << 16 << 0x01100003u;
    QTest::newRow("17: BGR8Packed") << QByteArray("17") << 17 << 0x02180015u;
    QTest::newRow("24: BGR8Packed") << QByteArray("24") << 24 << 0x02180015u;
    QTest::newRow("25: RGB10Packed") << QByteArray("25") << 25 << 0x02300018u;
    QTest::newRow("48: RGB10Packed") << QByteArray("48") << 48 << 0x02300018u;
    QTest::newRow("96: RGB10Packed") << QByteArray("96") << 96 << 0x02300018u;
}

void TestCameraSession::maxBitsPerPixelSelectsTheDisplayPixelType() {
    QFETCH(QByteArray, configured);
    QFETCH(int, maxBits);
    QFETCH(uint, pixelType);
    auto s = settings(configured.isEmpty() ? QByteArray()
                                           : "[resource]\nmaxBitsPerPixel=" + configured + "\n");
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.MaxBitsPerPixel(), maxBits);
    QCOMPARE(session.DisplayPixelType(), uint32_t(pixelType));
    QCOMPARE(CKorvatinCameraViewlane::SelectDisplayPixelType(maxBits), uint32_t(pixelType));
}

void TestCameraSession::settingsAreCopiedAtConstruction() {
    auto s = settings("[host]\n"
                      "GVCPTimeOut=9\n"
                      "getFrameTimeout=75\n"
                      "heartbeat=true\n"
                      "localXml=some description.xml\n");
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.GetFrameTimeout(), 75);
    QCOMPARE(session.Heartbeat(), true);
    QCOMPARE(session.XmlFilePath(), QString("some description.xml"));
    // The control-channel time-out is written into the camera object.
    QCOMPARE(session.GvcpTimeout(), 9);

    // Later changes to the settings object do not reach the session.
    s->localXml = "other.xml";
    s->heartbeat = false;
    s->getFrameTimeout = 1;
    QCOMPARE(session.XmlFilePath(), QString("some description.xml"));
    QCOMPARE(session.Heartbeat(), true);
    QCOMPARE(session.GetFrameTimeout(), 75);

    auto defaults = settings(QByteArray());
    CKorvatinCameraViewlane defaultSession(*defaults);
    QCOMPARE(defaultSession.GetFrameTimeout(), 50);
    QCOMPARE(defaultSession.Heartbeat(), false);
    QVERIFY(defaultSession.XmlFilePath().isEmpty());
    QCOMPARE(defaultSession.GvcpTimeout(), 5);
}

void TestCameraSession::deviceInfoIsARegisteredMetaType() {
    auto s = settings(QByteArray());
    CKorvatinCameraViewlane session(*s);
    const QMetaType type = QMetaType::fromName("GigEVisionDeviceInfo");
    QVERIFY(type.isValid());
    QCOMPARE(type.sizeOf(), qsizetype(1720));
    QVERIFY(QMetaType::fromName("const GigEVisionDeviceInfo*").isValid());

    GigEVisionDeviceInfo info = LoopbackDevice("127.0.0.99");
    std::strcpy(info.serialNumber, "META01");
    const QVariant variant = QVariant::fromValue(info);
    QCOMPARE(variant.metaType(), type);
    const GigEVisionDeviceInfo back = variant.value<GigEVisionDeviceInfo>();
    QCOMPARE(std::memcmp(&back, &info, sizeof(info)), 0);
}

void TestCameraSession::fewerThanEightBuffersFailsConnectBeforeConnectIsCalled_data() {
    QTest::addColumn<int>("buffers");
    for (int buffers = 1; buffers <= 7; ++buffers)
        QTest::newRow(qPrintable(QString::number(buffers))) << buffers;
}

// A descriptor of a device nobody answers for would give a connection error if Connect were
// reached, and the heartbeat-disable flag would have been set: neither happens.
void TestCameraSession::fewerThanEightBuffersFailsConnectBeforeConnectIsCalled() {
    QFETCH(int, buffers);
    auto s = settings(QByteArray("[resource]\nallocatedBuffersCount=") +
                      QByteArray::number(buffers) + "\n");
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.HeartbeatDisable(), false);
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            session.ConnectDevice(LoopbackDevice("127.0.0.99"));
            QFAIL("ConnectDevice succeeded with too few buffers");
        } catch (const CKorvatinException& e) {
            QCOMPARE(QString(e.what()), QString(kTooFewBuffers));
            QCOMPARE(e.Code(), QRN_ERROR(0x7FFFFFFF));
        }
    }
    QCOMPARE(session.HeartbeatDisable(), false);
    QVERIFY(!session.IsConnected());
    QVERIFY(session.ConnectedDeviceInfo() == nullptr);
}

void TestCameraSession::fewerThanEightBuffersFailsConnectEvenToAReachableCamera() {
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    auto s = settings("[resource]\nallocatedBuffersCount=7\n");
    CKorvatinCameraViewlane session(*s);
    try {
        session.ConnectDevice(LoopbackDevice(kFakeAddress));
        QFAIL("ConnectDevice succeeded with 7 buffers");
    } catch (const CKorvatinException& e) {
        QCOMPARE(QString(e.what()), QString(kTooFewBuffers));
        QCOMPARE(e.Code(), QRN_ERROR(0x7FFFFFFF));
    }
    QVERIFY(!session.IsConnected());

    auto enough = settings("[resource]\nallocatedBuffersCount=8\n");
    CKorvatinCameraViewlane session8(*enough);
    session8.ConnectDevice(LoopbackDevice(kFakeAddress));
    QVERIFY(session8.IsConnected());
    session8.DisconnectDevice();
}

// With enough buffers the same unreachable descriptor reaches Connect, whose own error passes
// through unchanged.
void TestCameraSession::connectErrorFromTheSdkPassesThroughUnchanged() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace, where no device answers on 127.0.0.99");
    auto s = settings("[host]\nGVCPTimeOut=2\n");
    CKorvatinCameraViewlane session(*s);
    try {
        session.ConnectDevice(LoopbackDevice("127.0.0.99"));
        QFAIL("ConnectDevice succeeded without a device");
    } catch (const CKorvatinException& e) {
        QVERIFY2(QString(e.what()) != QString(kTooFewBuffers), e.what());
        QVERIFY2(e.Code() != QRN_ERROR(0x7FFFFFFF), e.what());
        QVERIFY(!QString(e.what()).isEmpty());
    }
    QVERIFY(!session.IsConnected());
}

void TestCameraSession::emptyLocalXmlConnectsWithTheCamerasOwnDescription() {
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    AravisReference reference;
    QString error;
    QVERIFY2(reference.open(kFakeAddress, &error), qPrintable(error));
    const qint64 sensorWidth = reference.integerValue("SensorWidth");
    reference.close();
    QVERIFY(sensorWidth > 0);

    auto s = settings("[host]\nlocalXml=\n");
    QVERIFY(s->localXml.isEmpty());
    CKorvatinCameraViewlane session(*s);
    // An empty path handed on as it is would name a file that cannot be opened; the camera's
    // own description is only used when the path is null.
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QVERIFY(session.IsConnected());
    QCOMPARE(session.XmlIndexLoaded(), 0);
    QrnParamAttribute attribute{};
    session.GetParamAttr("DeviceVendorName", &attribute);
    QCOMPARE(QString(attribute.displayName), QString("Vendor Name"));
    QCOMPARE(qint64(session.MaxWidth()), sensorWidth);
    session.DisconnectDevice();
}

// The file is the camera's description with two visible changes: a display name and a fixed
// maximum width.
void TestCameraSession::localXmlPathLoadsThatFile() {
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    AravisReference reference;
    QString error;
    QVERIFY2(reference.open(kFakeAddress, &error), qPrintable(error));
    QString xml = QString::fromUtf8(reference.genicamXml());
    reference.close();
    QVERIFY(!xml.isEmpty());

    QVERIFY(xml.contains("<DisplayName>Vendor Name</DisplayName>"));
    xml.replace("<DisplayName>Vendor Name</DisplayName>",
                "<DisplayName>Vendor Name From File</DisplayName>");
    static const QRegularExpression widthMax(
        "(<Integer Name=\"Width\"[^>]*>(?:(?!</Integer>).)*?)<pMax>SensorWidth</pMax>",
        QRegularExpression::DotMatchesEverythingOption);
    QVERIFY(xml.contains(widthMax));
    xml.replace(widthMax, "\\1<Max>640</Max>");

    // A name outside ASCII checks the local 8-bit conversion of the path.
    const QString path = dir_->filePath("description \u00e9.xml");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(xml.toUtf8());
    file.close();

    auto s = settings(QByteArray());
    s->localXml = path;
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.XmlFilePath(), path);
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QVERIFY(session.IsConnected());
    QrnParamAttribute attribute{};
    session.GetParamAttr("DeviceVendorName", &attribute);
    QCOMPARE(QString(attribute.displayName), QString("Vendor Name From File"));
    QCOMPARE(session.MaxWidth(), 640u);
    session.DisconnectDevice();

    // A path that names no file is the SDK's error, passed through.
    s->localXml = dir_->filePath("missing.xml");
    CKorvatinCameraViewlane missing(*s);
    QVERIFY_THROWS_EXCEPTION(CKorvatinException,
                             missing.ConnectDevice(LoopbackDevice(kFakeAddress)));
    QVERIFY(!missing.IsConnected());
}

void TestCameraSession::heartbeatSettingSetsTheHeartbeatDisableFlagAtConnect_data() {
    QTest::addColumn<QByteArray>("heartbeat");
    QTest::addColumn<bool>("disabled");
    QTest::newRow("heartbeat on") << QByteArray("true") << false;
    QTest::newRow("heartbeat off") << QByteArray("false") << true;
}

void TestCameraSession::heartbeatSettingSetsTheHeartbeatDisableFlagAtConnect() {
    QFETCH(QByteArray, heartbeat);
    QFETCH(bool, disabled);
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    auto s = settings("[host]\nheartbeat=" + heartbeat + "\n");
    CKorvatinCameraViewlane session(*s);
    // Set at each connect, whatever the flag was before.
    session.SetHeartbeatDisable(!disabled);
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QCOMPARE(session.HeartbeatDisable(), disabled);
    session.DisconnectDevice();
    session.SetHeartbeatDisable(!disabled);
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QCOMPARE(session.HeartbeatDisable(), disabled);
    session.DisconnectDevice();
}

void TestCameraSession::maxWidthAndHeightAreReadAtConnect() {
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    auto s = settings(QByteArray());
    CKorvatinCameraViewlane session(*s);
    QCOMPARE(session.MaxWidth(), 0u);
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QVERIFY(session.MaxWidth() > 0);
    QVERIFY(session.MaxHeight() > 0);
    QCOMPARE(session.MaxWidth(), session.GetUInt32Max("Width"));
    QCOMPARE(session.MaxHeight(), session.GetUInt32Max("Height"));
    // The maximum, not the current size.
    session.SetUInt32("Width", session.MaxWidth() / 2);
    QCOMPARE(session.GetUInt32("Width"), session.MaxWidth() / 2);
    session.DisconnectDevice();

    AravisReference reference;
    QString error;
    QVERIFY2(reference.open(kFakeAddress, &error), qPrintable(error));
    QCOMPARE(qint64(session.MaxWidth()), reference.integerValue("SensorWidth"));
    QCOMPARE(qint64(session.MaxHeight()), reference.integerValue("SensorHeight"));
}

void TestCameraSession::disconnectDeviceClosesTheConnection() {
    SimulatorProcess fake;
    REQUIRE_FAKE(fake);
    auto s = settings(QByteArray());
    CKorvatinCameraViewlane session(*s);
    // Harmless when nothing is connected.
    session.DisconnectDevice();
    session.ConnectDevice(LoopbackDevice(kFakeAddress));
    QVERIFY(session.IsConnected());
    QVERIFY(session.ConnectedDeviceInfo() != nullptr);
    QCOMPARE(QString(session.ConnectedDeviceInfo()->currentIp), QString(kFakeAddress));
    session.DisconnectDevice();
    QVERIFY(!session.IsConnected());
    QVERIFY(session.ConnectedDeviceInfo() == nullptr);
    QVERIFY_THROWS_EXCEPTION(CKorvatinException, session.GetUInt32("Width"));

    // The device was released: another client can take control of it.
    CKorvatinCamera other;
    other.Connect(LoopbackDevice(kFakeAddress), nullptr);
    QVERIFY(other.IsConnected());
    other.SetUInt32("Width", 256);
    QCOMPARE(other.GetUInt32("Width"), 256u);
    other.Disconnect();
}

void TestCameraSession::sessionIsReusedForAnotherConnection() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace (run through ctest as root)");
    SimulatorProcess first;
    SimulatorProcess second;
    QVERIFY2(first.startAravisFake("127.0.0.32", "FIRST"), qPrintable(first.errorString()));
    QVERIFY2(second.startAravisFake("127.0.0.33", "SECOND"), qPrintable(second.errorString()));
    auto s = settings(QByteArray());
    CKorvatinCameraViewlane session(*s);
    session.ConnectDevice(LoopbackDevice("127.0.0.32"));
    QCOMPARE(QString(session.ConnectedDeviceInfo()->currentIp), QString("127.0.0.32"));
    session.DisconnectDevice();
    session.ConnectDevice(LoopbackDevice("127.0.0.33"));
    QCOMPARE(QString(session.ConnectedDeviceInfo()->currentIp), QString("127.0.0.33"));
    char serial[64] = {};
    session.GetString("DeviceID", serial, sizeof(serial));
    QCOMPARE(QString(serial), QString("SECOND"));
    session.DisconnectDevice();
}

QTEST_GUILESS_MAIN(TestCameraSession)
#include "tst_korvatincameraviewlane.moc"
