// One image: its size, pixel type and the buffer that holds its pixels; and format conversion.
#pragma once

#include "qrnerror.h"

#include <cstddef>
#include <cstdint>
#include <string>

// A frame describes a buffer; it does not own pixels by itself. Buffers come from
// CKorvatinCamera::AllocateFrameBuffer and go back with ReleaseFrameBuffer. UpdateFrame makes one
// frame describe another frame's buffer and image (no pixel is copied), which is how frames are
// handed between threads.
class CKorvatinFrame {
public:
    CKorvatinFrame();
    virtual ~CKorvatinFrame();
    CKorvatinFrame(const CKorvatinFrame&) = delete;
    CKorvatinFrame& operator=(const CKorvatinFrame&) = delete;

    uint32_t Width() const { return width_; }
    uint32_t Height() const { return height_; }
    // GigE Vision (PFNC) pixel-format code; bits 16-23 are the bits per pixel.
    uint32_t PixelType() const { return pixelType_; }
    void SetWidth(uint32_t width) { width_ = width; }
    void SetHeight(uint32_t height) { height_ = height; }
    void SetPixelType(uint32_t pixelType) { pixelType_ = pixelType; }

    // Bytes from one line to the next (0 until an image is described).
    uint32_t Stride() const { return stride_; }
    // The image bytes and how many of them the image uses.
    uint8_t* Data() const { return data_; }
    size_t DataSize() const { return dataSize_; }
    // How many bytes the described buffer holds.
    size_t BufferSize() const { return bufferSize_; }
    uint64_t BlockId() const { return blockId_; }
    // Device timestamp of the image, in the device's ticks.
    uint64_t Timestamp() const { return timestamp_; }

    // Two informational attributes a converter may be given; stored as set, read back as set.
    void SetConversionAttributes(uint32_t first, uint32_t second) {
        conversionAttributes_[0] = first;
        conversionAttributes_[1] = second;
    }
    uint32_t ConversionAttribute(int index) const { return conversionAttributes_[index & 1]; }

    // Makes this frame describe `other`'s buffer and image: size, type, stride, data, block id,
    // timestamp. Never copies pixels.
    void UpdateFrame(const CKorvatinFrame& other);

    // Converts `source` into this frame's buffer. `code` bits 0-1 choose the Bayer interpolation
    // (0 none: the mosaic as grey, 1 nearest neighbour, 3 bilinear); bit 2 asks for a display
    // type (grey 0x21084001 for mono sources and uninterpolated Bayer, RGB 0x23088005 otherwise);
    // bit 3 changes nothing in the layout. `bitDepth` 8 gives 8 bits per channel; 0 keeps sources
    // deeper than 8 bits as 16 bits per channel (Mono16 or RGB16). `flag` is informational.
    // `context` is the camera's conversion context (CKorvatinCamera::ConversionContext()) or
    // null. This frame's width, height and pixel type are set to the result's. Returns 0, or
    // QRN_ERR_UNSUPPORTED for a source format it does not know, QRN_ERR_INVALID for a buffer too
    // small for the result.
    QRN_ERROR Convert(const CKorvatinFrame& source, uint32_t code, uint32_t bitDepth, uint32_t flag,
                      void* context);
    // What Convert(source, code, bitDepth, ...) would give, without converting: the result's
    // pixel type and size in bytes. Returns what Convert would for the source (QRN_ERR_UNSUPPORTED
    // for a format it does not know, QRN_ERR_INVALID for a source it cannot read); the
    // destination's size is the caller's to compare with `bytes`.
    static QRN_ERROR ConvertedLayout(const CKorvatinFrame& source, uint32_t code, uint32_t bitDepth,
                                     uint32_t* pixelType, size_t* bytes);

    // The PFNC name of a GigE Vision pixel-format code ("Mono8", "YCbCr709_422_8",
    // "Coord3D_ABC8"), or null for a code the SDK does not know.
    static const char* PixelFormatName(uint32_t pixelType);
    // Empty when Convert reads the pixel format; otherwise why not, in a sentence that names the
    // format ("pixel format Coord3D_ABC8 (0x021800B2) holds 3D coordinates, ...").
    static std::string ConversionRefusal(uint32_t pixelType);

    // For the SDK's own use: describe a buffer.
    void Describe(uint8_t* data, size_t dataSize, size_t bufferSize, uint32_t stride,
                  uint64_t blockId, uint64_t timestamp, void* bufferHandle);
    void* BufferHandle() const { return bufferHandle_; }

private:
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint32_t pixelType_ = 0;
    uint32_t stride_ = 0;
    uint8_t* data_ = nullptr;
    size_t dataSize_ = 0;
    size_t bufferSize_ = 0;
    uint64_t blockId_ = 0;
    uint64_t timestamp_ = 0;
    uint32_t conversionAttributes_[2] = {0, 0};
    void* bufferHandle_ = nullptr; // the SDK's record of the buffer, borrowed
};
