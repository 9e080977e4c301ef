// Firmware upgrade and GenICam description programming through the camera's standard file
// access features (FileSelector, FileOperationSelector, FileOpenMode, FileAccessOffset,
// FileAccessLength, FileAccessBuffer, FileOperationExecute, FileOperationStatus,
// FileOperationResult, FileSize).
#include "korvatin/korvatincamera.h"
#include "korvatin/korvatinexception.h"
#include "korvatin/qrnutil.h"

#include "cameraconnection.h"
#include "genicamdescription.h"
#include "genicamloader.h"
#include "gobjectref.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char* kFirmwareSlot = "Firmware";
constexpr const char* kAlternateFirmwareSlot = "FirmwareAlternate";
constexpr const char* kDescriptionSlot = "DeviceDescription";

// The features a transfer needs, in the order they are looked for.
constexpr const char* kFileAccessFeatures[] = {
    "FileSelector",         "FileOperationSelector", "FileOpenMode",
    "FileAccessOffset",     "FileAccessLength",      "FileAccessBuffer",
    "FileOperationExecute", "FileOperationStatus",   "FileOperationResult"};

// A failed step: the text of the final event and the code the operation returns.
struct Failure {
    std::string text;
    QRN_ERROR code;
};

// Sends the events of one operation: 1 once, 2 when the percentage changes, 3 for messages and
// 4 exactly once, whatever path the operation takes.
class ProgressReporter {
public:
    ProgressReporter(CKorvatinCamera::ProgressCallback callback, void* context)
        : callback_(callback), context_(context) {}
    ~ProgressReporter() {
        if (!finished_)
            Finish("The transfer ended without a result.");
    }
    ProgressReporter(const ProgressReporter&) = delete;
    ProgressReporter& operator=(const ProgressReporter&) = delete;

    void Start() { Send(1, 0, nullptr); }
    void Progress(uint64_t done, uint64_t total) {
        const int percent = total == 0 ? 100 : int(done * 100 / total);
        if (percent == lastPercent_)
            return;
        lastPercent_ = percent;
        Send(2, percent, std::to_string(percent).c_str());
    }
    void Message(const std::string& text) { Send(3, 0, text.c_str()); }
    void Finish(const std::string& text) {
        if (finished_)
            return;
        finished_ = true;
        Send(4, 0, text.c_str());
    }

private:
    void Send(int event, int value, const char* text) {
        if (callback_)
            callback_(context_, event, value, text);
    }

    CKorvatinCamera::ProgressCallback callback_;
    void* context_;
    int lastPercent_ = -1;
    bool finished_ = false;
};

std::string Quoted(const char* path) {
    return std::string("\"") + path + "\"";
}

// The whole file, or a failure saying why it cannot be used.
std::vector<uint8_t> ReadImage(const char* path) {
    if (path == nullptr || *path == '\0')
        throw Failure{"no file was named", QRN_ERR_INVALID};
    FILE* file = std::fopen(path, "rb");
    if (file == nullptr)
        throw Failure{"cannot open " + Quoted(path) + ": " + std::strerror(errno),
                      QRN_ERR_NOT_FOUND};
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + count);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed)
        throw Failure{"cannot read " + Quoted(path), QRN_ERR_IO};
    if (bytes.empty())
        throw Failure{Quoted(path) + " is empty", QRN_ERR_INVALID};
    return bytes;
}

// One slot of the connected camera's file access, used by name through the description.
class FileSlot {
public:
    FileSlot(CKorvatinCamera& camera, const korvatin::CameraConnection& connection,
             const char* slot)
        : camera_(camera), connection_(connection), slot_(slot) {
        const auto& description = connection.Description();
        for (const char* feature : kFileAccessFeatures)
            if (description->FindFeature(feature) == nullptr)
                throw Failure{std::string("the camera has no file access (it lacks ") + feature +
                                  ")",
                              QRN_ERR_UNSUPPORTED};
        try {
            camera_.SetEnumByString("FileSelector", slot);
        } catch (const CKorvatinException& e) {
            throw Failure{std::string("the camera has no file ") + Quoted(slot) + " (" + e.what() +
                              ")",
                          QRN_ERR_UNSUPPORTED};
        }
        ArvGcFeatureNode* buffer = description->FindFeature("FileAccessBuffer");
        if (!ARV_IS_GC_REGISTER(buffer))
            throw Failure{"the camera's FileAccessBuffer is not a register", QRN_ERR_UNSUPPORTED};
        korvatin::GErrorPtr error;
        bufferAddress_ = arv_gc_register_get_address(ARV_GC_REGISTER(buffer), korvatin::Out(error));
        const guint64 length =
            error ? 0 : arv_gc_register_get_length(ARV_GC_REGISTER(buffer), korvatin::Out(error));
        if (error || length == 0)
            throw Failure{"cannot read where the camera's FileAccessBuffer is" +
                              std::string(error ? std::string(": ") + error->message : ""),
                          QRN_ERR_IO};
        // The whole buffer moves per operation: the fewest round trips the camera allows.
        blockSize_ = uint32_t(std::min<guint64>(length, 1u << 20));
    }

    uint32_t BlockSize() const { return blockSize_; }

    // The slot's capacity when the camera states one as FileSize's maximum, else 0.
    uint64_t Capacity() const {
        ArvGcFeatureNode* size = connection_.Description()->FindFeature("FileSize");
        if (!ARV_IS_GC_INTEGER(size))
            return 0;
        korvatin::GErrorPtr error;
        const gint64 max = arv_gc_integer_get_max(ARV_GC_INTEGER(size), korvatin::Out(error));
        return error || max <= 0 ? 0 : uint64_t(max);
    }

    void Open(const char* mode) {
        camera_.SetEnumByString("FileOpenMode", mode);
        if (!Execute("Open"))
            throw Failure{std::string("the camera refused to open its file ") + Quoted(slot_) +
                              " for " + (std::strcmp(mode, "Read") == 0 ? "reading" : "writing"),
                          QRN_ERR_IO};
        open_ = true;
    }
    // Closes if open; a camera that refuses is not asked again.
    bool Close() {
        if (!open_)
            return true;
        open_ = false;
        return Execute("Close");
    }
    // Best effort after a failure: the camera may be gone.
    void CloseQuietly() noexcept {
        try {
            Close();
        } catch (...) {
        }
    }

    void Write(uint64_t offset, const uint8_t* data, uint32_t length) {
        Position(offset, length);
        korvatin::GErrorPtr error;
        // Aravis takes the bytes to send through a non-const pointer; it does not change them.
        if (!arv_device_write_memory(connection_.Device(), bufferAddress_, length,
                                     const_cast<uint8_t*>(data), korvatin::Out(error)) ||
            error)
            throw CKorvatinException(error ? error->message : "no answer", QRN_ERR_TIMEOUT);
        if (!Execute("Write") || camera_.GetUInt32("FileOperationResult") != length)
            throw Failure{"the camera refused the write of " + std::to_string(length) +
                              " bytes at offset " + std::to_string(offset),
                          QRN_ERR_IO};
    }

    void Read(uint64_t offset, uint8_t* data, uint32_t length) {
        Position(offset, length);
        if (!Execute("Read") || camera_.GetUInt32("FileOperationResult") != length)
            throw Failure{"the camera could not read back " + std::to_string(length) +
                              " bytes at offset " + std::to_string(offset),
                          QRN_ERR_IO};
        korvatin::GErrorPtr error;
        if (!arv_device_read_memory(connection_.Device(), bufferAddress_, length, data,
                                    korvatin::Out(error)) ||
            error)
            throw CKorvatinException(error ? error->message : "no answer", QRN_ERR_TIMEOUT);
    }

private:
    void Position(uint64_t offset, uint32_t length) {
        camera_.SetUInt32("FileAccessOffset", uint32_t(offset));
        camera_.SetUInt32("FileAccessLength", length);
    }
    bool Execute(const char* operation) {
        camera_.SetEnumByString("FileOperationSelector", operation);
        camera_.ExecuteCommand("FileOperationExecute");
        char status[64] = {};
        camera_.GetEnum("FileOperationStatus", status, sizeof status);
        return std::strcmp(status, "Success") == 0;
    }

    CKorvatinCamera& camera_;
    const korvatin::CameraConnection& connection_;
    const char* slot_;
    guint64 bufferAddress_ = 0;
    uint32_t blockSize_ = 0;
    bool open_ = false;
};

// What one transfer writes and how it speaks of itself.
struct TransferJob {
    const char* slot;
    const char* failedPrefix;   // "Firmware upgrade failed: "
    const char* finishedPrefix; // "Firmware upgrade finished: "
    const char* takesEffect;    // what the new file does after a reset
};

// Writes `image` into the slot block by block, closes it, reads it back and compares.
void Transfer(FileSlot& slot, const std::vector<uint8_t>& image, const TransferJob& job,
              ProgressReporter& progress) {
    const uint64_t total = uint64_t(image.size()) * 2; // written, then read back
    uint64_t offset = 0;
    slot.Open("Write");
    try {
        for (; offset < image.size(); offset += slot.BlockSize()) {
            const uint32_t length =
                uint32_t(std::min<uint64_t>(slot.BlockSize(), image.size() - offset));
            slot.Write(offset, image.data() + offset, length);
            progress.Progress(offset + length, total);
        }
        if (!slot.Close())
            throw Failure{std::string("the camera could not store its file ") + Quoted(job.slot),
                          QRN_ERR_IO};
    } catch (const CKorvatinException& e) {
        throw Failure{"the camera stopped answering at offset " + std::to_string(offset) + ": " +
                          e.what(),
                      QRN_ERR_TIMEOUT};
    } catch (...) {
        slot.CloseQuietly();
        throw;
    }

    progress.Message("Verifying the " + std::to_string(image.size()) + " bytes written to " +
                     Quoted(job.slot) + ".");
    std::vector<uint8_t> readBack(slot.BlockSize());
    offset = 0;
    slot.Open("Read");
    try {
        for (; offset < image.size(); offset += slot.BlockSize()) {
            const uint32_t length =
                uint32_t(std::min<uint64_t>(slot.BlockSize(), image.size() - offset));
            slot.Read(offset, readBack.data(), length);
            for (uint32_t i = 0; i < length; ++i)
                if (readBack[i] != image[offset + i]) {
                    char text[160];
                    std::snprintf(text, sizeof text,
                                  "verification failed: the byte at offset %llu reads back "
                                  "0x%02X instead of 0x%02X",
                                  static_cast<unsigned long long>(offset + i), readBack[i],
                                  image[offset + i]);
                    throw Failure{text, QRN_ERR_IO};
                }
            progress.Progress(image.size() + offset + length, total);
        }
        slot.Close();
    } catch (const CKorvatinException& e) {
        throw Failure{"the camera stopped answering while verifying at offset " +
                          std::to_string(offset) + ": " + e.what(),
                      QRN_ERR_TIMEOUT};
    } catch (...) {
        slot.CloseQuietly();
        throw;
    }
}

// The whole operation: checks, transfer, verification and the final event, on every path.
QRN_ERROR RunTransfer(CKorvatinCamera& camera, const korvatin::CameraConnection* connection,
                      const char* path, const TransferJob& job, bool isDescription,
                      CKorvatinCamera::ProgressCallback callback, void* context) {
    ProgressReporter progress(callback, context);
    progress.Start();
    try {
        const std::vector<uint8_t> image = ReadImage(path);
        if (connection == nullptr)
            throw Failure{"no camera is connected", QRN_ERR_NOT_CONNECTED};
        if (isDescription) {
            // Parsed as a connection would parse it, so a file the camera could not serve back
            // to this SDK never reaches it.
            try {
                korvatin::GenicamDescription check(
                    connection->Device(), korvatin::GenicamLoader::FromFile(path), Quoted(path));
                if (check.FindFeature("Root") == nullptr)
                    throw CKorvatinException("it has no Root category", QRN_ERR_INVALID);
            } catch (const CKorvatinException& e) {
                throw Failure{Quoted(path) +
                                  " is not a GenICam description this SDK can load: " + e.what(),
                              QRN_ERR_INVALID};
            }
        }
        FileSlot slot(camera, *connection, job.slot);
        const uint64_t capacity = slot.Capacity();
        if (capacity != 0 && image.size() > capacity)
            throw Failure{Quoted(path) + " (" + std::to_string(image.size()) +
                              " bytes) is larger than the camera's file " + Quoted(job.slot) +
                              " (" + std::to_string(capacity) + " bytes)",
                          QRN_ERR_RANGE};
        if (CQrnUtil::EnvToInt("QRN_DEBUG_EEPROM_UPDATE") == 0) {
            progress.Finish(std::string(job.finishedPrefix) + Quoted(path) + " (" +
                            std::to_string(image.size()) +
                            " bytes) checked; nothing was written to the camera "
                            "(QRN_DEBUG_EEPROM_UPDATE=0).");
            return QRN_OK;
        }
        Transfer(slot, image, job, progress);
        progress.Finish(std::string(job.finishedPrefix) + std::to_string(image.size()) +
                        " bytes written to " + Quoted(job.slot) + " and verified. " +
                        job.takesEffect);
        return QRN_OK;
    } catch (const Failure& failure) {
        progress.Finish(job.failedPrefix + failure.text);
        return failure.code;
    } catch (const std::exception& e) {
        progress.Finish(std::string(job.failedPrefix) + e.what());
        return QRN_ERR_IO;
    }
}

} // namespace

QRN_ERROR CKorvatinCamera::FirmwareUpgrade(const char* file, bool alternate,
                                           ProgressCallback callback, void* context) {
    const TransferJob job{alternate ? kAlternateFirmwareSlot : kFirmwareSlot,
                          "Firmware upgrade failed: ", "Firmware upgrade finished: ",
                          "The camera runs the new firmware after a reset."};
    return RunTransfer(*this, connection_.get(), file, job, false, callback, context);
}

QRN_ERROR CKorvatinCamera::ProgramXML(const char* file, ProgressCallback callback, void* context) {
    const TransferJob job{kDescriptionSlot,
                          "XML programming failed: ", "XML programming finished: ",
                          "The camera serves the new description after a reset."};
    return RunTransfer(*this, connection_.get(), file, job, true, callback, context);
}
