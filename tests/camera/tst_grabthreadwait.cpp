// The grab thread's frame wait with the time-outs a settings file may hold: 0 and below neither
// spin nor keep a stop or a disconnect waiting.
#include "streamingfixture.h"

#include <QElapsedTimer>
#include <QtTest>

#include <ctime>

namespace {

double processCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

} // namespace

class TestGrabThreadWait : public QObject {
    Q_OBJECT

    StreamingFixture fixture_;

    // A session streaming from a camera that sends nothing (it waits for triggers), with
    // `timeoutMs` as its frame time-out.
    std::unique_ptr<CKorvatinCameraViewlane> waitingSession(int timeoutMs) {
        QString error;
        auto session = fixture_.connect(
            "[host]\ngetFrameTimeout=" + QByteArray::number(timeoutMs) + "\n", &error);
        if (!session) {
            qWarning("%s", qPrintable(error));
            return nullptr;
        }
        session->SetEnumByString("TriggerMode", "On");
        session->StartAcquisition();
        return session;
    }

private slots:
    void initTestCase() {
        QString error;
        QVERIFY2(fixture_.startCamera("127.0.14.1", {"--width", "64", "--height", "16"}, &error),
                 qPrintable(error));
    }

    void disconnectReturnsPromptlyWhateverTheTimeOut_data() {
        QTest::addColumn<int>("timeoutMs");
        QTest::newRow("0") << 0;
        QTest::newRow("-1") << -1;
        QTest::newRow("-100000") << -100000;
    }

    void disconnectReturnsPromptlyWhateverTheTimeOut() {
        QFETCH(int, timeoutMs);
        auto session = waitingSession(timeoutMs);
        QVERIFY(session);
        QCOMPARE(session->GetFrameTimeout(), timeoutMs);
        QVERIFY(session->IsGrabbing());
        QElapsedTimer clock;
        clock.start();
        session->DisconnectDevice();
        // Without a usable time-out the grab thread waits 100 ms per turn; a second leaves room
        // for a loaded machine.
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!session->IsGrabbing());
    }

    void zeroTimeOutDoesNotSpin() {
        auto session = waitingSession(0);
        QVERIFY(session);
        // Over half a second without frames, a spinning grab thread would spend about that much
        // CPU time; waiting, the whole process spends a small part of it.
        const double before = processCpuMs();
        QTest::qWait(500);
        const double spent = processCpuMs() - before;
        QVERIFY2(spent < 150, qPrintable(QString::number(spent) + " ms of CPU"));
        session->DisconnectDevice();
    }

    void framesStillArriveWithAZeroTimeOut() {
        QString error;
        auto session = fixture_.connect("[host]\ngetFrameTimeout=0\n", &error);
        QVERIFY2(session, qPrintable(error));
        session->SetEnumByString("TriggerMode", "Off");
        session->StartAcquisition();
        QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount.load() > 5, 20000);
        session->DisconnectDevice();
    }
};

QTEST_GUILESS_MAIN(TestGrabThreadWait)
#include "tst_grabthreadwait.moc"
