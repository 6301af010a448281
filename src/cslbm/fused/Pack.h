// The pack: as many floats as a vector register of the instruction set holds, with the arithmetic of the
// compiler's vector extension. Only this header uses intrinsics. See FusedDirections.h for the namespace.
#pragma once

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include <cstddef>

#include "platform/arithmetic.h"

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
// The same at any address in an array.
using LoosePack __attribute__((vector_size(4 * kLanes), aligned(4), may_alias)) = float;
using LooseDoublePack __attribute__((vector_size(8 * kLanes), aligned(8), may_alias)) = double;

DRELT_HOST_DEVICE Pack loadPack(const float* from) {
    return *reinterpret_cast<const LoosePack*>(from);
}
DRELT_HOST_DEVICE void storePack(float* to, Pack value) {
    *reinterpret_cast<LoosePack*>(to) = value;
}
DRELT_HOST_DEVICE Pack splat(float value) { return Pack{} + value; }
DRELT_HOST_DEVICE DoublePack loadDoubles(const double* from) {
    return *reinterpret_cast<const LooseDoublePack*>(from);
}

// Loads the first `lanes` lanes; the others are 0.
DRELT_HOST_DEVICE Pack loadLanes(const float* from, int lanes) {
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
// Lanes 0 and 1 from `low`, lanes 2 and 3 from `high`; the others are 0.
DRELT_HOST_DEVICE Pack loadPairs(const float* low, const float* high) {
#if defined(__SSE2__)
    const __m128 pair = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(low));
    const __m128 both = _mm_loadh_pi(pair, reinterpret_cast<const __m64*>(high));
#if defined(__AVX512F__)
    return (Pack)_mm512_zextps128_ps512(both);
#elif defined(__AVX2__) && defined(__FMA__)
    return (Pack)_mm256_zextps128_ps256(both);
#else
    return (Pack)both;
#endif
#else
    return Pack{low[0], low[1], high[0], high[1]};
#endif
}
// Exchanges lanes 0 and 1, and lanes 2 and 3. The other lanes have no defined value.
DRELT_HOST_DEVICE Pack swapPairs(const Pack& v) { return Pack{v[1], v[0], v[3], v[2]}; }
// Stores the first `lanes` lanes.
DRELT_HOST_DEVICE void storeLanes(float* to, Pack value, int lanes) {
#if defined(__AVX512F__)
    _mm512_mask_storeu_ps(to, static_cast<__mmask16>((1u << lanes) - 1u), (__m512)value);
#else
    for (int i = 0; i < kLanes; ++i) {
        if (i < lanes) to[i] = value[i];
    }
#endif
}

}  // namespace DRELT_FUSED_ISA

template <>
struct Arithmetic<DRELT_FUSED_ISA::Pack> {
    using Pack = DRELT_FUSED_ISA::Pack;
    using Double = DRELT_FUSED_ISA::DoublePack;

    DRELT_HOST_DEVICE static Pack mulAdd(Pack a, Pack b, Pack c) {
#if defined(__AVX512F__)
        return (Pack)_mm512_fmadd_ps((__m512)a, (__m512)b, (__m512)c);
#elif defined(__AVX2__) && defined(__FMA__)
        return (Pack)_mm256_fmadd_ps((__m256)a, (__m256)b, (__m256)c);
#else
        return a * b + c;
#endif
    }
    DRELT_HOST_DEVICE static Pack negMulAdd(Pack a, Pack b, Pack c) {
#if defined(__AVX512F__)
        return (Pack)_mm512_fnmadd_ps((__m512)a, (__m512)b, (__m512)c);
#elif defined(__AVX2__) && defined(__FMA__)
        return (Pack)_mm256_fnmadd_ps((__m256)a, (__m256)b, (__m256)c);
#else
        return c - a * b;
#endif
    }
    DRELT_HOST_DEVICE static Pack squareRoot(Pack a) {
#if defined(__AVX512F__)
        // GCC warns of an uninitialised source in the form without a mask.
        return (Pack)_mm512_maskz_sqrt_ps(static_cast<__mmask16>(0xffff), (__m512)a);
#elif defined(__AVX2__) && defined(__FMA__)
        return (Pack)_mm256_sqrt_ps((__m256)a);
#elif defined(__SSE2__)
        return (Pack)_mm_sqrt_ps((__m128)a);
#else
        Pack root;
        for (int i = 0; i < DRELT_FUSED_ISA::kLanes; ++i) root[i] = __builtin_sqrtf(a[i]);
        return root;
#endif
    }
    DRELT_HOST_DEVICE static Double widened(Pack a) { return __builtin_convertvector(a, Double); }
    DRELT_HOST_DEVICE static Pack narrowed(Double a) { return __builtin_convertvector(a, Pack); }
};

}  // namespace drelt
