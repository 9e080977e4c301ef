// viewlane-cli histogram against the simulator's still colour bars: every figure and every bin
// equal to those counted here from a raw frame saved by save-frame in the same test. Against
// Aravis' simulated camera: the figures move with its gain and exposure.
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

namespace {

const char* const kAddress = "127.0.20.51";
const char* const kAravisAddress = "127.0.20.53";
constexpr int kWidth = 640;
constexpr int kHeight = 480;

struct Expected {
    QString channel;
    QVector<quint64> bins;
};

// The histogram of a saved raw frame: `channels` interleaved samples of `bytes` each
// (little-endian), `bits` deep.
QList<Expected> CountRaw(const QByteArray& raw, int channels, int bytes, int bits,
                         const QStringList& names) {
    QList<Expected> expected;
    for (int c = 0; c < channels; ++c)
        expected.append({names[c], QVector<quint64>(1 << bits, 0)});
    const int pixels = kWidth * kHeight;
    for (int i = 0; i < pixels; ++i) {
        for (int c = 0; c < channels; ++c) {
            const int offset = (i * channels + c) * bytes;
            int value = quint8(raw[offset]);
            if (bytes == 2)
                value |= quint8(raw[offset + 1]) << 8;
            ++expected[c].bins[value];
        }
    }
    return expected;
}

// Checks the command's output against the counts times `frames`.
void Compare(const QString& out, const QList<Expected>& expected, int frames) {
    const QStringList lines = out.split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines.size() >= expected.size());
    for (int c = 0; c < expected.size(); ++c) {
        const QVector<quint64>& bins = expected[c].bins;
        quint64 count = 0;
        double sum = 0;
        int minimum = -1, maximum = 0;
        for (int level = 0; level < bins.size(); ++level) {
            if (bins[level] == 0)
                continue;
            if (minimum < 0)
                minimum = level;
            maximum = level;
            count += bins[level];
            sum += double(bins[level]) * level;
        }
        const double mean = sum / double(count);
        double squares = 0;
        for (int level = 0; level < bins.size(); ++level)
            squares += double(bins[level]) * (level - mean) * (level - mean);
        const double stddev = std::sqrt(squares / double(count));

        const QStringList fields = lines[c].split(' ');
        QCOMPARE(fields.size(), 7);
        QCOMPARE(fields[0], expected[c].channel);
        QCOMPARE(fields[1].toInt(), minimum);
        QCOMPARE(fields[2].toInt(), maximum);
        QVERIFY2(qAbs(fields[3].toDouble() - mean) <= 0.005 + 1e-9, qPrintable(lines[c]));
        QVERIFY2(qAbs(fields[4].toDouble() - stddev) <= 0.005 + 1e-9, qPrintable(lines[c]));
        QCOMPARE(fields[5].toULongLong(), bins.front() * frames);
        QCOMPARE(fields[6].toULongLong(), bins.back() * frames);
    }
    // Then the bins: every level that holds pixels, in order.
    QStringList expectedBins;
    for (const Expected& e : expected)
        for (int level = 0; level < e.bins.size(); ++level)
            if (e.bins[level] != 0)
                expectedBins
                    << QString("%1 %2 %3").arg(e.channel).arg(level).arg(e.bins[level] * frames);
    QCOMPARE(lines.mid(expected.size()), expectedBins);
}

} // namespace

class TestViewlaneCliHistogram : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    SimulatorProcess m_sim;

    QByteArray SavedRaw(const QString& format) {
        const QString path = m_dir.filePath(format + ".raw");
        const CliRun run = RunCli({"save-frame", kAddress, path, "--pixel-format", format});
        if (run.exitCode != 0)
            return QByteArray();
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(m_sim.startCamsim({"--address", kAddress, "--pattern", "bars", "--width",
                                    QString::number(kWidth), "--height", QString::number(kHeight)}),
                 qPrintable(m_sim.errorString()));
    }

    void greyFiguresAndBinsMatchASavedFrame_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("bits");
        QTest::newRow("Mono8") << "Mono8" << 1 << 8;
        QTest::newRow("Mono12") << "Mono12" << 2 << 12;
        // Without interpolation a mosaic counts as grey, as the display shows it.
        QTest::newRow("BayerRG8") << "BayerRG8" << 1 << 8;
    }

    void greyFiguresAndBinsMatchASavedFrame() {
        QFETCH(QString, format);
        QFETCH(int, bytes);
        QFETCH(int, bits);
        const QByteArray raw = SavedRaw(format);
        QCOMPARE(raw.size(), kWidth * kHeight * bytes);
        const CliRun run =
            RunCli({"histogram", kAddress, "--frames", "3", "--bins", "--pixel-format", format});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        Compare(run.out, CountRaw(raw, 1, bytes, bits, {"grey"}), 3);
    }

    void colourFiguresAndBinsMatchASavedFrame() {
        const QByteArray raw = SavedRaw("RGB8");
        QCOMPARE(raw.size(), kWidth * kHeight * 3);
        const CliRun run = RunCli({"histogram", kAddress, "--bins", "--pixel-format", "RGB8"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        const QList<Expected> expected = CountRaw(raw, 3, 1, 8, {"red", "green", "blue"});
        Compare(run.out, expected, 1);
        // The bars hold black and full levels: both ends are clipped in every channel.
        for (const Expected& e : expected)
            QVERIFY(e.bins.front() > 0 && e.bins.back() > 0);
    }

    // Shown in colour, a mosaic counts each cell in its own colour: red and blue from a quarter
    // of the pixels each, green from half, the levels as the sensor sent them.
    void aColourMosaicCountsEachCellInItsColour() {
        const QByteArray raw = SavedRaw("BayerRG8");
        QCOMPARE(raw.size(), kWidth * kHeight);
        const CliRun run = RunCli({"histogram", kAddress, "--frames", "2", "--bins", "--bayer",
                                   "bilinear", "--pixel-format", "BayerRG8"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        QList<Expected> expected{{"red", QVector<quint64>(256, 0)},
                                 {"green", QVector<quint64>(256, 0)},
                                 {"blue", QVector<quint64>(256, 0)}};
        static const int kCell[4] = {0, 1, 1, 2}; // RGGB
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                ++expected[kCell[(y & 1) * 2 + (x & 1)]].bins[quint8(raw[y * kWidth + x])];
        Compare(run.out, expected, 2);
    }

    // Aravis' ramp brightens with GainRaw and ExposureTimeAbs; levels pushed past the top are
    // clipped there.
    void theFiguresMoveWithGainAndExposure() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake(kAravisAddress), qPrintable(fake.errorString()));
        auto read = [](const char* feature) {
            const CliRun run = RunCli({"get", kAravisAddress, feature});
            return run.exitCode == 0 ? run.out.trimmed().toDouble() : -1.0;
        };
        const double pixels = read("Width") * read("Height");
        QVERIFY(pixels > 0);
        // The grey line's mean and the share of pixels at the highest level.
        double mean = -1, share = -1;
        auto measure = [&] {
            const CliRun run = RunCli({"histogram", kAravisAddress});
            const QStringList f = run.out.trimmed().split(' ');
            if (run.exitCode != 0 || f.size() != 7 || f[0] != "grey") {
                qWarning("%s%s", qPrintable(run.out), qPrintable(run.errLines.join('\n')));
                return false;
            }
            mean = f[3].toDouble();
            share = f[6].toDouble() / pixels;
            return true;
        };
        auto set = [](const char* feature, const char* value) {
            return RunCli({"set", kAravisAddress, feature, value}).exitCode == 0;
        };
        QVERIFY(set("GainRaw", "0"));
        QVERIFY(set("ExposureTimeAbs", "10000"));
        QVERIFY(measure());
        QCOMPARE(share, 0.0);
        const double darkMean = mean;
        // Gain 3 multiplies the levels by four: three quarters reach the top.
        QVERIFY(set("GainRaw", "3"));
        QVERIFY(measure());
        QVERIFY2(share > 0.70 && share < 0.80, qPrintable(QString::number(share)));
        QVERIFY2(mean > darkMean + 50, qPrintable(QString("%1 %2").arg(darkMean).arg(mean)));
        const double gainMean = mean;
        // Four times the exposure at gain 0: brighter than at first, less than at gain 3.
        QVERIFY(set("GainRaw", "0"));
        QVERIFY(set("ExposureTimeAbs", "40000"));
        QVERIFY(measure());
        QVERIFY2(share > 0.30 && share < 0.45, qPrintable(QString::number(share)));
        QVERIFY2(mean > darkMean + 20 && mean < gainMean,
                 qPrintable(QString("%1 %2 %3").arg(darkMean).arg(mean).arg(gainMean)));
    }

    void figuresWithoutBinsAreOneLinePerChannel() {
        const CliRun run = RunCli({"histogram", kAddress, "--pixel-format", "RGB8"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines[0].startsWith("red "));
        QVERIFY(lines[1].startsWith("green "));
        QVERIFY(lines[2].startsWith("blue "));
    }
};

QTEST_GUILESS_MAIN(TestViewlaneCliHistogram)
#include "tst_viewlaneclihistogram.moc"
