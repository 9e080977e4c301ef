// A camera's frame buffers and its Aravis stream: queueing, receiving and lost-frame counts.
#include "streamchannel.h"

#include "genicamdescription.h"
#include "korvatin/korvatinexception.h"
#include "korvatin/korvatinframe.h"
#include "korvatin/streamreceivebuffer.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

namespace korvatin {

namespace {

// The frame rate the camera is set to (SFNC AcquisitionFrameRate, else an integer FrameRate), or
// 0 when it has neither or it cannot be read.
double framesPerSecond(const std::shared_ptr<GenicamDescription>& description) {
    for (const char* name : {"AcquisitionFrameRate", "FrameRate"}) {
        ArvGcFeatureNode* node = description->FindFeature(name);
        GErrorPtr error;
        double value = 0;
        if (node != nullptr && ARV_IS_GC_FLOAT(node))
            value = arv_gc_float_get_value(ARV_GC_FLOAT(node), Out(error));
        else if (node != nullptr && ARV_IS_GC_INTEGER(node))
            value = double(arv_gc_integer_get_value(ARV_GC_INTEGER(node), Out(error)));
        if (node != nullptr && !error && value > 0)
            return value;
    }
    return 0;
}

// Receive waits in slices of this length, so that StopStream never waits long for it to let go
// of the stream.
constexpr auto kReceiveSlice = std::chrono::milliseconds(50);

// Share of an image's packets the stream may ask for again. Aravis expects as many packets as
// fill the whole buffer, and our buffers are sized for the largest image of the display pixel
// type, so they can hold several times the payload. When the trailer is lost, Aravis asks for
// every packet from the last one received to the end of the buffer; with its default of a
// quarter the request is refused, and the image is held until the frame retention ends and then
// lost. With Aravis' maximum the rest of the buffer can be asked for twice over.
constexpr double kPacketRequestRatio = 2.0;

// Block ids further apart than this are not a gap but a camera that counts anew.
constexpr uint64_t kLargestGap = 0x8000;

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

// Distance from block id `from` to `to`. Standard ids run from 1 to 65535 and wrap (0 is never
// used); extended ids are 64 bits wide.
uint64_t blockIdDistance(uint64_t from, uint64_t to) {
    if (from <= 0xFFFF && to <= 0xFFFF)
        return (to + 0xFFFF - from) % 0xFFFF;
    return to > from ? to - from : 0;
}

} // namespace

struct StreamChannel::Buffer {
    uint64_t id = 0;
    Kind kind = Kind::Conversion;
    size_t size = 0;
    uint8_t* data = nullptr;
    // A stream buffer: one reference of ours; the stream holds one more while it has it.
    GObjectRef<ArvBuffer> arv;
    // A conversion buffer.
    std::unique_ptr<uint8_t, FreeDeleter> plain;
    // Handed to the stream by Queue and not yet given back by Receive. Without a stream it
    // waits for the next Start.
    bool queued = false;
    // Released while the stream had it: freed when the stream lets it go.
    bool released = false;
    // One of the channel's own stream buffers, standing in for one the caller holds.
    bool reserve = false;
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

void StreamChannel::Free(Buffer* buffer) {
    if (buffer->queued && stream_)
        buffer->released = true;
    else
        Erase(buffer);
}

void StreamChannel::Push(Buffer* buffer) {
    buffer->queued = true;
    // The stream takes over the reference it is given and drops it when the buffer comes out.
    arv_stream_push_buffer(stream_.Get(), static_cast<ArvBuffer*>(g_object_ref(buffer->arv.Get())));
}

std::unique_ptr<StreamChannel::Buffer> StreamChannel::MakeBuffer(Kind kind, size_t size) {
    auto buffer = std::make_unique<Buffer>();
    buffer->kind = kind;
    buffer->size = size;
    std::unique_ptr<uint8_t, FreeDeleter> memory(static_cast<uint8_t*>(std::malloc(size)));
    if (!memory)
        return nullptr;
    uint8_t* data = memory.get();
    buffer->data = data;
    if (kind == Kind::Stream) {
        // The Aravis buffer frees the memory when its last reference goes, whoever drops it.
        buffer->arv = GObjectRef<ArvBuffer>::Adopt(
            arv_buffer_new_full(size, data, data, [](gpointer memory) { std::free(memory); }));
        memory.release();
    } else {
        buffer->plain = std::move(memory);
    }
    return buffer;
}

void StreamChannel::Insert(std::unique_ptr<Buffer> buffer) {
    buffer->id = nextId_++;
    if (buffer->reserve)
        ++reserveBuffers_;
    else if (buffer->kind == Kind::Stream)
        ++callerStreamBuffers_;
    if (buffer->arv)
        byArvBuffer_[buffer->arv.Get()] = buffer.get();
    const uint64_t id = buffer->id;
    buffers_[id] = std::move(buffer);
}

QRN_ERROR StreamChannel::Allocate(CKorvatinFrame* frame, Kind kind, size_t size) {
    if (frame == nullptr)
        return QRN_ERR_INVALID;
    const uint64_t image = imageBytes(frame->Width(), frame->Height(), frame->PixelType());
    const uint64_t wanted = std::max<uint64_t>(image, kind == Kind::Stream ? size : 0);
    if (wanted == 0 || wanted > SIZE_MAX)
        return wanted == 0 ? QRN_ERR_INVALID : QRN_ERR_NO_MEMORY;
    std::unique_ptr<Buffer> buffer = MakeBuffer(kind, static_cast<size_t>(wanted));
    if (!buffer)
        return QRN_ERR_NO_MEMORY;

    std::lock_guard<std::mutex> lock(mutex_);
    Buffer* record = buffer.get();
    Insert(std::move(buffer));
    frame->Describe(record->data, static_cast<size_t>(image), record->size,
                    strideOf(frame->Width(), frame->PixelType()), 0, 0,
                    reinterpret_cast<void*>(static_cast<uintptr_t>(record->id)));
    return QRN_OK;
}

QRN_ERROR StreamChannel::Release(CKorvatinFrame* frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    Buffer* buffer = Find(frame);
    if (buffer == nullptr)
        return QRN_ERR_INVALID;
    if (buffer->reserve)
        --reserveBuffers_;
    else if (buffer->kind == Kind::Stream)
        --callerStreamBuffers_;
    Free(buffer);
    frame->Describe(nullptr, 0, 0, 0, 0, 0, nullptr);
    if (callerStreamBuffers_ == 0 && reserveBuffers_ > 0) {
        // The caller is done with streaming: the reserve goes too. A frame that still describes
        // a reserve buffer is refused from now on, like any other released one.
        std::vector<Buffer*> reserve;
        for (auto& entry : buffers_)
            if (entry.second->reserve && !entry.second->released)
                reserve.push_back(entry.second.get());
        for (Buffer* stale : reserve)
            Free(stale);
        reserveBuffers_ = 0;
    }
    return QRN_OK;
}

void StreamChannel::TopUpReserve() {
    size_t missing = 0;
    size_t size = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!stream_)
            return;
        size_t inStream = 0;
        for (const auto& entry : buffers_) {
            const Buffer& buffer = *entry.second;
            if (buffer.released || buffer.kind != Kind::Stream)
                continue;
            if (buffer.queued)
                ++inStream;
            if (!buffer.reserve)
                size = std::max(size, buffer.size);
        }
        if (inStream >= callerStreamBuffers_ || reserveBuffers_ >= callerStreamBuffers_)
            return;
        missing = std::min(callerStreamBuffers_ - inStream, callerStreamBuffers_ - reserveBuffers_);
    }
    std::vector<std::unique_ptr<Buffer>> made;
    for (size_t i = 0; i < missing; ++i) {
        // Without memory the stream goes on with what it has.
        std::unique_ptr<Buffer> buffer = MakeBuffer(Kind::Stream, size);
        if (!buffer)
            break;
        buffer->reserve = true;
        made.push_back(std::move(buffer));
    }
    std::lock_guard<std::mutex> lock(mutex_);
    // The caller may have released its last buffer meanwhile: then the reserve is not wanted.
    if (callerStreamBuffers_ == 0)
        return;
    for (auto& buffer : made) {
        Buffer* record = buffer.get();
        Insert(std::move(buffer));
        if (stream_)
            Push(record);
        else
            record->queued = true;
    }
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
    if (ARV_IS_GV_STREAM(stream.Get())) {
        // Aravis would ask for one frame; the system caps the request at net.core.rmem_max,
        // which the host checks compare with the same figure.
        const uint64_t receiveBuffer =
            KorvatinStreamReceiveBufferBytes(payloadSize, framesPerSecond(description));
        g_object_set(stream.Get(), "packet-request-ratio", kPacketRequestRatio, "socket-buffer",
                     ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
                     gint(std::min<uint64_t>(receiveBuffer, INT_MAX)), nullptr);
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stream_ = std::move(stream);
        lastCompleteId_ = 0;
        skippedIds_ = 0;
        incompleteSinceComplete_ = 0;
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
    // Counted as of a stream that is closed: Totals() adds the current stream only while
    // stream_ is set, and it is not set any more.
    closedStreams_.lost += skippedIds_ + incompleteSinceComplete_;
    closedStreams_.resentPackets +=
        arv_stream_get_info_uint64_by_name(closing.Get(), "n_resent_packets");
    closedStreams_.incompleteFrames +=
        arv_stream_get_info_uint64_by_name(closing.Get(), "n_failures");
    closedStreams_.missingPackets +=
        arv_stream_get_info_uint64_by_name(closing.Get(), "n_missing_packets");
    skippedIds_ = 0;
    incompleteSinceComplete_ = 0;
    lastCompleteId_ = 0;
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
    TopUpReserve();
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
                if (data == nullptr && stream_.Get() == stream)
                    ++incompleteSinceComplete_;
                else if (data != nullptr && stream_.Get() == stream)
                    CountComplete(arv_buffer_get_frame_id(popped));
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

void StreamChannel::CountComplete(uint64_t id) {
    const uint64_t distance = lastCompleteId_ != 0 ? blockIdDistance(lastCompleteId_, id) : 0;
    if (distance >= 1 && distance < kLargestGap) {
        // The incomplete images since the last complete one are among the skipped ids.
        skippedIds_ += distance - 1;
    } else {
        // The first image of the stream, or ids that started anew: only the incomplete images
        // seen are known to be lost.
        skippedIds_ += incompleteSinceComplete_;
    }
    incompleteSinceComplete_ = 0;
    lastCompleteId_ = id;
}

StreamChannel::Counts StreamChannel::Totals() {
    Counts totals = closedStreams_;
    if (stream_) {
        totals.lost += skippedIds_ + incompleteSinceComplete_;
        totals.resentPackets +=
            arv_stream_get_info_uint64_by_name(stream_.Get(), "n_resent_packets");
        totals.incompleteFrames += arv_stream_get_info_uint64_by_name(stream_.Get(), "n_failures");
        totals.missingPackets +=
            arv_stream_get_info_uint64_by_name(stream_.Get(), "n_missing_packets");
    }
    return totals;
}

StreamChannel::Counts StreamChannel::StreamTotals() {
    std::lock_guard<std::mutex> lock(mutex_);
    return Totals();
}

uint32_t StreamChannel::Dropped() {
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t lost = Totals().lost - atClear_.lost;
    return lost > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(lost);
}

void StreamChannel::ClearDropped() {
    std::lock_guard<std::mutex> lock(mutex_);
    atClear_ = Totals();
}

StreamChannel::Statistics StreamChannel::StreamStatistics() {
    std::lock_guard<std::mutex> lock(mutex_);
    const Counts totals = Totals();
    Statistics statistics;
    statistics.resentPackets = totals.resentPackets - atClear_.resentPackets;
    statistics.incompleteFrames = totals.incompleteFrames - atClear_.incompleteFrames;
    return statistics;
}

size_t StreamChannel::BufferCount() {
    std::lock_guard<std::mutex> lock(mutex_);
    return buffers_.size();
}

} // namespace korvatin
