// The absorbing layer of a device's production step; PMLOperation.h tells the scheme. No array of it is
// stored. A node recomputes Q of each neighbour from the neighbour's density and velocity of this step and
// the last one, and only for the two directions along the line between them.
#pragma once

#include "cslbm/PML/PMLScheme.h"
#include "cslbm/fused/FusedDeviceNode.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"

namespace drelt {
namespace fused_device {

template <class D>
DRELT_HOST_DEVICE float equilibriumOf(const NodeFluid& f) {
    return productEquilibrium(D{}, f.rho, f.u.x, f.u.y, f.u.z);
}

// A node's fluid in this step and the last one, and the density of its reference equilibrium.
struct LayerFluid {
    NodeFluid now, before;
    float reference;
};

DRELT_HOST_DEVICE float referenceAt(const FusedState& s, std::int64_t n) {
    return s.reference != nullptr ? readOnly(s.reference + n) : 1.0f;
}

// Q of direction D.
template <class D>
DRELT_HOST_DEVICE float deviationOf(const LayerFluid& f) {
    constexpr float weight = D::weight;
    return mulAdd(0.5f, equilibriumOf<D>(f.now) + equilibriumOf<D>(f.before),
                  -weight * f.reference);
}

// What the layer adds to a node's populations: -sigma (sigma Q + 2 fEqTilde + cNQ), except for the
// equilibrium in 2 fEqTilde, which the collision subtracts itself (see collideAndStreamNode).
struct Absorption {
    const FusedDeviceState& d;
    std::int64_t n;
    Faces faces;
    bool outer;  // the node lies on a face
    float sigma;
    LayerFluid own;

    // The neighbour in direction D; the node itself if that lies outside the grid.
    template <class D>
    DRELT_HOST_DEVICE LayerFluid neighbour() const {
        const std::int64_t step =
            D::x + d.base.nx * (D::y + static_cast<std::int64_t>(d.base.ny) * D::z);
        const std::int64_t there = faces.leaves<D>() ? n : n + step;
        return {fluidAt(d.now, there), fluidAt(d.before, there), referenceAt(d.base, there)};
    }

    // The factor of the difference of Q that gives cNQ of direction D: on a face only a direction that leaves
    // the grid has a derivative, and that one is one-sided.
    template <class D>
    DRELT_HOST_DEVICE float factor() const {
        constexpr float inverseLength = inverseDirectionLength(D::squaredLength);
        if (!outer) return 0.5f * inverseLength;
        const bool oneSided = faces.leaves<D>() && !faces.leavesBackwards<D>();
        return oneSided ? inverseLength : 0.0f;
    }

    // What the layer adds to direction D, from Q and its derivative cNQ.
    template <class D>
    DRELT_HOST_DEVICE float added(float q, float derivative) const {
        constexpr float weight = 2.0f * D::weight;
        return sigma * (negMulAdd(sigma, q, weight * own.reference) - derivative);
    }

    // Adds to the populations of D and of the opposite direction E. Both need the same two neighbours.
    template <class D, class E>
    DRELT_HOST_DEVICE void addPair(float& along, float& against) const {
        const LayerFluid ahead = neighbour<D>();
        const LayerFluid behind = neighbour<E>();
        const float dq = factor<D>() * (deviationOf<D>(ahead) - deviationOf<D>(behind));
        const float dr = factor<E>() * (deviationOf<E>(behind) - deviationOf<E>(ahead));
        along += added<D>(deviationOf<D>(own), dq);
        against += added<E>(deviationOf<E>(own), dr);
    }
};

// The damping of a node; 0 outside the layer.
DRELT_HOST_DEVICE float dampingAt(const FusedState& s, const LaunchIndex& at) {
    const auto depth = [](int a, int n)
                           DRELT_LAMBDA_INLINE { return a < n - 1 - a ? a : n - 1 - a; };
    const int x = depth(at.x, s.nx);
    const int y = depth(at.y, s.ny);
    const int z = depth(at.z, s.nz);
    const int yz = y < z ? y : z;
    const int inside = s.width - (x < yz ? x : yz);
    return layerDamping(static_cast<float>(inside), s.sigmaScale);
}

}  // namespace fused_device
}  // namespace drelt
