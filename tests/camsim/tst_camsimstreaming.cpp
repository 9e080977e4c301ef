// The simulator's stream as Aravis receives it: sizes, formats, LUT, trigger, frame rate.
#include "aravishost.h"
#include "simulatorprocess.h"

#include <QElapsedTimer>
#include <QtTest>

namespace {

const QString kAddress = QStringLiteral("127.0.12.1");

struct FormatCase {
    const char* name;
    quint32 code;
    int bitsPerPixel;
};

const FormatCase kFormats[] = {
    {"Mono8", 0x01080001, 8},         {"Mono10", 0x01100003, 16},
    {"Mono12", 0x01100005, 16},       {"Mono16", 0x01100007, 16},
    {"Mono10Packed", 0x010C0004, 12}, {"Mono12Packed", 0x010C0006, 12},
    {"BayerGR8", 0x01080008, 8},      {"BayerRG8", 0x01080009, 8},
    {"BayerGB8", 0x0108000A, 8},      {"BayerBG8", 0x0108000B, 8},
    {"BayerGR12", 0x01100010, 16},    {"BayerRG12", 0x01100011, 16},
    {"BayerGB12", 0x01100012, 16},    {"BayerBG12", 0x01100013, 16},
    {"RGB8", 0x02180014, 24},         {"BGR8", 0x02180015, 24},
    {"YUV422_8", 0x02100032, 16},
};

} // namespace

class TestCamsimStreaming : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void streamsTwoHundredFullSizeFramesWithoutFailure();
    void negotiatesPacketSizeWithTestPackets();
    void everyPixelFormatStreamsFramesOfPayloadSize_data();
    void everyPixelFormatStreamsFramesOfPayloadSize();
    void lutChangesImageBytesAsTableSays();
    void lutAppliesToWidePixelsThroughTheirTopBits();
    void regionShowsItsPartOfTheMovingPattern();
    void triggerModeSendsOneFramePerTrigger();
    void frameRateFeatureLimitsTheStream();

private:
    void writeLut(const std::function<int(int)>& value);

    SimulatorProcess simulator_;
    CAravisHost host_;
};

void TestCamsimStreaming::initTestCase() {
    QVERIFY2(simulator_.startCamsim({"--address", kAddress}), qPrintable(simulator_.errorString()));
    QString error;
    QVERIFY2(host_.open(kAddress, &error), qPrintable(error));
}

void TestCamsimStreaming::init() {
    QVERIFY(host_.setInteger("FrameRate", 0));
    QVERIFY(host_.setString("PixelFormat", "Mono8"));
    QVERIFY(host_.setInteger("OffsetX", 0));
    QVERIFY(host_.setInteger("OffsetY", 0));
    QVERIFY(host_.setInteger("Width", host_.integer("WidthMax")));
    QVERIFY(host_.setInteger("Height", host_.integer("HeightMax")));
    QVERIFY(host_.setBoolean("LUTEnable", false));
    QVERIFY(host_.setString("TriggerMode", "Off"));
}

void TestCamsimStreaming::cleanupTestCase() {
    host_.close();
    simulator_.stop();
}

void TestCamsimStreaming::streamsTwoHundredFullSizeFramesWithoutFailure() {
    QCOMPARE(host_.integer("Width"), qint64(1280));
    QCOMPARE(host_.integer("Height"), qint64(960));
    // 100 frames per second: a realistic load that a busy test machine still takes in full.
    QVERIFY(host_.setInteger("FrameRate", 100));
    const GrabResult grab = host_.grab(200, 16);
    QCOMPARE(grab.succeeded, 200);
    QCOMPARE(grab.failed, 0);
    QCOMPARE(grab.wrongSize, 0);
    QCOMPARE(grab.failures, guint64(0));
    QCOMPARE(grab.lastWidth, 1280);
    QCOMPARE(grab.lastHeight, 960);
}

void TestCamsimStreaming::negotiatesPacketSizeWithTestPackets() {
    CGError error;
    const guint size = arv_camera_gv_auto_packet_size(host_.camera(), error.out());
    QVERIFY2(!error.isSet(), qPrintable(error.message()));
    // Loopback carries 64 KiB datagrams: the search ends near the largest size offered.
    QVERIFY2(size > 60000 && size <= 65500, qPrintable(QString::number(size)));
    QCOMPARE(qint64(size), host_.integer("GevSCPSPacketSize"));
    // Paced, so that a loaded machine's receive thread keeps up with 64 KiB datagrams.
    QVERIFY(host_.setInteger("FrameRate", 50));
    const GrabResult grab = host_.grab(20, 8);
    QCOMPARE(grab.succeeded, 20);
    arv_camera_gv_set_packet_size(host_.camera(), 1500, nullptr);
}

void TestCamsimStreaming::everyPixelFormatStreamsFramesOfPayloadSize_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<quint32>("code");
    QTest::addColumn<int>("bitsPerPixel");
    for (const FormatCase& f : kFormats)
        QTest::newRow(f.name) << QString(f.name) << f.code << f.bitsPerPixel;
}

void TestCamsimStreaming::everyPixelFormatStreamsFramesOfPayloadSize() {
    QFETCH(QString, format);
    QFETCH(quint32, code);
    QFETCH(int, bitsPerPixel);
    QVERIFY(host_.setInteger("Width", 320));
    QVERIFY(host_.setInteger("Height", 240));
    QVERIFY(host_.setString("PixelFormat", format.toLatin1().constData()));
    const qint64 payload = host_.integer("PayloadSize");
    QCOMPARE(payload, qint64(320) * 240 * bitsPerPixel / 8);
    const GrabResult grab = host_.grab(3);
    QCOMPARE(grab.succeeded, 3);
    QCOMPARE(grab.wrongSize, 0);
    QCOMPARE(qint64(grab.lastImage.size()), payload);
    QCOMPARE(grab.lastPixelFormat, code);
    QCOMPARE(grab.lastWidth, 320);
    QCOMPARE(grab.lastHeight, 240);
}

void TestCamsimStreaming::writeLut(const std::function<int(int)>& value) {
    ArvGcInteger* index = ARV_GC_INTEGER(host_.node("LUTIndex"));
    const int entries = int(arv_gc_integer_get_max(index, nullptr)) + 1;
    QCOMPARE(entries, 1024);
    for (int i = 0; i < entries; ++i) {
        QVERIFY(host_.setInteger("LUTIndex", i));
        QVERIFY(host_.setInteger("LUTValue", value(i)));
    }
    QVERIFY(host_.setInteger("LUTIndex", 77));
    QCOMPARE(host_.integer("LUTValue"), qint64(value(77)));
}

// An 8-bit level p is looked up at entry 4p and the entry's 10-bit value divided by 4.
void TestCamsimStreaming::lutChangesImageBytesAsTableSays() {
    QVERIFY(host_.setInteger("Height", 64));
    GrabResult grab = host_.grab(1);
    QCOMPARE(grab.succeeded, 1);
    auto rampStep = [](const QByteArray& image, int x) {
        return uint8_t(uint8_t(image[x + 1]) - uint8_t(image[x]));
    };
    // Without the table each row rises by one level per pixel.
    for (int x = 0; x < 1279; ++x)
        QCOMPARE(rampStep(grab.lastImage, x), uint8_t(1));

    writeLut([](int) { return 0x155; });
    QVERIFY(host_.setBoolean("LUTEnable", true));
    grab = host_.grab(1);
    QCOMPARE(grab.succeeded, 1);
    QCOMPARE(grab.lastImage, QByteArray(grab.lastImage.size(), char(0x55)));

    writeLut([](int i) { return 1023 - i; });
    grab = host_.grab(1);
    QCOMPARE(grab.succeeded, 1);
    for (int x = 0; x < 1279; ++x)
        QCOMPARE(rampStep(grab.lastImage, x), uint8_t(0xFF));

    writeLut([](int i) { return i; });
}

// A 16-bit level is looked up by its top 10 bits; the 10-bit result is widened by repeating it.
void TestCamsimStreaming::lutAppliesToWidePixelsThroughTheirTopBits() {
    QVERIFY(host_.setInteger("Height", 16));
    QVERIFY(host_.setString("PixelFormat", "Mono16"));
    writeLut([](int) { return 0x155; });
    QVERIFY(host_.setBoolean("LUTEnable", true));
    const GrabResult grab = host_.grab(1);
    QCOMPARE(grab.succeeded, 1);
    const auto* pixels = reinterpret_cast<const quint16*>(grab.lastImage.constData());
    for (int i = 0; i < grab.lastImage.size() / 2; ++i)
        QCOMPARE(pixels[i], quint16(0x5555));
    writeLut([](int i) { return i; });
}

void TestCamsimStreaming::regionShowsItsPartOfTheMovingPattern() {
    QVERIFY(host_.setInteger("Width", 64));
    QVERIFY(host_.setInteger("Height", 8));
    QVERIFY(host_.setInteger("OffsetX", 100));
    QVERIFY(host_.setBoolean("TestPatternMoving", false));
    QVERIFY(host_.setInteger("TestPatternSeed", 0));
    const GrabResult grab = host_.grab(2);
    QVERIFY(host_.setBoolean("TestPatternMoving", true));
    QCOMPARE(grab.succeeded, 2);
    // Level at sensor (x, y) is x + y + step; the region starts at x = 100.
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 64; ++x)
            QCOMPARE(uint8_t(grab.lastImage[y * 64 + x]), uint8_t(100 + x + y));
    }
}

void TestCamsimStreaming::triggerModeSendsOneFramePerTrigger() {
    QVERIFY(host_.setInteger("Height", 32));
    QVERIFY(host_.setString("TriggerMode", "On"));
    CGError error;
    GObjectPtr<ArvStream> stream(
        arv_camera_create_stream(host_.camera(), nullptr, nullptr, error.out()));
    QVERIFY2(stream, qPrintable(error.message()));
    const guint payload = arv_camera_get_payload(host_.camera(), nullptr);
    for (int i = 0; i < 4; ++i)
        arv_stream_push_buffer(stream.get(), arv_buffer_new(payload, nullptr));
    arv_camera_start_acquisition(host_.camera(), error.out());
    QVERIFY(!error.isSet());
    // Nothing arrives until the trigger.
    QVERIFY(!arv_stream_timeout_pop_buffer(stream.get(), 300000));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(host_.execute("TriggerSoftware"));
        ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream.get(), 2000000);
        QVERIFY(buffer);
        QCOMPARE(arv_buffer_get_status(buffer), ARV_BUFFER_STATUS_SUCCESS);
        arv_stream_push_buffer(stream.get(), buffer);
    }
    QVERIFY(!arv_stream_timeout_pop_buffer(stream.get(), 300000));
    arv_camera_stop_acquisition(host_.camera(), nullptr);
    QVERIFY(host_.setString("TriggerMode", "Off"));
}

void TestCamsimStreaming::frameRateFeatureLimitsTheStream() {
    QVERIFY(host_.setInteger("Height", 16));
    QVERIFY(host_.setInteger("FrameRate", 40));
    QElapsedTimer timer;
    timer.start();
    // 21 frames at 40 per second: at least 20 periods of 25 ms after the first.
    const GrabResult grab = host_.grab(21);
    QCOMPARE(grab.succeeded, 21);
    QVERIFY2(timer.elapsed() >= 450, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(TestCamsimStreaming)
#include "tst_camsimstreaming.moc"
