// viewlane-cli save-frame and record in every pixel format korvatin-camsim streams: the files
// hold the colour bars; a format that is not an image is refused by name.
#include "clirun.h"
#include "colourbars.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <tiffio.h>

#include <cstring>
#include <memory>

using namespace colourbars;

namespace {

const char* const kAddress = "127.0.5.41";
constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 8;

bool rgbMatchesBars(const camsim::PixelFormatInfo& f, const QByteArray& rgb, QString* error) {
    return matchesBars(
        f, kWidth, kHeight, 3,
        [&](uint32_t x, uint32_t y, int c) {
            return int(uint8_t(rgb[int((y * kWidth + x) * 3 + c)]));
        },
        error);
}

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// A TIFF read by libtiff against the bars: 8-bit samples as they are, 16-bit ones by the top 8
// of the format's bits.
bool tiffMatchesBars(const camsim::PixelFormatInfo& f, const QString& file, QString* error) {
    std::unique_ptr<TIFF, TiffCloser> tiff(TIFFOpen(QFile::encodeName(file).constData(), "r"));
    if (!tiff) {
        *error = QString("%1: libtiff cannot open %2").arg(f.name, file);
        return false;
    }
    uint32_t width = 0, height = 0;
    uint16_t samples = 0, bits = 0;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    if (width != kWidth || height != kHeight || samples != (isMono(f) ? 1 : 3)) {
        *error = QString("%1: TIFF of %2 x %3, %4 samples")
                     .arg(f.name)
                     .arg(width)
                     .arg(height)
                     .arg(samples);
        return false;
    }
    std::vector<std::vector<uint8_t>> rows;
    for (uint32_t y = 0; y < height; ++y) {
        std::vector<uint8_t> row(TIFFScanlineSize(tiff.get()));
        if (TIFFReadScanline(tiff.get(), row.data(), y, 0) < 0)
            return false;
        rows.push_back(std::move(row));
    }
    return matchesBars(
        f, kWidth, kHeight, samples,
        [&](uint32_t x, uint32_t y, int c) {
            const size_t index = size_t(x) * samples + c;
            if (bits == 8)
                return int(rows[y][index]);
            uint16_t v;
            std::memcpy(&v, rows[y].data() + 2 * index, 2);
            return v >= (1u << f.bits) ? -1000 : int(v >> (f.bits - 8));
        },
        error);
}

} // namespace

class TestViewlaneCliPixelFormats : public QObject {
    Q_OBJECT

private:
    SimulatorProcess camsim_;
    QTemporaryDir dir_;

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace (run through ctest as root)");
        if (QStandardPaths::findExecutable("ffmpeg").isEmpty())
            QSKIP("ffmpeg is needed to read the files back");
        QVERIFY(dir_.isValid());
        QVERIFY2(
            camsim_.startCamsim({"--address", kAddress, "--pattern", "bars", "--width",
                                 QString::number(kWidth), "--height", QString::number(kHeight)}),
            qPrintable(camsim_.errorString()));
    }

    // save-frame as TIFF and BMP, and record, in each format; Bayer by nearest neighbour, which
    // gives every pixel of a bar its colour.
    void saveFrameAndRecordKeepTheBarsInEveryFormat() {
        for (const camsim::PixelFormatInfo* f : imageFormats()) {
            QString error;
            const QString tif = dir_.filePath(QString(f->name) + ".tif");
            CliRun run = RunCli({"save-frame", kAddress, tif, "--format", "tif", "--pixel-format",
                                 f->name, "--bayer", "nearest"});
            QVERIFY2(run.exitCode == 0,
                     qPrintable(QString(f->name) + ": " + run.errLines.join(" | ")));
            QVERIFY2(tiffMatchesBars(*f, tif, &error), qPrintable("TIFF " + error));

            const QString bmp = dir_.filePath(QString(f->name) + ".bmp");
            run = RunCli({"save-frame", kAddress, bmp, "--format", "bmp", "--pixel-format", f->name,
                          "--bayer", "nearest"});
            QVERIFY2(run.exitCode == 0,
                     qPrintable(QString(f->name) + ": " + run.errLines.join(" | ")));
            const QByteArray bmpRgb = decodeRgb(bmp, kWidth, kHeight);
            QVERIFY2(!bmpRgb.isEmpty(), f->name);
            QVERIFY2(rgbMatchesBars(*f, bmpRgb, &error), qPrintable("BMP " + error));

            const QString avi = dir_.filePath(QString(f->name) + ".avi");
            run = RunCli({"record", kAddress, avi, "--frames", "2", "--pixel-format", f->name,
                          "--bayer", "nearest"});
            QVERIFY2(run.exitCode == 0,
                     qPrintable(QString(f->name) + ": " + run.errLines.join(" | ")));
            QVERIFY2(run.out.contains("frames recorded: 2"), qPrintable(run.out));
            const QByteArray aviRgb = decodeRgb(avi, kWidth, kHeight);
            QVERIFY2(!aviRgb.isEmpty(), f->name);
            QVERIFY2(rgbMatchesBars(*f, aviRgb, &error), qPrintable("AVI " + error));
        }
    }

    // A format that is not an image: save-frame and record say so, naming it, and write nothing;
    // its raw bytes can still be saved.
    void aFormatThatIsNotAnImageIsRefusedByName() {
        const QString refusal = "viewlane-cli: pixel format Coord3D_ABC8 (0x021800B2) holds 3D "
                                "coordinates, not an image: it cannot be shown, recorded or saved";
        const QString bmp = dir_.filePath("coord.bmp");
        CliRun run = RunCli(
            {"save-frame", kAddress, bmp, "--format", "bmp", "--pixel-format", "Coord3D_ABC8"});
        QVERIFY(run.exitCode != 0);
        QCOMPARE(run.errLines, QStringList{refusal});
        QVERIFY(!QFile::exists(bmp));
        const QString avi = dir_.filePath("coord.avi");
        run = RunCli({"record", kAddress, avi, "--frames", "2", "--pixel-format", "Coord3D_ABC8"});
        QVERIFY(run.exitCode != 0);
        QCOMPARE(run.errLines, QStringList{refusal});
        QVERIFY(!QFile::exists(avi));
        const QString raw = dir_.filePath("coord.raw");
        run = RunCli(
            {"save-frame", kAddress, raw, "--format", "raw", "--pixel-format", "Coord3D_ABC8"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
        QCOMPARE(QFile(raw).size(), qint64(kWidth * kHeight * 3));
    }
};

QTEST_GUILESS_MAIN(TestViewlaneCliPixelFormats)
#include "tst_viewlaneclipixelformats.moc"
