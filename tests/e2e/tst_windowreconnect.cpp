// The live image after the camera went away and the window connected again: after a persistent
// IP configuration, two temporary addresses in a row and a device reset from the feature tree,
// the picture on the screen (read back from the X server, not painted anew for the test) holds
// the camera's colour bars.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <dialogforceip.h>
#include <dialogipconfiguration.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>
#include <memory>

using namespace e2e;

namespace {

constexpr int kSensorWidth = 640;
constexpr int kSensorHeight = 480;

CQwidgetGrabbedFrame* Display(MainWindow& window) {
    return window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
}

// The grey level Mono8 gives each of the simulator's eight bars (black, red, green, blue,
// yellow, cyan, magenta, white), the luma of its colour.
int BarLevel(int bar) {
    static const int kBars[8][3] = {{0, 0, 0},     {255, 0, 0},   {0, 255, 0},   {0, 0, 255},
                                    {255, 255, 0}, {0, 255, 255}, {255, 0, 255}, {255, 255, 255}};
    const int* c = kBars[bar % 8];
    return (299 * c[0] + 587 * c[1] + 114 * c[2] + 500) / 1000;
}

// Waits until the display has painted `frames` more frames, then reads the display's area as the
// X server holds it and checks the middle of each bar of the first repeats against its level.
// Describes the first difference in `error`.
bool ScreenShowsBars(MainWindow& window, QString& error, int frames = 3) {
    CQwidgetGrabbedFrame* display = Display(window);
    const uint32_t painted = display->PaintedFrameCount();
    if (!QTest::qWaitFor([&] { return display->PaintedFrameCount() >= painted + frames; }, 20000)) {
        error = "the display painted no frames";
        return false;
    }
    // The paint reaches the screen with the next composition of the window.
    QCoreApplication::processEvents();
    const int w = display->width();
    const int h = display->height();
    if (w < kSensorWidth / 4 || h < kSensorHeight / 4) {
        error = QString("the display is %1 x %2 pixels").arg(w).arg(h);
        return false;
    }
    const QPoint origin = display->mapTo(&window, QPoint(0, 0));
    const QImage shot =
        window.screen()->grabWindow(window.winId()).toImage().convertToFormat(QImage::Format_RGB32);
    const double scale = double(w) / kSensorWidth;
    for (int sensorX = 4; sensorX < 128; sensorX += 8) {
        const int x = origin.x() + int(sensorX * scale);
        const int y = origin.y() + h / 2;
        const QRgb pixel = shot.pixel(x, y);
        const int expected = BarLevel(sensorX / 8);
        if (std::abs(qRed(pixel) - expected) > 2 || std::abs(qGreen(pixel) - expected) > 2 ||
            std::abs(qBlue(pixel) - expected) > 2) {
            error = QString("at sensor column %1 the screen shows #%2, the bar is grey %3")
                        .arg(sensorX)
                        .arg(pixel & 0xFFFFFF, 6, 16, QChar('0'))
                        .arg(expected);
            return false;
        }
    }
    return true;
}

void FillForceIp(CDialogForceIP& dialog, const QString& ip) {
    dialog.findChild<QLineEdit*>("lineEdit_ip")->setText(ip);
    dialog.findChild<QLineEdit*>("lineEdit_subnetMask")->setText("255.0.0.0");
    dialog.findChild<QLineEdit*>("lineEdit_defaultGateway")->setText("0.0.0.0");
}

} // namespace

class TestWindowReconnect : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim, const QString& address) {
        if (!sim.startCamsim({"--address", address, "--width", QString::number(kSensorWidth),
                              "--height", QString::number(kSensorHeight), "--pattern", "bars"}))
            return nullptr;
        auto window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1);
        if (!window)
            return nullptr;
        // The screen is read back: the whole window on it.
        window->move(0, 0);
        if (!ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

    static bool ReconnectWhenListed(MainWindow& window, const QString& address) {
        if (!QTest::qWaitFor(
                [&] { return Table(window)->rowCount() == 1 && RowOf(window, address) == 0; },
                kDiscoveryWaitMs))
            return false;
        return ConnectFirstRow(window);
    }

    static bool ForceTemporaryIp(MainWindow& window, const QString& ip) {
        return uitest::WithModal<CDialogIpConfiguration>(
            &window,
            [&] { window.findChild<QPushButton*>("pushButton_ip_configuration")->click(); },
            [&](CDialogIpConfiguration& dialog) {
                uitest::WithModal<CDialogForceIP>(
                    &dialog,
                    [&] { dialog.findChild<QPushButton*>("pushButton_forceTempIp")->click(); },
                    [&](CDialogForceIP& forceIp) {
                        FillForceIp(forceIp, ip);
                        forceIp.findChild<QDialogButtonBox*>("buttonBox")
                            ->button(QDialogButtonBox::Apply)
                            ->click();
                    });
            });
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void imageStaysAfterAPlainReconnect() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.31.4");
        QVERIFY(window);
        QString error;
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));
        ClickRow(*window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(!window->IsConnected(), 10000);
        QVERIFY(ConnectFirstRow(*window));
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));
    }

    void imageStaysAfterWriteConfiguration() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.31.1");
        QVERIFY(window);
        QString error;
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));

        MessageBoxWatcher messages;
        QVERIFY(uitest::WithModal<CDialogIpConfiguration>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_ip_configuration")->click(); },
            [&](CDialogIpConfiguration& dialog) {
                dialog.findChild<QLineEdit*>("lineEdit_ip")->setText("127.0.31.10");
                dialog.findChild<QLineEdit*>("lineEdit_subnetMask")->setText("255.0.0.0");
                dialog.findChild<QLineEdit*>("lineEdit_defaultGateway")->setText("0.0.0.0");
                dialog.findChild<QCheckBox*>("checkBox_usePersistentIP")->setChecked(true);
                dialog.findChild<QCheckBox*>("checkBox_useDHCP")->setChecked(false);
                dialog.findChild<QPushButton*>("pushButton_writeConfig")->click();
            }));
        QVERIFY(ReconnectWhenListed(*window, "127.0.31.10"));
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));
        SaveAtBothSizes(*window, "reconnect-after-write-configuration");
        QVERIFY2(messages.texts.isEmpty(), qPrintable(messages.texts.join('|')));
    }

    void imageStaysAfterTwoTemporaryAddresses() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.31.2");
        QVERIFY(window);
        QString error;
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));
        for (const QString ip : {QString("127.0.31.20"), QString("127.0.31.21")}) {
            QVERIFY(ForceTemporaryIp(*window, ip));
            QVERIFY(ReconnectWhenListed(*window, ip));
            QVERIFY2(ScreenShowsBars(*window, error), qPrintable(ip + ": " + error));
        }
    }

    void imageStaysAfterDeviceReset() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.31.3");
        QVERIFY(window);
        QString error;
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));

        MessageBoxWatcher messages;
        QWidget* editor = EditorOf(*window, "Device Reset");
        auto* button = editor ? editor->findChild<QPushButton*>() : nullptr;
        QVERIFY(button);
        const int back = sim.output().count("back on");
        button->click();
        QTRY_VERIFY_WITH_TIMEOUT(!window->IsConnected(), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(sim.output().count("back on") > back, 20000);
        QVERIFY(ReconnectWhenListed(*window, "127.0.31.3"));
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));

        // And across a plain disconnect and reconnect after it.
        ClickRow(*window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(!window->IsConnected(), 10000);
        QVERIFY(ConnectFirstRow(*window));
        QVERIFY2(ScreenShowsBars(*window, error), qPrintable(error));
    }
};

QTEST_MAIN(TestWindowReconnect)
#include "tst_windowreconnect.moc"
