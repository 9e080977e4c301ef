// Feature values as text: how viewlane-cli prints a node's value and parses a new one.
#pragma once

#include <korvatin/korvatingenicamnodet.h>

#include <string>

class CFeatureValue {
public:
    // "UInt32", "Int32", "Boolean", "Command", "Float", "String", "Enumeration", "EnumEntry",
    // "Category", or the SDK's word for anything else.
    static std::string TypeWord(QrnParamDataType type);
    // "NI", "NA", "WO", "RO" or "RW".
    static const char* AccessWord(CKorvatinGenICamNodeT::EAccessMode mode);

    // The node's name and display name, however long.
    static std::string Name(const CKorvatinGenICamNodeT& node);
    static std::string DisplayName(const CKorvatinGenICamNodeT& node);

    // The current value: integers in decimal, booleans true/false, floats followed by their unit,
    // enumerations by entry name; empty for categories, commands and nodes without a value.
    // Throws CKorvatinException when the value cannot be read.
    static std::string Read(const CKorvatinGenICamNodeT& node);

    // Parses `text` by the node's type and writes it. Throws CKorvatinException naming the
    // feature when it is not writable, when the text is not a value of its type, or when the
    // value is outside its range.
    static void Write(CKorvatinGenICamNodeT& node, const std::string& text);
};
