// The program's configuration: settings.ini read once at start-up, recording settings written back.
#include "appsettings.h"

#include <QDir>
#include <QFileInfo>

namespace {

struct KeyDefault {
    const char* key;
    QVariant value;
};

// Every default is typed, so a missing key converts exactly like a present one.
const KeyDefault* keyDefaults(int* count) {
    static const KeyDefault defaults[] = {
        {"host/programXML", QVariant(false)},
        {"host/showDropFrame", QVariant(false)},
        {"host/discoveryTimeout", QVariant(int(100))},
        {"host/GVCPTimeOut", QVariant(int(5))},
        {"host/getFrameTimeout", QVariant(int(50))},
        {"host/heartbeat", QVariant(false)},
        {"host/localXml", QVariant(QString())},
        {"avi/aviFileName", QVariant(QString("myrecord.avi"))},
        {"avi/maxRecordedFrames", QVariant(int(0))},
        {"resource/allocatedBuffersCount", QVariant(int(10))},
        {"resource/maxBitsPerPixel", QVariant(int(0))},
    };
    *count = int(sizeof(defaults) / sizeof(defaults[0]));
    return defaults;
}

} // namespace

QString CAppSettings::FileNameFor(const QString& programDir) {
    const QFileInfo folder(programDir);
    if (folder.isDir() && folder.isWritable())
        return QDir(programDir).filePath("settings.ini");
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configHome.isEmpty() || QDir::isRelativePath(configHome))
        configHome = QDir::homePath() + "/.config";
    return configHome + "/korvatin-viewlane/settings.ini";
}

QVariant CAppSettings::DefaultValue(const QString& key) {
    int count = 0;
    const KeyDefault* defaults = keyDefaults(&count);
    for (int i = 0; i < count; ++i) {
        if (key == QLatin1String(defaults[i].key))
            return defaults[i].value;
    }
    return QVariant();
}

// A value that does not convert becomes 0 or false, silently: the consumers apply their own
// limits.
CAppSettings::CAppSettings(const QString& fileName)
    : QSettings(fileName, QSettings::IniFormat),
      programXML(value("host/programXML", DefaultValue("host/programXML")).toBool()),
      showDropFrame(value("host/showDropFrame", DefaultValue("host/showDropFrame")).toBool()),
      discoveryTimeout(
          value("host/discoveryTimeout", DefaultValue("host/discoveryTimeout")).toInt()),
      GVCPTimeOut(value("host/GVCPTimeOut", DefaultValue("host/GVCPTimeOut")).toInt()),
      getFrameTimeout(value("host/getFrameTimeout", DefaultValue("host/getFrameTimeout")).toInt()),
      heartbeat(value("host/heartbeat", DefaultValue("host/heartbeat")).toBool()),
      localXml(value("host/localXml", DefaultValue("host/localXml")).toString()),
      aviFileName(value("avi/aviFileName", DefaultValue("avi/aviFileName")).toString()),
      maxRecordedFrames(
          value("avi/maxRecordedFrames", DefaultValue("avi/maxRecordedFrames")).toInt()),
      allocatedBuffersCount(
          value("resource/allocatedBuffersCount", DefaultValue("resource/allocatedBuffersCount"))
              .toInt()),
      maxBitsPerPixel(
          value("resource/maxBitsPerPixel", DefaultValue("resource/maxBitsPerPixel")).toInt()) {}

void CAppSettings::SaveRecordingSettings() {
    setValue("avi/aviFileName", aviFileName);
    setValue("avi/maxRecordedFrames", maxRecordedFrames);
    sync();
}
