// The register space of one simulated camera: big-endian bytes in sparse pages, with access rules.
#include "registermemory.h"

#include "bigendian.h"

#include <algorithm>
#include <cstring>
#include <string>

void CRegisterMemory::addRange(uint32_t address, uint32_t size, Access access) {
    ranges_.push_back({address, uint64_t(address) + size, access});
}

void CRegisterMemory::clear() {
    pages_.clear();
}

const CRegisterMemory::Range* CRegisterMemory::findRange(uint32_t address, uint32_t size) const {
    const uint64_t end = uint64_t(address) + size;
    // Later ranges override earlier ones, so a read-only window can sit inside a writable block.
    for (auto it = ranges_.rbegin(); it != ranges_.rend(); ++it) {
        if (address >= it->begin && end <= it->end)
            return &*it;
    }
    return nullptr;
}

bool CRegisterMemory::exists(uint32_t address, uint32_t size) const {
    if (anyAddress_)
        return uint64_t(address) + size <= 0x100000000ull;
    return findRange(address, size) != nullptr;
}

bool CRegisterMemory::writable(uint32_t address, uint32_t size) const {
    const Range* range = findRange(address, size);
    if (range)
        return range->access == Access::ReadWrite;
    return anyAddress_ && uint64_t(address) + size <= 0x100000000ull;
}

void CRegisterMemory::read(uint32_t address, uint8_t* destination, uint32_t size) const {
    while (size > 0) {
        const uint32_t pageIndex = address / kPageSize;
        const uint32_t offset = address % kPageSize;
        const uint32_t chunk = std::min(size, kPageSize - offset);
        const auto it = pages_.find(pageIndex);
        if (it == pages_.end())
            std::memset(destination, 0, chunk);
        else
            std::memcpy(destination, it->second->data() + offset, chunk);
        destination += chunk;
        address += chunk;
        size -= chunk;
    }
}

void CRegisterMemory::write(uint32_t address, const uint8_t* source, uint32_t size) {
    while (size > 0) {
        const uint32_t pageIndex = address / kPageSize;
        const uint32_t offset = address % kPageSize;
        const uint32_t chunk = std::min(size, kPageSize - offset);
        auto& page = pages_[pageIndex];
        if (!page) {
            page = std::make_unique<Page>();
            page->fill(0);
        }
        std::memcpy(page->data() + offset, source, chunk);
        source += chunk;
        address += chunk;
        size -= chunk;
    }
}

uint32_t CRegisterMemory::readU32(uint32_t address) const {
    uint8_t b[4];
    read(address, b, 4);
    return get32(b);
}

void CRegisterMemory::writeU32(uint32_t address, uint32_t value) {
    uint8_t b[4];
    put32(b, value);
    write(address, b, 4);
}

void CRegisterMemory::writeString(uint32_t address, uint32_t size, const std::string& text) {
    std::vector<uint8_t> bytes(size, 0);
    std::memcpy(bytes.data(), text.data(), std::min<std::size_t>(text.size(), size - 1));
    write(address, bytes.data(), size);
}

std::string CRegisterMemory::readString(uint32_t address, uint32_t size) const {
    std::vector<uint8_t> bytes(size + 1, 0);
    read(address, bytes.data(), size);
    return std::string(reinterpret_cast<const char*>(bytes.data()));
}
