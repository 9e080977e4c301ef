// The main window's maintenance dialogs: each opens from its button and its action with
// discovery and polling paused, both come back afterwards; the settings and LUT jobs change the
// connected camera and what the window shows.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <devicediscoverythread.h>
#include <dialogprogressthreadevent.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace e2e;

namespace {

constexpr int kJobWaitMs = 60000;

// What the window looked like while a maintenance dialog was open.
struct DuringDialog {
    QString dialogClass;
    QWidget* parent = nullptr;
    bool pollingBoxChecked = false;
    bool pollingActionChecked = false;
    bool pollingTimerActive = false;
    bool discoveryEnabled = false;
};

// Opens a dialog with `open`, notes the window's state once the dialog runs, then either hands
// the dialog to `use` or closes it.
DuringDialog observeDialog(MainWindow& window, const std::function<void()>& open,
                           const std::function<void(QDialog&)>& use = {}) {
    DuringDialog seen;
    const bool shown = uitest::WithModal<CDialogProgressThreadEvent>(
        &window, open, [&](CDialogProgressThreadEvent& dialog) {
            seen.dialogClass = dialog.metaObject()->className();
            seen.parent = dialog.parentWidget();
            seen.pollingBoxChecked =
                window.findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->isChecked();
            seen.pollingActionChecked =
                window.findChild<QAction*>("actionReadonly_Nodes_Polling")->isChecked();
            seen.pollingTimerActive = window.ReadonlyNodesPollingTimer()->isActive();
            seen.discoveryEnabled = window.DiscoveryThread()->IsEnabled();
            if (use)
                use(dialog);
            dialog.reject();
        });
    if (!shown)
        qWarning("no maintenance dialog showed");
    return seen;
}

// Fills the dialog's file name, clicks its action button and waits until the job has ended and
// its final message has been answered.
bool runJob(QDialog& dialog, const QString& button, const QString& fileName) {
    auto* job = static_cast<CDialogProgressThreadEvent*>(&dialog);
    bool finished = false;
    // Queued after the dialog's own handler, which owns the text; only the code is looked at.
    QObject::connect(
        job, &CDialogProgressThreadEvent::threadEvent, &dialog,
        [&](int event, const QString*) { finished = finished || event == 4; },
        Qt::QueuedConnection);
    dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
    dialog.findChild<QPushButton*>(button)->click();
    return uitest::WaitFor(
        [&] { return finished && !job->IsBusy() && QApplication::activeModalWidget() == &dialog; },
        kJobWaitMs);
}

// korvatin-camsim's Mono8 ramp seen through an inverting table: every pixel one level below its
// left neighbour.
bool isFallingRamp(const QImage& image) {
    for (int y = 0; y < image.height(); ++y) {
        const uchar* row = image.constScanLine(y);
        for (int x = 1; x < image.width(); ++x)
            if (row[x] != uchar(row[x - 1] - 1))
                return false;
    }
    return true;
}

} // namespace

class TestMaintenanceDialogs : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> OpenWindow(int rows) {
        return e2e::OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), rows);
    }

    // A window connected to a camsim at `address`, with read-only polling on.
    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim, const QString& address) {
        if (!sim.startCamsim({"--address", address, "--width", "256", "--height", "64"}))
            return nullptr;
        auto window = OpenWindow(1);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->setChecked(true);
        return window;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void eachDialogRunsWithDiscoveryAndPollingPausedAndBothComeBack() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.9.10");
        QVERIFY(window);
        QVERIFY(!window->ReadonlyPollingFrames().isEmpty());
        QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());
        QVERIFY(window->DiscoveryThread()->IsEnabled());
        const QList<QPair<QString, QString>> commands = {
            {"pushButton_program_LUT", "CDialogProgramLUT"},
            {"actionProgram_LUT", "CDialogProgramLUT"},
            {"pushButton_saveDeviceSettings", "CDialogSaveDeviceSettings"},
            {"actionSave_Device_Settings", "CDialogSaveDeviceSettings"},
            {"pushButton_loadDeviceSettings", "CDialogLoadDeviceSettings"},
            {"actionLoad_Device_Settings", "CDialogLoadDeviceSettings"}};
        for (const auto& [name, dialogClass] : commands) {
            const DuringDialog seen = observeDialog(*window, [&] {
                if (auto* button = window->findChild<QPushButton*>(name))
                    button->click();
                else
                    window->findChild<QAction*>(name)->trigger();
            });
            QCOMPARE(seen.dialogClass, dialogClass);
            QCOMPARE(seen.parent, static_cast<QWidget*>(window.get()));
            QVERIFY(seen.pollingBoxChecked);
            QVERIFY(!seen.pollingActionChecked);
            QVERIFY(!seen.pollingTimerActive);
            QVERIFY(!seen.discoveryEnabled);
            QVERIFY(window->findChild<QAction*>("actionReadonly_Nodes_Polling")->isChecked());
            QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());
            QVERIFY(window->DiscoveryThread()->IsEnabled());
        }
    }

    void pollingWithNothingToPollStaysStoppedAfterTheDialog() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->setChecked(true);
        QVERIFY(window->ReadonlyPollingFrames().isEmpty());
        // Not connected, the buttons are disabled; the command itself still runs its dialog.
        const DuringDialog seen = observeDialog(*window, [&] {
            QMetaObject::invokeMethod(window.get(), "on_pushButton_program_LUT_clicked");
        });
        QCOMPARE(seen.dialogClass, QString("CDialogProgramLUT"));
        QVERIFY(seen.pollingBoxChecked);
        QVERIFY(!seen.pollingActionChecked);
        QVERIFY(window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->isChecked());
        QVERIFY(window->findChild<QAction*>("actionReadonly_Nodes_Polling")->isChecked());
        QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());
    }

    void discoveryAndPollingThatWereOffStayOff() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.9.20");
        QVERIFY(window);
        window->findChild<QCheckBox*>("checkBox_readonly_nodes_polling")->setChecked(false);
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        window->DiscoveryThread()->SetDiscovery(false, settings, true);
        const DuringDialog seen = observeDialog(*window, [&] {
            window->findChild<QPushButton*>("pushButton_saveDeviceSettings")->click();
        });
        QCOMPARE(seen.dialogClass, QString("CDialogSaveDeviceSettings"));
        QVERIFY(!window->DiscoveryThread()->IsEnabled());
        QVERIFY(!window->findChild<QAction*>("actionReadonly_Nodes_Polling")->isChecked());
        QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());
    }

    void settingsSavedAndLoadedInTheWindowComeBackInTheTree() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.9.30");
        QVERIFY(window);
        MessageBoxWatcher boxes;
        const QString path = m_dir.filePath("window-settings.txt");
        window->Session()->SetUInt32("Width", 128);
        observeDialog(
            *window,
            [&] { window->findChild<QPushButton*>("pushButton_saveDeviceSettings")->click(); },
            [&](QDialog& dialog) { QVERIFY(runJob(dialog, "pushButton_save_settings", path)); });
        QCOMPARE(boxes.texts,
                 QStringList{"Device setting was successfully saved to file: " + path});

        window->Session()->SetUInt32("Width", 200);
        observeDialog(
            *window,
            [&] { window->findChild<QPushButton*>("pushButton_loadDeviceSettings")->click(); },
            [&](QDialog& dialog) {
                QVERIFY(runJob(dialog, "pushButton_load_settings", path));
                // The load rebuilt the tree; polling still waits for the dialog to close, so
                // that a second load from it is the only reader of the camera.
                QVERIFY(EditorOf(*window, "Width"));
                QVERIFY(!window->ReadonlyNodesPollingTimer()->isActive());
                uitest::SaveScreenshot(&dialog, "mainwindow_load_device_settings");
            });
        QVERIFY(window->ReadonlyNodesPollingTimer()->isActive());
        QCOMPARE(boxes.texts.size(), 2);
        QVERIFY2(
            boxes.texts[1].startsWith("Device setting was successfully loaded from file: " + path),
            qPrintable(boxes.texts[1]));
        QCOMPARE(window->Session()->GetUInt32("Width"), 128u);
        // The tree was rebuilt: the Width editor shows the loaded value.
        QWidget* width = EditorOf(*window, "Width");
        QVERIFY(width);
        QCOMPARE(width->findChild<QLineEdit*>("lineEdit")->text(), QString("128"));
        QVERIFY(window->IsConnected());
    }

    void invertingLutProgrammedInTheWindowInvertsTheImageOnceEnabled() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.9.40");
        QVERIFY(window);
        MessageBoxWatcher boxes;
        QByteArray table;
        for (int k = 0; k < 1024; ++k)
            table += QByteArray::number(1023 - k) + "\n";
        const QString path = m_dir.filePath("invert.csv");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(table);
        file.close();
        observeDialog(
            *window, [&] { window->findChild<QPushButton*>("pushButton_program_LUT")->click(); },
            [&](QDialog& dialog) { QVERIFY(runJob(dialog, "pushButton_program", path)); });
        QCOMPARE(boxes.texts, QStringList{"Program is completed successfully"});
        QCOMPARE(window->Session()->GetBool("LUTEnable"), false);

        auto* display = window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        EditorOf(*window, "LUT Enable")->findChild<QCheckBox*>("checkBox")->click();
        QVERIFY(window->Session()->GetBool("LUTEnable"));
        QTRY_VERIFY_WITH_TIMEOUT(display->Image() && isFallingRamp(*display->Image()), 20000);
        uitest::SaveScreenshot(window.get(), "mainwindow_inverted_lut");
    }
};

QTEST_MAIN(TestMaintenanceDialogs)
#include "tst_maintenancedialogs.moc"
