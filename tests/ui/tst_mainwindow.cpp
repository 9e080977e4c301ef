// The main window's widget tree, actions, menus, toolbar, status bar and the settings it applies.
#include "mainwindow.h"
#include "uitesthelpers.h"

#include <appsettings.h>
#include <displaytimer.h>
#include <korvatinframeconverted.h>
#include <qframefoldable.h>
#include <qwidgetgrabbedframe.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>
#include <QValidator>

#include <memory>
#include <vector>

// Counts the paint events a widget receives.
class PaintCounter : public QObject {
public:
    explicit PaintCounter(int* count) : m_count(count) {}
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint || event->type() == QEvent::UpdateRequest)
            ++*m_count;
        return false;
    }

private:
    int* m_count;
};

// A black 640 x 480 Mono8 frame in a converted holder, as the display widget is handed one.
struct BlackFrame {
    std::vector<uint8_t> pixels = std::vector<uint8_t>(640 * 480, 0);
    CKorvatinFrame raw;
    CKorvatinFrameConverted holder;
    BlackFrame() {
        raw.Describe(pixels.data(), pixels.size(), pixels.size(), 640, 1, 0, nullptr);
        raw.SetWidth(640);
        raw.SetHeight(480);
        raw.SetPixelType(0x01080001);
        holder.SetSourceRawFrame(&raw);
    }
    BlackFrame(const BlackFrame&) = delete;
    BlackFrame& operator=(const BlackFrame&) = delete;
};

class TestMainWindow : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    // A window over a settings file with the given [host] lines.
    std::unique_ptr<MainWindow> MakeWindow(const QString& hostLines) {
        static int count = 0;
        const QString path = m_dir.filePath(QString("settings%1.ini").arg(++count));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return nullptr;
        file.write(("[host]\n" + hostLines).toUtf8());
        file.close();
        auto window = std::make_unique<MainWindow>(nullptr, path);
        return window;
    }

    template <typename T> static T* Find(QObject* root, const QString& name) {
        return root->findChild<T*>(name);
    }

    static QStringList MenuTexts(QMenu* menu) {
        QStringList texts;
        for (QAction* action : menu->actions())
            texts << (action->isSeparator() ? QString("-") : action->text());
        return texts;
    }

    static QMenu* SubMenu(QMenu* menu, const QString& title) {
        for (QAction* action : menu->actions())
            if (action->menu() && action->text() == title)
                return action->menu();
        return nullptr;
    }

private slots:
    void windowIsTitledMaximisedWithItsIcon() {
        auto window = MakeWindow("");
        QCOMPARE(window->windowTitle(), QString("Korvatin Viewlane"));
        QVERIFY(window->windowState() & Qt::WindowMaximized);
        QVERIFY(window->isVisible());
        QVERIFY(!window->windowIcon().isNull());
        QCOMPARE(window->windowModality(), Qt::ApplicationModal);
        QCOMPARE(window->styleSheet(), QString("QStatusBar::item { border: 0px solid black };"));
        QVERIFY(!QIcon(":/icons/external_resources/icons/qrn_64.ico").isNull());
        QVERIFY(!QPixmap(":/images/external_resources/images/logo.png").isNull());
    }

    void everyIconAndImageIsCompiledIn() {
        for (const char* name : {"DC-IP-Configurator.png",
                                 "DC-LUT-Program.png",
                                 "DC-Firmware-Upgrade.png",
                                 "DC-XML-Load.png",
                                 "system-log-out.png",
                                 "DC-XML-Program.png",
                                 "HS-DisplayImage.png",
                                 "File-SaveAs.png",
                                 "Help-About.png",
                                 "HS-DiscoveryEn.png",
                                 "DC-Readonly_nodes_polling.png",
                                 "Zoom-In-icon.png",
                                 "Zoom-Out-icon.png",
                                 "Zoom-Reset-icon.png",
                                 "Pan_Hand.png",
                                 "saveSetting.png",
                                 "loadSetting.png",
                                 "HS-ClearDropframe.ico",
                                 "HS-Bayer.png",
                                 "qrn_64.ico"})
            QVERIFY2(!QImage(QString(":/icons/external_resources/icons/") + name).isNull(), name);
        for (const char* name :
             {"logo.png", "firstFrame.png", "rewind.png", "play.png", "forward.png",
              "lastFrame.png", "pause.png", "record.png", "stop.png"})
            QVERIFY2(!QImage(QString(":/images/external_resources/images/") + name).isNull(), name);
    }

    void widgetTreeHasItsPanelsInOrder() {
        auto window = MakeWindow("programXML=true\n");
        auto* frameLeft = Find<QFrame>(window.get(), "frameLeft");
        QVERIFY(frameLeft);
        QStringList panels;
        for (auto* panel :
             frameLeft->findChildren<QFrameFoldable*>(QString(), Qt::FindDirectChildrenOnly))
            panels << panel->objectName() + "=" + panel->toolTip();
        QCOMPARE(
            panels,
            QStringList({"qFrameFoldable_devices=Devices",
                         "qFrameFoldable_device_config=Device Configuration",
                         "qFrameFoldable_hostSettings=Host Settings", "qFrameFoldable_file=File",
                         "qFrameFoldable_recording=Recording", "qFrameFoldable_help=Help",
                         // The engineer's panels come after the window's own six.
                         "qFrameFoldable_statistics=Stream Statistics",
                         "qFrameFoldable_histogram=Histogram"}));
        auto* splitter = Find<QSplitter>(window.get(), "splitter");
        QCOMPARE(splitter->orientation(), Qt::Horizontal);
        QCOMPARE(splitter->count(), 3);
        QCOMPARE(splitter->widget(0)->objectName(), QString("frameLeft"));
        QCOMPARE(splitter->widget(1)->objectName(), QString("frameCentral"));
        QCOMPARE(splitter->widget(1)->metaObject()->className(), "CQFrameSplitterCentral");
        QCOMPARE(splitter->widget(2)->objectName(), QString("frameRight"));
        QVERIFY(Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame"));
        auto* tree = Find<QTreeWidget>(window.get(), "treeWidgetGenICam");
        QCOMPARE(tree->columnCount(), 2);
        QVERIFY(!tree->hasAutoScroll());
        QCOMPARE(tree->columnWidth(0), 250);
        QCOMPARE(tree->columnWidth(1), 500);
        QCOMPARE(Find<QLabel>(window.get(), "labelLogo")->styleSheet(),
                 QString("background-image: url(:/images/external_resources/images/logo.png);"));
        QCOMPARE(Find<QWidget>(window.get(), "centralWidget")->styleSheet(),
                 QString("background-color: rgb(0, 0, 0);"));
        QCOMPARE(frameLeft->styleSheet(), QString("background-color: rgb(50, 50, 50);\n\n\n"));
        QCOMPARE(Find<QTableWidget>(window.get(), "tableWidgetDevices")->toolTip(),
                 QString("Devices"));
        auto* toolBar = Find<QToolBar>(window.get(), "toolBar");
        QVERIFY(toolBar);
        QCOMPARE(toolBar->windowTitle(), QString("toolBar"));
        QVERIFY(toolBar->actions().isEmpty());
        QCOMPARE(Find<QToolBar>(window.get(), "mainToolBar")->iconSize(), QSize(16, 16));
    }

    void splitterIsDividedInEighths() {
        auto window = MakeWindow("");
        auto* splitter = Find<QSplitter>(window.get(), "splitter");
        // The proportions are set once from the splitter's width at construction: the display
        // gets the most, the feature tree two eighths.
        const QList<int> sizes = splitter->sizes();
        QCOMPARE(sizes.size(), 3);
        QVERIFY2(sizes[1] > sizes[2], "the display is the widest");
        QVERIFY2(sizes[1] > sizes[0], "the display is wider than the side panel");
    }

    void buttonsHaveTheirTextsTipsAndStates() {
        auto window = MakeWindow("programXML=true\n");
        struct B {
            const char* name;
            const char* text;
            const char* tip;
            bool enabled;
        };
        const B buttons[] = {
            {"pushButton_force_ip", "Force Ip", "Force Ip", true},
            {"pushButton_force_reboot", "Force Reboot", "Force Reboot", true},
            {"pushButton_ip_configuration", "Ip Configuration", "Ip Configuration", false},
            {"pushButton_program_LUT", "Program LUT", "Program LUT", false},
            {"pushButton_firmware_upgrade", "Firmware Upgrade", "Firmware Upgrade", false},
            {"pushButton_programXML", "Program XML", "Program XML", false},
            {"pushButton_genIcamXmlLoad", "Load XML File", "GenICam_XML_Load", false},
            {"pushButton_saveDeviceSettings", "Save Device Settings", "Save Device Settings",
             false},
            {"pushButton_loadDeviceSettings", "Load Device Settings", "Load Device Settings",
             false},
            {"pushButton_zoomin", "Zoom In", "Zoom In", false},
            {"pushButton_zoomout", "Zoom Out", "Zoom Out", false},
            {"pushButton_zoomresetview", "Reset View", "Reset View", false},
            {"pushButton_device_discovery", "Device Discovery", "Device Discovery", true},
            {"pushButton_clear_dropframecount", "Clear Dropframe Count", "Clear Dropframe Count",
             false},
            {"pushButton_file_save", "Save Image", "Save Image", false},
            {"pushButton_recording_settings", "Recording Settings", "Recording Settings", true},
            {"pushButton_about", "About Korvatin Viewlane", "About Korvatin Viewlane", true},
            {"pushButton_record", "", "Record", true},
            {"pushButton_stop", "", "Stop", true},
        };
        for (const B& b : buttons) {
            auto* button = Find<QPushButton>(window.get(), b.name);
            QVERIFY2(button, b.name);
            QCOMPARE(button->text(), QString(b.text));
            QCOMPARE(button->toolTip(), QString(b.tip));
            QVERIFY2(button->isEnabled() == b.enabled, b.name);
        }
        QCOMPARE(Find<QPushButton>(window.get(), "pushButton_force_ip")->styleSheet(),
                 QString("QPushButton { background-color: rgb(173, 173, 173);}\n"
                         "QPushButton::disabled{color: rgb(0, 0, 0);}\n"
                         "QToolTip { color: #ffffff; background-color: #000000; border: 0px "
                         "solid white; }"));
        auto* panMode = Find<QCheckBox>(window.get(), "checkBox_panMode");
        QCOMPARE(panMode->text(), QString("Pan Mode"));
        QVERIFY(!panMode->isChecked());
        auto* display = Find<QCheckBox>(window.get(), "checkBox_display");
        QCOMPARE(display->text(), QString("Display Frame"));
        QCOMPARE(display->toolTip(), QString("Display"));
        QVERIFY(display->isChecked());
        auto* polling = Find<QCheckBox>(window.get(), "checkBox_readonly_nodes_polling");
        QCOMPARE(polling->text(), QString("Readonly Nodes Polling"));
        QVERIFY(!polling->isChecked());
        QVERIFY(!Find<QAction>(window.get(), "actionReadonly_Nodes_Polling")->isChecked());
        QCOMPARE(Find<QGroupBox>(window.get(), "groupBox_zoompan")->title(), QString("Zoom Pan"));
        QCOMPARE(Find<QLabel>(window.get(), "labelFrameAve")->text(), QString("Frame Average"));
        QCOMPARE(Find<QLabel>(window.get(), "label1_100")->text(), QString("1 - 100 Frames"));
        QCOMPARE(Find<QLabel>(window.get(), "labelContrastEnhance")->text(),
                 QString("Contrast Enhance"));
        QCOMPARE(Find<QLabel>(window.get(), "label1_256")->text(), QString("0 - 256"));
        QCOMPARE(Find<QLineEdit>(window.get(), "lineEdit_fameAve")->toolTip(),
                 QString("1 - 100 frames"));
        QCOMPARE(Find<QLineEdit>(window.get(), "lineEdit_ContrastEnhance")->toolTip(),
                 QString("0 - 256"));
        QVERIFY(Find<QComboBox>(window.get(), "comboBox_bayer")->isEnabled());
        const char* recordRow[] = {"pushButton_6",      "pushButton_8",   "pushButton_7",
                                   "pushButton_5",      "pushButton_4",   "pushButton_3",
                                   "pushButton_record", "pushButton_stop"};
        auto* row = Find<QWidget>(window.get(), "widget_record_buttons");
        const auto rowButtons =
            row->findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(rowButtons.size(), 8);
        for (int i = 0; i < 8; ++i) {
            QCOMPARE(rowButtons[i]->objectName(), QString(recordRow[i]));
            QVERIFY(!rowButtons[i]->icon().isNull());
        }
    }

    void validatorsBoundAverageAndContrast() {
        auto window = MakeWindow("");
        auto range = [&](const char* name) {
            auto* v = qobject_cast<const QIntValidator*>(
                Find<QLineEdit>(window.get(), name)->validator());
            return v ? qMakePair(v->bottom(), v->top()) : qMakePair(-1, -1);
        };
        QCOMPARE(range("lineEdit_fameAve"), qMakePair(1, 100));
        QCOMPARE(range("lineEdit_ContrastEnhance"), qMakePair(0, 256));
    }

    void comboBoxesOfferTheirChoices() {
        auto window = MakeWindow("");
        auto items = [&](const char* name) {
            auto* box = Find<QComboBox>(window.get(), name);
            QStringList texts;
            for (int i = 0; box && i < box->count(); ++i)
                texts << box->itemText(i);
            return texts + QStringList{box ? box->toolTip() : QString()};
        };
        const QStringList bayer{"None", "Nearest Neighbor", "Bilinear", "Bayer Interpolation"};
        const QStringList rate{"60 fps", "30 fps", "20 fps", "Display Frame Rate"};
        QCOMPARE(items("comboBox_bayer"), bayer);
        QCOMPARE(items("comboBox_toolbar_bayer"), bayer);
        QCOMPARE(items("comboBox_display"), rate);
        QCOMPARE(items("comboBox_toolbar_display"), rate);
    }

    void actionsHaveTheirTextsAndStates() {
        auto window = MakeWindow("programXML=true\n");
        struct A {
            const char* name;
            const char* text;
            bool icon;
            bool enabled;
            bool checkable;
            bool checked;
        };
        const A actions[] = {
            {"actionForce_Ip", "Force Ip", false, true, false, false},
            {"actionIp_Configuration", "Ip Configuration", true, false, false, false},
            {"actionProgram_LUT", "Program LUT", true, false, false, false},
            {"actionFirmware_Upgrade", "Firmware Upgrade", true, false, false, false},
            {"actionLoad_XML_File", "Load XML File", true, false, false, false},
            {"actionExit", "Exit", true, true, false, false},
            {"actionProgram_XML", "Program XML", true, false, false, false},
            {"actionNone", "None", false, true, true, true},
            {"actionNearest_Neighbor", "Nearest Neighbor", false, true, true, false},
            {"actionBilinear", "Bilinear", false, true, true, false},
            {"actionDisplay_Frame1", "Display Frame", false, true, true, true},
            {"actionDisplay_Frame", "Display Frame", true, true, true, true},
            {"action60_fps", "60 fps", false, true, true, true},
            {"action30_fps", "30 fps", false, true, true, false},
            {"action20_fps", "20 fps", false, true, true, false},
            {"actionSave_Image", "Save Image", true, false, false, false},
            {"actionAbout", "About Korvatin Viewlane", true, true, false, false},
            {"actionDevice_Discovery", "Device Discovery", true, true, false, false},
            {"actionZoom_In", "Zoom In", true, false, false, false},
            {"actionZoom_Out", "Zoom Out", true, false, false, false},
            {"actionSelect", "Select", false, true, true, true},
            {"actionZoom_ResetView", "Reset View", true, false, false, false},
            {"actionPan_Mode", "Pan Mode", true, true, true, false},
            {"actionSave_Device_Settings", "Save Device Settings", true, false, false, false},
            {"actionLoad_Device_Settings", "Load Device Settings", true, false, false, false},
            {"actionClear_Dropframe_Count", "Clear Dropframe Count", true, false, false, false},
            {"actionForce_Reboot", "Force Reboot", false, true, false, false},
        };
        for (const A& a : actions) {
            auto* action = Find<QAction>(window.get(), a.name);
            QVERIFY2(action, a.name);
            QCOMPARE(action->text(), QString(a.text));
            QVERIFY2(action->icon().isNull() != a.icon, a.name);
            QVERIFY2(action->isEnabled() == a.enabled, a.name);
            QVERIFY2(action->isCheckable() == a.checkable, a.name);
            QVERIFY2(action->isChecked() == a.checked, a.name);
        }
        auto* polling = Find<QAction>(window.get(), "actionReadonly_Nodes_Polling");
        QVERIFY(polling->isCheckable());
        QVERIFY(!polling->icon().isNull());
        // Placed in no menu or toolbar.
        QVERIFY(Find<QAction>(window.get(), "actionDisplay_Frame1")->associatedObjects().isEmpty());
        QVERIFY(Find<QAction>(window.get(), "actionSelect")->associatedObjects().isEmpty());
    }

    void menusHoldTheirEntriesInOrder() {
        auto window = MakeWindow("programXML=true\n");
        QMenuBar* bar = window->menuBar();
        QStringList titles;
        for (QAction* action : bar->actions())
            titles << action->text();
        QCOMPARE(titles, QStringList({"Device Configuration", "Host Settings", "File", "Help"}));
        QMenu* device = bar->actions()[0]->menu();
        QCOMPARE(MenuTexts(device),
                 QStringList({"Force Ip", "Force Reboot", "Ip Configuration", "Program LUT",
                              "Firmware Upgrade", "Program XML", "Load XML File",
                              "Save Device Settings", "Load Device Settings"}));
        QMenu* host = bar->actions()[1]->menu();
        QCOMPARE(MenuTexts(host),
                 QStringList({"Bayer Interpolation", "Display", "Zoom Pan", "Device Discovery",
                              "Readonly Nodes Polling", "Clear Dropframe Count"}));
        QMenu* bayer = SubMenu(host, "Bayer Interpolation");
        QVERIFY(!bayer->icon().isNull());
        QCOMPARE(MenuTexts(bayer), QStringList({"None", "Nearest Neighbor", "Bilinear"}));
        QMenu* display = SubMenu(host, "Display");
        QCOMPARE(MenuTexts(display), QStringList({"Display Frame", "Frame Rate"}));
        QCOMPARE(MenuTexts(SubMenu(display, "Frame Rate")),
                 QStringList({"60 fps", "30 fps", "20 fps"}));
        QCOMPARE(MenuTexts(SubMenu(host, "Zoom Pan")),
                 QStringList({"Zoom In", "Zoom Out", "Reset View", "Pan Mode"}));
        QCOMPARE(MenuTexts(bar->actions()[2]->menu()), QStringList({"Save Image", "-", "Exit"}));
        QCOMPARE(MenuTexts(bar->actions()[3]->menu()), QStringList({"About Korvatin Viewlane"}));
    }

    void toolBarIsFilledInOrder() {
        auto window = MakeWindow("programXML=true\n");
        QStringList entries;
        auto* bar = Find<QToolBar>(window.get(), "mainToolBar");
        for (QAction* action : bar->actions()) {
            if (action->isSeparator())
                entries << "-";
            else if (QWidget* widget = bar->widgetForAction(action);
                     widget && qobject_cast<QComboBox*>(widget))
                entries << widget->objectName();
            else
                entries << action->text();
        }
        QCOMPARE(entries, QStringList({"Ip Configuration",
                                       "Program LUT",
                                       "Firmware Upgrade",
                                       "Program XML",
                                       "Load XML File",
                                       "Save Device Settings",
                                       "Load Device Settings",
                                       "-",
                                       "comboBox_toolbar_bayer",
                                       "Display Frame",
                                       "comboBox_toolbar_display",
                                       "Device Discovery",
                                       "Readonly Nodes Polling",
                                       "Clear Dropframe Count",
                                       "-",
                                       "Save Image",
                                       "-",
                                       "Zoom In",
                                       "Zoom Out",
                                       "Reset View",
                                       "Pan Mode",
                                       "-",
                                       "About Korvatin Viewlane"}));
    }

    void statusBarHasEightLabelsThenThePixelValue() {
        auto window = MakeWindow("showDropFrame=true\n");
        const auto labels =
            window->statusBar()->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
        // The pixel read-out follows the status bar's eight fields, hidden while it has nothing
        // to say.
        QCOMPARE(labels.size(), 9);
        QCOMPARE(labels[8]->objectName(), QString("label_pixelValue"));
        QVERIFY(!labels[8]->isVisibleTo(window.get()));
        const int widths[] = {110, 50, 300, 200, 200, 50, 50, 100};
        for (int i = 0; i < 8; ++i) {
            QCOMPARE(labels[i]->minimumWidth(), widths[i]);
            QCOMPARE(labels[i]->maximumWidth(), widths[i]);
            QCOMPARE(labels[i]->sizePolicy().horizontalPolicy(), QSizePolicy::Fixed);
        }
        QCOMPARE(labels[0]->text(), QString("Not Connected"));
        QVERIFY(labels[1]->text().isEmpty());
        QVERIFY(!labels[1]->isVisibleTo(window.get()));
        QCOMPARE(labels[1]->styleSheet(),
                 QString("background-image: url(:/images/external_resources/images/record.png);"
                         "background-repeat: no-repeat;"));
        QCOMPARE(labels[2]->text(), QString("Frame Rate: (Capture, Display) "));
        QCOMPARE(labels[3]->text(), QString("(   0,   0) fps"));
        QCOMPARE(labels[4]->text(), QString("Dropped Frame:"));
        QCOMPARE(labels[5]->text(), QString("     0"));
        QCOMPARE(labels[6]->text(), QString("Zoom:"));
        QCOMPARE(labels[7]->text(), QString("100 %"));
        QVERIFY(labels[4]->isVisibleTo(window.get()));
        QVERIFY(labels[5]->isVisibleTo(window.get()));
        QCOMPARE(labels[2]->alignment() & Qt::AlignHorizontal_Mask, Qt::AlignRight);
        QCOMPARE(labels[4]->alignment() & Qt::AlignHorizontal_Mask, Qt::AlignRight);
        QCOMPARE(labels[6]->alignment() & Qt::AlignHorizontal_Mask, Qt::AlignRight);
        QCOMPARE(labels[0]->styleSheet(), QString("color: rgb(255, 255, 255);"));
    }

    void withoutShowDropFrameSixLabelsShowAndClearingStillWorks() {
        auto window = MakeWindow("showDropFrame=false\n");
        const auto labels =
            window->statusBar()->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
        int shown = 0;
        for (QLabel* label : labels)
            shown += label->isVisibleTo(window.get()) ? 1 : 0;
        // The recording indicator is hidden until a recording starts; the other six show.
        QCOMPARE(shown, 5);
        labels[1]->setVisible(true);
        shown = 0;
        for (QLabel* label : labels)
            shown += label->isVisibleTo(window.get()) ? 1 : 0;
        QCOMPARE(shown, 6);
        QVERIFY(!labels[4]->isVisibleTo(window.get()));
        QVERIFY(!labels[5]->isVisibleTo(window.get()));
        labels[5]->setText("    17");
        auto* clear = Find<QAction>(window.get(), "actionClear_Dropframe_Count");
        clear->setEnabled(true);
        clear->trigger();
        QCOMPARE(labels[5]->text(), QString("     0"));
    }

    void withoutProgramXmlNothingOffersIt() {
        auto window = MakeWindow("programXML=false\n");
        // The toolbar lets go of an action's button through a deferred delete.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!Find<QPushButton>(window.get(), "pushButton_programXML"));
        QVERIFY(!Find<QAction>(window.get(), "actionProgram_XML"));
        for (QAbstractButton* button : window->findChildren<QAbstractButton*>())
            QVERIFY(button->text() != "Program XML");
        for (QAction* action : window->findChildren<QAction*>())
            QVERIFY(action->text() != "Program XML");
        for (QMenu* menu : window->findChildren<QMenu*>())
            QVERIFY(!MenuTexts(menu).contains("Program XML"));
        for (QAction* action : Find<QToolBar>(window.get(), "mainToolBar")->actions())
            QVERIFY(action->text() != "Program XML");
    }

    void withProgramXmlTheButtonAndActionStay() {
        auto window = MakeWindow("programXML=true\n");
        QVERIFY(Find<QPushButton>(window.get(), "pushButton_programXML"));
        QVERIFY(Find<QAction>(window.get(), "actionProgram_XML"));
    }

    void toolbarBilinearReachesTheBayerComboBox() {
        auto window = MakeWindow("");
        auto* toolbarBox = Find<QComboBox>(window.get(), "comboBox_toolbar_bayer");
        auto* bayer = Find<QComboBox>(window.get(), "comboBox_bayer");
        QCOMPARE(bayer->currentIndex(), 0);
        toolbarBox->setCurrentIndex(2);
        emit toolbarBox->activated(2);
        QCOMPARE(bayer->currentIndex(), 2);
        QVERIFY(Find<QAction>(window.get(), "actionBilinear")->isChecked());
        QVERIFY(!Find<QAction>(window.get(), "actionNone")->isChecked());
        QCOMPARE(window->BayerMode(), 3u);
        QCOMPARE(Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame")->BayerMode(), 3u);
    }

    void bayerActionsMoveTheComboBoxes() {
        auto window = MakeWindow("");
        Find<QAction>(window.get(), "actionNearest_Neighbor")->trigger();
        QCOMPARE(Find<QComboBox>(window.get(), "comboBox_bayer")->currentIndex(), 1);
        QCOMPARE(Find<QComboBox>(window.get(), "comboBox_toolbar_bayer")->currentIndex(), 1);
        QCOMPARE(window->BayerMode(), 1u);
    }

    void toolbar20FpsSetsInterval50() {
        auto window = MakeWindow("");
        auto* toolbarBox = Find<QComboBox>(window.get(), "comboBox_toolbar_display");
        toolbarBox->setCurrentIndex(2);
        emit toolbarBox->activated(2);
        QCOMPARE(Find<QComboBox>(window.get(), "comboBox_display")->currentIndex(), 2);
        QVERIFY(Find<QAction>(window.get(), "action20_fps")->isChecked());
        QCOMPARE(window->DisplayInterval(), 50);
        QCOMPARE(window->DisplayTimer()->interval(), 50u);
        Find<QAction>(window.get(), "action30_fps")->trigger();
        QCOMPARE(window->DisplayInterval(), 30);
        QCOMPARE(Find<QComboBox>(window.get(), "comboBox_toolbar_display")->currentIndex(), 1);
        Find<QAction>(window.get(), "action60_fps")->trigger();
        QCOMPARE(window->DisplayTimer()->interval(), 10u);
    }

    void checkableActionsMirrorTheirCheckBoxes() {
        auto window = MakeWindow("");
        auto* pan = Find<QCheckBox>(window.get(), "checkBox_panMode");
        Find<QAction>(window.get(), "actionPan_Mode")->trigger();
        QVERIFY(pan->isChecked());
        auto* widget = Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame");
        QCOMPARE(widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModePan));
        pan->setChecked(false);
        QVERIFY(!Find<QAction>(window.get(), "actionPan_Mode")->isChecked());
        QCOMPARE(widget->MouseModeValue(), int(CQwidgetGrabbedFrame::ModeZoomSelect));

        auto* display = Find<QCheckBox>(window.get(), "checkBox_display");
        Find<QAction>(window.get(), "actionDisplay_Frame")->trigger();
        QVERIFY(!display->isChecked());
        display->setChecked(true);
        QVERIFY(Find<QAction>(window.get(), "actionDisplay_Frame")->isChecked());

        auto* polling = Find<QCheckBox>(window.get(), "checkBox_readonly_nodes_polling");
        Find<QAction>(window.get(), "actionReadonly_Nodes_Polling")->trigger();
        QVERIFY(polling->isChecked());
        polling->setChecked(false);
        QVERIFY(!Find<QAction>(window.get(), "actionReadonly_Nodes_Polling")->isChecked());
    }

    void cameraConnectSwitchesExactlyItsWidgets() {
        auto window = MakeWindow("programXML=true\n");
        const QStringList& switched = uitest::CameraSwitchedNames();
        auto enabled = [&](const QString& name) {
            if (auto* w = Find<QWidget>(window.get(), name))
                return w->isEnabled();
            return Find<QAction>(window.get(), name)->isEnabled();
        };
        emit window->CameraConnect(true);
        for (const QString& name : switched)
            QVERIFY2(enabled(name), qPrintable(name));
        emit window->CameraConnect(false);
        for (const QString& name : switched)
            QVERIFY2(!enabled(name), qPrintable(name));
        for (const char* name : {"pushButton_force_ip", "pushButton_force_reboot", "actionForce_Ip",
                                 "actionForce_Reboot", "comboBox_display", "comboBox_toolbar_bayer",
                                 "pushButton_record", "pushButton_stop", "checkBox_display"})
            QVERIFY2(enabled(name), name);
    }

    void zoomLabelFollowsTheDisplay() {
        auto window = MakeWindow("");
        auto* widget = Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame");
        const auto labels =
            window->statusBar()->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(labels[7]->text(), QString("100 %"));
        BlackFrame frame;
        widget->SetFrame(&frame.holder);
        // Zoomed by the widget itself: the label changes only when the widget says so.
        widget->ZoomIn();
        QCOMPARE(labels[7]->text(), QString("100 %"));
        emit widget->zoomedPanChanged();
        QCOMPARE(labels[7]->text(), QString("150 %"));
        widget->TakeFrame();
    }

    void withNoNewFramesTicksDoNothing() {
        auto window = MakeWindow("");
        auto* widget = Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame");
        int paints = 0;
        auto counter = std::make_unique<PaintCounter>(&paints);
        widget->installEventFilter(counter.get());
        for (int i = 0; i < 5; ++i)
            window->DisplayThreadTimout();
        QCoreApplication::processEvents();
        QCOMPARE(window->DisplayTicks(), 0u);
        QCOMPARE(widget->CurrentFrame(), nullptr);
        QCOMPARE(widget->PaintedFrameCount(), 0u);
        QCOMPARE(paints, 0);
    }

    void averageAndContrastReachTheDisplay() {
        auto window = MakeWindow("");
        auto* widget = Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame");
        auto* average = Find<QLineEdit>(window.get(), "lineEdit_fameAve");
        average->setText("8");
        emit average->editingFinished();
        QCOMPARE(widget->AverageCount(), 8);
        auto* contrast = Find<QLineEdit>(window.get(), "lineEdit_ContrastEnhance");
        contrast->setText("256");
        emit contrast->editingFinished();
        QCOMPARE(widget->ContrastValue(), 256);
    }

    void zoomButtonsStepTheViewAndTheLabel() {
        auto window = MakeWindow("");
        auto* widget = Find<CQwidgetGrabbedFrame>(window.get(), "widgetGrabbedFrame");
        BlackFrame frame;
        widget->SetFrame(&frame.holder);
        emit window->CameraConnect(true);
        const auto labels =
            window->statusBar()->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
        QTest::mouseClick(Find<QPushButton>(window.get(), "pushButton_zoomin"), Qt::LeftButton);
        QCOMPARE(labels[7]->text(), QString("150 %"));
        Find<QAction>(window.get(), "actionZoom_In")->trigger();
        QCOMPARE(labels[7]->text(), QString("200 %"));
        Find<QAction>(window.get(), "actionZoom_Out")->trigger();
        QCOMPARE(labels[7]->text(), QString("150 %"));
        Find<QCheckBox>(window.get(), "checkBox_panMode")->setChecked(true);
        QTest::mouseClick(Find<QPushButton>(window.get(), "pushButton_zoomresetview"),
                          Qt::LeftButton);
        QCOMPARE(labels[7]->text(), QString("100 %"));
        QVERIFY(!Find<QCheckBox>(window.get(), "checkBox_panMode")->isChecked());
        QVERIFY(!Find<QAction>(window.get(), "actionPan_Mode")->isChecked());
        widget->TakeFrame();
    }

    void rateTextsArePadded() {
        QCOMPARE(MainWindow::RatesText(25, 7), QString("(  25,   7) fps"));
        QCOMPARE(MainWindow::RatesText(1234, 60), QString("(1234,  60) fps"));
        QCOMPARE(MainWindow::DroppedText(42), QString("    42"));
    }

    void ratesAreGrowthOverThreeSeconds() {
        uint32_t previous = 0;
        QCOMPARE(MainWindow::RateSince(90, previous), 30u);
        QCOMPARE(previous, 90u);
        QCOMPARE(MainWindow::RateSince(181, previous), 30u);
        QCOMPARE(MainWindow::RateSince(181, previous), 0u);
    }

    void counterResetGivesRateZeroNotNegative() {
        uint32_t previous = 500;
        QCOMPARE(MainWindow::RateSince(12, previous), 0u);
        QCOMPARE(previous, 12u);
        QCOMPARE(MainWindow::RateSince(42, previous), 10u);
    }

    void foldablePanelsStartFoldedAndUnfold() {
        auto window = MakeWindow("");
        auto* panel = Find<QFrameFoldable>(window.get(), "qFrameFoldable_device_config");
        auto* forceIp = Find<QPushButton>(window.get(), "pushButton_force_ip");
        QVERIFY(!forceIp->isVisibleTo(window.get()));
        QTest::mouseClick(panel->findChild<QToolButton*>("toolButton"), Qt::LeftButton);
        QVERIFY(forceIp->isVisibleTo(window.get()));
    }

    void screenshotOfTheWindow() {
        if (!uitest::HasScreen())
            QSKIP("no X server: the window cannot be shown for a screenshot");
        auto window = MakeWindow("showDropFrame=true\nprogramXML=true\n");
        for (const char* name : {"qFrameFoldable_devices", "qFrameFoldable_device_config",
                                 "qFrameFoldable_hostSettings", "qFrameFoldable_recording"})
            QTest::mouseClick(
                Find<QFrameFoldable>(window.get(), name)->findChild<QToolButton*>("toolButton"),
                Qt::LeftButton);
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QTest::qWait(200);
        const QString path = uitest::SaveScreenshot(window.get(), "mainwindow");
        QVERIFY(QFile::exists(path));
        QImage shot(path);
        QVERIFY(shot.width() > 1000);
    }

    void initTestCase() { QVERIFY(m_dir.isValid()); }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
