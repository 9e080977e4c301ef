// The camera lost in the middle of each maintenance job run from the window: the job reports
// the loss, nothing crashes, the window keeps the session until the dialog is closed and then
// shows the disconnect.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <dialogprogressthreadevent.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QElapsedTimer>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <csignal>
#include <functional>
#include <memory>

#include <signal.h>

using namespace e2e;

namespace {

constexpr int kJobWaitMs = 120000;

bool WriteAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// What one job run showed.
struct JobRun {
    bool started = false;               // the dialog opened and the job ran to its end
    bool killed = false;                // the camera was killed from the worker
    bool connectedWhenJobEnded = false; // the window still held the session then
};

} // namespace

class TestCameraLoss : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim, const QString& address) {
        if (!sim.startCamsim({"--address", address, "--width", "256", "--height", "64"}))
            return nullptr;
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

    // Opens the dialog of `openButton`, fills in `fileName`, clicks `jobButton` and, on the
    // worker, at the job's `killAt`-th progress event (counted from 1; 0: never), kills the
    // camera before the job goes on: the job's next camera access meets a camera that is gone.
    // Waits for the job's end and closes the dialog.
    static JobRun RunJob(MainWindow& window, SimulatorProcess& sim, const char* openButton,
                         const char* jobButton, const QString& fileName, int killAt) {
        JobRun run;
        const qint64 pid = sim.processId();
        const bool shown = uitest::WithModal<CDialogProgressThreadEvent>(
            &window, [&] { window.findChild<QPushButton*>(openButton)->click(); },
            [&](CDialogProgressThreadEvent& dialog) {
                std::atomic<int> progress{0};
                std::atomic<bool> killed{false};
                // Direct: on the worker, which goes on only after the camera is gone.
                QObject::connect(
                    &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
                    [&](int event, const QString*) {
                        if (event == 2 && ++progress == killAt && pid > 0) {
                            ::kill(pid_t(pid), SIGKILL);
                            killed = true;
                        }
                    },
                    Qt::DirectConnection);
                bool finished = false;
                QObject::connect(
                    &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
                    [&](int event, const QString*) { finished = finished || event == 4; },
                    Qt::QueuedConnection);
                dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
                dialog.findChild<QPushButton*>(jobButton)->click();
                run.started = uitest::WaitFor(
                    [&] {
                        return finished && !dialog.IsBusy() &&
                               QApplication::activeModalWidget() == &dialog;
                    },
                    kJobWaitMs);
                run.killed = killed;
                run.connectedWhenJobEnded = window.IsConnected();
                dialog.reject();
            });
        run.started = run.started && shown;
        return run;
    }

    // After the dialog closed: the window lets the camera go and says so.
    static void VerifyDisconnectShown(MainWindow& window, const MessageBoxWatcher& boxes) {
        QTRY_VERIFY_WITH_TIMEOUT(!window.IsConnected(), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(boxes.texts.contains("Device is disconnected!"), 20000);
        QCOMPARE(boxes.texts.last(), QString("Device is disconnected!"));
    }

    static bool Shows(const QStringList& texts, const QString& start, const QString& part = {}) {
        for (const QString& text : texts)
            if (text.startsWith(start) && text.contains(part))
                return true;
        return false;
    }

    // Runs the job, killing the camera at its `killAt`-th progress event; the job reports the
    // loss with a message that begins with `start` (and holds `part`), the window keeps the
    // session until the dialog is closed, then shows the disconnect.
    static void VerifyJobReportsTheLoss(MainWindow& window, SimulatorProcess& sim,
                                        const char* openButton, const char* jobButton,
                                        const QString& fileName, int killAt, const QString& start,
                                        const QString& part = {}) {
        MessageBoxWatcher boxes;
        const JobRun run = RunJob(window, sim, openButton, jobButton, fileName, killAt);
        QVERIFY(run.started);
        QVERIFY(run.killed);
        QVERIFY(run.connectedWhenJobEnded);
        QVERIFY2(Shows(boxes.texts, start, part), qPrintable(boxes.texts.join(" | ")));
        VerifyDisconnectShown(window, boxes);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void aCameraThatVanishesWhileStreamingIsShownWithinTheBound() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.5");
        QVERIFY(window);
        // Streaming: frames are received before the camera goes.
        QVERIFY(QTest::qWaitFor([&] { return window->Session()->grabbedFrameCount > 10; }, 20000));
        MessageBoxWatcher boxes;
        QElapsedTimer sinceKill;
        sinceKill.start();
        sim.kill();
        QTRY_VERIFY_WITH_TIMEOUT(boxes.texts.contains("Device is disconnected!"), 20000);
        // The camera answered until it was killed; the loss is to be known within 3 s of that.
        // The bound leaves room for a busy machine; the figure is printed.
        const qint64 ms = sinceKill.elapsed();
        qInfo("\"Device is disconnected!\" shown %lld ms after the camera was killed", ms);
        QVERIFY2(ms < 4500, qPrintable(QString::number(ms)));
        QVERIFY(!window->IsConnected());
        QCOMPARE(boxes.texts, QStringList{"Device is disconnected!"});
    }

    void aCameraLostWhileTheSavedFrameIsReportedLeavesNothingBehind() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.6");
        QVERIFY(window);
        QVERIFY(QTest::qWaitFor([&] { return window->Session()->grabbedFrameCount > 10; }, 20000));
        const QString path = m_dir.filePath("lost-while-saved.raw");
        // One handler answers every modal window in turn: the file dialog with the path; the
        // "saved" message only once the camera, killed while it is open, has been let go (the
        // window's "Device is disconnected!" opens over it and is answered first).
        QStringList texts;
        bool killed = false;
        bool answering = false; // AcceptFile waits on events, during which the timer fires again
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            if (answering)
                return;
            QWidget* modal = QApplication::activeModalWidget();
            if (auto* files = qobject_cast<QFileDialog*>(modal)) {
                // As a user takes a moment to choose, the display (slowed down meanwhile) leaves
                // frames waiting; the save takes one, so the file is chosen once two are.
                if (window->Session()->Pipeline().readyConvertedFrames.size() < 2)
                    return;
                answering = true;
                if (!uitest::AcceptFile(*files, path, QString()))
                    files->reject();
                answering = false;
                return;
            }
            auto* box = qobject_cast<QMessageBox*>(modal);
            if (!box || box->property("answered").toBool())
                return;
            if (box->text().startsWith("Frame was saved to: ") && !killed) {
                killed = true;
                sim.kill();
                return;
            }
            if (box->text().startsWith("Frame was saved to: ") && window->IsConnected())
                return;
            box->setProperty("answered", true);
            texts.append(box->text());
            box->accept();
        });
        answer.start(10);
        window->findChild<QPushButton*>("pushButton_file_save")->click();
        answer.stop();
        QVERIFY2(killed, qPrintable(texts.join(" | ")));
        QCOMPARE(texts, (QStringList{"Device is disconnected!", "Frame was saved to: " + path}));
        QVERIFY(!window->IsConnected());

        // The next connection streams into holders of its own.
        SimulatorProcess again;
        QVERIFY(again.startCamsim({"--address", "127.0.19.7", "--width", "256", "--height", "64"}));
        QVERIFY(
            QTest::qWaitFor([&] { return RowOf(*window, "127.0.19.7") >= 0; }, kDiscoveryWaitMs));
        ClickRow(*window, RowOf(*window, "127.0.19.7"));
        QVERIFY(QTest::qWaitFor([&] { return window->IsConnected(); }, 10000));
        auto* display = window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        const uint32_t painted = display->PaintedFrameCount();
        QVERIFY(QTest::qWaitFor([&] { return display->PaintedFrameCount() > painted + 5; }, 20000));
    }

    void programLut() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.1");
        QVERIFY(window);
        QByteArray table;
        for (int k = 0; k < 1024; ++k)
            table += QByteArray::number(k) + "\n";
        const QString path = m_dir.filePath("lut.csv");
        QVERIFY(WriteAll(path, table));
        VerifyJobReportsTheLoss(*window, sim, "pushButton_program_LUT", "pushButton_program", path,
                                10, "Fail to set LUT. Entry: 10. Error: ");
    }

    void saveDeviceSettings() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.2");
        QVERIFY(window);
        const QString path = m_dir.filePath("lost-save.txt");
        VerifyJobReportsTheLoss(*window, sim, "pushButton_saveDeviceSettings",
                                "pushButton_save_settings", path, 3,
                                "Saving device settings failed: ");
    }

    void loadDeviceSettings() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.3");
        QVERIFY(window);
        const QString path = m_dir.filePath("lost-load.txt");
        {
            // A file of this camera's own settings first, saved while it answers.
            MessageBoxWatcher boxes;
            const JobRun save = RunJob(*window, sim, "pushButton_saveDeviceSettings",
                                       "pushButton_save_settings", path, 0);
            QVERIFY(save.started);
            QCOMPARE(boxes.texts,
                     QStringList{"Device setting was successfully saved to file: " + path});
        }
        VerifyJobReportsTheLoss(
            *window, sim, "pushButton_loadDeviceSettings", "pushButton_load_settings", path, 3,
            "Device setting was successfully loaded from file: " + path, "The first error:");
    }

    void programXml() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.19.4");
        QVERIFY(window);
        // The simulator's own description, made long by a comment so that the write takes
        // many progress steps.
        QFile own(qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml");
        QVERIFY(own.open(QIODevice::ReadOnly));
        QByteArray xml = own.readAll();
        xml.append("<!-- " + QByteArray(4 << 20, 'x') + " -->\n");
        const QString path = m_dir.filePath("long.xml");
        QVERIFY(WriteAll(path, xml));
        VerifyJobReportsTheLoss(*window, sim, "pushButton_programXML", "pushButton_program", path,
                                3, "XML programming failed: ");
    }
};

QTEST_MAIN(TestCameraLoss)
#include "tst_cameraloss.moc"
