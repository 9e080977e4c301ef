// A cheap, copyable handle to one feature node of a connection's GenICam description.
#pragma once

#include "qrnparam.h"

#include <cstdint>
#include <list>
#include <memory>

class CKorvatinGenICamNodeCallback;

namespace korvatin {
class GenicamDescription;
}

// Every operation throws CKorvatinException on failure: a null handle, a node of the wrong type
// for the call, a value the node refuses, a device that does not answer. A handle keeps its
// description alive, so it stays safe to use (and fails cleanly) after the camera disconnected.
class CKorvatinGenICamNodeT {
public:
    // Node access modes, numbered as the GenICam standard numbers them.
    enum EAccessMode { NI = 0, NA = 1, WO = 2, RO = 3, RW = 4 };

    CKorvatinGenICamNodeT();
    CKorvatinGenICamNodeT(const CKorvatinGenICamNodeT& other);
    CKorvatinGenICamNodeT& operator=(const CKorvatinGenICamNodeT& other);
    ~CKorvatinGenICamNodeT();

    // False for a default-constructed handle.
    bool IsValid() const;
    bool operator==(const CKorvatinGenICamNodeT& other) const;
    bool operator!=(const CKorvatinGenICamNodeT& other) const { return !(*this == other); }

    QrnParamDataType DataType() const;
    EAccessMode AccessMode() const;
    // False when the node, or a register its value comes from, is NoCache or polled.
    bool IsCachable() const;

    // Text getters copy at most size-1 bytes and a NUL into `buffer` (a longer text is cut);
    // `length`, when not null, receives the full length of the text.
    void Name(char* buffer, unsigned long size, unsigned long* length) const;
    void DisplayName(char* buffer, unsigned long size, unsigned long* length) const;
    void ToolTip(char* buffer, unsigned long size, unsigned long* length) const;

    // Categories: the features listed, in the description's order, appended to `features`.
    void GetCategoryFeatures(std::list<CKorvatinGenICamNodeT>* features) const;

    // Enumerations and their entries.
    void GetEnumEntries(std::list<CKorvatinGenICamNodeT>* entries) const;
    void GetEnumEntrySymbolic(char* buffer, unsigned long size, unsigned long* length) const;
    int64_t GetEnumEntryValue() const;
    void GetEnum(char* buffer, unsigned long size, unsigned long* length) const;
    void SetEnumByString(const char* symbolic);

    bool GetBool() const;
    void SetBool(bool value);

    // Integers, 32-bit as named; a value that does not fit is an error, not a wrap.
    uint32_t GetUInt32() const;
    uint32_t GetUInt32Min() const;
    uint32_t GetUInt32Max() const;
    uint32_t GetUInt32Inc() const;
    void SetUInt32(uint32_t value);
    int32_t GetInt32() const;
    int32_t GetInt32Min() const;
    int32_t GetInt32Max() const;
    int32_t GetInt32Inc() const;
    void SetInt32(int32_t value);
    // The integer value at the description's full width, for values the 32-bit accessors
    // refuse (MAC addresses, timestamps).
    int64_t GetInt64() const;

    double GetDouble() const;
    double GetDoubleMin() const;
    double GetDoubleMax() const;
    void GetDoubleUnit(char* buffer, unsigned long size, unsigned long* length) const;
    void SetDouble(double value);

    int GetStringMaxLength() const;
    // `reserved` is kept for the callers' signature and must be 0.
    void GetString(char* buffer, unsigned long size, unsigned long* length,
                   unsigned int reserved = 0) const;
    void SetString(const char* value, unsigned int reserved = 0);

    void ExecuteCommand();

    // Registers `callback` for this node until DeregisterCallBack is called on this handle
    // (or a copy of it made after the registration). The callback must outlive its
    // registration. Registering again through the same handle replaces the earlier callback.
    void RegisterCallBack(CKorvatinGenICamNodeCallback& callback);
    void DeregisterCallBack();

    // For the SDK's own use: a handle on node `name` of `description`.
    CKorvatinGenICamNodeT(std::shared_ptr<korvatin::GenicamDescription> description,
                          const char* name);
    const std::shared_ptr<korvatin::GenicamDescription>& Description() const {
        return description_;
    }
    void* ArvNode() const { return node_; }

private:
    std::shared_ptr<korvatin::GenicamDescription> description_;
    void* node_ = nullptr;                               // the ArvGcFeatureNode, borrowed
    CKorvatinGenICamNodeCallback* registered_ = nullptr; // what this handle registered
};
