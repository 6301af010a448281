// The kernels of a device's production step, in the order in which a step launches them. They have one
// invocation per node unless a comment says otherwise.
#pragma once

#include "cslbm/fused/FusedDeviceLayer.h"
#include "cslbm/gpu_inc/gpu/mlForce.h"

namespace drelt {
namespace fused_device {

// Prepares a step. Nodes on a pending open plane take the streamed populations of their inner neighbour, or
// form their own from two nodes inside; nodes under a spread force add half of it to their momentum. Free of
// races: nodes inside lie on no open plane, so no thread writes to them.
DRELT_KERNEL void prepareKernel(LaunchIndex at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    const SourceNode from = sourceOf(s, at);
    float* const to = placesOf(s, at.x, at.y, at.z);
    if (s.planesPending && from.other && hasCharacteristicPlanes(s)) {
        const auto f = openPopulationsOf(s, at, from);
        forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
            using E = TowardOf<decltype(e)>;
            to[s.place[E::code]] = f(E{});
        });
    } else if (s.planesPending && from.other) {
        const float* const source = placesOf(s, from.x, from.y, from.z);
        for (int code = 0; code < 27; ++code) to[s.place[code]] = source[s.place[code]];
    }
    if (d.shifted || !marked(s, at)) return;
    for (int a = 0; a < 3; ++a) {
        float& momentum = d.now.momentum[a][at.n];
        momentum = mulAdd(0.5f, static_cast<float>(s.force[a][at.n]), momentum);
    }
}

// A population whose source lies outside the grid keeps its value. It moves to the place where the next step
// looks for it. No thread uses that place in this step.
template <int Code>
DRELT_HOST_DEVICE void keepPair(const FusedState& s, const Faces& faces, const float (&f)[27],
                                float* own) {
    using D = TowardCode<Code>;
    const PairPlaces pair = pairPlaces(s, Code);
    if (faces.leavesBackwards<D>()) own[pair.b] = f[Code];
    if (faces.leaves<D>()) own[pair.a + pair.ahead] = f[26 - Code];
    if constexpr (Code < 26) keepPair<Code + 1>(s, faces, f, own);
}

// Stores the post-collision populations of a node.
struct StoreNode {
    const FusedState& s;
    float* own;
    template <class D>
    DRELT_HOST_DEVICE void operator()(D, float value) const {
        own[s.place[D::opposite]] = value;
    }
};
// The same in the absorbing layer, with what the layer adds.
struct StoreAbsorbedNode {
    const FusedState& s;
    float* own;
    const Absorption& layer;
    template <class Rest>  // the rest direction; pairs go through storePair
    DRELT_HOST_DEVICE void operator()(Rest, float value) const {
        own[s.place[Rest::code]] = value + layer.added<Rest>(deviationOf<Rest>(layer.own), 0.0f);
    }
};
template <class D, class E>
DRELT_HOST_DEVICE void storePair(const StoreAbsorbedNode& to, D, E, float along, float against) {
    to.layer.addPair<D, E>(along, against);
    to.own[to.s.place[E::code]] = along;
    to.own[to.s.place[D::code]] = against;
}

// Adds the spread force along one axis to the inertial force, and clears it.
DRELT_HOST_DEVICE float consumeForce(double& spread, float inertial) {
    const float sum = addedForce(spread, inertial);
    spread = 0.0;
    return sum;
}

template <bool Whole, bool Layer>
DRELT_HOST_DEVICE void collideAndStreamNode(const LaunchIndex& at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    float* const own = placesOf(s, at.x, at.y, at.z);
    float f[27];
    forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
        constexpr int code = TowardOf<decltype(e)>::code;
        f[code] = own[s.place[code]];
    });
    const Faces faces = facesOf(s, at);
    if (faces.any()) keepPair<14>(s, faces, f, own);

    const NodeFluid fluid = fluidAt(d.now, at.n);
    const Rates<float> rates =
        ratesOf(differencesAt(d, at), fluid.rho, fluid.u, s.sopt[at.n], s.nu);
    s.sopt[at.n] = rates.sopt;
    Relaxation<float> r;
    r.rho = fluid.rho;
    r.u = fluid.u;
    r.force = inertialForce(s.acceleration, r.rho);
    if (marked(s, at)) {
        r.force = {consumeForce(s.force[0][at.n], r.force.x),
                   consumeForce(s.force[1][at.n], r.force.y),
                   consumeForce(s.force[2][at.n], r.force.z)};
    }
    if constexpr (Whole) r.force = withBodyForce(s.bodyAcceleration, r.rho, r.force);
    r.shear = rates.shear;
    r.high = r.equilibrium = rates.high;
    if constexpr (Layer) {
        const float sigma = dampingAt(s, at);
        if (sigma > 0.0f) {
            // The layer takes 2 sigma of the equilibrium away, so the collision adds that much less.
            r.equilibrium = negMulAdd(2.0f, sigma, rates.high);
            const Absorption layer{d,     at.n,
                                   faces, faces.any(),
                                   sigma, {fluid, fluidAt(d.before, at.n), referenceAt(s, at.n)}};
            const StoreAbsorbedNode to{s, own, layer};
            if constexpr (Whole) {
                relax<Whole>(r, PopulationsAt{own, s}, to);  // reads again, to save registers
            } else {
                relax<Whole>(r, LoadedPopulations{f}, to);
            }
            return;
        }
    }
    relax<Whole>(r, LoadedPopulations{f}, StoreNode{s, own});
}

// Collision, absorbing layer and streaming, in place. A thread reads the 27 streamed populations of its node,
// its high-order parameter, and density and momentum of the node and its six neighbours (in the layer of all
// 26, at both times). It writes 27 populations and the parameter and clears the spread force. It writes only
// to places that it has read and, on a face, to places that no other thread uses, so the order of threads
// does not matter. With Whole, density and momentum may differ from the sums of the populations.
DRELT_KERNEL void collideKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideAndStreamNode<false, false>(at, d);
}
DRELT_KERNEL void collideLayerKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideAndStreamNode<false, true>(at, d);
}
DRELT_KERNEL void collideWholeKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideAndStreamNode<true, false>(at, d);
}
DRELT_KERNEL void collideWholeLayerKernel(LaunchIndex at, const FusedDeviceState& d) {
    collideAndStreamNode<true, true>(at, d);
}

// Writes density and momentum of populations to node n.
template <class Populations>
DRELT_HOST_DEVICE void storeMoments(const Populations& f, const DeviceMoments& to, std::int64_t n) {
    const Vector3<float> m = momentumOf<float>(f);
    to.rho[n] = massOf<float>(f);
    to.momentum[0][n] = m.x;
    to.momentum[1][n] = m.y;
    to.momentum[2][n] = m.z;
}

// Writes density and momentum of the streamed populations to `to`, with the open planes applied. Also clears
// the marks of the forces, which no thread reads here. Reads 27 values per node and writes 4.
DRELT_KERNEL void momentsKernel(LaunchIndex at, const FusedDeviceState& d,
                                const DeviceMoments& to) {
    const FusedState& s = d.base;
    const SourceNode from = sourceOf(s, at);
    if (from.other && hasCharacteristicPlanes(s)) {
        storeMoments(openPopulationsOf(s, at, from), to, at.n);
    } else {
        storeMoments(PopulationsAt{placesOf(s, from.x, from.y, from.z), s}, to, at.n);
    }
    constexpr int wordNodes = 32 * kChunkNodes;
    if (at.x % wordNodes == 0) marksOf(s, at.y, at.z)[at.x / wordNodes] = 0;
}

// Points the record to the current moments. One invocation.
DRELT_KERNEL void recordKernel(LaunchIndex, mlFlow* record, const DeviceMoments& now) {
    record->rou = reinterpret_cast<mlDensity<float>*>(now.rho);
    record->ux = now.momentum[0];
    record->uy = now.momentum[1];
    record->uz = now.momentum[2];
}

}  // namespace fused_device
}  // namespace drelt
