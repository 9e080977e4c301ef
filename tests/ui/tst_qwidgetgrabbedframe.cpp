// The live-image widget: frame hand-off, averaging, contrast, painting, zoom, pan and region
// selection.
#include "uitesthelpers.h"

#include <korvatinframeconverted.h>
#include <qframesplittercentral.h>
#include <qwidgetgrabbedframe.h>

#include <QApplication>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <vector>

namespace {
constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRgb8 = 0x02180014;
constexpr uint32_t kBayerRG8 = 0x01080009;

// A received image as the session hands it over: a raw frame over test memory and the holder
// that stands for it.
struct TestFrame {
    TestFrame(uint32_t width, uint32_t height, uint32_t pixelType, uint32_t bytesPerPixel = 1)
        : pixels(size_t(width) * height * bytesPerPixel) {
        raw.Describe(pixels.data(), pixels.size(), pixels.size(), width * bytesPerPixel, 1, 0,
                     nullptr);
        raw.SetWidth(width);
        raw.SetHeight(height);
        raw.SetPixelType(pixelType);
        holder.SetSourceRawFrame(&raw);
    }
    void Fill(uint8_t value) { std::fill(pixels.begin(), pixels.end(), value); }

    std::vector<uint8_t> pixels;
    CKorvatinFrame raw;
    CKorvatinFrameConverted holder;
};
} // namespace

class TestQwidgetGrabbedFrame : public QObject {
    Q_OBJECT

    std::unique_ptr<CQFrameSplitterCentral> m_parent;
    CQwidgetGrabbedFrame* m_widget = nullptr;
    std::vector<uint8_t> m_outputPixels;
    CKorvatinFrame m_output;

    void Send(QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent event(type, QPointF(pos), QPointF(m_widget->mapToGlobal(pos)), button, buttons,
                          Qt::NoModifier);
        QApplication::sendEvent(m_widget, &event);
    }
    void Press(QPoint pos, Qt::MouseButton button) {
        Send(QEvent::MouseButtonPress, pos, button, button);
    }
    void Move(QPoint pos, Qt::MouseButtons buttons) {
        Send(QEvent::MouseMove, pos, Qt::NoButton, buttons);
    }
    void Release(QPoint pos, Qt::MouseButton button) {
        Send(QEvent::MouseButtonRelease, pos, button, Qt::NoButton);
    }
    void Drag(QPoint from, QPoint to, Qt::MouseButton button) {
        Press(from, button);
        Move((from + to) / 2, button);
        Move(to, button);
        Release(to, button);
    }

    // Paints the widget once and returns what it drew.
    QImage Paint() { return m_widget->grabFramebuffer(); }

private slots:
    void init() {
        m_parent = std::make_unique<CQFrameSplitterCentral>();
        m_parent->resize(410, 310);
        m_widget = new CQwidgetGrabbedFrame(m_parent.get());
        m_outputPixels.assign(size_t(1024) * 1024 * 3, 0);
        m_output.Describe(m_outputPixels.data(), 0, m_outputPixels.size(), 0, 0, 0, nullptr);
        m_widget->SetOutputFrame(&m_output);
        m_parent->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_parent.get()));
    }

    void cleanup() {
        // The test's frames are gone by now; the widget is dropped without giving one back,
        // which would copy the picture from it.
        m_parent.reset();
        m_widget = nullptr;
    }

    void setFrameReturnsTheHolderShownBefore() {
        TestFrame a(8, 8, kMono8), b(8, 8, kMono8);
        QCOMPARE(m_widget->SetFrame(&a.holder), nullptr);
        QCOMPARE(m_widget->SetFrame(&b.holder), &a.holder);
        QCOMPARE(m_widget->TakeFrame(), &b.holder);
        QCOMPARE(m_widget->TakeFrame(), nullptr);
        QCOMPARE(m_widget->SetFrame(&a.holder), nullptr);
    }

    void newImageSizeResetsTheViewAndFitsTheWidget() {
        QSignalSpy geometry(m_widget, &CQwidgetGrabbedFrame::changeGeometry);
        QSignalSpy zoomed(m_widget, &CQwidgetGrabbedFrame::zoomedPanChanged);
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QCOMPARE(geometry.count(), 1);
        QCOMPARE(zoomed.count(), 1);
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(0, 0, 800, 600));
        QCOMPARE(m_widget->ZoomView().Zoom(), 100);
        // 400 x 300 inside the 410 x 310 parent, 5 pixels from its edges.
        QCOMPARE(m_widget->geometry(), QRect(5, 5, 400, 300));
        // The same size again changes nothing.
        TestFrame again(800, 600, kMono8);
        m_widget->SetFrame(&again.holder);
        QCOMPARE(geometry.count(), 1);
    }

    void widgetKeepsTheImageAspectInsideItsParent() {
        TestFrame square(100, 100, kMono8);
        m_widget->SetFrame(&square.holder);
        QCOMPARE(m_widget->geometry(), QRect(55, 5, 300, 300));
        m_parent->resize(210, 510);
        QTRY_COMPARE(m_widget->geometry(), QRect(5, 155, 200, 200));
    }

    void zoomInAndOutStepAndRefit() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QSignalSpy geometry(m_widget, &CQwidgetGrabbedFrame::changeGeometry);
        m_widget->ZoomIn();
        QCOMPARE(m_widget->ZoomView().Zoom(), 150);
        m_widget->ZoomIn();
        QCOMPARE(m_widget->ZoomView().Zoom(), 200);
        m_widget->ZoomOut();
        QCOMPARE(m_widget->ZoomView().Zoom(), 150);
        QCOMPARE(geometry.count(), 3);
        QRect visible;
        int zoom = 0;
        m_widget->GetView(visible, zoom);
        QCOMPARE(zoom, 150);
        QCOMPARE(visible, m_widget->ZoomView().Visible());
        m_widget->ResetView();
        m_widget->GetView(visible, zoom);
        QCOMPARE(zoom, 100);
        QCOMPARE(visible, QRect(0, 0, 800, 600));
    }

    void averageOfOneKeepsNoHistory() {
        m_widget->SetAverage(1);
        TestFrame frame(8, 8, kMono8);
        for (int i = 0; i < 3; ++i)
            m_widget->SetFrame(&frame.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 0);
    }

    void averagingShowsTheMeanOfTheLastNFrames() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        m_widget->SetAverage(4);
        std::vector<std::unique_ptr<TestFrame>> frames;
        const uint8_t values[] = {10, 20, 30, 40, 50};
        for (uint8_t value : values) {
            frames.push_back(std::make_unique<TestFrame>(16, 8, kMono8));
            frames.back()->Fill(value);
        }
        for (int i = 0; i < 3; ++i) {
            m_widget->SetFrame(&frames[i]->holder);
            Paint();
        }
        // Fewer than N frames: the image is shown as it came.
        QCOMPARE(int(frames[2]->pixels[0]), 30);
        m_widget->SetFrame(&frames[3]->holder);
        Paint();
        QCOMPARE(m_widget->AverageHistorySize(), 4);
        for (uint8_t p : frames[3]->pixels)
            QCOMPARE(int(p), 25);
        // The oldest frame leaves the sums: (20 + 30 + 40 + 50) / 4.
        m_widget->SetFrame(&frames[4]->holder);
        Paint();
        QCOMPARE(m_widget->AverageHistorySize(), 4);
        for (uint8_t p : frames[4]->pixels)
            QCOMPARE(int(p), 35);
    }

    void averagingByANonPowerOfTwoDivides() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        m_widget->SetAverage(3);
        TestFrame a(16, 8, kMono8), b(16, 8, kMono8), c(16, 8, kMono8);
        a.Fill(10);
        b.Fill(20);
        c.Fill(31);
        for (TestFrame* f : {&a, &b, &c}) {
            m_widget->SetFrame(&f->holder);
            Paint();
        }
        QCOMPARE(int(c.pixels[5]), 61 / 3);
    }

    void changingTheAverageDiscardsTheHistory() {
        m_widget->SetAverage(2);
        TestFrame a(8, 8, kMono8), b(8, 8, kMono8);
        m_widget->SetFrame(&a.holder);
        m_widget->SetFrame(&b.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 2);
        m_widget->SetAverage(3);
        QCOMPARE(m_widget->AverageHistorySize(), 0);
        m_widget->SetFrame(&a.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 1);
    }

    void averagingSkipsFramesDeeperThan8Bits() {
        m_widget->SetAverage(2);
        TestFrame deep(8, 8, kMono16, 2);
        m_widget->SetFrame(&deep.holder);
        m_widget->SetFrame(&deep.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 0);
    }

    void averagingRestartsWhenTheFrameSizeChanges() {
        m_widget->SetAverage(4);
        TestFrame small(8, 8, kMono8), large(16, 16, kMono8);
        m_widget->SetFrame(&small.holder);
        m_widget->SetFrame(&small.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 2);
        m_widget->SetFrame(&large.holder);
        QCOMPARE(m_widget->AverageHistorySize(), 1);
        QCOMPARE(m_widget->AverageCount(), 4);
    }

    void contrast256IsAPlainSubtractionAroundTheMean() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        m_widget->SetContrast(256);
        TestFrame frame(8, 2, kMono8);
        const uint8_t pattern[] = {10, 120, 180, 250};
        for (size_t i = 0; i < frame.pixels.size(); ++i)
            frame.pixels[i] = pattern[i % 4];
        m_widget->SetFrame(&frame.holder);
        Paint();
        // mean 140, window [12, 268): p - 12, and 0 below the window.
        QCOMPARE(int(frame.pixels[0]), 0);
        QCOMPARE(int(frame.pixels[1]), 108);
        QCOMPARE(int(frame.pixels[2]), 168);
        QCOMPARE(int(frame.pixels[3]), 238);
    }

    void contrastPowerOfTwoShiftsAndOtherWidthsDivide() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        const uint8_t pattern[] = {10, 120, 180, 250};
        {
            m_widget->SetContrast(64);
            TestFrame frame(8, 2, kMono8);
            for (size_t i = 0; i < frame.pixels.size(); ++i)
                frame.pixels[i] = pattern[i % 4];
            m_widget->SetFrame(&frame.holder);
            Paint();
            // mean 140, offset 108, (p - 108) << 2, at most 255.
            QCOMPARE(int(frame.pixels[0]), 0);
            QCOMPARE(int(frame.pixels[1]), 48);
            QCOMPARE(int(frame.pixels[2]), 255);
            m_widget->TakeFrame();
        }
        {
            m_widget->SetContrast(100);
            TestFrame frame(8, 2, kMono8);
            for (size_t i = 0; i < frame.pixels.size(); ++i)
                frame.pixels[i] = pattern[i % 4];
            m_widget->SetFrame(&frame.holder);
            Paint();
            // offset 90, ((p - 90) << 8) / 100.
            QCOMPARE(int(frame.pixels[1]), (30 << 8) / 100);
            QCOMPARE(int(frame.pixels[2]), (90 << 8) / 100);
            QCOMPARE(int(frame.pixels[3]), 255);
        }
    }

    void contrastZeroLeavesPixelsAlone() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        m_widget->SetContrast(0);
        TestFrame frame(8, 2, kMono8);
        frame.Fill(77);
        m_widget->SetFrame(&frame.holder);
        Paint();
        QCOMPARE(int(frame.pixels[3]), 77);
    }

    void withoutAnImageTheWidgetIsWhite() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        m_widget->resize(100, 80);
        const QImage painted = Paint();
        QCOMPARE(painted.pixelColor(50, 40), QColor(255, 255, 255));
    }

    void monoFrameIsPaintedInGreyAndCounted() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        TestFrame frame(400, 300, kMono8);
        for (uint32_t y = 0; y < 300; ++y)
            for (uint32_t x = 0; x < 400; ++x)
                frame.pixels[y * 400 + x] = x < 200 ? 0 : 200;
        m_widget->SetFrame(&frame.holder);
        const QImage painted = Paint();
        QCOMPARE(m_widget->PaintedFrameCount(), 1u);
        QVERIFY(m_widget->Image());
        QCOMPARE(m_widget->Image()->format(), QImage::Format_Indexed8);
        QCOMPARE(painted.pixelColor(50, 150), QColor(0, 0, 0));
        QCOMPARE(painted.pixelColor(350, 150), QColor(200, 200, 200));
        // Painting again without a new frame builds no new image.
        Paint();
        QCOMPARE(m_widget->PaintedFrameCount(), 1u);
        m_widget->ResetPaintedFrameCount();
        QCOMPARE(m_widget->PaintedFrameCount(), 0u);
        uitest::SaveScreenshot(m_parent.get(), "grabbedframe_mono8");
    }

    void rgbFrameIsPaintedInColour() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        TestFrame frame(400, 300, kRgb8, 3);
        for (uint32_t y = 0; y < 300; ++y)
            for (uint32_t x = 0; x < 400; ++x) {
                uint8_t* p = &frame.pixels[(y * 400 + x) * 3];
                p[0] = x < 200 ? 220 : 0;
                p[1] = 0;
                p[2] = x < 200 ? 0 : 220;
            }
        m_widget->SetFrame(&frame.holder);
        const QImage painted = Paint();
        QCOMPARE(m_widget->Image()->format(), QImage::Format_RGB888);
        QCOMPARE(painted.pixelColor(50, 150), QColor(220, 0, 0));
        QCOMPARE(painted.pixelColor(350, 150), QColor(0, 0, 220));
        uitest::SaveScreenshot(m_parent.get(), "grabbedframe_rgb8");
    }

    void bayerFrameIsInterpolatedInColourOrShownAsMosaic() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        // An all-red scene seen through an RG/GB mosaic: only the R sites are lit.
        TestFrame frame(400, 300, kBayerRG8);
        for (uint32_t y = 0; y < 300; ++y)
            for (uint32_t x = 0; x < 400; ++x)
                frame.pixels[y * 400 + x] = (y % 2 == 0 && x % 2 == 0) ? 200 : 0;
        m_widget->SetBayerMode(3);
        m_widget->SetFrame(&frame.holder);
        QImage painted = Paint();
        QCOMPARE(m_widget->Image()->format(), QImage::Format_RGB888);
        const QColor colour = painted.pixelColor(200, 150);
        QVERIFY2(colour.red() > 150 && colour.green() < 30 && colour.blue() < 30,
                 qPrintable(colour.name()));
        uitest::SaveScreenshot(m_parent.get(), "grabbedframe_bayer_bilinear");
        m_widget->SetBayerMode(0);
        TestFrame again(400, 300, kBayerRG8);
        again.pixels = frame.pixels;
        m_widget->SetFrame(&again.holder);
        Paint();
        QCOMPARE(m_widget->Image()->format(), QImage::Format_Indexed8);
    }

    void holderInADisplayFormatIsShownWithoutConversion() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        TestFrame frame(400, 300, kMono8);
        std::vector<uint8_t> converted(400 * 300, 90);
        frame.holder.Describe(converted.data(), converted.size(), converted.size(), 400, 1, 0,
                              nullptr);
        frame.holder.SetWidth(400);
        frame.holder.SetHeight(300);
        frame.holder.SetPixelType(CQwidgetGrabbedFrame::kDisplayMono8);
        frame.Fill(10);
        m_widget->SetOutputFrame(nullptr);
        m_widget->SetFrame(&frame.holder);
        const QImage painted = Paint();
        QCOMPARE(painted.pixelColor(200, 150), QColor(90, 90, 90));
    }

    void takenFrameLeavesTheShownImageNoSharedPixels() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        // A recording holder: its own converted pixels, which the conversion thread reuses once
        // the holder is given back.
        TestFrame frame(400, 300, kMono8);
        std::vector<uint8_t> converted(400 * 300, 90);
        frame.holder.Describe(converted.data(), converted.size(), converted.size(), 400, 1, 0,
                              nullptr);
        frame.holder.SetWidth(400);
        frame.holder.SetHeight(300);
        frame.holder.SetPixelType(CQwidgetGrabbedFrame::kDisplayMono8);
        m_widget->SetOutputFrame(nullptr);
        m_widget->SetFrame(&frame.holder);
        QCOMPARE(Paint().pixelColor(200, 150), QColor(90, 90, 90));
        QCOMPARE(m_widget->TakeFrame(), &frame.holder);
        // The next frame is converted into the holder given back; the picture kept on screen
        // (a resize or Reset View repaints it) must not read those pixels.
        std::fill(converted.begin(), converted.end(), uint8_t(200));
        QVERIFY(m_widget->Image());
        const uchar* shown = m_widget->Image()->constBits();
        QVERIFY(shown < converted.data() || shown >= converted.data() + converted.size());
        QCOMPARE(Paint().pixelColor(200, 150), QColor(90, 90, 90));
    }

    void draggedSelectionIsBlueForZoomAndYellowForTheAutoRegion() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        // Whether `colour` is drawn within a pixel or two of `at` (a one-pixel line lands on
        // either side of its coordinate, as the rasteriser rounds).
        auto near = [](const QImage& image, QPoint at, const QColor& colour) {
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx)
                    if (image.pixelColor(at + QPoint(dx, dy)) == colour)
                        return true;
            return false;
        };
        TestFrame frame(400, 300, kMono8);
        frame.Fill(255);
        m_widget->SetFrame(&frame.holder);
        Paint();
        // Left drag (zoom selection), still held: the rectangle in blue.
        Press(QPoint(100, 80), Qt::LeftButton);
        Move(QPoint(160, 120), Qt::LeftButton);
        Move(QPoint(300, 200), Qt::LeftButton);
        QImage painted = Paint();
        for (const QPoint edge :
             {QPoint(200, 80), QPoint(100, 150), QPoint(300, 150), QPoint(200, 200)}) {
            QVERIFY2(near(painted, edge, Qt::blue),
                     qPrintable(QString("%1,%2").arg(edge.x()).arg(edge.y())));
            QVERIFY(!near(painted, edge, Qt::yellow));
        }
        QCOMPARE(painted.pixelColor(200, 150), QColor(255, 255, 255));
        Release(QPoint(300, 200), Qt::LeftButton);
        m_widget->ResetView();
        // Right drag (auto region), still held: the rectangle in yellow.
        Press(QPoint(100, 80), Qt::RightButton);
        Move(QPoint(160, 120), Qt::RightButton);
        Move(QPoint(300, 200), Qt::RightButton);
        painted = Paint();
        for (const QPoint edge :
             {QPoint(200, 80), QPoint(100, 150), QPoint(300, 150), QPoint(200, 200)}) {
            QVERIFY2(near(painted, edge, Qt::yellow),
                     qPrintable(QString("%1,%2").arg(edge.x()).arg(edge.y())));
            QVERIFY(!near(painted, edge, Qt::blue));
        }
        Release(QPoint(300, 200), Qt::RightButton);
        // Released, no selection is drawn.
        painted = Paint();
        QVERIFY(!near(painted, QPoint(200, 80), Qt::yellow));
        QVERIFY(!near(painted, QPoint(200, 80), Qt::blue));
    }

    void imageTallerThan1200LinesIsScaledAndPaintedWhole() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        // RGB, 1,201 lines: the path that scales on the CPU. Top half red, bottom half blue.
        constexpr uint32_t kWidth = 300;
        constexpr uint32_t kHeight = 1201;
        TestFrame frame(kWidth, kHeight, kMono8);
        std::vector<uint8_t> rgb(size_t(kWidth) * kHeight * 3);
        for (uint32_t y = 0; y < kHeight; ++y)
            for (uint32_t x = 0; x < kWidth; ++x) {
                uint8_t* p = &rgb[(size_t(y) * kWidth + x) * 3];
                p[0] = y < kHeight / 2 ? 255 : 0;
                p[1] = 0;
                p[2] = y < kHeight / 2 ? 0 : 255;
            }
        frame.holder.Describe(rgb.data(), rgb.size(), rgb.size(), kWidth * 3, 1, 0, nullptr);
        frame.holder.SetWidth(kWidth);
        frame.holder.SetHeight(kHeight);
        frame.holder.SetPixelType(CQwidgetGrabbedFrame::kDisplayRgb8);
        m_widget->SetOutputFrame(nullptr);
        m_widget->SetFrame(&frame.holder);
        const QImage painted = Paint();
        QCOMPARE(m_widget->Image()->height(), int(kHeight));
        QCOMPARE(m_widget->Image()->format(), QImage::Format_RGB888);
        // The whole image fills the widget: red at the top, blue at the bottom.
        QCOMPARE(painted.pixelColor(painted.width() / 2, 2), QColor(255, 0, 0));
        QCOMPARE(painted.pixelColor(painted.width() / 2, painted.height() - 3), QColor(0, 0, 255));
        QCOMPARE(painted.pixelColor(2, painted.height() / 4), QColor(255, 0, 0));
        QCOMPARE(painted.pixelColor(painted.width() - 3, 3 * painted.height() / 4),
                 QColor(0, 0, 255));
    }

    void zoomedViewPaintsOnlyTheVisibleRegion() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL widget cannot paint");
        // Grey: left half black, right half 200; colour: left half red, right half blue.
        TestFrame mono(400, 300, kMono8);
        for (uint32_t i = 0; i < mono.pixels.size(); ++i)
            mono.pixels[i] = (i % 400) < 200 ? 0 : 200;
        m_widget->SetFrame(&mono.holder);
        Paint();
        Drag(QPoint(250, 50), QPoint(390, 250), Qt::LeftButton);
        QVERIFY(m_widget->ZoomView().Zoom() > 100);
        QCOMPARE(m_widget->ZoomView().Visible().left(), 250);
        QImage painted = Paint();
        QCOMPARE(painted.pixelColor(2, 2), QColor(200, 200, 200));
        QCOMPARE(painted.pixelColor(painted.width() - 3, painted.height() - 3),
                 QColor(200, 200, 200));

        TestFrame colour(400, 300, kRgb8, 3);
        for (uint32_t i = 0; i < 400 * 300; ++i) {
            colour.pixels[i * 3] = (i % 400) < 200 ? 220 : 0;
            colour.pixels[i * 3 + 2] = (i % 400) < 200 ? 0 : 220;
        }
        m_widget->SetFrame(&colour.holder);
        m_widget->ResetView();
        Paint();
        Drag(QPoint(10, 50), QPoint(150, 250), Qt::LeftButton);
        painted = Paint();
        QCOMPARE(painted.pixelColor(2, 2), QColor(220, 0, 0));
        QCOMPARE(painted.pixelColor(painted.width() - 3, painted.height() - 3), QColor(220, 0, 0));
        uitest::SaveScreenshot(m_parent.get(), "grabbedframe_zoomed");
    }

    void cursorFollowsTheMouseMode() {
        QEnterEvent enter(QPointF(10, 10), QPointF(10, 10), QPointF(10, 10));
        QApplication::sendEvent(m_widget, &enter);
        QVERIFY(QApplication::overrideCursor());
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::CrossCursor);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(m_widget, &leave);
        QCOMPARE(QApplication::overrideCursor(), nullptr);
        // A new image size restores the saved mode, so the frame comes before pan mode.
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        m_widget->SetPanMode(true);
        QApplication::sendEvent(m_widget, &enter);
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::OpenHandCursor);
        // A right drag selects a region whatever the mode, with the cross.
        Press(QPoint(10, 10), Qt::RightButton);
        Move(QPoint(60, 60), Qt::RightButton);
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::CrossCursor);
        Release(QPoint(60, 60), Qt::RightButton);
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::OpenHandCursor);
        QApplication::sendEvent(m_widget, &leave);
        QCOMPARE(QApplication::overrideCursor(), nullptr);
    }

    void clearImageForgetsTheFrameSizeAndView() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        m_widget->TakeFrame();
        m_widget->ClearImage();
        QCOMPARE(m_widget->Image(), nullptr);
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(0, 0, 0, 0));
        QCOMPARE(m_widget->ZoomView().Width(), 0);
        // The same size as before is a new size again.
        QSignalSpy zoomed(m_widget, &CQwidgetGrabbedFrame::zoomedPanChanged);
        m_widget->SetFrame(&frame.holder);
        QCOMPARE(zoomed.count(), 1);
    }

    void leftDragZoomsToTheSelection() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QSignalSpy zoomed(m_widget, &CQwidgetGrabbedFrame::zoomedPanChanged);
        Drag(QPoint(100, 50), QPoint(200, 125), Qt::LeftButton);
        QCOMPARE(zoomed.count(), 1);
        // The widget shows 800 x 600 in 400 x 300: every widget pixel is two image pixels. The
        // selection holds both corners (101 x 76 widget pixels).
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(200, 100, 202, 152));
        QCOMPARE(m_widget->ZoomView().Zoom(), 800 * 600 * 100 / (202 * 152));
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragIdle));
        QCOMPARE(m_widget->Selection(), QRect());
    }

    void clickLeavesTheWidgetWaiting() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        Press(QPoint(100, 100), Qt::LeftButton);
        Release(QPoint(100, 100), Qt::LeftButton);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragPressed));
        // The next press does nothing: a right press would switch to region selection.
        Press(QPoint(50, 50), Qt::RightButton);
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragPressed));
        QSignalSpy roi(m_widget, &CQwidgetGrabbedFrame::autoROIChanged);
        Move(QPoint(150, 150), Qt::RightButton);
        Release(QPoint(150, 150), Qt::RightButton);
        QCOMPARE(roi.count(), 0);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragIdle));
    }

    void moveShorterThanTheDragDistanceDoesNotDrag() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        Press(QPoint(100, 100), Qt::LeftButton);
        const int small = QApplication::startDragDistance() - 1;
        Move(QPoint(100 + small, 100), Qt::LeftButton);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragPressed));
        Move(QPoint(100 + small + 1, 100), Qt::NoButton);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragPressed));
        Move(QPoint(100 + small + 1, 100), Qt::LeftButton);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragDragging));
        Release(QPoint(100 + small + 1, 100), Qt::LeftButton);
    }

    void rightDragReportsTheRegionInImageCoordinates() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QSignalSpy roi(m_widget, &CQwidgetGrabbedFrame::autoROIChanged);
        Press(QPoint(40, 30), Qt::RightButton);
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeAutoRoiSelect));
        Move(QPoint(90, 70), Qt::RightButton);
        Move(QPoint(140, 130), Qt::RightButton);
        Release(QPoint(140, 130), Qt::RightButton);
        QCOMPARE(roi.count(), 1);
        const QList<QVariant> args = roi.takeFirst();
        QCOMPARE(args[0].toUInt(), 80u);
        QCOMPARE(args[1].toUInt(), 60u);
        QCOMPARE(args[2].toUInt(), 202u);
        QCOMPARE(args[3].toUInt(), 202u);
        // The view is unchanged and the mode is back.
        QCOMPARE(m_widget->ZoomView().Zoom(), 100);
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));
    }

    void rightDragOutsideTheInnerRectangleEmitsNothing() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QSignalSpy roi(m_widget, &CQwidgetGrabbedFrame::autoROIChanged);
        QSignalSpy zoomed(m_widget, &CQwidgetGrabbedFrame::zoomedPanChanged);
        // To the widget's last column (width - 1) and beyond: outside (0, 0, width - 1,
        // height - 1).
        Drag(QPoint(300, 100), QPoint(m_widget->width() + 20, 200), Qt::RightButton);
        Drag(QPoint(300, 100), QPoint(m_widget->width() - 1, 200), Qt::RightButton);
        Drag(QPoint(100, 100), QPoint(-30, -30), Qt::RightButton);
        QCOMPARE(roi.count(), 0);
        Drag(QPoint(300, 100), QPoint(m_widget->width() + 20, 200), Qt::LeftButton);
        QCOMPARE(zoomed.count(), 0);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragIdle));
    }

    void rightDoubleClickResetsTheRegion() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        QSignalSpy reset(m_widget, &CQwidgetGrabbedFrame::autoROIReset);
        Press(QPoint(60, 60), Qt::RightButton);
        Release(QPoint(60, 60), Qt::RightButton);
        Send(QEvent::MouseButtonDblClick, QPoint(60, 60), Qt::RightButton, Qt::RightButton);
        QCOMPARE(reset.count(), 1);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragIdle));
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));
        Send(QEvent::MouseButtonDblClick, QPoint(60, 60), Qt::LeftButton, Qt::LeftButton);
        QCOMPARE(reset.count(), 1);
    }

    void panModeDragMovesTheZoomedView() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        Drag(QPoint(100, 75), QPoint(300, 225), Qt::LeftButton);
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(200, 150, 402, 302));
        m_widget->SetPanMode(true);
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModePan));
        // Dragging right and down by 40 widget pixels shows what lies left and above: each
        // 20-pixel step is 402 * -20 / 400 = -20 image columns and 302 * -20 / 300 = -20 rows.
        Press(QPoint(200, 150), Qt::LeftButton);
        Move(QPoint(220, 170), Qt::LeftButton);
        Move(QPoint(240, 190), Qt::LeftButton);
        Release(QPoint(240, 190), Qt::LeftButton);
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(160, 110, 402, 302));
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModePan));
        m_widget->SetPanMode(false);
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));
    }

    void newFrameSizeEndsADrag() {
        TestFrame frame(800, 600, kMono8);
        m_widget->SetFrame(&frame.holder);
        Press(QPoint(10, 10), Qt::RightButton);
        Move(QPoint(60, 60), Qt::RightButton);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragDragging));
        TestFrame other(640, 480, kMono8);
        m_widget->SetFrame(&other.holder);
        QCOMPARE(m_widget->DragStateValue(), int(CQwidgetGrabbedFrame::DragIdle));
        QCOMPARE(m_widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));
        QCOMPARE(m_widget->ZoomView().Visible(), QRect(0, 0, 640, 480));
    }
};

QTEST_MAIN(TestQwidgetGrabbedFrame)
#include "tst_qwidgetgrabbedframe.moc"
