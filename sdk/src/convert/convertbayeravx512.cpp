// Bayer row kernels built for AVX-512 with byte permutes (64 pixels a run), used when the
// processor has AVX512BW and AVX512VBMI.
#include "convertbayervector.h"

#ifdef KORVATIN_X86

#include <immintrin.h>

namespace korvatin {
namespace {

// Output register k (bytes 64k .. 64k + 63 of 64 RGB pixels) is built in two permutes: the
// first takes red and green bytes from the R and G planes, the second puts the blue bytes in
// (at the positions in kBlue[k]).
struct RgbPermutes {
    uint8_t redGreen[3][64];
    uint8_t blue[3][64];
    uint64_t blueBytes[3];
};
constexpr RgbPermutes MakeRgbPermutes() {
    RgbPermutes p{};
    for (int k = 0; k < 3; ++k) {
        for (int j = 0; j < 64; ++j) {
            const int byte = 64 * k + j;
            const int pixel = byte / 3;
            const int ch = byte % 3;
            // Bit 6 of a two-source permute index picks the second source (the G plane).
            p.redGreen[k][j] = uint8_t(ch == 1 ? 64 + pixel : pixel);
            p.blue[k][j] = uint8_t(pixel);
            if (ch == 2)
                p.blueBytes[k] |= uint64_t(1) << j;
        }
    }
    return p;
}
alignas(64) constexpr RgbPermutes kRgbPermutes = MakeRgbPermutes();

} // namespace
} // namespace korvatin

// Everything below is built for AVX-512 and only called after CpuHasAvx512Vbmi().
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vbmi")

#include "convertbayerkernel.h"

namespace korvatin {
namespace {

struct Vec512 {
    using V = __m512i;
    static constexpr uint32_t kPixels = 64;
    static V Load(const uint8_t* p) { return _mm512_loadu_si512(p); }
    static V Even() { return _mm512_setzero_si512(); } // Select knows its mask itself
    static V One() { return _mm512_set1_epi8(1); }
    static V Avg(V a, V b) { return _mm512_avg_epu8(a, b); }
    static V Xor(V a, V b) { return _mm512_xor_si512(a, b); }
    static V Or(V a, V b) { return _mm512_or_si512(a, b); }
    static V And(V a, V b) { return _mm512_and_si512(a, b); }
    static V Sub(V a, V b) { return _mm512_sub_epi8(a, b); }
    // p at even bytes, q at odd ones.
    static V Select(V, V p, V q) { return _mm512_mask_blend_epi8(0x5555555555555555ull, q, p); }
    static void StoreRgb(V r, V g, V b, uint8_t* out) {
        for (int k = 0; k < 3; ++k) {
            const V redGreen =
                _mm512_permutex2var_epi8(r, _mm512_load_si512(kRgbPermutes.redGreen[k]), g);
            const V rgb = _mm512_mask_permutexvar_epi8(redGreen, kRgbPermutes.blueBytes[k],
                                                       _mm512_load_si512(kRgbPermutes.blue[k]), b);
            _mm512_storeu_si512(out + 64 * k, rgb);
        }
    }
};

} // namespace

uint32_t BilinearRunsAvx512(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                            bool greenFirst, bool redRow, uint8_t* out) {
    return BilinearRunsOf<Vec512>(a, c, b, width, greenFirst, redRow, out);
}

} // namespace korvatin

#pragma GCC pop_options

#endif // KORVATIN_X86
