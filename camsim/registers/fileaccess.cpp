// The camera's files behind File Access Control: two firmware slots and its description.
#include "fileaccess.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>

CFileAccess::CFileAccess(std::string storeDirectory, std::string serial, uint32_t slotSize,
                         int64_t failWriteAt)
    : storeDirectory_(std::move(storeDirectory)), serial_(std::move(serial)), slotSize_(slotSize),
      failWriteAt_(failWriteAt) {}

bool CFileAccess::isZip(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 4 && bytes[0] == 'P' && bytes[1] == 'K' && bytes[2] == 3 &&
           bytes[3] == 4;
}

std::string CFileAccess::firmwareVersion(const std::vector<uint8_t>& image) {
    constexpr std::size_t kMagicSize = 4;
    constexpr std::size_t kVersionSize = 32;
    if (image.size() < kMagicSize + kVersionSize || std::memcmp(image.data(), "KVFW", 4) != 0)
        return std::string();
    const char* text = reinterpret_cast<const char*>(image.data() + kMagicSize);
    return std::string(text, strnlen(text, kVersionSize - 1));
}

std::string CFileAccess::storePath(uint32_t slot) const {
    if (storeDirectory_.empty() || slot >= kSlotCount)
        return {};
    const std::string base = storeDirectory_ + "/" + serial_;
    switch (slot) {
    case Firmware:
        return base + "-firmware.bin";
    case FirmwareAlternate:
        return base + "-firmware-alternate.bin";
    default:
        return base +
               (isZip(files_[DeviceDescription].content) ? "-description.zip" : "-description.xml");
    }
}

void CFileAccess::saveToStore(uint32_t slot) const {
    const std::string path = storePath(slot);
    if (path.empty())
        return;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(files_[slot].content.data()),
              std::streamsize(files_[slot].content.size()));
    if (!out)
        std::fprintf(stderr, "korvatin-camsim: cannot write %s\n", path.c_str());
}

CFileAccess::Result CFileAccess::execute(uint32_t slot, uint32_t operation, uint32_t openMode,
                                         uint32_t offset, uint32_t length, uint8_t* buffer) {
    Result result;
    if (slot >= kSlotCount)
        return result;
    File& file = files_[slot];
    switch (operation) {
    case Open:
        if (file.open || openMode > ModeReadWrite)
            return result;
        file.open = true;
        file.mode = openMode;
        file.written = false;
        file.failed = false;
        // Writing starts a new file, as flashing a new image does; read-write edits the old one.
        file.staging.clear();
        if (openMode == ModeWrite)
            file.written = true;
        else if (openMode == ModeReadWrite)
            file.staging = file.content;
        result.success = true;
        return result;
    case Close:
        if (!file.open)
            return result;
        file.open = false;
        if (file.written && !file.failed) {
            file.content.swap(file.staging);
            saveToStore(slot);
            if (slot == DeviceDescription)
                descriptionPending_ = true;
        }
        file.staging.clear();
        file.staging.shrink_to_fit();
        // A failed transfer leaves the old content; the close itself succeeds.
        result.success = true;
        return result;
    case Read: {
        if (!file.open || file.mode == ModeWrite || length > kBufferSize)
            return result;
        const std::vector<uint8_t>& data = file.mode == ModeReadWrite ? file.staging : file.content;
        if (offset > data.size())
            return result;
        const uint32_t count = std::min<uint32_t>(length, uint32_t(data.size()) - offset);
        std::memcpy(buffer, data.data() + offset, count);
        result.success = true;
        result.count = count;
        return result;
    }
    case Write: {
        if (!file.open || file.mode == ModeRead || length > kBufferSize)
            return result;
        const uint64_t end = uint64_t(offset) + length;
        const bool injected =
            failWriteAt_ >= 0 && uint64_t(failWriteAt_) >= offset && uint64_t(failWriteAt_) < end;
        if (end > slotSize_ || injected) {
            file.failed = true;
            return result;
        }
        if (file.staging.size() < end)
            file.staging.resize(std::size_t(end));
        std::memcpy(file.staging.data() + offset, buffer, length);
        file.written = true;
        result.success = true;
        result.count = length;
        return result;
    }
    case Delete:
        if (file.open)
            return result;
        file.content.clear();
        if (!storePath(slot).empty())
            std::remove(storePath(slot).c_str());
        result.success = true;
        return result;
    default:
        return result;
    }
}

uint32_t CFileAccess::size(uint32_t slot) const {
    return slot < kSlotCount ? uint32_t(files_[slot].content.size()) : 0;
}

void CFileAccess::setCurrentDescription(const std::vector<uint8_t>& description) {
    files_[DeviceDescription].content = description;
}

bool CFileAccess::takeWrittenDescription(std::vector<uint8_t>* description) {
    if (!descriptionPending_)
        return false;
    descriptionPending_ = false;
    if (files_[DeviceDescription].content.empty())
        return false;
    *description = files_[DeviceDescription].content;
    return true;
}

void CFileAccess::closeAll() {
    for (uint32_t slot = 0; slot < kSlotCount; ++slot) {
        if (files_[slot].open)
            execute(slot, Close, 0, 0, 0, nullptr);
    }
}
