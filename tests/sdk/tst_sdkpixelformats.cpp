// Every pixel format the simulator streams: its colour bars converted, saved as TIFF and BMP and
// recorded to AVI come back with the bars' colours; packed formats at widths that leave a
// partial group; formats that are not images are refused by name.
#include "colourbars.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatinavifile.h>
#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinframe.h>

#include "testpattern.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <tiffio.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

using namespace colourbars;

namespace {

constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kRgb16 = 0x02300033;
constexpr uint32_t kDisplayGrey = 0x21084001;
constexpr uint32_t kDisplayRgb = 0x23088005;
// Bayer by nearest neighbour: inside a 2 x 2 cell that lies in one bar, every pixel gets the
// bar's colour exactly.
constexpr uint32_t kNearest = 1;

// A conversion destination over memory the test owns.
struct Converted {
    explicit Converted(size_t bytes) : memory(bytes / 2 + 1) {
        frame.Describe(reinterpret_cast<uint8_t*>(memory.data()), 0, bytes, 0, 0, 0, nullptr);
    }
    int level8(uint32_t x, uint32_t y, int c) const {
        const int channels = frame.PixelType() == kRgb8 || frame.PixelType() == kDisplayRgb ? 3 : 1;
        return frame.Data()[size_t(y) * frame.Stride() + size_t(x) * channels + c];
    }
    uint32_t sample16(uint32_t x, uint32_t y, int c) const {
        const int channels = frame.PixelType() == kRgb16 ? 3 : 1;
        uint16_t v;
        std::memcpy(&v, frame.Data() + size_t(y) * frame.Stride() + 2 * (size_t(x) * channels + c),
                    2);
        return v;
    }
    std::vector<uint16_t> memory; // 16-bit aligned
    CKorvatinFrame frame;
};

// The bars in `f`, encoded by the simulator's own pattern, as a frame over `bytes`.
void encodeBars(const camsim::PixelFormatInfo& f, uint32_t width, uint32_t height,
                std::vector<uint8_t>* bytes, CKorvatinFrame* frame) {
    FrameGeometry geometry;
    geometry.width = width;
    geometry.height = height;
    geometry.pixelFormat = f.code;
    geometry.colourBars = true;
    const size_t size = (size_t(width) * height * CTestPattern::bitsPerPixel(f.code) + 7) / 8;
    bytes->assign(size, 0);
    CTestPattern pattern;
    pattern.fill(geometry, 0, nullptr, bytes->data());
    frame->SetWidth(width);
    frame->SetHeight(height);
    frame->SetPixelType(f.code);
    frame->Describe(bytes->data(), size, size, 0, 0, 0, nullptr);
}

// Checks the 8-bit display conversion and, for formats deeper than 8 bits, the 16-bit one (whose
// top bits of each sample are the 8-bit level).
bool convertsToBars(const camsim::PixelFormatInfo& f, const CKorvatinFrame& source,
                    QString* error) {
    const uint32_t w = source.Width(), h = source.Height();
    Converted display(size_t(w) * h * 6);
    QRN_ERROR result = display.frame.Convert(source, kNearest | 4, 8, 1, nullptr);
    if (result != QRN_OK) {
        *error = QString("%1: Convert to 8 bits returned %2").arg(f.name).arg(result);
        return false;
    }
    const bool grey = isMono(f);
    if (display.frame.PixelType() != (grey ? kDisplayGrey : kDisplayRgb)) {
        *error = QString("%1: converted to pixel type 0x%2")
                     .arg(f.name)
                     .arg(display.frame.PixelType(), 8, 16, QChar('0'));
        return false;
    }
    if (!matchesBars(
            f, w, h, grey ? 1 : 3,
            [&](uint32_t x, uint32_t y, int c) { return display.level8(x, y, c); }, error))
        return false;
    // Deep formats also keep their bits; a 16-bit result's top 8 bits are the level.
    Converted deep(size_t(w) * h * 6);
    if (deep.frame.Convert(source, kNearest, 0, 1, nullptr) != QRN_OK) {
        *error = QString("%1: Convert to 16 bits failed").arg(f.name);
        return false;
    }
    const uint32_t type = deep.frame.PixelType();
    const bool wide = type == kMono16 || type == kRgb16;
    if (wide != (f.bits > 8 && f.layout != camsim::SampleLayout::Yuv)) {
        *error =
            QString("%1: bitDepth 0 gave pixel type 0x%2").arg(f.name).arg(type, 8, 16, QChar('0'));
        return false;
    }
    if (!wide)
        return true;
    return matchesBars(
        f, w, h, grey ? 1 : 3,
        [&](uint32_t x, uint32_t y, int c) {
            const uint32_t v = deep.sample16(x, y, c);
            return v >= (1u << f.bits) ? -1000 : int(v >> (f.bits - 8));
        },
        error);
}

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// A TIFF read back with libtiff: size, samples per pixel, bits per sample, rows.
struct TiffImage {
    uint32_t width = 0, height = 0;
    uint16_t samples = 0, bits = 0;
    std::vector<std::vector<uint8_t>> rows;
    int level8(uint32_t x, uint32_t y, int c, int sourceBits) const {
        const size_t index = size_t(x) * samples + c;
        if (bits == 8)
            return rows[y][index];
        uint16_t v;
        std::memcpy(&v, rows[y].data() + 2 * index, 2);
        return v >= (1u << sourceBits) ? -1000 : int(v >> (sourceBits - 8));
    }
};

bool readTiff(const QString& file, TiffImage* image) {
    std::unique_ptr<TIFF, TiffCloser> tiff(TIFFOpen(QFile::encodeName(file).constData(), "r"));
    if (!tiff)
        return false;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &image->width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &image->height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &image->samples);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &image->bits);
    for (uint32_t y = 0; y < image->height; ++y) {
        std::vector<uint8_t> row(TIFFScanlineSize(tiff.get()));
        if (TIFFReadScanline(tiff.get(), row.data(), y, 0) < 0)
            return false;
        image->rows.push_back(std::move(row));
    }
    return true;
}

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 8;

} // namespace

class TestSdkPixelFormats : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;

private slots:
    void initTestCase() { QVERIFY(dir_.isValid()); }

    // Every format the simulator offers as an image is one Convert reads, and the bars the
    // simulator encodes in it come back with their colours.
    void everyFormatConvertsTheBars() {
        const auto formats = imageFormats();
        QVERIFY(formats.size() >= 84);
        for (const camsim::PixelFormatInfo* f : formats) {
            QVERIFY2(CKorvatinFrame::ConversionRefusal(f->code).empty(), f->name);
            QCOMPARE(QString(CKorvatinFrame::PixelFormatName(f->code)), QString(f->name));
            // A narrow image, and lines longer than the runs the colour readers work in.
            for (uint32_t width : {kWidth, 1100u}) {
                std::vector<uint8_t> bytes;
                CKorvatinFrame source;
                encodeBars(*f, width, width == kWidth ? kHeight : 2, &bytes, &source);
                QString error;
                QVERIFY2(convertsToBars(*f, source, &error), qPrintable(error));
            }
        }
    }

    // Widths where a packing leaves a partial group at the end of a line (or of the image):
    // 1, 2 and 4 bits at 8 / bits pixels a byte, 10p at 4 pixels in 5 bytes, 12p, the GigE
    // Vision packed formats and RGB12V1Packed at 2 pixels a group. Every format that does not
    // share chroma between pixels is read at these widths.
    void packedFormatsAtWidthsThatLeaveAPartialGroup() {
        int packed = 0;
        for (const camsim::PixelFormatInfo* f : imageFormats()) {
            if (f->layout == camsim::SampleLayout::Yuv && std::strlen(f->yuvOrder) > 3)
                continue;
            const bool isPacked = f->layout == camsim::SampleLayout::GevPacked ||
                                  f->layout == camsim::SampleLayout::LsbPacked ||
                                  f->layout == camsim::SampleLayout::Rgb12V1;
            packed += isPacked ? 1 : 0;
            for (uint32_t width : {37u, 38u, 39u, 67u}) {
                std::vector<uint8_t> bytes;
                CKorvatinFrame source;
                encodeBars(*f, width, 3, &bytes, &source);
                QString error;
                QVERIFY2(convertsToBars(*f, source, &error),
                         qPrintable(QString("width %1: %2").arg(width).arg(error)));
            }
        }
        QVERIFY(packed >= 3 + 4 * 3 + 2 * 2 + 1);
    }

    // 4:2:2 and 4:1:1 pixels share chroma: a width without whole groups is refused.
    void chromaGroupsMustBeWhole() {
        for (const camsim::PixelFormatInfo* f : imageFormats()) {
            const size_t group = std::strlen(f->yuvOrder) == 4   ? 2
                                 : std::strlen(f->yuvOrder) == 6 ? 4
                                                                 : 0;
            if (group == 0)
                continue;
            std::vector<uint8_t> bytes;
            CKorvatinFrame source;
            encodeBars(*f, 8 * uint32_t(group) + 1, 2, &bytes, &source);
            Converted dest(1024);
            QCOMPARE(dest.frame.Convert(source, 4, 8, 1, nullptr), QRN_ERR_INVALID);
        }
    }

    // 3D coordinates are not an image: refused with a sentence that names the format.
    void coordinateFormatsAreRefusedByName() {
        std::vector<uint8_t> bytes(size_t(kWidth) * kHeight * 3, 7);
        CKorvatinFrame source;
        source.SetWidth(kWidth);
        source.SetHeight(kHeight);
        source.SetPixelType(0x021800B2);
        source.Describe(bytes.data(), bytes.size(), bytes.size(), 0, 0, 0, nullptr);
        Converted dest(bytes.size() * 2);
        QCOMPARE(dest.frame.Convert(source, 4, 8, 1, nullptr), QRN_ERR_UNSUPPORTED);
        QCOMPARE(QString(CKorvatinFrame::PixelFormatName(0x021800B2)), QString("Coord3D_ABC8"));
        QCOMPARE(QString::fromStdString(CKorvatinFrame::ConversionRefusal(0x021800B2)),
                 QString("pixel format Coord3D_ABC8 (0x021800B2) holds 3D coordinates, not an "
                         "image: it cannot be shown, recorded or saved"));
        QCOMPARE(QString::fromStdString(CKorvatinFrame::ConversionRefusal(0x0110001E)),
                 QString("pixel format 0x0110001E is not one the viewer can convert"));
        QVERIFY(CKorvatinFrame::ConversionRefusal(kMono8).empty());
    }

    // The simulator streams the bars in every format; each received frame converts to the bars,
    // and its TIFF (read by libtiff), BMP and AVI (decoded by ffmpeg) hold the same colours.
    void streamedBarsKeepTheirColoursInEveryFileKind() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for the simulator (run through ctest as "
                  "root)");
        if (QStandardPaths::findExecutable("ffmpeg").isEmpty())
            QSKIP("ffmpeg is needed to read the BMP and AVI files back");
        SimulatorProcess camsim;
        QVERIFY2(
            camsim.startCamsim({"--address", "127.0.0.141", "--pattern", "bars", "--width",
                                QString::number(kWidth), "--height", QString::number(kHeight)}),
            qPrintable(camsim.errorString()));
        GigEVisionDeviceInfo device{};
        GigEVisionDeviceInfo found[4];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.broadcast = 1;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 4, &count, &settings);
        bool discovered = false;
        for (unsigned int i = 0; i < count; ++i)
            if (std::strcmp(found[i].currentIp, "127.0.0.141") == 0) {
                device = found[i];
                discovered = true;
            }
        QVERIFY(discovered);
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);

        for (const camsim::PixelFormatInfo* f : imageFormats()) {
            camera.SetEnumByString("PixelFormat", f->name);
            CKorvatinFrame buffer;
            buffer.SetWidth(kWidth);
            buffer.SetHeight(kHeight);
            buffer.SetPixelType(f->code);
            QCOMPARE(camera.AllocateFrameBuffer(&buffer, 1), QRN_OK);
            QCOMPARE(camera.StartStream(nullptr), QRN_OK);
            QCOMPARE(camera.QueueFrame(&buffer), QRN_OK);
            CKorvatinFrame received;
            QVERIFY2(camera.GetFrame(&received, 5000) == QRN_OK, f->name);
            QCOMPARE(received.PixelType(), f->code);
            QCOMPARE(camera.StopStream(), QRN_OK);

            QString error;
            QVERIFY2(convertsToBars(*f, received, &error), qPrintable(error));
            const bool grey = isMono(*f);
            const int channels = grey ? 1 : 3;

            // TIFF: the conversion the viewer saves with (16 bits kept), read by libtiff.
            Converted deep(size_t(kWidth) * kHeight * 6);
            QCOMPARE(deep.frame.Convert(received, kNearest | 4, 0, 1, nullptr), QRN_OK);
            const QString tif = dir_.filePath(QString(f->name) + ".tif");
            QCOMPARE(CKorvatinCamera::FrameSave(&deep.frame, QFile::encodeName(tif).constData(), 1,
                                                0, nullptr),
                     QRN_OK);
            TiffImage tiff;
            QVERIFY2(readTiff(tif, &tiff), f->name);
            QCOMPARE(tiff.width, kWidth);
            QCOMPARE(tiff.height, kHeight);
            QCOMPARE(int(tiff.samples), channels);
            const int tiffBits = tiff.bits == 16 ? f->bits : 8;
            QVERIFY2(
                matchesBars(
                    *f, kWidth, kHeight, channels,
                    [&](uint32_t x, uint32_t y, int c) { return tiff.level8(x, y, c, tiffBits); },
                    &error),
                qPrintable("TIFF " + error));

            // BMP: the 8-bit display conversion, decoded by ffmpeg.
            Converted display(size_t(kWidth) * kHeight * 3);
            QCOMPARE(display.frame.Convert(received, kNearest | 12, 8, 1, nullptr), QRN_OK);
            const QString bmp = dir_.filePath(QString(f->name) + ".bmp");
            QCOMPARE(CKorvatinCamera::FrameSave(&display.frame, QFile::encodeName(bmp).constData(),
                                                2, 0, nullptr),
                     QRN_OK);
            const QByteArray bmpRgb = decodeRgb(bmp, kWidth, kHeight);
            QVERIFY2(!bmpRgb.isEmpty(), f->name);
            QVERIFY2(matchesBars(
                         *f, kWidth, kHeight, 3,
                         [&](uint32_t x, uint32_t y, int c) {
                             return int(uint8_t(bmpRgb[int((y * kWidth + x) * 3 + c)]));
                         },
                         &error),
                     qPrintable("BMP " + error));

            // AVI: two frames recorded, the first decoded by ffmpeg.
            const QString avi = dir_.filePath(QString(f->name) + ".avi");
            CKorvatinAVIFile file;
            file.SetFileName(QFile::encodeName(avi).constData());
            file.SetFrameRate(10);
            file.SetWidth(kWidth);
            file.SetHeight(kHeight);
            file.SetColor(!grey);
            QCOMPARE(file.Open(), QRN_OK);
            QCOMPARE(file.Append(display.frame), QRN_OK);
            QCOMPARE(file.Append(display.frame), QRN_OK);
            QCOMPARE(file.Close(), QRN_OK);
            const QByteArray aviRgb = decodeRgb(avi, kWidth, kHeight);
            QVERIFY2(!aviRgb.isEmpty(), f->name);
            QVERIFY2(matchesBars(
                         *f, kWidth, kHeight, 3,
                         [&](uint32_t x, uint32_t y, int c) {
                             return int(uint8_t(aviRgb[int((y * kWidth + x) * 3 + c)]));
                         },
                         &error),
                     qPrintable("AVI " + error));
            QCOMPARE(camera.ReleaseFrameBuffer(&buffer), QRN_OK);
        }
    }
};

QTEST_GUILESS_MAIN(TestSdkPixelFormats)
#include "tst_sdkpixelformats.moc"
