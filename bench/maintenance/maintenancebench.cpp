// Maintenance jobs benchmark: programming a 4,096-entry LUT and saving and loading the
// simulator's whole feature set, once through the dialogs (every write carried to the GUI thread
// and waited for) and once with direct writes as viewlane-cli makes them, in the same run
// against the same korvatin-camsim over loopback.
// Runs under an X server (xvfb.sh) inside a private network namespace (isolated.sh).
#include "directjobs.h"
#include "uitesthelpers.h"

#include <cameranodesetting.h>
#include <devicesettingsjob.h>
#include <dialogloaddevicesettings.h>
#include <dialogprogramlut.h>
#include <dialogsavedevicesettings.h>
#include <loopbackdevice.h>
#include <lutprogramjob.h>
#include <maintenancejobhost.h>
#include <simulatorprocess.h>

#include <korvatin/korvatincamera.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

using benchjobs::DirectHost;
using benchjobs::Median;
using benchjobs::TimeMs;

constexpr const char* kBench = "maintenance-bench";

constexpr int kRounds = 5;
constexpr int kLutEntries = 4096;

// What one dialog run took: from the click to the answered final message, and the job alone,
// from its event 1 to its event 4 as the worker sent them.
struct DialogTimes {
    double clickToMessageMs = 0;
    double jobMs = 0;
};

// Runs the dialog's job on `fileName` from a click on `button` inside the dialog's own modal
// event loop, as the viewer runs it, until the job's final message has been answered. Exits the
// benchmark when the message is not `expected`.
DialogTimes RunDialog(CDialogProgressThreadEvent& dialog, const char* button,
                      const QString& fileName, const QString& expected) {
    uitest::MessageBoxWatcher boxes;
    QElapsedTimer clock;
    std::atomic<qint64> startedNs{0};
    std::atomic<qint64> finishedNs{0};
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
        [&](int event, const QString*) {
            if (event == 4)
                dialog.accept();
        },
        Qt::QueuedConnection);
    QTimer::singleShot(0, &dialog, [&] {
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
        clock.start();
        dialog.findChild<QPushButton*>(button)->click();
    });
    dialog.exec();
    const double total = clock.nsecsElapsed() / 1e6;
    if (boxes.texts.size() != 1 || boxes.texts.first() != expected) {
        std::fprintf(stderr, "maintenance-bench: the dialog said \"%s\"\n",
                     qPrintable(boxes.texts.join(" | ")));
        std::exit(1);
    }
    return {total, (finishedNs - startedNs) / 1e6};
}

void Report(const char* what, const std::vector<DialogTimes>& dialog,
            const std::vector<double>& direct) {
    std::vector<double> job;
    std::vector<double> click;
    for (const DialogTimes& times : dialog) {
        job.push_back(times.jobMs);
        click.push_back(times.clickToMessageMs);
    }
    std::printf("  %-14s direct %8.1f ms (min %8.1f) | dialog job %8.1f ms (min %8.1f), ratio "
                "%.2f | click to message %8.1f ms\n",
                what, Median(direct), *std::min_element(direct.begin(), direct.end()), Median(job),
                *std::min_element(job.begin(), job.end()), Median(job) / Median(direct),
                Median(click));
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QTemporaryDir dir;
    SimulatorProcess camsim;
    const char* address = "127.0.10.1";
    if (!camsim.startCamsim(
            {"--address", address, "--lut-index", "0:4095:1", "--lut-value", "0:4095:1"})) {
        std::fprintf(stderr, "maintenance-bench: %s\n", qPrintable(camsim.errorString()));
        return 1;
    }
    CKorvatinCamera camera;
    camera.Connect(LoopbackDevice(address), nullptr);

    QByteArray table;
    for (int k = 0; k < kLutEntries; ++k)
        table += QByteArray::number(kLutEntries - 1 - k) + "\n";
    const QString lutFile = dir.filePath("lut.csv");
    QFile file(lutFile);
    if (!file.open(QIODevice::WriteOnly) || file.write(table) != table.size())
        return 1;
    file.close();
    const QString settingsFile = dir.filePath("settings.txt");

    std::vector<double> lutDirect, saveDirect, loadDirect;
    std::vector<DialogTimes> lutDialog, saveDialog, loadDialog;
    DirectHost direct(camera);
    for (int round = 0; round < kRounds; ++round) {
        lutDirect.push_back(
            TimeMs(kBench, [&] { return CLutProgramJob(&direct, &camera).Run(lutFile); }));
        {
            CDialogProgramLUT dialog(&camera, nullptr);
            lutDialog.push_back(RunDialog(dialog, "pushButton_program", lutFile,
                                          "Program is completed successfully"));
        }
        saveDirect.push_back(
            TimeMs(kBench, [&] { return DeviceSettingsJob(&direct, &camera).Save(settingsFile); }));
        {
            CDialogSaveDeviceSettings dialog(&camera, nullptr);
            saveDialog.push_back(
                RunDialog(dialog, "pushButton_save_settings", settingsFile,
                          "Device setting was successfully saved to file: " + settingsFile));
        }
        loadDirect.push_back(
            TimeMs(kBench, [&] { return DeviceSettingsJob(&direct, &camera).Load(settingsFile); }));
        {
            CDialogLoadDeviceSettings dialog(&camera, nullptr);
            loadDialog.push_back(
                RunDialog(dialog, "pushButton_load_settings", settingsFile,
                          "Device setting was successfully loaded from file: " + settingsFile));
        }
    }
    int lines = 0;
    QFile saved(settingsFile);
    if (saved.open(QIODevice::ReadOnly))
        lines = saved.readAll().count('\n');
    std::printf("Maintenance jobs against korvatin-camsim over loopback, %d rounds each\n",
                kRounds);
    std::printf("  LUT of %d entries (%d writes); settings file of %d lines\n", kLutEntries,
                2 * kLutEntries, lines);
    Report("LUT program", lutDialog, lutDirect);
    Report("save settings", saveDialog, saveDirect);
    Report("load settings", loadDialog, loadDirect);
    return 0;
}
