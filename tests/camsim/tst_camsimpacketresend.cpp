// Packets the simulator drops on purpose (--lost-ratio) come back when Aravis asks for them.
#include "aravishost.h"
#include "simulatorprocess.h"

#include <QtTest>

class TestCamsimPacketResend : public QObject {
    Q_OBJECT

private slots:
    void lostPacketsAreResentAndEveryFrameCompletes();
};

void TestCamsimPacketResend::lostPacketsAreResentAndEveryFrameCompletes() {
    const QString address = QStringLiteral("127.0.13.1");
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim(
                 {"--address", address, "--lost-ratio", "20", "--width", "640", "--height", "480"}),
             qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open(address, &error), qPrintable(error));
    QVERIFY(host.setInteger("FrameRate", 100));
    const int frames = 100;
    const GrabResult grab = host.grab(frames, 8);
    QCOMPARE(grab.succeeded, frames);
    QCOMPARE(grab.wrongSize, 0);
    QVERIFY(grab.completedBuffers >= guint64(frames));
    // About 2 % of some 21000 packets were dropped and asked for again.
    QVERIFY2(grab.resentPackets > 100, qPrintable(QString::number(grab.resentPackets)));
}

QTEST_GUILESS_MAIN(TestCamsimPacketResend)
#include "tst_camsimpacketresend.moc"
