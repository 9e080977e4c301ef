// The histogram panel's picture (CHistogramView::Render): the logarithmic scale lifts small
// counts, and the corner marks show exactly when pixels sit at the lowest or highest level; the
// view paints a new picture, and not one equal to the picture it shows.
#include <histogramview.h>
#include <paintcounter.h>

#include <QtTest>

#include <vector>

namespace {

const QSize kSize(232, 90);
const QRgb kBackground = qRgb(20, 20, 20);

// A Mono8 histogram of `counts` pixels at each given level.
CFrameHistogram Histogram(const std::vector<std::pair<uint8_t, int>>& counts) {
    std::vector<uint8_t> pixels;
    for (const auto& [level, n] : counts)
        pixels.insert(pixels.end(), size_t(n), level);
    CKorvatinFrame frame;
    frame.Describe(pixels.data(), pixels.size(), pixels.size(), uint32_t(pixels.size()), 1, 0,
                   nullptr);
    frame.SetWidth(uint32_t(pixels.size()));
    frame.SetHeight(1);
    frame.SetPixelType(0x01080001); // Mono8
    CFrameHistogram histogram;
    histogram.Add(frame, 0, {}, nullptr);
    return histogram;
}

// How high the drawing rises above the bottom line within columns [from, to).
int Rise(const QImage& picture, int from, int to) {
    int rise = 0;
    for (int x = from; x < to; ++x)
        for (int y = 0; y < picture.height() - 1; ++y)
            if (picture.pixel(x, y) != kBackground) {
                rise = std::max(rise, picture.height() - 1 - y);
                break;
            }
    return rise;
}

// How far the drawing reaches up without a gap from the bottom line within columns [from, to):
// unlike Rise, not misled by a corner mark above the column.
int FilledHeight(const QImage& picture, int from, int to) {
    int height = 0;
    for (int x = from; x < to; ++x) {
        int y = picture.height() - 1;
        while (y >= 0 && picture.pixel(x, y) != kBackground)
            --y;
        height = std::max(height, picture.height() - 1 - y);
    }
    return height;
}

} // namespace

class TestHistogramView : public QObject {
    Q_OBJECT

private slots:
    void logarithmicScaleLiftsSmallCounts() {
        // 1000 pixels at level 64 (left half), 10 at level 192 (right half); no pixel at either
        // end, so no corner mark stands in the way.
        const CFrameHistogram histogram = Histogram({{64, 1000}, {192, 10}});
        const QImage linear = CHistogramView::Render(histogram, kSize, false);
        const QImage logarithmic = CHistogramView::Render(histogram, kSize, true);
        QCOMPARE(linear.size(), kSize);
        const int half = kSize.width() / 2;
        // The high peak reaches the top either way.
        QVERIFY(Rise(linear, 0, half) >= kSize.height() - 3);
        QVERIFY(Rise(logarithmic, 0, half) >= kSize.height() - 3);
        // Linear, 10 against 1000 is 1 % of the height: a pixel or two. Logarithmic,
        // log(11) / log(1001) is 35 % of it.
        const int small = Rise(linear, half, kSize.width());
        const int lifted = Rise(logarithmic, half, kSize.width());
        QVERIFY2(small >= 1 && small <= 3, qPrintable(QString::number(small)));
        QVERIFY2(lifted >= 27 && lifted <= 34, qPrintable(QString::number(lifted)));
    }

    void clippedPixelsDoNotFlattenTheRestOfTheCurve_data() {
        QTest::addColumn<bool>("logarithmic");
        QTest::newRow("linear") << false;
        QTest::newRow("logarithmic") << true;
    }

    void clippedPixelsDoNotFlattenTheRestOfTheCurve() {
        QFETCH(bool, logarithmic);
        // Over-exposed: 100000 pixels at the highest level, 1000 at level 64, 10 at level 160.
        const QImage picture = CHistogramView::Render(
            Histogram({{64, 1000}, {160, 10}, {255, 100000}}), kSize, logarithmic);
        const int w = kSize.width();
        // The largest count between the ends sets the height: level 64 reaches the top, and the
        // clipped column at the right end stands at full height beside the red mark.
        QVERIFY2(Rise(picture, 0, w / 2) >= kSize.height() - 3,
                 qPrintable(QString::number(Rise(picture, 0, w / 2))));
        QVERIFY2(FilledHeight(picture, w - 12, w) >= kSize.height() - 3,
                 qPrintable(QString::number(FilledHeight(picture, w - 12, w))));
        // Level 160 keeps its share of level 64's height: 1 % linear, a third logarithmic.
        const int small = Rise(picture, w / 2, w - 12);
        if (logarithmic)
            QVERIFY2(small >= 27 && small <= 34, qPrintable(QString::number(small)));
        else
            QVERIFY2(small >= 1 && small <= 3, qPrintable(QString::number(small)));
        // All pixels at the ends: they alone set the height.
        const QImage ends = CHistogramView::Render(Histogram({{0, 300}, {255, 100}}), kSize, false);
        QVERIFY(FilledHeight(ends, 0, 12) >= kSize.height() - 3);
        const int third = FilledHeight(ends, w - 12, w);
        QVERIFY2(third >= 27 && third <= 33, qPrintable(QString::number(third)));
    }

    void clippingMarksShowWhenPixelsSitAtAnEnd_data() {
        QTest::addColumn<bool>("low");
        QTest::addColumn<bool>("high");
        QTest::newRow("neither") << false << false;
        QTest::newRow("lowest level") << true << false;
        QTest::newRow("highest level") << false << true;
        QTest::newRow("both") << true << true;
    }

    void clippingMarksShowWhenPixelsSitAtAnEnd() {
        QFETCH(bool, low);
        QFETCH(bool, high);
        std::vector<std::pair<uint8_t, int>> counts = {{128, 500}};
        if (low)
            counts.push_back({0, 3});
        if (high)
            counts.push_back({255, 3});
        const QImage picture = CHistogramView::Render(Histogram(counts), kSize, false);
        // The marks are triangles in the top corners: blue on the left, red on the right.
        QCOMPARE(picture.pixel(1, 1) == qRgb(60, 140, 255), low);
        QCOMPARE(picture.pixel(kSize.width() - 2, 1) == qRgb(255, 40, 40), high);
        if (!low)
            QCOMPARE(picture.pixel(1, 1), kBackground);
        if (!high)
            QCOMPARE(picture.pixel(kSize.width() - 2, 1), kBackground);
    }

    void aPictureEqualToTheOneShownPaintsNothing() {
        CHistogramView view;
        view.resize(kSize);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        PaintCounter paints;
        view.installEventFilter(&paints);
        // Each step's repaint, when one is asked for, happens while posted events are handled.
        auto settle = [] { QCoreApplication::processEvents(); };
        const CFrameHistogram first = Histogram({{64, 1000}, {192, 10}});
        const QImage firstPicture = CHistogramView::Render(first, view.size(), false);
        view.SetHistogram(first, firstPicture, false);
        QTRY_COMPARE(paints.count, 1u);
        // Counted from another frame with the same levels: the same picture.
        const CFrameHistogram again = Histogram({{64, 1000}, {192, 10}});
        view.SetHistogram(again, CHistogramView::Render(again, view.size(), false), false);
        settle();
        QCOMPARE(paints.count, 1u);
        // The same picture on the other scale is another picture.
        view.SetHistogram(again, CHistogramView::Render(again, view.size(), true), true);
        QTRY_COMPARE(paints.count, 2u);
        const CFrameHistogram other = Histogram({{64, 1000}, {192, 500}});
        view.SetHistogram(other, CHistogramView::Render(other, view.size(), true), true);
        QTRY_COMPARE(paints.count, 3u);
        settle();
        QCOMPARE(paints.count, 3u);
    }
};

QTEST_MAIN(TestHistogramView)
#include "tst_histogramview.moc"
