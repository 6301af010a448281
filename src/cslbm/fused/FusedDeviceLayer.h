// Absorbing layer of a device's production step; see PMLOperation.h for the scheme. Nothing of it is
// stored: a node forms Q of its neighbours again from their density and velocity of this step and the
// last, of each neighbour only along the line between the two.
#pragma once

#include "cslbm/fused/FusedDeviceNode.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"

namespace drelt {
namespace fused_device {

template <class D>
DRELT_FUSED_INLINE float equilibriumOf(const NodeFluid& f) {
    return productEquilibrium(D{}, f.rho, f.u.x, f.u.y, f.u.z);
}

// A node's fluid at both times, and the density of its reference equilibrium.
struct LayerFluid {
    NodeFluid now, before;
    float reference;
};

DRELT_FUSED_INLINE float referenceAt(const FusedState& s, std::int64_t n) {
    return s.reference != nullptr ? readOnly(s.reference + n) : 1.0f;
}

template <class D>
constexpr int lengthOf = D::x* D::x + D::y* D::y + D::z* D::z;  // squared

constexpr float kWeights[4] = {8.0f / 27.0f, 2.0f / 27.0f, 1.0f / 54.0f, 1.0f / 216.0f};
constexpr float kInverseLengths[4] = {0.0f, 1.0f, 1.0f / 1.4142135f, 1.0f / 1.7320508f};

// Q along D.
template <class D>
DRELT_FUSED_INLINE float deviationOf(const LayerFluid& f) {
    constexpr float weight = kWeights[lengthOf<D>];
    return mulAdd(0.5f, equilibriumOf<D>(f.now) + equilibriumOf<D>(f.before),
                  -weight * f.reference);
}

// What the layer gives to a node's populations, direction by direction:
// -sigma (sigma Q + 2 fEqTilde + cNQ) without the part of 2 fEqTilde that the collision leaves out.
struct Absorption {
    const FusedDeviceState& d;
    std::int64_t n;
    Faces faces;
    bool outer;  // on a face
    float sigma;
    LayerFluid own;

    // The neighbour in a direction; the node itself where that lies outside the grid.
    template <class D>
    DRELT_FUSED_INLINE LayerFluid neighbour() const {
        const std::int64_t step =
            D::x + d.base.nx * (D::y + static_cast<std::int64_t>(d.base.ny) * D::z);
        const std::int64_t there = faces.leaves<D::x, D::y, D::z>() ? n : n + step;
        return {fluidAt(d.now, there), fluidAt(d.before, there), referenceAt(d.base, there)};
    }

    // Factor of the difference of Q along D, E being opposite: on a face only a direction that leaves the
    // grid has a derivative, and that one is one-sided.
    template <class D, class E>
    DRELT_FUSED_INLINE float factor() const {
        constexpr float inverseLength = kInverseLengths[lengthOf<D>];
        if (!outer) return 0.5f * inverseLength;
        const bool alone = faces.leaves<D::x, D::y, D::z>() && !faces.leaves<E::x, E::y, E::z>();
        return alone ? inverseLength : 0.0f;
    }

    // What a direction is given, whose Q and its derivative cNQ are these.
    template <class D>
    DRELT_FUSED_INLINE float given(float q, float derivative) const {
        constexpr float weight = 2.0f * kWeights[lengthOf<D>];
        return sigma * (negMulAdd(sigma, q, weight * own.reference) - derivative);
    }

    // Adds what D and the opposite direction E are given; both look at the same two neighbours.
    template <class D, class E>
    DRELT_FUSED_INLINE void addPair(float& along, float& against) const {
        const LayerFluid ahead = neighbour<D>();
        const LayerFluid behind = neighbour<E>();
        const float dq = factor<D, E>() * (deviationOf<D>(ahead) - deviationOf<D>(behind));
        const float dr = factor<E, D>() * (deviationOf<E>(behind) - deviationOf<E>(ahead));
        along += given<D>(deviationOf<D>(own), dq);
        against += given<E>(deviationOf<E>(own), dr);
    }
};

// Damping of a node; 0 outside the layer.
DRELT_FUSED_INLINE float dampingAt(const FusedState& s, const LaunchIndex& at) {
    const auto depth = [](int a, int n)
                           DRELT_LAMBDA_INLINE { return a < n - 1 - a ? a : n - 1 - a; };
    const int x = depth(at.x, s.nx);
    const int y = depth(at.y, s.ny);
    const int z = depth(at.z, s.nz);
    const int yz = y < z ? y : z;
    const int inside = s.width - (x < yz ? x : yz);
    const float thickness = inside > 0 ? static_cast<float>(inside) : 0.0f;
    return thickness * (s.sigmaScale * thickness);
}

}  // namespace fused_device
}  // namespace drelt
