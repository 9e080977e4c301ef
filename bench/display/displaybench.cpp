// Display-path benchmark: the live-image widget's cost per 2448 x 2048 frame, split into its
// steps as far as they can be timed from outside ("paint"), and the display and capture rates
// with the camera session, the precise display timer and the widget running as in the main
// window ("live").
#include "../lib/cputime.h"
#include "../lib/livedisplay.h"
#include "appsettings.h"
#include "displaytimerprecise.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"
#include "qframesplittercentral.h"
#include "qwidgetgrabbedframe.h"

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinframe.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kWidth = 2448;
constexpr uint32_t kHeight = 2048;
constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kBayerRG8 = 0x01080009;
// The main window's display intervals by index; index 0 is the "60 fps" choice.
constexpr uint32_t kDisplayIntervalsMs[3] = {10, 30, 50};

struct Options {
    std::string mode;
    std::string address;
    std::string pixelFormat = "Mono8";
    uint32_t bayerMode = 0;
    int rounds = 60;
    double seconds = 30;
    double warmupSeconds = 5;
    int areaWidth = 1190; // the main window's central area on a 1920 x 1080 screen, about
    int areaHeight = 950;
    uint32_t intervalIndex = 0;
    int average = 1;
    int contrast = 0;
};

void usage() {
    std::fprintf(
        stderr, "usage: korvatin-display-bench paint [--rounds N] [--area WxH]\n"
                "       korvatin-display-bench live ADDRESS [--pixel-format NAME] [--bayer 0|1|3]\n"
                "           [--seconds S] [--warmup S] [--interval-index 0|1|2] [--average N]\n"
                "           [--contrast C] [--area WxH]\n");
}

bool parse(int argc, char** argv, Options& options) {
    if (argc < 2)
        return false;
    options.mode = argv[1];
    int i = 2;
    if (options.mode == "live") {
        if (argc < 3)
            return false;
        options.address = argv[2];
        i = 3;
    } else if (options.mode != "paint") {
        return false;
    }
    for (; i < argc; ++i) {
        const std::string name = argv[i];
        if (i + 1 >= argc)
            return false;
        const char* value = argv[++i];
        if (name == "--rounds")
            options.rounds = std::atoi(value);
        else if (name == "--pixel-format")
            options.pixelFormat = value;
        else if (name == "--bayer")
            options.bayerMode = uint32_t(std::atoi(value));
        else if (name == "--seconds")
            options.seconds = std::atof(value);
        else if (name == "--warmup")
            options.warmupSeconds = std::atof(value);
        else if (name == "--interval-index")
            options.intervalIndex = uint32_t(std::atoi(value));
        else if (name == "--average")
            options.average = std::atoi(value);
        else if (name == "--contrast")
            options.contrast = std::atoi(value);
        else if (name == "--area") {
            if (std::sscanf(value, "%dx%d", &options.areaWidth, &options.areaHeight) != 2)
                return false;
        } else
            return false;
    }
    return options.rounds > 0 && options.seconds > 0 && options.intervalIndex < 3 &&
           options.average >= 1 && options.contrast >= 0;
}

// Busy and total jiffies of all CPUs together, from the first line of /proc/stat.
struct CpuTimes {
    unsigned long long busy = 0;
    unsigned long long total = 0;
};

CpuTimes machineCpu() {
    CpuTimes times;
    FILE* stat = std::fopen("/proc/stat", "r");
    if (!stat)
        return times;
    unsigned long long v[8] = {};
    if (std::fscanf(stat, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3],
                    &v[4], &v[5], &v[6], &v[7]) == 8) {
        for (unsigned long long value : v)
            times.total += value;
        times.busy = times.total - v[3] - v[4]; // all but idle and I/O wait
    }
    std::fclose(stat);
    return times;
}

// Milliseconds of each run of one step; median, mean and best.
class Timings {
public:
    void Add(double ms) { values_.push_back(ms); }
    double Median() const {
        if (values_.empty())
            return 0;
        std::vector<double> sorted = values_;
        std::sort(sorted.begin(), sorted.end());
        const size_t n = sorted.size();
        return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    }
    double Mean() const {
        double sum = 0;
        for (double v : values_)
            sum += v;
        return values_.empty() ? 0 : sum / double(values_.size());
    }
    double Best() const {
        return values_.empty() ? 0 : *std::min_element(values_.begin(), values_.end());
    }

private:
    std::vector<double> values_;
};

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void printRow(const char* label, const Timings& t) {
    std::printf("  %-58s %8.2f %8.2f %8.2f\n", label, t.Median(), t.Mean(), t.Best());
}

// A received image as the session hands it to the display: a raw frame over memory of its own
// and the holder that stands for it.
struct BenchFrame {
    BenchFrame(uint32_t pixelType, uint32_t seed) : pixels(size_t(kWidth) * kHeight) {
        // A diagonal gradient with noise, different in every frame.
        std::minstd_rand random(seed);
        for (uint32_t y = 0; y < kHeight; ++y)
            for (uint32_t x = 0; x < kWidth; ++x)
                pixels[size_t(y) * kWidth + x] = uint8_t((x + y) / 18 + seed * 7 + (random() & 15));
        raw.Describe(pixels.data(), pixels.size(), pixels.size(), kWidth, seed, 0, nullptr);
        raw.SetWidth(kWidth);
        raw.SetHeight(kHeight);
        raw.SetPixelType(pixelType);
        holder.SetSourceRawFrame(&raw);
    }
    std::vector<uint8_t> pixels;
    CKorvatinFrame raw;
    CKorvatinFrameConverted holder;
};

// Times the widget's own paint (paintGL into its framebuffer: building the image from a new
// frame, scaling and drawing) from outside: its paint events are caught on the way in, handed to
// the widget here, and timed until the GL pipeline has finished them (Mesa may still be
// rasterising when the widget returns). The window's composition of the result comes after and
// is timed with the widget's aboutToCompose() and frameSwapped() signals.
class PaintTimer : public QObject {
public:
    explicit PaintTimer(CQwidgetGrabbedFrame* widget) : widget_(widget) {
        widget_->installEventFilter(this);
        connect(widget_, &QOpenGLWidget::aboutToCompose, this,
                [this] { composeStart_ = Clock::now(); });
        connect(widget_, &QOpenGLWidget::frameSwapped, this, [this] {
            lastComposeMs_ = msSince(composeStart_);
            ++swaps_;
        });
    }
    ~PaintTimer() override { widget_->removeEventFilter(this); }

    // Shows the widget's next frame on screen: update(), then the event loop until the window
    // has swapped; false when nothing was swapped within two seconds.
    bool UpdateAndWait() {
        const uint64_t before = swaps_;
        QEventLoop loop;
        const QMetaObject::Connection done =
            connect(widget_, &QOpenGLWidget::frameSwapped, &loop, &QEventLoop::quit);
        QTimer::singleShot(2000, &loop, &QEventLoop::quit);
        widget_->update();
        loop.exec();
        disconnect(done);
        return swaps_ != before;
    }

    double LastPaintMs() const { return lastPaintMs_; }
    double LastComposeMs() const { return lastComposeMs_; }
    uint64_t Paints() const { return paints_; }

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (object != widget_ || event->type() != QEvent::Paint || inside_)
            return false;
        inside_ = true;
        const auto start = Clock::now();
        // QObject::event is public: the widget handles its own paint event here.
        static_cast<QObject*>(widget_)->event(event);
        widget_->makeCurrent();
        widget_->context()->functions()->glFinish();
        lastPaintMs_ = msSince(start);
        ++paints_;
        inside_ = false;
        return true;
    }

private:
    CQwidgetGrabbedFrame* widget_;
    bool inside_ = false;
    Clock::time_point composeStart_;
    double lastPaintMs_ = 0;
    double lastComposeMs_ = 0;
    uint64_t paints_ = 0;
    uint64_t swaps_ = 0;
};

int paintBench(const Options& options) {
    CQFrameSplitterCentral area;
    area.resize(options.areaWidth, options.areaHeight);
    auto* widget = new CQwidgetGrabbedFrame(&area);
    area.show();
    if (!QTest::qWaitForWindowExposed(&area)) {
        std::fprintf(stderr, "korvatin-display-bench: the window was never shown\n");
        return 1;
    }
    PaintTimer timer(widget);

    // The SDK camera only for its conversion context and a conversion buffer, as the window
    // has them from the session.
    CKorvatinCamera sdk;
    CKorvatinFrame output;
    output.SetWidth(kWidth);
    output.SetHeight(kHeight);
    output.SetPixelType(livedisplay::kOutputPixelType);
    output.SetConversionAttributes(1, 8);
    if (sdk.AllocateFrameBuffer(&output, 0) != QRN_OK) {
        std::fprintf(stderr, "korvatin-display-bench: no memory for the output frame\n");
        return 1;
    }
    widget->SetOutputFrame(&output);
    widget->SetConversionContext(sdk.ConversionContext());

    struct Format {
        const char* name;
        uint32_t pixelType;
        uint32_t bayerMode;
    };
    const Format formats[] = {{"Mono8", kMono8, 0}, {"BayerRG8, bilinear", kBayerRG8, 3}};
    constexpr int kFrames = 4;

    std::printf("%u x %u frames, %d rounds per step, display area %d x %d, %d CPUs\n", kWidth,
                kHeight, options.rounds, options.areaWidth, options.areaHeight,
                QThread::idealThreadCount());
    for (const Format& format : formats) {
        std::vector<std::unique_ptr<BenchFrame>> frames;
        for (int i = 0; i < kFrames; ++i)
            frames.push_back(std::make_unique<BenchFrame>(format.pixelType, uint32_t(i + 1)));
        widget->SetBayerMode(format.bayerMode);
        int next = 0;
        // The holders are the bench's own: what SetFrame gives back needs no return.
        auto showNext = [&] { widget->SetFrame(&frames[size_t(next++ % kFrames)]->holder); };

        // Conversion alone, exactly as the widget asks for it.
        Timings convert;
        for (int r = 0; r < options.rounds; ++r) {
            const CKorvatinFrame& raw = frames[size_t(r % kFrames)]->raw;
            const auto start = Clock::now();
            const QRN_ERROR result =
                output.Convert(raw, format.bayerMode | 4, 8, 1, sdk.ConversionContext());
            convert.Add(msSince(start));
            if (result != QRN_OK) {
                std::fprintf(stderr, "korvatin-display-bench: Convert failed (%d)\n", result);
                return 1;
            }
        }

        // The CPU scaling the widget does for indexed and tall images, on the QImage it built
        // over the conversion result.
        showNext();
        if (!timer.UpdateAndWait()) {
            std::fprintf(stderr, "korvatin-display-bench: the window never swapped a frame\n");
            return 1;
        }
        const QSize target = widget->size();
        Timings scale;
        if (const QImage* image = widget->Image()) {
            for (int r = 0; r < options.rounds; ++r) {
                const auto start = Clock::now();
                const QImage scaled =
                    image->scaled(target, Qt::IgnoreAspectRatio, Qt::FastTransformation);
                scale.Add(msSince(start));
            }
        }

        // A new frame under each of four settings, then the same frame once more, in every
        // round, so that all steps share whatever else loads the machine: SetFrame, the
        // widget's paint, the window's composition, and the whole from update() to the swap.
        struct Setting {
            const char* label;
            int average;
            int contrast;
        };
        const Setting settings[] = {{"plain", 1, 0},
                                    {"average 4", 4, 0},
                                    {"contrast 64", 1, 64},
                                    {"average 4, contrast 64", 4, 64}};
        Timings setFrame[4], paintNew[4], composeNew[4], cycleNew[4];
        Timings paintSame, composeSame, cycleSame;
        // One paint and one swap from update(): a clean sample.
        auto measure = [&](Timings& paint, Timings& compose, Timings& cycle) {
            const uint64_t paints = timer.Paints();
            const auto start = Clock::now();
            const bool swapped = timer.UpdateAndWait();
            const double ms = msSince(start);
            if (!swapped || timer.Paints() != paints + 1)
                return;
            cycle.Add(ms);
            paint.Add(timer.LastPaintMs());
            compose.Add(timer.LastComposeMs());
        };
        for (int r = 0; r < options.rounds; ++r) {
            for (int s = 0; s < 4; ++s) {
                widget->SetAverage(settings[s].average);
                widget->SetContrast(settings[s].contrast);
                // A full averaging history first, so that the timed frame is averaged and its
                // SetFrame takes the steady path (the oldest copy out, the new one in).
                if (settings[s].average > 1)
                    for (int w = 0; w < settings[s].average; ++w)
                        showNext();
                const auto start = Clock::now();
                showNext();
                setFrame[s].Add(msSince(start));
                measure(paintNew[s], composeNew[s], cycleNew[s]);
            }
            widget->SetAverage(1);
            widget->SetContrast(0);
            // The same frame painted again: the image is only scaled and drawn.
            measure(paintSame, composeSame, cycleSame);
        }
        widget->TakeFrame();

        std::printf("\n%s (widget %d x %d): milliseconds %8s %8s %8s\n", format.name,
                    widget->width(), widget->height(), "median", "mean", "best");
        printRow("Convert to the display type (mode | 4, with context)", convert);
        printRow("QImage::scaled to the widget, fast transformation", scale);
        printRow("paint, same frame again (scale and draw)", paintSame);
        printRow("composition, same frame again", composeSame);
        printRow("update to swap, same frame again", cycleSame);
        for (int s = 0; s < 4; ++s) {
            char label[96];
            std::snprintf(label, sizeof(label), "SetFrame, %s", settings[s].label);
            printRow(label, setFrame[s]);
            std::snprintf(label, sizeof(label), "paint, new frame, %s", settings[s].label);
            printRow(label, paintNew[s]);
            std::snprintf(label, sizeof(label), "composition, new frame, %s", settings[s].label);
            printRow(label, composeNew[s]);
            std::snprintf(label, sizeof(label), "update to swap, new frame, %s", settings[s].label);
            printRow(label, cycleNew[s]);
        }
        const double plain = paintNew[0].Median();
        std::printf("RESULT %s: SetFrame + update to swap (medians): plain %.2f ms, average 4 "
                    "%.2f ms, contrast 64 %.2f ms, both %.2f ms\n",
                    format.name, setFrame[0].Median() + cycleNew[0].Median(),
                    setFrame[1].Median() + cycleNew[1].Median(),
                    setFrame[2].Median() + cycleNew[2].Median(),
                    setFrame[3].Median() + cycleNew[3].Median());
        std::printf("RESULT %s: plain paint %.2f ms = convert %.2f + scale %.2f + draw %.2f + "
                    "rest %.2f; composition %.2f ms; averaging %.2f ms in SetFrame + %.2f ms in "
                    "paint; contrast %.2f ms in paint\n",
                    format.name, plain, convert.Median(), scale.Median(),
                    paintSame.Median() - scale.Median(),
                    plain - convert.Median() - paintSame.Median(), composeNew[0].Median(),
                    setFrame[1].Median() - setFrame[0].Median(), paintNew[1].Median() - plain,
                    paintNew[2].Median() - plain);
        std::fflush(stdout);
    }
    widget->SetOutputFrame(nullptr);
    widget->SetConversionContext(nullptr);
    sdk.ReleaseFrameBuffer(&output);
    return 0;
}

// Runs the event loop for `seconds`.
void runFor(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

int liveBench(const Options& options) {
    QTemporaryDir dir;
    // Every key keeps the viewer's default.
    CAppSettings settings(dir.filePath("settings.ini"));
    CKorvatinCameraViewlane session(settings);

    CQFrameSplitterCentral area;
    area.resize(options.areaWidth, options.areaHeight);
    auto* widget = new CQwidgetGrabbedFrame(&area);
    area.show();
    if (!QTest::qWaitForWindowExposed(&area)) {
        std::fprintf(stderr, "korvatin-display-bench: the window was never shown\n");
        return 1;
    }

    // The window's conversion target and settings, as it makes them at connect.
    CKorvatinFrame output;
    if (!livedisplay::Connect("korvatin-display-bench", session, *widget, output, options.address,
                              options.pixelFormat, options.bayerMode))
        return 1;
    widget->SetAverage(options.average);
    widget->SetContrast(options.contrast);

    session.ClearDroppedFrameCount();
    session.StartAcquisition();

    // The window's display tick, on the GUI thread through a queued connection.
    uint64_t ticks = 0, ticksWithFrame = 0;
    CDisplayTimerPrecise timer;
    QObject::connect(
        &timer, &CDisplayTimer::Timeout, widget,
        [&] {
            ++ticks;
            CKorvatinFrameConverted* frame = session.TakeDisplayFrame();
            if (!frame)
                return;
            if (CKorvatinFrameConverted* previous = widget->SetFrame(frame))
                session.ReturnDisplayFrame(previous);
            ++ticksWithFrame;
            widget->update();
        },
        Qt::QueuedConnection);
    widget->ResetPaintedFrameCount();
    timer.setInterval(kDisplayIntervalsMs[options.intervalIndex]);
    timer.start();

    // Counted only: the paints themselves run exactly as in the window.
    uint64_t swaps = 0;
    QObject::connect(widget, &QOpenGLWidget::frameSwapped, widget, [&] { ++swaps; });
    runFor(options.warmupSeconds);

    const uint64_t swaps0 = swaps;
    const uint32_t painted0 = widget->PaintedFrameCount();
    const uint32_t grabbed0 = session.grabbedFrameCount.load();
    const uint32_t dropped0 = session.GetDroppedFrameCount();
    const uint64_t ticks0 = ticks, withFrame0 = ticksWithFrame;
    const double guiCpu0 = cputime::ThreadSeconds(), processCpu0 = cputime::ProcessSeconds();
    const CpuTimes machine0 = machineCpu();
    QElapsedTimer elapsed;
    elapsed.start();

    runFor(options.seconds);

    const double seconds = double(elapsed.nsecsElapsed()) / 1e9;
    const uint64_t swapCount = swaps - swaps0;
    const double guiCpu = cputime::ThreadSeconds() - guiCpu0;
    const double processCpu = cputime::ProcessSeconds() - processCpu0;
    const CpuTimes machine1 = machineCpu();
    const double machineBusy =
        machine1.total > machine0.total
            ? double(machine1.busy - machine0.busy) / double(machine1.total - machine0.total)
            : 0.0;
    const uint32_t painted = widget->PaintedFrameCount() - painted0;
    const uint32_t grabbed = session.grabbedFrameCount.load() - grabbed0;
    const uint32_t dropped = session.GetDroppedFrameCount() - dropped0;
    const uint64_t tickCount = ticks - ticks0, withFrame = ticksWithFrame - withFrame0;

    // The window's shutdown order: timer, the widget's frame back, then the session.
    timer.stop();
    if (CKorvatinFrameConverted* frame = widget->TakeFrame())
        session.ReturnDisplayFrame(frame);
    widget->ClearImage();
    session.DisconnectDevice();
    widget->SetOutputFrame(nullptr);
    widget->SetConversionContext(nullptr);
    session.ReleaseFrameBuffer(&output);

    const double displayFps = painted / seconds;
    const double captureFps = grabbed / seconds;
    std::printf("%s, Bayer mode %u, average %d, contrast %d, display interval %u ms, widget "
                "%d x %d, %.1f s measured after %.0f s\n",
                options.pixelFormat.c_str(), options.bayerMode, options.average, options.contrast,
                kDisplayIntervalsMs[options.intervalIndex], widget->width(), widget->height(),
                seconds, options.warmupSeconds);
    std::printf("display ticks: %llu (%.1f per second), %llu with a frame\n",
                (unsigned long long)tickCount, tickCount / seconds, (unsigned long long)withFrame);
    std::printf("frames painted: %u (%.2f per second)\n", painted, displayFps);
    std::printf("frames captured: %u (%.2f per second), dropped: %u\n", grabbed, captureFps,
                dropped);
    std::printf("window swaps: %llu (%.2f per second)\n", (unsigned long long)swapCount,
                swapCount / seconds);
    std::printf("CPU: GUI thread %.0f %%, whole process %.0f %% (of one core); all %d CPUs of "
                "the machine %.0f %% busy\n",
                100 * guiCpu / seconds, 100 * processCpu / seconds, QThread::idealThreadCount(),
                100 * machineBusy);
    std::printf("RESULT %s: display %.2f fps, capture %.2f fps, capture / 60 = %.3f, dropped %u, "
                "GUI thread %.0f %% busy\n",
                options.pixelFormat.c_str(), displayFps, captureFps, captureFps / 60.0, dropped,
                100 * guiCpu / seconds);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    Options options;
    if (!parse(argc, argv, options)) {
        usage();
        return 2;
    }
    try {
        return options.mode == "paint" ? paintBench(options) : liveBench(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "korvatin-display-bench: %s\n", e.what());
        return 1;
    }
}
