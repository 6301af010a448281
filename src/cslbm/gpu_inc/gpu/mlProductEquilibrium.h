// Product-form equilibrium of the D3Q27 set: density times one factor per axis, the full polynomial in the
// velocity. Along an axis with velocity a, the factor is 2/3 - a^2 for component 0 of the direction and
// (1/3 + a^2 +- a)/2 for components +1 and -1. Lattice units.
//
// The factors have two forms. The operators round as the formula stands. The absorbing layer of the
// production sweep needs all 27 directions of a pack at two times; its form shares the three factors of an
// axis and fuses multiply-adds, which rounds differently.
#pragma once

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/arithmetic.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

namespace detail {

// The factor of one axis for component E of the direction and velocity a.
template <int E>
DRELT_HOST_DEVICE float equilibriumFactor(float a) {
    if constexpr (E == 0) {
        return 2.0f / 3.0f - a * a;
    } else if constexpr (E > 0) {
        return (1.0f / 3.0f + a * a + a) * 0.5f;
    } else {
        return (1.0f / 3.0f + a * a - a) * 0.5f;
    }
}

}  // namespace detail

// Equilibrium of direction D for density rho and velocity (ux, uy, uz).
template <class D>
DRELT_HOST_DEVICE float productEquilibrium(D, float rho, float ux, float uy, float uz) {
    return rho * detail::equilibriumFactor<D::x>(ux) * detail::equilibriumFactor<D::y>(uy) *
           detail::equilibriumFactor<D::z>(uz);
}

// A population of a fluid that starts with the same velocity u everywhere. At rest it is the weight times
// the density, without the rounding of the factors.
template <class D>
DRELT_HOST_DEVICE float uniformPopulation(D d, float rho, const Vector3<float>& u) {
    const bool rest = u.x == 0.0f && u.y == 0.0f && u.z == 0.0f;
    return rest ? D::weight * rho : productEquilibrium(d, rho, u.x, u.y, u.z);
}

// Production sweep: the factors of an axis for components -1, 0 and 1.
template <class V>
struct AxisFactors {
    V of[3];
};
template <class V>
DRELT_HOST_DEVICE AxisFactors<V> axisFactors(const V& a) {
    const V half = 0.5f * a;
    const V even = mulAdd(half, a, valueOf<V>(1.0f / 6.0f));
    return {{even - half, negMulAdd(a, a, valueOf<V>(2.0f / 3.0f)), even + half}};
}

}  // namespace drelt
