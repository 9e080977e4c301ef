// A cheap, copyable handle to one feature node of a connection's GenICam description.
#include "korvatin/korvatingenicamnodet.h"

#include "genicamdescription.h"
#include "gobjectref.h"
#include "korvatin/korvatinexception.h"
#include "korvatin/korvatingenicamnodecallback.h"

#include <arv.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

using korvatin::GErrorPtr;
using korvatin::Out;

namespace {

ArvGcFeatureNode* featureOf(void* node) {
    return static_cast<ArvGcFeatureNode*>(node);
}

const char* nameOf(void* node) {
    const char* name = arv_gc_feature_node_get_name(featureOf(node));
    return name != nullptr ? name : "(unnamed)";
}

// The longest string register read; GenICam strings are names, versions and user texts.
constexpr guint64 kMaxStringBytes = 64 * 1024;

std::string hexText(guint64 value) {
    char text[24];
    std::snprintf(text, sizeof text, "%llX", static_cast<unsigned long long>(value));
    return text;
}

[[noreturn]] void fail(void* node, const std::string& what, QRN_ERROR code) {
    throw CKorvatinException(std::string(nameOf(node)) + ": " + what, code);
}

QRN_ERROR codeOf(const GError* error) {
    if (error->domain == ARV_GC_ERROR) {
        switch (error->code) {
        case ARV_GC_ERROR_OUT_OF_RANGE:
            return QRN_ERR_RANGE;
        case ARV_GC_ERROR_READ_ONLY:
            return QRN_ERR_ACCESS;
        case ARV_GC_ERROR_NODE_NOT_FOUND:
        case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
        case ARV_GC_ERROR_PROPERTY_NOT_DEFINED:
        case ARV_GC_ERROR_PVALUE_NOT_DEFINED:
            return QRN_ERR_NOT_FOUND;
        case ARV_GC_ERROR_NO_DEVICE_SET:
            return QRN_ERR_NOT_CONNECTED;
        default:
            return QRN_ERR_INVALID;
        }
    }
    if (error->domain == ARV_DEVICE_ERROR && error->code == ARV_DEVICE_ERROR_TIMEOUT)
        return QRN_ERR_TIMEOUT;
    return QRN_ERR_IO;
}

// Aravis prefixes its messages with the names of the nodes they passed through
// ("[Width] [WidthRegister] ..."); the feature's own name leads ours instead.
std::string messageOf(const GError* error) {
    std::string message = error->message != nullptr ? error->message : "unknown error";
    while (message.size() > 1 && message[0] == '[') {
        const std::size_t close = message.find("] ");
        if (close == std::string::npos)
            break;
        message.erase(0, close + 2);
    }
    return message;
}

void check(void* node, const GErrorPtr& error) {
    if (error)
        fail(node, messageOf(error.get()), codeOf(error.get()));
}

void copyOut(const char* text, char* buffer, unsigned long size, unsigned long* length) {
    if (text == nullptr)
        text = "";
    const std::size_t full = std::strlen(text);
    if (length != nullptr)
        *length = static_cast<unsigned long>(full);
    if (buffer == nullptr || size == 0)
        return;
    const std::size_t copied = full < size - 1 ? full : size - 1;
    std::memcpy(buffer, text, copied);
    buffer[copied] = '\0';
}

template <typename T> T saturate(int64_t value) {
    if (value < static_cast<int64_t>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (value > static_cast<int64_t>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

// A value read through a 32-bit accessor. Wider features (MAC addresses, timestamps, 64-bit
// counters) give their low 32 bits, as a 32-bit register read of them would; only a negative
// value cannot be an unsigned reading at all.
template <typename T> T fitting(void* node, int64_t value, const char* typeName) {
    if (std::numeric_limits<T>::min() == 0 && value < 0)
        fail(node, "value " + std::to_string(value) + " does not fit in " + typeName,
             QRN_ERR_RANGE);
    return static_cast<T>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

std::string numberText(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

bool isInteger(void* node) {
    return ARV_IS_GC_INTEGER(node) && !ARV_IS_GC_ENUMERATION(node);
}

} // namespace

CKorvatinGenICamNodeT::CKorvatinGenICamNodeT() = default;

CKorvatinGenICamNodeT::CKorvatinGenICamNodeT(const CKorvatinGenICamNodeT& other) = default;

CKorvatinGenICamNodeT&
CKorvatinGenICamNodeT::operator=(const CKorvatinGenICamNodeT& other) = default;

CKorvatinGenICamNodeT::~CKorvatinGenICamNodeT() = default;

CKorvatinGenICamNodeT::CKorvatinGenICamNodeT(
    std::shared_ptr<korvatin::GenicamDescription> description, const char* name)
    : description_(std::move(description)) {
    if (!description_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    node_ = description_->RequireFeature(name);
}

bool CKorvatinGenICamNodeT::IsValid() const {
    return node_ != nullptr && description_ != nullptr;
}

bool CKorvatinGenICamNodeT::operator==(const CKorvatinGenICamNodeT& other) const {
    return node_ == other.node_ && description_ == other.description_;
}

namespace {

void requireValid(const CKorvatinGenICamNodeT& handle) {
    if (!handle.IsValid())
        throw CKorvatinException("The feature node handle is empty", QRN_ERR_INVALID);
}

// For every access that may reach the device.
void requireLive(const CKorvatinGenICamNodeT& handle) {
    requireValid(handle);
    handle.Description()->RequireAttached(nameOf(handle.ArvNode()));
}

void requireType(void* node, bool matches, const char* typeName) {
    if (!matches)
        fail(node, std::string("feature is not of type ") + typeName, QRN_ERR_INVALID);
}

void requireWritable(const CKorvatinGenICamNodeT& handle) {
    const auto mode = handle.AccessMode();
    if (mode != CKorvatinGenICamNodeT::WO && mode != CKorvatinGenICamNodeT::RW)
        fail(handle.ArvNode(),
             mode == CKorvatinGenICamNodeT::NI   ? "feature is not implemented"
             : mode == CKorvatinGenICamNodeT::NA ? "feature is not available"
                                                 : "feature is not writable",
             QRN_ERR_ACCESS);
}

int64_t integerValue(void* node) {
    GErrorPtr error;
    const int64_t value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), Out(error));
    check(node, error);
    return value;
}

// A limit the description does not define is no limit.
int64_t integerMin(void* node) {
    GErrorPtr error;
    const int64_t value = arv_gc_integer_get_min(ARV_GC_INTEGER(node), Out(error));
    if (error && error->domain == ARV_GC_ERROR && error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
        return std::numeric_limits<int64_t>::min();
    check(node, error);
    return value;
}

int64_t integerMax(void* node) {
    GErrorPtr error;
    const int64_t value = arv_gc_integer_get_max(ARV_GC_INTEGER(node), Out(error));
    if (error && error->domain == ARV_GC_ERROR && error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
        return std::numeric_limits<int64_t>::max();
    check(node, error);
    return value;
}

int64_t integerInc(void* node) {
    GErrorPtr error;
    const int64_t value = arv_gc_integer_get_inc(ARV_GC_INTEGER(node), Out(error));
    if (error && error->domain == ARV_GC_ERROR && error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
        return 1;
    check(node, error);
    return value > 0 ? value : 1;
}

double floatMin(void* node) {
    if (isInteger(node))
        return static_cast<double>(integerMin(node));
    GErrorPtr error;
    const double value = arv_gc_float_get_min(ARV_GC_FLOAT(node), Out(error));
    if (error && error->domain == ARV_GC_ERROR && error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
        return -std::numeric_limits<double>::max();
    check(node, error);
    return value;
}

double floatMax(void* node) {
    if (isInteger(node))
        return static_cast<double>(integerMax(node));
    GErrorPtr error;
    const double value = arv_gc_float_get_max(ARV_GC_FLOAT(node), Out(error));
    if (error && error->domain == ARV_GC_ERROR && error->code == ARV_GC_ERROR_PROPERTY_NOT_DEFINED)
        return std::numeric_limits<double>::max();
    check(node, error);
    return value;
}

} // namespace

QrnParamDataType CKorvatinGenICamNodeT::DataType() const {
    requireValid(*this);
    void* node = node_;
    if (ARV_IS_GC_CATEGORY(node))
        return QRN_PARAM_CATEGORY;
    if (ARV_IS_GC_ENUM_ENTRY(node))
        return QRN_PARAM_ENUMENTRY;
    if (ARV_IS_GC_ENUMERATION(node))
        return QRN_PARAM_ENUMERATION;
    if (ARV_IS_GC_BOOLEAN(node))
        return QRN_PARAM_BOOLEAN;
    if (ARV_IS_GC_COMMAND(node))
        return QRN_PARAM_COMMAND;
    if (ARV_IS_GC_INTEGER(node)) {
        // The minimum may come from a register, so this reads the device.
        requireLive(*this);
        return integerMin(node) < 0 ? QRN_PARAM_INT32 : QRN_PARAM_UINT32;
    }
    if (ARV_IS_GC_FLOAT(node))
        return QRN_PARAM_FLOAT;
    if (ARV_IS_GC_STRING(node))
        return QRN_PARAM_STRING;
    return QRN_PARAM_OTHER;
}

CKorvatinGenICamNodeT::EAccessMode CKorvatinGenICamNodeT::AccessMode() const {
    requireLive(*this);
    ArvGcFeatureNode* node = featureOf(node_);
    GErrorPtr error;
    const bool implemented = arv_gc_feature_node_is_implemented(node, Out(error));
    check(node_, error);
    if (!implemented)
        return NI;
    const bool available = arv_gc_feature_node_is_available(node, Out(error));
    check(node_, error);
    if (!available)
        return NA;
    const bool locked = arv_gc_feature_node_is_locked(node, Out(error));
    check(node_, error);
    switch (arv_gc_feature_node_get_actual_access_mode(node)) {
    case ARV_GC_ACCESS_MODE_WO:
        return locked ? NA : WO;
    case ARV_GC_ACCESS_MODE_RW:
        return locked ? RO : RW;
    case ARV_GC_ACCESS_MODE_RO:
    default:
        return RO;
    }
}

bool CKorvatinGenICamNodeT::IsCachable() const {
    requireValid(*this);
    return description_->Dependencies().IsCachable(nameOf(node_));
}

void CKorvatinGenICamNodeT::Name(char* buffer, unsigned long size, unsigned long* length) const {
    requireValid(*this);
    copyOut(nameOf(node_), buffer, size, length);
}

void CKorvatinGenICamNodeT::DisplayName(char* buffer, unsigned long size,
                                        unsigned long* length) const {
    requireValid(*this);
    const char* display = arv_gc_feature_node_get_display_name(featureOf(node_));
    copyOut(display != nullptr && display[0] != '\0' ? display : nameOf(node_), buffer, size,
            length);
}

void CKorvatinGenICamNodeT::ToolTip(char* buffer, unsigned long size, unsigned long* length) const {
    requireValid(*this);
    const char* tip = arv_gc_feature_node_get_tooltip(featureOf(node_));
    if (tip == nullptr || tip[0] == '\0')
        tip = arv_gc_feature_node_get_description(featureOf(node_));
    copyOut(tip, buffer, size, length);
}

void CKorvatinGenICamNodeT::GetCategoryFeatures(std::list<CKorvatinGenICamNodeT>* features) const {
    requireValid(*this);
    requireType(node_, ARV_IS_GC_CATEGORY(node_), "Category");
    if (features == nullptr)
        throw CKorvatinException("GetCategoryFeatures needs a list", QRN_ERR_INVALID);
    for (const GSList* item = arv_gc_category_get_features(ARV_GC_CATEGORY(node_)); item != nullptr;
         item = item->next) {
        const char* name = static_cast<const char*>(item->data);
        // A category may name a feature the description never defines; there is nothing to
        // show for it, so it is left out of the list on purpose.
        if (description_->FindFeature(name) != nullptr)
            features->push_back(CKorvatinGenICamNodeT(description_, name));
    }
}

void CKorvatinGenICamNodeT::GetEnumEntries(std::list<CKorvatinGenICamNodeT>* entries) const {
    requireValid(*this);
    requireType(node_, ARV_IS_GC_ENUMERATION(node_), "Enumeration");
    if (entries == nullptr)
        throw CKorvatinException("GetEnumEntries needs a list", QRN_ERR_INVALID);
    // In the description's order: Aravis keeps its own list of entries the other way round.
    for (ArvDomNode* child = arv_dom_node_get_first_child(ARV_DOM_NODE(node_)); child != nullptr;
         child = arv_dom_node_get_next_sibling(child)) {
        if (!ARV_IS_GC_ENUM_ENTRY(child))
            continue;
        CKorvatinGenICamNodeT entry;
        entry.description_ = description_;
        entry.node_ = child;
        entries->push_back(entry);
    }
}

void CKorvatinGenICamNodeT::GetEnumEntrySymbolic(char* buffer, unsigned long size,
                                                 unsigned long* length) const {
    requireValid(*this);
    requireType(node_, ARV_IS_GC_ENUM_ENTRY(node_), "EnumEntry");
    copyOut(nameOf(node_), buffer, size, length);
}

int64_t CKorvatinGenICamNodeT::GetEnumEntryValue() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_ENUM_ENTRY(node_), "EnumEntry");
    GErrorPtr error;
    const int64_t value = arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(node_), Out(error));
    check(node_, error);
    return value;
}

void CKorvatinGenICamNodeT::GetEnum(char* buffer, unsigned long size, unsigned long* length) const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_ENUMERATION(node_), "Enumeration");
    GErrorPtr error;
    const char* value = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node_), Out(error));
    check(node_, error);
    copyOut(value, buffer, size, length);
}

void CKorvatinGenICamNodeT::SetEnumByString(const char* symbolic) {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_ENUMERATION(node_), "Enumeration");
    if (symbolic == nullptr)
        fail(node_, "no entry name given", QRN_ERR_INVALID);
    requireWritable(*this);
    ArvGcFeatureNode* entry = nullptr;
    for (const GSList* item = arv_gc_enumeration_get_entries(ARV_GC_ENUMERATION(node_));
         item != nullptr; item = item->next) {
        if (ARV_IS_GC_FEATURE_NODE(item->data) &&
            std::strcmp(arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(item->data)), symbolic) ==
                0)
            entry = ARV_GC_FEATURE_NODE(item->data);
    }
    if (entry == nullptr)
        fail(node_, std::string("'") + symbolic + "' is not one of its entries", QRN_ERR_INVALID);
    GErrorPtr error;
    const bool usable = arv_gc_feature_node_is_implemented(entry, Out(error)) &&
                        arv_gc_feature_node_is_available(entry, Out(error));
    check(node_, error);
    if (!usable)
        fail(node_, std::string("entry '") + symbolic + "' is not available", QRN_ERR_ACCESS);
    arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(node_), symbolic, Out(error));
    check(node_, error);
    description_->NotifyWritten(featureOf(node_));
}

bool CKorvatinGenICamNodeT::GetBool() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_BOOLEAN(node_), "Boolean");
    GErrorPtr error;
    const bool value = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node_), Out(error));
    check(node_, error);
    return value;
}

void CKorvatinGenICamNodeT::SetBool(bool value) {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_BOOLEAN(node_), "Boolean");
    requireWritable(*this);
    GErrorPtr error;
    arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node_), value, Out(error));
    check(node_, error);
    description_->NotifyWritten(featureOf(node_));
}

uint32_t CKorvatinGenICamNodeT::GetUInt32() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return fitting<uint32_t>(node_, integerValue(node_), "UInt32");
}

uint32_t CKorvatinGenICamNodeT::GetUInt32Min() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<uint32_t>(integerMin(node_));
}

uint32_t CKorvatinGenICamNodeT::GetUInt32Max() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<uint32_t>(integerMax(node_));
}

uint32_t CKorvatinGenICamNodeT::GetUInt32Inc() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<uint32_t>(integerInc(node_));
}

int32_t CKorvatinGenICamNodeT::GetInt32() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return fitting<int32_t>(node_, integerValue(node_), "Int32");
}

int64_t CKorvatinGenICamNodeT::GetInt64() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return integerValue(node_);
}

int32_t CKorvatinGenICamNodeT::GetInt32Min() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<int32_t>(integerMin(node_));
}

int32_t CKorvatinGenICamNodeT::GetInt32Max() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<int32_t>(integerMax(node_));
}

int32_t CKorvatinGenICamNodeT::GetInt32Inc() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_INTEGER(node_), "integer");
    return saturate<int32_t>(integerInc(node_));
}

namespace {

// Writes an integer after the checks Aravis leaves out by default: access, range, increment.
void writeInteger(CKorvatinGenICamNodeT& handle, int64_t value) {
    void* node = handle.ArvNode();
    requireLive(handle);
    requireType(node, ARV_IS_GC_INTEGER(node), "integer");
    requireWritable(handle);
    const int64_t minimum = integerMin(node);
    const int64_t maximum = integerMax(node);
    if (value < minimum || value > maximum)
        fail(node,
             "value " + std::to_string(value) + " is out of range (" + std::to_string(minimum) +
                 " .. " + std::to_string(maximum) + ")",
             QRN_ERR_RANGE);
    const int64_t increment = integerInc(node);
    if (increment > 1 && (value - minimum) % increment != 0)
        fail(node,
             "value " + std::to_string(value) + " is not a step of " + std::to_string(increment) +
                 " from " + std::to_string(minimum),
             QRN_ERR_RANGE);
    GErrorPtr error;
    arv_gc_integer_set_value(ARV_GC_INTEGER(node), value, Out(error));
    check(node, error);
    handle.Description()->NotifyWritten(featureOf(node));
}

} // namespace

void CKorvatinGenICamNodeT::SetUInt32(uint32_t value) {
    writeInteger(*this, value);
}

void CKorvatinGenICamNodeT::SetInt32(int32_t value) {
    writeInteger(*this, value);
}

double CKorvatinGenICamNodeT::GetDouble() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_FLOAT(node_) || isInteger(node_), "Float");
    if (isInteger(node_))
        return static_cast<double>(integerValue(node_));
    GErrorPtr error;
    const double value = arv_gc_float_get_value(ARV_GC_FLOAT(node_), Out(error));
    check(node_, error);
    return value;
}

double CKorvatinGenICamNodeT::GetDoubleMin() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_FLOAT(node_) || isInteger(node_), "Float");
    return floatMin(node_);
}

double CKorvatinGenICamNodeT::GetDoubleMax() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_FLOAT(node_) || isInteger(node_), "Float");
    return floatMax(node_);
}

void CKorvatinGenICamNodeT::GetDoubleUnit(char* buffer, unsigned long size,
                                          unsigned long* length) const {
    requireValid(*this);
    requireType(node_, ARV_IS_GC_FLOAT(node_) || isInteger(node_), "Float");
    const char* unit = ARV_IS_GC_FLOAT(node_) ? arv_gc_float_get_unit(ARV_GC_FLOAT(node_))
                                              : arv_gc_integer_get_unit(ARV_GC_INTEGER(node_));
    copyOut(unit, buffer, size, length);
}

void CKorvatinGenICamNodeT::SetDouble(double value) {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_FLOAT(node_), "Float");
    requireWritable(*this);
    if (std::isnan(value))
        fail(node_, "value is not a number", QRN_ERR_INVALID);
    const double minimum = floatMin(node_);
    const double maximum = floatMax(node_);
    if (value < minimum || value > maximum)
        fail(node_,
             "value " + numberText(value) + " is out of range (" + numberText(minimum) + " .. " +
                 numberText(maximum) + ")",
             QRN_ERR_RANGE);
    GErrorPtr error;
    arv_gc_float_set_value(ARV_GC_FLOAT(node_), value, Out(error));
    check(node_, error);
    description_->NotifyWritten(featureOf(node_));
}

int CKorvatinGenICamNodeT::GetStringMaxLength() const {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_STRING(node_) && !ARV_IS_GC_ENUMERATION(node_), "String");
    GErrorPtr error;
    const int64_t length = arv_gc_string_get_max_length(ARV_GC_STRING(node_), Out(error));
    check(node_, error);
    return saturate<int>(length);
}

void CKorvatinGenICamNodeT::GetString(char* buffer, unsigned long size, unsigned long* length,
                                      unsigned int reserved) const {
    (void)reserved; // kept for the callers' signature, always 0
    requireLive(*this);
    requireType(node_, ARV_IS_GC_STRING(node_) && !ARV_IS_GC_ENUMERATION(node_), "String");
    GErrorPtr error;
    if (ARV_IS_GC_REGISTER(node_)) {
        // A string register's length may come from another register: one that reads a huge
        // number would have the read fetch gigabytes, packet by packet. The work is bounded
        // before anything is fetched, and so is the address GigE Vision can reach.
        ArvGcRegister* reg = ARV_GC_REGISTER(node_);
        const guint64 address = arv_gc_register_get_address(reg, Out(error));
        check(node_, error);
        if (address > 0xFFFFFFFFull)
            fail(node_,
                 "its address 0x" + hexText(address) +
                     " is beyond the 32-bit register space a GigE Vision device has",
                 QRN_ERR_INVALID);
        const guint64 bytes = arv_gc_register_get_length(reg, Out(error));
        check(node_, error);
        if (bytes > kMaxStringBytes)
            fail(node_,
                 "its length reads " + std::to_string(bytes) + " bytes, more than the " +
                     std::to_string(kMaxStringBytes) + " a string may have",
                 QRN_ERR_RANGE);
    }
    const char* value = arv_gc_string_get_value(ARV_GC_STRING(node_), Out(error));
    check(node_, error);
    copyOut(value, buffer, size, length);
}

void CKorvatinGenICamNodeT::SetString(const char* value, unsigned int reserved) {
    (void)reserved; // kept for the callers' signature, always 0
    requireLive(*this);
    requireType(node_, ARV_IS_GC_STRING(node_) && !ARV_IS_GC_ENUMERATION(node_), "String");
    if (value == nullptr)
        fail(node_, "no text given", QRN_ERR_INVALID);
    requireWritable(*this);
    GErrorPtr error;
    const int64_t maximum = arv_gc_string_get_max_length(ARV_GC_STRING(node_), Out(error));
    check(node_, error);
    const auto length = static_cast<int64_t>(std::strlen(value));
    if (maximum > 0 && length > maximum)
        fail(node_,
             "text of " + std::to_string(length) + " characters is longer than the maximum " +
                 std::to_string(maximum),
             QRN_ERR_RANGE);
    arv_gc_string_set_value(ARV_GC_STRING(node_), value, Out(error));
    check(node_, error);
    description_->NotifyWritten(featureOf(node_));
}

void CKorvatinGenICamNodeT::ExecuteCommand() {
    requireLive(*this);
    requireType(node_, ARV_IS_GC_COMMAND(node_), "Command");
    requireWritable(*this);
    GErrorPtr error;
    arv_gc_command_execute(ARV_GC_COMMAND(node_), Out(error));
    check(node_, error);
    description_->NotifyWritten(featureOf(node_));
}

void CKorvatinGenICamNodeT::RegisterCallBack(CKorvatinGenICamNodeCallback& callback) {
    requireValid(*this);
    if (registered_ != nullptr && registered_ != &callback)
        description_->DeregisterCallback(featureOf(node_), registered_);
    description_->RegisterCallback(featureOf(node_), &callback);
    registered_ = &callback;
}

void CKorvatinGenICamNodeT::DeregisterCallBack() {
    if (registered_ == nullptr || !IsValid())
        return;
    description_->DeregisterCallback(featureOf(node_), registered_);
    registered_ = nullptr;
}
