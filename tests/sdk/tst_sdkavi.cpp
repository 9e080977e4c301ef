// AVI recordings written by the SDK, read back with FFmpeg's own tools.
#include <korvatin/korvatinavifile.h>
#include <korvatin/korvatinframe.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <vector>

namespace {

constexpr uint32_t kGrey8 = 0x21084001;
constexpr uint32_t kRgb8 = 0x23088005;

// A frame over memory the test owns.
struct TestFrame {
    TestFrame(uint32_t width, uint32_t height, uint32_t pixelType, uint32_t padding = 0) {
        const uint32_t channels = pixelType == kRgb8 ? 3 : 1;
        stride = width * channels + padding;
        pixels.assign(size_t(stride) * height, 0);
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(pixelType);
        frame.Describe(pixels.data(), pixels.size(), pixels.size(), stride, 0, 0, nullptr);
    }
    uint32_t stride;
    std::vector<uint8_t> pixels;
    CKorvatinFrame frame;
};

// Frame n of a pattern in which every channel of every pixel differs from its neighbours'.
void paint(TestFrame& t, uint32_t n, std::vector<uint8_t>* appended) {
    const uint32_t width = t.frame.Width(), height = t.frame.Height();
    const bool rgb = t.frame.PixelType() == kRgb8;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t* p = t.pixels.data() + size_t(y) * t.stride + (rgb ? 3 * x : x);
            if (rgb) {
                p[0] = uint8_t(x * 3 + n);
                p[1] = uint8_t(y * 7 + n * 5);
                p[2] = uint8_t((x ^ y) + n * 11);
                appended->insert(appended->end(), p, p + 3);
            } else {
                p[0] = uint8_t(x + y * 3 + n * 9);
                appended->push_back(p[0]);
            }
        }
}

QString run(const QString& program, const QStringList& arguments, QByteArray* output = nullptr) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        return program + " did not finish";
    if (output != nullptr)
        *output = process.readAllStandardOutput();
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return program + " failed: " + QString::fromLocal8Bit(process.readAllStandardError());
    return QString();
}

// ffprobe's view of the first video stream: width, height, pix_fmt, r_frame_rate and the number
// of frames it decoded.
QMap<QString, QString> probe(const QString& file) {
    QByteArray output;
    QMap<QString, QString> fields;
    const QString failure =
        run("ffprobe",
            {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
             "stream=width,height,pix_fmt,r_frame_rate,nb_read_frames", "-of",
             "default=noprint_wrappers=1", file},
            &output);
    if (!failure.isEmpty()) {
        fields["error"] = failure;
        return fields;
    }
    for (const QByteArray& line : output.split('\n')) {
        const int equals = line.indexOf('=');
        if (equals > 0)
            fields[QString::fromUtf8(line.left(equals))] = QString::fromUtf8(line.mid(equals + 1));
    }
    return fields;
}

// Each grey level as the R, G, B triple a palettised grey file decodes to.
std::vector<uint8_t> asRgb(const std::vector<uint8_t>& grey) {
    std::vector<uint8_t> rgb;
    for (uint8_t level : grey)
        rgb.insert(rgb.end(), {level, level, level});
    return rgb;
}

QByteArray decode(const QString& file, const char* pixelFormat) {
    QByteArray output;
    const QString failure =
        run("ffmpeg", {"-v", "error", "-i", file, "-f", "rawvideo", "-pix_fmt", pixelFormat, "-"},
            &output);
    return failure.isEmpty() ? output : QByteArray();
}

} // namespace

class TestSdkAvi : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;

    QString path(const char* name) const { return dir_.filePath(name); }

private slots:
    void initTestCase() {
        if (QStandardPaths::findExecutable("ffprobe").isEmpty() ||
            QStandardPaths::findExecutable("ffmpeg").isEmpty())
            QSKIP("ffmpeg and ffprobe are needed to read the recordings back");
        QVERIFY(dir_.isValid());
    }

    void colourFramesDecodeBackExactly() {
        // 330 x 3 bytes a row is no multiple of 4: the file's rows are padded, the frames'
        // rows carry padding of their own too.
        const QString file = path("colour.avi");
        CKorvatinAVIFile avi;
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(330);
        avi.SetHeight(21);
        avi.SetColor(true);
        avi.SetFrameRate(12);
        QCOMPARE(avi.Open(), QRN_OK);
        QVERIFY(avi.IsOpen());
        TestFrame frame(330, 21, kRgb8, 5);
        std::vector<uint8_t> appended;
        for (uint32_t n = 0; n < 7; ++n) {
            paint(frame, n, &appended);
            QCOMPARE(avi.Append(frame.frame), QRN_OK);
        }
        QCOMPARE(avi.FrameCount(), 7u);
        QCOMPARE(avi.Close(), QRN_OK);
        QVERIFY(!avi.IsOpen());
        QCOMPARE(avi.FrameCount(), 7u);
        const auto fields = probe(file);
        QVERIFY2(!fields.contains("error"), qPrintable(fields.value("error")));
        QCOMPARE(fields.value("width"), QString("330"));
        QCOMPARE(fields.value("height"), QString("21"));
        QCOMPARE(fields.value("pix_fmt"), QString("bgr24"));
        QCOMPARE(fields.value("nb_read_frames"), QString("7"));
        QCOMPARE(fields.value("r_frame_rate"), QString("12/1"));
        const QByteArray decoded = decode(file, "rgb24");
        QCOMPARE(decoded.size(), int(appended.size()));
        QVERIFY(std::memcmp(decoded.constData(), appended.data(), appended.size()) == 0);
    }

    void greyFramesDecodeBackExactly() {
        const QString file = path("grey.avi");
        CKorvatinAVIFile avi;
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(331);
        avi.SetHeight(17);
        avi.SetColor(false);
        avi.SetFrameRate(0); // becomes 25
        QCOMPARE(avi.Open(), QRN_OK);
        TestFrame frame(331, 17, kGrey8);
        std::vector<uint8_t> appended;
        for (uint32_t n = 0; n < 5; ++n) {
            paint(frame, n, &appended);
            QCOMPARE(avi.Append(frame.frame), QRN_OK);
        }
        QCOMPARE(avi.Close(), QRN_OK);
        const auto fields = probe(file);
        QVERIFY2(!fields.contains("error"), qPrintable(fields.value("error")));
        QCOMPARE(fields.value("width"), QString("331"));
        QCOMPARE(fields.value("height"), QString("17"));
        QCOMPARE(fields.value("pix_fmt"), QString("pal8"));
        QCOMPARE(fields.value("nb_read_frames"), QString("5"));
        QCOMPARE(fields.value("r_frame_rate"), QString("25/1"));
        // The palette maps every level to itself in all three channels, so RGB is exact (FFmpeg's
        // own RGB-to-grey step would round some levels).
        const std::vector<uint8_t> expected = asRgb(appended);
        const QByteArray decoded = decode(file, "rgb24");
        QCOMPARE(decoded.size(), int(expected.size()));
        QVERIFY(std::memcmp(decoded.constData(), expected.data(), expected.size()) == 0);
    }

    void framesThatDoNotFitAreErrors() {
        const QString file = path("strict.avi");
        CKorvatinAVIFile avi;
        TestFrame good(64, 32, kGrey8);
        QCOMPARE(avi.Append(good.frame), QRN_ERR_INVALID); // not open
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(64);
        avi.SetHeight(32);
        avi.SetColor(false);
        QCOMPARE(avi.Open(), QRN_OK);
        std::vector<uint8_t> appended;
        paint(good, 0, &appended);
        QCOMPARE(avi.Append(good.frame), QRN_OK);
        TestFrame wider(66, 32, kGrey8);
        QCOMPARE(avi.Append(wider.frame), QRN_ERR_INVALID);
        TestFrame taller(64, 33, kGrey8);
        QCOMPARE(avi.Append(taller.frame), QRN_ERR_INVALID);
        TestFrame mono(64, 32, 0x01080001); // Mono8 straight from a camera
        QCOMPARE(avi.Append(mono.frame), QRN_ERR_INVALID);
        TestFrame colour(64, 32, kRgb8); // colour into a grey file
        QCOMPARE(avi.Append(colour.frame), QRN_ERR_INVALID);
        TestFrame shortData(64, 32, kGrey8);
        shortData.frame.Describe(shortData.pixels.data(), 100, 100, 64, 0, 0, nullptr);
        QCOMPARE(avi.Append(shortData.frame), QRN_ERR_INVALID);
        QVERIFY(QString(avi.LastError()).size() > 0);
        QCOMPARE(avi.FrameCount(), 1u);
        QCOMPARE(avi.Close(), QRN_OK);
        QCOMPARE(probe(file).value("nb_read_frames"), QString("1"));
    }

    void aFileThatCannotBeCreatedIsAnErrorAndLeavesNothing() {
        const QString file = path("missing-folder/never.avi");
        CKorvatinAVIFile avi;
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(64);
        avi.SetHeight(32);
        QVERIFY(avi.Open() != QRN_OK);
        QVERIFY(!avi.IsOpen());
        QVERIFY(QString(avi.LastError()).size() > 0);
        QVERIFY(!QFile::exists(file));

        const QString noSize = path("nosize.avi");
        CKorvatinAVIFile empty;
        empty.SetFileName(noSize.toLocal8Bit().constData());
        QVERIFY(empty.Open() != QRN_OK);
        QVERIFY(!QFile::exists(noSize));
    }

    void closingTwiceAndReopeningWork() {
        const QString file = path("again.avi");
        CKorvatinAVIFile avi;
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(16);
        avi.SetHeight(8);
        avi.SetColor(true);
        TestFrame grey(16, 8, kGrey8);
        std::vector<uint8_t> appended;
        paint(grey, 1, &appended);
        QCOMPARE(avi.Open(), QRN_OK);
        // A grey frame in a colour file is written as colour.
        QCOMPARE(avi.Append(grey.frame), QRN_OK);
        QCOMPARE(avi.Close(), QRN_OK);
        QCOMPARE(avi.Close(), QRN_OK);
        QCOMPARE(avi.Open(), QRN_OK); // starts the file anew
        QCOMPARE(avi.FrameCount(), 0u);
        QCOMPARE(avi.Append(grey.frame), QRN_OK);
        QCOMPARE(avi.Append(grey.frame), QRN_OK);
        QCOMPARE(avi.Close(), QRN_OK);
        QCOMPARE(probe(file).value("nb_read_frames"), QString("2"));
        const std::vector<uint8_t> expected = asRgb(appended);
        const QByteArray decoded = decode(file, "rgb24");
        QCOMPARE(decoded.size(), int(2 * expected.size()));
        QVERIFY(std::memcmp(decoded.constData(), expected.data(), expected.size()) == 0);
        QVERIFY(std::memcmp(decoded.constData() + expected.size(), expected.data(),
                            expected.size()) == 0);
    }

    void filesAboveOneGibibyteAreOpenDml() {
        const QString file = path("large.avi");
        CKorvatinAVIFile avi;
        avi.SetFileName(file.toLocal8Bit().constData());
        avi.SetWidth(1920);
        avi.SetHeight(1080);
        avi.SetColor(true);
        QCOMPARE(avi.Open(), QRN_OK);
        TestFrame frame(1920, 1080, kRgb8);
        std::vector<uint8_t> first;
        paint(frame, 0, &first);
        const uint32_t frames = 180; // 6 MB each: about 1.1 GB
        for (uint32_t n = 0; n < frames; ++n) {
            frame.pixels[0] = uint8_t(n); // frames differ
            QCOMPARE(avi.Append(frame.frame), QRN_OK);
        }
        QCOMPARE(avi.Close(), QRN_OK);
        QFile read(file);
        QVERIFY(read.size() > (qint64(1) << 30));
        QVERIFY(read.open(QIODevice::ReadOnly));
        // A second RIFF list ("AVIX") and an OpenDML super index ("indx").
        const QByteArray head = read.read(1 << 16);
        QVERIFY(head.contains("indx"));
        QVERIFY(read.seek(qint64(1) << 30));
        bool extended = false;
        for (int block = 0; block < 64 && !extended; ++block)
            extended = read.read(1 << 20).contains("AVIX");
        QVERIFY(extended);
        read.close();
        QCOMPARE(probe(file).value("nb_read_frames"), QString::number(frames));
        read.remove();
    }
};

QTEST_GUILESS_MAIN(TestSdkAvi)
#include "tst_sdkavi.moc"
