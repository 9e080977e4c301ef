// The window in every pixel format the simulator streams: the display shows the colour bars in
// their colours; a format that is not an image is refused by name, at connect and when chosen.
#include "colourbars.h"
#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"
#include "loopbackdevice.h"
#include "qwidgetgrabbedframe.h"
#include "simulatorprocess.h"
#include "testnetwork.h"
#include "windowdriver.h"

#include <korvatin/korvatincamera.h>

#include <QComboBox>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

using namespace e2e;
using namespace colourbars;

namespace {

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 16;
const QString kRefusal = "pixel format Coord3D_ABC8 (0x021800B2) holds 3D coordinates, not an "
                         "image: it cannot be shown, recorded or saved";

CQwidgetGrabbedFrame* GrabbedFrame(MainWindow& window) {
    return window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
}

std::string CurrentFormat(MainWindow& window) {
    char text[64] = {};
    window.Session()->GetEnum("PixelFormat", text, sizeof(text));
    return text;
}

} // namespace

class TestPixelFormatWindow : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // A window connected to a simulator showing the bars; stream buffers deep enough for every
    // format (48 bits a pixel), so that the format can change while streaming.
    std::unique_ptr<MainWindow>
    ConnectedWindow(SimulatorProcess& sim, const QString& address,
                    const std::function<void()>& beforeConnect = {},
                    const QByteArray& settings = "[resource]\nmaxBitsPerPixel=48\n") {
        if (!sim.startCamsim({"--address", address, "--pattern", "bars", "--width",
                              QString::number(kWidth), "--height", QString::number(kHeight)}))
            return nullptr;
        if (beforeConnect)
            beforeConnect();
        auto window = OpenWindow(
            WriteSettings(m_dir.filePath(address + ".ini"), QByteArray(), settings), 1, 1200, 800);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    // Every format chosen while streaming: the display's image becomes the bars, each pixel in
    // its bar's colour (grey formats in the bar's luma), Bayer shown by nearest neighbour.
    void everyFormatShowsTheBarsInTheirColours() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.61");
        QVERIFY(window);
        window->findChild<QComboBox*>("comboBox_bayer")->setCurrentIndex(1);
        QCOMPARE(window->BayerMode(), 1u);
        MessageBoxWatcher boxes;
        for (const camsim::PixelFormatInfo* f : imageFormats()) {
            window->Session()->SetEnumByString("PixelFormat", f->name);
            // Frames of the new format reach the display, and one of them is painted.
            CQwidgetGrabbedFrame* display = GrabbedFrame(*window);
            QVERIFY2(QTest::qWaitFor(
                         [&] {
                             const CKorvatinFrameConverted* current = display->CurrentFrame();
                             return current && current->SourceRawFrame() &&
                                    current->SourceRawFrame()->PixelType() == f->code;
                         },
                         20000),
                     f->name);
            const uint32_t painted = display->PaintedFrameCount();
            QVERIFY2(
                QTest::qWaitFor([&] { return display->PaintedFrameCount() > painted + 1; }, 20000),
                f->name);
            const QImage* image = display->Image();
            QVERIFY2(image && image->width() == int(kWidth) && image->height() == int(kHeight),
                     f->name);
            const int channels = image->isGrayscale() ? 1 : 3;
            QCOMPARE(channels == 1, isMono(*f));
            QString error;
            const bool shown = matchesBars(
                *f, kWidth, kHeight, channels,
                [&](uint32_t x, uint32_t y, int c) {
                    const QRgb rgb = image->pixel(int(x), int(y));
                    return c == 0 ? qRed(rgb) : c == 1 ? qGreen(rgb) : qBlue(rgb);
                },
                &error);
            uitest::SaveScreenshot(GrabbedFrame(*window), QString("pixelformat-%1").arg(f->name));
            QVERIFY2(shown, qPrintable(QString(f->name) + ": " + error));
        }
        QVERIFY2(boxes.texts.isEmpty(), qPrintable(boxes.texts.join(" | ")));
        window->Session()->SetEnumByString("PixelFormat", "YCbCr422_8");
        SaveAtBothSizes(*window, "mainwindow-ycbcr422");
    }

    // Choosing a format that is not an image shows why, naming it, and the camera goes back to
    // the format it streamed before, whose bars the display keeps showing.
    void choosingAFormatThatIsNotAnImageIsRefusedAndUndone() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.62");
        QVERIFY(window);
        window->Session()->SetEnumByString("PixelFormat", "RGB8");
        MessageBoxWatcher boxes;
        window->Session()->SetEnumByString("PixelFormat", "Coord3D_ABC8");
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts,
                                  QStringList{kRefusal + "; PixelFormat is back to RGB8."}, 10000);
        QCOMPARE(CurrentFormat(*window), std::string("RGB8"));
        QVERIFY(window->IsConnected());
        const uint32_t painted = GrabbedFrame(*window)->PaintedFrameCount();
        QTRY_VERIFY_WITH_TIMEOUT(GrabbedFrame(*window)->PaintedFrameCount() > painted + 2, 20000);
    }

    // With the buffers of the default settings (24 bits a pixel), a format of 48 bits a pixel at
    // the full sensor size would lose every frame: it is undone, and the message says which
    // setting to raise.
    void aFormatWhoseFramesTheBuffersCannotHoldIsUndone() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.64", {}, QByteArray());
        QVERIFY(window);
        MessageBoxWatcher boxes;
        window->Session()->SetEnumByString("PixelFormat", "RGB8");
        window->Session()->SetEnumByString("PixelFormat", "RGB16");
        QTRY_COMPARE_WITH_TIMEOUT(
            boxes.texts,
            QStringList{
                QString("pixel format RGB16: a frame takes %1 bytes, but the stream buffers "
                        "hold %2 (resource/maxBitsPerPixel 24 is too low for it; 48 or "
                        "more is needed); PixelFormat is back to RGB8.")
                    .arg(kWidth * kHeight * 6)
                    .arg(kWidth * kHeight * 3)},
            10000);
        QCOMPARE(CurrentFormat(*window), std::string("RGB8"));
        const uint32_t painted = GrabbedFrame(*window)->PaintedFrameCount();
        QTRY_VERIFY_WITH_TIMEOUT(GrabbedFrame(*window)->PaintedFrameCount() > painted + 2, 20000);
    }

    // A camera already in such a format when the window connects: the connection stays (so that
    // another format can be chosen) and the message names the format.
    void aCameraInAFormatThatIsNotAnImageIsReportedAtConnect() {
        SimulatorProcess sim;
        MessageBoxWatcher boxes;
        auto window = ConnectedWindow(sim, "127.0.11.63", [] {
            CKorvatinCamera camera;
            camera.Connect(LoopbackDevice("127.0.11.63"), nullptr);
            camera.SetEnumByString("PixelFormat", "Coord3D_ABC8");
            camera.Disconnect();
        });
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts, QStringList{kRefusal + "."}, 10000);
        QVERIFY(window->IsConnected());
        // Choosing an image format then shows it, with nothing more to say.
        window->Session()->SetEnumByString("PixelFormat", "Mono8");
        const uint32_t painted = GrabbedFrame(*window)->PaintedFrameCount();
        QTRY_VERIFY_WITH_TIMEOUT(GrabbedFrame(*window)->PaintedFrameCount() > painted + 2, 20000);
        QCOMPARE(boxes.texts.size(), 1);
    }
};

QTEST_MAIN(TestPixelFormatWindow)
#include "tst_pixelformatwindow.moc"
