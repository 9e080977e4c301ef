// The colour row readers, compiled once per instruction set: the file that includes this
// defines KORVATIN_COLOUR_ISA (the namespace) and the target it is built for. The loops are
// written plainly (restrict pointers, size_t indexes, one sample a statement) so that the
// compiler vectorises them for the target; luma and chroma are first split into three runs of
// bytes, which the matrix then turns into R, G, B a whole run at a time.

#include "convertrows.h"

#include <algorithm>
#include <cstring>

namespace korvatin {
namespace KORVATIN_COLOUR_ISA {

namespace {

using P = SourcePacking;

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

// Pixels share chroma in groups of `Pixels` (1, 2 or 4) taking `Bytes` bytes: each group's
// bytes are split into a run of luma and runs of Cb and Cr repeated for every pixel of the group.
// The byte positions are constants, so that the loads vectorise as fixed shuffles.
template <int Pixels, int Bytes, int U, int V, int Y0, int Y1 = 0, int Y2 = 0, int Y3 = 0>
void SplitYuv(const uint8_t* __restrict in, size_t groups, uint8_t* __restrict ys,
              uint8_t* __restrict us, uint8_t* __restrict vs) {
    constexpr int kY[4] = {Y0, Y1, Y2, Y3};
    for (size_t g = 0; g < groups; ++g) {
        for (int p = 0; p < Pixels; ++p) {
            ys[g * Pixels + p] = in[g * Bytes + kY[p]];
            us[g * Pixels + p] = in[g * Bytes + U];
            vs[g * Pixels + p] = in[g * Bytes + V];
        }
    }
}

// The layouts of YuvLayout that formats use: 4:4:4 Cb Y Cr, 4:2:2 Y Cb Y Cr and Cb Y Cr Y,
// 4:1:1 Cb Y Y Cr Y Y.
void SplitYuvRun(const YuvLayout& l, const uint8_t* in, size_t pixels, uint8_t* ys, uint8_t* us,
                 uint8_t* vs) {
    if (l.pixels == 1)
        SplitYuv<1, 3, 0, 2, 1>(in, pixels, ys, us, vs);
    else if (l.pixels == 2 && l.u == 1)
        SplitYuv<2, 4, 1, 3, 0, 2>(in, pixels / 2, ys, us, vs);
    else if (l.pixels == 2)
        SplitYuv<2, 4, 0, 2, 1, 3>(in, pixels / 2, ys, us, vs);
    else
        SplitYuv<4, 6, 0, 3, 1, 2, 4, 5>(in, pixels / 4, ys, us, vs);
}

// R, G, B of `count` pixels from their luma and chroma runs.
void YuvToRgb(const uint8_t* __restrict ys, const uint8_t* __restrict us,
              const uint8_t* __restrict vs, uint32_t count, const YuvFactors& k,
              uint8_t* __restrict out) {
    const int luma = k.luma, offset = k.lumaOffset;
    const int crToR = k.crToR, cbToG = k.cbToG, crToG = k.crToG, cbToB = k.cbToB;
    for (size_t x = 0; x < count; ++x) {
        const int y = luma * (int(ys[x]) - offset) + 32768;
        const int d = int(us[x]) - 128;
        const int e = int(vs[x]) - 128;
        const int r = (y + crToR * e) >> 16;
        const int g = (y - cbToG * d - crToG * e) >> 16;
        const int b = (y + cbToB * d) >> 16;
        out[3 * x] = uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
        out[3 * x + 1] = uint8_t(g < 0 ? 0 : g > 255 ? 255 : g);
        out[3 * x + 2] = uint8_t(b < 0 ? 0 : b > 255 ? 255 : b);
    }
}

void YuvRow8(const SourceFormat& format, const uint8_t* line, uint32_t width, uint8_t* out) {
    const YuvLayout& l = *format.yuv;
    const YuvFactors& k = FactorsOf(format.matrix);
    // Runs short enough to stay in the first-level cache, a whole number of groups each.
    constexpr uint32_t kRun = 512;
    alignas(64) uint8_t ys[kRun];
    alignas(64) uint8_t us[kRun];
    alignas(64) uint8_t vs[kRun];
    for (uint32_t x = 0; x < width; x += kRun) {
        const uint32_t count = std::min(kRun, width - x);
        SplitYuvRun(l, line + size_t(x / l.pixels) * l.bytes, count, ys, us, vs);
        YuvToRgb(ys, us, vs, count, k, out + size_t(x) * 3);
    }
}

// Three or four bytes a pixel to R, G, B: the samples at `first`, 1 and `last` of each pixel.
template <int Step>
void Bytes8Row(const uint8_t* __restrict in, uint32_t width, bool bgr, uint8_t* __restrict out) {
    const int first = bgr ? 2 : 0, last = bgr ? 0 : 2;
    for (size_t x = 0; x < width; ++x) {
        out[3 * x] = in[Step * x + first];
        out[3 * x + 1] = in[Step * x + 1];
        out[3 * x + 2] = in[Step * x + last];
    }
}

// Three 16-bit little-endian samples a pixel, the value in the low `bits` bits.
template <typename T>
void Rgb16Row(const SourceFormat& f, const uint8_t* __restrict in, uint32_t width,
              T* __restrict out) {
    const int shift = sizeof(T) == 1 ? f.bits - 8 : 0;
    const uint32_t top = sizeof(T) == 1 ? 255 : 65535;
    const int first = f.bgr ? 2 : 0, last = f.bgr ? 0 : 2;
    for (size_t x = 0; x < width; ++x) {
        const uint8_t* p = in + 6 * size_t(x);
        out[3 * x + first] = T(std::min((uint32_t(p[0]) | uint32_t(p[1]) << 8) >> shift, top));
        out[3 * x + 1] = T(std::min((uint32_t(p[2]) | uint32_t(p[3]) << 8) >> shift, top));
        out[3 * x + last] = T(std::min((uint32_t(p[4]) | uint32_t(p[5]) << 8) >> shift, top));
    }
}

// RGB10V1Packed: byte 0 holds the low 2 bits of B, G, R (bits 0-1, 2-3, 4-5), bytes 1, 2, 3
// the high 8 bits of B, G, R.
template <typename T>
void Rgb10V1Row(const uint8_t* __restrict in, uint32_t width, T* __restrict out) {
    for (size_t x = 0; x < width; ++x) {
        const uint8_t* p = in + 4 * size_t(x);
        if constexpr (sizeof(T) == 1) {
            out[3 * x] = p[3];
            out[3 * x + 1] = p[2];
            out[3 * x + 2] = p[1];
        } else {
            out[3 * x] = T(uint32_t(p[3]) << 2 | ((p[0] >> 4) & 3));
            out[3 * x + 1] = T(uint32_t(p[2]) << 2 | ((p[0] >> 2) & 3));
            out[3 * x + 2] = T(uint32_t(p[1]) << 2 | (p[0] & 3));
        }
    }
}

// RGB10p32: a little-endian 32-bit word, R in bits 0-9, G 10-19, B 20-29.
template <typename T>
void Rgb10p32Row(const uint8_t* __restrict in, uint32_t width, T* __restrict out) {
    const int shift = sizeof(T) == 1 ? 2 : 0;
    for (size_t x = 0; x < width; ++x) {
        const uint8_t* p = in + 4 * size_t(x);
        const uint32_t w =
            uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
        out[3 * x] = T((w & 0x3FF) >> shift);
        out[3 * x + 1] = T(((w >> 10) & 0x3FF) >> shift);
        out[3 * x + 2] = T(((w >> 20) & 0x3FF) >> shift);
    }
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

// `count` samples of RGB12V1Packed from sample `first`: whole pairs (three bytes each) in a
// plain loop, a lone sample at either end one by one.
template <typename T>
void Rgb12V1Samples(const uint8_t* data, size_t first, size_t count, T* __restrict out) {
    const int shift = sizeof(T) == 1 ? 4 : 0;
    size_t i = first;
    const size_t end = first + count;
    if (i < end && (i & 1)) {
        *out++ = T(Rgb12V1Sample(data, i++) >> shift);
    }
    const size_t pairs = (end - i) / 2;
    const uint8_t* __restrict g = data + i / 2 * 3;
    for (size_t k = 0; k < pairs; ++k) {
        const uint8_t* q = g + 3 * k;
        out[2 * k] = T((uint32_t(q[0]) << 4 | (q[1] & 0xF)) >> shift);
        out[2 * k + 1] = T((uint32_t(q[2]) << 4 | (q[1] >> 4)) >> shift);
    }
    out += 2 * pairs;
    i += 2 * pairs;
    if (i < end)
        *out = T(Rgb12V1Sample(data, i) >> shift);
}

// RGB565p (R in the low bits) and BGR565p, 5- and 6-bit samples widened by repeating their top
// bits below them (31 gives 255).
void Rgb565Row(const uint8_t* __restrict in, uint32_t width, bool bgr, uint8_t* __restrict out) {
    const int first = bgr ? 2 : 0, last = bgr ? 0 : 2;
    for (size_t x = 0; x < width; ++x) {
        const uint32_t w = uint32_t(in[2 * x]) | uint32_t(in[2 * x + 1]) << 8;
        const uint32_t a = w & 31, g = (w >> 5) & 63, b = w >> 11;
        out[3 * x + first] = uint8_t(a << 3 | a >> 2);
        out[3 * x + 1] = uint8_t(g << 2 | g >> 4);
        out[3 * x + last] = uint8_t(b << 3 | b >> 2);
    }
}

// The start of row y of plane `plane` of a planar source.
inline const uint8_t* PlaneRow(const ColourImage& image, int plane, uint32_t y) {
    const size_t line = LineBytes(*image.format, image.width);
    return image.data + (size_t(plane) * image.height + y) * line;
}

void Planar8Row(const uint8_t* __restrict r, const uint8_t* __restrict g,
                const uint8_t* __restrict b, uint32_t width, uint8_t* __restrict out) {
    for (size_t x = 0; x < width; ++x) {
        out[3 * x] = r[x];
        out[3 * x + 1] = g[x];
        out[3 * x + 2] = b[x];
    }
}

template <typename T>
void Planar16Row(const uint8_t* __restrict r, const uint8_t* __restrict g,
                 const uint8_t* __restrict b, uint32_t width, int bits, T* __restrict out) {
    const int shift = sizeof(T) == 1 ? bits - 8 : 0;
    const uint32_t top = sizeof(T) == 1 ? 255 : 65535;
    for (size_t x = 0; x < width; ++x) {
        out[3 * x] = T(std::min((uint32_t(r[2 * x]) | uint32_t(r[2 * x + 1]) << 8) >> shift, top));
        out[3 * x + 1] =
            T(std::min((uint32_t(g[2 * x]) | uint32_t(g[2 * x + 1]) << 8) >> shift, top));
        out[3 * x + 2] =
            T(std::min((uint32_t(b[2 * x]) | uint32_t(b[2 * x + 1]) << 8) >> shift, top));
    }
}

#ifdef KORVATIN_COLOUR_VBMI
// Whole 64-byte vectors whose bytes (or 16-bit words) a single permute puts in place: `Units`
// pixels of `In` bytes become `Units` pixels of 3 samples, each pixel taking its samples at
// `first`, `first + step` and `first + 2 step` of its own (step -1 for B, G, R). A run loads and
// stores whole vectors, so runs stop where a vector would reach past the line (a store's bytes
// beyond its run are written again by the next run). Returns the pixels done; the rest are left
// to the plain loop.
template <int Units, int In, int Sample>
size_t PermuteRuns(const uint8_t* in, size_t width, int first, int step, uint8_t* out) {
    alignas(64) uint8_t index[64] = {};
    for (int p = 0; p < Units; ++p)
        for (int c = 0; c < 3; ++c) {
            const int from = p * (In / Sample) + first + c * step;
            if (Sample == 1)
                index[p * 3 + c] = uint8_t(from);
            else
                reinterpret_cast<uint16_t*>(index)[p * 3 + c] = uint16_t(from);
        }
    const __m512i permute = _mm512_load_si512(index);
    const size_t inBytes = width * In, outBytes = width * 3 * Sample;
    size_t r = 0;
    for (; (r * Units) * In + 64 <= inBytes && (r * Units) * 3 * Sample + 64 <= outBytes; ++r) {
        const __m512i v = _mm512_loadu_si512(in + r * Units * In);
        const __m512i moved = Sample == 1 ? _mm512_permutexvar_epi8(permute, v)
                                          : _mm512_permutexvar_epi16(permute, v);
        _mm512_storeu_si512(out + r * Units * 3 * Sample, moved);
    }
    return r * Units;
}
#endif

} // namespace

void Row8(const ColourImage& image, uint32_t y, uint8_t* out) {
    const SourceFormat& f = *image.format;
    const uint32_t width = image.width;
    const uint8_t* line = image.data + y * image.stride;
    switch (f.packing) {
    case P::Rgb8: {
        if (!f.bgr) {
            std::memcpy(out, line, size_t(width) * 3);
            return;
        }
        size_t done = 0;
#ifdef KORVATIN_COLOUR_VBMI
        done = PermuteRuns<21, 3, 1>(line, width, 2, -1, out);
#endif
        Bytes8Row<3>(line + 3 * done, uint32_t(width - done), true, out + 3 * done);
        return;
    }
    case P::Rgba8: {
        size_t done = 0;
#ifdef KORVATIN_COLOUR_VBMI
        done = PermuteRuns<16, 4, 1>(line, width, f.bgr ? 2 : 0, f.bgr ? -1 : 1, out);
#endif
        Bytes8Row<4>(line + 4 * done, uint32_t(width - done), f.bgr, out + 3 * done);
        return;
    }
    case P::Rgb16:
        Rgb16Row(f, line, width, out);
        return;
    case P::Rgb10V1:
        Rgb10V1Row(line, width, out);
        return;
    case P::Rgb10p32:
        Rgb10p32Row(line, width, out);
        return;
    case P::Rgb12V1:
        Rgb12V1Samples(image.data, size_t(y) * width * 3, size_t(width) * 3, out);
        return;
    case P::Rgb565:
        Rgb565Row(line, width, f.bgr, out);
        return;
    case P::Planar8:
        Planar8Row(PlaneRow(image, 0, y), PlaneRow(image, 1, y), PlaneRow(image, 2, y), width, out);
        return;
    case P::Planar16:
        Planar16Row(PlaneRow(image, 0, y), PlaneRow(image, 1, y), PlaneRow(image, 2, y), width,
                    f.bits, out);
        return;
    case P::Yuv8:
        YuvRow8(f, line, width, out);
        return;
    default:
        return;
    }
}

void Row16(const ColourImage& image, uint32_t y, uint16_t* out) {
    const SourceFormat& f = *image.format;
    const uint32_t width = image.width;
    const uint8_t* line = image.data + y * image.stride;
    switch (f.packing) {
    case P::Rgb16: {
        size_t done = 0;
#ifdef KORVATIN_COLOUR_VBMI
        done = PermuteRuns<10, 6, 2>(line, width, f.bgr ? 2 : 0, f.bgr ? -1 : 1,
                                     reinterpret_cast<uint8_t*>(out));
#endif
        Rgb16Row(f, line + 6 * done, uint32_t(width - done), out + 3 * done);
        return;
    }
    case P::Rgb10V1:
        Rgb10V1Row(line, width, out);
        return;
    case P::Rgb10p32:
        Rgb10p32Row(line, width, out);
        return;
    case P::Rgb12V1:
        Rgb12V1Samples(image.data, size_t(y) * width * 3, size_t(width) * 3, out);
        return;
    case P::Planar16:
        Planar16Row(PlaneRow(image, 0, y), PlaneRow(image, 1, y), PlaneRow(image, 2, y), width,
                    f.bits, out);
        return;
    default:
        return;
    }
}

} // namespace KORVATIN_COLOUR_ISA
} // namespace korvatin
