// The value type of the fused step on the host: as many floats as a vector register of the instruction
// set holds, with the arithmetic of the compiler's vector extension. This is the one place with
// intrinsics. Included by sources that are compiled once an instruction set, hence the namespace.
#pragma once

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "cslbm/fused/FusedState.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

#if defined(__AVX512F__)
constexpr std::ptrdiff_t kLanes = 16;
#elif defined(__AVX2__) && defined(__FMA__)
constexpr std::ptrdiff_t kLanes = 8;
#else
constexpr std::ptrdiff_t kLanes = 4;
#endif

using Pack __attribute__((vector_size(4 * kLanes))) = float;
using PackMask __attribute__((vector_size(4 * kLanes))) = int;
using DoublePack __attribute__((vector_size(8 * kLanes))) = double;
// the same anywhere in an array
using LoosePack __attribute__((vector_size(4 * kLanes), aligned(4), may_alias)) = float;
using LooseDoublePack __attribute__((vector_size(8 * kLanes), aligned(8), may_alias)) = double;

DRELT_FUSED_INLINE Pack loadPack(const float* from) {
    return *reinterpret_cast<const LoosePack*>(from);
}
DRELT_FUSED_INLINE void storePack(float* to, Pack value) {
    *reinterpret_cast<LoosePack*>(to) = value;
}
DRELT_FUSED_INLINE Pack splat(float value) { return Pack{} + value; }
DRELT_FUSED_INLINE DoublePack loadDoubles(const double* from) {
    return *reinterpret_cast<const LooseDoublePack*>(from);
}
DRELT_FUSED_INLINE DoublePack widened(Pack value) {
    return __builtin_convertvector(value, DoublePack);
}
DRELT_FUSED_INLINE Pack narrowed(DoublePack value) { return __builtin_convertvector(value, Pack); }

// Loads the first `lanes` lanes, and zeros.
DRELT_FUSED_INLINE Pack loadLanes(const float* from, int lanes) {
#if defined(__AVX512F__)
    return (Pack)_mm512_maskz_loadu_ps(static_cast<__mmask16>((1u << lanes) - 1u), from);
#else
    Pack value{};
    for (int i = 0; i < kLanes; ++i) {
        if (i < lanes) value[i] = from[i];
    }
    return value;
#endif
}
// Stores the first `lanes` lanes.
DRELT_FUSED_INLINE void storeLanes(float* to, Pack value, int lanes) {
#if defined(__AVX512F__)
    _mm512_mask_storeu_ps(to, static_cast<__mmask16>((1u << lanes) - 1u), (__m512)value);
#else
    for (int i = 0; i < kLanes; ++i) {
        if (i < lanes) to[i] = value[i];
    }
#endif
}

// a b + c, c - a b; fused where the instruction set can.
DRELT_FUSED_INLINE Pack mulAdd(Pack a, Pack b, Pack c) {
#if defined(__AVX512F__)
    return (Pack)_mm512_fmadd_ps((__m512)a, (__m512)b, (__m512)c);
#elif defined(__AVX2__) && defined(__FMA__)
    return (Pack)_mm256_fmadd_ps((__m256)a, (__m256)b, (__m256)c);
#else
    return a * b + c;
#endif
}
DRELT_FUSED_INLINE Pack mulAdd(float a, Pack b, Pack c) { return mulAdd(splat(a), b, c); }
DRELT_FUSED_INLINE Pack negMulAdd(Pack a, Pack b, Pack c) {
#if defined(__AVX512F__)
    return (Pack)_mm512_fnmadd_ps((__m512)a, (__m512)b, (__m512)c);
#elif defined(__AVX2__) && defined(__FMA__)
    return (Pack)_mm256_fnmadd_ps((__m256)a, (__m256)b, (__m256)c);
#else
    return c - a * b;
#endif
}
DRELT_FUSED_INLINE Pack negMulAdd(float a, Pack b, Pack c) { return negMulAdd(splat(a), b, c); }

DRELT_FUSED_INLINE Pack squareRoot(Pack a) {
#if defined(__AVX512F__)
    // the unmasked form draws GCC's warning of an uninitialised source
    return (Pack)_mm512_maskz_sqrt_ps(static_cast<__mmask16>(0xffff), (__m512)a);
#elif defined(__AVX2__) && defined(__FMA__)
    return (Pack)_mm256_sqrt_ps((__m256)a);
#elif defined(__SSE2__)
    return (Pack)_mm_sqrt_ps((__m128)a);
#else
    Pack root;
    for (int i = 0; i < kLanes; ++i) root[i] = __builtin_sqrtf(a[i]);
    return root;
#endif
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
