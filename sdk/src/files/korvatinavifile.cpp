// Writer of AVI recordings: uncompressed 8-bit grey or 24-bit colour frames.
#include "korvatin/korvatinavifile.h"

#include "aviwriter.h"
#include "displaypixeltypes.h"
#include "korvatin/korvatinframe.h"

namespace {} // namespace

CKorvatinAVIFile::CKorvatinAVIFile() = default;

CKorvatinAVIFile::~CKorvatinAVIFile() {
    Close();
}

void CKorvatinAVIFile::SetFileName(const char* fileName) {
    fileName_ = fileName != nullptr ? fileName : "";
}

QRN_ERROR CKorvatinAVIFile::Open() {
    Close();
    writer_.reset();
    lastError_.clear();
    writer_ =
        korvatin::AviWriter::Open(fileName_, width_, height_, color_, frameRate_, &lastError_);
    return writer_ ? QRN_OK : QRN_ERR_IO;
}

QRN_ERROR CKorvatinAVIFile::Append(const CKorvatinFrame& frame) {
    if (!IsOpen()) {
        lastError_ = "The AVI file is not open";
        return QRN_ERR_INVALID;
    }
    const uint32_t type = frame.PixelType();
    if (type != korvatin::kDisplayGrey && type != korvatin::kDisplayRgb) {
        lastError_ = "Only 8-bit grey and RGB frames can be recorded";
        return QRN_ERR_INVALID;
    }
    if (frame.Width() != width_ || frame.Height() != height_) {
        lastError_ = "The frame's size is not the recording's";
        return QRN_ERR_INVALID;
    }
    const bool rgb = type == korvatin::kDisplayRgb;
    const uint32_t rowBytes = width_ * (rgb ? 3 : 1);
    const uint32_t stride = frame.Stride() != 0 ? frame.Stride() : rowBytes;
    if (stride < rowBytes || frame.Data() == nullptr ||
        frame.DataSize() < size_t(stride) * (height_ - 1) + rowBytes) {
        lastError_ = "The frame holds fewer bytes than its size needs";
        return QRN_ERR_INVALID;
    }
    return writer_->Append(frame.Data(), stride, rgb, &lastError_);
}

QRN_ERROR CKorvatinAVIFile::Close() {
    // The closed writer stays, so that FrameCount still tells how many frames the file holds.
    return writer_ ? writer_->Close(&lastError_) : QRN_OK;
}

bool CKorvatinAVIFile::IsOpen() const {
    return writer_ && writer_->IsOpen();
}

uint32_t CKorvatinAVIFile::FrameCount() const {
    return writer_ ? writer_->FrameCount() : 0;
}
