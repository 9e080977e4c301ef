// Bayer row kernels built for SSSE3 (16 pixels a run), used when the processor has it.
#include "convertbayervector.h"

#ifdef KORVATIN_X86

#include <immintrin.h>

// Everything below is built for SSSE3 and only called after CpuHasSsse3().
#pragma GCC push_options
#pragma GCC target("ssse3")

#include "convertbayerkernel.h"

namespace korvatin {
namespace {

struct Vec128 {
    using V = __m128i;
    static constexpr uint32_t kPixels = 16;
    static V Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
    static V Even() { return _mm_set1_epi16(0x00FF); }
    static V One() { return _mm_set1_epi8(1); }
    static V Avg(V a, V b) { return _mm_avg_epu8(a, b); }
    static V Xor(V a, V b) { return _mm_xor_si128(a, b); }
    static V Or(V a, V b) { return _mm_or_si128(a, b); }
    static V And(V a, V b) { return _mm_and_si128(a, b); }
    static V Sub(V a, V b) { return _mm_sub_epi8(a, b); }
    static V Select(V mask, V p, V q) {
        return _mm_or_si128(_mm_and_si128(mask, p), _mm_andnot_si128(mask, q));
    }
    static V Shuffle(V v, int block, int ch) {
        return _mm_shuffle_epi8(
            v, _mm_load_si128(reinterpret_cast<const V*>(kRgbShuffles.m[block][ch])));
    }
    static void StoreRgb(V r, V g, V b, uint8_t* out) {
        for (int k = 0; k < 3; ++k) {
            const V v =
                _mm_or_si128(_mm_or_si128(Shuffle(r, k, 0), Shuffle(g, k, 1)), Shuffle(b, k, 2));
            _mm_storeu_si128(reinterpret_cast<V*>(out + 16 * k), v);
        }
    }
};

} // namespace

uint32_t BilinearRunsSsse3(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                           bool greenFirst, bool redRow, uint8_t* out) {
    return BilinearRunsOf<Vec128>(a, c, b, width, greenFirst, redRow, out);
}

uint32_t NearestRunsSsse3(const uint8_t* own, const uint8_t* partner, uint32_t width,
                          const NearestShuffles& shuffles, uint8_t* out) {
    const __m128i* m = reinterpret_cast<const __m128i*>(shuffles.m);
    const __m128i m00 = _mm_load_si128(m + 0), m01 = _mm_load_si128(m + 1);
    const __m128i m10 = _mm_load_si128(m + 2), m11 = _mm_load_si128(m + 3);
    const __m128i m20 = _mm_load_si128(m + 4), m21 = _mm_load_si128(m + 5);
    uint32_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(own + x));
        const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(partner + x));
        __m128i* o = reinterpret_cast<__m128i*>(out + 3 * size_t(x));
        _mm_storeu_si128(o, _mm_or_si128(_mm_shuffle_epi8(p, m00), _mm_shuffle_epi8(q, m01)));
        _mm_storeu_si128(o + 1, _mm_or_si128(_mm_shuffle_epi8(p, m10), _mm_shuffle_epi8(q, m11)));
        _mm_storeu_si128(o + 2, _mm_or_si128(_mm_shuffle_epi8(p, m20), _mm_shuffle_epi8(q, m21)));
    }
    return x;
}

} // namespace korvatin

#pragma GCC pop_options

namespace korvatin {

// Built for the baseline: runs once per conversion, on any processor.
NearestShuffles::NearestShuffles(bool greenFirst, bool redRow) {
    // Own row: its green at column gc of each cell, its other colour (channel k) at 1 - gc; the
    // partner row holds the remaining colour at column gc.
    const int gc = greenFirst ? 0 : 1;
    const int k = redRow ? 0 : 2;
    for (int j = 0; j < 48; ++j) {
        const int cell = j / 3 / 2;
        const int ch = j % 3;
        const int reg = (ch == 1 || ch == k) ? 0 : 1;
        const int col = ch == k ? 1 - gc : gc;
        m[j / 16][reg][j % 16] = uint8_t(2 * cell + col);
        m[j / 16][1 - reg][j % 16] = 0x80;
    }
}

} // namespace korvatin

#endif // KORVATIN_X86
