// viewlane-cli grab, record and save-frame as a user runs them, against korvatin-camsim.
#include "clirun.h"
#include "gvcpclient.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <tiffio.h>

namespace {

// How long after a camera is killed the command line may take to say so: the loss is known
// within 3 s of the camera's last answer; the rest is room for a busy machine.
constexpr qint64 kLossBoundMs = 4500;

const char* const kAddress = "127.0.5.31";
const int kWidth = 320;
const int kHeight = 240;
const int kFrameRate = 100;

using Run = CliRun;

// The number after "NAME: " on a line of the output, or -1.
double figure(const QString& out, const QString& name) {
    const QRegularExpression line("^" + QRegularExpression::escape(name) + ": ([0-9.]+)$",
                                  QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = line.match(out);
    return match.hasMatch() ? match.captured(1).toDouble() : -1;
}

} // namespace

class TestViewlaneCliStream : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void grabReceivesTheFramesAskedForAndPrintsTheSevenFigures();
    void grabOnALossyLinkCountsTheResentPackets();
    void grabWithPixelFormatStreamsThatFormat();
    void grabWithASettingsFileUsesItsBufferCount();
    void recordWritesTheFramesAskedFor();
    void recordWithBilinearBayerGivesAColourFile();
    void recordThatLosesTheCameraSaysSoAndKeepsThePlayableFile();
    void grabThatLosesTheCameraSaysSoWithinTheBound();
    void saveFrameRawIsTheReceivedImage();
    void saveFrameTifIsReadableWithLibtiff();
    void saveFrameBmpLoadsWithQImage();
    void saveFrameTakesTheFormatFromTheExtension();
    void recordToAFileThatCannotBeCreatedIsOneErrorLine();
    void saveFrameToAFileThatCannotBeCreatedIsOneErrorLine();
    void aDeviceThatDoesNotStreamIsOneErrorLine();
    void badOptionsAreOneErrorLine_data();
    void badOptionsAreOneErrorLine();
    void grabAndRecordWorkWithAravisSimulator();

private:
    Run cli(const QStringList& arguments);
    // A settings file in the test's folder that sets the number of stream buffers; its path.
    QString bufferSettings(const QString& name, int buffers);
    void verifyOneErrorLine(const Run& run, const QString& expectedPart);

    SimulatorProcess camsim_;
    QTemporaryDir dir_;
};

QString TestViewlaneCliStream::bufferSettings(const QString& name, int buffers) {
    const QString path = dir_.filePath(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(QString("[resource]\nallocatedBuffersCount=%1\n").arg(buffers).toUtf8());
    return path;
}

void TestViewlaneCliStream::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace (run through ctest as root)");
    QVERIFY2(QFile::exists(TestNetwork::binDir() + "/viewlane-cli"),
             qPrintable(TestNetwork::binDir() + "/viewlane-cli is not built"));
    QVERIFY(dir_.isValid());
    QVERIFY2(camsim_.startCamsim({"--address", kAddress, "--width", QString::number(kWidth),
                                  "--height", QString::number(kHeight)}),
             qPrintable(camsim_.errorString()));
    const Run run = cli({"set", kAddress, "FrameRate", QString::number(kFrameRate)});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
}

void TestViewlaneCliStream::cleanupTestCase() {
    camsim_.stop();
}

// Each test starts from the same camera state.
void TestViewlaneCliStream::init() {
    if (!camsim_.isRunning())
        return;
    QCOMPARE(cli({"set", kAddress, "PixelFormat", "Mono8"}).exitCode, 0);
    QCOMPARE(cli({"set", kAddress, "TriggerMode", "Off"}).exitCode, 0);
}

Run TestViewlaneCliStream::cli(const QStringList& arguments) {
    return RunCli(QStringList(arguments) << "--timeout"
                                         << "300");
}

void TestViewlaneCliStream::verifyOneErrorLine(const Run& run, const QString& expectedPart) {
    QVERIFY2(run.exitCode != 0, qPrintable("exit code " + QString::number(run.exitCode)));
    QVERIFY2(run.errLines.size() == 1, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(run.errLines[0].startsWith("viewlane-cli: "), qPrintable(run.errLines[0]));
    QVERIFY2(run.errLines[0].contains(expectedPart, Qt::CaseInsensitive),
             qPrintable(run.errLines[0]));
}

void TestViewlaneCliStream::grabReceivesTheFramesAskedForAndPrintsTheSevenFigures() {
    // The default settings: 10 buffers, of which the session keeps 7 as spares. The stream
    // still holds 10 to fill (the SDK makes up for the spares), 100 ms at 100 frames/s.
    const Run run = cli({"grab", kAddress, "--frames", "50"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(run.errLines.isEmpty(), qPrintable(run.errLines.join(" | ")));
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 7);
    QVERIFY2(lines[4].startsWith("packets resent: "), qPrintable(run.out));
    QVERIFY2(lines[5].startsWith("frames incomplete: "), qPrintable(run.out));
    QVERIFY2(lines[6].startsWith("packets missing: "), qPrintable(run.out));
    const double received = figure(run.out, "frames received");
    const double dropped = figure(run.out, "frames dropped");
    const double fps = figure(run.out, "frames per second");
    const double megabytes = figure(run.out, "megabytes per second");
    // At least the frames asked for; the command stops counting as soon as it has them.
    QVERIFY2(received >= 50 && received <= 55, qPrintable(run.out));
    QCOMPARE(dropped, 0.0);
    // The camera sends at its FrameRate (with room for a loaded machine).
    QVERIFY2(fps > kFrameRate * 0.5 && fps < kFrameRate * 1.5, qPrintable(run.out));
    QVERIFY2(qAbs(megabytes - fps * kWidth * kHeight / 1e6) < 0.02, qPrintable(run.out));
}

void TestViewlaneCliStream::grabOnALossyLinkCountsTheResentPackets() {
    // One packet in ten dropped on purpose: the stream asks for each again and gets it, so no
    // frame is lost, no packet stays missing, and the resent packets show that the link is to
    // blame.
    SimulatorProcess lossy;
    QVERIFY2(lossy.startCamsim({"--address", "127.0.5.42", "--width", QString::number(kWidth),
                                "--height", QString::number(kHeight), "--lost-ratio", "100"}),
             qPrintable(lossy.errorString()));
    QCOMPARE(cli({"set", "127.0.5.42", "FrameRate", QString::number(kFrameRate)}).exitCode, 0);
    const Run run = cli({"grab", "127.0.5.42", "--frames", "100"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(figure(run.out, "frames received") >= 100, qPrintable(run.out));
    QCOMPARE(figure(run.out, "frames dropped"), 0.0);
    QCOMPARE(figure(run.out, "frames incomplete"), 0.0);
    QVERIFY2(figure(run.out, "packets resent") > 0, qPrintable(run.out));
    QCOMPARE(figure(run.out, "packets missing"), 0.0);
}

void TestViewlaneCliStream::grabWithPixelFormatStreamsThatFormat() {
    const Run run = cli({"grab", kAddress, "--frames", "20", "--pixel-format", "Mono16"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    const double fps = figure(run.out, "frames per second");
    const double megabytes = figure(run.out, "megabytes per second");
    QVERIFY2(fps > 0, qPrintable(run.out));
    // Two bytes per pixel.
    QVERIFY2(qAbs(megabytes - fps * kWidth * kHeight * 2 / 1e6) < 0.02, qPrintable(run.out));
    const Run get = cli({"get", kAddress, "PixelFormat"});
    QCOMPARE(get.out.trimmed(), QString("Mono16"));
}

void TestViewlaneCliStream::grabWithASettingsFileUsesItsBufferCount() {
    const QString settings = bufferSettings("few-buffers.ini", 5);
    const Run run = cli({"grab", kAddress, "--frames", "5", "--settings", settings});
    verifyOneErrorLine(run, "Too few buffers have been allocated. A minimum of 8 buffers should "
                            "be allocated.");
    const Run missing =
        cli({"grab", kAddress, "--frames", "5", "--settings", dir_.filePath("missing.ini")});
    verifyOneErrorLine(missing, "cannot read the settings file");
}

void TestViewlaneCliStream::recordWritesTheFramesAskedFor() {
    const QString path = dir_.filePath("cli.avi");
    const Run run = cli({"record", kAddress, path, "--frames", "15"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(run.out.contains("frames recorded: 15\n"), qPrintable(run.out));
    QProcess ffprobe;
    ffprobe.start("ffprobe",
                  {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                   "stream=nb_read_frames,width,height", "-of", "csv=p=0", path});
    QVERIFY(ffprobe.waitForFinished(60000));
    QCOMPARE(ffprobe.exitCode(), 0);
    QCOMPARE(QString::fromLatin1(ffprobe.readAllStandardOutput()).trimmed(),
             QString("%1,%2,15").arg(kWidth).arg(kHeight));
}

void TestViewlaneCliStream::recordThatLosesTheCameraSaysSoAndKeepsThePlayableFile() {
    SimulatorProcess lost;
    QVERIFY2(lost.startCamsim({"--address", "127.0.5.41", "--serial", "9400", "--width", "160",
                               "--height", "120"}),
             qPrintable(lost.errorString()));
    const QString path = dir_.filePath("lost.avi");
    QProcess record;
    // The stream time-out is long, so the end comes from the lost connection, not from it.
    record.start(TestNetwork::binDir() + "/viewlane-cli",
                 {"record", "9400", path, "--frames", "0", "--stream-timeout", "120000"});
    QVERIFY(record.waitForStarted());
    // Frames are in the file (its header and a first chunk) before the camera goes.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 160 * 120 * 3, 30000);
    QElapsedTimer sinceKill;
    sinceKill.start();
    lost.kill();
    QVERIFY(record.waitForFinished(60000));
    // The camera answered until it was killed; the loss is known within 3 s of that, and the
    // file is closed right after. The bound is generous for a busy machine.
    const qint64 ms = sinceKill.elapsed();
    qInfo("record ended %lld ms after the camera was killed", ms);
    QVERIFY2(ms < kLossBoundMs, qPrintable(QString::number(ms)));
    QCOMPARE(record.exitCode(), 1);
    const QString err = QString::fromLocal8Bit(record.readAllStandardError()).trimmed();
    const QRegularExpression said("^viewlane-cli: the connection to device 9400 was lost after "
                                  "(\\d+) frames; " +
                                  QRegularExpression::escape(path) +
                                  " holds the (\\d+) frames recorded until then$");
    const QRegularExpressionMatch match = said.match(err);
    QVERIFY2(match.hasMatch(), qPrintable(err));
    const int inFile = match.captured(2).toInt();
    QVERIFY(inFile > 0);
    QVERIFY(inFile <= match.captured(1).toInt());
    QVERIFY(QString::fromLocal8Bit(record.readAllStandardOutput()).contains("frames received: "));
    QProcess ffprobe;
    ffprobe.start("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v:0",
                              "-show_entries", "stream=nb_read_frames", "-of", "csv=p=0", path});
    QVERIFY(ffprobe.waitForFinished(60000));
    QCOMPARE(ffprobe.exitCode(), 0);
    QCOMPARE(QString::fromLatin1(ffprobe.readAllStandardOutput()).trimmed().toInt(), inFile);
}

void TestViewlaneCliStream::grabThatLosesTheCameraSaysSoWithinTheBound() {
    SimulatorProcess lost;
    QVERIFY2(lost.startCamsim({"--address", "127.0.5.42", "--serial", "9401", "--width", "160",
                               "--height", "120"}),
             qPrintable(lost.errorString()));
    QProcess grab;
    // Frames far beyond what arrives before the kill, and a long stream time-out: the end
    // comes from the lost connection.
    grab.start(TestNetwork::binDir() + "/viewlane-cli",
               {"grab", "9401", "--frames", "1000000", "--stream-timeout", "120000"});
    QVERIFY(grab.waitForStarted());
    // The camera is killed once it streams: its frame counter (the register behind the
    // FrameCounter feature) counts the frames it sent.
    CGvcpClient gvcp;
    QVERIFY(gvcp.isOpen());
    uint32_t sent = 0;
    QTRY_VERIFY_WITH_TIMEOUT(gvcp.readRegister("127.0.5.42", 0x10048, &sent).received && sent >= 10,
                             30000);
    QElapsedTimer sinceKill;
    sinceKill.start();
    lost.kill();
    QVERIFY(grab.waitForFinished(60000));
    const qint64 ms = sinceKill.elapsed();
    qInfo("grab ended %lld ms after the camera was killed", ms);
    QVERIFY2(ms < kLossBoundMs, qPrintable(QString::number(ms)));
    QCOMPARE(grab.exitCode(), 1);
    const QString err = QString::fromLocal8Bit(grab.readAllStandardError()).trimmed();
    QCOMPARE(err, QString("viewlane-cli: the connection to device 9401 was lost"));
}

void TestViewlaneCliStream::recordWithBilinearBayerGivesAColourFile() {
    const QString path = dir_.filePath("bayer.avi");
    const Run run = cli({"record", kAddress, path, "--frames", "4", "--pixel-format", "BayerRG8",
                         "--bayer", "bilinear"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QProcess ffprobe;
    ffprobe.start("ffprobe",
                  {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                   "stream=nb_read_frames,pix_fmt", "-of", "csv=p=0", path});
    QVERIFY(ffprobe.waitForFinished(60000));
    QCOMPARE(QString::fromLatin1(ffprobe.readAllStandardOutput()).trimmed(), QString("bgr24,4"));
}

void TestViewlaneCliStream::saveFrameRawIsTheReceivedImage() {
    const QString path = dir_.filePath("frame.raw");
    const Run run = cli({"save-frame", kAddress, path, "--format", "raw"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray data = file.readAll();
    QCOMPARE(data.size(), kWidth * kHeight);
    // The camera's image: level (x + y + n) mod 256.
    const uint8_t level = uint8_t(data[0]);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            QCOMPARE(uint8_t(data[y * kWidth + x]), uint8_t(x + y + level));
    }
}

void TestViewlaneCliStream::saveFrameTifIsReadableWithLibtiff() {
    const QString path = dir_.filePath("frame.tif");
    const Run run =
        cli({"save-frame", kAddress, path, "--format", "tif", "--pixel-format", "Mono12"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    TIFF* tiff = TIFFOpen(QFile::encodeName(path).constData(), "r");
    QVERIFY(tiff);
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t samples = 0;
    uint16_t bits = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFClose(tiff);
    QCOMPARE(width, uint32_t(kWidth));
    QCOMPARE(height, uint32_t(kHeight));
    // A 12-bit grey image keeps its depth: one sample of 16 bits.
    QCOMPARE(samples, uint16_t(1));
    QCOMPARE(bits, uint16_t(16));
}

void TestViewlaneCliStream::saveFrameBmpLoadsWithQImage() {
    const QString path = dir_.filePath("frame.bmp");
    const Run run =
        cli({"save-frame", kAddress, path, "--format", "bmp", "--pixel-format", "RGB8"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QImage image;
    QVERIFY(image.load(path, "BMP"));
    QCOMPARE(image.width(), kWidth);
    QCOMPARE(image.height(), kHeight);
    // Image n: red x + n, green y + n, blue x + y + n.
    const QRgb origin = image.pixel(0, 0);
    const int n = qRed(origin);
    const QRgb sample = image.pixel(17, 5);
    QCOMPARE(qRed(sample), (17 + n) % 256);
    QCOMPARE(qGreen(sample), (5 + n) % 256);
    QCOMPARE(qBlue(sample), (22 + n) % 256);
}

void TestViewlaneCliStream::saveFrameTakesTheFormatFromTheExtension() {
    // Without --format: .tiff is a TIFF and .BMP a BMP, as their readers confirm.
    const QString tiff = dir_.filePath("by-extension.tiff");
    Run run = cli({"save-frame", kAddress, tiff});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    TIFF* file = TIFFOpen(QFile::encodeName(tiff).constData(), "r");
    QVERIFY(file);
    uint32_t width = 0;
    TIFFGetField(file, TIFFTAG_IMAGEWIDTH, &width);
    TIFFClose(file);
    QCOMPARE(width, uint32_t(kWidth));

    const QString bmp = dir_.filePath("by-extension.BMP");
    run = cli({"save-frame", kAddress, bmp});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QImage image;
    QVERIFY(image.load(bmp, "BMP"));
    QCOMPARE(image.width(), kWidth);
}

void TestViewlaneCliStream::recordToAFileThatCannotBeCreatedIsOneErrorLine() {
    const QString path = dir_.filePath("no-such-folder/record.avi");
    const Run run = cli({"record", kAddress, path, "--frames", "5"});
    // Said before the device is asked for a frame, naming the file and why.
    verifyOneErrorLine(run, "cannot create \"" + path + "\": the folder " +
                                dir_.filePath("no-such-folder") + " does not exist");
    QCOMPARE(run.out, QString());
    QVERIFY(!QFile::exists(path));
}

void TestViewlaneCliStream::saveFrameToAFileThatCannotBeCreatedIsOneErrorLine() {
    // One line naming the file and the reason, in every format; libtiff says nothing of its own.
    for (const char* name : {"frame.bmp", "frame.tif", "frame.raw"}) {
        const QString path = dir_.filePath(QString("no-such-folder/") + name);
        const Run run = cli({"save-frame", kAddress, path});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errLines,
                 QStringList{"viewlane-cli: cannot create \"" + path + "\": the folder " +
                             dir_.filePath("no-such-folder") + " does not exist"});
        QVERIFY(!QFile::exists(path));
    }
}

void TestViewlaneCliStream::aDeviceThatDoesNotStreamIsOneErrorLine() {
    // Waiting for a trigger, the camera sends no frame.
    QCOMPARE(cli({"set", kAddress, "TriggerMode", "On"}).exitCode, 0);
    const QString path = dir_.filePath("silent.avi");
    const Run grab = cli({"grab", kAddress, "--frames", "5", "--stream-timeout", "800"});
    verifyOneErrorLine(grab,
                       QString("device %1 does not stream: no frame within 800 ms").arg(kAddress));
    const Run record = cli({"record", kAddress, path, "--frames", "5", "--stream-timeout", "800"});
    verifyOneErrorLine(record, "does not stream");
    const Run save = cli({"save-frame", kAddress, dir_.filePath("silent.raw"), "--format", "raw",
                          "--stream-timeout", "800"});
    verifyOneErrorLine(save, "does not stream");
    QVERIFY(!QFile::exists(dir_.filePath("silent.raw")));
}

void TestViewlaneCliStream::badOptionsAreOneErrorLine_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    QTest::newRow("grab without --frames") << QStringList{"grab", kAddress} << "--frames";
    QTest::newRow("grab with 0 frames")
        << QStringList{"grab", kAddress, "--frames", "0"} << "at least 1";
    QTest::newRow("frames not a number")
        << QStringList{"grab", kAddress, "--frames", "many"} << "--frames needs a number";
    QTest::newRow("record without a file")
        << QStringList{"record", kAddress, "--frames", "3"} << "record DEVICE FILE.avi";
    QTest::newRow("unknown Bayer mode")
        << QStringList{"record", kAddress, "x.avi", "--frames", "3", "--bayer", "cubic"}
        << "--bayer needs none, nearest or bilinear";
    QTest::newRow("unknown format")
        << QStringList{"save-frame", kAddress, "x.gif", "--format", "gif"}
        << "--format needs raw, tif or bmp";
    QTest::newRow("save-frame without --format, to a name that says no format")
        << QStringList{"save-frame", kAddress, "x.jpg"}
        << "cannot tell the file format from \"x.jpg\"";
}

void TestViewlaneCliStream::badOptionsAreOneErrorLine() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const Run run = cli(arguments);
    QCOMPARE(run.exitCode, 2);
    verifyOneErrorLine(run, message);
    QVERIFY(run.out.isEmpty());
}

void TestViewlaneCliStream::grabAndRecordWorkWithAravisSimulator() {
    // A camera with another description: no FrameRate feature, 512 x 512 Mono8.
    SimulatorProcess fake;
    QVERIFY2(fake.startAravisFake("127.0.5.32", "CLISTREAM32"), qPrintable(fake.errorString()));
    // As above: enough buffers queued that a busy machine does not make the grab lose frames.
    const QString settings = bufferSettings("fake-slack.ini", 40);
    const Run grab = cli({"grab", "CLISTREAM32", "--frames", "10", "--settings", settings});
    QVERIFY2(grab.exitCode == 0, qPrintable(grab.errLines.join(" | ")));
    QVERIFY2(figure(grab.out, "frames received") >= 10, qPrintable(grab.out));
    QCOMPARE(figure(grab.out, "frames dropped"), 0.0);

    const QString path = dir_.filePath("fake.avi");
    const Run record = cli({"record", "CLISTREAM32", path, "--frames", "6"});
    QVERIFY2(record.exitCode == 0, qPrintable(record.errLines.join(" | ")));
    QVERIFY2(record.out.contains("frames recorded: 6\n"), qPrintable(record.out));
    QProcess ffprobe;
    ffprobe.start("ffprobe",
                  {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                   "stream=width,height,nb_read_frames", "-of", "csv=p=0", path});
    QVERIFY(ffprobe.waitForFinished(60000));
    QCOMPARE(QString::fromLatin1(ffprobe.readAllStandardOutput()).trimmed(), QString("512,512,6"));
}

QTEST_GUILESS_MAIN(TestViewlaneCliStream)
#include "tst_viewlaneclistream.moc"
