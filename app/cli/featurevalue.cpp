// Feature values as text: how viewlane-cli prints a node's value and parses a new one.
#include "featurevalue.h"

#include <korvatin/korvatinexception.h>
#include <korvatin/qrnerror.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <list>
#include <vector>

namespace {

// Reads a text through one of the SDK's (buffer, size, length) getters, growing the buffer when
// the text was cut.
template <typename Getter> std::string readText(Getter getter) {
    std::vector<char> buffer(256);
    unsigned long length = 0;
    getter(buffer.data(), buffer.size(), &length);
    if (length + 1 > buffer.size()) {
        buffer.assign(length + 1, '\0');
        getter(buffer.data(), buffer.size(), &length);
    }
    return std::string(buffer.data());
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// An integer in decimal or 0x hex, with an optional sign; false when the text is anything else.
bool parseInteger(const std::string& text, long long* value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front())))
        return false;
    std::string digits = text;
    bool negative = false;
    if (digits[0] == '-' || digits[0] == '+') {
        negative = digits[0] == '-';
        digits.erase(0, 1);
    }
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits.erase(0, 2);
    }
    if (digits.empty() || digits[0] == '-' || digits[0] == '+')
        return false;
    unsigned long long magnitude = 0;
    const auto result =
        std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
    if (result.ptr != digits.data() + digits.size())
        return false;
    if (result.ec == std::errc::result_out_of_range)
        magnitude = ~0ull;
    else if (result.ec != std::errc())
        return false;
    if (magnitude > 0xFFFFFFFFull + 1)
        magnitude = 0xFFFFFFFFull + 2; // far outside every 32-bit range, still representable
    *value = negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    return true;
}

std::string formatDouble(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::string(buffer, result.ptr);
}

[[noreturn]] void fail(const std::string& message, QRN_ERROR code) {
    throw CKorvatinException(message, code);
}

} // namespace

std::string CFeatureValue::TypeWord(QrnParamDataType type) {
    return QrnParamDataTypeName(type);
}

const char* CFeatureValue::AccessWord(CKorvatinGenICamNodeT::EAccessMode mode) {
    switch (mode) {
    case CKorvatinGenICamNodeT::NI:
        return "NI";
    case CKorvatinGenICamNodeT::NA:
        return "NA";
    case CKorvatinGenICamNodeT::WO:
        return "WO";
    case CKorvatinGenICamNodeT::RO:
        return "RO";
    case CKorvatinGenICamNodeT::RW:
        return "RW";
    }
    return "NI";
}

std::string CFeatureValue::Name(const CKorvatinGenICamNodeT& node) {
    return readText([&](char* b, unsigned long s, unsigned long* l) { node.Name(b, s, l); });
}

std::string CFeatureValue::DisplayName(const CKorvatinGenICamNodeT& node) {
    return readText([&](char* b, unsigned long s, unsigned long* l) { node.DisplayName(b, s, l); });
}

std::string CFeatureValue::Read(const CKorvatinGenICamNodeT& node) {
    switch (node.DataType()) {
    case QRN_PARAM_UINT32:
    case QRN_PARAM_INT32:
        // Shown at full width: a 48-bit MAC or a 64-bit counter is a value, not an error.
        return std::to_string(node.GetInt64());
    case QRN_PARAM_BOOLEAN:
        return node.GetBool() ? "true" : "false";
    case QRN_PARAM_FLOAT: {
        const std::string value = formatDouble(node.GetDouble());
        const std::string unit = readText(
            [&](char* b, unsigned long s, unsigned long* l) { node.GetDoubleUnit(b, s, l); });
        return unit.empty() ? value : value + " " + unit;
    }
    case QRN_PARAM_STRING:
        return readText(
            [&](char* b, unsigned long s, unsigned long* l) { node.GetString(b, s, l); });
    case QRN_PARAM_ENUMERATION:
        return readText([&](char* b, unsigned long s, unsigned long* l) { node.GetEnum(b, s, l); });
    case QRN_PARAM_ENUMENTRY:
        return readText([&](char* b, unsigned long s, unsigned long* l) {
            node.GetEnumEntrySymbolic(b, s, l);
        });
    case QRN_PARAM_COMMAND:
    case QRN_PARAM_CATEGORY:
    default:
        return std::string();
    }
}

void CFeatureValue::Write(CKorvatinGenICamNodeT& node, const std::string& text) {
    const std::string name = Name(node);
    const QrnParamDataType type = node.DataType();
    const std::string typeWord = TypeWord(type);
    if (type == QRN_PARAM_CATEGORY || type == QRN_PARAM_ENUMENTRY || type > QRN_PARAM_CATEGORY)
        fail(name + " is of type " + typeWord + " and has no value to set", QRN_ERR_INVALID);

    const CKorvatinGenICamNodeT::EAccessMode access = node.AccessMode();
    if (access != CKorvatinGenICamNodeT::WO && access != CKorvatinGenICamNodeT::RW)
        fail(name + " is not writable (access mode " + AccessWord(access) + ")", QRN_ERR_ACCESS);

    const auto wrongType = [&](const char* expected) {
        fail("\"" + text + "\" is not a valid value for " + name + " (" + typeWord +
                 "): expected " + expected,
             QRN_ERR_INVALID);
    };
    const auto outOfRange = [&](const std::string& min, const std::string& max) {
        fail("value " + text + " is out of range for " + name + " (" + min + " to " + max + ")",
             QRN_ERR_RANGE);
    };

    switch (type) {
    case QRN_PARAM_UINT32: {
        long long value = 0;
        if (!parseInteger(text, &value))
            wrongType("an unsigned integer, decimal or 0x hex");
        const long long min = node.GetUInt32Min();
        const long long max = node.GetUInt32Max();
        if (value < min || value > max)
            outOfRange(std::to_string(min), std::to_string(max));
        node.SetUInt32(uint32_t(value));
        return;
    }
    case QRN_PARAM_INT32: {
        long long value = 0;
        if (!parseInteger(text, &value))
            wrongType("an integer, decimal or 0x hex");
        const long long min = node.GetInt32Min();
        const long long max = node.GetInt32Max();
        if (value < min || value > max)
            outOfRange(std::to_string(min), std::to_string(max));
        node.SetInt32(int32_t(value));
        return;
    }
    case QRN_PARAM_BOOLEAN: {
        const std::string word = lower(text);
        if (word == "true" || word == "1")
            node.SetBool(true);
        else if (word == "false" || word == "0")
            node.SetBool(false);
        else
            wrongType("true or false");
        return;
    }
    case QRN_PARAM_COMMAND: {
        const std::string word = lower(text);
        if (word != "1" && word != "execute" && word != "true")
            wrongType("1 or execute, to execute the command");
        node.ExecuteCommand();
        return;
    }
    case QRN_PARAM_FLOAT: {
        errno = 0;
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (text.empty() || std::isspace(static_cast<unsigned char>(text.front())) ||
            *end != '\0' || errno == ERANGE || !std::isfinite(value))
            wrongType("a number");
        const double min = node.GetDoubleMin();
        const double max = node.GetDoubleMax();
        if (value < min || value > max)
            outOfRange(formatDouble(min), formatDouble(max));
        node.SetDouble(value);
        return;
    }
    case QRN_PARAM_STRING: {
        const int maxLength = node.GetStringMaxLength();
        if (maxLength > 0 && text.size() > size_t(maxLength))
            fail("\"" + text + "\" is longer than the " + std::to_string(maxLength) +
                     " characters " + name + " holds",
                 QRN_ERR_RANGE);
        node.SetString(text.c_str());
        return;
    }
    case QRN_PARAM_ENUMERATION: {
        std::list<CKorvatinGenICamNodeT> entries;
        node.GetEnumEntries(&entries);
        std::string names;
        long long number = 0;
        const bool numeric = parseInteger(text, &number);
        for (const CKorvatinGenICamNodeT& entry : entries) {
            const std::string symbolic = readText([&](char* b, unsigned long s, unsigned long* l) {
                entry.GetEnumEntrySymbolic(b, s, l);
            });
            if (symbolic == text || (numeric && entry.GetEnumEntryValue() == number)) {
                node.SetEnumByString(symbolic.c_str());
                return;
            }
            names += (names.empty() ? "" : ", ") + symbolic;
        }
        fail("\"" + text + "\" is not an entry of " + name + " (entries: " + names + ")",
             QRN_ERR_INVALID);
    }
    default:
        break;
    }
}
