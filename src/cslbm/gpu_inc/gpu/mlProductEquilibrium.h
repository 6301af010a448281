// Product-form equilibrium of the D3Q27 set: the full polynomial in the velocity, one factor an axis.
#pragma once

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// Factor of one axis for component E of the direction and velocity a.
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

// Equilibrium of direction D for density rho and velocity (ux, uy, uz), lattice units.
template <class D>
DRELT_HOST_DEVICE float productEquilibrium(D, float rho, float ux, float uy, float uz) {
    return rho * detail::equilibriumFactor<D::x>(ux) * detail::equilibriumFactor<D::y>(uy) *
           detail::equilibriumFactor<D::z>(uz);
}

}  // namespace drelt
