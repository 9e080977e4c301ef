// The main window's network tools against simulated cameras: force IP moves a camera and the
// table refills, force reboot reads what the user typed as a MAC or a serial number and
// restarts the camera, IP configuration writes a persistent address the camera comes back on.
#include "windowdriver.h"

#include "uitesthelpers.h"

#include <aravisreference.h>
#include <dialogforceip.h>
#include <dialogforcereboot.h>
#include <dialogipconfiguration.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace e2e;

namespace {

QPushButton* BoxButton(QWidget& dialog, QDialogButtonBox::StandardButton which) {
    return dialog.findChild<QDialogButtonBox*>("buttonBox")->button(which);
}

void FillForceIp(CDialogForceIP& dialog, const QString& macOrSerial, const QString& ip) {
    dialog.findChild<QComboBox*>("comboBoxMacSn")->setEditText(macOrSerial);
    dialog.findChild<QLineEdit*>("lineEdit_ip")->setText(ip);
    dialog.findChild<QLineEdit*>("lineEdit_subnetMask")->setText("255.0.0.0");
    dialog.findChild<QLineEdit*>("lineEdit_defaultGateway")->setText("0.0.0.0");
}

// Answers each force-reboot dialog that opens with the next text of `answers` and OK; a null
// text cancels. Counts the dialogs it saw.
class RebootAnswers : public QObject {
public:
    explicit RebootAnswers(const QStringList& answers) : m_answers(answers) {
        connect(&m_timer, &QTimer::timeout, this, [this] {
            auto* dialog = qobject_cast<CDialogForceReboot*>(QApplication::activeModalWidget());
            if (!dialog || dialog->property(kAnswered).toBool())
                return;
            dialog->setProperty(kAnswered, true);
            ++shown;
            const QString answer = m_answers.isEmpty() ? QString() : m_answers.takeFirst();
            if (answer.isNull()) {
                BoxButton(*dialog, QDialogButtonBox::Cancel)->click();
                return;
            }
            dialog->findChild<QComboBox*>("comboBoxMacSn")->setEditText(answer);
            BoxButton(*dialog, QDialogButtonBox::Ok)->click();
        });
        m_timer.start(5);
    }
    int shown = 0;

private:
    static constexpr const char* kAnswered = "rebootAnswered";
    QStringList m_answers;
    QTimer m_timer;
};

} // namespace

class TestNetworkTools : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    std::unique_ptr<MainWindow> OpenWindow(int rows) {
        return e2e::OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), rows);
    }

    std::unique_ptr<MainWindow> ConnectedWindow(SimulatorProcess& sim, const QString& address) {
        if (!sim.startCamsim({"--address", address, "--serial", "400123", "--mac",
                              "0a:3c:51:06:1a:fb", "--width", "256", "--height", "64"}))
            return nullptr;
        auto window = OpenWindow(1);
        if (!window || !ConnectFirstRow(*window))
            return nullptr;
        return window;
    }

    // True once the table shows exactly one camera, at `address`.
    static bool TableShowsOnly(MainWindow& window, const QString& address) {
        return QTest::qWaitFor(
            [&] { return Table(window)->rowCount() == 1 && RowOf(window, address) == 0; },
            kDiscoveryWaitMs);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "the window tests need their own network namespace");
    }

    void forceIpMovesTheCameraAndTheTableRefills() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.12.1", "--serial", "400123"}));
        auto window = OpenWindow(1);
        QVERIFY(window);
        QCOMPARE(RowOf(*window, "127.0.12.1"), 0);
        MessageBoxWatcher messages;
        QStringList offered;
        const bool shown = uitest::WithModal<CDialogForceIP>(
            window.get(), [&] { window->findChild<QPushButton*>("pushButton_force_ip")->click(); },
            [&](CDialogForceIP& dialog) {
                auto* combo = dialog.findChild<QComboBox*>("comboBoxMacSn");
                for (int i = 0; i < combo->count(); ++i)
                    offered << combo->itemText(i);
                FillForceIp(dialog, "400123", "127.0.12.77");
                BoxButton(dialog, QDialogButtonBox::Apply)->click();
            });
        QVERIFY(shown);
        QCOMPARE(offered, QStringList{"400123"});
        QVERIFY2(messages.texts.isEmpty(), qPrintable(messages.texts.join('|')));
        QVERIFY(TableShowsOnly(*window, "127.0.12.77"));
    }

    void forceIpToAnUnknownDeviceShowsWhy() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        MessageBoxWatcher messages;
        QVERIFY(uitest::WithModal<CDialogForceIP>(
            window.get(), [&] { window->findChild<QPushButton*>("pushButton_force_ip")->click(); },
            [&](CDialogForceIP& dialog) {
                FillForceIp(dialog, "02-00-00-00-00-99", "127.0.12.78");
                BoxButton(dialog, QDialogButtonBox::Apply)->click();
            }));
        QCOMPARE(messages.texts.size(), 1);
        QVERIFY2(messages.texts.first().startsWith("Force IP failed: "),
                 qPrintable(messages.texts.first()));
        QVERIFY(messages.texts.first().size() > QString("Force IP failed: ").size());
    }

    void cancellingForceIpLeavesTheTableAsItWas() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim({"--address", "127.0.12.2"}));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher messages;
        QVERIFY(uitest::WithModal<CDialogForceIP>(
            window.get(), [&] { window->findChild<QPushButton*>("pushButton_force_ip")->click(); },
            [&](CDialogForceIP& dialog) {
                FillForceIp(dialog, "400123", "127.0.12.79");
                BoxButton(dialog, QDialogButtonBox::Close)->click();
            }));
        QVERIFY(messages.texts.isEmpty());
        QCOMPARE(Table(*window)->rowCount(), 1);
        QCOMPARE(RowOf(*window, "127.0.12.2"), 0);
        QVERIFY(!sim.output().contains("127.0.12.79"));
    }

    void forceRebootReadsTheTextAsMacOrSerialAndReopensOnRefusal() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim(
            {"--address", "127.0.12.3", "--serial", "400123", "--mac", "0a:3c:51:06:1a:fb"}));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher messages;
        {
            RebootAnswers answers({"0", "abc", "0a3c51061afb", "", "400123"});
            window->findChild<QPushButton*>("pushButton_force_reboot")->click();
            QCOMPARE(answers.shown, 5);
        }
        QCOMPARE(messages.texts, (QStringList{"The serial number is 0.", "The serial number is 0.",
                                              "The serial number is 0.",
                                              "The MAC address or serial number is empty.",
                                              "Force reboot command has been sent."}));
        QTRY_COMPARE_WITH_TIMEOUT(sim.output().count("back on 127.0.12.3"), 1, 10000);

        RebootAnswers byMac({"0a-3c-51-06-1a-fb"});
        window->findChild<QPushButton*>("pushButton_force_reboot")->click();
        QCOMPARE(messages.texts.size(), 6);
        QCOMPARE(byMac.shown, 1);
        QCOMPARE(messages.texts.last(), QString("Force reboot command has been sent."));
        QTRY_COMPARE_WITH_TIMEOUT(sim.output().count("back on 127.0.12.3"), 2, 10000);
    }

    void forceRebootOfTheConnectedCameraResetsItAndShowsItGone() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim(
            {"--address", "127.0.12.7", "--serial", "400127", "--mac", "0a:3c:51:06:1a:f7"}));
        auto window = OpenWindow(1);
        QVERIFY(window);
        ClickRow(*window, 0);
        QVERIFY(QTest::qWaitFor([&] { return window->IsConnected(); }, 10000));
        MessageBoxWatcher messages;
        {
            RebootAnswers answers({"400127"});
            window->findChild<QPushButton*>("pushButton_force_reboot")->click();
            QCOMPARE(answers.shown, 1);
        }
        QCOMPARE(messages.texts, QStringList{"Force reboot command has been sent."});
        QVERIFY(sim.output().contains("camera 400127 resetting"));
        // The window is as after a lost connection: disconnected, the row gone until discovery
        // finds the camera again.
        QVERIFY(!window->IsConnected());
        QVERIFY(EditorOf(*window, "Width") == nullptr);
        QTRY_COMPARE_WITH_TIMEOUT(sim.output().count("back on 127.0.12.7"), 1, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(RowOf(*window, "127.0.12.7"), 0, kDiscoveryWaitMs);

        // Connected again, the MAC names it as well.
        ClickRow(*window, 0);
        QVERIFY(QTest::qWaitFor([&] { return window->IsConnected(); }, 10000));
        RebootAnswers byMac({"0A-3C-51-06-1A-F7"});
        window->findChild<QPushButton*>("pushButton_force_reboot")->click();
        QCOMPARE(messages.texts.size(), 2);
        QCOMPARE(messages.texts.last(), QString("Force reboot command has been sent."));
        QVERIFY(!window->IsConnected());
        QTRY_COMPARE_WITH_TIMEOUT(sim.output().count("back on 127.0.12.7"), 2, 10000);
    }

    void forceRebootOfACameraAnotherHostControlsSaysSo() {
        SimulatorProcess sim;
        QVERIFY(sim.startCamsim(
            {"--address", "127.0.12.8", "--serial", "400128", "--mac", "0a:3c:51:06:1a:f8"}));
        AravisReference otherHost;
        QString error;
        QVERIFY2(otherHost.open("127.0.12.8", &error), qPrintable(error));
        auto window = OpenWindow(1);
        QVERIFY(window);
        MessageBoxWatcher messages;
        RebootAnswers answers({"400128", QString()});
        window->findChild<QPushButton*>("pushButton_force_reboot")->click();
        QCOMPARE(answers.shown, 2);
        QCOMPARE(messages.texts,
                 QStringList{"Force reboot failed: The device 0a-3c-51-06-1a-f8 (serial number "
                             "400128, IP address 127.0.12.8) is controlled by another host; it "
                             "was not reset."});
        QVERIFY(!sim.output().contains("resetting"));
    }

    void forceRebootFailureShowsWhyAndReopensUntilCancelled() {
        auto window = OpenWindow(0);
        QVERIFY(window);
        MessageBoxWatcher messages;
        RebootAnswers answers({"02-00-00-00-00-98", QString()});
        window->findChild<QPushButton*>("pushButton_force_reboot")->click();
        QCOMPARE(answers.shown, 2);
        QCOMPARE(messages.texts.size(), 1);
        QVERIFY2(messages.texts.first().startsWith("Force reboot failed: "),
                 qPrintable(messages.texts.first()));
    }

    void ipConfigurationShowsTheCameraAndBringsItBackOnItsPersistentAddress() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.12.4");
        QVERIFY(window);
        MessageBoxWatcher messages;
        QString shownIp;
        QString shownSerial;
        QVERIFY(uitest::WithModal<CDialogIpConfiguration>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_ip_configuration")->click(); },
            [&](CDialogIpConfiguration& dialog) {
                shownIp = dialog.findChild<QLabel*>("label_currentIp")->text();
                shownSerial = dialog.findChild<QLabel*>("label_serialNumber")->text();
                dialog.findChild<QLineEdit*>("lineEdit_ip")->setText("127.0.12.40");
                dialog.findChild<QLineEdit*>("lineEdit_subnetMask")->setText("255.0.0.0");
                dialog.findChild<QLineEdit*>("lineEdit_defaultGateway")->setText("0.0.0.0");
                dialog.findChild<QCheckBox*>("checkBox_usePersistentIP")->setChecked(true);
                dialog.findChild<QCheckBox*>("checkBox_useDHCP")->setChecked(false);
                dialog.findChild<QPushButton*>("pushButton_writeConfig")->click();
            }));
        QCOMPARE(shownIp, QString("127.0.12.4"));
        QCOMPARE(shownSerial, QString("400123"));
        QVERIFY2(messages.texts.isEmpty(), qPrintable(messages.texts.join('|')));
        QVERIFY(!window->IsConnected());
        QVERIFY(TableShowsOnly(*window, "127.0.12.40"));

        // Connected again, the dialog shows the stored configuration.
        ClickRow(*window, 0);
        QTRY_VERIFY_WITH_TIMEOUT(window->IsConnected(), 10000);
        QString persistentIp;
        bool persistentChecked = false;
        QVERIFY(uitest::WithModal<CDialogIpConfiguration>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_ip_configuration")->click(); },
            [&](CDialogIpConfiguration& dialog) {
                persistentIp = dialog.PersistentIp();
                persistentChecked = dialog.UsePersistentIP();
                dialog.reject();
            }));
        QCOMPARE(persistentIp, QString("127.0.12.40"));
        QVERIFY(persistentChecked);
        QVERIFY(window->IsConnected());
    }

    void ipConfigurationTemporaryAddressMovesTheCamera() {
        SimulatorProcess sim;
        auto window = ConnectedWindow(sim, "127.0.12.5");
        QVERIFY(window);
        MessageBoxWatcher messages;
        QString nestedMac;
        QVERIFY(uitest::WithModal<CDialogIpConfiguration>(
            window.get(),
            [&] { window->findChild<QPushButton*>("pushButton_ip_configuration")->click(); },
            [&](CDialogIpConfiguration& dialog) {
                uitest::WithModal<CDialogForceIP>(
                    &dialog,
                    [&] { dialog.findChild<QPushButton*>("pushButton_forceTempIp")->click(); },
                    [&](CDialogForceIP& forceIp) {
                        nestedMac = forceIp.MacOrSerial();
                        FillForceIp(forceIp, forceIp.MacOrSerial(), "127.0.12.50");
                        BoxButton(forceIp, QDialogButtonBox::Apply)->click();
                    });
            }));
        QCOMPARE(nestedMac, QString("0a-3c-51-06-1a-fb"));
        QVERIFY2(messages.texts.isEmpty(), qPrintable(messages.texts.join('|')));
        QVERIFY(!window->IsConnected());
        QVERIFY(TableShowsOnly(*window, "127.0.12.50"));
    }
};

QTEST_MAIN(TestNetworkTools)
#include "tst_networktools.moc"
