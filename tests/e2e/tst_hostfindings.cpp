// The window tells, once, in its status bar, what on this host loses the connected camera's
// frames: a receive buffer limit below what the stream needs and a strict reverse-path filter,
// read from a folder that stands for /proc/sys.
#include "windowdriver.h"

#include "uitesthelpers.h"
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>

using namespace e2e;

class TestHostFindings : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    void writeSysctl(const QString& path, const QByteArray& value) {
        const QString file = m_dir.filePath("sys/" + path);
        QVERIFY(QDir().mkpath(QFileInfo(file).absolutePath()));
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(value + '\n');
    }

private slots:
    void connectingOnAHostThatLosesFramesShowsTheFindingsInTheStatusBar() {
        QVERIFY(TestNetwork::isIsolated());
        writeSysctl("net/core/rmem_max", "212992");
        writeSysctl("net/ipv4/conf/all/rp_filter", "1");
        writeSysctl("net/ipv4/conf/lo/rp_filter", "0");
        qputenv("KORVATIN_HOST_PROC_SYS", m_dir.filePath("sys").toLocal8Bit());
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.22.3"}), qPrintable(sim.errorString()));
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));

        auto* label = window->findChild<QLabel*>("labelHostCheck");
        QVERIFY(label);
        QTRY_VERIFY_WITH_TIMEOUT(label->isVisible(), 10000);
        // The simulator streams 1280 x 960 Mono8 at 30 fps: 100 ms of it is 3686400 bytes, which
        // the fix rounds up to 4 MiB.
        QCOMPARE(label->text(), QString("This host may lose frames: net.core.rmem_max 212992, "
                                        "needs 3686400; strict reverse-path filter on lo "
                                        "(viewlane-cli doctor)"));
        const QString details = label->toolTip();
        QVERIFY2(details.startsWith("receive buffer limit (net.core.rmem_max): 212992 bytes, "
                                    "should be at least 3686400 bytes: two frames or 100 ms of "),
                 qPrintable(details));
        QVERIFY2(details.contains("\nFix: sysctl -w net.core.rmem_max=4194304 "),
                 qPrintable(details));
        QVERIFY2(details.contains("\nFix: sysctl -w net.ipv4.conf.all.rp_filter=2 "
                                  "net.ipv4.conf.lo.rp_filter=2"),
                 qPrintable(details));
        // The window keeps the width it was given; the connection's captions stay.
        QCOMPARE(window->width(), 1600);
        QCOMPARE(ConnectionCaption(*window), QString("Connected"));
        uitest::SaveScreenshot(window.get(), "mainwindow_host_findings");
    }
};

QTEST_MAIN(TestHostFindings)
#include "tst_hostfindings.moc"
