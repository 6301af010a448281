// Arithmetic that formulas need beyond + - * /, for one float or for a pack of floats.
#pragma once

#include <cmath>
#include <type_traits>

#include "platform/launch.h"

namespace drelt {

// How a value type V computes. A pack's header adds the specialisation for its pack.
template <class V>
struct Arithmetic;

template <>
struct Arithmetic<float> {
    using Double = double;  // the same value type in double precision

    DRELT_HOST_DEVICE static float mulAdd(float a, float b, float c) { return std::fma(a, b, c); }
    DRELT_HOST_DEVICE static float negMulAdd(float a, float b, float c) {
        return std::fma(-a, b, c);
    }
    DRELT_HOST_DEVICE static float squareRoot(float a) { return std::sqrt(a); }
    DRELT_HOST_DEVICE static double widened(float a) { return static_cast<double>(a); }
    DRELT_HOST_DEVICE static float narrowed(double a) { return static_cast<float>(a); }
};

// A value of type V. A plain float becomes a pack with this value in every lane.
template <class V, class A>
DRELT_HOST_DEVICE V valueOf(const A& a) {
    if constexpr (std::is_same_v<A, V>) {
        return a;
    } else {
        return V{} + a;
    }
}

// a b + c and c - a b. They round once where the instruction set can fuse; a pack rounds twice elsewhere.
template <class A, class V>
DRELT_HOST_DEVICE V mulAdd(const A& a, const V& b, const V& c) {
    return Arithmetic<V>::mulAdd(valueOf<V>(a), b, c);
}
template <class A, class V>
DRELT_HOST_DEVICE V negMulAdd(const A& a, const V& b, const V& c) {
    return Arithmetic<V>::negMulAdd(valueOf<V>(a), b, c);
}

template <class V>
DRELT_HOST_DEVICE V squareRoot(const V& a) {
    return Arithmetic<V>::squareRoot(a);
}

}  // namespace drelt
