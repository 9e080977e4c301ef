// The display pacing timers and the central frame that reports its resizes.
#include <displaytimernormal.h>
#include <displaytimerprecise.h>
#include <qframesplittercentral.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <atomic>

class TestDisplayTimers : public QObject {
    Q_OBJECT

private slots:
    void baseIntervalIs30AfterConstruction() {
        CDisplayTimerPrecise precise;
        QCOMPARE(precise.interval(), 30u);
        CDisplayTimerNormal normal;
        QCOMPARE(normal.interval(), 30u);
    }

    void preciseTimerEmitsOnItsOwnThreadUntilStopped() {
        CDisplayTimerPrecise timer;
        timer.setInterval(10);
        QCOMPARE(timer.interval(), 10u);
        // Written by the timer thread.
        std::atomic<QThread*> emitter{nullptr};
        std::atomic<int> ticks{0};
        connect(
            &timer, &CDisplayTimer::Timeout, this,
            [&] {
                emitter = QThread::currentThread();
                ++ticks;
            },
            Qt::DirectConnection);
        QSignalSpy spy(&timer, &CDisplayTimer::Timeout);
        QVERIFY(!timer.isActive());
        timer.start();
        QTRY_VERIFY(spy.count() >= 5);
        QVERIFY(timer.isActive());
        QVERIFY(emitter.load() != QThread::currentThread());
        timer.stop();
        QVERIFY(!timer.isActive());
        const int afterStop = ticks;
        QTest::qWait(60);
        QCOMPARE(ticks.load(), afterStop);
    }

    void preciseTimerRestarts() {
        CDisplayTimerPrecise timer;
        timer.setInterval(5);
        QSignalSpy spy(&timer, &CDisplayTimer::Timeout);
        timer.start();
        QTRY_VERIFY(spy.count() >= 2);
        timer.stop();
        spy.clear();
        timer.start();
        QTRY_VERIFY(spy.count() >= 2);
        timer.stop();
    }

    void preciseTimerPeriodIsAtLeastTheInterval() {
        CDisplayTimerPrecise timer;
        timer.setInterval(50);
        QSignalSpy spy(&timer, &CDisplayTimer::Timeout);
        QElapsedTimer clock;
        clock.start();
        timer.start();
        QTRY_VERIFY(spy.count() >= 3);
        const qint64 elapsed = clock.elapsed();
        timer.stop();
        // Three emissions are separated by two full sleeps.
        QVERIFY2(elapsed >= 100, qPrintable(QString::number(elapsed)));
    }

    void destroyingARunningPreciseTimerEndsItsThread() {
        auto* timer = new CDisplayTimerPrecise;
        timer->setInterval(5);
        QSignalSpy spy(timer, &CDisplayTimer::Timeout);
        timer->start();
        QTRY_VERIFY(spy.count() >= 1);
        delete timer;
    }

    void normalTimerForwardsOnlyWhileStarted() {
        CDisplayTimerNormal timer;
        timer.setInterval(5);
        QSignalSpy spy(&timer, &CDisplayTimer::Timeout);
        QVERIFY(!timer.isActive());
        timer.start();
        QVERIFY(timer.isActive());
        QTRY_VERIFY(spy.count() >= 3);
        timer.stop();
        QVERIFY(!timer.isActive());
        const int afterStop = int(spy.count());
        QTest::qWait(30);
        QCOMPARE(int(spy.count()), afterStop);
    }

    void centralFrameSignalsItsResizes() {
        CQFrameSplitterCentral frame;
        QSignalSpy spy(&frame, &CQFrameSplitterCentral::resized);
        frame.resize(300, 200);
        frame.show();
        QTRY_VERIFY(spy.count() >= 1);
        spy.clear();
        frame.resize(400, 250);
        QTRY_VERIFY(spy.count() >= 1);
    }
};

QTEST_MAIN(TestDisplayTimers)
#include "tst_displaytimers.moc"
