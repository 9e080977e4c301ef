// The colour row readers built for AVX-512 (64-byte vectors), used when the processor has it.
#include "convertcolour.h"

// The standard headers the kernels use come first, built for the baseline: templates they
// define must not be instantiated for a wider instruction set that other files would share.
#include <algorithm>
#include <cstring>
#include <immintrin.h>

#ifdef __x86_64__
// Everything below is built for AVX-512 and only called after CpuHasAvx512Vbmi(); the compiler
// is asked for whole 64-byte vectors, which it would otherwise leave for 32-byte ones.
#pragma GCC push_options
#pragma GCC target("avx2,avx512f,avx512bw,avx512vl,avx512vbmi,prefer-vector-width=512")
#pragma GCC optimize("O3")
#define KORVATIN_COLOUR_ISA colouravx512
#define KORVATIN_COLOUR_VBMI 1
#include "convertcolourkernel.h"
#undef KORVATIN_COLOUR_ISA
#undef KORVATIN_COLOUR_VBMI
#pragma GCC pop_options
#endif
