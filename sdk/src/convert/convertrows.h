// Source pixel formats the converter reads, and how one row of each is unpacked.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvatin {

// How the pixels of a source format are laid out in memory.
enum class SourcePacking {
    Bits8,     // one byte per pixel
    Bits16,    // two bytes per pixel, little-endian, the value in the low `bits` bits
    GevPacked, // two pixels in three bytes: high bits of each pixel in bytes 0 and 2, the low
               // bits of both in byte 1 (first pixel in bits 0-3, second in bits 4-7)
    LsbPacked, // one continuous little-endian bit stream, `bits` bits per pixel (10p, 12p)
    Rgb8,      // R, G, B
    Bgr8,      // B, G, R
    Rgba8,     // R, G, B, A
    Bgra8,     // B, G, R, A
    Uyvy,      // U, Y0, V, Y1 for two pixels
    Yuyv,      // Y0, U, Y1, V for two pixels
};

// Colour of the top-left pixel's 2 x 2 cell, named by its first row then its second.
enum class BayerOrder { None, GR, RG, GB, BG };

struct SourceFormat {
    uint32_t code;
    SourcePacking packing;
    int bits; // significant bits per sample (8 to 16)
    BayerOrder bayer;
};

// The format of a GigE Vision pixel-format code, or null when the converter does not read it.
const SourceFormat* FindSourceFormat(uint32_t code);

// True when the format's lines are not whole bytes apart: the image is one continuous run of
// pixels, `width` x `height` of them, and any stride is ignored.
bool IsPackedStream(const SourceFormat& format);

// Bytes a line takes in a format whose lines are byte aligned (not a packed stream).
size_t LineBytes(const SourceFormat& format, uint32_t width);

// Bytes the whole image takes: (height - 1) strides and one line, or the packed stream's bytes
// rounded up to a whole byte.
size_t ImageBytes(const SourceFormat& format, uint32_t width, uint32_t height, size_t stride);

// Where a single-channel image's pixels are.
struct MonoImage {
    const SourceFormat* format;
    const uint8_t* data;
    size_t stride; // for byte-aligned lines
    uint32_t width;
};

// Row y of a single-channel image as 8-bit values: the top 8 of the significant bits.
void UnpackRow8(const MonoImage& image, uint32_t y, uint8_t* out);
// Row y of a single-channel image as 16-bit values, unchanged (a 12-bit source stays 0..4095).
void UnpackRow16(const MonoImage& image, uint32_t y, uint16_t* out);

inline void UnpackRow(const MonoImage& image, uint32_t y, uint8_t* out) {
    UnpackRow8(image, y, out);
}
inline void UnpackRow(const MonoImage& image, uint32_t y, uint16_t* out) {
    UnpackRow16(image, y, out);
}

// True when the processor has SSSE3 (byte shuffles); the fast kernels need it.
bool CpuHasSsse3();
// True when the processor has AVX2 (32-byte integer vectors).
bool CpuHasAvx2();
// True when the processor has AVX512BW and AVX512VBMI (64-byte vectors with byte permutes).
bool CpuHasAvx512Vbmi();

// Row y of a colour source as R, G, B bytes.
void ColourRowToRgb(const SourceFormat& format, const uint8_t* line, uint32_t width, uint8_t* out);

} // namespace korvatin
