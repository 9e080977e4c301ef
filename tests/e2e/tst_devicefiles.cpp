// Firmware upgrade and XML programming from the running window, as a user does them: program a
// description with one more feature, reset the camera from the feature tree, connect again and
// find the feature; upgrade the firmware, reset, and read the new version.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <devicediscoverythread.h>
#include <dialogfirmwareupgrade.h>
#include <dialogprogramxml.h>
#include <korvatincameraviewlane.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QFile>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

using namespace e2e;

namespace {

constexpr int kJobWaitMs = 60000;

// Fills the dialog's file name, clicks `button` and waits until the job has ended and its last
// message has been answered.
bool RunJob(CDialogProgressThreadEvent& dialog, const QString& button, const QString& fileName) {
    bool finished = false;
    QObject::connect(
        &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
        [&](int event, const QString*) { finished = finished || event == 4; },
        Qt::QueuedConnection);
    dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
    dialog.findChild<QPushButton*>(button)->click();
    return uitest::WaitFor(
        [&] {
            return finished && !dialog.IsBusy() && QApplication::activeModalWidget() == &dialog;
        },
        kJobWaitMs);
}

bool WriteAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

class TestDeviceFiles : public QObject {
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

    static bool Connect(MainWindow& window) {
        return QTest::qWaitFor([&] { return Table(window)->rowCount() == 1; }, kDiscoveryWaitMs) &&
               ConnectFirstRow(window);
    }

    // Clicks "Device Reset" in the feature tree, waits until the window has let the camera go
    // and the camera is back, and connects again.
    static bool ResetFromTheTreeAndReconnect(MainWindow& window, SimulatorProcess& sim) {
        QWidget* editor = EditorOf(window, "Device Reset");
        auto* button = editor ? editor->findChild<QPushButton*>() : nullptr;
        if (!button)
            return false;
        const int back = sim.output().count("back on");
        button->click();
        if (!QTest::qWaitFor([&] { return !window.IsConnected(); }, 20000))
            return false;
        if (!QTest::qWaitFor([&] { return sim.output().count("back on") > back; }, 20000))
            return false;
        return Connect(window);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void programmedDescriptionShowsItsFeatureAfterAReset() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.17.1");
        QVERIFY(window);
        QVERIFY(!EditorOf(*window, "Programmed Only"));

        QFile own(qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml");
        QVERIFY(own.open(QIODevice::ReadOnly));
        QByteArray xml = own.readAll();
        const int firstFeature = xml.indexOf("<pFeature>", xml.indexOf("<Category Name=\"Root\""));
        QVERIFY(firstFeature > 0);
        xml.insert(firstFeature, "<pFeature>ProgrammedOnly</pFeature>\n    ");
        xml.insert(xml.lastIndexOf("</RegisterDescription>"),
                   "  <Integer Name=\"ProgrammedOnly\">\n    <DisplayName>Programmed "
                   "Only</DisplayName>\n    <Value>7</Value>\n  </Integer>\n");
        const QString path = m_dir.filePath("programmed.xml");
        QVERIFY(WriteAll(path, xml));

        MessageBoxWatcher boxes;
        bool discoveryPaused = false;
        QVERIFY(uitest::WithModal<CDialogProgramXML>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_programXML")->click(); },
            [&](CDialogProgramXML& dialog) {
                discoveryPaused = !window->DiscoveryThread()->IsEnabled();
                QVERIFY(RunJob(dialog, "pushButton_program", path));
                dialog.reject();
            }));
        QVERIFY(discoveryPaused);
        QVERIFY(window->DiscoveryThread()->IsEnabled());
        // The final box may open over the verification message, and is then answered first.
        QStringList texts = boxes.texts;
        texts.sort();
        QCOMPARE(texts.size(), 2);
        QVERIFY2(texts.first().startsWith(QString("Verifying the %1 bytes").arg(xml.size())),
                 qPrintable(texts.join(" | ")));
        QVERIFY2(texts.last().startsWith("XML programming finished: "),
                 qPrintable(texts.join(" | ")));

        QVERIFY(ResetFromTheTreeAndReconnect(*window, sim));
        QVERIFY(EditorOf(*window, "Programmed Only"));
        QCOMPARE(window->Session()->GetInt32("ProgrammedOnly"), 7);
    }

    void upgradedFirmwareRunsAfterAReset() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.17.2");
        QVERIFY(window);
        QByteArray image("KVFW8.1.2");
        image.append(36 - image.size(), '\0');
        image.append(60000, '\x42');
        const QString path = m_dir.filePath("v812.bin");
        QVERIFY(WriteAll(path, image));

        MessageBoxWatcher boxes;
        QVERIFY(uitest::WithModal<CDialogFirmwareUpgrade>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_firmware_upgrade")->click(); },
            [&](CDialogFirmwareUpgrade& dialog) {
                QVERIFY(RunJob(dialog, "pushButton_upgrade", path));
                dialog.reject();
            }));
        QStringList texts = boxes.texts;
        texts.sort();
        QCOMPARE(texts.size(), 2);
        QVERIFY2(texts.first().startsWith("Firmware upgrade finished: 60036 bytes"),
                 qPrintable(texts.join(" | ")));
        QVERIFY2(texts.last().startsWith("Verifying the 60036 bytes"),
                 qPrintable(texts.join(" | ")));

        QVERIFY(ResetFromTheTreeAndReconnect(*window, sim));
        char version[64] = {};
        window->Session()->GetString("DeviceFirmwareVersion", version, sizeof version);
        QCOMPARE(QString(version), QString("8.1.2"));
    }

    void cameraLostDuringAnUpgradeIsReportedByTheJobThenByTheWindow() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.17.3");
        QVERIFY(window);
        QByteArray image(16 << 20, '\0');
        for (int i = 0; i < image.size(); ++i)
            image[i] = char(i * 7);
        const QString path = m_dir.filePath("large.bin");
        QVERIFY(WriteAll(path, image));

        MessageBoxWatcher boxes;
        bool connectedWhenJobEnded = false;
        QVERIFY(uitest::WithModal<CDialogFirmwareUpgrade>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_firmware_upgrade")->click(); },
            [&](CDialogFirmwareUpgrade& dialog) {
                // The camera goes once a tenth of the image is written; the rest takes far
                // longer than the kill.
                bool killed = false;
                QObject::connect(
                    &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
                    [&](int event, const QString*) {
                        if (event == 2 && !killed &&
                            dialog.findChild<QProgressBar*>("progressBar")->value() >= 5) {
                            killed = true;
                            sim.kill();
                        }
                    },
                    Qt::QueuedConnection);
                QVERIFY(RunJob(dialog, "pushButton_upgrade", path));
                QVERIFY(killed);
                // The window keeps the session until the dialog is closed: the job used it.
                connectedWhenJobEnded = window->IsConnected();
                dialog.reject();
            }));
        QVERIFY(connectedWhenJobEnded);
        QTRY_VERIFY_WITH_TIMEOUT(!window->IsConnected(), 20000);
        QVERIFY2(boxes.texts.size() >= 2, qPrintable(boxes.texts.join(" | ")));
        QVERIFY2(boxes.texts.contains("Device is disconnected!"),
                 qPrintable(boxes.texts.join(" | ")));
        bool failureShown = false;
        for (const QString& text : boxes.texts)
            failureShown = failureShown ||
                           text.startsWith("Firmware upgrade failed: the camera stopped answering");
        QVERIFY2(failureShown, qPrintable(boxes.texts.join(" | ")));
    }
};

QTEST_MAIN(TestDeviceFiles)
#include "tst_devicefiles.moc"
