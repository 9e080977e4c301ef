// The whole viewer against simulated cameras: discovery fills the device table, a click connects
// and shows the features and the live image, editors change the camera, another click or a lost
// camera disconnects.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <devicediscoverythread.h>
#include <displaytimer.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <korvatin/gigevisiondeviceinfo.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QRegularExpression>
#include <QSlider>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace e2e;

namespace {
constexpr int kFrameWaitMs = 20000;
} // namespace

class TestViewlaneWindow : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // A window whose device table lists `rows` cameras.
    std::unique_ptr<MainWindow> OpenWindow(int rows, const QByteArray& extraHost = QByteArray()) {
        return e2e::OpenWindow(WriteSettings(m_dir.filePath("settings.ini"), extraHost), rows);
    }

    static CQwidgetGrabbedFrame* Display(MainWindow& window) {
        return window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
    }

    // Waits until the display shows an image of `width` x `height`.
    static bool WaitForImageSize(MainWindow& window, int width, int height) {
        CQwidgetGrabbedFrame* display = Display(window);
        return QTest::qWaitFor(
            [&] {
                display->update();
                const QImage* image = display->Image();
                return image && image->width() == width && image->height() == height;
            },
            kFrameWaitMs);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void discoveredCamerasAreSortedByAddressTextWithTheInterfaceTip() {
        SimulatorProcess sim;
        // .9 and .10: as text, .10 comes first.
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.9", "--count", "2"}, 2),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(2);
        QVERIFY(window);
        QTableWidget* table = Table(*window);
        QCOMPARE(table->columnCount(), 4);
        QCOMPARE(table->item(0, 2)->text(), QString("127.0.7.10"));
        QCOMPARE(table->item(1, 2)->text(), QString("127.0.7.9"));
        for (int row = 0; row < 2; ++row) {
            const auto info =
                table->item(row, 0)->data(MainWindow::DeviceInfoRole).value<GigEVisionDeviceInfo>();
            QCOMPARE(QString(info.currentIp), table->item(row, 2)->text());
            QCOMPARE(table->item(row, 2)->toolTip(),
                     "On " + QString::fromLatin1(info.hostInterfaceAddress));
            QCOMPARE(table->item(row, 2)->toolTip(), QString("On 127.0.0.1"));
            QCOMPARE(table->item(row, 1)->text(), QString(info.serialNumber));
            QCOMPARE(table->item(row, 0)->text(), QString(info.manufacturerName));
            QCOMPARE(table->item(row, 3)->text(), QString(info.modelName));
            QCOMPARE(table->item(row, 0)->checkState(), Qt::Unchecked);
            QCOMPARE(table->item(row, 0)->data(MainWindow::ConnectedRole).toBool(), false);
        }
        QCOMPARE(window->SerialNumbers().size(), 2);
        QVERIFY(window->SerialNumbers().contains(table->item(0, 1)->text()));
        QVERIFY(window->SerialNumbers().contains(table->item(1, 1)->text()));
        QCOMPARE(ConnectionCaption(*window), QString("Not Connected"));
        QCOMPARE(EnabledSwitchedCount(*window), 1); // comboBox_bayer starts enabled
    }

    void clickConnectsShowsFeaturesAndLiveImageAndWidthFollowsTheEditors() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.20", "--width", "640", "--height", "480"}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher boxes;

        ClickRow(*window, 0);
        QTRY_COMPARE_WITH_TIMEOUT(ConnectionCaption(*window), QString("Connected"), 10000);
        QVERIFY(window->IsConnected());
        QTableWidget* table = Table(*window);
        QCOMPARE(table->item(0, 0)->checkState(), Qt::Checked);
        QCOMPARE(table->item(0, 0)->data(MainWindow::ConnectedRole).toBool(), true);
        QCOMPARE(EnabledSwitchedCount(*window), 25);
        QVERIFY(window->FrameRateTimer()->isActive());

        // The tree: the root and its categories, expanded, with an editor per feature.
        QTreeWidget* tree = Tree(*window);
        QCOMPARE(tree->topLevelItemCount(), 1);
        QVERIFY(tree->topLevelItem(0)->childCount() >= 8);
        QVERIFY(tree->topLevelItem(0)->isExpanded());
        QVERIFY(EditorOf(*window, "Width"));
        QVERIFY(EditorOf(*window, "Pixel Format") || EditorOf(*window, "PixelFormat"));

        // Live frames of the camera's size.
        QVERIFY(WaitForImageSize(*window, 640, 480));
        QTRY_VERIFY_WITH_TIMEOUT(Display(*window)->PaintedFrameCount() > 3, kFrameWaitMs);

        // The slider steps Width down by its increment and the image follows.
        QWidget* width = EditorOf(*window, "Width");
        auto* slider = width->findChild<QSlider*>("horizontalSlider");
        auto* text = width->findChild<QLineEdit*>("lineEdit");
        QVERIFY(slider && text);
        QCOMPARE(slider->value(), 640 / 4);
        slider->triggerAction(QAbstractSlider::SliderSingleStepSub);
        QCOMPARE(text->text(), QString("636"));
        QVERIFY(WaitForImageSize(*window, 636, 480));
        QCOMPARE(window->Session()->GetNodeByName("Width").GetUInt32(), 636u);

        // The text field, confirmed with Enter.
        text->setFocus();
        text->selectAll();
        QTest::keyClicks(text, "320");
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(slider->value(), 320 / 4);
        QVERIFY(WaitForImageSize(*window, 320, 480));
        QCOMPARE(window->Session()->GetNodeByName("Width").GetUInt32(), 320u);
        QTest::qWait(300);
        tree->scrollToItem(tree->findItems("Width", Qt::MatchExactly | Qt::MatchRecursive).first());
        uitest::SaveScreenshot(window.get(), "mainwindow_connected");
        QVERIFY(boxes.texts.isEmpty());

        // A click on the connected row disconnects.
        ClickRow(*window, 0);
        QCOMPARE(ConnectionCaption(*window), QString("Not Connected"));
        QVERIFY(!window->IsConnected());
        QCOMPARE(table->item(0, 0)->checkState(), Qt::Unchecked);
        QCOMPARE(tree->topLevelItemCount(), 0);
        QVERIFY(window->NodeCallbacks().isEmpty());
        QCOMPARE(EnabledSwitchedCount(*window), 0);
        QVERIFY(!window->FrameRateTimer()->isActive());
        QVERIFY(!window->Session()->IsGrabbing());
        QVERIFY(!Display(*window)->Image());
        QVERIFY(boxes.texts.isEmpty());
    }

    void displaySwitchLutAndPixelFormatFollowTheStream() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.70", "--width", "640", "--height", "480"}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QVERIFY(window->IsConnected());
        CQwidgetGrabbedFrame* display = Display(*window);
        QTRY_VERIFY_WITH_TIMEOUT(display->PaintedFrameCount() > 3, kFrameWaitMs);
        QCOMPARE(display->Image()->format(), QImage::Format_Indexed8);

        // Display off: the timer stops, the shown frame goes back, capture goes on and the
        // frames waiting for the display stay at two.
        auto* displaySwitch = window->findChild<QCheckBox*>("checkBox_display");
        displaySwitch->setChecked(false);
        QVERIFY(!window->DisplayTimer()->isActive());
        QVERIFY(!display->CurrentFrame());
        QVERIFY(!window->findChild<QAction*>("actionDisplay_Frame")->isChecked());
        const uint32_t painted = display->PaintedFrameCount();
        const uint32_t grabbed = window->Session()->grabbedFrameCount.load();
        QTest::qWait(1000);
        QVERIFY(window->Session()->grabbedFrameCount.load() > grabbed + 10);
        QCOMPARE(display->PaintedFrameCount(), painted);
        QVERIFY(window->Session()->Pipeline().readyConvertedFrames.size() <=
                CKorvatinCameraViewlane::kMaxReadyConvertedFrames);

        // Display on: counting starts again from 0 and frames are shown again.
        displaySwitch->setChecked(true);
        QVERIFY(window->DisplayTimer()->isActive());
        QVERIFY(display->PaintedFrameCount() < painted);
        QTRY_VERIFY_WITH_TIMEOUT(display->PaintedFrameCount() > 3, kFrameWaitMs);

        // The look-up table: entry 400 (grey level 100) set to 0 and the table switched on; no
        // pixel of level 100 is shown any more.
        auto countLevel = [&](int level) {
            const QImage* image = display->Image();
            int count = 0;
            for (int y = 0; y < image->height(); ++y) {
                const uchar* row = image->constScanLine(y);
                for (int x = 0; x < image->width(); ++x)
                    count += row[x] == level ? 1 : 0;
            }
            return count;
        };
        QVERIFY(countLevel(100) > 0);
        auto enterText = [](QWidget* editor, const QString& text) {
            auto* line = editor->findChild<QLineEdit*>("lineEdit");
            line->setFocus();
            line->selectAll();
            QTest::keyClicks(line, text);
            QTest::keyClick(line, Qt::Key_Return);
        };
        enterText(EditorOf(*window, "LUT Index"), "400");
        enterText(EditorOf(*window, "LUT Value"), "0");
        EditorOf(*window, "LUT Enable")->findChild<QCheckBox*>("checkBox")->click();
        QVERIFY(window->Session()->GetNodeByName("LUTEnable").GetBool());
        QTRY_VERIFY_WITH_TIMEOUT(countLevel(100) == 0, kFrameWaitMs);
        QTest::qWait(200);
        QCOMPARE(countLevel(100), 0);
        EditorOf(*window, "LUT Enable")->findChild<QCheckBox*>("checkBox")->click();
        QTRY_VERIFY_WITH_TIMEOUT(countLevel(100) > 0, kFrameWaitMs);

        // A pixel format chosen in its editor: the image turns to colour.
        auto* format = EditorOf(*window, "Pixel Format")->findChild<QComboBox*>("comboBox");
        QVERIFY(format);
        QCOMPARE(format->currentText(), QString("Mono8"));
        const int rgb = format->findText("RGB8");
        QVERIFY(rgb >= 0);
        format->setCurrentIndex(rgb);
        emit format->textActivated("RGB8");
        char entry[64] = {};
        window->Session()->GetNodeByName("PixelFormat").GetEnum(entry, sizeof entry, nullptr);
        QCOMPARE(QString(entry), QString("RGB8"));
        QTRY_VERIFY_WITH_TIMEOUT(
            display->Image() && display->Image()->format() == QImage::Format_RGB888, kFrameWaitMs);
        QVERIFY(boxes.texts.isEmpty());
        ClickRow(*window, 0);
        QVERIFY(!window->IsConnected());
    }

    void clickOnAnotherRowMovesTheConnection() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.30", "--count", "2"}, 2),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(2);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        QTableWidget* table = Table(*window);
        const int first = RowOf(*window, "127.0.7.30");
        const int second = RowOf(*window, "127.0.7.31");
        ClickRow(*window, first);
        QVERIFY(window->IsConnected());
        QCOMPARE(QString(window->Session()->ConnectedDeviceInfo()->currentIp),
                 QString("127.0.7.30"));
        ClickRow(*window, second);
        QVERIFY(window->IsConnected());
        QCOMPARE(QString(window->Session()->ConnectedDeviceInfo()->currentIp),
                 QString("127.0.7.31"));
        QCOMPARE(table->item(first, 0)->checkState(), Qt::Unchecked);
        QCOMPARE(table->item(second, 0)->checkState(), Qt::Checked);
        // The next discovery result keeps the connected camera's mark. Results are counted as
        // the window has handled them: this connection is queued after the window's own, so it
        // reaches this thread after the window's handler. (Comparing the marked item with the
        // one after a result misses results: the table's new item may get the freed one's
        // address.) While connected a pass listens 2 s, then waits 5 s.
        int results = 0;
        QObject counter;
        connect(
            window->DiscoveryThread(), &DeviceDiscoveryThread::devicesDiscovered, &counter,
            [&results](const GigEVisionDeviceInfo*, int) { ++results; }, Qt::QueuedConnection);
        QTRY_VERIFY_WITH_TIMEOUT(results >= 1, kDiscoveryWaitMs);
        const int again = RowOf(*window, "127.0.7.31");
        QVERIFY(again >= 0);
        QCOMPARE(table->item(again, 0)->checkState(), Qt::Checked);
        QCOMPARE(table->item(RowOf(*window, "127.0.7.30"), 0)->checkState(), Qt::Unchecked);
        QVERIFY(boxes.texts.isEmpty());
        ClickRow(*window, again);
        QVERIFY(!window->IsConnected());
    }

    void writeTheCameraRefusesShowsOneMessageWithTheFeatureName() {
        // The camera's own description with a Width minimum below what the camera accepts.
        QFile builtIn(TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml");
        QVERIFY(builtIn.open(QIODevice::ReadOnly));
        QString xml = QString::fromUtf8(builtIn.readAll());
        const QRegularExpression widthMin(
            "<Integer Name=\"Width\"[^>]*>(?:(?!</Integer>).)*?<Min>(16)</Min>",
            QRegularExpression::DotMatchesEverythingOption);
        const QRegularExpressionMatch match = widthMin.match(xml);
        QVERIFY(match.hasMatch());
        xml.replace(match.capturedStart(1), match.capturedLength(1), "4");
        const QString path = m_dir.filePath("narrow-width.xml");
        QFile served(path);
        QVERIFY(served.open(QIODevice::WriteOnly));
        served.write(xml.toUtf8());
        served.close();

        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.40", "--description", path}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QVERIFY2(window->IsConnected(), qPrintable(boxes.texts.join("; ")));
        QWidget* width = EditorOf(*window, "Width");
        QVERIFY(width);
        auto* text = width->findChild<QLineEdit*>("lineEdit");
        const QString before = text->text();
        text->setFocus();
        text->selectAll();
        QTest::keyClicks(text, "8");
        QTest::keyClick(text, Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts.size(), 1, 5000);
        QTest::qWait(500);
        QCOMPARE(boxes.texts.size(), 1);
        QVERIFY2(boxes.texts.first().startsWith("Width : "), qPrintable(boxes.texts.first()));
        QVERIFY(boxes.texts.first().size() > QString("Width : ").size());
        QCOMPARE(QString::number(window->Session()->GetNodeByName("Width").GetUInt32()), before);
        // The connection survives the refusal.
        QVERIFY(window->IsConnected());
        ClickRow(*window, 0);
        QVERIFY(!window->IsConnected());
    }

    void secondDescriptionIsReportedAndTheCameraStaysConnected() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.80", "--broken-first-url"}),
                 qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts, QStringList{"Reverted to Second XML."}, 5000);
        QVERIFY(window->IsConnected());
        QCOMPARE(window->Session()->XmlIndexLoaded(), 1);
        QCOMPARE(ConnectionCaption(*window), QString("Connected"));
        QVERIFY(EditorOf(*window, "Width"));
        QTRY_VERIFY_WITH_TIMEOUT(Display(*window)->PaintedFrameCount() > 0, kFrameWaitMs);
        // A click on the connected row disconnects and asks nothing about the description.
        ClickRow(*window, 0);
        QVERIFY(!window->IsConnected());
        QTest::qWait(200);
        QCOMPARE(boxes.texts.size(), 1);
    }

    void lostCameraIsReportedAndItsRowRemoved() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.7.50"}), qPrintable(sim.errorString()));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher boxes;
        ClickRow(*window, 0);
        QVERIFY(window->IsConnected());
        QTRY_VERIFY_WITH_TIMEOUT(Display(*window)->PaintedFrameCount() > 0, kFrameWaitMs);
        sim.kill();
        QTRY_COMPARE_WITH_TIMEOUT(boxes.texts, QStringList{"Device is disconnected!"}, 30000);
        QVERIFY(!window->IsConnected());
        QCOMPARE(ConnectionCaption(*window), QString("Not Connected"));
        QCOMPARE(RowOf(*window, "127.0.7.50"), -1);
        QCOMPARE(Tree(*window)->topLevelItemCount(), 0);
        QCOMPARE(EnabledSwitchedCount(*window), 0);
    }
};

QTEST_MAIN(TestViewlaneWindow)
#include "tst_viewlanewindow.moc"
