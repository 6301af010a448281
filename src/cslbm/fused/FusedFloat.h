// The value type of the fused step on a device: one float, with the arithmetic that Pack.h gives a
// host's vector.
#pragma once

#include <cmath>

#include "cslbm/fused/FusedState.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// a b + c, c - a b; fused.
DRELT_FUSED_INLINE float mulAdd(float a, float b, float c) { return std::fma(a, b, c); }
DRELT_FUSED_INLINE float negMulAdd(float a, float b, float c) { return std::fma(-a, b, c); }
DRELT_FUSED_INLINE float squareRoot(float a) { return std::sqrt(a); }

// A value that no thread of the launch writes: a GPU may keep it in the cache of such values.
DRELT_FUSED_INLINE float readOnly(const float* from) {
#if defined(__CUDA_ARCH__)
    return __ldg(from);
#else
    return *from;
#endif
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
