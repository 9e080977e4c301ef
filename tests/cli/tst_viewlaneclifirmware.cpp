// viewlane-cli's firmware-upgrade and program-xml as a user runs them against korvatin-camsim:
// what arrives in the camera, the texts, the exit status, the progress bar on a terminal.
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char* const kAddress = "127.0.0.71";
const char* const kSerial = "810001";

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return QString();
    return path;
}

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A firmware image carrying `version` in the simulator's header, then `size` bytes.
QByteArray image(const QByteArray& version, int size) {
    QByteArray bytes("KVFW");
    bytes += version;
    bytes.append(36 - bytes.size(), '\0');
    for (int i = 0; i < size; ++i)
        bytes += char((i * 31 + i / 97) & 0xFF);
    return bytes;
}

} // namespace

class TestViewlaneCliFirmware : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    SimulatorProcess m_camsim;

    QString stored(const char* slot) const { return m_dir.filePath(QString(kSerial) + slot); }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(m_camsim.startCamsim({"--address", kAddress, "--serial", kSerial, "--store",
                                       m_dir.path(), "--slot-size", "1000000"}),
                 qPrintable(m_camsim.errorString()));
    }

    void upgradeWritesTheImageAndAResetRunsIt() {
        const QByteArray bytes = image("4.2.0", 150000);
        const QString path = writeFile(m_dir, "v420.bin", bytes);
        const CliRun run = RunCli({"firmware-upgrade", kAddress, path});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QString("Verifying the 150036 bytes written to \"Firmware\".\n"
                                  "Firmware upgrade finished: 150036 bytes written to "
                                  "\"Firmware\" and verified. The camera runs the new firmware "
                                  "after a reset.\n"));
        // Standard error is no terminal here: no progress bar.
        QCOMPARE(run.errLines, QStringList());
        QCOMPARE(readAll(stored("-firmware.bin")), bytes);

        const int back = m_camsim.output().count("back on");
        QCOMPARE(RunCli({"set", kAddress, "DeviceReset", "1"}).exitCode, 0);
        QTRY_VERIFY_WITH_TIMEOUT(m_camsim.output().count("back on") > back, 15000);
        QCOMPARE(RunCli({"get", kAddress, "DeviceFirmwareVersion"}).out, QString("4.2.0\n"));
    }

    void alternateWritesTheOtherSlot() {
        const QByteArray bytes = image("5.0.0", 9000);
        const QString path = writeFile(m_dir, "alt.bin", bytes);
        const CliRun run = RunCli({"firmware-upgrade", kAddress, path, "--alternate"});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.contains("written to \"FirmwareAlternate\" and verified"),
                 qPrintable(run.out));
        QCOMPARE(readAll(stored("-firmware-alternate.bin")), bytes);
    }

    void programXmlWritesTheDescription() {
        const QString path =
            qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml";
        const CliRun run = RunCli({"program-xml", kAddress, path});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.endsWith(
                     "XML programming finished: " + QString::number(QFileInfo(path).size()) +
                     " bytes written to \"DeviceDescription\" and verified. The "
                     "camera serves the new description after a reset.\n"),
                 qPrintable(run.out));
        QCOMPARE(readAll(stored("-description.xml")), readAll(path));
    }

    void failuresPrintOneTextAndExitNonZero_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("text");
        QTest::newRow("no such file")
            << QStringList{"firmware-upgrade", kAddress, "/nonexistent/fw.bin"}
            << "Firmware upgrade failed: cannot open \"/nonexistent/fw.bin\": No such file or "
               "directory\n";
        QTest::newRow("larger than the slot")
            << QStringList{"firmware-upgrade", kAddress, "big"}
            << "Firmware upgrade failed: \"%1\" (1000001 bytes) is larger than the camera's "
               "file \"Firmware\" (1000000 bytes)\n";
        QTest::newRow("not a description")
            << QStringList{"program-xml", kAddress, "big"}
            << "XML programming failed: \"%1\" is not a GenICam description this SDK can load: ";
    }

    void failuresPrintOneTextAndExitNonZero() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, text);
        const QByteArray before = readAll(stored("-firmware.bin"));
        const QString big = writeFile(m_dir, "big.bin", QByteArray(1000001, 'x'));
        arguments.replaceInStrings(QRegularExpression("^big$"), big);
        const CliRun run = RunCli(arguments);
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.out.startsWith(text.contains("%1") ? text.arg(big) : text),
                 qPrintable(run.out));
        QCOMPARE(run.out.count('\n'), 1);
        QCOMPARE(readAll(stored("-firmware.bin")), before);
    }

    void wrongArgumentsAreAUsageError() {
        const CliRun upgrade = RunCli({"firmware-upgrade", kAddress});
        QCOMPARE(upgrade.exitCode, 2);
        QVERIFY2(upgrade.errLines.join('\n').contains("firmware-upgrade DEVICE FILE [--alternate]"),
                 qPrintable(upgrade.errLines.join('\n')));
        const CliRun program = RunCli({"program-xml", kAddress});
        QCOMPARE(program.exitCode, 2);
        QVERIFY2(program.errLines.join('\n').contains("program-xml DEVICE FILE"),
                 qPrintable(program.errLines.join('\n')));
    }

    void progressBarIsDrawnOnATerminal() {
        const QString script = QStandardPaths::findExecutable("script");
        QVERIFY2(!script.isEmpty(), "script (util-linux) is installed by the install script");
        const QString path = writeFile(m_dir, "tty.bin", image("6.0.0", 40000));
        QProcess process;
        process.start(script, {"-qec",
                               QString("'%1/viewlane-cli' firmware-upgrade %2 '%3'")
                                   .arg(TestNetwork::binDir(), kAddress, path),
                               "/dev/null"});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        const QString terminal = QString::fromLocal8Bit(process.readAllStandardOutput());
        QVERIFY2(terminal.contains("[" + QString(40, '#') + "] 100 %"), qPrintable(terminal));
        QVERIFY2(terminal.contains("Firmware upgrade finished: "), qPrintable(terminal));
    }
};

QTEST_GUILESS_MAIN(TestViewlaneCliFirmware)
#include "tst_viewlaneclifirmware.moc"
