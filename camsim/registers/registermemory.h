// The register space of one simulated camera: big-endian bytes in sparse pages, with access rules.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

// Not thread-safe: the owning camera serialises every access under its own mutex.
class CRegisterMemory {
public:
    enum class Access { ReadOnly, ReadWrite };

    // With anyAddress set every address reads and writes (zero until written); otherwise only the
    // ranges added with addRange() exist.
    explicit CRegisterMemory(bool anyAddress) : anyAddress_(anyAddress) {}

    void addRange(uint32_t address, uint32_t size, Access access);
    void clear();

    bool exists(uint32_t address, uint32_t size) const;
    bool writable(uint32_t address, uint32_t size) const;

    void read(uint32_t address, uint8_t* destination, uint32_t size) const;
    void write(uint32_t address, const uint8_t* source, uint32_t size);
    uint32_t readU32(uint32_t address) const;
    void writeU32(uint32_t address, uint32_t value);
    void writeString(uint32_t address, uint32_t size, const std::string& text);
    std::string readString(uint32_t address, uint32_t size) const;

private:
    static constexpr uint32_t kPageSize = 4096;
    using Page = std::array<uint8_t, kPageSize>;
    struct Range {
        uint64_t begin;
        uint64_t end;
        Access access;
    };
    const Range* findRange(uint32_t address, uint32_t size) const;

    bool anyAddress_;
    std::vector<Range> ranges_;
    std::unordered_map<uint32_t, std::unique_ptr<Page>> pages_;
};
