// CAppSettings reads settings.ini once, with typed defaults, and writes back only the recording
// settings.
#include "appsettings.h"
#include "connectioncaptions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

class TestAppSettings : public QObject {
    Q_OBJECT
private slots:
    void init();

    void noSettingsFileGivesTheElevenDefaultsAndCreatesNoFile();
    void defaultsAreTyped();
    void everyKeyIsRead();
    void programXmlIsRead_data();
    void programXmlIsRead();
    void unreadableSettingsFileGivesTheDefaults();
    void nonNumericDiscoveryTimeoutYieldsZero();
    void valuesThatDoNotConvertBecomeZeroWithoutRangeCheck();
    void readingNeverWritesTheFile();
    void saveRecordingSettingsCreatesTheFileWithOnlyTheTwoAviKeys();
    void saveRecordingSettingsRewritesOnlyTheTwoAviKeysAndKeepsTheOthers();
    void saveRecordingSettingsAddsMissingAviKeysToAnExistingFile();
    void connectionCaptionsAreTheTwoFixedTexts();

private:
    QString path() const { return dir_->filePath("settings.ini"); }
    void writeFile(const QByteArray& contents);
    QByteArray readFile() const;
    // Every key of the file as group/key -> value text, read by a QSettings of the test's own.
    QMap<QString, QString> keysOnDisk() const;

    std::unique_ptr<QTemporaryDir> dir_;
};

void TestAppSettings::init() {
    dir_ = std::make_unique<QTemporaryDir>();
    QVERIFY(dir_->isValid());
}

void TestAppSettings::writeFile(const QByteArray& contents) {
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(contents), contents.size());
}

QByteArray TestAppSettings::readFile() const {
    QFile file(path());
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

QMap<QString, QString> TestAppSettings::keysOnDisk() const {
    QSettings settings(path(), QSettings::IniFormat);
    QMap<QString, QString> keys;
    for (const QString& key : settings.allKeys())
        keys.insert(key, settings.value(key).toString());
    return keys;
}

void TestAppSettings::noSettingsFileGivesTheElevenDefaultsAndCreatesNoFile() {
    {
        CAppSettings settings(path());
        QCOMPARE(settings.programXML, false);
        QCOMPARE(settings.showDropFrame, false);
        QCOMPARE(settings.discoveryTimeout, 100);
        QCOMPARE(settings.GVCPTimeOut, 5);
        QCOMPARE(settings.getFrameTimeout, 50);
        QCOMPARE(settings.heartbeat, false);
        QCOMPARE(settings.localXml, QString());
        QVERIFY(settings.localXml.isEmpty());
        QCOMPARE(settings.aviFileName, QString("myrecord.avi"));
        QCOMPARE(settings.maxRecordedFrames, 0);
        QCOMPARE(settings.allocatedBuffersCount, 10);
        QCOMPARE(settings.maxBitsPerPixel, 0);
        QCOMPARE(settings.format(), QSettings::IniFormat);
        QCOMPARE(settings.fileName(), path());
        QVERIFY(settings.parent() == nullptr);
        QVERIFY(!QFile::exists(path()));
    }
    // Not at destruction either.
    QVERIFY(!QFile::exists(path()));
    QCOMPARE(QDir(dir_->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}

void TestAppSettings::defaultsAreTyped() {
    const struct {
        const char* key;
        QMetaType::Type type;
        QVariant value;
    } expected[] = {
        {"host/programXML", QMetaType::Bool, false},
        {"host/showDropFrame", QMetaType::Bool, false},
        {"host/discoveryTimeout", QMetaType::Int, 100},
        {"host/GVCPTimeOut", QMetaType::Int, 5},
        {"host/getFrameTimeout", QMetaType::Int, 50},
        {"host/heartbeat", QMetaType::Bool, false},
        {"host/localXml", QMetaType::QString, QString()},
        {"avi/aviFileName", QMetaType::QString, QString("myrecord.avi")},
        {"avi/maxRecordedFrames", QMetaType::Int, 0},
        {"resource/allocatedBuffersCount", QMetaType::Int, 10},
        {"resource/maxBitsPerPixel", QMetaType::Int, 0},
    };
    CAppSettings settings(path());
    for (const auto& e : expected) {
        const QVariant value = CAppSettings::DefaultValue(e.key);
        QVERIFY2(value.typeId() == e.type, e.key);
        QCOMPARE(value, e.value);
        // A missing key yields exactly the default, with its type.
        const QVariant read = settings.value(e.key, value);
        QVERIFY2(read.typeId() == e.type, e.key);
        QCOMPARE(read, e.value);
    }
    QVERIFY(!CAppSettings::DefaultValue("host/unknownKey").isValid());
}

void TestAppSettings::everyKeyIsRead() {
    writeFile("[host]\n"
              "programXML=true\n"
              "showDropFrame=true\n"
              "discoveryTimeout=250\n"
              "GVCPTimeOut=7\n"
              "getFrameTimeout=120\n"
              "heartbeat=true\n"
              "localXml=camera description.xml\n"
              "[avi]\n"
              "aviFileName=run.avi\n"
              "maxRecordedFrames=300\n"
              "[resource]\n"
              "allocatedBuffersCount=16\n"
              "maxBitsPerPixel=12\n");
    CAppSettings settings(path());
    QCOMPARE(settings.programXML, true);
    QCOMPARE(settings.showDropFrame, true);
    QCOMPARE(settings.discoveryTimeout, 250);
    QCOMPARE(settings.GVCPTimeOut, 7);
    QCOMPARE(settings.getFrameTimeout, 120);
    QCOMPARE(settings.heartbeat, true);
    QCOMPARE(settings.localXml, QString("camera description.xml"));
    QCOMPARE(settings.aviFileName, QString("run.avi"));
    QCOMPARE(settings.maxRecordedFrames, 300);
    QCOMPARE(settings.allocatedBuffersCount, 16);
    QCOMPARE(settings.maxBitsPerPixel, 12);
}

void TestAppSettings::programXmlIsRead_data() {
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<bool>("expected");
    QTest::newRow("true") << QByteArray("[host]\nprogramXML=true\n") << true;
    QTest::newRow("1") << QByteArray("[host]\nprogramXML=1\n") << true;
    QTest::newRow("false") << QByteArray("[host]\nprogramXML=false\n") << false;
    QTest::newRow("0") << QByteArray("[host]\nprogramXML=0\n") << false;
    QTest::newRow("empty value") << QByteArray("[host]\nprogramXML=\n") << false;
    QTest::newRow("host group without the key") << QByteArray("[host]\nheartbeat=true\n") << false;
    QTest::newRow("key in another group") << QByteArray("[avi]\nprogramXML=true\n") << false;
    QTest::newRow("no group") << QByteArray() << false;
}

void TestAppSettings::programXmlIsRead() {
    QFETCH(QByteArray, contents);
    QFETCH(bool, expected);
    writeFile(contents);
    CAppSettings settings(path());
    QCOMPARE(settings.programXML, expected);
}

// A path that cannot be read as a file (here a directory of that name, since the tests run as
// root, for whom permissions do not stop a read) is not an error: every default applies.
void TestAppSettings::unreadableSettingsFileGivesTheDefaults() {
    QVERIFY(QDir(dir_->path()).mkdir("settings.ini"));
    CAppSettings settings(path());
    QCOMPARE(settings.programXML, false);
    QCOMPARE(settings.showDropFrame, false);
    QCOMPARE(settings.discoveryTimeout, 100);
    QCOMPARE(settings.GVCPTimeOut, 5);
    QCOMPARE(settings.getFrameTimeout, 50);
    QCOMPARE(settings.heartbeat, false);
    QCOMPARE(settings.localXml, QString());
    QCOMPARE(settings.aviFileName, QString("myrecord.avi"));
    QCOMPARE(settings.maxRecordedFrames, 0);
    QCOMPARE(settings.allocatedBuffersCount, 10);
    QCOMPARE(settings.maxBitsPerPixel, 0);
    QVERIFY(QFileInfo(path()).isDir());
}

void TestAppSettings::nonNumericDiscoveryTimeoutYieldsZero() {
    writeFile("[host]\ndiscoveryTimeout=abc\n");
    CAppSettings settings(path());
    QCOMPARE(settings.discoveryTimeout, 0);
    // The other values keep their defaults.
    QCOMPARE(settings.GVCPTimeOut, 5);
    QCOMPARE(settings.getFrameTimeout, 50);
}

void TestAppSettings::valuesThatDoNotConvertBecomeZeroWithoutRangeCheck() {
    writeFile("[host]\n"
              "GVCPTimeOut=fast\n"
              "getFrameTimeout=-20\n"
              "[avi]\n"
              "maxRecordedFrames=12frames\n"
              "[resource]\n"
              "allocatedBuffersCount=-3\n"
              "maxBitsPerPixel=999\n");
    CAppSettings settings(path());
    QCOMPARE(settings.GVCPTimeOut, 0);
    QCOMPARE(settings.getFrameTimeout, -20);
    QCOMPARE(settings.maxRecordedFrames, 0);
    QCOMPARE(settings.allocatedBuffersCount, -3);
    QCOMPARE(settings.maxBitsPerPixel, 999);
}

void TestAppSettings::readingNeverWritesTheFile() {
    const QByteArray contents("; hand-written\n[host]\ndiscoveryTimeout=250\n");
    writeFile(contents);
    {
        CAppSettings settings(path());
        QCOMPARE(settings.discoveryTimeout, 250);
    }
    QCOMPARE(readFile(), contents);
}

void TestAppSettings::saveRecordingSettingsCreatesTheFileWithOnlyTheTwoAviKeys() {
    CAppSettings settings(path());
    settings.aviFileName = "capture.avi";
    settings.maxRecordedFrames = 250;
    settings.SaveRecordingSettings();
    // Synced at once, not at destruction.
    QVERIFY(QFile::exists(path()));
    const QMap<QString, QString> expected{{"avi/aviFileName", "capture.avi"},
                                          {"avi/maxRecordedFrames", "250"}};
    QCOMPARE(keysOnDisk(), expected);
    const QByteArray contents = readFile();
    QVERIFY(contents.contains("[avi]"));
    QVERIFY(!contents.contains("[host]"));
    QVERIFY(!contents.contains("[resource]"));
    // Written in that order.
    QVERIFY(contents.indexOf("aviFileName") < contents.indexOf("maxRecordedFrames"));
}

void TestAppSettings::saveRecordingSettingsRewritesOnlyTheTwoAviKeysAndKeepsTheOthers() {
    writeFile("[host]\n"
              "discoveryTimeout=250\n"
              "localXml=own.xml\n"
              "customKey=kept as it is\n"
              "[avi]\n"
              "aviFileName=old.avi\n"
              "maxRecordedFrames=10\n"
              "[resource]\n"
              "allocatedBuffersCount=12\n"
              "[other]\n"
              "note=hello\n");
    QMap<QString, QString> expected = keysOnDisk();
    CAppSettings settings(path());
    settings.aviFileName = "new.avi";
    settings.maxRecordedFrames = 0;
    settings.SaveRecordingSettings();
    expected["avi/aviFileName"] = "new.avi";
    expected["avi/maxRecordedFrames"] = "0";
    QCOMPARE(keysOnDisk(), expected);
    // The read values are not written back.
    QVERIFY(!readFile().contains("programXML"));
}

void TestAppSettings::saveRecordingSettingsAddsMissingAviKeysToAnExistingFile() {
    writeFile("[host]\nheartbeat=true\n");
    CAppSettings settings(path());
    settings.SaveRecordingSettings();
    const QMap<QString, QString> expected{{"host/heartbeat", "true"},
                                          {"avi/aviFileName", "myrecord.avi"},
                                          {"avi/maxRecordedFrames", "0"}};
    QCOMPARE(keysOnDisk(), expected);
}

// Created with the program's other static objects, so already there when main runs.
void TestAppSettings::connectionCaptionsAreTheTwoFixedTexts() {
    QCOMPARE(g_strNotConnected, QString("Not Connected"));
    QCOMPARE(g_strConnected, QString("Connected"));
}

QTEST_GUILESS_MAIN(TestAppSettings)
#include "tst_appsettings.moc"
