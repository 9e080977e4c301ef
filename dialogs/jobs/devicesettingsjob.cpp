// Saving a camera's feature values to a device settings file and writing them back.
#include "devicesettingsjob.h"

#include "maintenancejobhost.h"

#include <korvatin/korvatincamera.h>

#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>

#include <cstdio>
#include <list>

namespace {

// Written last, after the frame rate and everything else that bounds them.
bool isDeferred(const char* name) {
    return qstrcmp(name, "Exposure") == 0 || qstrcmp(name, "HDRp1") == 0 ||
           qstrcmp(name, "HDRp2") == 0;
}

bool isWritable(CKorvatinGenICamNodeT::EAccessMode mode) {
    return mode == CKorvatinGenICamNodeT::WO || mode == CKorvatinGenICamNodeT::RW;
}

[[noreturn]] void fail(const QString& message) {
    throw CKorvatinException(message.toLocal8Bit().toStdString(), QRN_ERR_INVALID);
}

// One line of the file as a setting: name, type word and the first word after it as the value.
// Throws "Failed to parse line: ..." when the value does not scan as its type.
TCameraNodeSetting parseLine(const QString& line, const QStringList& words, int lineNumber) {
    const QByteArray name = words.value(0).toLocal8Bit();
    if (name.size() >= TCameraNodeSetting::kNameSize)
        fail(QString("Feature name too long (%1 bytes, at most %2) in line %3: %4")
                 .arg(name.size())
                 .arg(TCameraNodeSetting::kNameSize - 1)
                 .arg(lineNumber)
                 .arg(line));
    const int type = TCameraNodeSetting::TypeOfWord(words.value(1));
    const QByteArray valueWord = words.value(2).toLocal8Bit();
    TCameraNodeSetting::Value value{};
    int scanned = 1;
    switch (type) {
    case QRN_PARAM_UINT32:
        scanned = std::sscanf(valueWord.constData(), "%u", &value.uint32Value);
        break;
    case QRN_PARAM_INT32:
        scanned = std::sscanf(valueWord.constData(), "%d", &value.int32Value);
        break;
    case QRN_PARAM_BOOLEAN: {
        int flag = 0;
        scanned = std::sscanf(valueWord.constData(), "%d", &flag);
        value.boolValue = flag != 0 ? 1 : 0;
        break;
    }
    case QRN_PARAM_STRING:
        // The save writes an empty string as nothing after the type word; it loads back empty.
        if (words.size() < 3)
            break;
        [[fallthrough]];
    case QRN_PARAM_ENUMERATION:
        // One word, cut to the buffer with room for its NUL.
        scanned = std::sscanf(valueWord.constData(), "%127s", value.text);
        break;
    default:
        break;
    }
    if (scanned != 1)
        fail("Failed to parse line: " + line);
    return TCameraNodeSetting(name.constData(), type, &value);
}

// The features of the camera's persistent network configuration: a file saved from one camera
// gives every camera it is loaded into the same address after their next reset.
const QStringList& persistentNetworkNames() {
    static const QStringList names = {
        "GevPersistentIPAddress",        "GevPersistentSubnetMask",
        "GevPersistentDefaultGateway",   "GevCurrentIPConfigurationPersistentIP",
        "GevCurrentIPConfigurationDHCP", "GevCurrentIPConfigurationLLA"};
    return names;
}

// Reads `node`'s value into `value` by its type: true for the five types a settings file holds,
// false (nothing read) for every other.
bool readValue(const CKorvatinGenICamNodeT& node, QrnParamDataType type,
               TCameraNodeSetting::Value& value) {
    switch (type) {
    case QRN_PARAM_UINT32:
        value.uint32Value = node.GetUInt32();
        return true;
    case QRN_PARAM_INT32:
        value.int32Value = node.GetInt32();
        return true;
    case QRN_PARAM_BOOLEAN:
        value.boolValue = node.GetBool() ? 1 : 0;
        return true;
    case QRN_PARAM_STRING:
        node.GetString(value.text, sizeof value.text, nullptr);
        return true;
    case QRN_PARAM_ENUMERATION:
        node.GetEnum(value.text, 64, nullptr);
        return true;
    default:
        return false;
    }
}

} // namespace

const QStringList& DeviceSettingsJob::ExcludedNames() {
    static const QStringList names = {"LUTIndex", "LUTValue", "CCMIndex", "CCMValue"};
    return names;
}

DeviceSettingsJob::DeviceSettingsJob(CMaintenanceJobHost* host, CKorvatinCamera* camera)
    : m_host(host), m_camera(camera) {}

bool DeviceSettingsJob::Save(const QString& fileName) {
    m_host->SendThreadEvent(CMaintenanceJobHost::Started, 0, nullptr);
    try {
        const CKorvatinGenICamNodeT root = m_camera->GetGENiCAMRoot();
        if (root.DataType() != QRN_PARAM_CATEGORY)
            throw CKorvatinException("Root node is not category", QRN_ERR_INVALID);
        m_settings.clear();
        m_visited = 0;
        Walk(root);
        m_host->SendThreadEventNumber(CMaintenanceJobHost::Progress, 100);
        WriteFile(fileName);
    } catch (const std::exception& e) {
        m_host->SendThreadEventText(CMaintenanceJobHost::Finished,
                                    QString("Saving device settings failed: ") +
                                        QString::fromLocal8Bit(e.what()));
        return false;
    }
    m_host->SendThreadEventText(CMaintenanceJobHost::Finished,
                                "Device setting was successfully saved to file: " + fileName);
    return true;
}

void DeviceSettingsJob::SendWalkProgress() {
    if (m_visited <= 100)
        m_host->SendThreadEventNumber(CMaintenanceJobHost::Progress, m_visited++);
    else
        m_host->SendThreadEventNumber(CMaintenanceJobHost::Progress, 0);
}

void DeviceSettingsJob::Walk(const CKorvatinGenICamNodeT& node) {
    SendWalkProgress();
    const QrnParamDataType type = node.DataType();
    char name[128] = {};
    unsigned long nameLength = 0;
    node.Name(name, sizeof name, &nameLength);
    if (ExcludedNames().contains(QString::fromLatin1(name)))
        return;
    if (type == QRN_PARAM_CATEGORY) {
        std::list<CKorvatinGenICamNodeT> features;
        node.GetCategoryFeatures(&features);
        for (const CKorvatinGenICamNodeT& feature : features)
            Walk(feature);
        return;
    }
    TCameraNodeSetting::Value value{};
    if (!readValue(node, type, value))
        return;
    // A line with a cut name would never load back; such a feature stops the save instead.
    if (nameLength >= TCameraNodeSetting::kNameSize)
        fail(QString("Feature name too long (%1 bytes, at most %2): %3")
                 .arg(nameLength)
                 .arg(TCameraNodeSetting::kNameSize - 1)
                 .arg(QString::fromLatin1(name)));
    m_settings.append(TCameraNodeSetting(name, type, &value));
}

void DeviceSettingsJob::WriteFile(const QString& fileName) const {
    // The file appears under its name only once it is whole: a failed write leaves whatever
    // was there before, never a cut-off list.
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly))
        throw CKorvatinException("Failed to open file.", QRN_ERR_IO);
    {
        QTextStream out(&file);
        for (const TCameraNodeSetting& setting : m_settings) {
            out << QString("%1 %2 %3")
                       .arg(QString::fromLocal8Bit(setting.name),
                            TCameraNodeSetting::TypeWord(setting.type), setting.valueText)
                << '\n';
        }
        out.flush();
        if (out.status() != QTextStream::Ok)
            throw CKorvatinException("Failed to write file.", QRN_ERR_IO);
    }
    if (!file.commit())
        throw CKorvatinException("Failed to write file.", QRN_ERR_IO);
}

void DeviceSettingsJob::ReadFile(const QString& fileName) {
    m_settings.clear();
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        throw CKorvatinException("Failed to open file.", QRN_ERR_IO);
    static const QRegularExpression kSpaces("\\s+");
    QTextStream in(&file);
    int lineNumber = 0;
    int settingLines = 0; // lines with a type word and, but for an empty string, a value
    while (!in.atEnd()) {
        const QString line = in.readLine();
        ++lineNumber;
        const QStringList words = line.split(kSpaces, Qt::SkipEmptyParts);
        // A line of nothing but white space carries no setting.
        if (words.isEmpty())
            continue;
        const TCameraNodeSetting setting = parseLine(line, words, lineNumber);
        if (setting.type != TCameraNodeSetting::kUnsupportedType &&
            (words.size() >= 3 || setting.type == QRN_PARAM_STRING))
            ++settingLines;
        if (!ExcludedNames().contains(QString::fromLocal8Bit(setting.name)))
            m_settings.append(setting);
    }
    if (in.status() != QTextStream::Ok || file.error() != QFileDevice::NoError)
        throw CKorvatinException("Failed to read file.", QRN_ERR_IO);
    // Applying nothing would still run the preparation writes (exposure to its minimum,
    // offsets to 0): a file without settings is refused before anything is written.
    if (m_settings.isEmpty())
        throw CKorvatinException("The file holds no device settings.", QRN_ERR_INVALID);
    // A file of another kind (a LUT table, any text) would still run the preparation writes
    // and then fail line by line: without one line that reads "name type value" with a type
    // word, it is refused before anything is written.
    if (!settingLines)
        fail(QString("%1 is not a device settings file: no line reads \"name type value\" with "
                     "a type such as UInt32, Boolean or Enumeration.")
                 .arg(fileName));
}

void DeviceSettingsJob::WriteKeepingFirstError(const TCameraNodeSetting& setting,
                                               QString& firstError) {
    const QString name = QString::fromLocal8Bit(setting.name);
    // A persistent network value is read first, so that a write that changes it is told.
    const bool network = persistentNetworkNames().contains(name);
    QString before;
    bool known = false;
    if (network) {
        try {
            const CKorvatinGenICamNodeT node = m_camera->GetNodeByName(setting.name);
            TCameraNodeSetting::Value value{};
            known = int(node.DataType()) == setting.type &&
                    readValue(node, QrnParamDataType(setting.type), value);
            if (known)
                before = TCameraNodeSetting(setting.name, setting.type, &value).valueText;
        } catch (const std::exception&) {
            known = false; // unread: a successful write counts as a change
        }
    }
    QString error;
    if (!m_host->CameraSet(setting, error)) {
        if (firstError.isEmpty())
            firstError = name + " : " + error;
        return;
    }
    if (network && (!known || before != setting.valueText) && !m_networkChanged.contains(name))
        m_networkChanged.append(name);
}

void DeviceSettingsJob::Apply() {
    m_progressTotal = int32_t(m_settings.size()) + 5;
    m_visited = 0;
    m_networkChanged.clear();
    QString firstError;

    for (const TCameraNodeSetting& setting : m_settings) {
        if (setting.type != QRN_PARAM_ENUMERATION)
            continue;
        if (isWritable(m_camera->GetNodeByName(setting.name).AccessMode()))
            WriteKeepingFirstError(setting, firstError);
    }

    // Room for the values that follow: the exposure and knee points at their minimum and the
    // region at the sensor's corner. Their failures do not count.
    try {
        QString ignored;
        for (const char* name : {"Exposure", "HDRp1", "HDRp2"})
            m_host->CameraSet(TCameraNodeSetting::UInt32(name, m_camera->GetUInt32Min(name)),
                              ignored);
        m_host->CameraSet(TCameraNodeSetting::UInt32("OffsetX", 0), ignored);
        m_host->CameraSet(TCameraNodeSetting::UInt32("OffsetY", 0), ignored);
    } catch (const std::exception&) {
        // A camera without one of these features has nothing more to prepare.
    }

    QList<TCameraNodeSetting> deferred;
    for (const TCameraNodeSetting& setting : m_settings) {
        if (setting.type == QRN_PARAM_ENUMERATION)
            continue;
        if (isWritable(m_camera->GetNodeByName(setting.name).AccessMode())) {
            if (isDeferred(setting.name))
                deferred.append(setting);
            else
                WriteKeepingFirstError(setting, firstError);
        }
        ++m_visited;
        m_host->SendThreadEventNumber(CMaintenanceJobHost::Progress,
                                      m_visited * 100 / m_progressTotal);
    }

    for (const TCameraNodeSetting& setting : deferred) {
        QString ignored;
        m_host->CameraSet(setting, ignored);
    }

    if (!firstError.isEmpty())
        fail(firstError);
}

bool DeviceSettingsJob::Load(const QString& fileName) {
    m_host->SendThreadEvent(CMaintenanceJobHost::Started, 0, nullptr);
    try {
        ReadFile(fileName);
    } catch (const std::exception& e) {
        // Nothing has been written yet: the file is refused as a whole.
        m_host->SendThreadEventText(CMaintenanceJobHost::Finished,
                                    QString("Loading device settings failed: ") +
                                        QString::fromLocal8Bit(e.what()));
        return false;
    }
    QString firstError;
    try {
        Apply();
    } catch (const std::exception& e) {
        firstError = QString::fromLocal8Bit(e.what());
    }
    QString message = "Device setting was successfully loaded from file: " + fileName;
    if (!firstError.isEmpty())
        message += "\n\nThe first error:\n" + firstError;
    if (!m_networkChanged.isEmpty())
        message += "\n\nThe camera's persistent network configuration was changed (" +
                   m_networkChanged.join(", ") +
                   "); it applies from the camera's next reset. Every camera this file is loaded "
                   "into is given the same configuration.";
    m_host->SendThreadEventText(CMaintenanceJobHost::Finished, message);
    return firstError.isEmpty();
}
