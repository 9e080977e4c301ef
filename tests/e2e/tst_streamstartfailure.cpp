// A camera whose stream cannot start: the window shows why, stays connected, and disconnects
// on the next click. The stream's buffers are made impossible to get by limiting the address
// space of this test process while it connects.
#include "windowdriver.h"

#include <korvatincameraviewlane.h>
#include <processmemory.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr uint64_t kMiB = 1024 * 1024;
} // namespace

using namespace e2e;

class TestStreamStartFailure : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void failingStreamStartShowsItsTextAndStaysConnected() {
        QVERIFY(TestNetwork::isIsolated());
        SimulatorProcess sim;
        QVERIFY2(
            sim.startCamsim({"--address", "127.0.7.60", "--width", "4096", "--height", "3072"}),
            qPrintable(sim.errorString()));
        // 48 bits per displayed pixel: every stream buffer and every converted holder of the
        // largest image takes 4096 x 3072 x 6 bytes.
        MainWindow window(
            nullptr, WriteSettings(m_dir.filePath("settings.ini"), QByteArray(),
                                   "[resource]\nallocatedBuffersCount=8\nmaxBitsPerPixel=48\n"));
        window.resize(1280, 800);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTRY_COMPARE_WITH_TIMEOUT(Table(window)->rowCount(), 1, 20000);
        MessageBoxWatcher boxes;

        // Room for the snapshot frame and the eight stream buffers, not for the five holders of
        // converted frames on top.
        const uint64_t image = 4096ull * 3072 * 6;
        {
            AddressSpaceLimit limit(qint64(9 * image + 250 * kMiB));
            QVERIFY(limit.applied());
            ClickRow(window, 0);
        }

        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts, QStringList{"fail to allocate memory."}, 5000);
        QVERIFY(window.IsConnected());
        QCOMPARE(ConnectionCaption(window), QString("Connected"));
        QCOMPARE(Table(window)->item(0, 0)->checkState(), Qt::Checked);
        QVERIFY(!window.Session()->IsConverting());
        QVERIFY(Tree(window)->topLevelItemCount() == 1);

        ClickRow(window, 0);
        QVERIFY(!window.IsConnected());
        QCOMPARE(ConnectionCaption(window), QString("Not Connected"));
        QCOMPARE(boxes.texts.size(), 1);
    }
};

QTEST_MAIN(TestStreamStartFailure)
#include "tst_streamstartfailure.moc"
