// The streaming path of the camera session: raw frames, spare wrappers, holders and their lists.
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"
#include "processmemory.h"
#include "streamingfixture.h"
#include "testnetwork.h"

#include <korvatin/korvatinexception.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QtTest>

#include <memory>

namespace {

const char* const kAddress = "127.0.5.21";
// Small frames at a steady rate keep the tests quick on a loaded machine.
const uint32_t kFrameRate = 200;

// The next ready frame, waiting up to `timeoutMs`; null when none came.
CKorvatinFrameConverted* waitForDisplayFrame(CKorvatinCameraViewlane& session, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        if (CKorvatinFrameConverted* frame = session.TakeDisplayFrame())
            return frame;
        QTest::qWait(1);
    }
    return nullptr;
}

// Streaming always ends before the session goes, also when a test fails half-way.
struct DisconnectAtEnd {
    CKorvatinCameraViewlane* session;
    ~DisconnectAtEnd() { session->DisconnectDevice(); }
};

// Sanitizers keep memory of their own: freed blocks in quarantine, and an allocator that ends
// the process instead of failing an allocation.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizedAllocator = true;
#else
constexpr bool kSanitizedAllocator = false;
#endif

} // namespace

class TestFramePipeline : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void startAcquisitionFillsThePoolSparesAndHolders();
    void framesFlowThroughTheListsToTheDisplay();
    void afterStoppingEveryWrapperIsASpareOrGrabbedAndNothingIsLeft();
    void repeatedStreamingDoesNotLeakBuffers();
    void withNoSpareFreeFramesAreRequeuedAndStillCounted();
    void withDisplayOffAndNoRecordingTheReadyListNeverExceedsTwo();
    void stopGrabWhileGetFrameWaitsReturnsAfterOneTimeOut();
    void startGrabTwiceFails();
    void bufferWithoutMemoryFallsBackTo7920x6004BayerGR8AndThePoolShrinksSilently();
    void disconnectDeviceStopsBothThreadsAndReleasesEverything();
    void destroyingARunningThreadEndsTheProcessWithItsMessage_data();
    void destroyingARunningThreadEndsTheProcessWithItsMessage();

private:
    std::unique_ptr<CKorvatinCameraViewlane> connectStreaming(const QByteArray& settings = {});
    StreamingFixture fixture_;
};

#define CONNECT_OR_FAIL(session, settings)                                                         \
    auto session = connectStreaming(settings);                                                     \
    if (!session)                                                                                  \
        return;                                                                                    \
    DisconnectAtEnd session##Guard{session.get()};

void TestFramePipeline::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("needs a private network namespace (run through ctest as root)");
    QString error;
    QVERIFY2(fixture_.startCamera(kAddress, {"--width", "640", "--height", "480"}, &error),
             qPrintable(error));
}

void TestFramePipeline::cleanupTestCase() {
    fixture_.stopCamera();
}

std::unique_ptr<CKorvatinCameraViewlane>
TestFramePipeline::connectStreaming(const QByteArray& settings) {
    QString error;
    auto session = fixture_.connect(settings, &error);
    [&] { QVERIFY2(session, qPrintable(error)); }();
    if (!session)
        return nullptr;
    session->SetEnumByString("PixelFormat", "Mono8");
    session->SetEnumByString("TriggerMode", "Off");
    session->SetUInt32("FrameRate", kFrameRate);
    return session;
}

void TestFramePipeline::startAcquisitionFillsThePoolSparesAndHolders() {
    CONNECT_OR_FAIL(session, QByteArray());
    // No image may arrive and swap a wrapper while the starting state is looked at.
    session->SetEnumByString("TriggerMode", "On");
    session->StartAcquisition();
    QCOMPARE(session->RawFramesAllocated(), 10);
    QSet<uint8_t*> buffers;
    for (int i = 0; i < 10; ++i) {
        QVERIFY(session->RawFrame(i));
        QCOMPARE(session->RawFrame(i)->Width(), session->MaxWidth());
        QCOMPARE(session->RawFrame(i)->Height(), session->MaxHeight());
        QCOMPARE(session->RawFrame(i)->PixelType(), session->DisplayPixelType());
        buffers.insert(session->RawFrame(i)->Data());
    }
    QCOMPARE(buffers.size(), 10);
    // The first 7 raw buffers are described by the spare wrappers; the other 3 are queued.
    for (int i = 0; i < CKorvatinCameraViewlane::kSpareWrapperCount; ++i) {
        QVERIFY(session->SpareWrapper(i));
        QCOMPARE(session->SpareWrapper(i)->Data(), session->RawFrame(i)->Data());
    }
    for (int i = 0; i < CKorvatinCameraViewlane::kConvertedFrameCount; ++i) {
        CKorvatinFrameConverted* holder = session->ConvertedFrame(i);
        QVERIFY(holder);
        QCOMPARE(holder->ConversionAttribute(0), 11u);
        QCOMPARE(holder->ConversionAttribute(1), 8u);
        QVERIFY(holder->BufferSize() > 0);
    }
    QVERIFY(session->IsGrabbing());
    QVERIFY(session->IsConverting());
    session->DisconnectDevice();
}

void TestFramePipeline::framesFlowThroughTheListsToTheDisplay() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    QSet<CKorvatinFrame*> wrappers;
    for (int i = 0; i < CKorvatinCameraViewlane::kSpareWrapperCount; ++i)
        wrappers.insert(session->SpareWrapper(i));

    // Taken the way the display takes them: hold one, give the one before back.
    int shown = 0;
    uint64_t lastBlock = 0;
    CKorvatinFrameConverted* current = nullptr;
    QElapsedTimer timer;
    timer.start();
    while (shown < 30 && timer.elapsed() < 20000) {
        CKorvatinFrameConverted* frame = session->TakeDisplayFrame();
        if (!frame) {
            QTest::qWait(2);
            continue;
        }
        ++shown;
        CKorvatinFrame* raw = frame->SourceRawFrame();
        QVERIFY(raw);
        QVERIFY(wrappers.contains(raw));
        QCOMPARE(raw->Width(), session->GetUInt32("Width"));
        QCOMPARE(raw->Height(), session->GetUInt32("Height"));
        QCOMPARE(raw->DataSize(), size_t(session->GetUInt32("PayloadSize")));
        // Oldest first: block ids only grow.
        QVERIFY2(raw->BlockId() > lastBlock,
                 qPrintable(QString("block %1 after %2").arg(raw->BlockId()).arg(lastBlock)));
        lastBlock = raw->BlockId();
        // The pixels are the camera's ramp: level (x + y + n) mod 256.
        const uint8_t* pixels = raw->Data();
        QCOMPARE(uint8_t(pixels[1] - pixels[0]), uint8_t(1));
        QCOMPARE(uint8_t(pixels[raw->Stride()] - pixels[0]), uint8_t(1));
        if (current)
            session->ReturnDisplayFrame(current);
        current = frame;
    }
    QCOMPARE(shown, 30);
    QVERIFY(session->grabbedFrameCount >= 30u);
    session->ReturnDisplayFrame(current);
    QCOMPARE(current->SourceRawFrame(), nullptr);
    QCOMPARE(current->PixelType(), 0u);
    QVERIFY(session->Pipeline().freeConvertedFrames.contains(current));
    session->DisconnectDevice();
}

void TestFramePipeline::afterStoppingEveryWrapperIsASpareOrGrabbedAndNothingIsLeft() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    QSet<CKorvatinFrame*> wrappers;
    QSet<uint8_t*> buffers;
    for (int i = 0; i < CKorvatinCameraViewlane::kSpareWrapperCount; ++i)
        wrappers.insert(session->SpareWrapper(i));
    for (int i = 0; i < session->RawFramesAllocated(); ++i)
        buffers.insert(session->RawFrame(i)->Data());

    // Frames pass through, and two ready holders are left waiting when the conversion stops.
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= 20u, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(session->Pipeline().readyConvertedFrames.size(), 2, 20000);
    session->StopConversion();
    QVERIFY(!session->IsConverting());
    for (int i = 0; i < CKorvatinCameraViewlane::kConvertedFrameCount; ++i)
        QCOMPARE(session->ConvertedFrame(i), nullptr);

    // The grab thread still runs; take the lists at one instant.
    const CKorvatinCameraViewlane::PipelineState state = session->Pipeline();
    QVERIFY(state.freeConvertedFrames.isEmpty());
    QVERIFY(state.readyConvertedFrames.isEmpty());
    QSet<CKorvatinFrame*> found;
    for (CKorvatinFrame* frame : state.spareRawFrames + state.grabbedRawFrames) {
        QVERIFY2(!found.contains(frame), "a wrapper is in the lists twice");
        found.insert(frame);
    }
    QCOMPARE(found, wrappers);
    // Each wrapper describes a different stream buffer: one of the session's, or one of those
    // the SDK adds to the stream in place of the buffers the spares hold (so a received frame
    // may arrive in either). All of them are the camera's: the SDK counts the session's raw
    // buffers, its 5 converted holders and its own stand-ins, one per spare.
    QSet<uint8_t*> described;
    for (CKorvatinFrame* wrapper : wrappers) {
        QVERIFY(wrapper->Data() != nullptr && wrapper->BufferHandle() != nullptr);
        described.insert(wrapper->Data());
    }
    QCOMPARE(described.size(), wrappers.size());
    QCOMPARE(session->AllocatedFrameBufferCount(),
             size_t(buffers.size() + CKorvatinCameraViewlane::kSpareWrapperCount));

    session->StopGrab();
    QVERIFY(!session->IsGrabbing());
    QCOMPARE(session->RawFramesAllocated(), 0);
    for (int i = 0; i < session->RawFrameBufferCount(); ++i)
        QCOMPARE(session->RawFrame(i), nullptr);
    for (int i = 0; i < CKorvatinCameraViewlane::kSpareWrapperCount; ++i)
        QCOMPARE(session->SpareWrapper(i), nullptr);
    const CKorvatinCameraViewlane::PipelineState empty = session->Pipeline();
    QVERIFY(empty.spareRawFrames.isEmpty());
    QVERIFY(empty.grabbedRawFrames.isEmpty());
    session->DisconnectDevice();
}

void TestFramePipeline::repeatedStreamingDoesNotLeakBuffers() {
    if (kSanitizedAllocator)
        QSKIP("the sanitizer's allocator keeps freed memory; resident size says nothing here");
    CONNECT_OR_FAIL(session, QByteArray());
    // The session's buffers at the largest size, 15 of them, are about 14 MiB: a leak of one
    // cycle's buffers shows far above the allocator's noise.
    const auto cycle = [&] {
        session->StartAcquisition();
        const uint32_t start = session->grabbedFrameCount;
        QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= start + 5, 20000);
        CKorvatinFrameConverted* frame = waitForDisplayFrame(*session, 20000);
        QVERIFY(frame);
        session->ReturnDisplayFrame(frame);
        session->StopConversion();
        session->StopGrab();
    };
    for (int i = 0; i < 2; ++i)
        cycle();
    if (QTest::currentTestFailed())
        return;
    const qint64 before = ProcessKiB("VmRSS");
    QVERIFY(before > 0);
    for (int i = 0; i < 6; ++i) {
        cycle();
        if (QTest::currentTestFailed())
            return;
    }
    const qint64 after = ProcessKiB("VmRSS");
    QVERIFY2(after - before < 8 * 1024, qPrintable(QString("resident memory grew from %1 KiB to "
                                                           "%2 KiB over 6 streaming cycles")
                                                       .arg(before)
                                                       .arg(after)));
    session->DisconnectDevice();
}

void TestFramePipeline::withNoSpareFreeFramesAreRequeuedAndStillCounted() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= 5u, 20000);
    // Nothing takes grabbed frames any more: the spares run out.
    session->StopConversion();
    QTRY_COMPARE_WITH_TIMEOUT(session->Pipeline().grabbedRawFrames.size(),
                              CKorvatinCameraViewlane::kSpareWrapperCount, 20000);
    CKorvatinCameraViewlane::PipelineState state = session->Pipeline();
    QVERIFY(state.spareRawFrames.isEmpty());
    QList<uint64_t> blocks;
    for (CKorvatinFrame* frame : state.grabbedRawFrames)
        blocks.append(frame->BlockId());

    // Frames keep arriving and are counted, while the grabbed wrappers keep their images: every
    // new frame went straight back to the stream.
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= counted + 30, 20000);
    state = session->Pipeline();
    QVERIFY(state.spareRawFrames.isEmpty());
    QCOMPARE(state.grabbedRawFrames.size(), CKorvatinCameraViewlane::kSpareWrapperCount);
    QList<uint64_t> blocksAfter;
    for (CKorvatinFrame* frame : state.grabbedRawFrames)
        blocksAfter.append(frame->BlockId());
    QCOMPARE(blocksAfter, blocks);
    session->DisconnectDevice();
}

void TestFramePipeline::withDisplayOffAndNoRecordingTheReadyListNeverExceedsTwo() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    int largest = 0;
    QElapsedTimer timer;
    timer.start();
    while (session->grabbedFrameCount < 100u && timer.elapsed() < 30000) {
        const CKorvatinCameraViewlane::PipelineState state = session->Pipeline();
        largest = qMax(largest, int(state.readyConvertedFrames.size()));
        QTest::qWait(1);
    }
    QVERIFY(session->grabbedFrameCount >= 100u);
    QVERIFY2(largest <= 2, qPrintable(QString("%1 frames were ready at once").arg(largest)));
    QCOMPARE(session->ReadyConvertedFramesPeak(), 2);
    // The spares keep circulating: frames still reach the ready list.
    CKorvatinFrameConverted* first = waitForDisplayFrame(*session, 20000);
    QVERIFY(first);
    const uint64_t firstBlock = first->SourceRawFrame()->BlockId();
    session->ReturnDisplayFrame(first);
    QTRY_VERIFY_WITH_TIMEOUT(
        session->Pipeline().readyConvertedFrames.size() == 2 &&
            session->Pipeline().readyConvertedFrames.first()->SourceRawFrame()->BlockId() >
                firstBlock + 10,
        20000);
    QCOMPARE(session->ReadyConvertedFramesPeak(), 2);
    session->DisconnectDevice();
}

void TestFramePipeline::stopGrabWhileGetFrameWaitsReturnsAfterOneTimeOut() {
    const int timeoutMs = 1500;
    CONNECT_OR_FAIL(session, QByteArray("[host]\ngetFrameTimeout=1500\n"));
    QCOMPARE(session->GetFrameTimeout(), timeoutMs);
    session->StartGrab();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= 3u, 20000);
    // Waiting for a trigger, the camera sends nothing more: the grab thread waits in GetFrame.
    session->SetEnumByString("TriggerMode", "On");
    // The frames already on their way arrive within a few milliseconds; once the count has stood
    // still for a tenth of the time-out, the thread is in a wait that started with the last one.
    uint32_t count = session->grabbedFrameCount;
    QElapsedTimer sinceLastFrame;
    sinceLastFrame.start();
    while (sinceLastFrame.elapsed() < timeoutMs / 10) {
        QTest::qWait(1);
        if (session->grabbedFrameCount != count) {
            count = session->grabbedFrameCount;
            sinceLastFrame.restart();
        }
    }
    QElapsedTimer stopping;
    stopping.start();
    session->StopGrab();
    const qint64 stopMs = stopping.elapsed();
    const qint64 waitedMs = sinceLastFrame.elapsed();
    QVERIFY(!session->IsGrabbing());
    QCOMPARE(session->grabbedFrameCount.load(), count);
    // StopGrab did not cut the wait short: it returned when the wait reached its time-out.
    QVERIFY2(waitedMs >= timeoutMs - 50,
             qPrintable(QString("returned %1 ms after the last frame").arg(waitedMs)));
    QVERIFY2(stopMs >= timeoutMs / 2,
             qPrintable(QString("StopGrab returned after %1 ms").arg(stopMs)));
    QVERIFY2(stopMs <= timeoutMs + 1000, qPrintable(QString("StopGrab took %1 ms").arg(stopMs)));
    session->SetEnumByString("TriggerMode", "Off");
}

void TestFramePipeline::bufferWithoutMemoryFallsBackTo7920x6004BayerGR8AndThePoolShrinksSilently() {
    if (kSanitizedAllocator)
        QSKIP("the sanitizer's allocator ends the process instead of failing an allocation");
    // RGB10Packed frames of the largest 4096 x 3072 image take 72 MiB each; the fallback size
    // 7920 x 6004 BayerGR8 takes 45 MiB. With about 64 MiB of address space left, the first
    // buffer fails at the camera's size (12: no memory) and is had at the fallback size; the next
    // fails at both, which ends the pool silently. The converted holders (72 MiB each) then
    // cannot be had either.
    SimulatorProcess large;
    QString error;
    QVERIFY2(large.startCamsim({"--address", "127.0.5.22", "--width", "4096", "--height", "3072"}),
             qPrintable(large.errorString()));
    QFile settingsFile(fixture_.tempPath("large.ini"));
    QVERIFY(settingsFile.open(QIODevice::WriteOnly));
    settingsFile.write("[resource]\nmaxBitsPerPixel=48\n");
    settingsFile.close();
    CAppSettings settings(settingsFile.fileName());
    CKorvatinCameraViewlane session(settings);
    QCOMPARE(session.DisplayPixelType(), CKorvatinCameraViewlane::kPixelRGB10Packed);
    session.ConnectDevice(LoopbackDevice("127.0.5.22"));
    DisconnectAtEnd guard{&session};
    QCOMPARE(session.MaxWidth(), 4096u);
    QCOMPARE(session.MaxHeight(), 3072u);

    QString thrown;
    {
        AddressSpaceLimit limit(64ll * 1024 * 1024);
        QVERIFY(limit.applied());
        try {
            session.StartAcquisition();
        } catch (const CKorvatinException& e) {
            thrown = e.what();
        }
    }
    QCOMPARE(thrown, QString("fail to allocate memory."));
    for (int i = 0; i < CKorvatinCameraViewlane::kConvertedFrameCount; ++i)
        QCOMPARE(session.ConvertedFrame(i), nullptr);
    QVERIFY(!session.IsConverting());
    // The grab side runs with what it obtained: one buffer, at the fallback size.
    QVERIFY(session.IsGrabbing());
    QCOMPARE(session.RawFramesAllocated(), 1);
    QCOMPARE(session.RawFrame(0)->Width(), CKorvatinCameraViewlane::kFallbackWidth);
    QCOMPARE(session.RawFrame(0)->Height(), CKorvatinCameraViewlane::kFallbackHeight);
    QCOMPARE(session.RawFrame(0)->PixelType(), CKorvatinCameraViewlane::kPixelBayerGR8);
    QVERIFY(session.RawFrame(0)->BufferSize() >= size_t(7920) * 6004);
    QCOMPARE(session.RawFrame(1), nullptr);
    session.DisconnectDevice();
    QCOMPARE(session.RawFramesAllocated(), 0);
}

void TestFramePipeline::startGrabTwiceFails() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    try {
        session->StartGrab();
        QFAIL("a second StartGrab did not fail");
    } catch (const CKorvatinException& e) {
        QCOMPARE(QString(e.what()),
                 QString("GrabThread started already. Stop it before restarting."));
        QCOMPARE(e.Code(), QRN_ERR_SESSION);
    }
    // The running stream is untouched.
    const uint32_t counted = session->grabbedFrameCount;
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount > counted + 5, 20000);
    session->DisconnectDevice();
}

void TestFramePipeline::disconnectDeviceStopsBothThreadsAndReleasesEverything() {
    CONNECT_OR_FAIL(session, QByteArray());
    session->StartAcquisition();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= 5u, 20000);
    session->DisconnectDevice();
    QVERIFY(!session->IsGrabbing());
    QVERIFY(!session->IsConverting());
    QVERIFY(!session->IsConnected());
    QCOMPARE(session->RawFramesAllocated(), 0);
    for (int i = 0; i < CKorvatinCameraViewlane::kConvertedFrameCount; ++i)
        QCOMPARE(session->ConvertedFrame(i), nullptr);
    const CKorvatinCameraViewlane::PipelineState state = session->Pipeline();
    QVERIFY(state.spareRawFrames.isEmpty() && state.grabbedRawFrames.isEmpty() &&
            state.freeConvertedFrames.isEmpty() && state.readyConvertedFrames.isEmpty());
    // The same session streams again after the next connect.
    QString error;
    session->ConnectDevice(LoopbackDevice(kAddress));
    session->SetUInt32("FrameRate", kFrameRate);
    session->StartAcquisition();
    QTRY_VERIFY_WITH_TIMEOUT(session->grabbedFrameCount >= 5u, 20000);
    session->DisconnectDevice();
}

void TestFramePipeline::destroyingARunningThreadEndsTheProcessWithItsMessage_data() {
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("started");
    QTest::addColumn<QString>("message");
    // A camera each: the ended process keeps control of its camera until the heartbeat runs out.
    // The session's members go in reverse order: the conversion thread before the grab thread.
    QTest::newRow("grab thread") << "127.0.5.24"
                                 << "grab"
                                 << "GrabThread has not Stopped.";
    QTest::newRow("conversion thread") << "127.0.5.25"
                                       << "acquisition"
                                       << "AviRecordingThread has not Stopped.";
}

void TestFramePipeline::destroyingARunningThreadEndsTheProcessWithItsMessage() {
    QFETCH(QString, address);
    QFETCH(QString, started);
    QFETCH(QString, message);
    SimulatorProcess camera;
    QVERIFY2(camera.startCamsim({"--address", address, "--width", "320", "--height", "240"}),
             qPrintable(camera.errorString()));
    QProcess probe;
    probe.start(QCoreApplication::applicationDirPath() + "/viewlane-thread-teardown-probe",
                {address, started});
    QVERIFY2(probe.waitForFinished(30000), "the probe did not end");
    const QString out = QString::fromLocal8Bit(probe.readAllStandardOutput());
    const QString err = QString::fromLocal8Bit(probe.readAllStandardError());
    QVERIFY2(out.contains("streaming"), qPrintable(out + err));
    QVERIFY2(!out.contains("session destroyed"), qPrintable(out));
    QCOMPARE(probe.exitStatus(), QProcess::CrashExit);
    QVERIFY2(err.contains(message), qPrintable(err));
}

QTEST_GUILESS_MAIN(TestFramePipeline)
#include "tst_framepipeline.moc"
