// What maintenance jobs meet on the simulator as on a camera: an exposure bounded by the frame
// period, and a look-up table whose index and value ranges the command line sets.
#include "aravishost.h"
#include "simulatorprocess.h"

#include <QtTest>

namespace {

constexpr guint64 kExposureRegister = 0x10030;
constexpr guint64 kLutIndexRegister = 0x10084;
constexpr guint64 kLutValueRegister = 0x10088;

// Min, max and increment of an integer feature as Aravis reads them from the description.
struct Bounds {
    gint64 min, max, inc;
    bool operator==(const Bounds& o) const { return min == o.min && max == o.max && inc == o.inc; }
};

Bounds boundsOf(CAravisHost& host, const char* name) {
    ArvGcInteger* node = ARV_GC_INTEGER(host.node(name));
    return {arv_gc_integer_get_min(node, nullptr), arv_gc_integer_get_max(node, nullptr),
            arv_gc_integer_get_inc(node, nullptr)};
}

// True when the camera itself accepts `value` at `address` (past Aravis' own range checks).
bool registerWriteAccepted(CAravisHost& host, guint64 address, guint32 value) {
    CGError error;
    arv_device_write_register(host.device(), address, value, error.out());
    return !error.isSet();
}

// Every pixel of the Mono8 image one level above (rising) or below (falling) its left neighbour.
bool isRamp(const GrabResult& grab, int step) {
    const auto* data = reinterpret_cast<const uchar*>(grab.lastImage.constData());
    if (grab.lastImage.size() != grab.lastWidth * grab.lastHeight || grab.lastWidth < 2)
        return false;
    for (int y = 0; y < grab.lastHeight; ++y)
        for (int x = 1; x < grab.lastWidth; ++x)
            if (data[y * grab.lastWidth + x] != uchar(data[y * grab.lastWidth + x - 1] + step))
                return false;
    return true;
}

} // namespace

class TestCamsimMaintenance : public QObject {
    Q_OBJECT

    // A simulator on `address` with `extra` options and an Aravis host on it.
    bool start(SimulatorProcess& sim, CAravisHost& host, const QString& address,
               const QStringList& extra = {}) {
        QString error;
        if (!sim.startCamsim(QStringList{"--address", address, "--width", "64", "--height", "16"} +
                             extra)) {
            qWarning("%s", qPrintable(sim.errorString()));
            return false;
        }
        if (!host.open(address, &error)) {
            qWarning("%s", qPrintable(error));
            return false;
        }
        return true;
    }

private slots:
    void exposureMaximumIsTheFramePeriod() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(start(sim, host, "127.0.12.1"));
        QCOMPARE(host.integer("FrameRate"), qint64(30));
        QCOMPARE(boundsOf(host, "Exposure").max, gint64(33333));
        QVERIFY(host.setInteger("FrameRate", 10));
        QCOMPARE(boundsOf(host, "Exposure").max, gint64(100000));
        QVERIFY(host.setInteger("FrameRate", 0));
        QCOMPARE(boundsOf(host, "Exposure").max, gint64(1000000));
        QCOMPARE(boundsOf(host, "Exposure").min, gint64(10));
    }

    void exposureLongerThanThePeriodIsRefusedUntilTheRateAllowsIt() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(start(sim, host, "127.0.12.2"));
        QVERIFY(host.setInteger("FrameRate", 30));
        QVERIFY(!registerWriteAccepted(host, kExposureRegister, 90000));
        QCOMPARE(host.integer("Exposure"), qint64(10000));
        QVERIFY(registerWriteAccepted(host, kExposureRegister, 33333));
        QVERIFY(!registerWriteAccepted(host, kExposureRegister, 33334));
        QVERIFY(host.setInteger("FrameRate", 10));
        QVERIFY(host.setInteger("Exposure", 90000));
        QCOMPARE(host.integer("Exposure"), qint64(90000));
    }

    void higherFrameRateShortensALongerExposureAndTheKneePoints() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(start(sim, host, "127.0.12.3"));
        QVERIFY(host.setInteger("FrameRate", 10));
        QVERIFY(host.setInteger("Exposure", 90000));
        QVERIFY(host.setInteger("HDRp1", 80000));
        QVERIFY(host.setInteger("HDRp2", 20000));
        QVERIFY(host.setInteger("FrameRate", 30));
        QCOMPARE(host.integer("Exposure"), qint64(33333));
        QCOMPARE(host.integer("HDRp1"), qint64(33333));
        QCOMPARE(host.integer("HDRp2"), qint64(20000));
        // A rate that leaves room changes nothing.
        QVERIFY(host.setInteger("FrameRate", 20));
        QCOMPARE(host.integer("Exposure"), qint64(33333));
    }

    void lutRangesComeFromTheCommandLine() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(
            start(sim, host, "127.0.12.4", {"--lut-index", "4:1020:4", "--lut-value", "8:1020:4"}));
        QCOMPARE(boundsOf(host, "LUTIndex"), (Bounds{4, 1020, 4}));
        QCOMPARE(boundsOf(host, "LUTValue"), (Bounds{8, 1020, 4}));
        QCOMPARE(host.integer("LUTIndex"), qint64(4));

        SimulatorProcess defaults;
        CAravisHost plain;
        QVERIFY(start(defaults, plain, "127.0.12.5"));
        QCOMPARE(boundsOf(plain, "LUTIndex"), (Bounds{0, 1023, 1}));
        QCOMPARE(boundsOf(plain, "LUTValue"), (Bounds{0, 1023, 1}));
    }

    void lutWritesOutOfRangeOrOffTheIncrementAreRefused() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(
            start(sim, host, "127.0.12.6", {"--lut-index", "4:1020:4", "--lut-value", "8:1020:4"}));
        QVERIFY(!registerWriteAccepted(host, kLutIndexRegister, 0));
        QVERIFY(!registerWriteAccepted(host, kLutIndexRegister, 6));
        QVERIFY(!registerWriteAccepted(host, kLutIndexRegister, 1024));
        QVERIFY(registerWriteAccepted(host, kLutIndexRegister, 1020));
        QVERIFY(!registerWriteAccepted(host, kLutValueRegister, 4));
        QVERIFY(!registerWriteAccepted(host, kLutValueRegister, 9));
        QVERIFY(!registerWriteAccepted(host, kLutValueRegister, 1024));
        QVERIFY(registerWriteAccepted(host, kLutValueRegister, 12));
        QCOMPARE(host.integer("LUTValue"), qint64(12));
        // Each index has its own entry.
        QVERIFY(host.setInteger("LUTIndex", 8));
        QVERIFY(host.integer("LUTValue") != 12);
        QVERIFY(host.setInteger("LUTIndex", 1020));
        QCOMPARE(host.integer("LUTValue"), qint64(12));
    }

    void tableOf4096EntriesKeepsEveryEntry() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(
            start(sim, host, "127.0.12.7", {"--lut-index", "0:4095:1", "--lut-value", "0:4095:1"}));
        QCOMPARE(boundsOf(host, "LUTIndex").max, gint64(4095));
        for (guint32 index : {0u, 1u, 2048u, 4095u}) {
            QVERIFY(registerWriteAccepted(host, kLutIndexRegister, index));
            QVERIFY(registerWriteAccepted(host, kLutValueRegister, 4095 - index));
        }
        for (guint32 index : {0u, 1u, 2048u, 4095u}) {
            QVERIFY(host.setInteger("LUTIndex", index));
            QCOMPARE(host.integer("LUTValue"), qint64(4095 - index));
        }
    }

    void defaultTableIsTheIdentity() {
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(start(sim, host, "127.0.12.8"));
        QVERIFY(host.setInteger("LUTIndex", 700));
        QCOMPARE(host.integer("LUTValue"), qint64(700));
        QVERIFY(host.setBoolean("LUTEnable", true));
        const GrabResult grab = host.grab(2);
        QCOMPARE(grab.succeeded, 2);
        QVERIFY(isRamp(grab, +1));
    }

    void invertedTableInvertsTheImage_data() {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<quint32>("entries");
        QTest::addColumn<quint32>("valueMax");
        QTest::newRow("1024 entries of 10 bits") << QStringList{} << 1024u << 1023u;
        QTest::newRow("4096 entries of 12 bits")
            << QStringList{"--lut-index", "0:4095:1", "--lut-value", "0:4095:1"} << 4096u << 4095u;
        QTest::newRow("256 entries of 8 bits")
            << QStringList{"--lut-index", "0:255:1", "--lut-value", "0:255:1"} << 256u << 255u;
    }

    void invertedTableInvertsTheImage() {
        QFETCH(QStringList, options);
        QFETCH(quint32, entries);
        QFETCH(quint32, valueMax);
        SimulatorProcess sim;
        CAravisHost host;
        QVERIFY(start(sim, host, "127.0.12.9", options));
        for (quint32 k = 0; k < entries; ++k) {
            QVERIFY(registerWriteAccepted(host, kLutIndexRegister, k));
            QVERIFY(registerWriteAccepted(host, kLutValueRegister, valueMax - k));
        }
        QVERIFY(host.setBoolean("LUTEnable", true));
        const GrabResult inverted = host.grab(2);
        QCOMPARE(inverted.succeeded, 2);
        QVERIFY(isRamp(inverted, -1));
        QVERIFY(host.setBoolean("LUTEnable", false));
        const GrabResult plain = host.grab(2);
        QVERIFY(isRamp(plain, +1));
    }
};

QTEST_GUILESS_MAIN(TestCamsimMaintenance)
#include "tst_camsimmaintenance.moc"
