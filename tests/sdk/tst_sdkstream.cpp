// The SDK's stream against korvatin-camsim and Aravis' fake camera: buffers, frames, losses.
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>

#include <QElapsedTimer>
#include <QtTest>

#include <atomic>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kMono12Packed = 0x010C0006;
constexpr uint32_t kRgb10Packed = 0x02300018;
constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

// Sanitizer run-times end the process on an allocation they cannot serve instead of failing it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
constexpr bool kSanitizer = true;
#else
constexpr bool kSanitizer = false;
#endif
#else
constexpr bool kSanitizer = false;
#endif

bool discover(const char* address, GigEVisionDeviceInfo* device) {
    GigEVisionDeviceInfo found[8];
    ListDevicesSettings settings{};
    settings.timeoutMs = 300;
    settings.broadcast = 1;
    unsigned int count = 0;
    CKorvatinCamera::ListDevices(found, 8, &count, &settings);
    for (unsigned int i = 0; i < count; ++i)
        if (std::strcmp(found[i].currentIp, address) == 0) {
            *device = found[i];
            return true;
        }
    return false;
}

// Stream buffers for the camera's current image, handed to the stream.
struct BufferSet {
    explicit BufferSet(CKorvatinCamera& camera) : camera_(camera) {}
    ~BufferSet() {
        for (auto& frame : frames)
            if (frame->BufferHandle() != nullptr)
                camera_.ReleaseFrameBuffer(frame.get());
    }
    bool allocate(int count, uint32_t width, uint32_t height, uint32_t pixelType) {
        for (int i = 0; i < count; ++i) {
            auto frame = std::make_unique<CKorvatinFrame>();
            frame->SetWidth(width);
            frame->SetHeight(height);
            frame->SetPixelType(pixelType);
            if (camera_.AllocateFrameBuffer(frame.get(), 1) != QRN_OK)
                return false;
            frames.push_back(std::move(frame));
        }
        return true;
    }
    bool queueAll() {
        for (auto& frame : frames)
            if (camera_.QueueFrame(frame.get()) != QRN_OK)
                return false;
        return true;
    }
    CKorvatinCamera& camera_;
    std::vector<std::unique_ptr<CKorvatinFrame>> frames;
};

// korvatin-camsim's Mono8 ramp: every pixel is the top-left level plus x plus y, mod 256.
bool isRamp(const CKorvatinFrame& frame) {
    const uint8_t* data = frame.Data();
    const uint8_t origin = data[0];
    for (uint32_t y = 0; y < frame.Height(); ++y)
        for (uint32_t x = 0; x < frame.Width(); ++x)
            if (data[size_t(y) * frame.Stride() + x] != uint8_t(origin + x + y))
                return false;
    return true;
}

// The next block id after `id` for a camera with 16-bit ids (which skip 0).
uint64_t nextBlockId(uint64_t id) {
    return id >= 0xFFFF ? 1 : id + 1;
}

// Receives `count` frames from a running stream, queueing each again at once; every one must be
// whole (the simulator's ramp). Appends their block ids and notes the buffers they came in.
// False at the first frame that does not arrive within 3 s, is not whole or cannot be queued.
bool receiveWhole(CKorvatinCamera& camera, int count, std::vector<uint64_t>* ids,
                  std::set<void*>* handles = nullptr) {
    CKorvatinFrame received;
    for (int i = 0; i < count; ++i) {
        if (camera.GetFrame(&received, 3000) != QRN_OK || !isRamp(received))
            return false;
        ids->push_back(received.BlockId());
        if (handles)
            handles->insert(received.BufferHandle());
        if (camera.QueueFrame(&received) != QRN_OK)
            return false;
    }
    return true;
}

// Block ids missing between consecutive ids of `ids`, and the number of runs they form.
struct Gaps {
    uint64_t missing = 0;
    uint64_t runs = 0;
};
Gaps gapsIn(const std::vector<uint64_t>& ids) {
    Gaps gaps;
    for (size_t i = 1; i < ids.size(); ++i) {
        uint64_t expected = nextBlockId(ids[i - 1]), missing = 0;
        while (expected != ids[i] && missing < 1000) {
            ++missing;
            expected = nextBlockId(expected);
        }
        gaps.missing += missing;
        gaps.runs += missing > 0 ? 1 : 0;
    }
    return gaps;
}

} // namespace

class TestSdkStream : public QObject {
    Q_OBJECT

private:
    SimulatorProcess camsim_;
    GigEVisionDeviceInfo device_{};

    void connect(CKorvatinCamera& camera) {
        camera.Connect(device_, nullptr);
        camera.SetUInt32("Width", kWidth);
        camera.SetUInt32("Height", kHeight);
        camera.SetEnumByString("PixelFormat", "Mono8");
    }

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for the simulator (run through ctest as "
                  "root)");
        if (!QFile::exists(TestNetwork::binDir() + "/korvatin-camsim"))
            QSKIP("korvatin-camsim is not built in this tree");
        QVERIFY2(camsim_.startCamsim({"--address", "127.0.0.121"}),
                 qPrintable(camsim_.errorString()));
        QVERIFY(discover("127.0.0.121", &device_));
    }

    void updateFrameDescribesTheSameBufferWithoutCopying() {
        CKorvatinCamera camera;
        CKorvatinFrame frame;
        frame.SetWidth(16);
        frame.SetHeight(4);
        frame.SetPixelType(kMono8);
        QCOMPARE(camera.AllocateFrameBuffer(&frame, 0), QRN_OK);
        CKorvatinFrame copy;
        copy.SetConversionAttributes(3, 4);
        copy.UpdateFrame(frame);
        QCOMPARE(copy.Data(), frame.Data());
        QCOMPARE(copy.Width(), 16u);
        QCOMPARE(copy.Height(), 4u);
        QCOMPARE(copy.PixelType(), kMono8);
        QCOMPARE(copy.Stride(), 16u);
        QCOMPARE(copy.DataSize(), size_t(64));
        QCOMPARE(copy.BufferSize(), size_t(64));
        QCOMPARE(copy.BufferHandle(), frame.BufferHandle());
        QCOMPARE(copy.ConversionAttribute(0), 3u);
        QCOMPARE(copy.ConversionAttribute(1), 4u);
        QCOMPARE(camera.ReleaseFrameBuffer(&frame), QRN_OK);
        QVERIFY(frame.Data() == nullptr);
        // The copy still names the released buffer: it is refused, not freed twice.
        QCOMPARE(camera.ReleaseFrameBuffer(&copy), QRN_ERR_INVALID);
    }

    void conversionBuffersAreSizedFromThePixelType() {
        CKorvatinCamera camera;
        const struct {
            uint32_t pixelType;
            size_t bytes;
            uint32_t stride;
        } cases[] = {{kMono8, 1000, 100}, {kRgb8, 3000, 300}, {kMono12Packed, 1500, 150}};
        for (const auto& c : cases) {
            CKorvatinFrame frame;
            frame.SetWidth(100);
            frame.SetHeight(10);
            frame.SetPixelType(c.pixelType);
            QCOMPARE(camera.AllocateFrameBuffer(&frame, 0), QRN_OK);
            QCOMPARE(frame.BufferSize(), c.bytes);
            QCOMPARE(frame.Stride(), c.stride);
            std::memset(frame.Data(), 0xA5, frame.BufferSize());
            QCOMPARE(camera.ReleaseFrameBuffer(&frame), QRN_OK);
        }
        CKorvatinFrame empty;
        QCOMPARE(camera.AllocateFrameBuffer(&empty, 0), QRN_ERR_INVALID);
        QCOMPARE(camera.AllocateFrameBuffer(&empty, 7), QRN_ERR_INVALID);
    }

    void memoryThatCannotBeHadIsError12() {
        if (kSanitizer)
            QSKIP("a sanitizer's allocator ends the process on an allocation it cannot serve");
        CKorvatinCamera camera;
        CKorvatinFrame frame;
        frame.SetWidth(65535);
        frame.SetHeight(65535);
        frame.SetPixelType(kRgb10Packed); // 48 bits a pixel: about 25 GB, more than the machine
        QCOMPARE(camera.AllocateFrameBuffer(&frame, 0), QRN_ERR_NO_MEMORY);
        QCOMPARE(camera.AllocateFrameBuffer(&frame, 1), QRN_ERR_NO_MEMORY);
        QVERIFY(frame.Data() == nullptr);
    }

    void streamBuffersHoldThePayload() {
        CKorvatinCamera camera;
        connect(camera);
        const uint32_t payload = camera.GetUInt32("PayloadSize");
        QCOMPARE(payload, kWidth * kHeight);
        CKorvatinFrame small;
        small.SetWidth(8);
        small.SetHeight(8);
        small.SetPixelType(kMono8);
        QCOMPARE(camera.AllocateFrameBuffer(&small, 1), QRN_OK);
        QCOMPARE(small.BufferSize(), size_t(payload));
        QCOMPARE(camera.ReleaseFrameBuffer(&small), QRN_OK);
        CKorvatinFrame large;
        large.SetWidth(kWidth * 2);
        large.SetHeight(kHeight);
        large.SetPixelType(kRgb8);
        QCOMPARE(camera.AllocateFrameBuffer(&large, 1), QRN_OK);
        QCOMPARE(large.BufferSize(), size_t(kWidth * 2 * kHeight * 3));
        QCOMPARE(camera.ReleaseFrameBuffer(&large), QRN_OK);
    }

    void streamsCompleteFramesInOrder() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 50);
        const uint32_t payload = camera.GetUInt32("PayloadSize");
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(4, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        camera.ClearDroppedFrameCount();
        CKorvatinFrame received;
        uint64_t previous = 0;
        for (int i = 0; i < 40; ++i) {
            QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
            QCOMPARE(received.Width(), kWidth);
            QCOMPARE(received.Height(), kHeight);
            QCOMPARE(received.PixelType(), kMono8);
            QCOMPARE(received.Stride(), kWidth);
            QCOMPARE(received.DataSize(), size_t(payload));
            QVERIFY(received.BufferSize() >= payload);
            QVERIFY(received.BufferHandle() != nullptr);
            QVERIFY(isRamp(received));
            if (i > 0)
                QCOMPARE(received.BlockId(), nextBlockId(previous));
            previous = received.BlockId();
            QCOMPARE(camera.QueueFrame(&received), QRN_OK);
        }
        QCOMPARE(camera.GetDroppedFrameCount(), 0u);
        QCOMPARE(camera.StopStream(), QRN_OK);
    }

    // Over loopback the test packets of a large size arrive, so the stream does not stay at
    // the camera's start-up packet size.
    void startStreamNegotiatesThePacketSize() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("GevSCPSPacketSize", 1500);
        const uint32_t before = camera.GetUInt32("GevSCPSPacketSize");
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        const uint32_t negotiated = camera.GetUInt32("GevSCPSPacketSize");
        QCOMPARE(camera.StopStream(), QRN_OK);
        QVERIFY2(negotiated > before && negotiated > 8000,
                 qPrintable(QString("packet size %1 -> %2").arg(before).arg(negotiated)));
    }

    void aFrameQueuedTwiceIsRefused() {
        CKorvatinCamera camera;
        connect(camera);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(1, kWidth, kHeight, kMono8));
        QCOMPARE(camera.QueueFrame(buffers.frames[0].get()), QRN_OK);
        QCOMPARE(camera.QueueFrame(buffers.frames[0].get()), QRN_ERR_INVALID);
        CKorvatinFrame conversion;
        conversion.SetWidth(4);
        conversion.SetHeight(4);
        conversion.SetPixelType(kMono8);
        QCOMPARE(camera.AllocateFrameBuffer(&conversion, 0), QRN_OK);
        QCOMPARE(camera.QueueFrame(&conversion), QRN_ERR_INVALID);
        QCOMPARE(camera.ReleaseFrameBuffer(&conversion), QRN_OK);
        CKorvatinFrame nothing;
        QCOMPARE(camera.QueueFrame(&nothing), QRN_ERR_INVALID);
        // Queued before the stream started: the stream gets it when it starts.
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        QCOMPARE(received.BufferHandle(), buffers.frames[0]->BufferHandle());
        QCOMPARE(camera.StopStream(), QRN_OK);
    }

    void lostPacketsAreResentOrCounted() {
        SimulatorProcess lossy;
        QVERIFY2(lossy.startCamsim({"--address", "127.0.0.122", "--lost-ratio", "100"}),
                 qPrintable(lossy.errorString()));
        GigEVisionDeviceInfo device{};
        QVERIFY(discover("127.0.0.122", &device));
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        camera.SetUInt32("Width", kWidth);
        camera.SetUInt32("Height", kHeight);
        camera.SetEnumByString("PixelFormat", "Mono8");
        camera.SetUInt32("FrameRate", 30);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(6, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        camera.ClearDroppedFrameCount();
        std::vector<uint64_t> ids;
        // Whatever is handed out is whole: every packet arrived or was resent.
        QVERIFY(receiveWhole(camera, 30, &ids));
        const uint32_t dropped = camera.GetDroppedFrameCount();
        const uint64_t resent = camera.GetResentPacketCount();
        QCOMPARE(camera.StopStream(), QRN_OK);
        // Every block id missing among the images received is one lost image, whether it was
        // closed incomplete or never found a buffer; so are the ids before the first one (the
        // simulator is new, its ids start at 1).
        const Gaps gaps = gapsIn(ids);
        qInfo("%u images dropped; %llu block ids missing in %llu runs; %llu packets resent",
              dropped, static_cast<unsigned long long>(gaps.missing),
              static_cast<unsigned long long>(gaps.runs), static_cast<unsigned long long>(resent));
        QCOMPARE(uint64_t(dropped), gaps.missing + ids.front() - 1);
        QVERIFY(resent > 0);
        QVERIFY(ids.size() == 30);
    }

    // Frames that arrive while the stream has no buffer are lost one by one, and each counts:
    // a run of them is not one drop.
    void framesLostWithoutABufferAreEachCounted() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 100);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(3, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        camera.ClearDroppedFrameCount();
        // Nothing is received until the camera has sent far more frames than the three buffers
        // hold.
        const uint32_t sentBefore = camera.GetUInt32("FrameCounter");
        QTRY_VERIFY_WITH_TIMEOUT(camera.GetUInt32("FrameCounter") >= sentBefore + 15, 10000);
        std::vector<uint64_t> ids;
        QVERIFY(receiveWhole(camera, 10, &ids));
        const uint32_t dropped = camera.GetDroppedFrameCount();
        QCOMPARE(camera.StopStream(), QRN_OK);
        const Gaps gaps = gapsIn(ids);
        QVERIFY2(gaps.missing >= 10, qPrintable(QString("%1 missing").arg(gaps.missing)));
        QCOMPARE(uint64_t(dropped), gaps.missing);
    }

    // A caller that keeps most of its buffers out of the stream (as the viewer keeps its spare
    // frames) still has as many in the stream as it allocated: the channel adds buffers of its
    // own, hands them out like the others, and frees them with the caller's last buffer.
    void buffersHeldOutOfTheStreamAreMadeUpFor() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 100);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(8, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        // Only two of the eight are queued; the caller holds six.
        QCOMPARE(camera.QueueFrame(buffers.frames[0].get()), QRN_OK);
        QCOMPARE(camera.QueueFrame(buffers.frames[1].get()), QRN_OK);
        camera.ClearDroppedFrameCount();
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 3000), QRN_OK);
        // Six stand-ins joined the stream at the first wait.
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(14));
        QCOMPARE(camera.QueueFrame(&received), QRN_OK);
        // The stream now holds eight buffers: without receiving, it takes eight frames and no
        // more.
        const uint32_t sentBefore = camera.GetUInt32("FrameCounter");
        QTRY_VERIFY_WITH_TIMEOUT(camera.GetUInt32("FrameCounter") >= sentBefore + 20, 10000);
        std::set<void*> handles;
        std::vector<uint64_t> ids;
        QVERIFY(receiveWhole(camera, 9, &ids, &handles));
        // The first eight came one after the other, then a gap: the frames sent while all eight
        // were full.
        ids.pop_back();
        QCOMPARE(gapsIn(ids).missing, uint64_t(0));
        QCOMPARE(handles.size(), size_t(8));
        // No more stand-ins were made: the caller holds as many as before.
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(14));
        QCOMPARE(camera.StopStream(), QRN_OK);
        // The last buffer of the caller takes the stand-ins with it.
        for (auto& frame : buffers.frames)
            QCOMPARE(camera.ReleaseFrameBuffer(frame.get()), QRN_OK);
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(0));
        QCOMPARE(camera.QueueFrame(&received), QRN_ERR_INVALID);
    }

    void getFrameWithoutAStreamTimesOut() {
        CKorvatinCamera camera;
        CKorvatinFrame frame;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(camera.GetFrame(&frame, 300), QRN_ERR_TIMEOUT);
        QVERIFY2(timer.elapsed() >= 290 && timer.elapsed() < 1500,
                 qPrintable(QString::number(timer.elapsed())));

        connect(camera);
        timer.restart();
        QCOMPARE(camera.GetFrame(&frame, 300), QRN_ERR_TIMEOUT);
        QVERIFY2(timer.elapsed() >= 290 && timer.elapsed() < 1500,
                 qPrintable(QString::number(timer.elapsed())));

        // Streaming, but no buffer to fill.
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        timer.restart();
        QCOMPARE(camera.GetFrame(&frame, 300), QRN_ERR_TIMEOUT);
        QVERIFY2(timer.elapsed() >= 290 && timer.elapsed() < 1500,
                 qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(camera.StopStream(), QRN_OK);
        QVERIFY(frame.Data() == nullptr);
    }

    void buffersReleasedWhileQueuedAreFreedSafely() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 100);
        std::vector<std::unique_ptr<CKorvatinFrame>> frames;
        for (int i = 0; i < 6; ++i) {
            auto frame = std::make_unique<CKorvatinFrame>();
            frame->SetWidth(kWidth);
            frame->SetHeight(kHeight);
            frame->SetPixelType(kMono8);
            QCOMPARE(camera.AllocateFrameBuffer(frame.get(), 1), QRN_OK);
            frames.push_back(std::move(frame));
        }
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        for (auto& frame : frames)
            QCOMPARE(camera.QueueFrame(frame.get()), QRN_OK);
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        // Released while the stream holds them (all but the received one), and the stream
        // keeps running: the freed buffers must never come back out.
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(6));
        for (auto& frame : frames)
            QCOMPARE(camera.ReleaseFrameBuffer(frame.get()), QRN_OK);
        QCOMPARE(camera.ReleaseFrameBuffer(&received), QRN_ERR_INVALID);
        QCOMPARE(camera.QueueFrame(&received), QRN_ERR_INVALID);
        QCOMPARE(camera.GetFrame(&received, 300), QRN_ERR_TIMEOUT);
        // The received one was freed at once; the stream may still hold the others until it
        // closes.
        QVERIFY(camera.AllocatedFrameBufferCount() <= 5);
        QCOMPARE(camera.StopStream(), QRN_OK);
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(0));

        // Released while queued after the stream stopped; then a stream restarted with new
        // buffers still works.
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        BufferSet again(camera);
        QVERIFY(again.allocate(3, kWidth, kHeight, kMono8));
        QVERIFY(again.queueAll());
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        QVERIFY(isRamp(received));
        QCOMPARE(camera.StopStream(), QRN_OK);
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(3));
        for (auto& frame : again.frames)
            QCOMPARE(camera.ReleaseFrameBuffer(frame.get()), QRN_OK);
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(0));
    }

    void disconnectStopsARunningStream() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 100);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(4, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        camera.Disconnect();
        QVERIFY(!camera.IsConnected());
        QCOMPARE(camera.GetFrame(&received, 200), QRN_ERR_TIMEOUT);
        // The same device streams again on a new connection, with the same buffers.
        connect(camera);
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        QVERIFY(isRamp(received));
        QCOMPARE(camera.StopStream(), QRN_OK);
    }

    void aGrabThreadSurvivesStopReleaseAndDisconnect() {
        CKorvatinCamera camera;
        connect(camera);
        camera.SetUInt32("FrameRate", 200);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(5, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        std::atomic<bool> running{true};
        std::atomic<int> received{0}, broken{0};
        // Pixels are checked until the buffers are released under the thread's feet: after
        // that a received frame may describe freed memory, which only the counts may touch.
        std::atomic<bool> checkPixels{true};
        std::atomic<int> turns{0};
        // The grab thread: receive, check, hand the buffer back, as the application does.
        std::thread grab([&] {
            CKorvatinFrame frame;
            for (; running.load(); ++turns) {
                if (camera.GetFrame(&frame, 100) != QRN_OK)
                    continue;
                if (checkPixels.load() && !isRamp(frame))
                    ++broken;
                ++received;
                camera.QueueFrame(&frame);
            }
        });
        QTRY_VERIFY_WITH_TIMEOUT(received.load() >= 20, 5000);
        // Stopped and restarted under the grab thread's feet.
        QCOMPARE(camera.StopStream(), QRN_OK);
        const int atStop = received.load();
        QTest::qWait(300);
        QVERIFY(received.load() <= atStop + 1);
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QTRY_VERIFY_WITH_TIMEOUT(received.load() >= atStop + 20, 5000);
        // Buffers released while the grab thread may hold or queue them.
        checkPixels = false;
        const int turnsBefore = turns.load();
        QTRY_VERIFY_WITH_TIMEOUT(turns.load() >= turnsBefore + 2, 5000);
        for (auto& frame : buffers.frames)
            QCOMPARE(camera.ReleaseFrameBuffer(frame.get()), QRN_OK);
        QTest::qWait(200);
        const int afterRelease = received.load();
        QTest::qWait(300);
        QVERIFY(received.load() <= afterRelease + 1);
        camera.Disconnect();
        running = false;
        grab.join();
        QCOMPARE(broken.load(), 0);
        QCOMPARE(camera.AllocatedFrameBufferCount(), size_t(0));
    }

    void aCameraThatIsGoneStopsQuickly() {
        SimulatorProcess doomed;
        QVERIFY2(doomed.startCamsim({"--address", "127.0.0.124"}),
                 qPrintable(doomed.errorString()));
        GigEVisionDeviceInfo device{};
        QVERIFY(discover("127.0.0.124", &device));
        CKorvatinCamera camera;
        std::atomic<bool> lost{false};
        camera.SetConnectionCallBackFunc(
            [](void* context, void*) { static_cast<std::atomic<bool>*>(context)->store(true); },
            &lost);
        camera.Connect(device, nullptr);
        camera.SetUInt32("Width", kWidth);
        camera.SetUInt32("Height", kHeight);
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(3, kWidth, kHeight, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        CKorvatinFrame received;
        QCOMPARE(camera.GetFrame(&received, 2000), QRN_OK);
        doomed.kill();
        QTRY_VERIFY_WITH_TIMEOUT(lost.load(), 10000);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(camera.StopStream(), QRN_OK);
        camera.Disconnect();
        qInfo("stopped and disconnected in %lld ms", static_cast<long long>(timer.elapsed()));
        QVERIFY2(timer.elapsed() < 1500, qPrintable(QString::number(timer.elapsed())));
    }

    void streamsFromAravisFakeCamera() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.123", "FAKE0123"), qPrintable(fake.errorString()));
        GigEVisionDeviceInfo device{};
        QVERIFY(discover("127.0.0.123", &device));
        CKorvatinCamera camera;
        camera.Connect(device, nullptr);
        const uint32_t width = camera.GetUInt32("Width");
        const uint32_t height = camera.GetUInt32("Height");
        const uint32_t payload = camera.GetUInt32("PayloadSize");
        BufferSet buffers(camera);
        QVERIFY(buffers.allocate(4, width, height, kMono8));
        QCOMPARE(camera.StartStream(nullptr), QRN_OK);
        QVERIFY(buffers.queueAll());
        camera.ClearDroppedFrameCount();
        CKorvatinFrame received;
        uint64_t previous = 0;
        for (int i = 0; i < 10; ++i) {
            QCOMPARE(camera.GetFrame(&received, 3000), QRN_OK);
            QCOMPARE(received.Width(), width);
            QCOMPARE(received.Height(), height);
            QCOMPARE(received.PixelType(), kMono8);
            QCOMPARE(received.DataSize(), size_t(payload));
            if (i > 0)
                QVERIFY(received.BlockId() > previous || received.BlockId() < 16);
            previous = received.BlockId();
            QCOMPARE(camera.QueueFrame(&received), QRN_OK);
        }
        QCOMPARE(camera.GetDroppedFrameCount(), 0u);
        QCOMPARE(camera.StopStream(), QRN_OK);
    }
};

QTEST_GUILESS_MAIN(TestSdkStream)
#include "tst_sdkstream.moc"
