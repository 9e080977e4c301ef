// Rows of the colour sources (RGB in every packing, planar RGB, YUV and YCbCr) as R, G, B: the
// portable build of the row readers, and the choice of the widest one the processor runs.
#include "convertcolour.h"

// The standard headers the kernels use come first, built for the baseline: templates they
// define must not be instantiated for a wider instruction set that other files would share.
#include <algorithm>
#include <cstring>

// The portable build: plain x86-64 (SSE2) or whatever the target is, vectorised where the loops
// allow.
#pragma GCC push_options
#pragma GCC optimize("O3")
#define KORVATIN_COLOUR_ISA colourscalar
#include "convertcolourkernel.h"
#undef KORVATIN_COLOUR_ISA
#pragma GCC pop_options

namespace korvatin {

void ColourRow8(const ColourImage& image, uint32_t y, uint8_t* out) {
#ifdef __x86_64__
    if (CpuHasAvx512Vbmi())
        return colouravx512::Row8(image, y, out);
    if (CpuHasAvx2())
        return colouravx2::Row8(image, y, out);
#endif
    colourscalar::Row8(image, y, out);
}

void ColourRow16(const ColourImage& image, uint32_t y, uint16_t* out) {
#ifdef __x86_64__
    if (CpuHasAvx512Vbmi())
        return colouravx512::Row16(image, y, out);
    if (CpuHasAvx2())
        return colouravx2::Row16(image, y, out);
#endif
    colourscalar::Row16(image, y, out);
}

} // namespace korvatin
