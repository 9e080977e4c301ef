// One image: its size, pixel type and the buffer that holds its pixels.
#include "korvatin/korvatinframe.h"

CKorvatinFrame::CKorvatinFrame() = default;

CKorvatinFrame::~CKorvatinFrame() = default;

void CKorvatinFrame::UpdateFrame(const CKorvatinFrame& other) {
    if (&other == this)
        return;
    width_ = other.width_;
    height_ = other.height_;
    pixelType_ = other.pixelType_;
    stride_ = other.stride_;
    data_ = other.data_;
    dataSize_ = other.dataSize_;
    bufferSize_ = other.bufferSize_;
    blockId_ = other.blockId_;
    timestamp_ = other.timestamp_;
    bufferHandle_ = other.bufferHandle_;
}

void CKorvatinFrame::Describe(uint8_t* data, size_t dataSize, size_t bufferSize, uint32_t stride,
                              uint64_t blockId, uint64_t timestamp, void* bufferHandle) {
    data_ = data;
    dataSize_ = dataSize;
    bufferSize_ = bufferSize;
    stride_ = stride;
    blockId_ = blockId;
    timestamp_ = timestamp;
    bufferHandle_ = bufferHandle;
}
