// One feature value in transit between a maintenance job and the thread that writes it.
#include "cameranodesetting.h"

#include <korvatin/korvatincamera.h>

#include <cstring>

namespace {

// Indexed by type code. The last slot is empty and never matches a word of a file.
const char* const kTypeWords[] = {"UInt32", "Int32",       "Boolean",   "Command",  "Float",
                                  "String", "Enumeration", "EnumEntry", "Category", ""};
constexpr int kTypeWordCount = 9;

} // namespace

TCameraNodeSetting::TCameraNodeSetting() : name{}, type(kUnsupportedType), value{} {}

TCameraNodeSetting::TCameraNodeSetting(const char* nodeName, int nodeType, const void* bytes)
    : name{}, type(nodeType), value{} {
    if (nodeName != nullptr)
        std::strncpy(name, nodeName, kNameSize - 1);
    if (bytes != nullptr)
        std::memcpy(&value, bytes, kValueSize);
    switch (type) {
    case QRN_PARAM_UINT32:
        valueText = QString::number(value.uint32Value);
        break;
    case QRN_PARAM_INT32:
        valueText = QString::number(value.int32Value);
        break;
    case QRN_PARAM_BOOLEAN:
        valueText = QString::number(int(value.boolValue));
        break;
    case QRN_PARAM_STRING:
    case QRN_PARAM_ENUMERATION:
        // The text is NUL-terminated within the buffer; the last byte is never part of it.
        valueText = QString::fromLocal8Bit(value.text, qsizetype(strnlen(value.text, kValueSize)));
        break;
    default:
        valueText = "no_value_unsupported_datatype";
        break;
    }
}

QString TCameraNodeSetting::TypeWord(int type) {
    if (type < 0 || type >= kTypeWordCount)
        return "Unsupported_type";
    return kTypeWords[type];
}

int TCameraNodeSetting::TypeOfWord(const QString& word) {
    for (int type = 0; type < kTypeWordCount; ++type) {
        if (word == kTypeWords[type])
            return type;
    }
    return kUnsupportedType;
}

TCameraNodeSetting TCameraNodeSetting::UInt32(const char* name, uint32_t number) {
    Value bytes{};
    bytes.uint32Value = number;
    return TCameraNodeSetting(name, QRN_PARAM_UINT32, &bytes);
}

std::string TextOf(const TCameraNodeSetting& setting) {
    return std::string(setting.value.text,
                       strnlen(setting.value.text, TCameraNodeSetting::kValueSize));
}

void RegisterCameraNodeSettingMetaType() {
    qRegisterMetaType<TCameraNodeSetting>("TCameraNodeSetting");
}

void WriteCameraNodeSetting(CKorvatinCamera& camera, const TCameraNodeSetting& setting) {
    switch (setting.type) {
    case QRN_PARAM_UINT32:
        camera.SetUInt32(setting.name, setting.value.uint32Value);
        break;
    case QRN_PARAM_INT32:
        camera.SetInt32(setting.name, setting.value.int32Value);
        break;
    case QRN_PARAM_BOOLEAN:
        camera.SetBool(setting.name, setting.value.boolValue != 0);
        break;
    case QRN_PARAM_STRING:
        camera.SetString(setting.name, TextOf(setting).c_str());
        break;
    case QRN_PARAM_ENUMERATION:
        camera.SetEnumByString(setting.name, TextOf(setting).c_str());
        break;
    default:
        throw CKorvatinException("Node type is not supported.", QRN_ERR_UNSUPPORTED);
    }
}
