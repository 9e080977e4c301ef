// The firmware upgrade and XML programming dialogs on a simulated camera: the events they show,
// the address label and its keys, the debug title marker, Latin-1 file names, Esc while busy.
#include "dialogtesthelpers.h"

#include <dialogfirmwareupgrade.h>
#include <dialogprogramxml.h>

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>

namespace {

constexpr int kJobWaitMs = 60000;

// Every event the dialog received, seen after its own handler ran.
struct SeenEvents {
    QList<QPair<int, QString>> events;
    bool busyAtStart = false;
    int finished = 0;
};

// Connects after the dialog's own handler, so the state each event left can be looked at.
void Watch(CDialogProgressThreadEvent& dialog, SeenEvents& seen,
           const std::function<void(int)>& onEvent = {}) {
    QObject::connect(
        &dialog, &CDialogProgressThreadEvent::threadEvent, &dialog,
        [&seen, &dialog, onEvent](int event, const QString*) {
            // The text belongs to the dialog's handler, which has deleted it by now.
            seen.events.append({event, QString()});
            if (event == 1)
                seen.busyAtStart = dialog.IsBusy();
            if (event == 4)
                ++seen.finished;
            if (onEvent)
                onEvent(event);
        },
        Qt::QueuedConnection);
}

// A firmware image of `size` bytes with a recognisable pattern.
QByteArray Image(int size) {
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 7 + i / 251) & 0xFF);
    return bytes;
}

QByteArray ReadAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString AddressLabel(QWidget& dialog) {
    return dialog.findChild<QLabel*>("writingAddress")->text();
}

} // namespace

class TestFirmwareXmlDialogs : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
    }

    void firmwareDialogShowsItsWidgets() {
        CDialogFirmwareUpgrade dialog(nullptr, nullptr);
        QCOMPARE(dialog.windowTitle(), QString("Firmware Upgrade"));
        QCOMPARE(dialog.findChild<QLabel*>("label")->text(), QString("Firmware Binary:"));
        QCOMPARE(dialog.findChild<QPushButton*>("pushButton_browse")->text(), QString("Browse"));
        QCOMPARE(dialog.findChild<QPushButton*>("pushButton_upgrade")->text(), QString("Upgrade"));
        QVERIFY(dialog.findChild<QLineEdit*>("lineEdit_fileName"));
        QVERIFY(dialog.findChild<QProgressBar*>("progressBar"));
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30800000"));
        QCOMPARE(dialog.minimumSize(), dialog.maximumSize());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        uitest::SaveScreenshot(&dialog, "dialog_firmware_upgrade");
    }

    void xmlDialogShowsItsWidgets() {
        CDialogProgramXML dialog(nullptr, nullptr);
        QCOMPARE(dialog.windowTitle(), QString("Program XML"));
        QCOMPARE(dialog.findChild<QLabel*>("label")->text(), QString("XML file:"));
        QCOMPARE(dialog.findChild<QPushButton*>("pushButton_browse")->text(), QString("Browse"));
        QCOMPARE(dialog.findChild<QPushButton*>("pushButton_program")->text(), QString("Program"));
        QVERIFY(dialog.findChild<QProgressBar*>("progressBar"));
        QCOMPARE(dialog.minimumSize(), dialog.maximumSize());
    }

    void browseOffersTheRightFiles() {
        CDialogFirmwareUpgrade firmware(nullptr, nullptr);
        firmware.show();
        const auto seenFirmware =
            uitest::BrowseAndCancel(this, firmware.findChild<QPushButton*>("pushButton_browse"));
        QCOMPARE(seenFirmware.first, QString("Open Firmware Binary"));
        QCOMPARE(seenFirmware.second, QStringList{"Firmware Binaries (*.rbf *.bin)"});
        CDialogProgramXML xml(nullptr, nullptr);
        xml.show();
        const auto seenXml =
            uitest::BrowseAndCancel(this, xml.findChild<QPushButton*>("pushButton_browse"));
        QCOMPARE(seenXml.first, QString("Program XML file (uncompressed or compressed)"));
        QCOMPARE(seenXml.second, QStringList{"XML file (*.xml *.zip)"});
    }

    void emptyFileNameIsRefusedBeforeAnyJob() {
        uitest::MessageBoxWatcher messages;
        CDialogFirmwareUpgrade firmware(nullptr, nullptr);
        firmware.show();
        firmware.findChild<QPushButton*>("pushButton_upgrade")->click();
        CDialogProgramXML xml(nullptr, nullptr);
        xml.show();
        xml.findChild<QPushButton*>("pushButton_program")->click();
        QCOMPARE(messages.texts,
                 (QStringList{"File name not specified!", "File name not specified!"}));
        QVERIFY(!firmware.IsBusy());
        QVERIFY(!xml.IsBusy());
    }

    void debugVariableZeroMarksTheTitles_data() {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("marked");
        QTest::newRow("0") << QByteArray("0") << true;
        QTest::newRow("1") << QByteArray("1") << false;
        QTest::newRow("unset") << QByteArray() << false;
    }

    void debugVariableZeroMarksTheTitles() {
        QFETCH(QByteArray, value);
        QFETCH(bool, marked);
        if (value.isNull())
            qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
        else
            qputenv("QRN_DEBUG_EEPROM_UPDATE", value);
        const QString marker = marked ? " (QRN_DEBUG_EEPROM_UPDATE=0)" : "";
        CDialogFirmwareUpgrade firmware(nullptr, nullptr);
        CDialogProgramXML xml(nullptr, nullptr);
        qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
        QCOMPARE(firmware.windowTitle(), "Firmware Upgrade" + marker);
        QCOMPARE(xml.windowTitle(), "Program XML" + marker);
    }

    void controlAndAltTogetherSwitchTheAddressLabel() {
        CDialogFirmwareUpgrade dialog(nullptr, nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QTest::keyPress(&dialog, Qt::Key_Control, Qt::ControlModifier);
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30800000"));
        QTest::keyPress(&dialog, Qt::Key_Alt, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30000000"));
        QTest::keyRelease(&dialog, Qt::Key_Alt, Qt::ControlModifier);
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30800000"));
        QTest::keyRelease(&dialog, Qt::Key_Control, Qt::NoModifier);
        QTest::keyPress(&dialog, Qt::Key_Alt, Qt::AltModifier);
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30800000"));
        QTest::keyRelease(&dialog, Qt::Key_Alt, Qt::NoModifier);
    }

    void upgradeShowsTheEventsAndTheImageArrives() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.1", {"--serial", "500001", "--store", m_dir.path()}),
                 qPrintable(camsim.Error()));
        const QByteArray image = Image(300 * 1024);
        const QString path = dialogtest::WriteFile(m_dir.path(), "upgrade.bin", image);
        uitest::MessageBoxWatcher messages;
        CDialogFirmwareUpgrade dialog(&camsim.Camera(), nullptr);
        dialog.show();
        SeenEvents seen;
        QList<bool> controlsEnabled;
        Watch(dialog, seen,
              [&](int event) {
                  if (event == 1 || event == 4)
                      controlsEnabled
                          << dialog.findChild<QPushButton*>("pushButton_upgrade")->isEnabled();
              });
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
        dialog.findChild<QPushButton*>("pushButton_upgrade")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QCOMPARE(seen.events.first().first, 1);
        QCOMPARE(seen.events.last().first, 4);
        QVERIFY(seen.busyAtStart);
        QCOMPARE(controlsEnabled, (QList<bool>{false, true}));
        int progressEvents = 0;
        for (const auto& event : seen.events) {
            QVERIFY(event.first >= 1 && event.first <= 4);
            progressEvents += event.first == 2 ? 1 : 0;
        }
        QVERIFY(progressEvents > 0);
        QCOMPARE(dialog.findChild<QProgressBar*>("progressBar")->value(), 100);
        QCOMPARE(ReadAll(m_dir.filePath("500001-firmware.bin")), image);
        QVERIFY(!QFile::exists(m_dir.filePath("500001-firmware-alternate.bin")));
        // Every text but progress reached the message box; the last is the final one.
        QVERIFY(!messages.texts.isEmpty());
        QCOMPARE(dialog.findChild<QLabel*>("writingAddress")->text(),
                 QString("Writing to address: 0x30800000"));
    }

    void upgradeStartedWithControlAndAltGoesToTheAlternateSlot() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.2", {"--serial", "500002", "--store", m_dir.path()}),
                 qPrintable(camsim.Error()));
        const QByteArray image = Image(70 * 1024);
        const QString path = dialogtest::WriteFile(m_dir.path(), "alternate.bin", image);
        uitest::MessageBoxWatcher messages;
        CDialogFirmwareUpgrade dialog(&camsim.Camera(), nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        SeenEvents seen;
        QString labelWhileBusy;
        Watch(dialog, seen, [&](int event) {
            if (event != 1)
                return;
            // Released while busy: the label keeps the address the job writes to.
            QTest::keyRelease(&dialog, Qt::Key_Alt, Qt::ControlModifier);
            QTest::keyRelease(&dialog, Qt::Key_Control, Qt::NoModifier);
            labelWhileBusy = AddressLabel(dialog);
        });
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
        QTest::keyPress(&dialog, Qt::Key_Control, Qt::ControlModifier);
        QTest::keyPress(&dialog, Qt::Key_Alt, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30000000"));
        dialog.findChild<QPushButton*>("pushButton_upgrade")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QCOMPARE(labelWhileBusy, QString("Writing to address: 0x30000000"));
        // Event 4 rewrites the label from the keys now held: none.
        QCOMPARE(AddressLabel(dialog), QString("Writing to address: 0x30800000"));
        QCOMPARE(ReadAll(m_dir.filePath("500002-firmware-alternate.bin")), image);
        QVERIFY(!QFile::exists(m_dir.filePath("500002-firmware.bin")));
    }

    void fileNameIsPassedInLatin1() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.3", {"--serial", "500003", "--store", m_dir.path()}),
                 qPrintable(camsim.Error()));
        const QByteArray image = Image(9000);
        // U+0142 has no Latin-1 form and becomes '?': the name typed is not the file's, the
        // lossy conversion is.
        dialogtest::WriteFile(m_dir.path(), "fw_?.bin", image);
        const QString typed = m_dir.filePath(QString("fw_") + QChar(0x0142) + ".bin");
        QVERIFY(!QFile::exists(typed));
        uitest::MessageBoxWatcher messages;
        CDialogFirmwareUpgrade dialog(&camsim.Camera(), nullptr);
        dialog.show();
        SeenEvents seen;
        Watch(dialog, seen);
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(typed);
        dialog.findChild<QPushButton*>("pushButton_upgrade")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QCOMPARE(ReadAll(m_dir.filePath("500003-firmware.bin")), image);
    }

    void escapeWhileBusyKeepsTheDialogOpen() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.4", {"--serial", "500004"}), qPrintable(camsim.Error()));
        const QString path = dialogtest::WriteFile(m_dir.path(), "esc.bin", Image(64 * 1024));
        uitest::MessageBoxWatcher messages;
        CDialogFirmwareUpgrade dialog(&camsim.Camera(), nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        SeenEvents seen;
        bool visibleAfterEscape = false;
        Watch(dialog, seen, [&](int event) {
            if (event != 1)
                return;
            QTest::keyClick(&dialog, Qt::Key_Escape);
            visibleAfterEscape = dialog.isVisible();
        });
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
        dialog.findChild<QPushButton*>("pushButton_upgrade")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QVERIFY(visibleAfterEscape);
        QVERIFY(messages.texts.contains("Dialoge can't be closed during progress"));
        QVERIFY(dialog.isVisible());
        // Idle again, Esc closes it.
        QTest::keyClick(&dialog, Qt::Key_Escape);
        QVERIFY(!dialog.isVisible());
    }

    void failureEndsTheJobWithOneFinalMessage() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.5", {"--serial", "500005"}), qPrintable(camsim.Error()));
        uitest::MessageBoxWatcher messages;
        CDialogProgramXML dialog(&camsim.Camera(), nullptr);
        dialog.show();
        SeenEvents seen;
        Watch(dialog, seen);
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(m_dir.filePath("missing.xml"));
        dialog.findChild<QPushButton*>("pushButton_program")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QCOMPARE(seen.events.last().first, 4);
        QVERIFY(!messages.texts.isEmpty());
        QVERIFY2(messages.texts.last().contains("missing.xml"), qPrintable(messages.texts.last()));
        QVERIFY(dialog.findChild<QPushButton*>("pushButton_program")->isEnabled());
        QVERIFY(dialog.findChild<QPushButton*>("pushButton_browse")->isEnabled());
    }

    void programXmlWritesTheDescription() {
        dialogtest::ConnectedCamsim camsim;
        QVERIFY2(camsim.Start("127.0.14.6", {"--serial", "500006", "--store", m_dir.path()}),
                 qPrintable(camsim.Error()));
        // The camera's own description, written back: a valid GenICam file by construction.
        QFile own(qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml");
        QVERIFY(own.open(QIODevice::ReadOnly));
        const QByteArray xml = own.readAll();
        const QString path = dialogtest::WriteFile(m_dir.path(), "description.xml", xml);
        uitest::MessageBoxWatcher messages;
        CDialogProgramXML dialog(&camsim.Camera(), nullptr);
        dialog.show();
        SeenEvents seen;
        Watch(dialog, seen);
        dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
        dialog.findChild<QPushButton*>("pushButton_program")->click();
        QVERIFY(
            uitest::WaitFor([&] { return seen.finished == 1 && !dialog.IsBusy(); }, kJobWaitMs));
        QCOMPARE(seen.events.first().first, 1);
        QCOMPARE(dialog.findChild<QProgressBar*>("progressBar")->value(), 100);
        QVERIFY(!ReadAll(m_dir.filePath("500006-description.xml")).isEmpty() ||
                !ReadAll(m_dir.filePath("500006-description.zip")).isEmpty());
    }
};

QTEST_MAIN(TestFirmwareXmlDialogs)
#include "tst_firmwarexmldialogs.moc"
