// The kernels of a device's production step, in the order in which a step launches them. All have one
// invocation a node unless a line says otherwise.
#pragma once

#include "cslbm/fused/FusedDeviceLayer.h"

namespace drelt {
namespace fused_device {

// Makes a step's beginning: nodes of the open planes take the streamed populations of their inner
// neighbours, where that is due, and where a force was spread its half goes to the momentum. Reads of
// the planes are of nodes on none of them, to which nothing is written.
DRELT_KERNEL void prepareKernel(LaunchIndex at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    const SourceNode from = sourceOf(s, at);
    if (s.planesPending && from.other) {
        float* const to = placesOf(s, at.x, at.y, at.z);
        const float* const source = placesOf(s, from.x, from.y, from.z);
        for (int code = 0; code < 27; ++code) to[s.place[code]] = source[s.place[code]];
    }
    if (d.shifted || !marked(s, at)) return;
    for (int a = 0; a < 3; ++a) {
        float& momentum = d.now.momentum[a][at.n];
        momentum = mulAdd(0.5f, static_cast<float>(s.force[a][at.n]), momentum);
    }
}

// A population whose source lies outside the grid keeps its value: it goes to the place where the
// next step looks for it. Nobody reads or writes those places in this step.
template <int Code>
DRELT_FUSED_INLINE void keepPair(const FusedState& s, const Faces& faces, const float (&f)[27],
                                 float* own) {
    constexpr int x = codeX(Code);
    constexpr int y = codeY(Code);
    constexpr int z = codeZ(Code);
    const PairPlaces pair = pairPlaces(s, Code);
    if (faces.leaves<-x, -y, -z>()) own[pair.b] = f[Code];
    if (faces.leaves<x, y, z>()) own[pair.a + pair.ahead] = f[26 - Code];
    if constexpr (Code < 26) keepPair<Code + 1>(s, faces, f, own);
}

// Takes post-collision populations to their places, in a layer with what it gives.
struct StoreNode {
    const FusedState& s;
    float* own;
    template <class D>
    DRELT_FUSED_INLINE void operator()(D, float value) const {
        own[s.place[D::opposite]] = value;
    }
};
struct StoreAbsorbedNode {
    const FusedState& s;
    float* own;
    const Absorption& layer;
    template <class Rest>
    DRELT_FUSED_INLINE void operator()(Rest, float value) const {
        own[s.place[Rest::code]] = value + layer.given<Rest>(deviationOf<Rest>(layer.own), 0.0f);
    }
};
template <class D, class E>
DRELT_FUSED_INLINE void storePair(const StoreAbsorbedNode& to, D, E, float along, float against) {
    to.layer.addPair<D, E>(along, against);
    to.own[to.s.place[E::code]] = along;
    to.own[to.s.place[D::code]] = against;
}

// Force whose source enters: the frame's inertial force and what was spread, which acts once.
DRELT_FUSED_INLINE float consumeForce(const FusedState& s, const LaunchIndex& at, int axis,
                                      float rho, bool spread) {
    const float inertial = s.acceleration[axis] * rho;
    if (!spread) return inertial;
    double& force = s.force[axis][at.n];
    const double sum = force + inertial;
    force = 0.0;
    return static_cast<float>(sum);
}

template <bool Whole, bool Layer>
DRELT_FUSED_INLINE void collideNode(const LaunchIndex& at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    float* const own = placesOf(s, at.x, at.y, at.z);
    float f[27];
    forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
        constexpr int code = codeOf<decltype(e)>;
        f[code] = own[s.place[code]];
    });
    const Faces faces = facesOf(s, at);
    if (faces.any()) keepPair<14>(s, faces, f, own);

    const NodeFluid fluid = fluidAt(d.now, at.n);
    const Rates<float> rates =
        ratesOf(differencesAt(d, at), fluid.rho, fluid.u, s.sopt[at.n], s.nu);
    s.sopt[at.n] = rates.sopt;
    const bool spread = marked(s, at);
    Relaxation<float> r;
    r.rho = fluid.rho;
    r.u = fluid.u;
    r.force = {consumeForce(s, at, 0, r.rho, spread), consumeForce(s, at, 1, r.rho, spread),
               consumeForce(s, at, 2, r.rho, spread)};
    if constexpr (Whole) {
        r.force = {mulAdd(s.bodyAcceleration[0], r.rho, r.force.x),
                   mulAdd(s.bodyAcceleration[1], r.rho, r.force.y),
                   mulAdd(s.bodyAcceleration[2], r.rho, r.force.z)};
    }
    r.shear = rates.shear;
    r.high = r.equilibrium = rates.high;
    if constexpr (Layer) {
        const float sigma = dampingAt(s, at);
        if (sigma > 0.0f) {
            // the layer takes 2 sigma of the equilibrium: so much less of it is given
            r.equilibrium = negMulAdd(2.0f, sigma, rates.high);
            const Absorption layer{d,     at.n,
                                   faces, faces.any(),
                                   sigma, {fluid, fluidAt(d.before, at.n), referenceAt(s, at.n)}};
            const StoreAbsorbedNode to{s, own, layer};
            if constexpr (Whole) {
                relax<Whole>(r, PopulationsAt{own, s}, to);  // read again: registers run out
            } else {
                relax<Whole>(r, LoadedPopulations{f}, to);
            }
            return;
        }
    }
    relax<Whole>(r, LoadedPopulations{f}, StoreNode{s, own});
}

// Collision, absorbing layer and streaming in place. Reads the 27 streamed populations of a node,
// density and momentum of it and its six neighbours (in the layer of all 26, at both times) and its
// high-order parameter; writes 27 populations and the parameter, and clears the force that was spread to
// the node. A thread writes the places that it has read, and on a face places that no other thread
// touches: the order of threads is no matter. With Whole, populations, density and momentum need not
// belong together.
DRELT_KERNEL void collideKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideNode<false, false>(at, d);
}
DRELT_KERNEL void collideLayerKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideNode<false, true>(at, d);
}
DRELT_KERNEL void collideWholeKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideNode<true, false>(at, d);
}
DRELT_KERNEL void collideWholeLayerKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideNode<true, true>(at, d);
}

// Density and momentum of the streamed populations into `to`, those of a node on the open planes from
// its inner neighbour. Takes the marks of forces back, which no node reads here. Reads 27 values,
// writes 4.
DRELT_KERNEL void momentsKernel(LaunchIndex at, const FusedDeviceState& d,
                                const DeviceMoments& to) {
    const FusedState& s = d.base;
    const SourceNode from = sourceOf(s, at);
    const PopulationsAt f{placesOf(s, from.x, from.y, from.z), s};
    const Triple<float> m = momentumOf<float>(f);
    to.rho[at.n] = massOf<float>(f);
    to.momentum[0][at.n] = m.x;
    to.momentum[1][at.n] = m.y;
    to.momentum[2][at.n] = m.z;
    constexpr int wordNodes = 32 * kChunkNodes;
    if (at.x % wordNodes == 0) marksOf(s, at.y, at.z)[at.x / wordNodes] = 0;
}

// Lets the record show the moments in force. One invocation.
DRELT_KERNEL void recordKernel(LaunchIndex, mlFlow* record, const DeviceMoments& now) {
    record->rou = reinterpret_cast<mlDensity<float>*>(now.rho);
    record->ux = now.momentum[0];
    record->uy = now.momentum[1];
    record->uz = now.momentum[2];
}

}  // namespace fused_device
}  // namespace drelt
