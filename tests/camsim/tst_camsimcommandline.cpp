// The simulator's command line: help, bad options, signals, --fps and foreign descriptions.
#include "aravishost.h"
#include "gvcpclient.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

class TestCamsimCommandLine : public QObject {
    Q_OBJECT

private slots:
    void helpDescribesEveryOption();
    void badOptionsAreRefused_data();
    void badOptionsAreRefused();
    void terminationSignalsEndItCleanly_data();
    void terminationSignalsEndItCleanly();
    void foreignDescriptionIsServedWithAnyAddressRegisters();
    void fpsOptionCapsTheFrameRate();
    void zippedDescriptionIsServedAndAravisUnpacksIt();
    void brokenFirstUrlLeavesTheSecondToLoad();
};

namespace {

quint32 crc32(const QByteArray& data) {
    quint32 crc = 0xFFFFFFFF;
    for (char c : data) {
        crc ^= quint8(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320 & (0u - (crc & 1)));
    }
    return ~crc;
}

void appendLe(QByteArray& b, quint32 value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        b.append(char(value >> (8 * i)));
}

// A zip archive holding `content` as one stored (uncompressed) member named `name`.
QByteArray storedZip(const QByteArray& name, const QByteArray& content) {
    const quint32 crc = crc32(content);
    const quint32 size = quint32(content.size());
    QByteArray zip;
    appendLe(zip, 0x04034b50, 4); // local file header
    appendLe(zip, 20, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2); // stored
    appendLe(zip, 0, 4); // time and date
    appendLe(zip, crc, 4);
    appendLe(zip, size, 4);
    appendLe(zip, size, 4);
    appendLe(zip, quint32(name.size()), 2);
    appendLe(zip, 0, 2);
    zip += name + content;
    const quint32 centralOffset = quint32(zip.size());
    appendLe(zip, 0x02014b50, 4); // central directory entry
    appendLe(zip, 20, 2);
    appendLe(zip, 20, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 4);
    appendLe(zip, crc, 4);
    appendLe(zip, size, 4);
    appendLe(zip, size, 4);
    appendLe(zip, quint32(name.size()), 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 4);
    appendLe(zip, 0, 4); // offset of the local header
    zip += name;
    const quint32 centralSize = quint32(zip.size()) - centralOffset;
    appendLe(zip, 0x06054b50, 4); // end of central directory
    appendLe(zip, 0, 2);
    appendLe(zip, 0, 2);
    appendLe(zip, 1, 2);
    appendLe(zip, 1, 2);
    appendLe(zip, centralSize, 4);
    appendLe(zip, centralOffset, 4);
    appendLe(zip, 0, 2);
    return zip;
}

} // namespace

void TestCamsimCommandLine::helpDescribesEveryOption() {
    QProcess process;
    process.start(TestNetwork::binDir() + "/korvatin-camsim", {"--help"});
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const QString help = QString::fromLocal8Bit(process.readAllStandardOutput());
    for (const char* option : {"--address", "--serial", "--mac", "--count", "--width", "--height",
                               "--fps", "--lost-ratio", "--store", "--description", "--any-address",
                               "--broken-first-url", "--lut-index", "--lut-value", "--help"})
        QVERIFY2(help.contains(option), option);
}

void TestCamsimCommandLine::badOptionsAreRefused_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("unknown option") << QStringList{"--colour"};
    QTest::newRow("bad address") << QStringList{"--address", "127.0.0.300"};
    QTest::newRow("width too large") << QStringList{"--width", "4100"};
    QTest::newRow("height too large") << QStringList{"--height", "3073"};
    QTest::newRow("lost ratio above 1000") << QStringList{"--lost-ratio", "1001"};
    QTest::newRow("bad MAC") << QStringList{"--mac", "00:11:22:33:44"};
    QTest::newRow("missing value") << QStringList{"--count"};
    QTest::newRow("missing description") << QStringList{"--description", "/nonexistent.xml"};
    QTest::newRow("LUT index minimum above maximum") << QStringList{"--lut-index", "5:4:1"};
    QTest::newRow("LUT of one entry") << QStringList{"--lut-index", "7:7:1"};
    QTest::newRow("LUT of 65537 entries") << QStringList{"--lut-index", "0:65536:1"};
    QTest::newRow("LUT index increment 0") << QStringList{"--lut-index", "0:1023:0"};
    QTest::newRow("LUT index not numbers") << QStringList{"--lut-index", "a:b:c"};
    QTest::newRow("LUT index two parts") << QStringList{"--lut-index", "0:1023"};
    QTest::newRow("LUT value above 65535") << QStringList{"--lut-value", "0:65536:1"};
    QTest::newRow("LUT value negative") << QStringList{"--lut-value", "-1:10:1"};
}

void TestCamsimCommandLine::badOptionsAreRefused() {
    QFETCH(QStringList, arguments);
    QProcess process;
    process.start(TestNetwork::binDir() + "/korvatin-camsim", arguments);
    QVERIFY(process.waitForFinished(10000));
    QVERIFY(process.exitCode() != 0);
    QVERIFY(process.readAllStandardError().contains("korvatin-camsim: "));
    QVERIFY(!process.readAllStandardOutput().contains("listening on"));
}

void TestCamsimCommandLine::terminationSignalsEndItCleanly_data() {
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGINT") << int(SIGINT);
}

void TestCamsimCommandLine::terminationSignalsEndItCleanly() {
    QFETCH(int, signal);
    QProcess process;
    process.start(TestNetwork::binDir() + "/korvatin-camsim",
                  {"--address", "127.0.18.1", "--count", "4"});
    QVERIFY(process.waitForStarted(10000));
    QByteArray output;
    QTRY_VERIFY_WITH_TIMEOUT((output += process.readAllStandardOutput()).count("listening on") == 4,
                             10000);
    // Streaming at the moment of the signal must not keep it from ending.
    CGvcpClient client;
    const QString camera("127.0.18.2");
    QCOMPARE(client.writeRegister(camera, 0x0A00, 2).status, uint16_t(0));          // control
    QCOMPARE(client.writeRegister(camera, 0x0D18, 0x7F000001).status, uint16_t(0)); // to 127.0.0.1
    QCOMPARE(client.writeRegister(camera, 0x0D00, 50000).status, uint16_t(0));      // port
    QCOMPARE(client.writeRegister(camera, 0x1002C, 0).status, uint16_t(0)); // unlimited rate
    QCOMPARE(client.writeRegister(camera, 0x10024, 1).status, uint16_t(0)); // start
    uint32_t frames = 0;
    QTRY_VERIFY(client.readRegister(camera, 0x10048, &frames).status == 0 && frames > 3);
    ::kill(pid_t(process.processId()), signal);
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
}

void TestCamsimCommandLine::foreignDescriptionIsServedWithAnyAddressRegisters() {
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString path = directory.filePath("foreign-camera.xml");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
               "<RegisterDescription ModelName=\"Foreign\" VendorName=\"Elsewhere\" "
               "StandardNameSpace=\"GEV\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
               "SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" "
               "SubMinorVersion=\"0\" ProductGuid=\"0\" VersionGuid=\"0\" "
               "xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n"
               "<Category Name=\"Root\"><pFeature>Gizmo</pFeature></Category>\n"
               "<Integer Name=\"Gizmo\"><pValue>GizmoReg</pValue><Min>0</Min>"
               "<Max>100000</Max></Integer>\n"
               "<IntReg Name=\"GizmoReg\"><Address>0x40000000</Address><Length>4</Length>"
               "<AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign>"
               "<Endianess>BigEndian</Endianess></IntReg>\n"
               "<Port Name=\"Device\"/>\n"
               "</RegisterDescription>\n");
    file.close();
    SimulatorProcess simulator;
    QVERIFY2(
        simulator.startCamsim({"--address", "127.0.18.10", "--description", path, "--any-address"}),
        qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.18.10", &error), qPrintable(error));
    size_t size = 0;
    const char* xml = arv_device_get_genicam_xml(host.device(), &size);
    QVERIFY(QByteArray(xml, int(size)).contains("ModelName=\"Foreign\""));
    QCOMPARE(host.integer("Gizmo"), qint64(0)); // zero until written
    QVERIFY2(host.setInteger("Gizmo", 4242, &error), qPrintable(error));
    QCOMPARE(host.integer("Gizmo"), qint64(4242));
    // The bootstrap registers keep working beside it.
    CGvcpClient client;
    QCOMPARE(client.discover("127.0.18.10", 1, 2000).size(), 1);
}

void TestCamsimCommandLine::fpsOptionCapsTheFrameRate() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim(
                 {"--address", "127.0.18.20", "--fps", "20", "--width", "64", "--height", "16"}),
             qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.18.20", &error), qPrintable(error));
    QVERIFY(host.setInteger("FrameRate", 0)); // the feature sets no limit of its own
    QElapsedTimer timer;
    timer.start();
    const GrabResult grab = host.grab(11);
    QCOMPARE(grab.succeeded, 11);
    // 10 periods of 50 ms after the first frame.
    QVERIFY2(timer.elapsed() >= 450, qPrintable(QString::number(timer.elapsed())));
}

void TestCamsimCommandLine::zippedDescriptionIsServedAndAravisUnpacksIt() {
    QFile builtIn(TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml");
    QVERIFY2(builtIn.open(QIODevice::ReadOnly), qPrintable(builtIn.fileName()));
    const QByteArray xml = builtIn.readAll();
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    QFile zip(directory.filePath("camsim-description.zip"));
    QVERIFY(zip.open(QIODevice::WriteOnly));
    zip.write(storedZip("korvatin-camsim.xml", xml));
    zip.close();
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.18.30", "--description", zip.fileName()}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    QByteArray readUrl = QByteArray::fromHex("00000200") + QByteArray::fromHex("00000040");
    const GvcpAck url = client.command("127.0.18.30", 0x0084, readUrl);
    QCOMPARE(url.status, uint16_t(0));
    QVERIFY2(url.payload.mid(4).startsWith("Local:camsim-description.zip;F0000000;"),
             url.payload.mid(4).constData());
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.18.30", &error), qPrintable(error));
    size_t size = 0;
    const char* served = arv_device_get_genicam_xml(host.device(), &size);
    QCOMPARE(QByteArray(served, int(size)), xml);
    QCOMPARE(host.integer("Width"), qint64(1280));
}

void TestCamsimCommandLine::brokenFirstUrlLeavesTheSecondToLoad() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.18.40", "--broken-first-url"}),
             qPrintable(simulator.errorString()));
    CGvcpClient client;
    auto readUrl = [&](const char* address) {
        const QByteArray request = QByteArray::fromHex(address) + QByteArray::fromHex("00000040");
        const GvcpAck ack = client.command("127.0.18.40", 0x0084, request);
        return ack.status == 0 ? ack.payload.mid(4) : QByteArray();
    };
    QVERIFY2(readUrl("00000200").startsWith("http://camsim.invalid/korvatin-camsim.xml"),
             readUrl("00000200").constData());
    QVERIFY2(readUrl("00000400").startsWith("Local:korvatin-camsim.xml;F0000000;"),
             readUrl("00000400").constData());
    // Aravis falls back to the second URL and gets the whole description.
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.18.40", &error), qPrintable(error));
    QCOMPARE(host.integer("Width"), qint64(1280));
}

QTEST_GUILESS_MAIN(TestCamsimCommandLine)
#include "tst_camsimcommandline.moc"
