// Source pixel formats the converter reads, and how one row of each is unpacked.
#include "convertrows.h"

#include <cstdlib>
#include <string>

#include <algorithm>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define KORVATIN_X86 1
#endif

namespace korvatin {

namespace {

using P = SourcePacking;
using B = BayerOrder;

// One pixel of a packed stream, by its index in the image; reads only the bytes it spans.
inline uint32_t PackedPixel(const SourceFormat& format, const uint8_t* data, size_t index) {
    if (format.packing == P::GevPacked) {
        const uint8_t* group = data + (index >> 1) * 3;
        const int low = format.bits - 8;
        if ((index & 1) == 0)
            return uint32_t(group[0]) << low | (group[1] & ((1u << low) - 1));
        return uint32_t(group[2]) << low | ((group[1] >> 4) & ((1u << low) - 1));
    }
    const size_t bit = index * size_t(format.bits);
    const uint8_t* at = data + (bit >> 3);
    // The second byte only when the pixel reaches into it: the last pixel may end the buffer.
    uint32_t word = at[0];
    if ((bit & 7) + size_t(format.bits) > 8)
        word |= uint32_t(at[1]) << 8;
    return (word >> (bit & 7)) & ((1u << format.bits) - 1);
}

template <typename T> inline T Narrow(uint32_t value, int shift) {
    if constexpr (sizeof(T) == 1)
        return T(std::min<uint32_t>(value >> shift, 255));
    else
        return T(value);
}

// A packed run of pixels: single pixels up to a whole group, whole groups, single pixels after.
template <typename T>
void UnpackPacked(const SourceFormat& format, const uint8_t* data, size_t first, uint32_t count,
                  T* out) {
    const int shift = sizeof(T) == 1 ? format.bits - 8 : 0;
    const size_t groupPixels = format.packing == P::GevPacked || format.bits == 12 ? 2 : 4;
    size_t i = first;
    const size_t end = first + count;
    while (i < end && i % groupPixels != 0)
        *out++ = Narrow<T>(PackedPixel(format, data, i++), shift);
    const size_t groups = (end - i) / groupPixels;
    if (format.packing == P::GevPacked) {
        const uint8_t* g = data + i / 2 * 3;
        const int low = format.bits - 8;
        const uint32_t mask = (1u << low) - 1;
        for (size_t k = 0; k < groups; ++k, g += 3, out += 2) {
            if constexpr (sizeof(T) == 1) {
                out[0] = g[0];
                out[1] = g[2];
            } else {
                out[0] = T(uint32_t(g[0]) << low | (g[1] & mask));
                out[1] = T(uint32_t(g[2]) << low | ((g[1] >> 4) & mask));
            }
        }
    } else if (format.bits == 12) {
        const uint8_t* g = data + i / 2 * 3;
        for (size_t k = 0; k < groups; ++k, g += 3, out += 2) {
            const uint32_t p0 = g[0] | uint32_t(g[1] & 0xF) << 8;
            const uint32_t p1 = uint32_t(g[1] >> 4) | uint32_t(g[2]) << 4;
            out[0] = Narrow<T>(p0, shift);
            out[1] = Narrow<T>(p1, shift);
        }
    } else {
        const uint8_t* g = data + i / 4 * 5;
        for (size_t k = 0; k < groups; ++k, g += 5, out += 4) {
            const uint32_t p0 = g[0] | uint32_t(g[1] & 0x3) << 8;
            const uint32_t p1 = uint32_t(g[1] >> 2) | uint32_t(g[2] & 0xF) << 6;
            const uint32_t p2 = uint32_t(g[2] >> 4) | uint32_t(g[3] & 0x3F) << 4;
            const uint32_t p3 = uint32_t(g[3] >> 6) | uint32_t(g[4]) << 2;
            out[0] = Narrow<T>(p0, shift);
            out[1] = Narrow<T>(p1, shift);
            out[2] = Narrow<T>(p2, shift);
            out[3] = Narrow<T>(p3, shift);
        }
    }
    i += groups * groupPixels;
    while (i < end)
        *out++ = Narrow<T>(PackedPixel(format, data, i++), shift);
}

void Bits16To8(const uint8_t* in, uint32_t width, int shift, uint8_t* out) {
    uint32_t x = 0;
#ifdef KORVATIN_X86
    const __m128i count = _mm_cvtsi32_si128(shift);
    for (; x + 16 <= width; x += 16) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * x));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * x + 16));
        const __m128i packed = _mm_packus_epi16(_mm_srl_epi16(lo, count), _mm_srl_epi16(hi, count));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), packed);
    }
#endif
    for (; x < width; ++x)
        out[x] =
            uint8_t(std::min<uint32_t>((in[2 * x] | uint32_t(in[2 * x + 1]) << 8) >> shift, 255));
}

#ifdef KORVATIN_X86
// Mono10Packed and Mono12Packed to their top 8 bits: bytes 0 and 2 of every three. Converts
// whole runs of 32 pixels while 4 bytes beyond the run are still in the image; returns how many
// pixels it converted.
__attribute__((target("ssse3"))) size_t GevPackedTo8Fast(const uint8_t* in, size_t available,
                                                         size_t pixels, uint8_t* out) {
    const __m128i pick = _mm_setr_epi8(0, 2, 3, 5, 6, 8, 9, 11, -1, -1, -1, -1, -1, -1, -1, -1);
    size_t done = 0;
    while (done + 32 <= pixels && done / 2 * 3 + 52 <= available) {
        const uint8_t* g = in + done / 2 * 3;
        const __m128i a =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(g)), pick);
        const __m128i b =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(g + 12)), pick);
        const __m128i c =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(g + 24)), pick);
        const __m128i d =
            _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(g + 36)), pick);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done), _mm_unpacklo_epi64(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done + 16), _mm_unpacklo_epi64(c, d));
        done += 32;
    }
    return done;
}
#endif

} // namespace

namespace {

// The widest instruction set the kernels may use: what the processor has, lowered by the
// environment variable KORVATIN_CONVERT_ISA ("scalar", "ssse3", "avx2", "avx512"), which lets the
// tests run every kernel on a processor that has the widest one.
enum class Isa { Scalar, Ssse3, Avx2, Avx512 };

Isa IsaCap() {
    static const Isa cap = [] {
        const char* text = std::getenv("KORVATIN_CONVERT_ISA");
        const std::string wanted = text ? text : "";
        if (wanted == "scalar")
            return Isa::Scalar;
        if (wanted == "ssse3")
            return Isa::Ssse3;
        if (wanted == "avx2")
            return Isa::Avx2;
        return Isa::Avx512;
    }();
    return cap;
}

} // namespace

bool CpuHasSsse3() {
#ifdef KORVATIN_X86
    static const bool has = IsaCap() >= Isa::Ssse3 && __builtin_cpu_supports("ssse3");
    return has;
#else
    return false;
#endif
}

bool CpuHasAvx2() {
#ifdef KORVATIN_X86
    static const bool has = IsaCap() >= Isa::Avx2 && __builtin_cpu_supports("avx2");
    return has;
#else
    return false;
#endif
}

bool CpuHasAvx512Vbmi() {
#ifdef KORVATIN_X86
    static const bool has = IsaCap() >= Isa::Avx512 && __builtin_cpu_supports("avx512bw") &&
                            __builtin_cpu_supports("avx512vbmi");
    return has;
#else
    return false;
#endif
}

namespace {

// The pixels of one byte of a 1-, 2- or 4-bit stream (the first in the lowest bits), each
// stretched to 0..255 (a 2-bit 3 gives 255, 1 gives 85).
struct SubByteTable {
    uint8_t pixels[256][8];
    explicit SubByteTable(int bits) {
        const uint32_t mask = (1u << bits) - 1;
        for (uint32_t byte = 0; byte < 256; ++byte)
            for (int k = 0; k < 8 / bits; ++k)
                pixels[byte][k] = uint8_t(((byte >> (k * bits)) & mask) * 255 / mask);
    }
};

const SubByteTable& SubByteTableOf(int bits) {
    static const SubByteTable one(1), two(2), four(4);
    return bits == 1 ? one : bits == 2 ? two : four;
}

// Pixels [first, first + count) of a 1-, 2- or 4-bit stream as 0..255: whole bytes through the
// table, the pixels of a byte the run starts or ends inside one by one.
void SubByteTo8(const SourceFormat& format, const uint8_t* data, size_t first, uint32_t count,
                uint8_t* out) {
    const int bits = format.bits;
    const size_t perByte = size_t(8 / bits);
    const SubByteTable& table = SubByteTableOf(bits);
    size_t i = first;
    const size_t end = first + count;
    while (i < end && i % perByte != 0) {
        *out++ = table.pixels[data[i / perByte]][i % perByte];
        ++i;
    }
    for (; i + perByte <= end; i += perByte, out += perByte)
        std::memcpy(out, table.pixels[data[i / perByte]], perByte);
    for (; i < end; ++i)
        *out++ = table.pixels[data[i / perByte]][i % perByte];
}

} // namespace

void UnpackRow8(const MonoImage& image, uint32_t y, uint8_t* out) {
    const SourceFormat& f = *image.format;
    switch (f.packing) {
    case P::Bits8:
        std::memcpy(out, image.data + y * image.stride, image.width);
        return;
    case P::Bits8Signed: {
        // -128..127 shown as 0..255: zero is mid-grey, so both signs stay visible.
        const uint8_t* in = image.data + y * image.stride;
        for (uint32_t x = 0; x < image.width; ++x)
            out[x] = uint8_t(in[x] ^ 0x80);
        return;
    }
    case P::Bits16:
        Bits16To8(image.data + y * image.stride, image.width, f.bits - 8, out);
        return;
    default: {
        size_t first = size_t(y) * image.width;
        uint32_t count = image.width;
        if (f.bits < 8) {
            SubByteTo8(f, image.data, first, count, out);
            return;
        }
#ifdef KORVATIN_X86
        if (f.packing == P::GevPacked && CpuHasSsse3()) {
            // Start the fast run on a whole group.
            if (first & 1) {
                *out++ = uint8_t(PackedPixel(f, image.data, first++) >> (f.bits - 8));
                --count;
            }
            const size_t available = ImageBytes(f, image.width, y + 1, 0);
            const size_t done =
                GevPackedTo8Fast(image.data + first / 2 * 3, available - first / 2 * 3, count, out);
            first += done;
            out += done;
            count -= uint32_t(done);
        }
#endif
        UnpackPacked<uint8_t>(f, image.data, first, count, out);
        return;
    }
    }
}

void UnpackRow16(const MonoImage& image, uint32_t y, uint16_t* out) {
    const SourceFormat& f = *image.format;
    switch (f.packing) {
    case P::Bits8:
    case P::Bits8Signed: {
        const uint8_t* in = image.data + y * image.stride;
        const uint8_t flip = f.packing == P::Bits8Signed ? 0x80 : 0;
        for (uint32_t x = 0; x < image.width; ++x)
            out[x] = uint8_t(in[x] ^ flip);
        return;
    }
    case P::Bits16: {
        const uint8_t* in = image.data + y * image.stride;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        std::memcpy(out, in, size_t(image.width) * 2);
#else
        for (uint32_t x = 0; x < image.width; ++x)
            out[x] = uint16_t(in[2 * x] | in[2 * x + 1] << 8);
#endif
        return;
    }
    default:
        if (f.bits < 8) {
            const size_t first = size_t(y) * image.width;
            for (uint32_t x = 0; x < image.width; ++x)
                out[x] = uint16_t(PackedPixel(f, image.data, first + x));
            return;
        }
        UnpackPacked<uint16_t>(f, image.data, size_t(y) * image.width, image.width, out);
        return;
    }
}

} // namespace korvatin
