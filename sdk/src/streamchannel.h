// A camera's frame buffers and its Aravis stream: queueing, receiving and lost-frame counts.
#pragma once

#include "gobjectref.h"
#include "korvatin/qrnerror.h"

#include <arv.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

class CKorvatinFrame;

namespace korvatin {

class GenicamDescription;

// Buffers live as long as this object (the camera) unless released earlier; a stream comes and
// goes with StartStream and StopStream. A frame names its buffer through an opaque handle (a
// number, never reused), so a frame that still describes a released buffer is refused instead of
// reaching freed memory.
//
// Threads: GetFrame is meant for one thread (the grab thread); every other call may come from any
// thread, and all of them may run at the same time.
class StreamChannel {
public:
    enum class Kind { Conversion = 0, Stream = 1 };

    StreamChannel();
    ~StreamChannel();
    StreamChannel(const StreamChannel&) = delete;
    StreamChannel& operator=(const StreamChannel&) = delete;

    // Gives `frame` a buffer of `size` bytes and describes it (stride and image size from the
    // frame's width, height and pixel type). QRN_ERR_NO_MEMORY when it cannot be had.
    QRN_ERROR Allocate(CKorvatinFrame* frame, Kind kind, size_t size);
    // Frees the buffer `frame` describes; a buffer still in the stream is freed when the stream
    // lets it go. The frame is left describing nothing.
    QRN_ERROR Release(CKorvatinFrame* frame);

    // Creates the stream channel on `device` (Aravis negotiates the packet size), hands it every
    // queued buffer, then executes AcquisitionStart. `payloadSize` is the camera's PayloadSize
    // (0 when unknown), kept for StreamPayloadSize while the stream is open. Throws
    // CKorvatinException on failure.
    void Start(ArvDevice* device, const std::shared_ptr<GenicamDescription>& description,
               size_t payloadSize);
    // Executes AcquisitionStop (when `description` is given and attached), then closes the
    // stream. Buffers that were queued stay queued for the next Start.
    void Stop(const std::shared_ptr<GenicamDescription>& description);
    bool IsStreaming();
    // While the stream is open: true, with the PayloadSize given to Start in `size`.
    bool StreamPayloadSize(size_t* size);

    QRN_ERROR Queue(CKorvatinFrame* frame);
    // Waits up to `timeoutMs` for a complete image. Incomplete images go straight back to the
    // stream; they are already counted among the stream's failures.
    QRN_ERROR Receive(CKorvatinFrame* frame, uint32_t timeoutMs);

    // Images lost since ClearDropped: incomplete ones plus frames the stream never saw start.
    uint32_t Dropped();
    void ClearDropped();

    // Buffers not yet freed, released ones the stream still holds included.
    size_t BufferCount();

private:
    struct Buffer;

    void StopLocked(const std::shared_ptr<GenicamDescription>& description);
    Buffer* Find(const CKorvatinFrame* frame);
    void Erase(Buffer* buffer);
    void Push(Buffer* buffer);
    // Failures and missing frames of the current stream, plus those of closed streams.
    uint64_t LostTotal();

    std::mutex controlMutex_;         // held for the whole of Start and Stop, so they never overlap
    std::mutex mutex_;                // guards every member below
    std::condition_variable changed_; // stream_ replaced, or receivers_ dropped
    uint64_t nextId_ = 1;
    std::unordered_map<uint64_t, std::unique_ptr<Buffer>> buffers_;
    std::unordered_map<ArvBuffer*, Buffer*> byArvBuffer_;
    GObjectRef<ArvStream> stream_;
    size_t streamPayloadSize_ = 0; // given to Start; meaningful while stream_ is set
    int receivers_ = 0;            // Receive calls waiting on stream_ without the lock
    uint64_t lostInClosedStreams_ = 0;
    uint64_t lostAtClear_ = 0;
};

} // namespace korvatin
