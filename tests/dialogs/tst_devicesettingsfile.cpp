// Device settings files: the save walk, the file format, the load order, bad files, and the two
// dialogs that run them against simulated cameras.
#include "dialogtesthelpers.h"

#include <bulkdescription.h>
#include <devicesettingsjob.h>
#include <dialogloaddevicesettings.h>
#include <dialogsavedevicesettings.h>

#include <korvatin/korvatingenicamnodet.h>

#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <list>

using dialogtest::ConnectedCamsim;
using dialogtest::RecordingHost;
using dialogtest::WriteDirect;
using dialogtest::WriteFile;
using uitest::MessageBoxWatcher;

namespace {

const QString kLoaded = "Device setting was successfully loaded from file: ";
const QString kFirstError = "\n\nThe first error:\n";

// Every value feature of the camera that the load writes (UInt32, Int32, Boolean, String,
// Enumeration; writable), with its value text, by name.
void collectWritable(const CKorvatinGenICamNodeT& node, QMap<QString, QString>& values) {
    char name[128] = {};
    node.Name(name, sizeof name, nullptr);
    const QrnParamDataType type = node.DataType();
    if (type == QRN_PARAM_CATEGORY) {
        std::list<CKorvatinGenICamNodeT> features;
        node.GetCategoryFeatures(&features);
        for (const auto& feature : features)
            collectWritable(feature, values);
        return;
    }
    if (DeviceSettingsJob::ExcludedNames().contains(name) ||
        node.AccessMode() != CKorvatinGenICamNodeT::RW)
        return;
    char text[128] = {};
    switch (type) {
    case QRN_PARAM_UINT32:
        values[name] = QString::number(node.GetUInt32());
        break;
    case QRN_PARAM_INT32:
        values[name] = QString::number(node.GetInt32());
        break;
    case QRN_PARAM_BOOLEAN:
        values[name] = QString::number(node.GetBool() ? 1 : 0);
        break;
    case QRN_PARAM_STRING:
        node.GetString(text, sizeof text, nullptr);
        values[name] = text;
        break;
    case QRN_PARAM_ENUMERATION:
        node.GetEnum(text, sizeof text, nullptr);
        values[name] = text;
        break;
    default:
        break;
    }
}

QMap<QString, QString> writableValues(CKorvatinCamera& camera) {
    QMap<QString, QString> values;
    collectWritable(camera.GetGENiCAMRoot(), values);
    return values;
}

// Fills the dialog's file name and clicks its action button; returns once the job's final
// message box has been answered, with every text shown.
QStringList runDialog(QDialog& dialog, const QString& buttonName, const QString& fileName) {
    MessageBoxWatcher boxes;
    dialog.show();
    dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(fileName);
    dialog.findChild<QPushButton*>(buttonName)->click();
    auto* job = static_cast<CDialogProgressThreadEvent*>(&dialog);
    [&] {
        QVERIFY(uitest::WaitFor([&] { return !boxes.texts.isEmpty() && !job->IsBusy(); }, 60000));
    }();
    return boxes.texts;
}

} // namespace

class TestDeviceSettingsFile : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();

    void saveWritesOneLinePerValueFeature();
    void saveProgressClimbsTo100ThenReadsZeroThenFinal100();
    void saveToAFileThatCannotBeCreatedFails();
    void saveLeavesAnEarlierFileWholeWhenItFails();
    void loadWritesEnumerationsFirstThenPreparationThenFileOrder();
    void loadRestoresEveryWritableFeatureOfAnotherCamera();
    void lutIndexLineLoadsWithoutTouchingLutIndex();
    void floatLineFailsAsUnsupportedAtTheGuiSide();
    void stringValueIsCutAtTheFirstSpace();
    void emptyStringSavedLoadsBackEmpty();
    void readOnlyFeatureIsSkipped();
    void longExposureAppliesBecauseItIsWrittenLast();
    void unknownTypeWordFailsAtWrite();
    void firstErrorIsKeptAndLaterOnesDropped();
    void unknownFeatureEndsTheApplyWithItsText();
    void unparsableLineIsRefusedBeforeAnyWrite();
    void missingFileIsRefused();
    void emptyFileIsRefusedBeforeAnyWrite();
    void aLutTableIsRefusedBeforeAnyWriteNamingTheFile();
    void aLoadThatChangesThePersistentNetworkConfigurationSaysSo();
    void binaryFileEndsWithOneFinishedEvent();
    void oneVeryLongLineIsRefusedNamingTheLine();
    void nameOf64BytesIsRefusedNamingTheLine();
    void fileRemovedDuringTheJobStillLoads();
    void cameraKilledDuringTheJobEndsWithItsError();
    void loadDialogRebuildsTheTreeBeforeItsMessageAndResetsProgress();
    void saveDialogKeepsItsProgress();
    void emptyFileNameStartsNothing();
    void dialogsShowTheirTitlesLabelsAndButtons();
    void browseOffersTheCaptionsAndFilters();

private:
    QTemporaryDir m_dir;
    ConnectedCamsim m_camsim;
};

void TestDeviceSettingsFile::initTestCase() {
    QVERIFY(m_dir.isValid());
    QVERIFY2(m_camsim.Start("127.0.0.41"), qPrintable(m_camsim.Error()));
}

void TestDeviceSettingsFile::saveWritesOneLinePerValueFeature() {
    const QString path = m_dir.filePath("saved.txt");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(DeviceSettingsJob(&host, &m_camsim.Camera()).Save(path));
    const auto events = host.Events();
    QCOMPARE(events.first().first, 1);
    QCOMPARE(events.last(), qMakePair(4, "Device setting was successfully saved to file: " + path));
    QCOMPARE(host.Texts(4).size(), 1);

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    QVERIFY(content.endsWith('\n'));
    QVERIFY(!content.contains('\r'));
    const QStringList lines = QString::fromUtf8(content).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(content.count('\n'), lines.size()); // no blank lines
    // Names and the other values are single words; a string is written whole, spaces included.
    static const QRegularExpression kLine("^(\\S+) ((UInt32|Int32|Boolean|Enumeration) \\S+|"
                                          "String .*)$");
    for (const QString& line : lines)
        QVERIFY2(kLine.match(line).hasMatch(), qPrintable(line));
    QVERIFY(lines.contains(QString("Width UInt32 %1").arg(m_camsim.Camera().GetUInt32("Width"))));
    QVERIFY(lines.contains("PixelFormat Enumeration Mono8"));
    QVERIFY(lines.contains("BlackLevel Int32 0"));
    QVERIFY(lines.contains("LUTEnable Boolean 0"));
    QVERIFY(lines.contains("DeviceVendorName String Korvatin"));
    QVERIFY(lines.contains("DeviceModelName String Korvatin Camsim"));
    // Read-only features are saved too; floats, commands and the table selectors never.
    QVERIFY(lines.contains(QString("SensorWidth UInt32 1280")));
    for (const char* name : {"LUTIndex", "LUTValue", "Gain", "AcquisitionStart"}) {
        for (const QString& line : lines)
            QVERIFY2(!line.startsWith(QString(name) + " "), qPrintable(line));
    }
}

void TestDeviceSettingsFile::saveProgressClimbsTo100ThenReadsZeroThenFinal100() {
    const QString description = m_dir.filePath("bulk.xml");
    QString error;
    QVERIFY2(bulkdescription::Write(bulkdescription::BuiltInPath(), description, 150, &error),
             qPrintable(error));
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.42", {"--description", description}),
             qPrintable(camsim.Error()));
    RecordingHost host(&camsim.Camera());
    QVERIFY(DeviceSettingsJob(&host, &camsim.Camera()).Save(m_dir.filePath("bulk.txt")));
    QStringList progress = host.Texts(2);
    QVERIFY2(progress.size() > 150, qPrintable(QString::number(progress.size())));
    QCOMPARE(progress.takeLast(), QString("100"));
    for (int i = 0; i < progress.size(); ++i)
        QCOMPARE(progress[i], QString::number(i <= 100 ? i : 0));
}

void TestDeviceSettingsFile::saveToAFileThatCannotBeCreatedFails() {
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera())
                 .Save(m_dir.filePath("no-such-directory/saved.txt")));
    QCOMPARE(host.Texts(4), QStringList{"Saving device settings failed: Failed to open file."});
}

void TestDeviceSettingsFile::saveLeavesAnEarlierFileWholeWhenItFails() {
    // A camera that stops answering mid-walk: the file keeps what it held before.
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.43"), qPrintable(camsim.Error()));
    const QString path = WriteFile(m_dir.path(), "earlier.txt", "Width UInt32 640\n");
    camsim.Process().kill();
    RecordingHost host(&camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &camsim.Camera()).Save(path));
    QCOMPARE(host.Texts(4).size(), 1);
    QVERIFY(host.Texts(4).first().startsWith("Saving device settings failed: "));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("Width UInt32 640\n"));
}

void TestDeviceSettingsFile::loadWritesEnumerationsFirstThenPreparationThenFileOrder() {
    CKorvatinCamera& camera = m_camsim.Camera();
    const QString path = WriteFile(m_dir.path(), "order.txt",
                                   "Width UInt32 640\n"
                                   "PixelFormat Enumeration Mono16\n"
                                   "Exposure UInt32 20000\n"
                                   "OffsetX UInt32 8\n"
                                   "TestPatternSeed UInt32 3\n"
                                   "PixelFormat Enumeration Mono8\n");
    RecordingHost host(&camera);
    QVERIFY(DeviceSettingsJob(&host, &camera).Load(path));
    const QString min = QString::number(camera.GetUInt32Min("Exposure"));
    QCOMPARE(host.WrittenNames(),
             (QStringList{"PixelFormat=Mono16", "PixelFormat=Mono8", "Exposure=" + min, "HDRp1=0",
                          "HDRp2=0", "OffsetX=0", "OffsetY=0", "Width=640", "OffsetX=8",
                          "TestPatternSeed=3", "Exposure=20000"}));
    // Progress: one event per non-enumeration line, visited × 100 / (lines + 5).
    QCOMPARE(host.Texts(2), (QStringList{"9", "18", "27", "36"}));
    QCOMPARE(host.Texts(4), QStringList{kLoaded + path});
    QCOMPARE(camera.GetUInt32("Width"), 640u);
    QCOMPARE(camera.GetUInt32("OffsetX"), 8u);
    QCOMPARE(camera.GetUInt32("Exposure"), 20000u);
}

void TestDeviceSettingsFile::loadRestoresEveryWritableFeatureOfAnotherCamera() {
    ConnectedCamsim source;
    ConnectedCamsim target;
    QVERIFY2(source.Start("127.0.0.44"), qPrintable(source.Error()));
    QVERIFY2(target.Start("127.0.0.45"), qPrintable(target.Error()));
    CKorvatinCamera& a = source.Camera();
    a.SetEnumByString("PixelFormat", "Mono12");
    a.SetUInt32("Width", 800);
    a.SetUInt32("OffsetX", 40);
    a.SetUInt32("FrameRate", 20);
    a.SetUInt32("Exposure", 40000);
    a.SetUInt32("HDRp1", 30000);
    a.SetUInt32("HDRp2", 20000);
    a.SetInt32("BlackLevel", -12);
    a.SetBool("LUTEnable", true);
    a.SetString("DeviceUserID", "line-3");
    a.SetUInt32("TestPatternSeed", 77);
    CKorvatinCamera& b = target.Camera();
    b.SetUInt32("Width", 320);
    b.SetUInt32("OffsetX", 100);
    b.SetInt32("BlackLevel", 50);
    b.SetString("DeviceUserID", "other");

    const QString path = m_dir.filePath("camera-a.txt");
    CDialogSaveDeviceSettings save(&a, nullptr);
    QCOMPARE(runDialog(save, "pushButton_save_settings", path),
             QStringList{"Device setting was successfully saved to file: " + path});
    CDialogLoadDeviceSettings load(&b, nullptr);
    QCOMPARE(runDialog(load, "pushButton_load_settings", path), QStringList{kLoaded + path});

    QMap<QString, QString> expected = writableValues(a);
    QMap<QString, QString> actual = writableValues(b);
    // Identity and transport-layer features belong to each camera's connection.
    for (const char* own : {"GevSCDA", "GevSCPHostPort", "GevSCPSPacketSize", "GevCCP"}) {
        expected.remove(own);
        actual.remove(own);
    }
    QVERIFY(expected.size() > 15);
    QCOMPARE(actual, expected);
}

void TestDeviceSettingsFile::lutIndexLineLoadsWithoutTouchingLutIndex() {
    CKorvatinCamera& camera = m_camsim.Camera();
    camera.SetUInt32("LUTIndex", 3);
    const QString path = WriteFile(m_dir.path(), "lutindex.txt",
                                   "LUTIndex UInt32 7\nLUTValue UInt32 9\n"
                                   "Width UInt32 640\n");
    RecordingHost host(&camera);
    QVERIFY(DeviceSettingsJob(&host, &camera).Load(path));
    for (const QString& written : host.WrittenNames())
        QVERIFY2(!written.startsWith("LUT"), qPrintable(written));
    QCOMPARE(camera.GetUInt32("LUTIndex"), 3u);
}

void TestDeviceSettingsFile::floatLineFailsAsUnsupportedAtTheGuiSide() {
    const QString path = WriteFile(m_dir.path(), "gain.txt", "Gain Float 1.5\n");
    CDialogLoadDeviceSettings load(&m_camsim.Camera(), nullptr);
    QCOMPARE(runDialog(load, "pushButton_load_settings", path),
             QStringList{kLoaded + path + kFirstError + "Gain : Node type is not supported."});
}

void TestDeviceSettingsFile::stringValueIsCutAtTheFirstSpace() {
    const QString path = WriteFile(m_dir.path(), "userid.txt", "DeviceUserID String my camera\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    char text[128] = {};
    m_camsim.Camera().GetString("DeviceUserID", text, sizeof text);
    QCOMPARE(QByteArray(text), QByteArray("my"));
}

void TestDeviceSettingsFile::emptyStringSavedLoadsBackEmpty() {
    CKorvatinCamera& camera = m_camsim.Camera();
    camera.SetString("DeviceUserID", "");
    const QString path = m_dir.filePath("emptystring.txt");
    RecordingHost saver(&camera);
    QVERIFY(DeviceSettingsJob(&saver, &camera).Save(path));
    camera.SetString("DeviceUserID", "changed");
    RecordingHost loader(&camera);
    QVERIFY(DeviceSettingsJob(&loader, &camera).Load(path));
    QCOMPARE(loader.Texts(4), QStringList{kLoaded + path});
    char text[128] = {'x'};
    camera.GetString("DeviceUserID", text, sizeof text);
    QCOMPARE(QByteArray(text), QByteArray());
}

void TestDeviceSettingsFile::readOnlyFeatureIsSkipped() {
    const QString path =
        WriteFile(m_dir.path(), "readonly.txt", "SensorWidth UInt32 100\nWidth UInt32 320\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QVERIFY(!host.WrittenNames().join(',').contains("SensorWidth"));
    QCOMPARE(host.Texts(4), QStringList{kLoaded + path});
    QCOMPARE(m_camsim.Camera().GetUInt32("SensorWidth"), 1280u);
}

void TestDeviceSettingsFile::longExposureAppliesBecauseItIsWrittenLast() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.46"), qPrintable(camsim.Error()));
    CKorvatinCamera& camera = camsim.Camera();
    camera.SetUInt32("FrameRate", 30);
    // At 30 frames per second a 90 ms exposure does not fit the frame period.
    QVERIFY_THROWS_EXCEPTION(std::exception, camera.SetUInt32("Exposure", 90000));
    const QString path = WriteFile(m_dir.path(), "exposure.txt",
                                   "Exposure UInt32 90000\nHDRp1 UInt32 60000\n"
                                   "HDRp2 UInt32 30000\nFrameRate UInt32 10\n");
    CDialogLoadDeviceSettings load(&camera, nullptr);
    QCOMPARE(runDialog(load, "pushButton_load_settings", path), QStringList{kLoaded + path});
    QCOMPARE(camera.GetUInt32("FrameRate"), 10u);
    QCOMPARE(camera.GetUInt32("Exposure"), 90000u);
    QCOMPARE(camera.GetUInt32("HDRp1"), 60000u);
    QCOMPARE(camera.GetUInt32("HDRp2"), 30000u);
}

void TestDeviceSettingsFile::unknownTypeWordFailsAtWrite() {
    const QString path =
        WriteFile(m_dir.path(), "unknowntype.txt", "Width Number 640\nHeight UInt32 480\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(host.Writes().at(host.Writes().size() - 2).type, -1);
    QCOMPARE(host.Texts(4),
             QStringList{kLoaded + path + kFirstError + "Width : Node type is not supported."});
}

void TestDeviceSettingsFile::firstErrorIsKeptAndLaterOnesDropped() {
    const QString path = WriteFile(m_dir.path(), "errors.txt",
                                   "Width UInt32 641\nBlackLevel Int32 1000\nHeight UInt32 480\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    const QString message = host.Texts(4).value(0);
    QVERIFY2(message.startsWith(kLoaded + path + kFirstError + "Width : "), qPrintable(message));
    QVERIFY(!message.contains("BlackLevel"));
    // The load goes on after an error.
    QCOMPARE(m_camsim.Camera().GetUInt32("Height"), 480u);
}

void TestDeviceSettingsFile::unknownFeatureEndsTheApplyWithItsText() {
    CKorvatinCamera& camera = m_camsim.Camera();
    camera.SetUInt32("Height", 960);
    const QString path = WriteFile(m_dir.path(), "unknownfeature.txt",
                                   "Width UInt32 640\nNoSuchFeature UInt32 1\nHeight UInt32 480\n");
    RecordingHost host(&camera);
    QVERIFY(!DeviceSettingsJob(&host, &camera).Load(path));
    const QString message = host.Texts(4).value(0);
    QVERIFY2(message.startsWith(kLoaded + path + kFirstError), qPrintable(message));
    QVERIFY2(message.contains("NoSuchFeature"), qPrintable(message));
    QCOMPARE(camera.GetUInt32("Height"), 960u);
}

void TestDeviceSettingsFile::unparsableLineIsRefusedBeforeAnyWrite() {
    const QString path =
        WriteFile(m_dir.path(), "unparsable.txt", "Width UInt32 640\nHeight UInt32 tall\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(
        host.Texts(4),
        QStringList{"Loading device settings failed: Failed to parse line: Height UInt32 tall"});
    QVERIFY(host.Writes().isEmpty());
}

void TestDeviceSettingsFile::missingFileIsRefused() {
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(m_dir.filePath("missing.txt")));
    QCOMPARE(host.Texts(4), QStringList{"Loading device settings failed: Failed to open file."});
    QCOMPARE(host.Events().first().first, 1);
}

void TestDeviceSettingsFile::emptyFileIsRefusedBeforeAnyWrite() {
    const QString path = WriteFile(m_dir.path(), "empty.txt", "");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(host.Texts(4), QStringList{"Loading device settings failed: The file holds no "
                                        "device settings."});
    QVERIFY(host.Writes().isEmpty());
}

void TestDeviceSettingsFile::aLutTableIsRefusedBeforeAnyWriteNamingTheFile() {
    QByteArray table;
    for (int k = 0; k < 1024; ++k)
        table += QByteArray::number(1023 - k) + "\n";
    const QString path = WriteFile(m_dir.path(), "table.csv", table);
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(host.Texts(4),
             QStringList{"Loading device settings failed: " + path +
                         " is not a device settings file: no line reads \"name type value\" "
                         "with a type such as UInt32, Boolean or Enumeration."});
    // Not even the preparation writes (exposure, offsets) were made.
    QVERIFY(host.Writes().isEmpty());
}

void TestDeviceSettingsFile::aLoadThatChangesThePersistentNetworkConfigurationSaysSo() {
    CKorvatinCamera& camera = m_camsim.Camera();
    const uint32_t address = camera.GetUInt32("GevPersistentIPAddress");
    const uint32_t other = address == 0xC0A80A0Au ? 0xC0A80A0Bu : 0xC0A80A0Au;
    const QString mask = QString::number(camera.GetUInt32("GevPersistentSubnetMask"));
    const QString path =
        WriteFile(m_dir.path(), "network.txt",
                  QString("GevPersistentIPAddress UInt32 %1\nGevPersistentSubnetMask UInt32 %2\n"
                          "Height UInt32 480\n")
                      .arg(other)
                      .arg(mask)
                      .toLatin1());
    RecordingHost host(&camera);
    QVERIFY(DeviceSettingsJob(&host, &camera).Load(path));
    // Only the value that changed is named.
    QCOMPARE(host.Texts(4),
             QStringList{kLoaded + path +
                         "\n\nThe camera's persistent network configuration was changed "
                         "(GevPersistentIPAddress); it applies from the camera's next reset. "
                         "Every camera this file is loaded into is given the same "
                         "configuration."});
    QCOMPARE(camera.GetUInt32("GevPersistentIPAddress"), other);

    // Loaded again, nothing changes, and nothing is said.
    RecordingHost again(&camera);
    QVERIFY(DeviceSettingsJob(&again, &camera).Load(path));
    QCOMPARE(again.Texts(4), QStringList{kLoaded + path});
    camera.SetUInt32("GevPersistentIPAddress", address);
}

void TestDeviceSettingsFile::binaryFileEndsWithOneFinishedEvent() {
    QByteArray bytes(64 * 1024, '\0');
    QRandomGenerator generator(7);
    for (char& byte : bytes)
        byte = char(generator.bounded(256));
    const QString path = WriteFile(m_dir.path(), "binary.bin", bytes);
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(host.Texts(4).size(), 1);
    QCOMPARE(host.Events().last().first, 4);
    // The camera still answers.
    QVERIFY(m_camsim.Camera().GetUInt32("Width") > 0);
}

void TestDeviceSettingsFile::oneVeryLongLineIsRefusedNamingTheLine() {
    const QString path = WriteFile(m_dir.path(), "longline.txt", QByteArray(1 << 20, 'W'));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    const QString message = host.Texts(4).value(0);
    QVERIFY2(message.startsWith("Loading device settings failed: Feature name too long "
                                "(1048576 bytes, at most 63) in line 1: WWW"),
             qPrintable(message.left(200)));
    QVERIFY(host.Writes().isEmpty());
}

void TestDeviceSettingsFile::nameOf64BytesIsRefusedNamingTheLine() {
    const QByteArray name(64, 'N');
    const QString path =
        WriteFile(m_dir.path(), "longname.txt", "Width UInt32 640\n" + name + " UInt32 1\n");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QCOMPARE(host.Texts(4),
             QStringList{"Loading device settings failed: Feature name too long (64 bytes, at most "
                         "63) in line 2: " +
                         name + " UInt32 1"});
    QVERIFY(host.Writes().isEmpty());
    // 63 bytes fit: the line is read and fails only as an unknown feature.
    const QString fits = WriteFile(m_dir.path(), "name63.txt", name.left(63) + " UInt32 1\n");
    RecordingHost second(&m_camsim.Camera());
    QVERIFY(!DeviceSettingsJob(&second, &m_camsim.Camera()).Load(fits));
    QVERIFY(second.Texts(4).value(0).contains(kFirstError));
}

void TestDeviceSettingsFile::fileRemovedDuringTheJobStillLoads() {
    const QString path =
        WriteFile(m_dir.path(), "vanishing.txt", "Width UInt32 640\nHeight UInt32 480\n");
    RecordingHost host(&m_camsim.Camera());
    bool removed = false;
    host.write = [&](const TCameraNodeSetting& s, QString& error) {
        if (!removed)
            removed = QFile::remove(path);
        return WriteDirect(m_camsim.Camera(), s, error);
    };
    QVERIFY(DeviceSettingsJob(&host, &m_camsim.Camera()).Load(path));
    QVERIFY(removed);
    QCOMPARE(m_camsim.Camera().GetUInt32("Height"), 480u);
}

void TestDeviceSettingsFile::cameraKilledDuringTheJobEndsWithItsError() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.47"), qPrintable(camsim.Error()));
    const QString path =
        WriteFile(m_dir.path(), "killed.txt", "PixelFormat Enumeration Mono16\nWidth UInt32 640\n");
    RecordingHost host(&camsim.Camera());
    host.write = [&](const TCameraNodeSetting& s, QString& error) {
        camsim.Process().kill();
        return WriteDirect(camsim.Camera(), s, error);
    };
    QVERIFY(!DeviceSettingsJob(&host, &camsim.Camera()).Load(path));
    QCOMPARE(host.Texts(4).size(), 1);
    // The write's error, or a lookup's that ended the load after it.
    QVERIFY2(host.Texts(4).first().startsWith(kLoaded + path + kFirstError),
             qPrintable(host.Texts(4).first()));
}

void TestDeviceSettingsFile::loadDialogRebuildsTheTreeBeforeItsMessageAndResetsProgress() {
    const QString path = WriteFile(m_dir.path(), "rebuild.txt", "Width UInt32 640\n");
    CDialogLoadDeviceSettings load(&m_camsim.Camera(), nullptr);
    int rebuilds = 0;
    bool boxOpenAtRebuild = true;
    load.SetFeatureTreeRebuild([&] {
        ++rebuilds;
        boxOpenAtRebuild = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()) != nullptr;
        throw CKorvatinException("ignored", QRN_ERR_IO);
    });
    QCOMPARE(runDialog(load, "pushButton_load_settings", path), QStringList{kLoaded + path});
    QCOMPARE(rebuilds, 1);
    QVERIFY(!boxOpenAtRebuild);
    QCOMPARE(load.findChild<QProgressBar*>("progressBar")->value(), 0);
    QVERIFY(load.findChild<QPushButton*>("pushButton_load_settings")->isEnabled());
    QVERIFY(load.findChild<QPushButton*>("pushButton_browse")->isEnabled());
}

void TestDeviceSettingsFile::saveDialogKeepsItsProgress() {
    const QString path = m_dir.filePath("progress.txt");
    CDialogSaveDeviceSettings save(&m_camsim.Camera(), nullptr);
    runDialog(save, "pushButton_save_settings", path);
    QCOMPARE(save.findChild<QProgressBar*>("progressBar")->value(), 100);
    uitest::SaveScreenshot(&save, "dialog_save_device_settings");
}

void TestDeviceSettingsFile::emptyFileNameStartsNothing() {
    CDialogSaveDeviceSettings save(&m_camsim.Camera(), nullptr);
    CDialogLoadDeviceSettings load(&m_camsim.Camera(), nullptr);
    for (QDialog* dialog : {static_cast<QDialog*>(&save), static_cast<QDialog*>(&load)}) {
        MessageBoxWatcher boxes;
        dialog->show();
        const QString button =
            dialog == &save ? "pushButton_save_settings" : "pushButton_load_settings";
        dialog->findChild<QPushButton*>(button)->click();
        QCOMPARE(boxes.texts, QStringList{"File name not specified!"});
        QVERIFY(!static_cast<CDialogProgressThreadEvent*>(dialog)->IsBusy());
    }
}

void TestDeviceSettingsFile::dialogsShowTheirTitlesLabelsAndButtons() {
    CDialogSaveDeviceSettings save(&m_camsim.Camera(), nullptr);
    QCOMPARE(save.windowTitle(), QString("Save Device Settings"));
    QCOMPARE(save.findChild<QLabel*>("label")->text(), QString("Save To:"));
    QCOMPARE(save.findChild<QPushButton*>("pushButton_browse")->text(), QString("Browse"));
    QCOMPARE(save.findChild<QPushButton*>("pushButton_save_settings")->text(),
             QString("Save Settings"));
    QVERIFY(save.findChild<QLineEdit*>("lineEdit_fileName"));
    QVERIFY(save.findChild<QProgressBar*>("progressBar"));
    CDialogLoadDeviceSettings load(&m_camsim.Camera(), nullptr);
    QCOMPARE(load.windowTitle(), QString("Load Device Settings"));
    QCOMPARE(load.findChild<QLabel*>("label")->text(), QString("Load From:"));
    QCOMPARE(load.findChild<QPushButton*>("pushButton_load_settings")->text(),
             QString("Load Settings"));
    QVERIFY(load.findChild<QLineEdit*>("lineEdit_fileName"));
    load.show();
    uitest::SaveScreenshot(&load, "dialog_load_device_settings");
}

void TestDeviceSettingsFile::browseOffersTheCaptionsAndFilters() {
    CDialogSaveDeviceSettings save(&m_camsim.Camera(), nullptr);
    CDialogLoadDeviceSettings load(&m_camsim.Camera(), nullptr);
    struct Case {
        QDialog* dialog;
        QString caption;
        QString filter;
    };
    for (const Case& c : {Case{&save, "Save Settings", "Device Settings File(*)"},
                          Case{&load, "Load Device Settings", "Device Settings File (*)"}}) {
        c.dialog->show();
        c.dialog->findChild<QLineEdit*>("lineEdit_fileName")->setText("kept");
        const auto [caption, filters] =
            uitest::BrowseAndCancel(this, c.dialog->findChild<QPushButton*>("pushButton_browse"));
        QCOMPARE(caption, c.caption);
        QCOMPARE(filters, QStringList{c.filter});
        // Cancelling keeps the name already there.
        QCOMPARE(c.dialog->findChild<QLineEdit*>("lineEdit_fileName")->text(), QString("kept"));
    }
}

QTEST_MAIN(TestDeviceSettingsFile)
#include "tst_devicesettingsfile.moc"
