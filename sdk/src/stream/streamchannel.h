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
// Stream buffers the caller keeps out of the stream (received frames it holds, buffers it never
// queued) are made up for by reserve buffers of the channel's own, so that the stream always has
// as many buffers to fill as were allocated for it. A reserve buffer is like any other once it
// has been received: the caller may hold it and queue it again. The reserve is freed with the
// last stream buffer the caller releases.
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

    // Images lost since ClearDropped: the block ids skipped between two complete images (frames
    // closed incomplete and frames that found no buffer alike), plus the incomplete ones since
    // the last complete image.
    uint32_t Dropped();
    void ClearDropped();

    // Aravis' own counts since ClearDropped: packets the camera sent again on request, and
    // images it closed incomplete.
    struct Statistics {
        uint64_t resentPackets = 0;
        uint64_t incompleteFrames = 0;
    };
    Statistics StreamStatistics();

    // Every count since this channel was made, never cleared: frames lost, and Aravis' packets
    // resent, packets missing (asked for again in vain) and images closed incomplete.
    struct Counts {
        uint64_t lost = 0;
        uint64_t resentPackets = 0;
        uint64_t incompleteFrames = 0;
        uint64_t missingPackets = 0;
    };
    Counts StreamTotals();

    // Buffers not yet freed, released ones the stream still holds and the reserve included.
    size_t BufferCount();

private:
    struct Buffer;

    void StopLocked(const std::shared_ptr<GenicamDescription>& description);
    Buffer* Find(const CKorvatinFrame* frame);
    std::unique_ptr<Buffer> MakeBuffer(Kind kind, size_t size);
    void Insert(std::unique_ptr<Buffer> buffer);
    void Erase(Buffer* buffer);
    // Frees a buffer at once, or when the stream lets it go if the stream holds it.
    void Free(Buffer* buffer);
    void Push(Buffer* buffer);
    // Adds reserve buffers to the stream until it holds as many as the caller allocated.
    // Called without mutex_; takes it.
    void TopUpReserve();
    // Counts the complete image with block id `id`: the ids skipped since the previous one are
    // lost frames.
    void CountComplete(uint64_t id);
    // The current stream's counts (nothing without a stream), plus those of closed streams.
    Counts Totals();

    std::mutex controlMutex_;         // held for the whole of Start and Stop, so they never overlap
    std::mutex mutex_;                // guards every member below
    std::condition_variable changed_; // stream_ replaced, or receivers_ dropped
    uint64_t nextId_ = 1;
    std::unordered_map<uint64_t, std::unique_ptr<Buffer>> buffers_;
    std::unordered_map<ArvBuffer*, Buffer*> byArvBuffer_;
    GObjectRef<ArvStream> stream_;
    size_t streamPayloadSize_ = 0;   // given to Start; meaningful while stream_ is set
    int receivers_ = 0;              // Receive calls waiting on stream_ without the lock
    size_t callerStreamBuffers_ = 0; // stream buffers allocated by the caller, not released
    size_t reserveBuffers_ = 0;      // reserve buffers not released
    // Of the current stream: the block id of the last complete image (0: none yet), the ids
    // skipped so far, and incomplete images since the last complete one.
    uint64_t lastCompleteId_ = 0;
    uint64_t skippedIds_ = 0;
    uint64_t incompleteSinceComplete_ = 0;
    Counts closedStreams_;
    Counts atClear_;
};

} // namespace korvatin
