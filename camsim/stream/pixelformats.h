// The pixel formats the simulated camera streams: names, GigE Vision codes and how each is laid
// out, so that one encoder writes any of them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace camsim {

// How the samples of a format are written.
enum class SampleLayout {
    Byte,       // one byte a pixel
    SignedByte, // one signed byte a pixel: the level minus 128
    Word,       // 16 bits little-endian a pixel, the value in the low `bits` bits
    GevPacked,  // two pixels in three bytes: high 8 bits in bytes 0 and 2, low bits in byte 1
    LsbPacked,  // a continuous little-endian bit stream of `bits`-bit pixels, first in the low bits
    Rgb8,       // three bytes a pixel (B, G, R when `bgr`)
    Rgba8,      // four bytes a pixel, the fourth 255
    Rgb16,      // three 16-bit little-endian words a pixel
    Rgb10V1,    // 32 bits: low 2 bits of B, G, R in byte 0 (bits 0-1, 2-3, 4-5); B, G, R high
    Rgb10p32,   // a 32-bit little-endian word: R bits 0-9, G 10-19, B 20-29
    Rgb12V1,    // the samples R, G, B, R, ... packed two in three bytes as GevPacked
    Rgb565,     // a 16-bit little-endian word: R bits 0-4, G 5-10, B 11-15 (B first when `bgr`)
    Planar8,    // the R plane, then G, then B, one byte a sample
    Planar16,   // the same with 16-bit little-endian samples
    Yuv,        // luma and chroma bytes in groups, in the order `yuvOrder` names
    Coord3D8,   // three bytes a point (A, B, C): data, not an image
};

// The matrix luma and chroma are computed with.
enum class YuvMatrix { Full601, Studio601, Studio709 };

struct PixelFormatInfo {
    const char* name;
    uint32_t code;
    SampleLayout layout;
    int bits;                  // bits of each sample
    const char* mosaic = "";   // Bayer: the 2 x 2 cell, first row then second ("RGGB")
    bool bgr = false;          // components in B, G, R order
    const char* yuvOrder = ""; // Yuv: one group's bytes, "U" Cb, "Y" luma, "V" Cr ("UYVY")
    YuvMatrix matrix = YuvMatrix::Full601;
};

// Every format the camera offers, in the order of its PixelFormat enumeration.
const PixelFormatInfo* PixelFormats(std::size_t* count);
// The format of a code, or null when the camera does not offer it.
const PixelFormatInfo* FindPixelFormat(uint32_t code);

} // namespace camsim
