// Frame files: raw bytes, TIFF read back with libtiff, BMP read back with QImage.
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>

#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

#include <tiffio.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kGrey8 = 0x21084001;
constexpr uint32_t kMono12 = 0x01100005;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kDisplayRgb8 = 0x23088005;
constexpr uint32_t kBgr8 = 0x02180015;
constexpr uint32_t kRgb16 = 0x02300033;

// A frame over memory the test owns, filled with a pattern in which neighbouring samples differ:
// sample c of pixel (x, y) is value(x, y, c), cut to the sample's width.
struct TestFrame {
    TestFrame(uint32_t width, uint32_t height, uint32_t pixelType, int channels, int bytesPerSample,
              uint32_t padding = 0)
        : channels(channels), bytesPerSample(bytesPerSample) {
        stride = width * channels * bytesPerSample + padding;
        pixels.assign(size_t(stride) * height, 0xEE);
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                for (int c = 0; c < channels; ++c) {
                    uint8_t* p = pixels.data() + size_t(y) * stride +
                                 (size_t(x) * channels + c) * bytesPerSample;
                    const uint32_t v = value(x, y, c);
                    p[0] = uint8_t(v);
                    if (bytesPerSample == 2)
                        p[1] = uint8_t(v >> 8);
                }
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(pixelType);
        frame.Describe(pixels.data(), pixels.size(), pixels.size(), stride, 0, 0, nullptr);
    }
    uint32_t value(uint32_t x, uint32_t y, int c) const {
        const uint32_t v = x * 5 + y * 3 + uint32_t(c) * 101;
        return bytesPerSample == 1 ? (v & 0xFF) : ((v * 37) & 0xFFF); // 12 significant bits
    }
    int channels, bytesPerSample;
    uint32_t stride;
    std::vector<uint8_t> pixels;
    CKorvatinFrame frame;
};

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// Reads a whole TIFF as rows of samples, with its layout.
struct TiffImage {
    uint32_t width = 0, height = 0;
    uint16_t samples = 0, bits = 0, photometric = 0;
    std::vector<std::vector<uint8_t>> rows;
};

bool readTiff(const QString& file, TiffImage* image) {
    std::unique_ptr<TIFF, TiffCloser> tiff(TIFFOpen(file.toLocal8Bit().constData(), "r"));
    if (!tiff)
        return false;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &image->width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &image->height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &image->samples);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &image->bits);
    TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &image->photometric);
    for (uint32_t y = 0; y < image->height; ++y) {
        std::vector<uint8_t> row(TIFFScanlineSize(tiff.get()));
        if (TIFFReadScanline(tiff.get(), row.data(), y, 0) < 0)
            return false;
        image->rows.push_back(std::move(row));
    }
    return true;
}

uint32_t sampleAt(const TiffImage& image, uint32_t x, uint32_t y, int c) {
    const size_t index = size_t(x) * image.samples + c;
    if (image.bits == 8)
        return image.rows[y][index];
    uint16_t v;
    std::memcpy(&v, image.rows[y].data() + 2 * index, 2);
    return v;
}

bool discover(const char* address, GigEVisionDeviceInfo* device) {
    GigEVisionDeviceInfo found[4];
    ListDevicesSettings settings{};
    settings.timeoutMs = 300;
    settings.broadcast = 1;
    unsigned int count = 0;
    CKorvatinCamera::ListDevices(found, 4, &count, &settings);
    for (unsigned int i = 0; i < count; ++i)
        if (std::strcmp(found[i].currentIp, address) == 0) {
            *device = found[i];
            return true;
        }
    return false;
}

} // namespace

class TestSdkFrameSave : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;

    QByteArray path(const char* name) const { return dir_.filePath(name).toLocal8Bit(); }

private slots:
    void initTestCase() { QVERIFY(dir_.isValid()); }

    void rawIsTheReceivedImageByteForByte() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for the simulator (run through ctest as "
                  "root)");
        if (!QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"))
            QSKIP("korvatin-camsim is not built in this tree");
        SimulatorProcess camsim;
        QVERIFY2(camsim.startCamsim({"--address", "127.0.0.131"}),
                 qPrintable(camsim.errorString()));
        GigEVisionDeviceInfo device{};
        QVERIFY(discover("127.0.0.131", &device));
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        camera.SetUInt32("Width", 256);
        camera.SetUInt32("Height", 64);
        camera.SetEnumByString("PixelFormat", "Mono12Packed");
        CKorvatinFrame buffer;
        buffer.SetWidth(256);
        buffer.SetHeight(64);
        buffer.SetPixelType(kMono8);
        QCOMPARE(camera.AllocateFrameBuffer(&buffer, 1), QRN_OK);
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QCOMPARE(camera.QueueFrame(&buffer), QRN_OK);
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 3000), QRN_OK);
        QCOMPARE(received.DataSize(), size_t(256 * 64 * 3 / 2));
        const QByteArray file = path("received.raw");
        QCOMPARE(CKorvatinCamera::FrameSave(&received, file.constData(), 0, 0, nullptr), QRN_OK);
        QFile saved(QString::fromLocal8Bit(file));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        const QByteArray bytes = saved.readAll();
        QCOMPARE(bytes.size(), int(received.DataSize()));
        QVERIFY(std::memcmp(bytes.constData(), received.Data(), received.DataSize()) == 0);
        QCOMPARE(camera.StopStream(), QRN_OK);
        QCOMPARE(camera.ReleaseFrameBuffer(&buffer), QRN_OK);
    }

    void tiffKeepsSizeSamplesAndPixels_data() {
        QTest::addColumn<uint32_t>("pixelType");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bytesPerSample");
        QTest::addColumn<bool>("bgr");
        QTest::newRow("Mono8") << kMono8 << 1 << 1 << false;
        QTest::newRow("grey for display") << kGrey8 << 1 << 1 << false;
        QTest::newRow("Mono12") << kMono12 << 1 << 2 << false;
        QTest::newRow("Mono16") << kMono16 << 1 << 2 << false;
        QTest::newRow("RGB8") << kRgb8 << 3 << 1 << false;
        QTest::newRow("RGB for display") << kDisplayRgb8 << 3 << 1 << false;
        QTest::newRow("BGR8") << kBgr8 << 3 << 1 << true;
        QTest::newRow("RGB16") << kRgb16 << 3 << 2 << false;
    }

    void tiffKeepsSizeSamplesAndPixels() {
        QFETCH(uint32_t, pixelType);
        QFETCH(int, channels);
        QFETCH(int, bytesPerSample);
        QFETCH(bool, bgr);
        TestFrame source(37, 11, pixelType, channels, bytesPerSample, 3);
        const QByteArray file = path("frame.tif");
        QCOMPARE(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 1), QRN_OK);
        TiffImage image;
        QVERIFY(readTiff(QString::fromLocal8Bit(file), &image));
        QCOMPARE(image.width, 37u);
        QCOMPARE(image.height, 11u);
        QCOMPARE(int(image.samples), channels);
        QCOMPARE(int(image.bits), bytesPerSample * 8);
        QCOMPARE(int(image.photometric), channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        for (uint32_t y = 0; y < 11; ++y)
            for (uint32_t x = 0; x < 37; ++x)
                for (int c = 0; c < channels; ++c) {
                    const int from = bgr ? 2 - c : c; // a BGR source is saved as R, G, B
                    QCOMPARE(sampleAt(image, x, y, c), source.value(x, y, from));
                }
    }

    void bmpLoadsWithTheSamePixels_data() {
        QTest::addColumn<uint32_t>("pixelType");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bytesPerSample");
        QTest::newRow("grey for display") << kGrey8 << 1 << 1;
        QTest::newRow("RGB for display") << kDisplayRgb8 << 3 << 1;
        QTest::newRow("Mono12 by its top 8 bits") << kMono12 << 1 << 2;
    }

    void bmpLoadsWithTheSamePixels() {
        QFETCH(uint32_t, pixelType);
        QFETCH(int, channels);
        QFETCH(int, bytesPerSample);
        TestFrame source(41, 13, pixelType, channels, bytesPerSample, 2);
        const QByteArray file = path("frame.bmp");
        QCOMPARE(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 2), QRN_OK);
        QImage image;
        QVERIFY(image.load(QString::fromLocal8Bit(file), "BMP"));
        QCOMPARE(image.width(), 41);
        QCOMPARE(image.height(), 13);
        const int shift = bytesPerSample == 2 ? 4 : 0;
        for (int y = 0; y < 13; ++y)
            for (int x = 0; x < 41; ++x) {
                const QColor colour = image.pixelColor(x, y);
                if (channels == 1) {
                    const int level = int(source.value(x, y, 0) >> shift);
                    QCOMPARE(colour.red(), level);
                    QCOMPARE(colour.green(), level);
                    QCOMPARE(colour.blue(), level);
                } else {
                    QCOMPARE(colour.red(), int(source.value(x, y, 0)));
                    QCOMPARE(colour.green(), int(source.value(x, y, 1)));
                    QCOMPARE(colour.blue(), int(source.value(x, y, 2)));
                }
            }
    }

    void mosaicAndPackedImagesAreSavedAsConverted() {
        // BayerRG8 without interpolation is its mosaic as grey, sample for sample.
        TestFrame bayer(24, 10, 0x01080009, 1, 1);
        const QByteArray tif = path("bayer.tif");
        QCOMPARE(CKorvatinCamera::FrameSave(&bayer.frame, tif.constData(), 1), QRN_OK);
        TiffImage image;
        QVERIFY(readTiff(QString::fromLocal8Bit(tif), &image));
        QCOMPARE(image.width, 24u);
        QCOMPARE(image.height, 10u);
        QCOMPARE(int(image.samples), 1);
        QCOMPARE(int(image.bits), 8);
        for (uint32_t y = 0; y < 10; ++y)
            for (uint32_t x = 0; x < 24; ++x)
                QCOMPARE(sampleAt(image, x, y, 0), bayer.value(x, y, 0));

        // Mono12Packed (GigE Vision packing: two pixels in three bytes) becomes 16-bit grey in a
        // TIFF, holding the 12-bit values, and their top 8 bits in a BMP.
        const uint32_t width = 16, height = 4;
        std::vector<uint16_t> values(width * height);
        std::vector<uint8_t> packed(width * height * 3 / 2);
        for (uint32_t i = 0; i < width * height; ++i)
            values[i] = uint16_t((i * 263 + 17) & 0xFFF);
        for (uint32_t i = 0; i < width * height; i += 2) {
            uint8_t* p = packed.data() + i / 2 * 3;
            p[0] = uint8_t(values[i] >> 4);
            p[1] = uint8_t((values[i] & 0xF) | ((values[i + 1] & 0xF) << 4));
            p[2] = uint8_t(values[i + 1] >> 4);
        }
        CKorvatinFrame source;
        source.SetWidth(width);
        source.SetHeight(height);
        source.SetPixelType(0x010C0006);
        source.Describe(packed.data(), packed.size(), packed.size(), width * 3 / 2, 0, 0, nullptr);
        const QByteArray deep = path("packed.tif");
        QCOMPARE(CKorvatinCamera::FrameSave(&source, deep.constData(), 1), QRN_OK);
        TiffImage sixteen;
        QVERIFY(readTiff(QString::fromLocal8Bit(deep), &sixteen));
        QCOMPARE(int(sixteen.samples), 1);
        QCOMPARE(int(sixteen.bits), 16);
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                QCOMPARE(sampleAt(sixteen, x, y, 0), uint32_t(values[y * width + x]));
        const QByteArray bmp = path("packed.bmp");
        QCOMPARE(CKorvatinCamera::FrameSave(&source, bmp.constData(), 2), QRN_OK);
        QImage picture;
        QVERIFY(picture.load(QString::fromLocal8Bit(bmp), "BMP"));
        QCOMPARE(picture.size(), QSize(int(width), int(height)));
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                QCOMPARE(picture.pixelColor(int(x), int(y)).red(), values[y * width + x] >> 4);
    }

    void anUnwritablePathIsAnErrorAndLeavesNoFile() {
        TestFrame source(8, 8, kGrey8, 1, 1);
        for (int format = 0; format <= 2; ++format) {
            const QByteArray file = path("no-such-folder/frame.out");
            QVERIFY(CKorvatinCamera::FrameSave(&source.frame, file.constData(), format) != QRN_OK);
            QVERIFY(!QFile::exists(QString::fromLocal8Bit(file)));
            // A folder's name: nothing is written, and the folder stays.
            const QByteArray folder = dir_.path().toLocal8Bit();
            QVERIFY(CKorvatinCamera::FrameSave(&source.frame, folder.constData(), format) !=
                    QRN_OK);
            QVERIFY(QFileInfo(dir_.path()).isDir());
        }
    }

    void framesThatAreNoPictureAreRefused() {
        TestFrame source(8, 8, kGrey8, 1, 1);
        const QByteArray file = path("refused.tif");
        QVERIFY(CKorvatinCamera::FrameSave(nullptr, file.constData(), 1) != QRN_OK);
        QVERIFY(CKorvatinCamera::FrameSave(&source.frame, nullptr, 1) != QRN_OK);
        QVERIFY(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 3) != QRN_OK);
        source.frame.SetPixelType(0x12345678); // no pixel format at all
        QVERIFY(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 1) != QRN_OK);
        source.frame.SetPixelType(kGrey8);
        source.frame.Describe(source.pixels.data(), 20, 20, 8, 0, 0, nullptr); // too few bytes
        QVERIFY(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 2) != QRN_OK);
        QVERIFY(!QFile::exists(QString::fromLocal8Bit(file)));
        // An existing file is not removed for a frame that was refused before writing.
        QFile existing(QString::fromLocal8Bit(file));
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.write("keep");
        existing.close();
        QVERIFY(CKorvatinCamera::FrameSave(&source.frame, file.constData(), 1) != QRN_OK);
        QVERIFY(QFile::exists(QString::fromLocal8Bit(file)));
    }
};

QTEST_GUILESS_MAIN(TestSdkFrameSave)
#include "tst_sdkframesave.moc"
