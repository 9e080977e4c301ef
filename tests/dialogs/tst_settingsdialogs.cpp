// The recording settings, device discovery settings and About dialogs.
#include "dialogtesthelpers.h"

#include <dialogabout.h>
#include <dialogdevicediscoverysettings.h>
#include <dialogrecordingsettings.h>
#include <testnetwork.h>

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingigevision.h>

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace {

// Types `text` as the file name and leaves the field.
void editFileName(CDialogRecordingSettings& dialog, const QString& text) {
    auto* line = dialog.findChild<QLineEdit*>("lineEdit_fileName");
    line->clear();
    QTest::keyClicks(line, text);
    QMetaObject::invokeMethod(line, "editingFinished");
}

// Run as a child in a network namespace of its own, where no interface is up: the scroll area
// stays empty and clearing "all interfaces" selects nothing. Returns the exit status.
int checkWithoutInterfaces() {
    if (!CKorvatinGigEVision::EnumerateNICs().empty()) {
        std::fprintf(stderr, "interfaces are up in the child's namespace\n");
        return 2;
    }
    CDialogDeviceDiscoverySettings dialog(true, nullptr, false, nullptr);
    if (!dialog.InterfaceButtons().isEmpty() ||
        !dialog.findChild<QScrollArea*>("scrollArea_nics")->findChildren<QRadioButton*>().isEmpty())
        return 3;
    dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->setChecked(false);
    if (!dialog.SelectedInterface().isNull())
        return 4;
    std::printf("no interfaces: empty area, nothing selected\n");
    return 0;
}

constexpr const char* kChildFlag = "--check-without-interfaces";

} // namespace

class TestSettingsDialogs : public QObject {
    Q_OBJECT

private slots:
    void recordingSettingsShowTheValuesGiven();
    void bareNameGetsTheAbsoluteDirectoryAndAvi();
    void otherSuffixBecomesAviAndUpperCaseAviIsKept();
    void frameLimitThatIsNoNumberReadsZero();
    void recordingBrowseOffersAviFiles();
    void discoverySettingsShowTheValuesGiven();
    void selectedInterfaceIsCheckedAndTheButtonsEnabled();
    void allInterfacesGiveANullStringEvenWithAButtonChecked();
    void clearingAllInterfacesChecksTheFirst();
    void noInterfacesShowAnEmptyAreaAndSelectNothing();
    void aboutShowsBothVersions();
    void aboutWithoutKorvatinDirHasEmptyNotes();
    void aboutShowsTheReleaseNotesOfKorvatinDir();
    void aboutFoldsTo170PixelsWithoutTheNotes();
};

void TestSettingsDialogs::recordingSettingsShowTheValuesGiven() {
    QObject caller;
    CDialogRecordingSettings dialog("/tmp/rec.avi", 250, &caller, nullptr);
    QCOMPARE(dialog.windowTitle(), QString("AVI FIle Name"));
    QCOMPARE(dialog.findChild<QLineEdit*>("lineEdit_fileName")->text(), QString("/tmp/rec.avi"));
    QCOMPARE(dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->text(), QString("250"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_browse")->text(), QString("Browse"));
    QVERIFY(dialog.findChild<QDialogButtonBox*>("buttonBox"));
    QStringList labels;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        labels << label->text();
    QVERIFY(labels.contains("AVI File Name:"));
    QVERIFY(labels.contains("Maximum Record Frames:"));
    QCOMPARE(dialog.FileName(), QString("/tmp/rec.avi"));
    QCOMPARE(dialog.MaxRecordedFrames(), 250);
    QCOMPARE(dialog.minimumSize(), dialog.maximumSize());
    dialog.show();
    uitest::SaveScreenshot(&dialog, "dialog_recording_settings");
    // Ok accepts.
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void TestSettingsDialogs::bareNameGetsTheAbsoluteDirectoryAndAvi() {
    CDialogRecordingSettings dialog("", 0, nullptr, nullptr);
    editFileName(dialog, "capture");
    QCOMPARE(dialog.FileName(), QDir::currentPath() + "/capture.avi");
}

void TestSettingsDialogs::otherSuffixBecomesAviAndUpperCaseAviIsKept() {
    CDialogRecordingSettings dialog("", 0, nullptr, nullptr);
    editFileName(dialog, "/tmp/run.mp4");
    QCOMPARE(dialog.FileName(), QString("/tmp/run.avi"));
    editFileName(dialog, "/tmp/KEEP.AVI");
    QCOMPARE(dialog.FileName(), QString("/tmp/KEEP.AVI"));
}

void TestSettingsDialogs::frameLimitThatIsNoNumberReadsZero() {
    CDialogRecordingSettings dialog("a.avi", 10, nullptr, nullptr);
    dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->setText("many");
    QCOMPARE(dialog.MaxRecordedFrames(), 0);
    dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->setText("0x10");
    QCOMPARE(dialog.MaxRecordedFrames(), 0);
    dialog.findChild<QLineEdit*>("lineEdit_maxRecordFrames")->setText("42");
    QCOMPARE(dialog.MaxRecordedFrames(), 42);
}

void TestSettingsDialogs::recordingBrowseOffersAviFiles() {
    CDialogRecordingSettings dialog("kept.avi", 0, nullptr, nullptr);
    dialog.show();
    const auto seen =
        uitest::BrowseAndCancel(this, dialog.findChild<QPushButton*>("pushButton_browse"));
    QCOMPARE(seen.first, QString("AVI File Name"));
    QCOMPARE(seen.second, QStringList{"Images (*.avi)"});
    QCOMPARE(dialog.FileName(), QString("kept.avi"));
}

void TestSettingsDialogs::discoverySettingsShowTheValuesGiven() {
    CDialogDeviceDiscoverySettings dialog(true, nullptr, false, nullptr);
    QCOMPARE(dialog.windowTitle(), QString("Device Discovery"));
    auto* enabled = dialog.findChild<QCheckBox*>("checkBoxDiscoverEnabled");
    auto* all = dialog.findChild<QCheckBox*>("checkBoxAllInterfaces");
    auto* broadcast = dialog.findChild<QCheckBox*>("checkBoxBroadcast");
    QCOMPARE(enabled->text(),
             QString("Discover cameras, check this box to enable device discovery."));
    QCOMPARE(all->text(),
             QString("Discover cameras on all interfaces, otherwise only on the selected one:"));
    QCOMPARE(broadcast->text(),
             QString("Broadcast discovery commands. Check this box to send discovery \ncommands as "
                     "broadcast IP packets(255.255.255.255), otherwise \nsubnet multicast IP "
                     "packets(ie. xxx.xxx.xxx.255)."));
    QVERIFY(dialog.findChild<QScrollArea*>("scrollArea_nics"));
    QVERIFY(enabled->isChecked());
    QVERIFY(all->isChecked());
    QVERIFY(!broadcast->isChecked());
    QVERIFY(dialog.DiscoverEnabled());
    QVERIFY(!dialog.Broadcast());
    QVERIFY(dialog.SelectedInterface().isNull());
    // One radio button per interface, disabled while all interfaces are chosen.
    const auto nics = CKorvatinGigEVision::EnumerateNICs();
    QCOMPARE(dialog.InterfaceButtons().size(), qsizetype(nics.size()));
    for (size_t i = 0; i < nics.size(); ++i) {
        QCOMPARE(dialog.InterfaceButtons()[qsizetype(i)]->text(), QString(nics[i].name));
        QVERIFY(!dialog.InterfaceButtons()[qsizetype(i)]->isEnabled());
        QVERIFY(!dialog.InterfaceButtons()[qsizetype(i)]->isChecked());
    }
    CDialogDeviceDiscoverySettings other(false, nullptr, true, nullptr);
    QVERIFY(!other.DiscoverEnabled());
    QVERIFY(other.Broadcast());
    dialog.show();
    uitest::SaveScreenshot(&dialog, "dialog_device_discovery");
}

void TestSettingsDialogs::selectedInterfaceIsCheckedAndTheButtonsEnabled() {
    // A second address, so that only the matching button is checked.
    if (TestNetwork::isIsolated())
        QVERIFY(TestNetwork::addLoopbackAddress("127.0.0.77"));
    CDialogDeviceDiscoverySettings dialog(true, "127.0.0.1", false, nullptr);
    QVERIFY(!dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->isChecked());
    int checked = 0;
    for (QRadioButton* button : dialog.InterfaceButtons()) {
        QVERIFY(button->isEnabled());
        checked += button->isChecked() ? 1 : 0;
        QCOMPARE(button->isChecked(), button->text() == "127.0.0.1");
    }
    QCOMPARE(checked, 1);
    QCOMPARE(dialog.SelectedInterface(), QString("127.0.0.1"));
}

void TestSettingsDialogs::allInterfacesGiveANullStringEvenWithAButtonChecked() {
    CDialogDeviceDiscoverySettings dialog(true, "127.0.0.1", false, nullptr);
    QCOMPARE(dialog.SelectedInterface(), QString("127.0.0.1"));
    dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->setChecked(true);
    QVERIFY(dialog.InterfaceButtons().first()->isChecked() || dialog.InterfaceButtons().size() > 1);
    QVERIFY(dialog.SelectedInterface().isNull());
    for (QRadioButton* button : dialog.InterfaceButtons())
        QVERIFY(!button->isEnabled());
}

void TestSettingsDialogs::clearingAllInterfacesChecksTheFirst() {
    CDialogDeviceDiscoverySettings dialog(true, nullptr, false, nullptr);
    QVERIFY(!dialog.InterfaceButtons().isEmpty());
    dialog.findChild<QCheckBox*>("checkBoxAllInterfaces")->setChecked(false);
    QVERIFY(dialog.InterfaceButtons().first()->isChecked());
    QVERIFY(dialog.InterfaceButtons().first()->isEnabled());
    QCOMPARE(dialog.SelectedInterface(), dialog.InterfaceButtons().first()->text());
}

void TestSettingsDialogs::noInterfacesShowAnEmptyAreaAndSelectNothing() {
    // A network namespace of its own has no interface up; the check runs there, in a child.
    const QString unshare = QStandardPaths::findExecutable("unshare");
    if (unshare.isEmpty() || !TestNetwork::isIsolated())
        QSKIP("needs unshare and root to make a namespace without interfaces");
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    child.setProcessEnvironment(environment);
    child.start(unshare, {"-n", QCoreApplication::applicationFilePath(), kChildFlag});
    QVERIFY(child.waitForFinished(60000));
    const QString output = QString::fromLocal8Bit(child.readAll());
    QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
             qPrintable(output));
    QVERIFY2(output.contains("no interfaces: empty area, nothing selected"), qPrintable(output));
}

void TestSettingsDialogs::aboutShowsBothVersions() {
    CDialogAbout dialog(nullptr);
    QCOMPARE(dialog.windowTitle(), QString("About Korvatin Viewlane"));
    QCOMPARE(dialog.findChild<QLabel*>("label_ViewlaneVersion")->text(), QString("2.11.04"));
    QCOMPARE(dialog.findChild<QLabel*>("label_kSDKVersion")->text(),
             QString(CKorvatinCamera::SDKVersion()));
    QCOMPARE(dialog.findChild<QCheckBox*>("checkBox")->text(), QString("Show release notes"));
    QVERIFY(dialog.findChild<QPushButton*>("pushButton"));
    QStringList labels;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        labels << label->text();
    QVERIFY(labels.contains("kSDK Version:"));
    QVERIFY(labels.contains("Viewlane Version:"));
    dialog.show();
    dialog.findChild<QPushButton*>("pushButton")->click();
    QVERIFY(!dialog.isVisible());
}

void TestSettingsDialogs::aboutWithoutKorvatinDirHasEmptyNotes() {
    qunsetenv("KORVATIN_DIR");
    CDialogAbout dialog(nullptr);
    QVERIFY(
        dialog.findChild<QPlainTextEdit*>("plainTextEditReleaseNotes")->toPlainText().isEmpty());
    QVERIFY(dialog.findChild<QPlainTextEdit*>("plainTextEditReleaseNotes")->isReadOnly());
}

void TestSettingsDialogs::aboutShowsTheReleaseNotesOfKorvatinDir() {
    QTemporaryDir dir;
    QFile notes(dir.filePath("Release_Notes.txt"));
    QVERIFY(notes.open(QIODevice::WriteOnly));
    notes.write("Line one\nLine two <b>not bold</b>\n");
    notes.close();
    qputenv("KORVATIN_DIR", dir.path().toLocal8Bit());
    CDialogAbout dialog(nullptr);
    qunsetenv("KORVATIN_DIR");
    QCOMPARE(dialog.findChild<QPlainTextEdit*>("plainTextEditReleaseNotes")->toPlainText(),
             QString("Line one\nLine two <b>not bold</b>\n"));
    // The project's own notes, as `make run` shows them.
    qputenv("KORVATIN_DIR", TestNetwork::sourceDir().toLocal8Bit());
    CDialogAbout shipped(nullptr);
    qunsetenv("KORVATIN_DIR");
    QVERIFY(shipped.findChild<QPlainTextEdit*>("plainTextEditReleaseNotes")
                ->toPlainText()
                .startsWith("Korvatin Viewlane 2.11.04"));
    shipped.show();
    shipped.findChild<QCheckBox*>("checkBox")->setChecked(true);
    uitest::SaveScreenshot(&shipped, "dialog_about_release_notes");
}

void TestSettingsDialogs::aboutFoldsTo170PixelsWithoutTheNotes() {
    CDialogAbout dialog(nullptr);
    dialog.show();
    auto* box = dialog.findChild<QCheckBox*>("checkBox");
    auto* notes = dialog.findChild<QPlainTextEdit*>("plainTextEditReleaseNotes");
    box->setChecked(false);
    QVERIFY(!notes->isVisible());
    QCOMPARE(dialog.minimumHeight(), CDialogAbout::kFoldedHeight);
    QCOMPARE(dialog.maximumHeight(), CDialogAbout::kFoldedHeight);
    QTRY_COMPARE(dialog.height(), CDialogAbout::kFoldedHeight);
    uitest::SaveScreenshot(&dialog, "dialog_about");
    box->setChecked(true);
    QVERIFY(notes->isVisible());
    QCOMPARE(dialog.minimumHeight(), 0);
    QCOMPARE(dialog.maximumHeight(), QWIDGETSIZE_MAX);
    QTRY_VERIFY(dialog.height() > CDialogAbout::kFoldedHeight);
    box->setChecked(false);
    QTRY_COMPARE(dialog.height(), CDialogAbout::kFoldedHeight);
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], kChildFlag) == 0)
        return checkWithoutInterfaces();
    TestSettingsDialogs test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_settingsdialogs.moc"
