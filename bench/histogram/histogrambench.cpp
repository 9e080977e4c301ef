// Histogram benchmark: the cost of counting one 2448 x 2048 frame, grey and colour ("cost"), and
// the display and capture rates of the live path with the histogram panel open and closed, in
// turns within one run ("live"); the same with the pointer resting on the live image, so that
// the status bar's pixel read-out follows each frame, against the pointer away ("readout"); and
// the same with a label too narrow for the reading, which is then drawn over the image as in a
// small window with every status bar field shown ("readout-box").
#include "../lib/cputime.h"
#include "../lib/livedisplay.h"
#include "appsettings.h"
#include "displaytimerprecise.h"
#include "framehistogram.h"
#include "histogrampanel.h"
#include "histogramview.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"
#include "paintcounter.h"
#include "pixelreadout.h"
#include "qframesplittercentral.h"
#include "qwidgetgrabbedframe.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinframe.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kWidth = 2448;
constexpr uint32_t kHeight = 2048;
double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Format {
    const char* name;
    uint32_t code;
    uint32_t bytesPerPixel;
    uint32_t bayerMode;
};

// The median time of `rounds` counts of one frame, after one round not timed.
int costBench(int rounds) {
    const Format formats[] = {{"Mono8", 0x01080001, 1, 0},
                              {"Mono12", 0x01100005, 2, 0},
                              {"RGB8", 0x02180014, 3, 0},
                              {"BayerRG8 none (grey)", 0x01080009, 1, 0},
                              {"BayerRG8 colour (cells)", 0x01080009, 1, 3},
                              {"BayerRG12 colour (cells)", 0x01100011, 2, 3}};
    std::mt19937 random(20);
    std::printf("histogram of one %u x %u frame, median of %d rounds (ms)\n", kWidth, kHeight,
                rounds);
    std::printf("%-28s %10s %10s %10s %10s %10s\n", "format", "count", "copy", "zoomed 1/4", "draw",
                "draw bars");
    for (const Format& f : formats) {
        std::vector<uint8_t> pixels(size_t(kWidth) * kHeight * f.bytesPerPixel);
        for (size_t i = 0; i < pixels.size(); i += 2) {
            pixels[i] = uint8_t(random());
            if (i + 1 < pixels.size())
                pixels[i + 1] = f.bytesPerPixel == 2 ? uint8_t(random() & 0x0F) : uint8_t(random());
        }
        CKorvatinFrame frame;
        frame.SetWidth(kWidth);
        frame.SetHeight(kHeight);
        frame.SetPixelType(f.code);
        frame.Describe(pixels.data(), pixels.size(), pixels.size(), kWidth * f.bytesPerPixel, 1, 0,
                       nullptr);
        std::vector<double> counts, copies, zoomed;
        std::vector<uint8_t> copy(pixels.size());
        for (int round = 0; round <= rounds; ++round) {
            // What the panel does on the GUI thread: copy the frame into the buffer it keeps.
            Clock::time_point start = Clock::now();
            copy.assign(pixels.begin(), pixels.end());
            const double copyMs = msSince(start);
            // What its thread does: count it.
            CFrameHistogram histogram;
            start = Clock::now();
            histogram.Add(frame, f.bayerMode, {}, nullptr);
            const double countMs = msSince(start);
            CFrameHistogram part;
            start = Clock::now();
            part.Add(frame, f.bayerMode, {kWidth / 4, kHeight / 4, kWidth / 2, kHeight / 2},
                     nullptr);
            const double zoomedMs = msSince(start);
            if (round > 0) {
                counts.push_back(countMs);
                copies.push_back(copyMs);
                zoomed.push_back(zoomedMs);
            }
        }
        auto median = [](std::vector<double> v) {
            std::sort(v.begin(), v.end());
            return v[v.size() / 2];
        };
        // What its thread then draws, at the panel's size: the histogram of these random levels,
        // and one of a few levels only, as colour bars give (each a spike in its column).
        CFrameHistogram histogram;
        histogram.Add(frame, f.bayerMode, {}, nullptr);
        CFrameHistogram bars;
        std::vector<uint8_t> barPixels(pixels.size());
        for (size_t i = 0; i < barPixels.size(); ++i)
            barPixels[i] = uint8_t((i % kWidth) * 8 / kWidth * 36);
        CKorvatinFrame barFrame;
        barFrame.UpdateFrame(frame);
        barFrame.Describe(barPixels.data(), barPixels.size(), barPixels.size(),
                          kWidth * f.bytesPerPixel, 1, 0, nullptr);
        bars.Add(barFrame, f.bayerMode, {}, nullptr);
        std::vector<double> draws, barDraws;
        for (int round = 0; round <= rounds; ++round) {
            Clock::time_point start = Clock::now();
            const QImage picture = CHistogramView::Render(histogram, QSize(232, 90), false);
            const double drawMs = msSince(start);
            start = Clock::now();
            const QImage barPicture = CHistogramView::Render(bars, QSize(232, 90), false);
            const double barMs = msSince(start);
            if (round > 0 && !picture.isNull() && !barPicture.isNull()) {
                draws.push_back(drawMs);
                barDraws.push_back(barMs);
            }
        }
        std::printf("%-28s %10.2f %10.2f %10.2f %10.2f %10.2f\n", f.name, median(counts),
                    median(copies), median(zoomed), median(draws), median(barDraws));
        std::printf("RESULT cost %s: %.2f ms a frame (%.0f frames/s on one core)\n", f.name,
                    median(counts), 1000.0 / median(counts));
    }
    return 0;
}

double loadAverage() {
    double load = 0;
    if (FILE* file = std::fopen("/proc/loadavg", "r")) {
        if (std::fscanf(file, "%lf", &load) != 1)
            load = 0;
        std::fclose(file);
    }
    return load;
}

void runFor(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

// The live path as in the window, in a window of its own, in turns of `seconds`, `turns` times
// each: with the histogram panel shown (open) or hidden (closed); or, for `readout`, with the
// pointer resting in the middle of the live image (open) or away from it (closed), the pixel
// read-out writing into a label beside the image as into the window's status bar; with
// `overImage`, a label without room for the reading, so that the display draws it too.
int liveBench(const std::string& address, const std::string& pixelFormat, uint32_t bayerMode,
              double seconds, int turns, bool readout, bool overImage) {
    QTemporaryDir dir;
    CAppSettings settings(dir.filePath("settings.ini"));
    CKorvatinCameraViewlane session(settings);

    // One window as in the viewer: the side panel with the histogram beside the display, so
    // that their updates share the window's composition.
    QWidget window;
    auto* layout = new QHBoxLayout(&window);
    auto* side = new QWidget(&window);
    side->setFixedWidth(240);
    auto* sideLayout = new QVBoxLayout(side);
    auto* area = new CQFrameSplitterCentral(&window);
    area->setMinimumSize(1190, 950);
    layout->addWidget(side);
    layout->addWidget(area, 1);
    auto* widget = new CQwidgetGrabbedFrame(area);
    auto* panel = new CHistogramPanel(widget, side);
    sideLayout->addWidget(panel);
    auto* readoutLabel = new QLabel(side);
    sideLayout->addWidget(readoutLabel);
    sideLayout->addStretch(1);
    if (overImage)
        readoutLabel->setFixedWidth(20);
    CPixelReadout pixelReadout(widget, readoutLabel);
    PaintCounter labelPaints, viewPaints;
    readoutLabel->installEventFilter(&labelPaints);
    panel->findChild<CHistogramView*>()->installEventFilter(&viewPaints);
    panel->setVisible(!readout);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window)) {
        std::fprintf(stderr, "korvatin-histogram-bench: the window was never shown\n");
        return 1;
    }

    // The window's conversion target and settings, as it makes them at connect.
    CKorvatinFrame output;
    if (!livedisplay::Connect("korvatin-histogram-bench", session, *widget, output, address,
                              pixelFormat, bayerMode))
        return 1;
    session.ClearDroppedFrameCount();
    session.StartAcquisition();

    CDisplayTimerPrecise timer;
    QObject::connect(
        &timer, &CDisplayTimer::Timeout, widget,
        [&] {
            CKorvatinFrameConverted* frame = session.TakeDisplayFrame();
            if (!frame)
                return;
            if (CKorvatinFrameConverted* previous = widget->SetFrame(frame))
                session.ReturnDisplayFrame(previous);
            widget->update();
        },
        Qt::QueuedConnection);
    timer.setInterval(10); // the window's "60 fps" choice
    timer.start();
    runFor(5);

    double sums[2][2] = {{0, 0}, {0, 0}}; // [closed, open][display, capture] frames
    double time[2] = {0, 0};
    uint32_t histograms = 0, readoutPaints = 0, histogramPaints = 0, turnsWithBox = 0;
    const char* added = readout ? "pointer on the image" : "panel";
    for (int turn = 0; turn < 2 * turns; ++turn) {
        const int open = turn % 2;
        if (!readout) {
            panel->setVisible(open == 1);
        } else if (open) {
            const QPointF middle(widget->width() / 2.0, widget->height() / 2.0);
            QMouseEvent move(QEvent::MouseMove, middle, widget->mapToGlobal(middle), Qt::NoButton,
                             Qt::NoButton, Qt::NoModifier);
            QApplication::sendEvent(widget, &move);
        } else {
            QEvent leave(QEvent::Leave);
            QApplication::sendEvent(widget, &leave);
        }
        // The first second of a turn is not counted: the panel settles.
        runFor(1);
        const uint32_t painted0 = widget->PaintedFrameCount();
        const uint32_t grabbed0 = session.grabbedFrameCount.load();
        const uint32_t computed0 = panel->ComputedCount();
        const uint32_t labelPaints0 = labelPaints.count;
        const uint32_t viewPaints0 = viewPaints.count;
        const double gui0 = cputime::ThreadSeconds(), process0 = cputime::ProcessSeconds();
        QElapsedTimer elapsed;
        elapsed.start();
        runFor(seconds);
        const double s = double(elapsed.nsecsElapsed()) / 1e9;
        sums[open][0] += widget->PaintedFrameCount() - painted0;
        sums[open][1] += session.grabbedFrameCount.load() - grabbed0;
        time[open] += s;
        if (open) {
            histograms += panel->ComputedCount() - computed0;
            readoutPaints += labelPaints.count - labelPaints0;
            turnsWithBox += widget->OverlayText().isEmpty() ? 0 : 1;
            histogramPaints += viewPaints.count - viewPaints0;
        }
        std::printf("turn %d, %s %s: display %.2f fps, capture %.2f fps, GUI thread %.0f %%, "
                    "process %.0f %% of one core, load %.2f\n",
                    turn + 1, added, open ? "open" : "closed",
                    (widget->PaintedFrameCount() - painted0) / s,
                    (session.grabbedFrameCount.load() - grabbed0) / s,
                    100 * (cputime::ThreadSeconds() - gui0) / s,
                    100 * (cputime::ProcessSeconds() - process0) / s, loadAverage());
    }
    timer.stop();
    if (CKorvatinFrameConverted* frame = widget->TakeFrame())
        session.ReturnDisplayFrame(frame);
    widget->ClearImage();
    session.DisconnectDevice();
    widget->SetOutputFrame(nullptr);
    widget->SetConversionContext(nullptr);
    session.ReleaseFrameBuffer(&output);

    const double closedDisplay = sums[0][0] / time[0], openDisplay = sums[1][0] / time[1];
    const double closedCapture = sums[0][1] / time[0], openCapture = sums[1][1] / time[1];
    if (readout)
        std::printf("read-out label painted with the pointer on the image: %u (%.2f per second); "
                    "reading drawn over the image at the end of %u of %d turns\n",
                    readoutPaints, readoutPaints / time[1], turnsWithBox, turns);
    else
        std::printf("histograms counted with the panel open: %u (%.2f per second), pictures "
                    "painted: %u (%.2f per second)\n",
                    histograms, histograms / time[1], histogramPaints, histogramPaints / time[1]);
    std::printf("RESULT %s %s: closed display %.2f fps capture %.2f fps; open display %.2f fps "
                "capture %.2f fps; display open/closed %.3f, capture open/closed %.3f\n",
                readout ? (overImage ? "readout-box" : "readout") : "live", pixelFormat.c_str(),
                closedDisplay, closedCapture, openDisplay, openCapture, openDisplay / closedDisplay,
                openCapture / closedCapture);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() >= 1 && args[0] == "cost")
        return costBench(args.size() >= 2 ? std::atoi(args[1].c_str()) : 20);
    if (args.size() >= 6 && (args[0] == "live" || args[0] == "readout" || args[0] == "readout-box"))
        return liveBench(args[1], args[2], uint32_t(std::atoi(args[3].c_str())),
                         std::atof(args[4].c_str()), std::atoi(args[5].c_str()), args[0] != "live",
                         args[0] == "readout-box");
    std::fprintf(stderr, "usage: korvatin-histogram-bench cost [ROUNDS]\n"
                         "       korvatin-histogram-bench live|readout|readout-box ADDRESS "
                         "PIXELFORMAT BAYER "
                         "SECONDS TURNS\n");
    return 2;
}
