// The display's view model: zoom bands, zoom to a rectangle, panning at the image's edges.
#include <zoomview.h>

#include <QTest>

class TestZoomView : public QObject {
    Q_OBJECT

private slots:
    void sizeShowsTheWholeImage() {
        CZoomView view;
        view.SetSize(640, 480);
        QCOMPARE(view.Zoom(), 100);
        QCOMPARE(view.Visible(), QRect(0, 0, 640, 480));
        QCOMPARE(view.Anchor(), QRect(0, 0, 640, 480));
    }

    void zoomInFrom150FollowsTheBands() {
        CZoomView view;
        view.SetSize(2448, 2048);
        view.SetZoom(150);
        QList<int> zooms;
        for (int i = 0; i < 10; ++i) {
            view.ZoomIn();
            zooms << view.Zoom();
        }
        QCOMPARE(zooms, QList<int>({200, 300, 400, 600, 800, 1200, 1600, 2400, 3200, 4800}));
        view.ZoomOut();
        QCOMPARE(view.Zoom(), 2400);
    }

    void zoomOutWalksTheBandsBackToTheWholeImage() {
        CZoomView view;
        view.SetSize(1000, 1000);
        view.SetZoom(4800);
        QList<int> zooms;
        for (int i = 0; i < 12; ++i) {
            view.ZoomOut();
            zooms << view.Zoom();
        }
        QCOMPARE(zooms,
                 QList<int>({2400, 1600, 1200, 800, 600, 400, 300, 200, 150, 100, 100, 100}));
    }

    void zoomOutNeverGoesBelow100() {
        CZoomView view;
        view.SetSize(1000, 1000);
        view.SetZoom(120);
        view.ZoomOut();
        QCOMPARE(view.Zoom(), 100);
    }

    void zoomInStopsAtTheLimit() {
        CZoomView view;
        view.SetSize(4000, 4000);
        view.SetZoom(CZoomView::kMaxZoom);
        view.ZoomIn();
        QCOMPARE(view.Zoom(), CZoomView::kMaxZoom);
    }

    void zoomIsAnAreaRatioAroundTheAnchorCentre() {
        CZoomView view;
        view.SetSize(1000, 1000);
        view.SetZoom(400);
        // A quarter of the area: half the width and half the height, centred.
        QCOMPARE(view.Visible().width(), 500);
        QCOMPARE(view.Visible().height(), 500);
        QCOMPARE(view.Visible().topLeft(), QPoint(499 - 250, 499 - 250));
    }

    void zoomToRectShowsItAndComputesTheZoom() {
        CZoomView view;
        view.SetSize(800, 600);
        view.ZoomToRect(QRect(100, 50, 200, 150));
        QCOMPARE(view.Visible(), QRect(100, 50, 200, 150));
        QCOMPARE(view.Anchor(), QRect(100, 50, 200, 150));
        QCOMPARE(view.Zoom(), 800 * 600 * 100 / (200 * 150));
        view.ZoomToRect(QRect());
        QCOMPARE(view.Visible(), QRect(100, 50, 200, 150));
    }

    void zoomToRectWorksUpToTheLimitAndNotAtIt() {
        CZoomView view;
        view.SetSize(1000, 1000);
        // 7 x 143 = 1001 pixels: 99,900 %, still below the limit, so the next rectangle zooms.
        view.ZoomToRect(QRect(100, 100, 7, 143));
        QCOMPARE(view.Zoom(), 1000 * 1000 * 100 / 1001);
        // 1,000 pixels: exactly the limit. A rectangle may take the zoom to it (or past it).
        view.ZoomToRect(QRect(100, 100, 10, 100));
        QCOMPARE(view.Zoom(), CZoomView::kMaxZoom);
        QCOMPARE(view.Visible(), QRect(100, 100, 10, 100));
        // At the limit a further rectangle changes nothing.
        view.ZoomToRect(QRect(101, 101, 2, 2));
        QCOMPARE(view.Zoom(), CZoomView::kMaxZoom);
        QCOMPARE(view.Visible(), QRect(100, 100, 10, 100));
        QCOMPARE(view.Anchor(), QRect(100, 100, 10, 100));
    }

    void zoomNearAnEdgeStaysInsideTheImage() {
        CZoomView view;
        view.SetSize(1000, 1000);
        view.ZoomToRect(QRect(900, 900, 100, 100));
        view.ZoomOut();
        const QRect v = view.Visible();
        QVERIFY(v.left() >= 0 && v.top() >= 0);
        QVERIFY(v.left() + v.width() <= 1000 && v.top() + v.height() <= 1000);
        QCOMPARE(view.Anchor(), v);
    }

    void panStopsAtTheEdges() {
        CZoomView view;
        view.SetSize(1000, 800);
        view.ZoomToRect(QRect(400, 300, 200, 200));
        view.Pan(50, -20);
        QCOMPARE(view.Visible(), QRect(450, 280, 200, 200));
        view.Pan(5000, 5000);
        QCOMPARE(view.Visible(), QRect(800, 600, 200, 200));
        view.Pan(-5000, -5000);
        QCOMPARE(view.Visible(), QRect(0, 0, 200, 200));
        QCOMPARE(view.Anchor(), view.Visible());
    }

    void resetReturnsToTheWholeImage() {
        CZoomView view;
        view.SetSize(640, 480);
        view.ZoomToRect(QRect(10, 10, 20, 20));
        view.Reset();
        QCOMPARE(view.Visible(), QRect(0, 0, 640, 480));
        QCOMPARE(view.Zoom(), 100);
    }
};

QTEST_MAIN(TestZoomView)
#include "tst_zoomview.moc"
