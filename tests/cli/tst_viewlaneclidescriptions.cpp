// viewlane-cli against descriptions that misbehave, served by korvatin-camsim: a string read
// that would never end is refused at once with its reason, a category that lists itself is
// printed once, and the rest of the tree is read as usual.
#include "clirun.h"
#include "hostiledescription.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A single feature read ends within this, value or error; the tree of a description with such
// features within the same bound. Generous for a busy machine: each takes well under a second.
constexpr qint64 kReadBoundMs = 5000;

} // namespace

class TestViewlaneCliDescriptions : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Runs viewlane-cli with `arguments` and says how long it took.
    static CliRun Timed(const QStringList& arguments, qint64* ms) {
        QElapsedTimer clock;
        clock.start();
        CliRun run = RunCli(arguments);
        *ms = clock.elapsed();
        return run;
    }

private slots:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void endlessStringReadsEndWithTheirReason() {
        const QString path = m_dir.filePath("endless.xml");
        QString error;
        QVERIFY2(hostiledescription::Write(hostiledescription::Kind::EndlessReads, path, &error),
                 qPrintable(error));
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.21.11", "--description", path}),
                 qPrintable(sim.errorString()));

        qint64 ms = 0;
        CliRun run = Timed({"get", "127.0.21.11", "HostileText"}, &ms);
        qInfo("get HostileText: %lld ms", ms);
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errLines,
                 QStringList{"viewlane-cli: HostileText: its address 0x6100000000000 is beyond "
                             "the 32-bit register space a GigE Vision device has"});
        QVERIFY2(ms < kReadBoundMs, qPrintable(QString::number(ms)));

        // The length register holds the camera's address, 127.0.21.11.
        run = Timed({"get", "127.0.21.11", "HugeText"}, &ms);
        qInfo("get HugeText: %lld ms", ms);
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.errLines, QStringList{"viewlane-cli: HugeText: its length reads 2130711819 "
                                           "bytes, more than the 65536 a string may have"});
        QVERIFY2(ms < kReadBoundMs, qPrintable(QString::number(ms)));

        // The tree shows both with their reason and reads every other feature.
        run = Timed({"tree", "127.0.21.11"}, &ms);
        qInfo("tree: %lld ms", ms);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(ms < kReadBoundMs, qPrintable(QString::number(ms)));
        QVERIFY(run.out.contains("HugeText: its length reads 2130711819 bytes"));
        QVERIFY(run.out.contains("HostileText: its address 0x6100000000000"));
        QVERIFY(run.out.contains("\tWidth\t"));
    }

    void aCategoryThatListsItselfIsPrintedOnce() {
        const QString path = m_dir.filePath("loop.xml");
        QString error;
        QVERIFY2(hostiledescription::Write(hostiledescription::Kind::CategoryCycles, path, &error),
                 qPrintable(error));
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.21.12", "--description", path}),
                 qPrintable(sim.errorString()));
        const CliRun run = RunCli({"tree", "127.0.21.12"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.count("\tLoop\t"), 2);
        QCOMPARE(run.out.count("\tOuter\t"), 2);
        QCOMPARE(run.out.count("\tInner\t"), 1);
    }
};

QTEST_GUILESS_MAIN(TestViewlaneCliDescriptions)
#include "tst_viewlaneclidescriptions.moc"
