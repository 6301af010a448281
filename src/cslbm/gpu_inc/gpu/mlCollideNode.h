// What the collision operators share: the parts of a collision at one node, and the staging of a row of nodes
// on the host. The operators differ in rates, equilibrium, and where the force enters. The production
// schedule has a shorter form of the default collision in FusedCore.h, which tells why.
#pragma once

#include <algorithm>

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlForce.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

// The 27 entries of one node inside an array. Entry i is first[i * stride].
template <class T>
struct NodePopulations {
    T* first;
    std::int64_t stride;
};

// A range of the 27 entries of a node, as compile-time constants.
template <int First, int End>
struct Entries {
    static constexpr int first = First;
    static constexpr int end = End;
    static constexpr bool has(int i) { return i >= First && i < End; }
};
using AllEntries = Entries<0, kDirections>;

// Density and velocity of a node. The velocity is shifted by half the force.
struct NodeState {
    float rho;
    float u[3];
};

DRELT_HOST_DEVICE NodeState nodeState(const mlFlow* flow, const LaunchIndex& at) {
    return {flow->rou[at.n].value, {flow->ux[at.n], flow->uy[at.n], flow->uz[at.n]}};
}

// Forms the table moments of a node's populations about its velocity.
DRELT_HOST_DEVICE void gatherMoments(NodePopulations<const float> from, const NodeState& node,
                                     float (&k)[kMoments]) {
    float f[kDirections];
    float plain[kMoments];
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        f[decltype(d)::index] = from.first[decltype(d)::index * from.stride];
    });
    plainMomentsOf(f, node.u[0], node.u[1], node.u[2], plain);
    packMoments(plain, k);
}

// Writes the table moments of a node.
DRELT_HOST_DEVICE void scatterMoments(const float (&k)[kMoments], NodePopulations<float> to) {
    forEachIndex<kMoments>([&](auto j) DRELT_LAMBDA_INLINE {
        to.first[decltype(j)::value * to.stride] = k[decltype(j)::value];
    });
}

// Sets the moments that a collision does not relax. The mass is the density. The momentum relative to the
// velocity is half the force; the velocity holds the other half.
template <class MomentSource>
DRELT_HOST_DEVICE void setConserved(float (&k)[kMoments], float rho, const MomentSource& force) {
    k[0] = rho;
    k[1] = 0.5f * force.x;
    k[2] = 0.5f * force.y;
    k[3] = 0.5f * force.z;
}

// Transforms the table moments k back to populations, adds their source, and writes a range of them.
template <class Range, class PopulationForce>
DRELT_HOST_DEVICE void scatterPopulations(Range, const float (&k)[kMoments], const NodeState& node,
                                          const PopulationForce& force, NodePopulations<float> to) {
    float f[kDirections];
    float plain[kMoments];
    unpackMoments(k, plain);
    populationsOf(plain, node.u[0], node.u[1], node.u[2], f);
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(d)::index;
        if constexpr (Range::has(i)) to.first[i * to.stride] = force.addedTo(d, f[i]);
    });
}

// The force does not enter as a source of populations.
struct NoPopulationSource {
    template <class D>
    DRELT_HOST_DEVICE float addedTo(D, float f) const {
        return f;
    }
};

// The whole collision of one node: reads the populations `from`, relaxes their moments, writes the
// populations `to`. Both may be the same place.
template <class Equilibrium, class MomentSource, class PopulationForce>
DRELT_HOST_DEVICE void collidePopulations(const NodeState& node, const MomentRates& rates,
                                          const Equilibrium& equilibrium,
                                          const MomentSource& momentSource,
                                          const PopulationForce& populationSource,
                                          NodePopulations<const float> from,
                                          NodePopulations<float> to) {
    float k[kMoments];
    gatherMoments(from, node, k);
    setConserved(k, node.rho, momentSource);
    relaxMoments(k, rates, equilibrium, momentSource);
    scatterPopulations(AllEntries{}, k, node, populationSource, to);
}

// Calls body(at, from, to) for the nodes of a row on the host. Copies a block of nodes to a buffer, array by
// array, calls the body on the buffer and copies the results back: caches and hardware prefetchers cannot
// follow 54 arrays side by side. While the body works on a group of nodes, prefetches the entries of the next
// block and the places of this block's results.
//
// `read` and `written` each hold 27 arrays, `stride` entries apart; the body uses only the given ranges of
// them. from and to are the same place in the buffer. Mark the body DRELT_LAMBDA_INLINE and let it capture by
// value: captured references cost a tenth of the speed, because the compiler reads through them for every
// vector.
template <class Read, class Written, class Body>
DRELT_HOST_ROW void forEachStagedNode(LaunchIndex first, int length, const float* read,
                                      float* written, std::int64_t stride, Body body) {
    constexpr int block = 256;
    constexpr int group = 16;
    alignas(64) float staged[kDirections * block];
    for (int done = 0; done < length; done += block) {
        const int part = length - done < block ? length - done : block;
        const LaunchIndex start{first.x + done, first.y, first.z, first.n + done};
        const float* const source = read + start.n;
        float* const sink = written + start.n;
        for (std::ptrdiff_t i = Read::first; i < Read::end; ++i) {
            std::copy(source + i * stride, source + i * stride + part, staged + i * block);
        }
        for (int offset = 0; offset < part; offset += group) {
            for (int i = 0; i < kDirections; ++i) {
                if (Read::has(i)) __builtin_prefetch(source + i * stride + offset + part, 0, 2);
                if (Written::has(i)) __builtin_prefetch(sink + i * stride + offset, 1, 2);
            }
            const LaunchIndex node{start.x + offset, start.y, start.z, start.n + offset};
            const int size = part - offset < group ? part - offset : group;
            forEachInRow(node, size, [=, &staged](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
                float* const own = staged + (at.x - start.x);
                body(at, NodePopulations<const float>{own, block},
                     NodePopulations<float>{own, block});
            });
        }
        for (std::ptrdiff_t i = Written::first; i < Written::end; ++i) {
            std::copy(staged + i * block, staged + i * block + part, sink + i * stride);
        }
    }
}

}  // namespace drelt
