// Recording through the camera session: frame limit, stop, grey or colour, and the file's pixels.
#include "korvatinframeconverted.h"
#include "streamingfixture.h"
#include "testnetwork.h"

#include <korvatin/korvatinexception.h>

#include <QProcess>
#include <QThread>
#include <QtTest>

#include <memory>

namespace {

const char* const kAddress = "127.0.5.23";
const int kWidth = 320;
const int kHeight = 240;

struct Probe {
    bool ok = false;
    QString error;
    int frames = -1;
    int width = 0;
    int height = 0;
    QString pixelFormat;
};

// What ffprobe reads from the file, counting the frames by decoding them.
Probe probe(const QString& file) {
    Probe result;
    QProcess ffprobe;
    ffprobe.start("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v:0",
                              "-show_entries", "stream=nb_read_frames,width,height,pix_fmt", "-of",
                              "default=noprint_wrappers=1", file});
    if (!ffprobe.waitForFinished(60000) || ffprobe.exitCode() != 0) {
        result.error = "ffprobe failed: " + QString::fromLocal8Bit(ffprobe.readAllStandardError());
        return result;
    }
    for (const QByteArray& line : ffprobe.readAllStandardOutput().split('\n')) {
        const QList<QByteArray> pair = line.trimmed().split('=');
        if (pair.size() != 2)
            continue;
        if (pair[0] == "nb_read_frames")
            result.frames = pair[1].toInt();
        else if (pair[0] == "width")
            result.width = pair[1].toInt();
        else if (pair[0] == "height")
            result.height = pair[1].toInt();
        else if (pair[0] == "pix_fmt")
            result.pixelFormat = QString::fromLatin1(pair[1]);
    }
    result.ok = true;
    return result;
}

// Every frame of the file decoded by ffmpeg into `pixelFormat` (e.g. "rgb24").
QByteArray decode(const QString& file, const QString& pixelFormat, QString* error) {
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg",
                 {"-v", "error", "-i", file, "-f", "rawvideo", "-pix_fmt", pixelFormat, "-"});
    if (!ffmpeg.waitForFinished(60000) || ffmpeg.exitCode() != 0) {
        *error = "ffmpeg failed: " + QString::fromLocal8Bit(ffmpeg.readAllStandardError());
        return QByteArray();
    }
    return ffmpeg.readAllStandardOutput();
}

bool isGrey(const QString& pixelFormat) {
    return pixelFormat == "gray" || pixelFormat == "pal8";
}

bool isColour(const QString& pixelFormat) {
    return pixelFormat == "bgr24" || pixelFormat == "rgb24";
}

// Streaming always ends before the session goes, also when a test fails half-way.
struct DisconnectAtEnd {
    CKorvatinCameraViewlane* session;
    ~DisconnectAtEnd() { session->DisconnectDevice(); }
};

} // namespace

class TestAviRecording : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void limitOfNRecordsExactlyNFramesAndEndsByItself();
    void limitOfZeroRecordsUntilStopped_data();
    void limitOfZeroRecordsUntilStopped();
    void monoAndBayerWithoutInterpolationGiveAGreyFileOthersColour_data();
    void monoAndBayerWithoutInterpolationGiveAGreyFileOthersColour();
    void decodedGreyFramesEqualTheCamerasImages_data();
    void decodedGreyFramesEqualTheCamerasImages();
    void decodedColourFramesEqualTheCamerasImages();
    void disconnectingWhileRecordingClosesAPlayableFileSilently();
    void aFileThatCannotBeCreatedFailsWithFailToOpenTheAvi();
    void aFrameRateThatCannotBeReadFailsTheStartWithItsText();
    void aNewSizeWhileRecordingEndsItWithTheReasonAndAPlayableFile();
    void greyTurnedColourWhileRecordingEndsItWithTheReason();
    void aDeeperGreyFormatWhileRecordingGoesOnRecording();
    void aFormatThatCannotBeConvertedEndsTheRecordingWithTheReason();
    void colourWithBuffersOfTwoBytesPerPixelIsRefusedAtTheStart();

private:
    // Waits for the recording to end by itself, and checks that it said why (`reason`) and
    // that the file is whole: `width` x `height`, as many frames as the session wrote.
    void verifyEndedWithReason(CKorvatinCameraViewlane& session, const QString& path,
                               const QString& reason, int width, int height);
    // A streaming session in `pixelFormat`; its RecordStarted values are collected in
    // `announced` on this thread.
    std::unique_ptr<CKorvatinCameraViewlane> startStreaming(const char* pixelFormat);
    QString file(const QString& name) const { return fixture_.tempPath(name); }

    StreamingFixture fixture_;
    QList<bool> announced_;
    QList<bool> announcedOffGuiThread_;
    QObject receiver_;
};

#define START_OR_FAIL(session, format)                                                             \
    auto session = startStreaming(format);                                                         \
    if (!session)                                                                                  \
        return;                                                                                    \
    DisconnectAtEnd session##Guard{session.get()};

void TestAviRecording::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace (run through ctest as root)");
    if (QStandardPaths::findExecutable("ffprobe").isEmpty() ||
        QStandardPaths::findExecutable("ffmpeg").isEmpty())
        QSKIP("needs ffprobe and ffmpeg to read the recordings back");
    QString error;
    QVERIFY2(fixture_.startCamera(
                 kAddress,
                 {"--width", QString::number(kWidth), "--height", QString::number(kHeight)},
                 &error),
             qPrintable(error));
}

void TestAviRecording::cleanupTestCase() {
    fixture_.stopCamera();
}

std::unique_ptr<CKorvatinCameraViewlane> TestAviRecording::startStreaming(const char* pixelFormat) {
    QString error;
    auto session = fixture_.connect(QByteArray(), &error);
    [&] { QVERIFY2(session, qPrintable(error)); }();
    if (!session)
        return nullptr;
    announced_.clear();
    announcedOffGuiThread_.clear();
    QThread* gui = QThread::currentThread();
    // Queued to this thread, as the main window receives it; the thread it came from is noted
    // first, directly (the session announces under its record lock, so one at a time), so that
    // it is in place by the time the queued copy arrives here.
    connect(
        session.get(), &CKorvatinCameraViewlane::RecordStarted, &receiver_,
        [this, gui](bool) { announcedOffGuiThread_.append(QThread::currentThread() != gui); },
        Qt::DirectConnection);
    connect(
        session.get(), &CKorvatinCameraViewlane::RecordStarted, &receiver_,
        [this](bool started) { announced_.append(started); }, Qt::QueuedConnection);
    session->SetEnumByString("PixelFormat", pixelFormat);
    session->SetUInt32("FrameRate", 100);
    session->StartAcquisition();
    return session;
}

void TestAviRecording::limitOfNRecordsExactlyNFramesAndEndsByItself() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("limit.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 12);
    QVERIFY(session->IsRecording());
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QVERIFY(!session->IsRecording());
    QCOMPARE(session->FramesRecorded(), 12);
    // Started on this thread, ended by the conversion thread.
    QCOMPARE(announcedOffGuiThread_, QList<bool>({false, true}));
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, 12);
    QCOMPARE(probed.width, kWidth);
    QCOMPARE(probed.height, kHeight);
    // Streaming goes on after the recording.
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > counted + 3, 20000);
}

void TestAviRecording::limitOfZeroRecordsUntilStopped_data() {
    QTest::addColumn<int>("limit");
    QTest::newRow("0") << 0;
    // A negative limit is no limit either.
    QTest::newRow("-1") << -1;
    QTest::newRow("-50") << -50;
}

void TestAviRecording::limitOfZeroRecordsUntilStopped() {
    QFETCH(int, limit);
    START_OR_FAIL(session, "Mono8");
    const QString path = file("unlimited.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, limit);
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= counted + 40, 30000);
    QVERIFY(session->IsRecording());
    QCOMPARE(announced_, QList<bool>({true}));
    session->StopRecording();
    QVERIFY(!session->IsRecording());
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QCOMPARE(announcedOffGuiThread_, QList<bool>({false, false}));
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QVERIFY2(probed.frames >= 30, qPrintable(QString("%1 frames recorded").arg(probed.frames)));
}

void TestAviRecording::monoAndBayerWithoutInterpolationGiveAGreyFileOthersColour_data() {
    QTest::addColumn<QString>("pixelFormat");
    QTest::addColumn<uint>("bayerMode");
    QTest::addColumn<bool>("colour");
    QTest::newRow("Mono8") << "Mono8" << 0u << false;
    QTest::newRow("Mono12, bilinear asked") << "Mono12" << 3u << false;
    QTest::newRow("Mono12Packed") << "Mono12Packed" << 0u << false;
    QTest::newRow("BayerRG8, none") << "BayerRG8" << 0u << false;
    QTest::newRow("BayerGB12, none") << "BayerGB12" << 0u << false;
    QTest::newRow("BayerRG8, nearest") << "BayerRG8" << 1u << true;
    QTest::newRow("BayerBG8, bilinear") << "BayerBG8" << 3u << true;
    QTest::newRow("RGB8") << "RGB8" << 0u << true;
    QTest::newRow("YUV422_8") << "YUV422_8" << 0u << true;
}

void TestAviRecording::monoAndBayerWithoutInterpolationGiveAGreyFileOthersColour() {
    QFETCH(QString, pixelFormat);
    QFETCH(uint, bayerMode);
    QFETCH(bool, colour);
    START_OR_FAIL(session, pixelFormat.toLatin1().constData());
    const QString path = file(QString("kind-%1-%2.avi").arg(pixelFormat).arg(bayerMode));
    session->StartRecording(path.toLocal8Bit().constData(), bayerMode, 3);
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, 3);
    if (colour)
        QVERIFY2(isColour(probed.pixelFormat), qPrintable(probed.pixelFormat));
    else
        QVERIFY2(isGrey(probed.pixelFormat), qPrintable(probed.pixelFormat));
}

void TestAviRecording::decodedGreyFramesEqualTheCamerasImages_data() {
    QTest::addColumn<QString>("pixelFormat");
    QTest::newRow("Mono8") << "Mono8";
    QTest::newRow("BayerRG8 without interpolation") << "BayerRG8";
}

void TestAviRecording::decodedGreyFramesEqualTheCamerasImages() {
    QFETCH(QString, pixelFormat);
    START_OR_FAIL(session, pixelFormat.toLatin1().constData());
    const QString path = file("grey-" + pixelFormat + ".avi");
    const int frames = 8;
    session->StartRecording(path.toLocal8Bit().constData(), 0, frames);
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    // Decoded to RGB, which reads a palette exactly (a conversion to grey would go through luma
    // arithmetic); a grey pixel has three equal channels.
    QString error;
    const QByteArray pixels = decode(path, "rgb24", &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(pixels.size(), frames * kWidth * kHeight * 3);
    // The camera's image n is level (x + y + n) mod 256; each frame is that ramp, and each
    // recorded frame is a later image than the one before.
    int previousLevel = -1;
    for (int f = 0; f < frames; ++f) {
        const uint8_t* frame =
            reinterpret_cast<const uint8_t*>(pixels.constData()) + size_t(f) * kWidth * kHeight * 3;
        const uint8_t level = frame[0];
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const uint8_t expected = uint8_t(x + y + level);
                const uint8_t* rgb = frame + (size_t(y) * kWidth + x) * 3;
                if (rgb[0] != expected || rgb[1] != expected || rgb[2] != expected)
                    QFAIL(qPrintable(QString("frame %1 pixel (%2, %3) is %4 %5 %6, expected %7")
                                         .arg(f)
                                         .arg(x)
                                         .arg(y)
                                         .arg(rgb[0])
                                         .arg(rgb[1])
                                         .arg(rgb[2])
                                         .arg(expected)));
            }
        }
        QVERIFY2(level != previousLevel, "the same image was recorded twice");
        // Later, not merely different: counted modulo 256 the level moved forward, by the few
        // images the camera sent between two recorded frames.
        QVERIFY2(previousLevel < 0 || uint8_t(level - previousLevel) < 128,
                 qPrintable(QString("level %1 after %2").arg(level).arg(previousLevel)));
        previousLevel = level;
    }
}

void TestAviRecording::decodedColourFramesEqualTheCamerasImages() {
    START_OR_FAIL(session, "RGB8");
    const QString path = file("colour.avi");
    const int frames = 5;
    session->StartRecording(path.toLocal8Bit().constData(), 0, frames);
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QString error;
    const QByteArray pixels = decode(path, "rgb24", &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(pixels.size(), frames * kWidth * kHeight * 3);
    // Image n: red x + n, green y + n, blue x + y + n (mod 256).
    for (int f = 0; f < frames; ++f) {
        const uint8_t* frame =
            reinterpret_cast<const uint8_t*>(pixels.constData()) + size_t(f) * kWidth * kHeight * 3;
        const uint8_t n = frame[0];
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const uint8_t* rgb = frame + (size_t(y) * kWidth + x) * 3;
                if (rgb[0] != uint8_t(x + n) || rgb[1] != uint8_t(y + n) ||
                    rgb[2] != uint8_t(x + y + n))
                    QFAIL(qPrintable(QString("frame %1 pixel (%2, %3) is %4 %5 %6")
                                         .arg(f)
                                         .arg(x)
                                         .arg(y)
                                         .arg(rgb[0])
                                         .arg(rgb[1])
                                         .arg(rgb[2])));
            }
        }
    }
}

void TestAviRecording::disconnectingWhileRecordingClosesAPlayableFileSilently() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("disconnected.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= counted + 20, 30000);
    session->DisconnectDevice();
    QVERIFY(!session->IsRecording());
    QVERIFY(!session->IsConnected());
    // Whatever was queued has arrived by now: only the start was announced.
    QCoreApplication::processEvents();
    QCOMPARE(announced_, QList<bool>({true}));
    QCOMPARE(announcedOffGuiThread_, QList<bool>({false}));
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QVERIFY2(probed.frames >= 10, qPrintable(QString("%1 frames").arg(probed.frames)));
    QString error;
    const QByteArray pixels = decode(path, "rgb24", &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(pixels.size(), probed.frames * kWidth * kHeight * 3);
}

void TestAviRecording::aFileThatCannotBeCreatedFailsWithFailToOpenTheAvi() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("no-such-folder/record.avi");
    try {
        session->StartRecording(path.toLocal8Bit().constData(), 0, 5);
        QFAIL("StartRecording did not fail");
    } catch (const CKorvatinException& e) {
        QCOMPARE(QString(e.what()), QString("fail to open the AVI."));
        QCOMPARE(e.Code(), QRN_ERROR(0x7FFFFFFF));
    }
    QVERIFY(!session->IsRecording());
    QCoreApplication::processEvents();
    QVERIFY(announced_.isEmpty());
    QVERIFY(!QFile::exists(path));
    // The stream is untouched.
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > counted + 3, 20000);
}

void TestAviRecording::aFrameRateThatCannotBeReadFailsTheStartWithItsText() {
    // The simulator's description with FrameRate under another name: the camera streams, but
    // has no frame rate to read.
    QFile own(qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml");
    QVERIFY(own.open(QIODevice::ReadOnly));
    QByteArray xml = own.readAll();
    QVERIFY(xml.contains("<pFeature>FrameRate</pFeature>"));
    xml.replace("<pFeature>FrameRate</pFeature>", "<pFeature>FrameRateLimit</pFeature>");
    xml.replace("<Integer Name=\"FrameRate\"", "<Integer Name=\"FrameRateLimit\"");
    const QString description = file("no-frame-rate.xml");
    QFile out(description);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(xml);
    out.close();

    QString error;
    auto session = fixture_.connect("[host]\nlocalXml=" + description.toUtf8() + "\n", &error);
    QVERIFY2(session, qPrintable(error));
    // The session's threads stop before it goes, also when a check fails.
    struct Disconnect {
        CKorvatinCameraViewlane* session;
        ~Disconnect() { session->DisconnectDevice(); }
    } disconnect{session.get()};
    session->StartAcquisition();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > 2, 20000);
    const QString path = file("no-frame-rate.avi");
    try {
        session->StartRecording(path.toLocal8Bit().constData(), 0, 5);
        QFAIL("StartRecording did not fail");
    } catch (const CKorvatinException& e) {
        QVERIFY2(QString(e.what()).contains("FrameRate"), e.what());
    }
    QVERIFY(!session->IsRecording());
    QCoreApplication::processEvents();
    QVERIFY(announced_.isEmpty());
    QVERIFY(!QFile::exists(path));
}

void TestAviRecording::verifyEndedWithReason(CKorvatinCameraViewlane& session, const QString& path,
                                             const QString& reason, int width, int height) {
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QVERIFY(!session.IsRecording());
    // Ended by the conversion thread, which found the frame the file cannot take.
    QCOMPARE(announcedOffGuiThread_, QList<bool>({false, true}));
    const int inFile = int(session.RecordedFileFrames());
    const QString said = session.TakeRecordingEndReason();
    QCOMPARE(said, reason + "; " + path + " holds the " + QString::number(inFile) +
                       " frames recorded until then");
    // Read once: a later recording that ends as asked says nothing.
    QVERIFY(session.TakeRecordingEndReason().isEmpty());
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, inFile);
    QVERIFY(inFile >= 3);
    QCOMPARE(probed.width, width);
    QCOMPARE(probed.height, height);
    // Streaming goes on.
    const uint32_t counted = session.grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session.grabbedFrameCount > counted + 3, 20000);
}

void TestAviRecording::aNewSizeWhileRecordingEndsItWithTheReasonAndAPlayableFile() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("new-width.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
    QTRY_VERIFY_WITH_TIMEOUT(session->RecordedFileFrames() >= 3, 20000);
    session->SetUInt32("Width", kWidth / 2);
    verifyEndedWithReason(*session, path,
                          QString("the image size changed from %1 x %2 to %3 x %2")
                              .arg(kWidth)
                              .arg(kHeight)
                              .arg(kWidth / 2),
                          kWidth, kHeight);
    session->SetUInt32("Width", kWidth);
}

void TestAviRecording::greyTurnedColourWhileRecordingEndsItWithTheReason() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("grey-to-colour.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
    QTRY_VERIFY_WITH_TIMEOUT(session->RecordedFileFrames() >= 3, 20000);
    session->SetEnumByString("PixelFormat", "RGB8");
    verifyEndedWithReason(*session, path,
                          "the images changed from grey to colour (pixel type 0x02180014)", kWidth,
                          kHeight);
}

void TestAviRecording::aDeeperGreyFormatWhileRecordingGoesOnRecording() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("mono16.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
    QTRY_VERIFY_WITH_TIMEOUT(session->RecordedFileFrames() >= 3, 20000);
    session->SetEnumByString("PixelFormat", "Mono16");
    // Mono16 frames are recorded as 8-bit grey like Mono8 ones: the file takes them.
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > counted + 20, 20000);
    QVERIFY(session->IsRecording());
    session->StopRecording();
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QVERIFY(session->TakeRecordingEndReason().isEmpty());
    const Probe probed = probe(path);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, int(session->RecordedFileFrames()));
}

void TestAviRecording::aFormatThatCannotBeConvertedEndsTheRecordingWithTheReason() {
    START_OR_FAIL(session, "Mono8");
    const QString path = file("unknown-format.avi");
    session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
    QTRY_VERIFY_WITH_TIMEOUT(session->RecordedFileFrames() >= 3, 20000);
    // A format the simulator sends and the conversion refuses: 3D coordinates, not an image.
    session->SetEnumByString("PixelFormat", "Coord3D_ABC8");
    verifyEndedWithReason(
        *session, path,
        "the camera sends pixel type 0x021800b2, which cannot be converted for recording", kWidth,
        kHeight);
    // Starting again in that format ends at its first frame the same way.
    const QString again = file("unknown-format-again.avi");
    announced_.clear();
    announcedOffGuiThread_.clear();
    session->StartRecording(again.toLocal8Bit().constData(), 0, 0);
    // The conversion thread ends this recording at its first frame, possibly before
    // StartRecording has returned; the start is still heard first, by the direct receiver on
    // the two threads as by the queued one.
    QTRY_COMPARE_WITH_TIMEOUT(announced_, QList<bool>({true, false}), 20000);
    QCOMPARE(announcedOffGuiThread_, QList<bool>({false, true}));
    QVERIFY(session->TakeRecordingEndReason().startsWith(
        "the camera sends pixel type 0x021800b2, which cannot be converted for recording; "));
    const Probe probed = probe(again);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, 0);
}

void TestAviRecording::colourWithBuffersOfTwoBytesPerPixelIsRefusedAtTheStart() {
    // 16 bits per pixel at most: the session's holders are Mono10 sized, 2 bytes per pixel.
    QString error;
    auto session = fixture_.connect("[resource]\nmaxBitsPerPixel=16\n", &error);
    QVERIFY2(session, qPrintable(error));
    DisconnectAtEnd guard{session.get()};
    session->SetEnumByString("PixelFormat", "RGB8");
    session->StartAcquisition();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > 2, 20000);
    const QString path = file("too-deep.avi");
    try {
        session->StartRecording(path.toLocal8Bit().constData(), 0, 0);
        QFAIL("StartRecording did not fail");
    } catch (const CKorvatinException& e) {
        const QString expected = QString("a %1 x %2 colour frame needs %3 bytes, but the recording "
                                         "buffers hold %4 (resource/maxBitsPerPixel 16 is too low "
                                         "for colour; 17 or more is needed)")
                                     .arg(kWidth)
                                     .arg(kHeight)
                                     .arg(kWidth * kHeight * 3)
                                     .arg(session->ConvertedFrame(0)->BufferSize());
        QCOMPARE(QString(e.what()), expected);
    }
    QVERIFY(!session->IsRecording());
    QVERIFY(!QFile::exists(path));
    // Grey still records with those buffers, once the colour frames still on their way (at most
    // the 10 stream buffers and the 7 spares) have passed.
    session->SetEnumByString("PixelFormat", "Mono8");
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > counted + 20, 20000);
    const QString grey = file("grey-with-two-bytes.avi");
    session->StartRecording(grey.toLocal8Bit().constData(), 0, 5);
    QTRY_VERIFY_WITH_TIMEOUT(!session->IsRecording(), 20000);
    const Probe probed = probe(grey);
    QVERIFY2(probed.ok, qPrintable(probed.error));
    QCOMPARE(probed.frames, 5);
}

QTEST_GUILESS_MAIN(TestAviRecording)
#include "tst_avirecording.moc"
