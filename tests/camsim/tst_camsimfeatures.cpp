// The simulator's GenICam description as Aravis reads it, with every node kind it offers.
#include "aravishost.h"
#include "simulatorprocess.h"

#include <QtTest>

#include <functional>

namespace {
const QString kAddress = QStringLiteral("127.0.11.1");
}

class TestCamsimFeatures : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void descriptionComesFromTheFirstUrlAndParses();
    void everyReadableFeatureReads();
    void deviceInformationIsReported();
    void offsetXMaximumFollowsWidth();
    void payloadSizeFollowsSizeAndFormat();
    void signedIntegersHaveNegativeRangesAndSteps();
    void floatHasUnitAndRange();
    void stringHasMaximumLength();
    void enumerationOffersEveryPixelFormat();
    void readOnlyAndWriteOnlyFeatures();
    void triggerSoftwareIsNotAvailableUntilTriggerModeIsOn();
    void noCacheValuesChangeByThemselves();
    void longDisplayNameAndNestedCategories();
    void hdrKneePointsNeverExceedExposure();
    void cameraRefusesOutOfRangeRegisterWrites();

private:
    void walk(const char* category, int depth, const std::function<void(ArvGcNode*, int)>& visit);

    SimulatorProcess simulator_;
    CAravisHost host_;
};

void TestCamsimFeatures::initTestCase() {
    QVERIFY2(simulator_.startCamsim({"--address", kAddress, "--width", "640", "--height", "480"}),
             qPrintable(simulator_.errorString()));
    QString error;
    QVERIFY2(host_.open(kAddress, &error), qPrintable(error));
}

void TestCamsimFeatures::cleanupTestCase() {
    host_.close();
    simulator_.stop();
}

void TestCamsimFeatures::walk(const char* category, int depth,
                              const std::function<void(ArvGcNode*, int)>& visit) {
    ArvGc* genicam = arv_device_get_genicam(host_.device());
    ArvGcNode* node = arv_gc_get_node(genicam, category);
    QVERIFY2(node, category);
    visit(node, depth);
    if (!ARV_IS_GC_CATEGORY(node))
        return;
    for (const GSList* i = arv_gc_category_get_features(ARV_GC_CATEGORY(node)); i; i = i->next)
        walk(static_cast<const char*>(i->data), depth + 1, visit);
}

void TestCamsimFeatures::descriptionComesFromTheFirstUrlAndParses() {
    size_t size = 0;
    const char* xml = arv_device_get_genicam_xml(host_.device(), &size);
    QVERIFY(xml);
    QVERIFY(size > 1000);
    QVERIFY(QByteArray(xml, int(size)).contains("KorvatinCamsim"));
    ArvGcNode* root = arv_gc_get_node(arv_device_get_genicam(host_.device()), "Root");
    QVERIFY(ARV_IS_GC_CATEGORY(root));
}

void TestCamsimFeatures::everyReadableFeatureReads() {
    int features = 0;
    walk("Root", 0, [&](ArvGcNode* node, int) {
        if (ARV_IS_GC_CATEGORY(node) || ARV_IS_GC_COMMAND(node) || ARV_IS_GC_REGISTER(node))
            return;
        ArvGcFeatureNode* feature = ARV_GC_FEATURE_NODE(node);
        const char* name = arv_gc_feature_node_get_name(feature);
        ++features;
        CGError error;
        if (!arv_gc_feature_node_is_available(feature, error.out()))
            return;
        if (arv_gc_feature_node_get_actual_access_mode(feature) == ARV_GC_ACCESS_MODE_WO)
            return;
        const char* value = arv_gc_feature_node_get_value_as_string(feature, error.out());
        QVERIFY2(!error.isSet(), qPrintable(QString("%1: %2").arg(name, error.message())));
        QVERIFY2(value, name);
    });
    QVERIFY2(features >= 60, qPrintable(QString::number(features)));
}

void TestCamsimFeatures::deviceInformationIsReported() {
    QCOMPARE(host_.string("DeviceVendorName"), QString("Korvatin"));
    QCOMPARE(host_.string("DeviceModelName"), QString("Korvatin Camsim"));
    QVERIFY(!host_.string("DeviceSerialNumber").isEmpty());
    QCOMPARE(host_.integer("GevCurrentIPAddress"), qint64(0x7F000B01));
    QCOMPARE(host_.integer("WidthMax"), qint64(640));
    QCOMPARE(host_.integer("HeightMax"), qint64(480));
    QCOMPARE(host_.integer("GevHeartbeatTimeout"), qint64(3000));
}

void TestCamsimFeatures::offsetXMaximumFollowsWidth() {
    ArvGcInteger* offsetX = ARV_GC_INTEGER(host_.node("OffsetX"));
    ArvGcInteger* width = ARV_GC_INTEGER(host_.node("Width"));
    QCOMPARE(arv_gc_integer_get_inc(width, nullptr), gint64(4));
    QVERIFY(host_.setInteger("Width", 512));
    QCOMPARE(arv_gc_integer_get_max(offsetX, nullptr), gint64(128));
    QVERIFY(host_.setInteger("OffsetX", 128));
    QCOMPARE(arv_gc_integer_get_max(width, nullptr), gint64(512));
    QVERIFY(host_.setInteger("OffsetX", 0));
    QVERIFY(host_.setInteger("Width", 640));
    QCOMPARE(arv_gc_integer_get_max(offsetX, nullptr), gint64(0));
}

void TestCamsimFeatures::payloadSizeFollowsSizeAndFormat() {
    QVERIFY(host_.setInteger("Height", 100));
    QCOMPARE(host_.integer("PayloadSize"), qint64(640 * 100));
    QVERIFY(host_.setString("PixelFormat", "RGB8"));
    QCOMPARE(host_.integer("PayloadSize"), qint64(640 * 100 * 3));
    QVERIFY(host_.setString("PixelFormat", "Mono12Packed"));
    QCOMPARE(host_.integer("PayloadSize"), qint64(640 * 100 * 3 / 2));
    QVERIFY(host_.setString("PixelFormat", "Mono8"));
    QVERIFY(host_.setInteger("Height", 480));
    QCOMPARE(host_.integer("PayloadSize"), qint64(640 * 480));
}

void TestCamsimFeatures::signedIntegersHaveNegativeRangesAndSteps() {
    ArvGcInteger* black = ARV_GC_INTEGER(host_.node("BlackLevel"));
    QCOMPARE(arv_gc_integer_get_min(black, nullptr), gint64(-100));
    QVERIFY(host_.setInteger("BlackLevel", -42));
    QCOMPARE(host_.integer("BlackLevel"), qint64(-42));
    ArvGcInteger* focus = ARV_GC_INTEGER(host_.node("FocusPosition"));
    QCOMPARE(arv_gc_integer_get_min(focus, nullptr), gint64(-1024));
    QCOMPARE(arv_gc_integer_get_inc(focus, nullptr), gint64(8));
    QVERIFY(host_.setInteger("FocusPosition", -512));
    QCOMPARE(host_.integer("FocusPosition"), qint64(-512));
}

void TestCamsimFeatures::floatHasUnitAndRange() {
    ArvGcNode* gain = host_.node("Gain");
    QVERIFY(ARV_IS_GC_FLOAT(gain));
    QCOMPARE(QString(arv_gc_float_get_unit(ARV_GC_FLOAT(gain))), QString("dB"));
    QCOMPARE(arv_gc_float_get_max(ARV_GC_FLOAT(gain), nullptr), 24.0);
    QVERIFY(host_.setFloat("Gain", 6.5));
    QCOMPARE(host_.floatValue("Gain"), 6.5);
    QCOMPARE(QString(arv_gc_float_get_unit(ARV_GC_FLOAT(host_.node("DeviceTemperature")))),
             QString("C"));
}

void TestCamsimFeatures::stringHasMaximumLength() {
    ArvGcNode* user = host_.node("DeviceUserID");
    QVERIFY(ARV_IS_GC_STRING(user));
    QCOMPARE(arv_gc_string_get_max_length(ARV_GC_STRING(user), nullptr), gint64(16));
    QVERIFY(host_.setString("DeviceUserID", "bench-left"));
    QCOMPARE(host_.string("DeviceUserID"), QString("bench-left"));
}

void TestCamsimFeatures::enumerationOffersEveryPixelFormat() {
    guint count = 0;
    const char** values = arv_gc_enumeration_dup_available_string_values(
        ARV_GC_ENUMERATION(host_.node("PixelFormat")), &count, nullptr);
    QStringList formats;
    for (guint i = 0; i < count; ++i)
        formats << values[i];
    g_free(values);
    // GigE Vision's pixel-format table, each image format of it, and Coord3D_ABC8.
    const QStringList expected{"Mono1p",
                               "Mono2p",
                               "Mono4p",
                               "Mono8",
                               "Mono8s",
                               "Mono10",
                               "Mono10p",
                               "Mono10Packed",
                               "Mono12",
                               "Mono12p",
                               "Mono12Packed",
                               "Mono14",
                               "Mono16",
                               "BayerGR8",
                               "BayerRG8",
                               "BayerGB8",
                               "BayerBG8",
                               "BayerGR10",
                               "BayerRG10",
                               "BayerGB10",
                               "BayerBG10",
                               "BayerGR10p",
                               "BayerRG10p",
                               "BayerGB10p",
                               "BayerBG10p",
                               "BayerGR10Packed",
                               "BayerRG10Packed",
                               "BayerGB10Packed",
                               "BayerBG10Packed",
                               "BayerGR12",
                               "BayerRG12",
                               "BayerGB12",
                               "BayerBG12",
                               "BayerGR12p",
                               "BayerRG12p",
                               "BayerGB12p",
                               "BayerBG12p",
                               "BayerGR12Packed",
                               "BayerRG12Packed",
                               "BayerGB12Packed",
                               "BayerBG12Packed",
                               "BayerGR14",
                               "BayerRG14",
                               "BayerGB14",
                               "BayerBG14",
                               "BayerGR16",
                               "BayerRG16",
                               "BayerGB16",
                               "BayerBG16",
                               "RGB8",
                               "BGR8",
                               "RGBa8",
                               "BGRa8",
                               "RGB10",
                               "BGR10",
                               "RGB12",
                               "BGR12",
                               "RGB16",
                               "BGR16",
                               "RGB10V1Packed",
                               "RGB10p32",
                               "RGB12V1Packed",
                               "RGB565p",
                               "BGR565p",
                               "RGB8_Planar",
                               "RGB10_Planar",
                               "RGB12_Planar",
                               "RGB16_Planar",
                               "YUV411_8_UYYVYY",
                               "YUV422_8_UYVY",
                               "YUV422_8",
                               "YUV8_UYV",
                               "YCbCr8_CbYCr",
                               "YCbCr422_8",
                               "YCbCr422_8_CbYCrY",
                               "YCbCr411_8_CbYYCrYY",
                               "YCbCr601_8_CbYCr",
                               "YCbCr601_422_8",
                               "YCbCr601_422_8_CbYCrY",
                               "YCbCr601_411_8_CbYYCrYY",
                               "YCbCr709_8_CbYCr",
                               "YCbCr709_422_8",
                               "YCbCr709_422_8_CbYCrY",
                               "YCbCr709_411_8_CbYYCrYY",
                               "Coord3D_ABC8"};
    QCOMPARE(formats, expected);
    QVERIFY(ARV_IS_GC_BOOLEAN(host_.node("LUTEnable")));
    QVERIFY(ARV_IS_GC_COMMAND(host_.node("DeviceReset")));
}

void TestCamsimFeatures::readOnlyAndWriteOnlyFeatures() {
    auto mode = [&](const char* name) {
        return arv_gc_feature_node_get_actual_access_mode(ARV_GC_FEATURE_NODE(host_.node(name)));
    };
    QCOMPARE(mode("PayloadSize"), ARV_GC_ACCESS_MODE_RO);
    QCOMPARE(mode("DeviceSerialNumber"), ARV_GC_ACCESS_MODE_RO);
    QCOMPARE(mode("TestPatternSeed"), ARV_GC_ACCESS_MODE_WO);
    QCOMPARE(mode("Width"), ARV_GC_ACCESS_MODE_RW);
    QVERIFY(host_.setInteger("TestPatternSeed", 17));
    QString error;
    host_.setInteger("PayloadSize", 5, &error);
    QVERIFY(!error.isEmpty());
}

void TestCamsimFeatures::triggerSoftwareIsNotAvailableUntilTriggerModeIsOn() {
    ArvGcFeatureNode* trigger = ARV_GC_FEATURE_NODE(host_.node("TriggerSoftware"));
    QVERIFY(!arv_gc_feature_node_is_available(trigger, nullptr));
    QVERIFY(host_.setString("TriggerMode", "On"));
    QVERIFY(arv_gc_feature_node_is_available(trigger, nullptr));
    QVERIFY(host_.setString("TriggerMode", "Off"));
    QVERIFY(!arv_gc_feature_node_is_available(trigger, nullptr));
}

void TestCamsimFeatures::noCacheValuesChangeByThemselves() {
    const double first = host_.floatValue("DeviceTemperature");
    QVERIFY(first > 20 && first < 60);
    QTRY_VERIFY_WITH_TIMEOUT(host_.floatValue("DeviceTemperature") != first, 5000);

    const qint64 frames = host_.integer("FrameCounter");
    QVERIFY(host_.setInteger("Height", 16));
    const GrabResult grab = host_.grab(5);
    QVERIFY(host_.setInteger("Height", 480));
    QCOMPARE(grab.succeeded, 5);
    QVERIFY(host_.integer("FrameCounter") >= frames + 5);
}

void TestCamsimFeatures::longDisplayNameAndNestedCategories() {
    const QString name =
        arv_gc_feature_node_get_display_name(ARV_GC_FEATURE_NODE(host_.node("FocusPosition")));
    QVERIFY2(name.size() > 63, qPrintable(name));
    int deepest = 0;
    walk("Root", 0, [&](ArvGcNode* node, int depth) {
        if (ARV_IS_GC_CATEGORY(node))
            deepest = std::max(deepest, depth);
    });
    QVERIFY(deepest >= 3);
}

void TestCamsimFeatures::hdrKneePointsNeverExceedExposure() {
    QVERIFY(host_.setInteger("Exposure", 20000));
    QVERIFY(host_.setInteger("HDRp1", 15000));
    QVERIFY(host_.setInteger("HDRp2", 12000));
    QCOMPARE(arv_gc_integer_get_max(ARV_GC_INTEGER(host_.node("HDRp2")), nullptr), gint64(15000));
    QVERIFY(host_.setInteger("Exposure", 10000));
    QCOMPARE(host_.integer("HDRp1"), qint64(10000));
    QCOMPARE(host_.integer("HDRp2"), qint64(10000));
}

void TestCamsimFeatures::cameraRefusesOutOfRangeRegisterWrites() {
    // Past Aravis' own range check: straight to the Width register.
    CGError error;
    arv_device_write_register(host_.device(), 0x10000, 642, error.out());
    QVERIFY(error.isSet());
    QCOMPARE(host_.integer("Width"), qint64(640));
    arv_device_write_register(host_.device(), 0x10010, 0x12345678, error.out());
    QVERIFY(error.isSet());
    QCOMPARE(host_.string("PixelFormat"), QString("Mono8"));
}

QTEST_GUILESS_MAIN(TestCamsimFeatures)
#include "tst_camsimfeatures.moc"
