// The discovery thread: periodic passes, heap copies per result, pausing, skipping and stopping.
#include "devicediscoverythread.h"
#include "discoveryprobe.h"
#include "metatypes.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>

#include <QElapsedTimer>
#include <QFile>
#include <QSet>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

ListDevicesSettings discoverySettings(int32_t timeoutMs, const char* interfaceAddress = nullptr) {
    ListDevicesSettings settings{};
    settings.timeoutMs = timeoutMs;
    settings.interfaceAddress = interfaceAddress;
    settings.broadcast = 0;
    settings.reserved = 0;
    return settings;
}

// Receives the results on the test's thread, as the main window does, and keeps every block
// until the end of the test so that each one can be checked to be a copy of its own.
class Collector : public QObject {
    Q_OBJECT
public:
    struct Result {
        const GigEVisionDeviceInfo* block;
        int count;
        qint64 arrivedMs; // since the collector was created
    };

    explicit Collector(DeviceDiscoveryThread& thread) {
        clock_.start();
        connect(&thread, &DeviceDiscoveryThread::devicesDiscovered, this, &Collector::collect);
    }
    ~Collector() override {
        for (const Result& result : results)
            delete[] result.block;
    }

    QList<Result> results;

    static QSet<QString> serials(const Result& result) {
        QSet<QString> serials;
        for (int i = 0; i < result.count; ++i)
            serials.insert(QString::fromLatin1(result.block[i].serialNumber));
        return serials;
    }

private slots:
    void collect(const GigEVisionDeviceInfo* deviceInfos, int count) {
        QVERIFY(thread() == QThread::currentThread());
        results.append({deviceInfos, count, clock_.elapsed()});
    }

private:
    QElapsedTimer clock_;
};

// Stops the thread at the end of a test, also when the test fails half-way.
struct StopGuard {
    DeviceDiscoveryThread& thread;
    ~StopGuard() {
        thread.stop();
        thread.wait();
    }
};

} // namespace

class TestDeviceDiscoveryThread : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();

    void resultsArriveAsHeapCopiesWithTheRightCount();
    void noDeviceEmitsAnEmptyResult();
    void moreThanFiftyDevicesReportsOnlyFifty();
    void stopDuringTheWaitEndsTheThreadAtOnce();
    void stopBeforeTheThreadRunsEndsItWithoutAPass();
    void stopDuringListDevicesEndsAfterItReturnsAndDropsTheResult();
    void setDiscoveryOffWaitsForTheRunningPassAndNoFurtherPassStarts();
    void setDiscoveryOffWithoutWaitingReturnsAtOnce();
    void skipNextResultDropsExactlyOne();
    void sdkErrorDuringDiscoveryIsSilentAndTheThreadGoesOn();
    void discoveryTimeoutChangesOnlyTheTimeoutOfTheNextPass();
};

void TestDeviceDiscoveryThread::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("the discovery thread is tested in a private network namespace only (run through "
              "ctest as root), so that no discovery goes out on a network the project does not "
              "own");
    QCOMPARE(qEnvironmentVariable("KORVATIN_GEV_INTERFACES"), QString("lo"));
    RegisterCameraMetaTypes();
}

void TestDeviceDiscoveryThread::resultsArriveAsHeapCopiesWithTheRightCount() {
    SimulatorProcess first;
    SimulatorProcess second;
    QVERIFY2(first.startAravisFake("127.0.0.41", "DISC41"), qPrintable(first.errorString()));
    QVERIFY2(second.startAravisFake("127.0.0.42", "DISC42"), qPrintable(second.errorString()));

    DeviceDiscoveryThread thread(discoverySettings(300));
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};

    // The first pass runs at once, the next one a period later.
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 4000);
    QCOMPARE(collector.results[0].count, 2);
    const QSet<QString> expected{"DISC41", "DISC42"};
    QCOMPARE(Collector::serials(collector.results[0]), expected);
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 2, 9000);
    QVERIFY(collector.results[1].arrivedMs - collector.results[0].arrivedMs >= 4500);
    QCOMPARE(collector.results[1].count, 2);
    // Each result is a block of its own: the first is intact after the second arrived.
    QVERIFY(collector.results[0].block != collector.results[1].block);
    QCOMPARE(Collector::serials(collector.results[0]), expected);
    QCOMPARE(Collector::serials(collector.results[1]), expected);
    QVERIFY(thread.isRunning());
}

void TestDeviceDiscoveryThread::noDeviceEmitsAnEmptyResult() {
    DeviceDiscoveryThread thread(discoverySettings(100));
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 4000);
    QCOMPARE(collector.results[0].count, 0);
    // Even an empty result is a block the receiver owns and frees.
    QVERIFY(collector.results[0].block != nullptr);
}

void TestDeviceDiscoveryThread::moreThanFiftyDevicesReportsOnlyFifty() {
    std::vector<std::unique_ptr<SimulatorProcess>> cameras;
    int expectedTotal = 0;
    const QString camsim = TestNetwork::binDir() + "/korvatin-camsim";
    if (QFile::exists(camsim)) {
        expectedTotal = 60;
        for (int i = 0; i < expectedTotal; ++i) {
            QString error;
            QVERIFY2(TestNetwork::addLoopbackAddress(QString("127.0.1.%1").arg(10 + i), &error),
                     qPrintable(error));
        }
        cameras.push_back(std::make_unique<SimulatorProcess>());
        QVERIFY2(cameras.back()->startCamsim(
                     {"--address", "127.0.1.10", "--count", "60", "--serial", "BULK"}, 60),
                 qPrintable(cameras.back()->errorString()));
    } else {
        expectedTotal = 51;
        for (int i = 0; i < expectedTotal; ++i) {
            cameras.push_back(std::make_unique<SimulatorProcess>());
            QVERIFY2(cameras.back()->startAravisFake(QString("127.0.1.%1").arg(10 + i),
                                                     QString("BULK%1").arg(i)),
                     qPrintable(cameras.back()->errorString()));
        }
    }

    // More than 50 answer: the SDK itself finds them all when given room for them.
    std::vector<GigEVisionDeviceInfo> all(128);
    unsigned int total = 0;
    const ListDevicesSettings settings = discoverySettings(1500);
    CKorvatinCamera::ListDevices(all.data(), 128, &total, &settings);
    QCOMPARE(int(total), expectedTotal);

    DeviceDiscoveryThread thread(settings);
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 6000);
    QCOMPARE(collector.results[0].count, 50);
    QSet<QString> addresses;
    for (int i = 0; i < 50; ++i)
        addresses.insert(QString::fromLatin1(collector.results[0].block[i].currentIp));
    QCOMPARE(addresses.size(), 50);

    thread.stop();
    thread.wait();
    cameras.clear();
}

void TestDeviceDiscoveryThread::stopDuringTheWaitEndsTheThreadAtOnce() {
    DeviceDiscoveryThread thread(discoverySettings(100));
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 4000);

    // Now in its 5 s wait.
    QElapsedTimer clock;
    clock.start();
    thread.stop();
    QVERIFY(thread.wait(4000));
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(thread.isFinished());
}

void TestDeviceDiscoveryThread::stopBeforeTheThreadRunsEndsItWithoutAPass() {
    // A window closed as soon as it opened stops the thread before the thread has begun to run:
    // the stop is not lost, and the thread ends without discovering.
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    DeviceDiscoveryThread thread(discoverySettings(100));
    Collector collector(thread);
    thread.stop();
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    // Returns as soon as the thread has ended, whether before or during this call.
    QVERIFY(thread.wait(20000));
    QVERIFY(!probe.waitForDiscovery(0));
    QCoreApplication::processEvents();
    QCOMPARE(collector.results.size(), 0);
}

void TestDeviceDiscoveryThread::stopDuringListDevicesEndsAfterItReturnsAndDropsTheResult() {
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    DeviceDiscoveryThread thread(discoverySettings(2500));
    QSignalSpy spy(&thread, &DeviceDiscoveryThread::devicesDiscovered);
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};

    // The pass has sent its command and now collects answers for 2.5 s.
    QVERIFY(probe.waitForDiscovery(4000));
    QElapsedTimer clock;
    clock.start();
    thread.stop();
    QVERIFY(thread.wait(10000));
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= 1000, qPrintable(QString::number(elapsed)));
    QVERIFY2(elapsed < 6000, qPrintable(QString::number(elapsed)));
    QCoreApplication::processEvents();
    QCOMPARE(spy.count(), 0);
    QCOMPARE(collector.results.size(), 0);
}

void TestDeviceDiscoveryThread::setDiscoveryOffWaitsForTheRunningPassAndNoFurtherPassStarts() {
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    const ListDevicesSettings slow = discoverySettings(2500);
    DeviceDiscoveryThread thread(slow);
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};

    QVERIFY(probe.waitForDiscovery(4000));
    QElapsedTimer clock;
    clock.start();
    thread.SetDiscovery(false, slow, true);
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= 1000, qPrintable(QString::number(elapsed)));
    QVERIFY(!thread.IsEnabled());
    // That pass finished normally and its result is delivered.
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 2000);

    // No pass starts while disabled: the thread wakes after its period and does nothing.
    probe.drain();
    QVERIFY(!probe.waitForDiscovery(7000));
    QCOMPARE(collector.results.size(), 1);
    QVERIFY(thread.isRunning());

    thread.SetDiscovery(true, discoverySettings(100), false);
    QVERIFY(thread.IsEnabled());
    QVERIFY(probe.waitForDiscovery(6000));
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 2, 2000);
}

void TestDeviceDiscoveryThread::setDiscoveryOffWithoutWaitingReturnsAtOnce() {
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    const ListDevicesSettings slow = discoverySettings(2500);
    DeviceDiscoveryThread thread(slow);
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};

    QVERIFY(probe.waitForDiscovery(4000));
    QElapsedTimer clock;
    clock.start();
    thread.SetDiscovery(false, slow, false);
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!thread.IsEnabled());
}

void TestDeviceDiscoveryThread::skipNextResultDropsExactlyOne() {
    SimulatorProcess fake;
    QVERIFY2(fake.startAravisFake("127.0.0.43", "SKIP43"), qPrintable(fake.errorString()));
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    DeviceDiscoveryThread thread(discoverySettings(200));
    thread.SkipNextResult();
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};

    // The first pass runs at once and its result is dropped; the second, a period later, and
    // the third arrive.
    QVERIFY(probe.waitForDiscovery(4000));
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 9000);
    QVERIFY2(collector.results[0].arrivedMs >= 4500,
             qPrintable(QString::number(collector.results[0].arrivedMs)));
    QCOMPARE(collector.results[0].count, 1);
    QCOMPARE(Collector::serials(collector.results[0]), QSet<QString>{"SKIP43"});
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 2, 8000);
    QCOMPARE(collector.results[1].count, 1);
}

void TestDeviceDiscoveryThread::sdkErrorDuringDiscoveryIsSilentAndTheThreadGoesOn() {
    // No interface of this host has that address: ListDevices throws.
    const ListDevicesSettings broken = discoverySettings(100, "10.255.255.1");
    std::vector<GigEVisionDeviceInfo> buffer(4);
    unsigned int count = 0;
    QVERIFY_THROWS_EXCEPTION(CKorvatinException,
                             CKorvatinCamera::ListDevices(buffer.data(), 4, &count, &broken));

    DeviceDiscoveryThread thread(broken);
    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    // The passes at once and a period later both fail: nothing is emitted, the thread goes on.
    QVERIFY(!QTest::qWaitFor([&] { return !collector.results.isEmpty(); }, 6500));
    QVERIFY(thread.isRunning());
    thread.SetDiscovery(true, discoverySettings(100), false);
    // The next pass succeeds.
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 6000);
    QCOMPARE(collector.results[0].count, 0);
    QVERIFY(thread.isRunning());
}

void TestDeviceDiscoveryThread::discoveryTimeoutChangesOnlyTheTimeoutOfTheNextPass() {
    DiscoveryProbe probe;
    QVERIFY(probe.isOpen());
    DeviceDiscoveryThread thread(discoverySettings(100));
    thread.SetDiscovery(false, discoverySettings(100), false);
    thread.SetDiscoveryTimeout(1500);
    QCOMPARE(thread.DiscoveryTimeout(), 1500);
    QVERIFY(!thread.IsEnabled());
    thread.SetDiscovery(true, discoverySettings(100), false);
    QCOMPARE(thread.DiscoveryTimeout(), 100);
    thread.SetDiscoveryTimeout(1500);
    QVERIFY(thread.IsEnabled());

    Collector collector(thread);
    thread.start(QThread::InheritPriority);
    StopGuard guard{thread};
    QVERIFY(probe.waitForDiscovery(4000));
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE_WITH_TIMEOUT(collector.results.size(), 1, 4000);
    QVERIFY2(clock.elapsed() >= 1000, qPrintable(QString::number(clock.elapsed())));
}

QTEST_GUILESS_MAIN(TestDeviceDiscoveryThread)
#include "tst_devicediscoverythread.moc"
