// The stream statistics panel after Help: the SDK's counts since the connection, resent packets
// on a lossy link (the simulator's --lost-ratio), none on a clean one.
#include "korvatincameraviewlane.h"
#include "simulatorprocess.h"
#include "testnetwork.h"
#include "windowdriver.h"

#include <qframefoldable.h>

#include <QLayout>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

using namespace e2e;

namespace {

// The panel's "Label: value" lines as numbers.
QMap<QString, double> FiguresOf(const QString& text) {
    QMap<QString, double> figures;
    for (const QString& line : text.split('\n')) {
        const qsizetype colon = line.indexOf(": ");
        if (colon > 0)
            figures.insert(line.left(colon), line.mid(colon + 2).toDouble());
    }
    return figures;
}

} // namespace

class TestStreamStatistics : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> Connected(SimulatorProcess& sim, const QString& address,
                                          const QStringList& extra) {
        if (!sim.startCamsim(
                QStringList{"--address", address, "--width", "640", "--height", "480"} + extra))
            return nullptr;
        auto window = OpenWindow(WriteSettings(m_dir.filePath(address + ".ini")), 1, 1400, 900);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void aPanelAfterHelpFoldsLikeTheOthers() {
        MainWindow window(nullptr, WriteSettings(m_dir.filePath("fold.ini")));
        auto* panel = window.findChild<QFrameFoldable*>("qFrameFoldable_statistics");
        QVERIFY(panel);
        QLayout* side = window.findChild<QFrame*>("frameLeft")->layout();
        QCOMPARE(side->indexOf(panel),
                 side->indexOf(window.findChild<QFrameFoldable*>("qFrameFoldable_help")) + 1);
        QCOMPARE(panel->toolTip(), QString("Stream Statistics"));
        auto* label = window.findChild<QLabel*>("label_streamStatistics");
        QVERIFY(label);
        QVERIFY(label->isHidden());
        panel->findChild<QToolButton*>("toolButton")->click();
        QVERIFY(!label->isHidden());
    }

    void aLossyLinkShowsResentPackets() {
        SimulatorProcess sim;
        // 3 % of the stream packets dropped on purpose: the host asks for them again.
        auto window = Connected(sim, "127.0.20.41", {"--lost-ratio", "30"});
        QVERIFY(window);
        auto* label = window->findChild<QLabel*>("label_streamStatistics");
        window->findChild<QFrameFoldable*>("qFrameFoldable_statistics")
            ->findChild<QToolButton*>("toolButton")
            ->click();
        // The panel refreshes every second; it shows resends once some frames came through.
        QTRY_VERIFY_WITH_TIMEOUT(FiguresOf(label->text()).value("Resent packets") > 0 &&
                                     FiguresOf(label->text()).value("Received") >= 10,
                                 30000);
        const QMap<QString, double> figures = FiguresOf(label->text());
        // The panel counts since this connection, what the SDK counts since the camera object
        // was made: never more.
        const CKorvatinCamera::StreamTotals totals = window->Session()->GetStreamTotals();
        QVERIFY(figures.value("Resent packets") <= double(totals.resentPackets));
        QVERIFY(figures.value("Missing packets") <= double(totals.missingPackets));
        QVERIFY(figures.value("Incomplete") <= double(totals.incompleteFrames));
        QVERIFY(figures.value("Dropped") <= double(totals.droppedFrames));
        QVERIFY(figures.value("Received") <= double(window->Session()->grabbedFrameCount.load()));
        QVERIFY(figures.value("Frames/s") > 0);
        // The data rate is the frame rate times a Mono8 640 x 480 frame.
        QVERIFY(qAbs(figures.value("MB/s") - figures.value("Frames/s") * 640 * 480 / 1e6) < 0.06);
        SaveAtBothSizes(*window, "streamstatistics-lossy");
    }

    void aCleanLinkResendsNothing() {
        SimulatorProcess sim;
        auto window = Connected(sim, "127.0.20.42", {});
        QVERIFY(window);
        auto* label = window->findChild<QLabel*>("label_streamStatistics");
        QTRY_VERIFY_WITH_TIMEOUT(FiguresOf(label->text()).value("Received") >= 20, 30000);
        const QMap<QString, double> figures = FiguresOf(label->text());
        QCOMPARE(figures.value("Resent packets"), 0.0);
        QCOMPARE(figures.value("Missing packets"), 0.0);
        QCOMPARE(double(window->Session()->GetStreamTotals().resentPackets), 0.0);
    }
};

QTEST_MAIN(TestStreamStatistics)
#include "tst_streamstatistics.moc"
