// One feature value in transit between a maintenance job and the thread that writes it, and one
// line of a device settings file.
#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <string>

class CKorvatinCamera;

// The value travels as a zero-filled 128-byte union; `valueText` is rendered once, when the
// setting is made, and copied with it.
struct TCameraNodeSetting {
    // Type codes, as QrnParamDataType numbers them, and -1 for a type no word names.
    static constexpr int kUnsupportedType = -1;
    static constexpr int kNameSize = 64;
    static constexpr int kValueSize = 128;

    union Value {
        uint32_t uint32Value;
        int32_t int32Value;
        uint8_t boolValue;
        char text[kValueSize];
    };

    TCameraNodeSetting();
    // Copies `name` (empty when null; the caller keeps it under kNameSize bytes), `type` and all
    // kValueSize bytes of `value`, then renders the value text.
    TCameraNodeSetting(const char* name, int type, const void* value);

    // The type's word ("UInt32" ... "Category"), or "Unsupported_type" for a negative or unknown
    // code: the words of the settings file.
    static QString TypeWord(int type);
    // The code of a type word, -1 for any other text (the empty word included).
    static int TypeOfWord(const QString& word);

    // A UInt32 setting, as the jobs write index registers and preparation values.
    static TCameraNodeSetting UInt32(const char* name, uint32_t value);

    char name[kNameSize];
    int32_t type;
    Value value;
    QString valueText;
};

Q_DECLARE_METATYPE(TCameraNodeSetting)

// Registers TCameraNodeSetting under its own name for queued connections. Safe to call any
// number of times, from any thread.
void RegisterCameraNodeSettingMetaType();

// The text value of a String or Enumeration setting, never read past its buffer.
std::string TextOf(const TCameraNodeSetting& setting);

// Writes `setting` to `camera` by its type: UInt32, Int32, Boolean, String and Enumeration (by
// its symbolic entry name). Throws what the camera throws, and CKorvatinException "Node type is
// not supported." for any other type.
void WriteCameraNodeSetting(CKorvatinCamera& camera, const TCameraNodeSetting& setting);
