// Open planes by characteristics in the production step; mlCharacteristicWave.h tells the method. A node on
// a plane needs the streamed populations of two nodes inside, which must not have collided yet.
#pragma once

#include "cslbm/fused/FusedCore.h"
#include "cslbm/fused/FusedState.h"
#include "cslbm/gpu_inc/gpu/mlCharacteristicWave.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

DRELT_HOST_DEVICE bool hasCharacteristicPlanes(const FusedState& s) {
    return s.planes.kind != OpenPlaneKind::Copy;
}

// Density and velocity of streamed populations.
template <class V, class Populations>
DRELT_HOST_DEVICE PlaneFluid<V> fluidOf(const Populations& f) {
    const V rho = massOf<V>(f);
    const Vector3<V> m = momentumOf<V>(f);
    const V inverse = 1.0f / rho;
    return {rho, {m.x * inverse, m.y * inverse, m.z * inverse}};
}

// The populations of nodes on a plane: those of their inner neighbours with the equilibrium exchanged.
template <class V, class First>
struct OpenPopulations {
    First first;
    AxisFactors<V> x, y, z;     // of the plane's velocity; x times its density
    AxisFactors<V> x1, y1, z1;  // of the inner neighbour's

    template <class D>
    DRELT_HOST_DEVICE V operator()(D d) const {
        const V plane = x.of[D::x + 1] * y.of[D::y + 1] * z.of[D::z + 1];
        return first(d) + negMulAdd(x1.of[D::x + 1] * y1.of[D::y + 1], z1.of[D::z + 1], plane);
    }
};

template <class V>
DRELT_HOST_DEVICE AxisFactors<V> scaled(AxisFactors<V> factors, const V& by) {
    for (V& factor : factors.of) factor = factor * by;
    return factors;
}

template <class V, class First>
DRELT_HOST_DEVICE OpenPopulations<V, First> openPopulations(const First& first,
                                                            const PlaneFluid<V>& inner,
                                                            const PlaneFluid<V>& plane) {
    return {first,
            scaled(axisFactors(plane.u.x), plane.rho),
            axisFactors(plane.u.y),
            axisFactors(plane.u.z),
            scaled(axisFactors(inner.u.x), inner.rho),
            axisFactors(inner.u.y),
            axisFactors(inner.u.z)};
}

// `first` and `second` read the populations of the inner neighbours and of the nodes behind them.
template <class V, class First, class Second>
DRELT_HOST_DEVICE OpenPopulations<V, First> openPopulations(const OpenPlanes& planes,
                                                            PlaneNormal normal, const First& first,
                                                            const Second& second) {
    const PlaneFluid<V> inner = fluidOf<V>(first);
    return openPopulations(first, inner, fluidOnPlane(planes, normal, inner, fluidOf<V>(second)));
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
