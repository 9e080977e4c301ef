// Rows of the colour sources (RGB in every packing, planar RGB, YUV and YCbCr) as R, G, B.
#include "convertrows.h"

#include <algorithm>
#include <cstring>

namespace korvatin {

namespace {

using P = SourcePacking;

inline uint8_t Clamp8(int v) {
    return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

inline uint32_t Word16(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8;
}

inline uint32_t Word32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// Writes one pixel's three samples in R, G, B order from samples read in the source's order.
template <typename T>
inline void Put(T* out, uint32_t first, uint32_t second, uint32_t third, bool bgr) {
    out[0] = T(bgr ? third : first);
    out[1] = T(second);
    out[2] = T(bgr ? first : third);
}

// Luma and chroma to R, G, B in 16-bit fixed point: R = k(Y - y0) + r Cr, G = k(Y - y0) - g1 Cb
// - g2 Cr, B = k(Y - y0) + b Cb, with Cb and Cr centred on 128. The factors are those of each
// standard's matrix (BT.601: Kr 0.299, Kb 0.114; BT.709: Kr 0.2126, Kb 0.0722), scaled by
// 255/219 (luma) and 255/224 (chroma) for studio range.
struct YuvFactors {
    int luma;
    int lumaOffset;
    int crToR;
    int cbToG;
    int crToG;
    int cbToB;
};

constexpr YuvFactors kFull601 = {65536, 0, 91881, 22553, 46802, 116130};
constexpr YuvFactors kStudio601 = {76309, 16, 104597, 25675, 53279, 132201};
constexpr YuvFactors kStudio709 = {76309, 16, 117489, 13975, 34925, 138438};

const YuvFactors& FactorsOf(YuvMatrix matrix) {
    switch (matrix) {
    case YuvMatrix::Studio601:
        return kStudio601;
    case YuvMatrix::Studio709:
        return kStudio709;
    default:
        return kFull601;
    }
}

void YuvRow8(const SourceFormat& format, const uint8_t* line, uint32_t width, uint8_t* out) {
    const YuvLayout& l = *format.yuv;
    const YuvFactors& k = FactorsOf(format.matrix);
    const uint32_t groups = width / l.pixels;
    for (uint32_t g = 0; g < groups; ++g, line += l.bytes) {
        const int d = int(line[l.u]) - 128;
        const int e = int(line[l.v]) - 128;
        const int r = k.crToR * e + 32768;
        const int gr = 32768 - k.cbToG * d - k.crToG * e;
        const int b = k.cbToB * d + 32768;
        for (int p = 0; p < l.pixels; ++p, out += 3) {
            const int y = k.luma * (int(line[l.y[p]]) - k.lumaOffset);
            out[0] = Clamp8((y + r) >> 16);
            out[1] = Clamp8((y + gr) >> 16);
            out[2] = Clamp8((y + b) >> 16);
        }
    }
}

// Widens a 5- or 6-bit sample to 8 bits by repeating its top bits below it (31 gives 255).
inline uint32_t Widen5(uint32_t v) {
    return v << 3 | v >> 2;
}
inline uint32_t Widen6(uint32_t v) {
    return v << 2 | v >> 4;
}

// One sample of RGB12V1Packed: sample i of the stream R0 G0 B0 R1 ..., two samples in three
// bytes (high 8 bits in the first or third byte, low 4 bits in the middle byte's low or high
// nibble).
inline uint32_t Rgb12V1Sample(const uint8_t* data, size_t i) {
    const uint8_t* g = data + (i >> 1) * 3;
    if ((i & 1) == 0)
        return uint32_t(g[0]) << 4 | (g[1] & 0xF);
    return uint32_t(g[2]) << 4 | (g[1] >> 4);
}

// The start of row y of plane `plane` of a planar source.
inline const uint8_t* PlaneRow(const ColourImage& image, int plane, uint32_t y) {
    const size_t line = LineBytes(*image.format, image.width);
    return image.data + (size_t(plane) * image.height + y) * line;
}

template <typename T>
void Rgb16Row(const SourceFormat& f, const uint8_t* in, uint32_t width, T* out) {
    const int shift = sizeof(T) == 1 ? f.bits - 8 : 0;
    const uint32_t top = sizeof(T) == 1 ? 255 : 65535;
    for (uint32_t x = 0; x < width; ++x, in += 6, out += 3)
        Put(out, std::min(Word16(in) >> shift, top), std::min(Word16(in + 2) >> shift, top),
            std::min(Word16(in + 4) >> shift, top), f.bgr);
}

template <typename T> void Planar16Row(const ColourImage& image, uint32_t y, T* out) {
    const SourceFormat& f = *image.format;
    const int shift = sizeof(T) == 1 ? f.bits - 8 : 0;
    const uint32_t top = sizeof(T) == 1 ? 255 : 65535;
    const uint8_t* planes[3] = {PlaneRow(image, 0, y), PlaneRow(image, 1, y),
                                PlaneRow(image, 2, y)};
    for (uint32_t x = 0; x < image.width; ++x, out += 3)
        for (int c = 0; c < 3; ++c)
            out[c] = T(std::min(Word16(planes[c] + 2 * x) >> shift, top));
}

} // namespace

void ColourRow8(const ColourImage& image, uint32_t y, uint8_t* out) {
    const SourceFormat& f = *image.format;
    const uint32_t width = image.width;
    const uint8_t* line = image.data + y * image.stride;
    switch (f.packing) {
    case P::Rgb8:
        if (!f.bgr) {
            std::memcpy(out, line, size_t(width) * 3);
            return;
        }
        for (uint32_t x = 0; x < width; ++x, line += 3, out += 3)
            Put(out, line[0], line[1], line[2], true);
        return;
    case P::Rgba8:
        for (uint32_t x = 0; x < width; ++x, line += 4, out += 3)
            Put(out, line[0], line[1], line[2], f.bgr);
        return;
    case P::Rgb16:
        Rgb16Row(f, line, width, out);
        return;
    case P::Rgb10V1:
        // The high 8 bits of B, G and R are whole bytes.
        for (uint32_t x = 0; x < width; ++x, line += 4, out += 3)
            Put(out, line[3], line[2], line[1], false);
        return;
    case P::Rgb10p32:
        for (uint32_t x = 0; x < width; ++x, line += 4, out += 3) {
            const uint32_t w = Word32(line);
            Put(out, (w >> 2) & 0xFF, (w >> 12) & 0xFF, (w >> 22) & 0xFF, false);
        }
        return;
    case P::Rgb12V1: {
        const size_t first = size_t(y) * width * 3;
        for (uint32_t x = 0; x < width; ++x, out += 3)
            for (int c = 0; c < 3; ++c)
                out[c] = uint8_t(Rgb12V1Sample(image.data, first + 3 * x + c) >> 4);
        return;
    }
    case P::Rgb565:
        for (uint32_t x = 0; x < width; ++x, line += 2, out += 3) {
            const uint32_t w = Word16(line);
            Put(out, Widen5(w & 31), Widen6((w >> 5) & 63), Widen5(w >> 11), f.bgr);
        }
        return;
    case P::Planar8: {
        const uint8_t* r = PlaneRow(image, 0, y);
        const uint8_t* g = PlaneRow(image, 1, y);
        const uint8_t* b = PlaneRow(image, 2, y);
        for (uint32_t x = 0; x < width; ++x, out += 3) {
            out[0] = r[x];
            out[1] = g[x];
            out[2] = b[x];
        }
        return;
    }
    case P::Planar16:
        Planar16Row(image, y, out);
        return;
    case P::Yuv8:
        YuvRow8(f, line, width, out);
        return;
    default:
        return;
    }
}

void ColourRow16(const ColourImage& image, uint32_t y, uint16_t* out) {
    const SourceFormat& f = *image.format;
    const uint32_t width = image.width;
    const uint8_t* line = image.data + y * image.stride;
    switch (f.packing) {
    case P::Rgb16:
        Rgb16Row(f, line, width, out);
        return;
    case P::Rgb10V1:
        for (uint32_t x = 0; x < width; ++x, line += 4, out += 3)
            Put(out, uint32_t(line[3]) << 2 | ((line[0] >> 4) & 3),
                uint32_t(line[2]) << 2 | ((line[0] >> 2) & 3),
                uint32_t(line[1]) << 2 | (line[0] & 3), false);
        return;
    case P::Rgb10p32:
        for (uint32_t x = 0; x < width; ++x, line += 4, out += 3) {
            const uint32_t w = Word32(line);
            Put(out, w & 0x3FF, (w >> 10) & 0x3FF, (w >> 20) & 0x3FF, false);
        }
        return;
    case P::Rgb12V1: {
        const size_t first = size_t(y) * width * 3;
        for (uint32_t x = 0; x < width; ++x, out += 3)
            for (int c = 0; c < 3; ++c)
                out[c] = uint16_t(Rgb12V1Sample(image.data, first + 3 * x + c));
        return;
    }
    case P::Planar16:
        Planar16Row(image, y, out);
        return;
    default:
        return;
    }
}

} // namespace korvatin
