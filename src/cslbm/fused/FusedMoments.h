// Prepares a row for its collision: applies the open planes and forms density and velocity.
#pragma once

#include "cslbm/fused/FusedCore.h"
#include "cslbm/fused/FusedOpenRow.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/fused/Pack.h"
#include "cslbm/gpu_inc/gpu/mlForce.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// The populations of the pack at x.
struct PackAt {
    const Places& places;
    std::ptrdiff_t x;
    template <class D>
    DRELT_HOST_DEVICE Pack operator()(D) const {
        return loadPack(places.at[D::code] + x);
    }
};

// The same for the first lanes of a pack. The places behind the end of a row belong to other nodes.
struct LanesAt {
    const Places& places;
    std::ptrdiff_t x;
    int lanes;
    template <class D>
    DRELT_HOST_DEVICE Pack operator()(D) const {
        return loadLanes(places.at[D::code] + x, lanes);
    }
};

// The force on the nodes of a pack: the frame's inertial force and, with Spread, the spread force at `node`.
template <bool Spread>
DRELT_HOST_DEVICE Vector3<Pack> forceOf(const FusedState& s, const Pack& rho, std::ptrdiff_t node) {
    const Vector3<Pack> inertial = inertialForce(s.acceleration, rho);
    if constexpr (!Spread) {
        return inertial;
    } else {
        return {addedForce(loadDoubles(s.force[0] + node), inertial.x),
                addedForce(loadDoubles(s.force[1] + node), inertial.y),
                addedForce(loadDoubles(s.force[2] + node), inertial.z)};
    }
}

// The number of row (y, z) in dense arrays.
DRELT_HOST_DEVICE std::ptrdiff_t nodeRow(const FusedState& s, int y, int z) {
    return static_cast<std::ptrdiff_t>(s.ny) * z + y;
}

// Marks the chunks of a row that are under a spread force.
struct SpreadMarks {
    unsigned* words;
    int count;

    DRELT_HOST_DEVICE bool any() const {
        unsigned all = 0;
        for (int i = 0; i < count; ++i) all |= words[i];
        return all != 0;
    }
    DRELT_HOST_DEVICE bool at(std::ptrdiff_t x) const {
        const std::ptrdiff_t chunk = x / kChunkNodes;
        return (words[chunk / 32] >> (chunk % 32) & 1u) != 0;
    }
};
DRELT_HOST_DEVICE SpreadMarks spreadMarks(const FusedState& s, int y, int z) {
    return {s.spread + nodeRow(s, y, z) * s.chunkWords, s.chunkWords};
}

// Cache lines to prefetch while a loop goes through the packs of a row. The prefetches are shared out among
// the loops and their packs, because the processor drops a burst that overflows its queue of misses.
struct Ahead {
    static constexpr std::ptrdiff_t kFloats = 16;  // per line
    const float* next;
    std::ptrdiff_t share;  // lines per pack

    DRELT_HOST_DEVICE void bring() {
        for (std::ptrdiff_t line = 0; line < share; ++line) {
            __builtin_prefetch(next + line * kFloats, 0, 3);
        }
        next += share * kFloats;
    }
};

// Given: density and momentum were uploaded. Spread: the row has marked chunks.
template <bool Given, bool Spread>
DRELT_HOST_DEVICE void momentsOfPacks(const FusedState& s, int y, int z, Ahead ahead) {
    const SpreadMarks marks = spreadMarks(s, y, z);
    Places places;
    findPlaces(s, y, z, places);
    const MomentRows to = momentRows(s, s.moments, y, z);
    const std::ptrdiff_t start = nodeRow(s, y, z) * s.nx;
    for (int x = 0; x < s.nx; x += kLanes) {
        const PackAt f{places, x};
        ahead.bring();
        Pack rho;
        Vector3<Pack> m;
        if constexpr (Given) {
            rho = loadPack(to.rho + x);
            m = {loadPack(to.ux + x), loadPack(to.uy + x), loadPack(to.uz + x)};
        } else {
            rho = massOf<Pack>(f);
            m = momentumOf<Pack>(f);
        }
        const Pack inverse = 1.0f / rho;
        Vector3<Pack> u;
        if (Spread && marks.at(x)) {
            const Vector3<Pack> force = forceOf<true>(s, rho, start + x);
            u = {mulAdd(0.5f, force.x, m.x) * inverse, mulAdd(0.5f, force.y, m.y) * inverse,
                 mulAdd(0.5f, force.z, m.z) * inverse};
        } else {
            u = {mulAdd(m.x, inverse, splat(0.5f * s.acceleration[0])),
                 mulAdd(m.y, inverse, splat(0.5f * s.acceleration[1])),
                 mulAdd(m.z, inverse, splat(0.5f * s.acceleration[2]))};
        }
        storePack(to.rho + x, rho);
        storePack(to.ux + x, u.x);
        storePack(to.uy + x, u.y);
        storePack(to.uz + x, u.z);
    }
}

// Repeats the end nodes of a row beyond the faces, for the differences along x.
DRELT_HOST_DEVICE void extendEnds(float* row, int nx) {
    row[-1] = row[0];
    row[nx] = row[nx - 1];
}

// Forms density and velocity, shifted by half the force, of the nodes of a row.
static void momentsOfRow(const FusedState& s, int y, int z, const Ahead& ahead) {
    if (s.planesPending) openRow(s, y, z);
    const bool spread = spreadMarks(s, y, z).any();
    if (s.momentsGiven) {
        if (spread) {
            momentsOfPacks<true, true>(s, y, z, ahead);
        } else {
            momentsOfPacks<true, false>(s, y, z, ahead);
        }
    } else if (spread) {
        momentsOfPacks<false, true>(s, y, z, ahead);
    } else {
        momentsOfPacks<false, false>(s, y, z, ahead);
    }
    const MomentRows to = momentRows(s, s.moments, y, z);
    extendEnds(to.ux, s.nx);
    extendEnds(to.uy, s.nx);
    extendEnds(to.uz, s.nx);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
