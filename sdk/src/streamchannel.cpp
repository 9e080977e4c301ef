// A camera's frame buffers and its Aravis stream: queueing, receiving and lost-frame counts.
#include "streamchannel.h"

#include "genicamdescription.h"
#include "korvatin/korvatinexception.h"
#include "korvatin/korvatinframe.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace korvatin {

namespace {

// Receive waits in slices of this length, so that StopStream never waits long for it to let go
// of the stream.
constexpr auto kReceiveSlice = std::chrono::milliseconds(50);

uint64_t bitsPerPixel(uint32_t pixelType) {
    return (pixelType >> 16) & 0xFFu;
}

uint32_t strideOf(uint32_t width, uint32_t pixelType) {
    return static_cast<uint32_t>((uint64_t(width) * bitsPerPixel(pixelType) + 7) / 8);
}

uint64_t imageBytes(uint32_t width, uint32_t height, uint32_t pixelType) {
    return (uint64_t(width) * height * bitsPerPixel(pixelType) + 7) / 8;
}

struct FreeDeleter {
    void operator()(uint8_t* data) const { std::free(data); }
};

void executeCommand(const std::shared_ptr<GenicamDescription>& description, const char* name) {
    ArvGcFeatureNode* node = description->RequireFeature(name);
    if (!ARV_IS_GC_COMMAND(node))
        throw CKorvatinException((std::string(name) + ": not a command").c_str(), QRN_ERR_INVALID);
    description->RequireAttached(name);
    GErrorPtr error;
    arv_gc_command_execute(ARV_GC_COMMAND(node), Out(error));
    if (error)
        throw CKorvatinException((std::string(name) + ": " + error->message).c_str(), QRN_ERR_IO);
    description->NotifyWritten(node);
}

uint64_t lostBy(ArvStream* stream) {
    // Aravis counts as failures the images it closed incomplete (missing packets, time-outs,
    // a buffer too small), and as missing frames the gaps in the block ids it saw start.
    return arv_stream_get_info_uint64_by_name(stream, "n_failures") +
           arv_stream_get_info_uint64_by_name(stream, "n_missing_frames");
}

} // namespace

struct StreamChannel::Buffer {
    uint64_t id = 0;
    Kind kind = Kind::Conversion;
    size_t size = 0;
    // A stream buffer: one reference of ours; the stream holds one more while it has it.
    GObjectRef<ArvBuffer> arv;
    // A conversion buffer.
    std::unique_ptr<uint8_t, FreeDeleter> plain;
    // Handed to the stream by Queue and not yet given back by Receive. Without a stream it
    // waits for the next Start.
    bool queued = false;
    // Released while the stream had it: freed when the stream lets it go.
    bool released = false;
};

StreamChannel::StreamChannel() = default;

StreamChannel::~StreamChannel() {
    Stop(nullptr);
}

StreamChannel::Buffer* StreamChannel::Find(const CKorvatinFrame* frame) {
    if (frame == nullptr || frame->BufferHandle() == nullptr)
        return nullptr;
    const auto id = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(frame->BufferHandle()));
    const auto found = buffers_.find(id);
    return found != buffers_.end() ? found->second.get() : nullptr;
}

void StreamChannel::Erase(Buffer* buffer) {
    if (buffer->arv)
        byArvBuffer_.erase(buffer->arv.Get());
    buffers_.erase(buffer->id);
}

void StreamChannel::Push(Buffer* buffer) {
    buffer->queued = true;
    // The stream takes over the reference it is given and drops it when the buffer comes out.
    arv_stream_push_buffer(stream_.Get(), static_cast<ArvBuffer*>(g_object_ref(buffer->arv.Get())));
}

QRN_ERROR StreamChannel::Allocate(CKorvatinFrame* frame, Kind kind, size_t size) {
    if (frame == nullptr)
        return QRN_ERR_INVALID;
    const uint64_t image = imageBytes(frame->Width(), frame->Height(), frame->PixelType());
    const uint64_t wanted = std::max<uint64_t>(image, kind == Kind::Stream ? size : 0);
    if (wanted == 0 || wanted > SIZE_MAX)
        return wanted == 0 ? QRN_ERR_INVALID : QRN_ERR_NO_MEMORY;

    auto buffer = std::make_unique<Buffer>();
    buffer->kind = kind;
    buffer->size = static_cast<size_t>(wanted);
    std::unique_ptr<uint8_t, FreeDeleter> memory(static_cast<uint8_t*>(std::malloc(buffer->size)));
    if (!memory)
        return QRN_ERR_NO_MEMORY;
    uint8_t* data = memory.get();
    if (kind == Kind::Stream) {
        // The Aravis buffer frees the memory when its last reference goes, whoever drops it.
        buffer->arv = GObjectRef<ArvBuffer>::Adopt(arv_buffer_new_full(
            buffer->size, data, data, [](gpointer memory) { std::free(memory); }));
        memory.release();
    } else {
        buffer->plain = std::move(memory);
    }

    std::lock_guard<std::mutex> lock(mutex_);
    buffer->id = nextId_++;
    Buffer* record = buffer.get();
    if (record->arv)
        byArvBuffer_[record->arv.Get()] = record;
    buffers_[record->id] = std::move(buffer);
    frame->Describe(data, static_cast<size_t>(image), record->size,
                    strideOf(frame->Width(), frame->PixelType()), 0, 0,
                    reinterpret_cast<void*>(static_cast<uintptr_t>(record->id)));
    return QRN_OK;
}

QRN_ERROR StreamChannel::Release(CKorvatinFrame* frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    Buffer* buffer = Find(frame);
    if (buffer == nullptr)
        return QRN_ERR_INVALID;
    if (buffer->queued && stream_)
        buffer->released = true;
    else
        Erase(buffer);
    frame->Describe(nullptr, 0, 0, 0, 0, 0, nullptr);
    return QRN_OK;
}

void StreamChannel::Start(ArvDevice* device, const std::shared_ptr<GenicamDescription>& description,
                          size_t payloadSize) {
    std::lock_guard<std::mutex> control(controlMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stream_)
            return;
    }
    if (ARV_IS_GV_DEVICE(device)) {
        // The largest packet that reaches this host, found with the camera's test packets. A
        // camera that cannot fire them keeps the packet size it has, which still streams: the
        // failure is deliberately not an error.
        GErrorPtr negotiation;
        arv_gv_device_auto_packet_size(ARV_GV_DEVICE(device), Out(negotiation));
    }
    GErrorPtr error;
    auto stream = GObjectRef<ArvStream>::Adopt(
        arv_device_create_stream(device, nullptr, nullptr, Out(error)));
    if (!stream || error)
        throw CKorvatinException((std::string("Cannot open the stream channel: ") +
                                  (error ? error->message : "the device refused it"))
                                     .c_str(),
                                 QRN_ERR_IO);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stream_ = std::move(stream);
        streamPayloadSize_ = payloadSize;
        for (auto& entry : buffers_) {
            Buffer* buffer = entry.second.get();
            if (buffer->queued && !buffer->released)
                Push(buffer);
        }
    }
    changed_.notify_all();
    try {
        executeCommand(description, "AcquisitionStart");
    } catch (...) {
        StopLocked(nullptr);
        throw;
    }
}

void StreamChannel::Stop(const std::shared_ptr<GenicamDescription>& description) {
    std::lock_guard<std::mutex> control(controlMutex_);
    StopLocked(description);
}

void StreamChannel::StopLocked(const std::shared_ptr<GenicamDescription>& description) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!stream_)
            return;
    }
    if (description && description->IsAttached()) {
        // A device that is gone cannot stop; closing the stream below is what matters then.
        try {
            executeCommand(description, "AcquisitionStop");
        } catch (const CKorvatinException&) {
        }
    }
    std::unique_lock<std::mutex> lock(mutex_);
    GObjectRef<ArvStream> closing = std::move(stream_);
    changed_.notify_all();
    changed_.wait(lock, [this] { return receivers_ == 0; });
    lostInClosedStreams_ += lostBy(closing.Get());
    // Stops Aravis' receive thread and drops the stream's references to the buffers it held.
    closing.Reset();
    std::vector<Buffer*> released;
    for (auto& entry : buffers_)
        if (entry.second->released)
            released.push_back(entry.second.get());
    for (Buffer* buffer : released)
        Erase(buffer);
}

bool StreamChannel::IsStreaming() {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<bool>(stream_);
}

QRN_ERROR StreamChannel::Queue(CKorvatinFrame* frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    Buffer* buffer = Find(frame);
    if (buffer == nullptr || buffer->kind != Kind::Stream || buffer->released || buffer->queued)
        return QRN_ERR_INVALID;
    if (stream_)
        Push(buffer);
    else
        buffer->queued = true;
    return QRN_OK;
}

QRN_ERROR StreamChannel::Receive(CKorvatinFrame* frame, uint32_t timeoutMs) {
    if (frame == nullptr)
        return QRN_ERR_INVALID;
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        if (!changed_.wait_until(lock, deadline, [this] { return static_cast<bool>(stream_); }))
            return QRN_ERR_TIMEOUT;
        ArvStream* stream = stream_.Get();
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        const auto slice = std::max(std::chrono::microseconds(0),
                                    std::min<std::chrono::microseconds>(left, kReceiveSlice));
        // The stream stays alive while receivers_ is nonzero: Stop waits for it.
        ++receivers_;
        lock.unlock();
        ArvBuffer* popped = arv_stream_timeout_pop_buffer(stream, slice.count());
        lock.lock();
        --receivers_;
        changed_.notify_all();
        if (popped != nullptr) {
            const auto owned = GObjectRef<ArvBuffer>::Adopt(popped);
            const auto found = byArvBuffer_.find(popped);
            if (found != byArvBuffer_.end()) {
                Buffer* buffer = found->second;
                buffer->queued = false;
                size_t size = 0;
                const void* data = arv_buffer_get_status(popped) == ARV_BUFFER_STATUS_SUCCESS
                                       ? arv_buffer_get_image_data(popped, &size)
                                       : nullptr;
                if (buffer->released) {
                    Erase(buffer);
                } else if (data == nullptr) {
                    // Incomplete: straight back to the stream (or waiting for the next one).
                    if (stream_)
                        Push(buffer);
                    else
                        buffer->queued = true;
                } else {
                    const auto width = static_cast<uint32_t>(arv_buffer_get_image_width(popped));
                    const auto height = static_cast<uint32_t>(arv_buffer_get_image_height(popped));
                    const auto pixelType =
                        static_cast<uint32_t>(arv_buffer_get_image_pixel_format(popped));
                    frame->SetWidth(width);
                    frame->SetHeight(height);
                    frame->SetPixelType(pixelType);
                    frame->Describe(static_cast<uint8_t*>(const_cast<void*>(data)), size,
                                    buffer->size, strideOf(width, pixelType),
                                    arv_buffer_get_frame_id(popped),
                                    arv_buffer_get_timestamp(popped),
                                    reinterpret_cast<void*>(static_cast<uintptr_t>(buffer->id)));
                    return QRN_OK;
                }
            }
        }
        if (Clock::now() >= deadline)
            return QRN_ERR_TIMEOUT;
    }
}

bool StreamChannel::StreamPayloadSize(size_t* size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!stream_)
        return false;
    *size = streamPayloadSize_;
    return true;
}

uint64_t StreamChannel::LostTotal() {
    return lostInClosedStreams_ + (stream_ ? lostBy(stream_.Get()) : 0);
}

uint32_t StreamChannel::Dropped() {
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t lost = LostTotal() - lostAtClear_;
    return lost > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(lost);
}

void StreamChannel::ClearDropped() {
    std::lock_guard<std::mutex> lock(mutex_);
    lostAtClear_ = LostTotal();
}

size_t StreamChannel::BufferCount() {
    std::lock_guard<std::mutex> lock(mutex_);
    return buffers_.size();
}

} // namespace korvatin
