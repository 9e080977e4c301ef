// Maintenance jobs from the main window while the live image runs: a 1,024-entry LUT and the
// simulator's whole feature set saved and loaded, through the window's buttons and dialogs with
// the camera streaming at its own rate and the display painting every frame, against two
// references measured in the same run against the same korvatin-camsim over loopback: the jobs
// written directly over a connection of their own, as viewlane-cli writes them, and viewlane-cli
// itself, run as a user runs it (its whole run: start, connect, job, disconnect).
// Runs under an X server (xvfb.sh) inside a private network namespace (isolated.sh).
#include "directjobs.h"
#include "mainwindow.h"
#include "uitesthelpers.h"

#include <cameranodesetting.h>
#include <devicesettingsjob.h>
#include <dialogloaddevicesettings.h>
#include <dialogprogramlut.h>
#include <dialogsavedevicesettings.h>
#include <korvatincameraviewlane.h>
#include <loopbackdevice.h>
#include <lutprogramjob.h>
#include <maintenancejobhost.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>

#include <korvatin/korvatincamera.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

using benchjobs::DirectHost;
using benchjobs::Median;
using benchjobs::TimeMs;

constexpr const char* kBench = "window-maintenance-bench";

// The wall time of one viewlane-cli run; exits the benchmark when the run fails.
double CliMs(const QStringList& arguments) {
    QProcess cli;
    QElapsedTimer timer;
    timer.start();
    cli.start(qEnvironmentVariable("KORVATIN_BIN_DIR") + "/viewlane-cli", arguments);
    if (!cli.waitForFinished(120000) || cli.exitStatus() != QProcess::NormalExit ||
        cli.exitCode() != 0) {
        std::fprintf(stderr, "%s: viewlane-cli %s failed: %s\n", kBench,
                     qPrintable(arguments.join(' ')), cli.readAllStandardError().constData());
        std::exit(1);
    }
    return timer.nsecsElapsed() / 1e6;
}

constexpr int kRounds = 3;
constexpr int kLutEntries = 1024;

// One dialog run from the window: what the job took from its event 1 to its event 4, and the
// frames the display painted meanwhile.
struct DialogRun {
    double jobMs = 0;
    uint32_t painted = 0;
};

// Clicks `openButton` of the window, fills in `fileName`, clicks `jobButton` in the dialog and
// waits for the job's final message, which must be `expected`; closes the dialog.
template <typename Dialog>
DialogRun RunFromWindow(MainWindow& window, const char* openButton, const char* jobButton,
                        const QString& fileName, const QString& expected) {
    auto* display = window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
    uitest::MessageBoxWatcher boxes;
    QElapsedTimer clock;
    std::atomic<qint64> startedNs{0};
    std::atomic<qint64> finishedNs{0};
    uint32_t paintedBefore = 0;
    uint32_t paintedAfter = 0;
    const bool shown = uitest::WithModal<Dialog>(
        &window, [&] { window.findChild<QPushButton*>(openButton)->click(); },
        [&](Dialog& dialog) {
            // On the worker, at the moment each event is sent.
            QObject::connect(
                &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
                [&](int event, const QString*) {
                    if (event == 1)
                        startedNs = clock.nsecsElapsed();
                    else if (event == 4)
                        finishedNs = clock.nsecsElapsed();
                },
                Qt::DirectConnection);
            // Queued behind the dialog's own handling of the same event, which shows the message.
            QObject::connect(
                &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
                [&, d = &dialog](int event, const QString*) {
                    if (event == 4) {
                        paintedAfter = display->PaintedFrameCount();
                        d->accept();
                    }
                },
                Qt::QueuedConnection);
            dialog.template findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
            paintedBefore = display->PaintedFrameCount();
            clock.start();
            dialog.template findChild<QPushButton*>(jobButton)->click();
        });
    if (!shown || boxes.texts.size() != 1 || boxes.texts.first() != expected) {
        std::fprintf(stderr, "window-maintenance-bench: the dialog said \"%s\"\n",
                     qPrintable(boxes.texts.join(" | ")));
        std::exit(1);
    }
    return {(finishedNs - startedNs) / 1e6, paintedAfter - paintedBefore};
}

void Report(const char* what, const std::vector<DialogRun>& dialog,
            const std::vector<double>& direct, const std::vector<double>& cli) {
    std::vector<double> job;
    double fps = 0;
    for (const DialogRun& run : dialog) {
        job.push_back(run.jobMs);
        fps += run.jobMs > 0 ? run.painted * 1000.0 / run.jobMs : 0;
    }
    std::printf("  %-14s direct %7.1f ms | viewlane-cli %7.1f ms | window dialog %7.1f ms (min "
                "%7.1f) | ratio to direct %.2f, to viewlane-cli %.2f | display %.1f fps\n",
                what, Median(direct), Median(cli), Median(job),
                *std::min_element(job.begin(), job.end()), Median(job) / Median(direct),
                Median(job) / Median(cli), fps / dialog.size());
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QTemporaryDir dir;
    SimulatorProcess camsim;
    const char* address = "127.0.10.2";
    if (!camsim.startCamsim({"--address", address})) {
        std::fprintf(stderr, "window-maintenance-bench: %s\n", qPrintable(camsim.errorString()));
        return 1;
    }
    QByteArray table;
    for (int k = 0; k < kLutEntries; ++k)
        table += QByteArray::number(kLutEntries - 1 - k) + "\n";
    const QString lutFile = dir.filePath("lut.csv");
    QFile file(lutFile);
    if (!file.open(QIODevice::WriteOnly) || file.write(table) != table.size())
        return 1;
    file.close();
    const QString settingsFile = dir.filePath("settings.txt");

    // The reference: the jobs over a connection of their own, no window.
    std::vector<double> lutDirect, saveDirect, loadDirect;
    {
        CKorvatinCamera camera;
        camera.Connect(LoopbackDevice(address), nullptr);
        DirectHost direct(camera);
        for (int round = 0; round < kRounds; ++round) {
            lutDirect.push_back(
                TimeMs(kBench, [&] { return CLutProgramJob(&direct, &camera).Run(lutFile); }));
            saveDirect.push_back(TimeMs(
                kBench, [&] { return DeviceSettingsJob(&direct, &camera).Save(settingsFile); }));
            loadDirect.push_back(TimeMs(
                kBench, [&] { return DeviceSettingsJob(&direct, &camera).Load(settingsFile); }));
        }
        camera.Disconnect();
    }
    std::vector<double> lutCli, saveCli, loadCli;
    for (int round = 0; round < kRounds; ++round) {
        lutCli.push_back(CliMs({"program-lut", address, lutFile}));
        saveCli.push_back(CliMs({"save-settings", address, settingsFile}));
        loadCli.push_back(CliMs({"load-settings", address, settingsFile}));
    }

    // The window, connected and streaming, its display painting at the camera's rate.
    const QString settings = dir.filePath("settings.ini");
    QFile ini(settings);
    if (!ini.open(QIODevice::WriteOnly))
        return 1;
    ini.write("[host]\ndiscoveryTimeout=300\n");
    ini.close();
    auto window = std::make_unique<MainWindow>(nullptr, settings);
    window->resize(1072, 732);
    auto* table_ = window->findChild<QTableWidget*>("tableWidgetDevices");
    auto* display = window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
    if (!QTest::qWaitForWindowExposed(window.get()) ||
        !QTest::qWaitFor([&] { return table_->rowCount() == 1; }, 20000)) {
        std::fprintf(stderr, "window-maintenance-bench: the camera was not listed\n");
        return 1;
    }
    const QRect cell = table_->visualRect(table_->model()->index(0, 1));
    QTest::mouseClick(table_->viewport(), Qt::LeftButton, Qt::NoModifier, cell.center());
    if (!QTest::qWaitFor([&] { return window->IsConnected() && display->PaintedFrameCount() > 10; },
                         20000)) {
        std::fprintf(stderr, "window-maintenance-bench: the window did not stream\n");
        return 1;
    }
    std::vector<DialogRun> lutDialog, saveDialog, loadDialog;
    for (int round = 0; round < kRounds; ++round) {
        lutDialog.push_back(RunFromWindow<CDialogProgramLUT>(*window, "pushButton_program_LUT",
                                                             "pushButton_program", lutFile,
                                                             "Program is completed successfully"));
        saveDialog.push_back(RunFromWindow<CDialogSaveDeviceSettings>(
            *window, "pushButton_saveDeviceSettings", "pushButton_save_settings", settingsFile,
            "Device setting was successfully saved to file: " + settingsFile));
        loadDialog.push_back(RunFromWindow<CDialogLoadDeviceSettings>(
            *window, "pushButton_loadDeviceSettings", "pushButton_load_settings", settingsFile,
            "Device setting was successfully loaded from file: " + settingsFile));
    }
    std::printf("Maintenance jobs from the streaming window (1072 x 732, %u x %u Mono8 at the "
                "camera's rate) against direct writes, korvatin-camsim over loopback, %d rounds\n",
                window->Session()->MaxWidth(), window->Session()->MaxHeight(), kRounds);
    std::printf("  LUT of %d entries (%d writes)\n", kLutEntries, 2 * kLutEntries);
    Report("LUT program", lutDialog, lutDirect, lutCli);
    Report("save settings", saveDialog, saveDirect, saveCli);
    Report("load settings", loadDialog, loadDirect, loadCli);
    return 0;
}
