// viewlane-cli's maintenance commands as a user runs them: save-settings, load-settings and
// program-lut against korvatin-camsim, their texts and exit status.
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char* const kAddress = "127.0.0.61";

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& text) {
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    file.write(text);
    return path;
}

QString get(const QString& feature) {
    return RunCli({"get", kAddress, feature}).out.trimmed();
}

} // namespace

class TestViewlaneCliMaintenance : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(m_camsim.startCamsim({"--address", kAddress}), qPrintable(m_camsim.errorString()));
    }

    void saveThenLoadRestoresTheValues() {
        const QString path = m_dir.filePath("camera.txt");
        QCOMPARE(RunCli({"set", kAddress, "Width", "800"}).exitCode, 0);
        QCOMPARE(RunCli({"set", kAddress, "PixelFormat", "Mono12"}).exitCode, 0);
        const CliRun save = RunCli({"save-settings", kAddress, path});
        QCOMPARE(save.exitCode, 0);
        QCOMPARE(save.out, "Device setting was successfully saved to file: " + path + "\n");
        // Standard error is no terminal here: no progress bar.
        QCOMPARE(save.errLines, QStringList());
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        QVERIFY(content.contains("\nWidth UInt32 800\n"));
        QVERIFY(content.contains("\nPixelFormat Enumeration Mono12\n"));

        QCOMPARE(RunCli({"set", kAddress, "Width", "320"}).exitCode, 0);
        QCOMPARE(RunCli({"set", kAddress, "PixelFormat", "Mono8"}).exitCode, 0);
        const CliRun load = RunCli({"load-settings", kAddress, path});
        QCOMPARE(load.exitCode, 0);
        QCOMPARE(load.out, "Device setting was successfully loaded from file: " + path + "\n");
        QCOMPARE(get("Width"), QString("800"));
        QCOMPARE(get("PixelFormat"), QString("Mono12"));
    }

    void loadWithAFailedWriteReportsTheFirstErrorAndFails() {
        const QString path = writeFile(m_dir, "gain.txt", "Gain Float 1.5\nHeight UInt32 480\n");
        const CliRun load = RunCli({"load-settings", kAddress, path});
        QCOMPARE(load.exitCode, 1);
        QCOMPARE(load.out, "Device setting was successfully loaded from file: " + path +
                               "\n\nThe first error:\nGain : Node type is not supported.\n");
        QCOMPARE(get("Height"), QString("480"));
    }

    void loadOfAnUnparsableFileWritesNothing() {
        QCOMPARE(RunCli({"set", kAddress, "OffsetX", "16"}).exitCode, 0);
        const QString path = writeFile(m_dir, "bad.txt", "Width UInt32 wide\n");
        const CliRun load = RunCli({"load-settings", kAddress, path});
        QCOMPARE(load.exitCode, 1);
        QCOMPARE(load.out, QString("Loading device settings failed: Failed to parse line: Width "
                                   "UInt32 wide\n"));
        // Not even the preparation writes ran.
        QCOMPARE(get("OffsetX"), QString("16"));
    }

    void loadOfALutTableIsRefusedAndWritesNothing() {
        QCOMPARE(RunCli({"set", kAddress, "OffsetX", "16"}).exitCode, 0);
        const QString path = writeFile(m_dir, "table.csv", "0\n1\n2\n3\n");
        const CliRun load = RunCli({"load-settings", kAddress, path});
        QCOMPARE(load.exitCode, 1);
        QCOMPARE(load.out, "Loading device settings failed: " + path +
                               " is not a device settings file: no line reads \"name type "
                               "value\" with a type such as UInt32, Boolean or Enumeration.\n");
        QCOMPARE(get("OffsetX"), QString("16"));
    }

    void loadThatChangesThePersistentAddressSaysSo() {
        const QString before = get("GevPersistentIPAddress");
        const QString other = before == "3232238090" ? "3232238091" : "3232238090";
        const QString path = writeFile(
            m_dir, "address.txt", ("GevPersistentIPAddress UInt32 " + other + "\n").toLatin1());
        const CliRun load = RunCli({"load-settings", kAddress, path});
        QCOMPARE(load.exitCode, 0);
        QCOMPARE(load.out, "Device setting was successfully loaded from file: " + path +
                               "\n\nThe camera's persistent network configuration was changed "
                               "(GevPersistentIPAddress); it applies from the camera's next "
                               "reset. Every camera this file is loaded into is given the same "
                               "configuration.\n");
        QCOMPARE(get("GevPersistentIPAddress"), other);
        QCOMPARE(RunCli({"set", kAddress, "GevPersistentIPAddress", before}).exitCode, 0);
    }

    void saveIntoAMissingFolderFailsWithOneLineNamingTheFile() {
        const QString file = m_dir.filePath("none/x.txt");
        const CliRun save = RunCli({"save-settings", kAddress, file});
        QCOMPARE(save.exitCode, 1);
        QCOMPARE(save.out, QString());
        QCOMPARE(save.errLines,
                 QStringList(QString("viewlane-cli: cannot write \"%1\": the folder %2 does not "
                                     "exist")
                                 .arg(file, m_dir.filePath("none"))));
    }

    void programLutWritesTheTable() {
        QByteArray table;
        for (int k = 0; k < 1024; ++k)
            table += QByteArray::number(1023 - k) + "\n";
        const QString path = writeFile(m_dir, "invert.csv", table);
        const CliRun program = RunCli({"program-lut", kAddress, path});
        QCOMPARE(program.exitCode, 0);
        QCOMPARE(program.out, QString("Program is completed successfully\n"));
        QCOMPARE(RunCli({"set", kAddress, "LUTIndex", "10"}).exitCode, 0);
        QCOMPARE(get("LUTValue"), QString("1013"));
        QCOMPARE(get("LUTEnable"), QString("false"));
    }

    void programLutWithTooFewEntriesFails() {
        const QString path = writeFile(m_dir, "short.csv", "1\n2\n3\n");
        const CliRun program = RunCli({"program-lut", kAddress, path});
        QCOMPARE(program.exitCode, 1);
        QCOMPARE(program.out, QString("No enough entries. Available: 3 Needed: 1024.\n"));
    }

    void programLutOfAMissingFileFails() {
        const QString path = m_dir.filePath("missing.csv");
        const CliRun program = RunCli({"program-lut", kAddress, path});
        QCOMPARE(program.exitCode, 1);
        QCOMPARE(program.out, "Failed to open file: " + path + "\n");
    }

    void progressBarIsDrawnOnATerminal() {
        const QString script = QStandardPaths::findExecutable("script");
        if (script.isEmpty())
            QSKIP("script (util-linux) is not installed: no terminal to run under");
        QByteArray table;
        for (int k = 0; k < 1024; ++k)
            table += QByteArray::number(k) + "\n";
        const QString path = writeFile(m_dir, "identity.csv", table);
        QProcess process;
        process.start(script, {"-qec",
                               QString("'%1/viewlane-cli' program-lut %2 '%3'")
                                   .arg(TestNetwork::binDir(), kAddress, path),
                               "/dev/null"});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        const QString terminal = QString::fromLocal8Bit(process.readAllStandardOutput());
        QVERIFY2(terminal.contains("[" + QString(40, '#') + "] 100 %"), qPrintable(terminal));
        QVERIFY2(terminal.contains("Program is completed successfully"), qPrintable(terminal));
    }

    void wrongArgumentsAreAUsageError() {
        const CliRun run = RunCli({"program-lut", kAddress});
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.errLines.size(), 1);
        QVERIFY2(run.errLines.first().contains("program-lut DEVICE FILE.csv"),
                 qPrintable(run.errLines.first()));
    }

    void unknownDeviceFailsWithoutAJobText() {
        const CliRun run = RunCli(
            {"--timeout", "300", "save-settings", "127.0.0.99", m_dir.filePath("unused.txt")});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.out, QString());
        QVERIFY(run.errLines.value(0).startsWith("viewlane-cli: unknown device \"127.0.0.99\""));
        QVERIFY(!QFile::exists(m_dir.filePath("unused.txt")));
    }

private:
    QTemporaryDir m_dir;
    SimulatorProcess m_camsim;
};

QTEST_MAIN(TestViewlaneCliMaintenance)
#include "tst_viewlaneclimaintenance.moc"
