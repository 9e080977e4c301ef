// Source pixel formats the converter reads, and how one row of each is unpacked.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvatin {

// How the pixels of a source format are laid out in memory.
enum class SourcePacking {
    // One sample a pixel: mono and Bayer sources.
    Bits8,       // one byte per pixel
    Bits8Signed, // one signed byte per pixel (-128..127)
    Bits16,      // two bytes per pixel, little-endian, the value in the low `bits` bits
    GevPacked,   // two pixels in three bytes: high bits of each pixel in bytes 0 and 2, the low
                 // bits of both in byte 1 (first pixel in bits 0-3, second in bits 4-7)
    LsbPacked,   // one continuous little-endian bit stream, `bits` bits per pixel (1p to 12p)
    // Three samples a pixel: colour sources, each read by ColourRow8 / ColourRow16.
    Rgb8,     // R, G, B bytes (B, G, R when `bgr`)
    Rgba8,    // R, G, B, A bytes (B, G, R, A when `bgr`)
    Rgb16,    // R, G, B as little-endian 16-bit words, the value in the low `bits` bits
    Rgb10V1,  // 32 bits: byte 0 the low 2 bits of B (bits 0-1), G (2-3), R (4-5); bytes 1, 2, 3
              // the high 8 bits of B, G, R
    Rgb10p32, // a little-endian 32-bit word: R in bits 0-9, G in 10-19, B in 20-29
    Rgb12V1,  // the samples R, G, B, R, G, B, ... two in three bytes as GevPacked (two pixels in
              // nine bytes), one continuous stream
    Rgb565,   // a little-endian 16-bit word: R in bits 0-4, G in 5-10, B in 11-15 (B first when
              // `bgr`)
    Planar8,  // three planes of bytes, R then G then B, each width x height
    Planar16, // the same with little-endian 16-bit samples, the value in the low `bits` bits
    Yuv8,     // Y, Cb (U) and Cr (V) bytes in groups of 1, 2 or 4 pixels, see YuvLayout
};

// Colour of the top-left pixel's 2 x 2 cell, named by its first row then its second.
enum class BayerOrder { None, GR, RG, GB, BG };

// How luma and chroma become R, G and B.
enum class YuvMatrix {
    Full601,   // BT.601 coefficients, full range: Y 0..255, chroma centred on 128 (JFIF)
    Studio601, // BT.601, studio range: Y 16..235, chroma 16..240
    Studio709, // BT.709, studio range: Y 16..235, chroma 16..240
};

// Where the bytes of one group of a Yuv8 source are: `pixels` pixels share one Cb and one Cr.
struct YuvLayout {
    uint8_t pixels;
    uint8_t bytes;
    uint8_t y[4];
    uint8_t u;
    uint8_t v;
};

struct SourceFormat {
    uint32_t code;
    const char* name; // the PFNC name
    SourcePacking packing;
    int bits; // significant bits per sample (1 to 16)
    BayerOrder bayer = BayerOrder::None;
    bool bgr = false; // components in B, G, R order
    const YuvLayout* yuv = nullptr;
    YuvMatrix matrix = YuvMatrix::Full601;
};

// True for the sources with three samples a pixel (Rgb8 and after).
inline bool IsColour(const SourceFormat& format) {
    return format.packing >= SourcePacking::Rgb8;
}

// The format of a GigE Vision pixel-format code, or null when the converter does not read it.
const SourceFormat* FindSourceFormat(uint32_t code);

// True when the format's lines are not whole bytes apart: the image is one continuous run of
// pixels, `width` x `height` of them, and any stride is ignored.
bool IsPackedStream(const SourceFormat& format);

// The formats Convert reads, in table order, and how many there are.
const SourceFormat* SourceFormats(size_t* count);

// Bytes a line takes in a format whose lines are byte aligned (not a packed stream); for a
// planar format, a line of one plane.
size_t LineBytes(const SourceFormat& format, uint32_t width);

// Bytes the whole image takes: (height - 1) strides and one line, the packed stream's bytes
// rounded up to a whole byte, or the three planes.
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

// A colour source: its lines are `stride` apart unless the format is a packed stream or planar.
struct ColourImage {
    const SourceFormat* format;
    const uint8_t* data;
    size_t stride;
    uint32_t width;
    uint32_t height;
};

// Row y of a colour source as R, G, B bytes: the top 8 of the significant bits, 5- and 6-bit
// samples widened by repeating their top bits, luma and chroma through the format's matrix.
void ColourRow8(const ColourImage& image, uint32_t y, uint8_t* out);
// Row y of a colour source as R, G, B 16-bit values, unchanged (a 12-bit source stays 0..4095).
// Only for sources of more than 8 significant bits.
void ColourRow16(const ColourImage& image, uint32_t y, uint16_t* out);

} // namespace korvatin
