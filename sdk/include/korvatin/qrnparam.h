// Feature data types and the attribute record returned by CKorvatinCamera::GetParamAttr.
#pragma once

#include <cstdint>

// Data type of a feature node, as the feature panel and the settings file name them.
enum QrnParamDataType : int32_t {
    QRN_PARAM_UINT32 = 0,      // "UInt32": integer with a minimum of 0 or more
    QRN_PARAM_INT32 = 1,       // "Int32": integer with a negative minimum
    QRN_PARAM_BOOLEAN = 2,     // "Boolean"
    QRN_PARAM_COMMAND = 3,     // "Command"
    QRN_PARAM_FLOAT = 4,       // "Float"
    QRN_PARAM_STRING = 5,      // "String"
    QRN_PARAM_ENUMERATION = 6, // "Enumeration"
    QRN_PARAM_ENUMENTRY = 7,   // "EnumEntry"
    QRN_PARAM_CATEGORY = 8,    // "Category"
    QRN_PARAM_OTHER = 9        // raw registers, ports, struct registers: anything without an editor
};

// The word for a data type ("UInt32" ... "Category"), or "Other" above 8.
const char* QrnParamDataTypeName(QrnParamDataType type);

// What GetParamAttr reports of one feature. `dataType` is 0xFFFFFFFF when the camera does not
// have the feature; the other fields are then zero.
struct QrnParamAttribute {
    uint32_t dataType;   // a QrnParamDataType value, or 0xFFFFFFFF
    uint32_t accessMode; // CKorvatinGenICamNodeT::EAccessMode
    uint32_t cachable;   // 1 when the value may be cached, 0 when it must be polled
    uint32_t reserved;
    char name[128];
    char displayName[128];
};
