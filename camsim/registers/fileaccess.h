// The camera's files behind File Access Control: two firmware slots and its description.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// Not thread-safe: the owning camera calls it under its mutex.
class CFileAccess {
public:
    enum Slot : uint32_t { Firmware = 0, FirmwareAlternate = 1, DeviceDescription = 2 };
    enum Operation : uint32_t { Open = 0, Close = 1, Read = 2, Write = 3, Delete = 4 };
    enum OpenMode : uint32_t { ModeRead = 0, ModeWrite = 1, ModeReadWrite = 2 };
    static constexpr uint32_t kSlotCount = 3;
    static constexpr uint32_t kBufferSize = 4096;

    struct Result {
        bool success = false;
        uint32_t count = 0; // bytes moved by Read or Write
    };

    // Each slot holds at most `slotSize` bytes; a write covering byte `failWriteAt` fails
    // (-1: none).
    CFileAccess(std::string storeDirectory, std::string serial, uint32_t slotSize = 64u << 20,
                int64_t failWriteAt = -1);

    // Runs one operation; buffer is the kBufferSize bytes of FileAccessBuffer.
    Result execute(uint32_t slot, uint32_t operation, uint32_t openMode, uint32_t offset,
                   uint32_t length, uint8_t* buffer);
    uint32_t size(uint32_t slot) const;
    uint32_t capacity() const { return slotSize_; }

    // The version a firmware image carries: "KVFW" in its first 4 bytes, then the version text
    // in the next 32 (NUL-padded). Empty for an image without that header.
    static std::string firmwareVersion(const std::vector<uint8_t>& image);
    // Whether a file is a zip archive (a zipped description), by its local file header.
    static bool isZip(const std::vector<uint8_t>& bytes);
    // The version of the image in the Firmware slot, as the camera runs it after a reset.
    std::string runningFirmwareVersion() const { return firmwareVersion(files_[Firmware].content); }

    // What the description slot reads before anything is written to it.
    void setCurrentDescription(const std::vector<uint8_t>& description);
    // A description written and closed since the last call; the camera serves it after a reset.
    bool takeWrittenDescription(std::vector<uint8_t>* description);
    // Closes every open file, as a reset does.
    void closeAll();

    // Where a slot is kept in the store directory; empty without one.
    std::string storePath(uint32_t slot) const;

private:
    // A file opened for writing collects the new content in `staging`; Close makes it the
    // file's content, unless a write failed, as a flash that is only switched over once an
    // image is whole. Reading an open file reads what it will hold after Close.
    struct File {
        std::vector<uint8_t> content;
        std::vector<uint8_t> staging;
        bool open = false;
        uint32_t mode = ModeRead;
        bool written = false;
        bool failed = false;
    };
    void saveToStore(uint32_t slot) const;

    std::string storeDirectory_;
    std::string serial_;
    uint32_t slotSize_;
    int64_t failWriteAt_;
    std::array<File, kSlotCount> files_;
    bool descriptionPending_ = false;
};
