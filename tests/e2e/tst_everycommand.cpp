// Every action and every button of the main window, one by one while connected to a simulated
// camera: each opens its dialog, changes its state, or (for the few that have no function) does
// nothing; and none is left out.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <displaytimer.h>
#include <histogramview.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QComboBox>
#include <QPushButton>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace e2e;

namespace {

// Triggers the action or clicks the button named `name`.
void activate(MainWindow& window, const QString& name) {
    if (auto* action = window.findChild<QAction*>(name))
        action->trigger();
    else
        window.findChild<QAbstractButton*>(name)->click();
}

// The class of the modal dialog `name` opens (closed again at once), or an empty text.
QString dialogOpenedBy(MainWindow& window, const QString& name) {
    QString opened;
    uitest::WithModal<QDialog>(
        &window, [&] { activate(window, name); },
        [&](QDialog& dialog) {
            opened = dialog.metaObject()->className();
            dialog.reject();
        });
    return opened;
}

} // namespace

class TestEveryCommand : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void everyActionAndButtonDoesWhatItSays() {
        SimulatorProcess sim;
        QVERIFY2(sim.startCamsim({"--address", "127.0.13.10", "--width", "320", "--height", "240"}),
                 qPrintable(sim.errorString()));
        MainWindow window(nullptr, WriteSettings(m_dir.filePath("settings.ini"), "",
                                                 "[avi]\naviFileName=" +
                                                     m_dir.filePath("every.avi").toUtf8() + "\n"));
        window.resize(1600, 1000);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTRY_COMPARE_WITH_TIMEOUT(Table(window)->rowCount(), 1, 20000);
        ClickRow(window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(window.IsConnected(), 10000);
        auto* display = window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        QTRY_VERIFY_WITH_TIMEOUT(display->Image() != nullptr, 20000);
        MessageBoxWatcher boxes;

        // The dialogs, each from its button and its action.
        const QList<QPair<QStringList, QString>> dialogs = {
            {{"pushButton_force_ip", "actionForce_Ip"}, "CDialogForceIP"},
            {{"pushButton_force_reboot", "actionForce_Reboot"}, "CDialogForceReboot"},
            {{"pushButton_ip_configuration", "actionIp_Configuration"}, "CDialogIpConfiguration"},
            {{"pushButton_program_LUT", "actionProgram_LUT"}, "CDialogProgramLUT"},
            {{"pushButton_firmware_upgrade", "actionFirmware_Upgrade"}, "CDialogFirmwareUpgrade"},
            {{"pushButton_programXML", "actionProgram_XML"}, "CDialogProgramXML"},
            {{"pushButton_genIcamXmlLoad", "actionLoad_XML_File"}, "QFileDialog"},
            {{"pushButton_saveDeviceSettings", "actionSave_Device_Settings"},
             "CDialogSaveDeviceSettings"},
            {{"pushButton_loadDeviceSettings", "actionLoad_Device_Settings"},
             "CDialogLoadDeviceSettings"},
            {{"pushButton_device_discovery", "actionDevice_Discovery"},
             "CDialogDeviceDiscoverySettings"},
            {{"pushButton_about", "actionAbout"}, "CDialogAbout"},
            {{"pushButton_recording_settings"}, "CDialogRecordingSettings"},
            {{"pushButton_file_save", "actionSave_Image"}, "QFileDialog"}};
        QSet<QString> checked;
        for (const auto& [names, dialogClass] : dialogs) {
            for (const QString& name : names) {
                QCOMPARE(dialogOpenedBy(window, name), dialogClass);
                QVERIFY2(window.IsConnected(), qPrintable(name));
                checked.insert(name);
            }
        }
        QVERIFY(boxes.texts.isEmpty());

        // Toggles: the check boxes and their mirror actions.
        const QList<QPair<QString, QString>> toggles = {
            {"checkBox_display", "actionDisplay_Frame"},
            {"checkBox_readonly_nodes_polling", "actionReadonly_Nodes_Polling"},
            {"checkBox_panMode", "actionPan_Mode"}};
        for (const auto& [box, action] : toggles) {
            auto* check = window.findChild<QCheckBox*>(box);
            auto* mirror = window.findChild<QAction*>(action);
            const bool before = check->isChecked();
            check->click();
            QCOMPARE(check->isChecked(), !before);
            QCOMPARE(mirror->isChecked(), !before);
            mirror->trigger();
            QCOMPARE(check->isChecked(), before);
            QCOMPARE(mirror->isChecked(), before);
            checked << box << action;
        }
        QVERIFY(window.DisplayTimer()->isActive());
        // Polling on runs its timer; pan mode on reaches the display.
        window.findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->setChecked(true);
        QVERIFY(window.ReadonlyNodesPollingTimer()->isActive());
        window.findChild<QAction*>("actionPan_Mode")->trigger();
        QVERIFY(window.findChild<QCheckBox*>("checkBox_panMode")->isChecked());

        // Zoom: in, out, reset, from buttons and actions.
        auto zoom = [&] {
            QRect visible;
            int percent = 0;
            display->GetView(visible, percent);
            return percent;
        };
        for (const auto& [in, out, reset] :
             {std::tuple<QString, QString, QString>{"pushButton_zoomin", "pushButton_zoomout",
                                                    "pushButton_zoomresetview"},
              {"actionZoom_In", "actionZoom_Out", "actionZoom_ResetView"}}) {
            const int start = zoom();
            activate(window, in);
            QVERIFY2(zoom() > start, qPrintable(in));
            const int zoomed = zoom();
            activate(window, out);
            QVERIFY2(zoom() < zoomed, qPrintable(out));
            activate(window, in);
            activate(window, reset);
            QCOMPARE(zoom(), start);
            QVERIFY(!window.findChild<QCheckBox*>("checkBox_panMode")->isChecked());
            checked << in << out << reset;
        }

        // Bayer and display-rate choices: actions, combo boxes and toolbar combo boxes agree.
        const QList<QPair<QString, uint32_t>> bayer = {
            {"actionBilinear", 3}, {"actionNearest_Neighbor", 1}, {"actionNone", 0}};
        for (const auto& [action, code] : bayer) {
            activate(window, action);
            QCOMPARE(window.BayerMode(), code);
            QCOMPARE(display->BayerMode(), code);
            checked << action;
        }
        const QList<QPair<QString, int>> rates = {
            {"action20_fps", 50}, {"action30_fps", 30}, {"action60_fps", 10}};
        for (const auto& [action, interval] : rates) {
            activate(window, action);
            QCOMPARE(window.DisplayInterval(), interval);
            QCOMPARE(window.DisplayTimer()->interval(), uint(interval));
            checked << action;
        }

        // Clear dropped frames, from button and action.
        for (const QString& name :
             {"pushButton_clear_dropframecount", "actionClear_Dropframe_Count"}) {
            activate(window, name);
            QCOMPARE(window.Session()->GetDroppedFrameCount(), 0u);
            checked << name;
        }

        // The histogram panel's logarithmic scale, back and forth.
        {
            auto* log = window.findChild<QCheckBox*>("checkBox_histogramLog");
            auto* view = window.findChild<CHistogramView*>("histogramView");
            QVERIFY(log && view);
            const bool before = view->Logarithmic();
            log->click();
            QCOMPARE(view->Logarithmic(), !before);
            log->click();
            QCOMPARE(view->Logarithmic(), before);
            checked << "checkBox_histogramLog";
        }

        // Record and stop.
        activate(window, "pushButton_record");
        QVERIFY(window.Session()->IsRecording());
        const uint32_t grabbed = window.Session()->grabbedFrameCount.load();
        QTRY_VERIFY_WITH_TIMEOUT(window.Session()->grabbedFrameCount.load() > grabbed + 10, 20000);
        activate(window, "pushButton_stop");
        QVERIFY(!window.Session()->IsRecording());
        QVERIFY(QFileInfo(m_dir.filePath("every.avi")).size() > 0);
        checked << "pushButton_record"
                << "pushButton_stop";

        // The six playback buttons and two spare actions have no function: nothing changes.
        for (const QString& name :
             {"pushButton_3", "pushButton_4", "pushButton_5", "pushButton_6", "pushButton_7",
              "pushButton_8", "actionDisplay_Frame1", "actionSelect"}) {
            QCOMPARE(dialogOpenedBy(window, name), QString());
            QVERIFY(window.IsConnected());
            QVERIFY(!window.Session()->IsRecording());
            checked << name;
        }
        QVERIFY2(boxes.texts.isEmpty(), qPrintable(boxes.texts.join(" | ")));

        // Exit closes the window.
        activate(window, "actionExit");
        QVERIFY(!window.isVisible());
        checked << "actionExit";

        // Nothing was left out.
        QStringList unchecked;
        for (QAction* action : window.findChildren<QAction*>())
            if (action->objectName().startsWith("action") &&
                !checked.contains(action->objectName()))
                unchecked << action->objectName();
        // The feature tree's editors are the camera's features, not the window's commands.
        QTreeWidget* tree = Tree(window);
        for (QAbstractButton* button : window.findChildren<QAbstractButton*>())
            if (!tree->isAncestorOf(button) &&
                (button->objectName().startsWith("pushButton") ||
                 button->objectName().startsWith("checkBox")) &&
                !checked.contains(button->objectName()))
                unchecked << button->objectName();
        QVERIFY2(unchecked.isEmpty(), qPrintable(unchecked.join(", ")));
    }
};

QTEST_MAIN(TestEveryCommand)
#include "tst_everycommand.moc"
