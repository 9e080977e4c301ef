// The status bar's pixel read-out over the simulator's still colour bars: coordinates and the
// value as received (grey at the format's depth, the Bayer cell's colour and level, R, G, B) at
// chosen points through three zoom levels and a pan, and nothing outside the image; over the
// moving ramp, a resting pointer that follows the frames and the view.
#include "colourbars.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "paintcounter.h"
#include "pixelreadout.h"
#include "qwidgetgrabbedframe.h"
#include "simulatorprocess.h"
#include "testnetwork.h"
#include "windowdriver.h"

#include <QMouseEvent>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace e2e;

namespace {

constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 480;

CQwidgetGrabbedFrame* GrabbedFrame(MainWindow& window) {
    return window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
}

QLabel* Readout(MainWindow& window) {
    return window.findChild<QLabel*>("label_pixelValue");
}

void MovePointer(QWidget* widget, const QPoint& pos, Qt::MouseButtons buttons = Qt::NoButton) {
    QMouseEvent move(QEvent::MouseMove, QPointF(pos), widget->mapToGlobal(QPointF(pos)),
                     Qt::NoButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(widget, &move);
}

// What the bars hold at image pixel (x, y) in `format`, as the read-out words it.
QString ExpectedValue(const QString& format, uint32_t x, uint32_t y) {
    int rgb[3];
    colourbars::barColour(x, rgb);
    const int luma = (299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000;
    if (format == "Mono8")
        return QString("Grey %1").arg(luma);
    if (format == "Mono12")
        // Wider samples repeat the level's top bits below it.
        return QString("Grey %1").arg((luma << 4) | (luma >> 4));
    if (format == "BayerRG8") {
        static const char kCell[] = "RGGB";
        const char colour = kCell[(y & 1) * 2 + (x & 1)];
        const int channel = colour == 'R' ? 0 : colour == 'G' ? 1 : 2;
        return QString("Bayer %1 %2").arg(colour).arg(rgb[channel]);
    }
    return QString("R %1 G %2 B %3").arg(rgb[0]).arg(rgb[1]).arg(rgb[2]);
}

// Empty when `drawn` and `plain` differ only inside `box`, and there over more than half of
// it, darker than `plain`, with white text on it; else what is wrong.
QString OnlyABoxDiffers(const QImage& drawn, const QImage& plain, const QRect& box) {
    if (drawn.size() != plain.size())
        return "the pictures have other sizes";
    int changed = 0, outside = 0, text = 0;
    qint64 drawnSum = 0, plainSum = 0;
    for (int y = 0; y < drawn.height(); ++y)
        for (int x = 0; x < drawn.width(); ++x) {
            const QRgb a = drawn.pixel(x, y);
            const QRgb b = plain.pixel(x, y);
            if (box.contains(x, y)) {
                drawnSum += qGray(a);
                plainSum += qGray(b);
                text += (qRed(a) > 240 && qGreen(a) > 240 && qBlue(a) > 240 && qGray(b) < 240);
            }
            if (a != b)
                (box.contains(x, y) ? changed : outside) += 1;
        }
    if (outside != 0)
        return QString("%1 pixels differ outside the box").arg(outside);
    if (changed <= box.width() * box.height() / 2)
        return QString("only %1 pixels of the box differ").arg(changed);
    if (drawnSum >= plainSum)
        return QString("the box is not darker: %1 against %2").arg(drawnSum).arg(plainSum);
    if (text <= 20)
        return QString("%1 white text pixels in the box").arg(text);
    return QString();
}

} // namespace

class TestPixelReadout : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // Points the pointer rests on, as fractions of the display, and checks the read-out there
    // against the view's own mapping and the bars.
    void CheckPoints(MainWindow& window, const QString& format) {
        CQwidgetGrabbedFrame* display = GrabbedFrame(window);
        const QList<QPointF> fractions{{0.02, 0.03}, {0.31, 0.5}, {0.5, 0.77}, {0.93, 0.96}};
        for (const QPointF& f : fractions) {
            const QPoint pos(int(f.x() * display->width()), int(f.y() * display->height()));
            MovePointer(display, pos);
            QRect visible;
            int zoom = 0;
            display->GetView(visible, zoom);
            const uint32_t x = uint32_t(visible.x() + visible.width() * pos.x() / display->width());
            const uint32_t y =
                uint32_t(visible.y() + visible.height() * pos.y() / display->height());
            const QString expected =
                QString("X %1  Y %2  %3").arg(x).arg(y).arg(ExpectedValue(format, x, y));
            QVERIFY2(Readout(window)->text() == expected,
                     qPrintable(QString("%1 at %2 %: \"%3\", expected \"%4\"")
                                    .arg(format)
                                    .arg(zoom)
                                    .arg(Readout(window)->text(), expected)));
        }
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
    }

    void readOutMatchesTheBarsAtThreeZoomLevels() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.31", "--pattern", "bars", "--width",
                                  QString::number(kWidth), "--height", QString::number(kHeight)}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini"), QByteArray(),
                                               "[resource]\nmaxBitsPerPixel=48\n"),
                                 1, 1400, 900);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));
        CQwidgetGrabbedFrame* display = GrabbedFrame(*window);
        QLabel* readout = Readout(*window);
        QVERIFY(readout);

        for (const QString format : {"Mono8", "Mono12", "BayerRG8", "RGB8"}) {
            window->Session()->SetEnumByString("PixelFormat", format.toUtf8().constData());
            QVERIFY2(QTest::qWaitFor(
                         [&] {
                             const CKorvatinFrameConverted* current = display->CurrentFrame();
                             return current && current->SourceRawFrame() &&
                                    QString(CKorvatinFrame::PixelFormatName(
                                        current->SourceRawFrame()->PixelType())) == format &&
                                    display->Image();
                         },
                         20000),
                     qPrintable(format));
            display->ResetView();
            CheckPoints(*window, format); // 100 %
            display->ZoomIn();
            display->ZoomIn();
            CheckPoints(*window, format); // 200 %
            display->ZoomIn();
            display->ZoomIn();
            CheckPoints(*window, format); // 400 %
            // Panned by a drag in pan mode: the view moves right and down.
            QRect before;
            int zoom = 0;
            display->GetView(before, zoom);
            QCOMPARE(zoom, 400);
            display->SetPanMode(true);
            const QPoint start(display->width() / 2, display->height() / 2);
            QTest::mousePress(display, Qt::LeftButton, Qt::NoModifier, start);
            MovePointer(display, start - QPoint(10, 10), Qt::LeftButton);
            MovePointer(display, start - QPoint(120, 90), Qt::LeftButton);
            QTest::mouseRelease(display, Qt::LeftButton, Qt::NoModifier, start - QPoint(120, 90));
            display->SetPanMode(false);
            QRect after;
            display->GetView(after, zoom);
            QVERIFY2(after.topLeft() != before.topLeft(), "the drag did not pan");
            CheckPoints(*window, format);
            if (format == "RGB8") {
                MovePointer(display, QPoint(display->width() / 3, display->height() / 3));
                SaveAtBothSizes(*window, "pixelreadout-rgb8-zoomed");
            }
        }

        // Outside the image nothing is shown.
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(display, &leave);
        QCOMPARE(readout->text(), QString());
    }

    void aRestingPointerFollowsTheLiveImageAndTheView() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.32", "--width", QString::number(kWidth),
                                  "--height", QString::number(kHeight)}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings-moving.ini")), 1);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));
        CQwidgetGrabbedFrame* display = GrabbedFrame(*window);
        QLabel* readout = Readout(*window);
        QVERIFY(QTest::qWaitFor([&] { return display->Image() != nullptr; }, 20000));
        const QPoint pos(display->width() / 3, display->height() / 3);
        MovePointer(display, pos);
        const QString first = readout->text();
        QVERIFY2(first.startsWith("X ") && first.contains("Grey "), qPrintable(first));
        // The ramp moves under the pointer, which does not: the value follows the frames.
        QVERIFY2(QTest::qWaitFor([&] { return readout->text() != first; }, 20000),
                 qPrintable(first));
        const QString second = readout->text();
        QVERIFY2(QTest::qWaitFor([&] { return readout->text() != second; }, 20000),
                 qPrintable(second));

        // A reading takes only the room the status bar has left: on a small screen the window
        // keeps its width, however long the text.
        window->resize(1072, 732);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QCOMPARE(window->width(), 1072);
        MovePointer(display, QPoint(display->width() / 2, display->height() / 2));
        QVERIFY(!readout->text().isEmpty());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QCOMPARE(window->width(), 1072);
        QVERIFY2(window->minimumSizeHint().width() <= 1072,
                 qPrintable(QString::number(window->minimumSizeHint().width())));

        // Zoomed without a pointer move, the coordinates are those of the new view at once: in
        // the display's first paint after the zoom, not up to 250 ms later as a new frame's
        // value under a resting pointer. The probe, installed after the read-out, sees each
        // paint before the read-out does, so the text it notes at the second paint is what the
        // first one left. The window may still be fitting its panels to the size just given, so
        // the expected coordinates are those of the display's size at that first paint.
        QStringList texts;
        QList<QSize> sizes;
        PaintCounter probe;
        probe.onPaint = [&] {
            texts << readout->text();
            sizes << display->size();
        };
        display->installEventFilter(&probe);
        MovePointer(display, pos); // written just now: a paced write would wait its 250 ms
        display->ZoomIn();
        display->ZoomIn();
        QRect visible;
        int zoom = 0;
        display->GetView(visible, zoom);
        QCOMPARE(zoom, 200);
        const auto coordinatesAt = [&](const QSize& size) {
            return QString("X %1  Y %2  ")
                .arg(visible.x() + visible.width() * pos.x() / size.width())
                .arg(visible.y() + visible.height() * pos.y() / size.height());
        };
        QVERIFY(QTest::qWaitFor([&] { return texts.size() >= 2; }, 20000));
        QVERIFY2(texts[1].startsWith(coordinatesAt(sizes[0])),
                 qPrintable(texts.join(" | ") + ", expected " + coordinatesAt(sizes[0])));

        // Resized under a resting pointer, the same place on the display shows another pixel:
        // written in the first paint at the new size too.
        texts.clear();
        sizes.clear();
        MovePointer(display, pos);
        const QSize small = display->size();
        window->resize(1600, 1000);
        QVERIFY(QTest::qWaitFor(
            [&] {
                const qsizetype first = sizes.indexOf(display->size());
                return display->size() != small && first >= 0 && texts.size() > first + 1;
            },
            20000));
        display->GetView(visible, zoom);
        const QString resized = coordinatesAt(display->size());
        QVERIFY2(texts[sizes.indexOf(display->size()) + 1].startsWith(resized),
                 qPrintable(texts.join(" | ") + ", expected " + resized));
    }

    void aReadingWithoutRoomInTheStatusBarIsDrawnOverThePicture() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.20.33", "--pattern", "bars", "--width",
                                  QString::number(kWidth), "--height", QString::number(kHeight)}),
                 qPrintable(sim.errorString()));
        // Every field of the status bar shown (the dropped-frame count too) in a 1072-pixel
        // window: a few pixels are left for the reading.
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings-room.ini")), 1, 1072, 732);
        QVERIFY(window);
        QVERIFY(ConnectFirstRow(*window));
        CQwidgetGrabbedFrame* display = GrabbedFrame(*window);
        QLabel* readout = Readout(*window);
        QVERIFY(QTest::qWaitFor([&] { return display->Image() != nullptr; }, 20000));
        QCOMPARE(window->width(), 1072);

        // The pointer in the upper half: the reading is drawn at the bottom.
        MovePointer(display, QPoint(display->width() / 3, display->height() / 4));
        const QString reading = readout->text();
        QVERIFY2(reading.startsWith("X ") && reading.contains("Grey "), qPrintable(reading));
        QVERIFY(QTest::qWaitFor([&] { return display->OverlayText() == reading; }, 20000));
        QVERIFY(readout->fontMetrics().horizontalAdvance(reading) >
                readout->contentsRect().width());
        QVERIFY(!display->OverlayAtTop());
        const QImage drawn = display->grabFramebuffer();
        SaveAtBothSizes(*window, "pixelreadout-no-room");
        window->resize(1072, 732);

        // Outside the picture the reading goes, from the status bar and from the picture.
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(display, &leave);
        QCOMPARE(readout->text(), QString());
        QCOMPARE(display->OverlayText(), QString());
        QVERIFY(QTest::qWaitFor([&] { return display->size() == drawn.size(); }, 20000));
        const QImage plain = display->grabFramebuffer();
        QCOMPARE(plain.size(), drawn.size());
        // What differs is a box at the bottom left corner, one line of text high, darker than
        // the bars under it, with the white text in it.
        const QFontMetrics metrics(display->font());
        const auto boxFor = [&](const QString& text, bool atTop) {
            const QSize size(metrics.horizontalAdvance(text) + 16, metrics.height() + 8);
            return QRect(QPoint(0, atTop ? 0 : drawn.height() - size.height()), size);
        };
        QString differences = OnlyABoxDiffers(drawn, plain, boxFor(reading, false));
        QVERIFY2(differences.isEmpty(), qPrintable(differences));

        // The pointer in the lower half: at the top, away from it.
        MovePointer(display, QPoint(display->width() / 3, display->height() * 3 / 4));
        const QString lower = readout->text();
        QVERIFY2(lower.startsWith("X ") && lower != reading, qPrintable(lower));
        QVERIFY(QTest::qWaitFor([&] { return display->OverlayText() == lower; }, 20000));
        QVERIFY(display->OverlayAtTop());
        differences = OnlyABoxDiffers(display->grabFramebuffer(), plain, boxFor(lower, true));
        QVERIFY2(differences.isEmpty(), qPrintable(differences));
        SaveAtBothSizes(*window, "pixelreadout-no-room-top");

        // With room for it the reading is in the status bar alone.
        window->resize(1600, 1000);
        QVERIFY(QTest::qWaitFor(
            [&] {
                return display->OverlayText().isEmpty() &&
                       readout->fontMetrics().horizontalAdvance(readout->text()) <=
                           readout->contentsRect().width();
            },
            20000));
        QVERIFY(readout->text().startsWith("X "));
    }

    void aReadingIsOnlyTakenInsideTheImage() {
        QPoint image;
        QVERIFY(CPixelReadout::ImagePosition(QRect(10, 20, 100, 50), QSize(200, 100),
                                             QPoint(199, 99), &image));
        QCOMPARE(image, QPoint(10 + 99, 20 + 49));
        QVERIFY(!CPixelReadout::ImagePosition(QRect(10, 20, 100, 50), QSize(200, 100),
                                              QPoint(200, 50), &image));
        QVERIFY(!CPixelReadout::ImagePosition(QRect(10, 20, 100, 50), QSize(200, 100),
                                              QPoint(-1, 50), &image));
        QVERIFY(!CPixelReadout::ImagePosition(QRect(), QSize(200, 100), QPoint(5, 5), &image));
    }
};

QTEST_MAIN(TestPixelReadout)
#include "tst_pixelreadout.moc"
