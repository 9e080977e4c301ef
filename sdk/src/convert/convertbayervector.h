// Vector kernels for 8-bit Bayer rows, chosen at run time by what the processor offers.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#define KORVATIN_X86 1
#endif

namespace korvatin {

#ifdef KORVATIN_X86

// Bilinear on an 8-bit mosaic row `c` with the rows above (`a`) and below (`b`), in runs of
// pixels from x = 2 while a run and the pixel after it are in the row: 16 pixels a run with
// SSSE3, 32 with AVX2. `greenFirst`: the row's even pixels are green; `redRow`: its other colour
// is red. Writes R, G, B from out + 6 on and returns the first pixel it did not do. Only call
// each when the processor has the instructions (CpuHasSsse3, CpuHasAvx2).
uint32_t BilinearRunsSsse3(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                           bool greenFirst, bool redRow, uint8_t* out);
uint32_t BilinearRunsAvx2(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                          bool greenFirst, bool redRow, uint8_t* out);
// The same in runs of 64 pixels with AVX-512 byte permutes (CpuHasAvx512Vbmi).
uint32_t BilinearRunsAvx512(const uint8_t* a, const uint8_t* c, const uint8_t* b, uint32_t width,
                            bool greenFirst, bool redRow, uint8_t* out);

// Byte shuffles for nearest neighbour on one kind of row: m[block][0] picks from the row itself,
// m[block][1] from the other row of its 2 x 2 cells, for the three 16-byte blocks of 16 RGB
// pixels.
struct NearestShuffles {
    alignas(16) uint8_t m[3][2][16] = {};
    NearestShuffles() = default;
    NearestShuffles(bool greenFirst, bool redRow);
};

// Nearest neighbour in runs of 16 pixels from x = 0 while x + 16 <= width (SSSE3); returns the
// first pixel it did not do.
uint32_t NearestRunsSsse3(const uint8_t* own, const uint8_t* partner, uint32_t width,
                          const NearestShuffles& shuffles, uint8_t* out);

#endif // KORVATIN_X86

} // namespace korvatin
