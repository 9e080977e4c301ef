// The histogram panel after Stream Statistics, on the simulator's still colour bars: the counts
// of every level equal those the bars give, for the whole frame and, zoomed, for the part shown;
// figures with the clipped share; linear and logarithmic. On Aravis' own simulated camera, whose
// image brightens with gain and exposure: the histogram moves with them and shows the clipping.
#include "colourbars.h"
#include "histogrampanel.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "qwidgetgrabbedframe.h"
#include "simulatorprocess.h"
#include "testnetwork.h"
#include "windowdriver.h"

#include <qframefoldable.h>

#include <QCheckBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

using namespace e2e;

namespace {

constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 480;

// The bins the bars give over columns [x0, x0 + w) and h lines: grey (luma) or R, G, B.
std::vector<std::vector<uint64_t>> BarBins(bool colour, uint32_t x0, uint32_t w, uint32_t h) {
    std::vector<std::vector<uint64_t>> bins(colour ? 3 : 1, std::vector<uint64_t>(256, 0));
    for (uint32_t x = x0; x < x0 + w; ++x) {
        int rgb[3];
        colourbars::barColour(x, rgb);
        if (colour) {
            for (int c = 0; c < 3; ++c)
                bins[c][rgb[c]] += h;
        } else {
            bins[0][(299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000] += h;
        }
    }
    return bins;
}

} // namespace

class TestHistogramPanel : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Waits for a histogram of a frame of `format` computed after this call.
    static bool WaitForHistogram(CHistogramPanel* panel, CQwidgetGrabbedFrame* display,
                                 const QString& format) {
        if (!QTest::qWaitFor(
                [&] {
                    const CKorvatinFrameConverted* current = display->CurrentFrame();
                    return current && current->SourceRawFrame() &&
                           QString(CKorvatinFrame::PixelFormatName(
                               current->SourceRawFrame()->PixelType())) == format;
                },
                20000))
            return false;
        // Two more: the first may have been taken before the format changed.
        QSignalSpy shown(panel, &CHistogramPanel::histogramShown);
        return QTest::qWaitFor([&] { return shown.count() >= 2; }, 20000);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void histogramFollowsTheBarsWholeAndZoomed() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.61", "--pattern", "bars", "--width",
                                  QString::number(kWidth), "--height", QString::number(kHeight)}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini"), QByteArray(),
                                               "[resource]\nmaxBitsPerPixel=48\n"),
                                 1, 1400, 900);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));
        auto* foldable = window->findChild<QFrameFoldable*>("qFrameFoldable_histogram");
        QVERIFY(foldable);
        auto* panel = window->findChild<CHistogramPanel*>("widget_histogram");
        QVERIFY(panel);
        // Folded, nothing is counted.
        QVERIFY(!panel->isVisible());
        QCOMPARE(panel->ComputedCount(), 0u);
        foldable->findChild<QToolButton*>("toolButton")->click();
        QVERIFY(panel->isVisible());
        auto* display = window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");

        for (const QString format : {"Mono8", "RGB8"}) {
            const bool colour = format == "RGB8";
            window->Session()->SetEnumByString("PixelFormat", format.toUtf8().constData());
            display->ResetView();
            QVERIFY2(WaitForHistogram(panel, display, format), qPrintable(format));
            QCOMPARE(panel->ShownRegion().width, 0u);
            auto expected = BarBins(colour, 0, kWidth, kHeight);
            QCOMPARE(panel->Shown().Channels().size(), expected.size());
            for (size_t c = 0; c < expected.size(); ++c)
                QVERIFY2(panel->Shown().Channels()[c].bins == expected[c], qPrintable(format));
            // The pixels at each end, counted and as a share, per channel: for grey the black
            // and the white bar, an eighth each. The figures follow the curve within a quarter
            // of a second.
            auto* figuresLabel = window->findChild<QLabel*>("label_histogramFigures");
            const double total = double(kWidth) * kHeight;
            QStringList wanted;
            for (const auto& bins : expected) {
                for (const auto& [word, n] : {std::pair<QString, uint64_t>{"low", bins.front()},
                                              std::pair<QString, uint64_t>{"high", bins.back()}})
                    wanted << QString("%1 %2 (%3 %)")
                                  .arg(word)
                                  .arg(n)
                                  .arg(100.0 * double(n) / total, 0, 'f', 2);
            }
            if (!colour)
                wanted << QString("high %1 (12.50 %)").arg(kWidth / 8 * kHeight);
            wanted << (colour ? "red min" : "grey min");
            auto showsAll = [&] {
                const QString figures = figuresLabel->text();
                for (const QString& line : wanted)
                    if (!figures.contains(line))
                        return false;
                return true;
            };
            QVERIFY2(QTest::qWaitFor(showsAll, 20000),
                     qPrintable(figuresLabel->text() + "\nwanted: " + wanted.join(" | ")));

            // Zoomed in: the part on screen.
            display->ZoomIn();
            display->ZoomIn();
            display->ZoomIn();
            QRect visible;
            int zoom = 0;
            display->GetView(visible, zoom);
            QVERIFY(zoom > 100);
            QVERIFY(QTest::qWaitFor(
                [&] { return panel->ShownRegion().width == uint32_t(visible.width()); }, 20000));
            QCOMPARE(panel->ShownRegion().x, uint32_t(visible.x()));
            QCOMPARE(panel->ShownRegion().height, uint32_t(visible.height()));
            expected = BarBins(colour, uint32_t(visible.x()), uint32_t(visible.width()),
                               uint32_t(visible.height()));
            for (size_t c = 0; c < expected.size(); ++c)
                QVERIFY2(panel->Shown().Channels()[c].bins == expected[c], qPrintable(format));
            if (colour) {
                auto* log = window->findChild<QCheckBox*>("checkBox_histogramLog");
                log->click();
                QVERIFY(panel->findChild<CHistogramView*>()->Logarithmic());
                SaveAtBothSizes(*window, "histogram-rgb8-zoomed-log");
            } else {
                SaveAtBothSizes(*window, "histogram-mono8-zoomed");
            }
        }
    }

    void histogramMovesWithGainAndExposure() {
        SimulatorProcess sim;
        QVERIFY2(sim.startAravisFake("127.0.20.62"), qPrintable(sim.errorString()));
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings-aravis.ini")), 1);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));
        window->findChild<QFrameFoldable*>("qFrameFoldable_histogram")
            ->findChild<QToolButton*>("toolButton")
            ->click();
        auto* panel = window->findChild<CHistogramPanel*>("widget_histogram");
        QVERIFY(panel && panel->isVisible());
        auto* figuresLabel = window->findChild<QLabel*>("label_histogramFigures");

        // The pixels at the top level, their share and the mean of the histogram shown last.
        uint64_t atTop = 0;
        double share = -1, mean = -1;
        auto shown = [&] {
            if (panel->Shown().Channels().size() != 1)
                return false;
            const CFrameHistogram::Figures f =
                CFrameHistogram::FiguresOf(panel->Shown().Channels()[0].bins);
            atTop = f.clippedHigh;
            share = f.count ? double(f.clippedHigh) / double(f.count) : -1;
            mean = f.mean;
            return f.count > 0;
        };
        // Waits until the histogram shown has a top-level share within [from, to] and the
        // figures say so.
        auto waitForShare = [&](double from, double to) {
            const bool reached = QTest::qWaitFor(
                [&] {
                    return shown() && share >= from && share <= to &&
                           figuresLabel->text().contains(QString("high %1 (").arg(atTop));
                },
                20000);
            if (!reached)
                qWarning("share %.3f, mean %.2f, figures: %s", share, mean,
                         qPrintable(figuresLabel->text()));
            return reached;
        };

        // Aravis' ramp at gain 0 and 10 ms: levels up to 254, none clipped.
        window->Session()->SetUInt32("GainRaw", 0);
        window->Session()->SetDouble("ExposureTimeAbs", 10000);
        QVERIFY(waitForShare(0, 0));
        const double darkMean = mean;
        // Gain 3 multiplies the levels by four: three quarters of the pixels reach the top.
        window->Session()->SetUInt32("GainRaw", 3);
        QVERIFY(waitForShare(0.70, 0.80));
        const double gainMean = mean;
        QVERIFY2(gainMean > darkMean + 50, qPrintable(QString("%1 %2").arg(darkMean).arg(mean)));
        SaveAtBothSizes(*window, "histogram-aravis-gain3");
        // Back to gain 0, four times the exposure: brighter than at first, less than at gain 3.
        window->Session()->SetUInt32("GainRaw", 0);
        window->Session()->SetDouble("ExposureTimeAbs", 40000);
        QVERIFY(waitForShare(0.30, 0.45));
        QVERIFY2(mean > darkMean + 20 && mean < gainMean,
                 qPrintable(QString("%1 %2 %3").arg(darkMean).arg(mean).arg(gainMean)));
        // And back: nothing clipped again.
        window->Session()->SetDouble("ExposureTimeAbs", 10000);
        QVERIFY(waitForShare(0, 0));
    }
};

QTEST_MAIN(TestHistogramPanel)
#include "tst_histogrampanel.moc"
