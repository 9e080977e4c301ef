// Words for the feature data types, as the feature panel and the settings file write them.
#include "korvatin/qrnparam.h"

const char* QrnParamDataTypeName(QrnParamDataType type) {
    switch (type) {
    case QRN_PARAM_UINT32:
        return "UInt32";
    case QRN_PARAM_INT32:
        return "Int32";
    case QRN_PARAM_BOOLEAN:
        return "Boolean";
    case QRN_PARAM_COMMAND:
        return "Command";
    case QRN_PARAM_FLOAT:
        return "Float";
    case QRN_PARAM_STRING:
        return "String";
    case QRN_PARAM_ENUMERATION:
        return "Enumeration";
    case QRN_PARAM_ENUMENTRY:
        return "EnumEntry";
    case QRN_PARAM_CATEGORY:
        return "Category";
    default:
        return "Other";
    }
}
