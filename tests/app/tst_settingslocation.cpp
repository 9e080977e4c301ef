// Where the viewer keeps settings.ini: beside the program when its folder is writable, else in
// the user's configuration folder, which a first write creates.
#include "appsettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

class TestSettingsLocation : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void aWritableProgramFolderKeepsTheFileBesideTheProgram();
    void anUnwritableProgramFolderUsesXdgConfigHome();
    void withoutXdgConfigHomeTheFileIsInHomeDotConfig();
    void recordingSettingsAreWrittenIntoANewConfigurationFolder();

private:
    QTemporaryDir m_dir;
    QString m_unwritable; // a folder this process cannot write, as an installed /usr/bin
};

void TestSettingsLocation::initTestCase() {
    QVERIFY(m_dir.isValid());
    m_unwritable = m_dir.filePath("bin");
    QVERIFY(QDir().mkpath(m_unwritable));
    if (geteuid() != 0) {
        QVERIFY(::chmod(QFile::encodeName(m_unwritable).constData(), 0555) == 0);
    } else {
        // Root writes any folder its mode forbids: a read-only file system in a mount namespace
        // of this process's own stands for the installed program's folder.
        QVERIFY2(::unshare(CLONE_NEWNS) == 0, "root without a mount namespace of its own");
        QVERIFY(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
        QVERIFY(::mount("tmpfs", QFile::encodeName(m_unwritable).constData(), "tmpfs", MS_RDONLY,
                        nullptr) == 0);
    }
    QVERIFY(!QFileInfo(m_unwritable).isWritable());
}

void TestSettingsLocation::cleanupTestCase() {
    // The read-only file system goes, so that the temporary folder can be removed whole.
    if (geteuid() == 0)
        ::umount2(QFile::encodeName(m_unwritable).constData(), MNT_DETACH);
    else
        ::chmod(QFile::encodeName(m_unwritable).constData(), 0755);
}

void TestSettingsLocation::aWritableProgramFolderKeepsTheFileBesideTheProgram() {
    qputenv("XDG_CONFIG_HOME", m_dir.filePath("config").toLocal8Bit());
    QCOMPARE(CAppSettings::FileNameFor(m_dir.path()), m_dir.filePath("settings.ini"));
}

void TestSettingsLocation::anUnwritableProgramFolderUsesXdgConfigHome() {
    qputenv("XDG_CONFIG_HOME", m_dir.filePath("config").toLocal8Bit());
    QCOMPARE(CAppSettings::FileNameFor(m_unwritable),
             m_dir.filePath("config/korvatin-viewlane/settings.ini"));
}

void TestSettingsLocation::withoutXdgConfigHomeTheFileIsInHomeDotConfig() {
    qunsetenv("XDG_CONFIG_HOME");
    const QByteArray home = qgetenv("HOME");
    qputenv("HOME", m_dir.filePath("home").toLocal8Bit());
    const QString fileName = CAppSettings::FileNameFor(m_unwritable);
    qputenv("HOME", home);
    QCOMPARE(fileName, m_dir.filePath("home/.config/korvatin-viewlane/settings.ini"));
    // A relative XDG_CONFIG_HOME is not a configuration folder either.
    qputenv("XDG_CONFIG_HOME", "config");
    QVERIFY(CAppSettings::FileNameFor(m_unwritable)
                .endsWith("/.config/korvatin-viewlane/settings.ini"));
}

void TestSettingsLocation::recordingSettingsAreWrittenIntoANewConfigurationFolder() {
    qputenv("XDG_CONFIG_HOME", m_dir.filePath("fresh").toLocal8Bit());
    const QString fileName = CAppSettings::FileNameFor(m_unwritable);
    QVERIFY(!QFileInfo::exists(m_dir.filePath("fresh")));
    {
        CAppSettings settings(fileName);
        QCOMPARE(settings.aviFileName, QString("myrecord.avi"));
        settings.aviFileName = "line3.avi";
        settings.maxRecordedFrames = 25;
        settings.SaveRecordingSettings();
    }
    QVERIFY(QFileInfo::exists(fileName));
    CAppSettings again(fileName);
    QCOMPARE(again.aviFileName, QString("line3.avi"));
    QCOMPARE(again.maxRecordedFrames, 25);
    QVERIFY(!QFileInfo::exists(m_unwritable + "/settings.ini"));
}

QTEST_GUILESS_MAIN(TestSettingsLocation)
#include "tst_settingslocation.moc"
