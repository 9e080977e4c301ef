// The main window's commands on the live stream and its small dialogs: saving a frame (read back
// by libtiff and ffmpeg), the auto region from a drag on the image, loading a GenICam file, the
// discovery, recording and About dialogs.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <appsettings.h>
#include <bulkdescription.h>
#include <devicediscoverythread.h>
#include <dialogabout.h>
#include <dialogdevicediscoverysettings.h>
#include <dialogrecordingsettings.h>
#include <displaytimer.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <tiffio.h>

#include <functional>
#include <memory>

using namespace e2e;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 32;

// Runs `open`; once a modal dialog of type T shows, hands it to `use` (which closes it).
template <typename T>
void withDialog(QObject* context, const std::function<void()>& open,
                const std::function<void(T&)>& use) {
    QVERIFY(uitest::WithModal<T>(context, open, use));
}

// Chooses `path` with `filter` in the file dialog `open` shows (or cancels it when `path` is
// empty); returns the display timer's interval while the dialog was open.
uint chooseFile(MainWindow& window, const std::function<void()>& open, const QString& path,
                const QString& filter = QString()) {
    uint interval = 0;
    withDialog<QFileDialog>(&window, open, [&](QFileDialog& files) {
        interval = window.DisplayTimer()->interval();
        // As a user takes a moment to choose, the display (slowed down meanwhile) leaves frames
        // waiting; a connected window is kept here until two do.
        if (window.IsConnected()) {
            const bool waiting = QTest::qWaitFor(
                [&] { return window.Session()->Pipeline().readyConvertedFrames.size() >= 2; },
                20000);
            if (!waiting)
                qWarning("no frame waited for the display");
        }
        if (path.isEmpty()) {
            files.reject();
            return;
        }
        if (!uitest::AcceptFile(files, path, filter))
            qWarning("the file dialog did not take %s", qPrintable(path));
    });
    return interval;
}

// The Mono8 ramp of korvatin-camsim: every pixel its top-left level plus x plus y.
bool isRamp(const std::function<int(int, int)>& pixel, int width, int height) {
    const int origin = pixel(0, 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (pixel(x, y) != ((origin + x + y) & 0xFF))
                return false;
    return true;
}

// The independent statement of the auto-region rounding: clamp, then round to the increment
// from 0, halfway and above up.
uint32_t rounded(uint32_t value, uint32_t min, uint32_t max, uint32_t inc) {
    value = std::max(min, std::min(value, max));
    const uint32_t r = value % inc;
    return 2 * r >= inc ? value - r + inc : value - r;
}

} // namespace

class TestWindowCommands : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> OpenWindow(int rows) {
        return e2e::OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), rows);
    }

    // A window connected to a camsim at `address` streaming a still Mono8 ramp.
    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim, const QString& address,
                                                const QStringList& extra = {}) {
        if (!sim.startCamsim(QStringList{"--address", address} + extra))
            return nullptr;
        auto window = OpenWindow(1);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

    static CQwidgetGrabbedFrame* Display(MainWindow& window) {
        return window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
    }

    // Waits until two frames painted one after the other hold the same pixels: from then on
    // the display shows the still pattern (the moving one shifts with every frame). False when
    // that does not happen within the time-out.
    static bool waitForStillFrame(MainWindow& window) {
        CQwidgetGrabbedFrame* display = Display(window);
        uint32_t painted = display->PaintedFrameCount();
        QImage previous;
        return QTest::qWaitFor(
            [&] {
                if (display->PaintedFrameCount() == painted || !display->Image())
                    return false;
                painted = display->PaintedFrameCount();
                // The shown image reads the frame's own buffer: a copy keeps its pixels.
                QImage shown = display->Image()->copy();
                const bool still = !previous.isNull() && shown == previous;
                previous = std::move(shown);
                return still;
            },
            20000);
    }

    static void sendMouse(QWidget* widget, QEvent::Type type, QPoint pos, Qt::MouseButton button,
                          Qt::MouseButtons buttons) {
        QMouseEvent event(type, pos, widget->mapToGlobal(pos), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(widget, &event);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void savingWithoutAStreamShowsTheMessageAndWritesNothing() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        const QString path = m_dir.filePath("nostream.raw");
        chooseFile(
            *window,
            [&] { QMetaObject::invokeMethod(window.get(), "on_pushButton_file_save_clicked"); },
            path);
        QCOMPARE(boxes.texts, QStringList{"Fail to get frame to save. Please start streaming."});
        QVERIFY(!QFile::exists(path));
    }

    void cancellingTheSaveDialogRestoresTheDisplayInterval() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.10");
        QVERIFY(window);
        window->findChild<QComboBox*>("comboBox_display")->setCurrentIndex(1);
        QCOMPARE(window->DisplayInterval(), 30);
        MessageBoxWatcher boxes;
        withDialog<QFileDialog>(
            window.get(), [&] { window->findChild<QPushButton*>("pushButton_file_save")->click(); },
            [&](QFileDialog& files) {
                QCOMPARE(files.windowTitle(), QString("Save Frame to File"));
                QCOMPARE(
                    files.nameFilters(),
                    (QStringList{"Raw data (*.raw)", "Tiff format (*.tif)", "BMP format (*.bmp)"}));
                QCOMPARE(files.selectedNameFilter(), QString("Raw data (*.raw)"));
                QCOMPARE(window->DisplayTimer()->interval(), 1000u);
                files.reject();
            });
        QCOMPARE(window->DisplayTimer()->interval(), 30u);
        QVERIFY(window->DisplayTimer()->isActive());
        QVERIFY(boxes.texts.isEmpty());
        const uint32_t painted = Display(*window)->PaintedFrameCount();
        QTRY_VERIFY_WITH_TIMEOUT(Display(*window)->PaintedFrameCount() > painted + 3, 20000);
    }

    void savedFramesHoldThePixelsInRawTiffAndBmp() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(
            sim, "127.0.11.20",
            {"--width", QString::number(kWidth), "--height", QString::number(kHeight)});
        QVERIFY(window);
        window->Session()->SetBool("TestPatternMoving", false);
        // Frames made before the stop are still on their way to the display; the save takes
        // the shown frame, so the saves begin once a still one is shown.
        QVERIFY(waitForStillFrame(*window));
        MessageBoxWatcher boxes;
        const QString raw = m_dir.filePath("frame.raw");
        const QString tif = m_dir.filePath("frame.tif");
        const QString bmp = m_dir.filePath("frame.bmp");
        QPushButton* save = window->findChild<QPushButton*>("pushButton_file_save");
        QCOMPARE(chooseFile(
                     *window, [&] { save->click(); }, raw, "Raw data (*.raw)"),
                 1000u);
        QCOMPARE(chooseFile(
                     *window, [&] { save->click(); }, tif, "Tiff format (*.tif)"),
                 1000u);
        QCOMPARE(chooseFile(
                     *window, [&] { save->click(); }, bmp, "BMP format (*.bmp)"),
                 1000u);
        QCOMPARE(boxes.texts,
                 (QStringList{"Frame was saved to: " + raw, "Frame was saved to: " + tif,
                              "Frame was saved to: " + bmp}));
        QCOMPARE(window->DisplayTimer()->interval(), uint(window->DisplayInterval()));

        // Raw: the sensor bytes as received.
        QFile rawFile(raw);
        QVERIFY(rawFile.open(QIODevice::ReadOnly));
        const QByteArray bytes = rawFile.readAll();
        QCOMPARE(bytes.size(), kWidth * kHeight);
        QVERIFY(
            isRamp([&](int x, int y) { return uchar(bytes[y * kWidth + x]); }, kWidth, kHeight));

        // TIFF, read by libtiff: 8-bit grey of the frame's size with the same pixels.
        TIFF* tiff = TIFFOpen(QFile::encodeName(tif).constData(), "r");
        QVERIFY(tiff);
        uint32_t width = 0, height = 0;
        uint16_t samples = 0, bits = 0;
        TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
        QCOMPARE(width, uint32_t(kWidth));
        QCOMPARE(height, uint32_t(kHeight));
        QCOMPARE(samples, uint16_t(1));
        QCOMPARE(bits, uint16_t(8));
        std::vector<uint8_t> rows(size_t(kWidth) * kHeight);
        for (uint32_t y = 0; y < height; ++y)
            QVERIFY(TIFFReadScanline(tiff, rows.data() + size_t(y) * kWidth, y, 0) == 1);
        TIFFClose(tiff);
        QVERIFY(
            isRamp([&](int x, int y) { return rows[size_t(y) * kWidth + x]; }, kWidth, kHeight));

        // Decoded by ffmpeg, the TIFF as grey bytes and the BMP (a palette image) as RGB: the
        // same pixels again, grey in all three channels.
        auto decode = [](const QString& file, const char* format) {
            QProcess ffmpeg;
            ffmpeg.start("ffmpeg",
                         {"-v", "error", "-i", file, "-f", "rawvideo", "-pix_fmt", format, "-"});
            return ffmpeg.waitForFinished(60000) && ffmpeg.exitCode() == 0
                       ? ffmpeg.readAllStandardOutput()
                       : QByteArray();
        };
        QCOMPARE(decode(tif, "gray"), bytes);
        const QByteArray rgb = decode(bmp, "rgb24");
        QCOMPARE(rgb.size(), 3 * kWidth * kHeight);
        for (int i = 0; i < kWidth * kHeight; ++i) {
            QCOMPARE(rgb[3 * i], bytes[i]);
            QCOMPARE(rgb[3 * i + 1], bytes[i]);
            QCOMPARE(rgb[3 * i + 2], bytes[i]);
        }
    }

    void savedBayerFramesKeepTheColoursOfTheBars() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.25",
                                      {"--pattern", "bars", "--width", QString::number(kWidth),
                                       "--height", QString::number(kHeight)});
        QVERIFY(window);
        window->Session()->SetEnumByString("PixelFormat", "BayerRG8");
        // Bilinear interpolation, chosen as a user does.
        window->findChild<QComboBox*>("comboBox_bayer")->setCurrentIndex(2);
        QCOMPARE(window->BayerMode(), 3u);
        MessageBoxWatcher boxes;
        const QString tif = m_dir.filePath("bars.tif");
        const QString bmp = m_dir.filePath("bars.bmp");
        QPushButton* save = window->findChild<QPushButton*>("pushButton_file_save");
        // Once the display shows colour, the frames coming are mosaics.
        QTRY_VERIFY_WITH_TIMEOUT(Display(*window)->Image() &&
                                     Display(*window)->Image()->format() != QImage::Format_Indexed8,
                                 20000);
        chooseFile(
            *window, [&] { save->click(); }, tif, "Tiff format (*.tif)");
        chooseFile(
            *window, [&] { save->click(); }, bmp, "BMP format (*.bmp)");
        QCOMPARE(boxes.texts,
                 (QStringList{"Frame was saved to: " + tif, "Frame was saved to: " + bmp}));

        // The bars: black, red, green, blue, yellow, cyan, magenta, white, 8 pixels each; their
        // inner pixels come out of the interpolation with the bar's colour.
        static const int kBars[8][3] = {{0, 0, 0},     {255, 0, 0},    {0, 255, 0},
                                        {0, 0, 255},   {255, 255, 0},  {0, 255, 255},
                                        {255, 0, 255}, {255, 255, 255}};
        auto checkBars = [&](const std::function<QColor(int, int)>& pixel) {
            for (int bar = 0; bar < 8; ++bar)
                for (int x = bar * 8 + 2; x <= bar * 8 + 5; ++x)
                    for (int y = 2; y < kHeight - 2; ++y) {
                        const QColor c = pixel(x, y);
                        if (c != QColor(kBars[bar][0], kBars[bar][1], kBars[bar][2])) {
                            qWarning("pixel %d,%d is %s", x, y, qPrintable(c.name()));
                            return false;
                        }
                    }
            return true;
        };

        TIFF* tiff = TIFFOpen(QFile::encodeName(tif).constData(), "r");
        QVERIFY(tiff);
        uint32_t width = 0, height = 0;
        uint16_t samples = 0, bits = 0;
        TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
        QCOMPARE(width, uint32_t(kWidth));
        QCOMPARE(height, uint32_t(kHeight));
        QCOMPARE(samples, uint16_t(3));
        QCOMPARE(bits, uint16_t(8));
        std::vector<uint8_t> rows(size_t(kWidth) * kHeight * 3);
        for (uint32_t y = 0; y < height; ++y)
            QVERIFY(TIFFReadScanline(tiff, rows.data() + size_t(y) * kWidth * 3, y, 0) == 1);
        TIFFClose(tiff);
        QVERIFY(checkBars([&](int x, int y) {
            const uint8_t* p = rows.data() + (size_t(y) * kWidth + x) * 3;
            return QColor(p[0], p[1], p[2]);
        }));

        QProcess ffmpeg;
        ffmpeg.start("ffmpeg",
                     {"-v", "error", "-i", bmp, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
        QVERIFY(ffmpeg.waitForFinished(60000));
        QCOMPARE(ffmpeg.exitCode(), 0);
        const QByteArray rgb = ffmpeg.readAllStandardOutput();
        QCOMPARE(rgb.size(), kWidth * kHeight * 3);
        QVERIFY(checkBars([&](int x, int y) {
            const auto* p = reinterpret_cast<const uchar*>(rgb.constData()) + (y * kWidth + x) * 3;
            return QColor(p[0], p[1], p[2]);
        }));
        uitest::SaveScreenshot(window.get(), "mainwindow_colour_bars_bilinear");
    }

    void autoRegionValuesAreClampedAndRounded() {
        SimulatorProcess sim;
        // A sensor width that is no multiple of the size increment.
        auto window = ConnectedWindow(sim, "127.0.11.30");
        QVERIFY(window);
        CKorvatinCameraViewlane& camera = *window->Session();
        MessageBoxWatcher boxes;
        // A width of 0 becomes the minimum; halfway between two increments rounds up (an X offset
        // of 6 to 8 by 4, a Y offset of 5 to 6 by 2), below halfway down (5 to 4 by 4).
        window->autoROIChanged(6, 5, 0, 3);
        QCOMPARE(camera.GetUInt32("AutoSizeX"), 16u);
        QCOMPARE(camera.GetUInt32("AutoSizeY"), 4u);
        QCOMPARE(camera.GetUInt32("AutoOffsetX"), 8u);
        QCOMPARE(camera.GetUInt32("AutoOffsetY"), 6u);
        window->autoROIChanged(5, 4, 16, 2);
        QCOMPARE(camera.GetUInt32("AutoOffsetX"), 4u);
        QCOMPARE(camera.GetUInt32("AutoOffsetY"), 4u);
        window->autoROIChanged(0, 0, 18, 17);
        QCOMPARE(camera.GetUInt32("AutoSizeX"), 20u);
        QCOMPARE(camera.GetUInt32("AutoSizeY"), 18u);
        window->autoROIChanged(0, 0, 17, 20);
        QCOMPARE(camera.GetUInt32("AutoSizeX"), 16u);
        QVERIFY(boxes.texts.isEmpty());
    }

    void autoRegionRoundedUpPastTheMaximumIsNotClampedAgain() {
        QCOMPARE(MainWindow::AutoRegionRounded(1282, 16, 1282, 4), 1284u);
        QCOMPARE(MainWindow::AutoRegionRounded(5000, 16, 1282, 4), 1284u);
        QCOMPARE(MainWindow::AutoRegionRounded(1281, 16, 1282, 4), 1280u);
        QCOMPARE(MainWindow::AutoRegionRounded(0, 16, 1282, 4), 16u);
        // The remainder is taken from 0, not from the minimum.
        QCOMPARE(MainWindow::AutoRegionRounded(7, 5, 100, 4), 8u);
        QCOMPARE(MainWindow::AutoRegionRounded(7, 5, 100, 0), 7u);
    }

    void autoRegionOnACameraWithoutItShowsBothErrors() {
        SimulatorProcess sim;
        QVERIFY2(sim.startAravisFake("127.0.11.35"), qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        ClickRow(*window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(window->IsConnected(), 10000);
        MessageBoxWatcher boxes;
        window->autoROIChanged(0, 0, 64, 64);
        window->autoROIReset();
        QCOMPARE(boxes.texts.size(), 2);
        QVERIFY2(boxes.texts[0].startsWith("Auto region setting Error: "),
                 qPrintable(boxes.texts[0]));
        QVERIFY2(boxes.texts[1].startsWith("Auto region reset error: "),
                 qPrintable(boxes.texts[1]));
    }

    void dragOnTheLiveImageWritesTheAutoRegionAndDoubleClickResetsIt() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.40", {"--width", "640", "--height", "480"});
        QVERIFY(window);
        CKorvatinCameraViewlane& camera = *window->Session();
        CQwidgetGrabbedFrame* display = Display(*window);
        QTRY_VERIFY_WITH_TIMEOUT(display->Image() != nullptr, 20000);
        MessageBoxWatcher boxes;
        QSignalSpy dragged(display, &CQwidgetGrabbedFrame::autoROIChanged);
        const QPoint from(display->width() / 3, display->height() / 3);
        const QPoint to(display->width() / 2, display->height() / 2 + 7);
        sendMouse(display, QEvent::MouseButtonPress, from, Qt::RightButton, Qt::RightButton);
        sendMouse(display, QEvent::MouseMove, (from + to) / 2, Qt::NoButton, Qt::RightButton);
        sendMouse(display, QEvent::MouseMove, to, Qt::NoButton, Qt::RightButton);
        sendMouse(display, QEvent::MouseButtonRelease, to, Qt::RightButton, Qt::NoButton);
        QCOMPARE(dragged.count(), 1);
        const auto args = dragged.first();
        const uint32_t x = args[0].toUInt(), y = args[1].toUInt(), w = args[2].toUInt(),
                       h = args[3].toUInt();
        QVERIFY(w > 0 && h > 0);
        QCOMPARE(camera.GetUInt32("AutoSizeX"), rounded(w, 16, 640, 4));
        QCOMPARE(camera.GetUInt32("AutoSizeY"), rounded(h, 2, 480, 2));
        QCOMPARE(camera.GetUInt32("AutoOffsetX"),
                 rounded(x, 0, camera.GetUInt32Max("AutoOffsetX"), 4));
        QCOMPARE(camera.GetUInt32("AutoOffsetY"),
                 rounded(y, 0, camera.GetUInt32Max("AutoOffsetY"), 2));
        QVERIFY(boxes.texts.isEmpty());

        QTest::mouseDClick(display, Qt::RightButton, Qt::NoModifier, to);
        QCOMPARE(camera.GetUInt32("AutoOffsetX"), 0u);
        QCOMPARE(camera.GetUInt32("AutoOffsetY"), 0u);
        QCOMPARE(camera.GetUInt32("AutoSizeX"), camera.GetUInt32Max("AutoSizeX"));
        QCOMPARE(camera.GetUInt32("AutoSizeY"), camera.GetUInt32Max("AutoSizeY"));
        QVERIFY(boxes.texts.isEmpty());
    }

    void loadingAGenicamFileReplacesTheTree() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.50");
        QVERIFY(window);
        const QString description = m_dir.filePath("bulk.xml");
        QString error;
        QVERIFY2(bulkdescription::Write(bulkdescription::BuiltInPath(), description, 5, &error),
                 qPrintable(error));
        QVERIFY(Tree(*window)
                    ->findItems("Bulk Features", Qt::MatchExactly | Qt::MatchRecursive)
                    .isEmpty());
        MessageBoxWatcher boxes;
        QPushButton* load = window->findChild<QPushButton*>("pushButton_genIcamXmlLoad");
        withDialog<QFileDialog>(
            window.get(), [&] { load->click(); },
            [&](QFileDialog& files) {
                QCOMPARE(files.windowTitle(), QString("Open Xml file"));
                QCOMPARE(files.nameFilters(), QStringList{"XML file (*.xml)"});
                QCOMPARE(window->DisplayTimer()->interval(), 1000u);
                QVERIFY(uitest::AcceptFile(files, description));
            });
        QVERIFY(boxes.texts.isEmpty());
        QCOMPARE(window->DisplayTimer()->interval(), uint(window->DisplayInterval()));
        QVERIFY(!Tree(*window)
                     ->findItems("Bulk Features", Qt::MatchExactly | Qt::MatchRecursive)
                     .isEmpty());

        // A file that is no GenICam description.
        const QString wrong = m_dir.filePath("wrong.xml");
        QFile file(wrong);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("not a description");
        file.close();
        chooseFile(
            *window, [&] { load->click(); }, wrong);
        QCOMPARE(boxes.texts.size(), 1);
        QVERIFY2(boxes.texts.first().startsWith("Load XML: "), qPrintable(boxes.texts.first()));
    }

    void discoverySettingsTakeEffect() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.11.60"}));
        auto window = OpenWindow(1);
        QVERIFY(window);
        QPushButton* button = window->findChild<QPushButton*>("pushButton_device_discovery");
        withDialog<CDialogDeviceDiscoverySettings>(
            window.get(), [&] { button->click(); },
            [&](CDialogDeviceDiscoverySettings& dialog) {
                QVERIFY(dialog.DiscoverEnabled());
                QVERIFY(dialog.SelectedInterface().isNull());
                dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->setChecked(false);
                dialog.findChild<QCheckBox*>("checkBoxBroadcast")->setChecked(true);
                for (QRadioButton* nic : dialog.InterfaceButtons())
                    if (nic->text() == "127.0.0.1")
                        nic->setChecked(true);
                dialog.accept();
            });
        QCOMPARE(QString(window->DiscoverySettings().interfaceAddress), QString("127.0.0.1"));
        QCOMPARE(window->DiscoverySettings().broadcast, 1);
        QVERIFY(window->DiscoveryThread()->IsEnabled());

        withDialog<CDialogDeviceDiscoverySettings>(
            window.get(), [&] { button->click(); },
            [&](CDialogDeviceDiscoverySettings& dialog) {
                QCOMPARE(dialog.SelectedInterface(), QString("127.0.0.1"));
                QVERIFY(dialog.Broadcast());
                dialog.findChild<QCheckBox*>("checkBoxDiscoverEnabled")->setChecked(false);
                dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->setChecked(true);
                dialog.accept();
            });
        QVERIFY(window->DiscoverySettings().interfaceAddress == nullptr);
        QVERIFY(!window->DiscoveryEnabled());
        QVERIFY(!window->DiscoveryThread()->IsEnabled());

        // Cancel changes nothing.
        withDialog<CDialogDeviceDiscoverySettings>(
            window.get(), [&] { button->click(); },
            [&](CDialogDeviceDiscoverySettings& dialog) {
                dialog.findChild<QCheckBox*>("checkBoxDiscoverEnabled")->setChecked(true);
                dialog.reject();
            });
        QVERIFY(!window->DiscoveryEnabled());
    }

    void recordingSettingsAcceptedAreSaved() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        const QString avi = m_dir.filePath("capture.avi");
        withDialog<CDialogRecordingSettings>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_recording_settings")->click(); },
            [&](CDialogRecordingSettings& dialog) {
                QCOMPARE(dialog.FileName(), window->Settings().aviFileName);
                dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(avi);
                dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->setText("123");
                dialog.findChild<QDialogButtonBox*>("buttonBox")
                    ->button(QDialogButtonBox::Ok)
                    ->click();
            });
        QCOMPARE(window->Settings().aviFileName, avi);
        QCOMPARE(window->Settings().maxRecordedFrames, 123);
        QSettings ini(m_dir.filePath("settings.ini"), QSettings::IniFormat);
        QCOMPARE(ini.value("avi/aviFileName").toString(), avi);
        QCOMPARE(ini.value("avi/maxRecordedFrames").toInt(), 123);

        withDialog<CDialogRecordingSettings>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_recording_settings")->click(); },
            [&](CDialogRecordingSettings& dialog) {
                dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->setText("7");
                dialog.reject();
            });
        QCOMPARE(window->Settings().maxRecordedFrames, 123);
    }

    void recordDoesNothingWhileNotConnectedOrAlreadyRecording() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        // Not connected: the button is disabled, the command itself does nothing.
        QMetaObject::invokeMethod(window.get(), "on_pushButton_record_clicked");
        QVERIFY(!window->Session()->IsRecording());
        QVERIFY(!QFile::exists(window->Settings().aviFileName));
        QCoreApplication::processEvents();
        QVERIFY(boxes.texts.isEmpty());

        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.11.70", "--width", "64", "--height", "16"}));
        QTRY_COMPARE_WITH_TIMEOUT(Table(*window)->rowCount(), 1, kDiscoveryWaitMs);
        ClickRow(*window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(window->IsConnected(), 10000);
        const QString first = m_dir.filePath("first.avi");
        const QString second = m_dir.filePath("second.avi");
        auto record = [&](const QString& path) {
            withDialog<CDialogRecordingSettings>(
                window.get(),
                [&] { window->findChild<QPushButton*>("pushButton_recording_settings")->click(); },
                [&](CDialogRecordingSettings& dialog) {
                    dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
                    dialog.accept();
                });
            window->findChild<QPushButton*>("pushButton_record")->click();
        };
        record(first);
        QVERIFY(window->Session()->IsRecording());
        // Already recording: a second record neither restarts nor opens another file.
        record(second);
        QVERIFY(window->Session()->IsRecording());
        QVERIFY(!QFile::exists(second));
        window->findChild<QPushButton*>("pushButton_stop")->click();
        QVERIFY(!window->Session()->IsRecording());
        QVERIFY(QFileInfo(first).size() > 0);
        QVERIFY2(boxes.texts.isEmpty(), qPrintable(boxes.texts.join(" | ")));
    }

    void recordThatCannotOpenItsFileShowsWhy() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.80", {"--width", "64", "--height", "16"});
        QVERIFY(window);
        withDialog<CDialogRecordingSettings>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_recording_settings")->click(); },
            [&](CDialogRecordingSettings& dialog) {
                dialog.findChild<QLineEdit*>("lineEdit_fileName")
                    ->setText(m_dir.filePath("no-such-directory/x.avi"));
                dialog.accept();
            });
        MessageBoxWatcher boxes;
        window->findChild<QPushButton*>("pushButton_record")->click();
        QCOMPARE(boxes.texts.size(), 1);
        QCOMPARE(boxes.texts.first(),
                 QString("Fail to start AVi recording: fail to open the AVI."));
        QVERIFY(!window->Session()->IsRecording());
    }

    void recordingEndedByANewImageSizeShowsWhyAndWhatTheFileHolds() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.11.81", {"--width", "64", "--height", "16"});
        QVERIFY(window);
        const QString path = m_dir.filePath("resized.avi");
        withDialog<CDialogRecordingSettings>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_recording_settings")->click(); },
            [&](CDialogRecordingSettings& dialog) {
                dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
                dialog.accept();
            });
        MessageBoxWatcher boxes;
        window->findChild<QPushButton*>("pushButton_record")->click();
        QVERIFY(window->Session()->IsRecording());
        QTRY_VERIFY_WITH_TIMEOUT(window->Session()->RecordedFileFrames() >= 2, 20000);
        // The width changes under the recording, as from the feature tree.
        window->Session()->SetUInt32("Width", 32);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts.size(), 1, 20000);
        QVERIFY(!window->Session()->IsRecording());
        QCOMPARE(boxes.texts.first(),
                 QString("The recording stopped: the image size changed from 64 x 16 to 32 x 16; "
                         "%1 holds the %2 frames recorded until then.")
                     .arg(path)
                     .arg(window->Session()->RecordedFileFrames()));
        QVERIFY(window->IsConnected());
    }

    void aboutShowsTheVersionsFromTheWindow() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        for (const char* name : {"pushButton_about", "actionAbout"}) {
            QString sdk;
            withDialog<CDialogAbout>(
                window.get(),
                [&] {
                    if (auto* button = window->findChild<QPushButton*>(name))
                        button->click();
                    else
                        window->findChild<QAction*>(name)->trigger();
                },
                [&](CDialogAbout& dialog) {
                    sdk = dialog.findChild<QLabel*>("label_kSDKVersion")->text();
                    QCOMPARE(dialog.parentWidget(), static_cast<QWidget*>(window.get()));
                    dialog.accept();
                });
            QCOMPARE(sdk, QString(CKorvatinCamera::SDKVersion()));
        }
    }
};

QTEST_MAIN(TestWindowCommands)
#include "tst_windowcommands.moc"
