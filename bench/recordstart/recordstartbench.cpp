// Recording start benchmark: how many frames the camera session loses while a recording starts.
//
// The session streams 2048 x 2048 Mono8 at FrameRate 60 with the viewer's default settings; a
// stand-in for the display takes the oldest ready frame and gives the previous one back 60 times
// a second. Each round lets the stream run steadily, then starts a recording of a few frames and
// waits for its frame limit to end it. Frames lost by the application are those the grab thread
// received while no spare wrapper was free (framesWithoutSpare): counted from StartRecording's
// call until the recording ends, and for comparison over a steady stretch of the same length
// without a recording start.
#include "appsettings.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"

#include <korvatin/korvatinexception.h>

#include <QCoreApplication>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Takes display frames as the main window's display tick does.
class DisplayStandIn {
public:
    explicit DisplayStandIn(CKorvatinCameraViewlane& session) : session_(session) {}
    ~DisplayStandIn() {
        if (shown_)
            session_.ReturnDisplayFrame(shown_);
    }
    // Runs ticks at 60 Hz until `done` says so.
    template <typename Done> void RunUntil(Done done) {
        const auto tick = std::chrono::microseconds(16667);
        auto next = Clock::now();
        while (!done()) {
            if (CKorvatinFrameConverted* frame = session_.TakeDisplayFrame()) {
                if (shown_)
                    session_.ReturnDisplayFrame(shown_);
                shown_ = frame;
            }
            next += tick;
            std::this_thread::sleep_until(next);
        }
    }

private:
    CKorvatinCameraViewlane& session_;
    CKorvatinFrameConverted* shown_ = nullptr;
};

int run(const char* address, const std::string& workDir, int rounds, int frames) {
    QTemporaryDir dir;
    // Every key keeps the viewer's default (10 stream buffers, display type from 24 bits).
    CAppSettings settings(dir.filePath("settings.ini"));
    auto session = std::make_unique<CKorvatinCameraViewlane>(settings);
    session->ConnectDevice(LoopbackDevice(address));
    session->SetEnumByString("PixelFormat", "Mono8");
    session->SetUInt32("FrameRate", 60);
    session->StartAcquisition();
    int status = 0;
    {
        DisplayStandIn display(*session);
        std::printf("2048 x 2048 Mono8 at 60 frames/s; %d recordings of %d frames each\n", rounds,
                    frames);
        std::printf(" round  start call ms  recording ms  lost while starting  lost in as long "
                    "without a start\n");
        long lostStarting = 0, lostSteady = 0;
        double callMsTotal = 0;
        for (int round = 1; round <= rounds; ++round) {
            // Steady streaming first; its loss over the recording's length is the yardstick.
            const auto settle = Clock::now() + std::chrono::seconds(1);
            display.RunUntil([&] { return Clock::now() >= settle; });

            const std::string file = workDir + "/start-" + std::to_string(round) + ".avi";
            const uint32_t before = session->framesWithoutSpare;
            const auto started = Clock::now();
            session->StartRecording(file.c_str(), CKorvatinCameraViewlane::kBayerNone, frames);
            const double callMs =
                std::chrono::duration<double, std::milli>(Clock::now() - started).count();
            display.RunUntil([&] { return !session->IsRecording(); });
            const auto recordingTime = Clock::now() - started;
            const uint32_t lostWhileStarting = session->framesWithoutSpare - before;
            std::remove(file.c_str());

            const uint32_t steadyBefore = session->framesWithoutSpare;
            const auto steadyEnd = Clock::now() + recordingTime;
            display.RunUntil([&] { return Clock::now() >= steadyEnd; });
            const uint32_t lostSteadily = session->framesWithoutSpare - steadyBefore;

            std::printf("%6d  %13.2f  %12.1f  %19u  %u\n", round, callMs,
                        std::chrono::duration<double, std::milli>(recordingTime).count(),
                        lostWhileStarting, lostSteadily);
            lostStarting += lostWhileStarting;
            lostSteady += lostSteadily;
            callMsTotal += callMs;
        }
        std::printf("RESULT recording start: %ld frames lost in %d starts (%.2f per start), %ld in "
                    "as long without a start; StartRecording took %.2f ms on average\n",
                    lostStarting, rounds, double(lostStarting) / rounds, lostSteady,
                    callMsTotal / rounds);
        std::printf("frames received: %u, dropped by the stream: %u\n",
                    session->grabbedFrameCount.load(), session->GetDroppedFrameCount());
    }
    session->DisconnectDevice();
    return status;
}

} // namespace

// Usage: korvatin-recordstart-bench ADDRESS WORK_DIR [ROUNDS] [FRAMES]
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fputs("Usage: korvatin-recordstart-bench ADDRESS WORK_DIR [ROUNDS] [FRAMES]\n",
                   stderr);
        return 2;
    }
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 10;
    const int frames = argc > 4 ? std::atoi(argv[4]) : 20;
    try {
        return run(argv[1], argv[2], rounds > 0 ? rounds : 10, frames > 0 ? frames : 20);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "korvatin-recordstart-bench: %s\n", e.what());
        return 1;
    }
}
