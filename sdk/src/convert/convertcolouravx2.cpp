// The colour row readers built for AVX2, used when the processor has it.
#include "convertcolour.h"

// The standard headers the kernels use come first, built for the baseline: templates they
// define must not be instantiated for a wider instruction set that other files would share.
#include <algorithm>
#include <cstring>

#ifdef __x86_64__
// Everything below is built for AVX2 and only called after CpuHasAvx2().
#pragma GCC push_options
#pragma GCC target("avx2")
#pragma GCC optimize("O3")
#define KORVATIN_COLOUR_ISA colouravx2
#include "convertcolourkernel.h"
#undef KORVATIN_COLOUR_ISA
#pragma GCC pop_options
#endif
