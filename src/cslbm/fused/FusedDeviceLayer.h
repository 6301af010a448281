// Absorbing layer of a device's production step; see PMLOperation.h for the scheme. Nothing of it is
// stored: a node forms Q of its neighbours again from their density and velocity of this step and the
// last, of each neighbour only along the line between the two.
#pragma once

#include "cslbm/fused/FusedDeviceNode.h"

namespace drelt {
namespace fused_device {

// Factor of an axis of the equilibrium for component C.
template <int C>
DRELT_FUSED_INLINE float axisFactor(float u) {
    if constexpr (C == 0) {
        return negMulAdd(u, u, 2.0f / 3.0f);
    } else {
        const float half = 0.5f * u;
        const float even = mulAdd(half, u, 1.0f / 6.0f);
        return C > 0 ? even + half : even - half;
    }
}

template <class D>
DRELT_FUSED_INLINE float equilibriumOf(const NodeFluid& f) {
    return f.rho * (axisFactor<D::x>(f.u.x) * (axisFactor<D::y>(f.u.y) * axisFactor<D::z>(f.u.z)));
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
DRELT_FUSED_INLINE float deviationOf(const LayerFluid& f) {
    constexpr int squaredLength = D::x * D::x + D::y * D::y + D::z * D::z;
    constexpr float weights[4] = {8.0f / 27.0f, 2.0f / 27.0f, 1.0f / 54.0f, 1.0f / 216.0f};
    return mulAdd(0.5f, equilibriumOf<D>(f.now) + equilibriumOf<D>(f.before),
                  -weights[squaredLength] * f.reference);
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

    template <int X, int Y, int Z>
    DRELT_FUSED_INLINE LayerFluid neighbour() const {
        const std::int64_t there =
            n + X + d.base.nx * (Y + static_cast<std::int64_t>(d.base.ny) * Z);
        return {fluidAt(d.now, there), fluidAt(d.before, there), referenceAt(d.base, there)};
    }

    // Derivative of Q along D: on a face only a direction that leaves the grid has one, one-sided.
    template <class D>
    DRELT_FUSED_INLINE float derivative(float q) const {
        constexpr int squaredLength = D::x * D::x + D::y * D::y + D::z * D::z;
        constexpr float inverseLengths[4] = {0.0f, 1.0f, 1.0f / 1.4142135f, 1.0f / 1.7320508f};
        constexpr float inverseLength = inverseLengths[squaredLength];
        if constexpr (squaredLength == 0) {
            return 0.0f;
        } else if (!outer) {
            return 0.5f * inverseLength *
                   (deviationOf<D>(neighbour<D::x, D::y, D::z>()) -
                    deviationOf<D>(neighbour<-D::x, -D::y, -D::z>()));
        } else if (faces.leaves<D::x, D::y, D::z>() && !faces.leaves<-D::x, -D::y, -D::z>()) {
            return inverseLength * (q - deviationOf<D>(neighbour<-D::x, -D::y, -D::z>()));
        } else {
            return 0.0f;
        }
    }

    template <class D>
    DRELT_FUSED_INLINE float given() const {
        constexpr int squaredLength = D::x * D::x + D::y * D::y + D::z * D::z;
        constexpr float weights[4] = {8.0f / 27.0f, 2.0f / 27.0f, 1.0f / 54.0f, 1.0f / 216.0f};
        const float q = deviationOf<D>(own);
        const float rest = negMulAdd(sigma, q, 2.0f * weights[squaredLength] * own.reference);
        return sigma * (rest - derivative<D>(q));
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
