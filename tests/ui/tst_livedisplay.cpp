// Frames streamed by a simulated camera reach the screen through the display widget, in grey or in
// colour.
#include "mainwindow.h"
#include "uitesthelpers.h"

#include <appsettings.h>
#include <korvatincameraviewlane.h>
#include <korvatinframeconverted.h>
#include <loopbackdevice.h>
#include <qframesplittercentral.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <korvatin/gigevisiondeviceinfo.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {
// Inside the test's own network namespace any loopback address is private; outside it, the
// address stays in the range kept for the display's manual runs.
const QString kAddress = "127.0.6.20";
constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 480;

// A session streaming `pixelFormat` and a display output frame allocated by it, as the main
// window prepares them at connect.
struct Stream {
    std::unique_ptr<CAppSettings> settings;
    std::unique_ptr<CKorvatinCameraViewlane> session;
    CKorvatinFrame output;

    ~Stream() {
        if (session) {
            session->DisconnectDevice();
            session->ReleaseFrameBuffer(&output);
        }
    }
};
} // namespace

class TestLiveDisplay : public QObject {
    Q_OBJECT

    SimulatorProcess m_camsim;
    QTemporaryDir m_dir;
    int m_files = 0;

    std::unique_ptr<Stream> StartStream(const char* pixelFormat, QString* error) {
        auto stream = std::make_unique<Stream>();
        const QString path = m_dir.filePath(QString("settings%1.ini").arg(++m_files));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return nullptr;
        file.write("[host]\n");
        file.close();
        stream->settings = std::make_unique<CAppSettings>(path);
        stream->session = std::make_unique<CKorvatinCameraViewlane>(*stream->settings);
        try {
            stream->session->ConnectDevice(LoopbackDevice(kAddress.toLatin1().constData()));
            stream->session->SetEnumByString("PixelFormat", pixelFormat);
            stream->output.SetWidth(stream->session->MaxWidth());
            stream->output.SetHeight(stream->session->MaxHeight());
            stream->output.SetPixelType(0x02300018);
            stream->output.SetConversionAttributes(1, 8);
            if (stream->session->AllocateFrameBuffer(&stream->output, 0) != 0) {
                *error = "no conversion buffer";
                return nullptr;
            }
            stream->session->StartAcquisition();
        } catch (const std::exception& e) {
            *error = e.what();
            return nullptr;
        }
        return stream;
    }

    // Runs display ticks, as the main window's display timer does, until `count` images were
    // built from frames.
    static bool Show(Stream& stream, CQwidgetGrabbedFrame* widget, uint32_t count) {
        widget->SetOutputFrame(&stream.output);
        widget->SetConversionContext(stream.session->ConversionContext());
        QTimer ticks;
        ticks.setInterval(10);
        QObject::connect(&ticks, &QTimer::timeout, widget, [&] {
            CKorvatinFrameConverted* frame = stream.session->TakeDisplayFrame();
            if (!frame)
                return;
            if (CKorvatinFrameConverted* previous = widget->SetFrame(frame))
                stream.session->ReturnDisplayFrame(previous);
            widget->update();
        });
        ticks.start();
        widget->ResetPaintedFrameCount();
        for (int i = 0; i < 1000 && widget->PaintedFrameCount() < count; ++i)
            QTest::qWait(10);
        ticks.stop();
        return widget->PaintedFrameCount() >= count;
    }

    static void GiveBack(Stream& stream, CQwidgetGrabbedFrame* widget) {
        if (CKorvatinFrameConverted* frame = widget->TakeFrame())
            stream.session->ReturnDisplayFrame(frame);
        widget->SetConversionContext(nullptr);
        widget->SetOutputFrame(nullptr);
    }

private slots:
    void initTestCase() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the OpenGL display cannot paint");
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace (run as root with unshare) for its camera");
        QVERIFY(m_dir.isValid());
        QVERIFY2(m_camsim.startCamsim({"--address", kAddress, "--width", QString::number(kWidth),
                                       "--height", QString::number(kHeight)}),
                 qPrintable(m_camsim.errorString()));
    }

    void cleanupTestCase() { m_camsim.stop(); }

    void mono8FramesAppearInGrey() {
        QString error;
        auto stream = StartStream("Mono8", &error);
        QVERIFY2(stream, qPrintable(error));
        CQFrameSplitterCentral parent;
        parent.resize(kWidth + 10, kHeight + 10);
        auto* widget = new CQwidgetGrabbedFrame(&parent);
        parent.show();
        QVERIFY(QTest::qWaitForWindowExposed(&parent));
        QVERIFY(Show(*stream, widget, 3));
        QCOMPARE(widget->geometry(), QRect(5, 5, int(kWidth), int(kHeight)));
        const QImage shot = widget->grabFramebuffer();
        QCOMPARE(widget->Image()->format(), QImage::Format_Indexed8);
        // The simulator's ramp: grey levels that rise by one from pixel to pixel along a row.
        int rising = 0;
        for (int x = 10; x < 200; ++x) {
            const QColor a = shot.pixelColor(x, 100), b = shot.pixelColor(x + 1, 100);
            QCOMPARE(a.red(), a.green());
            QCOMPARE(a.green(), a.blue());
            rising += (b.red() == (a.red() + 1) % 256) ? 1 : 0;
        }
        QVERIFY2(rising > 150, qPrintable(QString::number(rising)));
        uitest::SaveScreenshot(&parent, "live_mono8");
        GiveBack(*stream, widget);
    }

    void bayerFramesAreInterpolatedToColourImages() {
        QString error;
        auto stream = StartStream("BayerRG8", &error);
        QVERIFY2(stream, qPrintable(error));
        CQFrameSplitterCentral parent;
        parent.resize(kWidth + 10, kHeight + 10);
        auto* widget = new CQwidgetGrabbedFrame(&parent);
        widget->SetBayerMode(3);
        parent.show();
        QVERIFY(QTest::qWaitForWindowExposed(&parent));
        QVERIFY(Show(*stream, widget, 3));
        widget->grabFramebuffer();
        QCOMPARE(widget->Image()->format(), QImage::Format_RGB888);
        // Without interpolation the mosaic is shown as grey.
        widget->SetBayerMode(0);
        QVERIFY(Show(*stream, widget, 2));
        widget->grabFramebuffer();
        QCOMPARE(widget->Image()->format(), QImage::Format_Indexed8);
        uitest::SaveScreenshot(&parent, "live_bayerrg8");
        GiveBack(*stream, widget);
    }

    void rgb8FramesAppearInColour() {
        QString error;
        auto stream = StartStream("RGB8", &error);
        QVERIFY2(stream, qPrintable(error));
        CQFrameSplitterCentral parent;
        parent.resize(kWidth + 10, kHeight + 10);
        auto* widget = new CQwidgetGrabbedFrame(&parent);
        parent.show();
        QVERIFY(QTest::qWaitForWindowExposed(&parent));
        QVERIFY(Show(*stream, widget, 3));
        const QImage shot = widget->grabFramebuffer();
        QCOMPARE(widget->Image()->format(), QImage::Format_RGB888);
        // Red follows the column and green the row: a step right changes red only.
        const QColor a = shot.pixelColor(100, 100), b = shot.pixelColor(101, 100);
        const QColor c = shot.pixelColor(100, 101);
        QCOMPARE(b.red(), (a.red() + 1) % 256);
        QCOMPARE(b.green(), a.green());
        QCOMPARE(c.green(), (a.green() + 1) % 256);
        QCOMPARE(c.red(), a.red());
        uitest::SaveScreenshot(&parent, "live_rgb8");
        GiveBack(*stream, widget);
    }

    void mainWindowShowsTheStream() {
        QString error;
        auto stream = StartStream("RGB8", &error);
        QVERIFY2(stream, qPrintable(error));
        const QString path = m_dir.filePath("window.ini");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[host]\nshowDropFrame=true\n");
        file.close();
        MainWindow window(nullptr, path);
        window.resize(1280, 800);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* widget = window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        QVERIFY(Show(*stream, widget, 5));
        QTest::qWait(100);
        QVERIFY(widget->width() > 100 && widget->height() > 100);
        const QString shot = uitest::SaveScreenshot(&window, "mainwindow_streaming");
        QVERIFY(QFile::exists(shot));
        GiveBack(*stream, widget);
    }
};

QTEST_MAIN(TestLiveDisplay)
#include "tst_livedisplay.moc"
