// Bayer row kernels built for AVX2 (32 pixels a run), used when the processor has it.
#include "convertbayervector.h"

#ifdef KORVATIN_X86

#include <immintrin.h>

// Everything below is built for AVX2 and only called after CpuHasAvx2().
#pragma GCC push_options
#pragma GCC target("avx2")

#include "convertbayerkernel.h"

namespace korvatin {
namespace {

// A 32-byte register holds two runs of 16 pixels, one per half; byte shuffles stay within a
// half, so each half is interleaved on its own and the halves are put in order when stored.
struct Vec256 {
    using V = __m256i;
    static constexpr uint32_t kPixels = 32;
    static V Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static V Even() { return _mm256_set1_epi16(0x00FF); }
    static V One() { return _mm256_set1_epi8(1); }
    static V Avg(V a, V b) { return _mm256_avg_epu8(a, b); }
    static V Xor(V a, V b) { return _mm256_xor_si256(a, b); }
    static V Or(V a, V b) { return _mm256_or_si256(a, b); }
    static V And(V a, V b) { return _mm256_and_si256(a, b); }
    static V Sub(V a, V b) { return _mm256_sub_epi8(a, b); }
    static V Select(V mask, V p, V q) { return _mm256_blendv_epi8(q, p, mask); }
    static V Shuffle(V v, int block, int ch) {
        return _mm256_shuffle_epi8(
            v, _mm256_load_si256(reinterpret_cast<const V*>(kRgbShuffles.m[block][ch])));
    }
    static void StoreRgb(V r, V g, V b, uint8_t* out) {
        V block[3];
        for (int k = 0; k < 3; ++k)
            block[k] = _mm256_or_si256(_mm256_or_si256(Shuffle(r, k, 0), Shuffle(g, k, 1)),
                                       Shuffle(b, k, 2));
        // The 96 bytes are the low halves' blocks 0, 1, 2, then the high halves' 0, 1, 2.
        V* o = reinterpret_cast<V*>(out);
        _mm256_storeu_si256(o, _mm256_permute2x128_si256(block[0], block[1], 0x20));
        _mm256_storeu_si256(o + 1, _mm256_permute2x128_si256(block[2], block[0], 0x30));
        _mm256_storeu_si256(o + 2, _mm256_permute2x128_si256(block[1], block[2], 0x31));
    }
};

} // namespace

uint32_t BilinearRunsAvx2(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                          bool greenFirst, bool redRow, uint8_t* out) {
    return BilinearRunsOf<Vec256>(a, c, b, width, greenFirst, redRow, out);
}

} // namespace korvatin

#pragma GCC pop_options

#endif // KORVATIN_X86
