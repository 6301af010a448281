// Moments of a row before its collision: open planes, density and velocity from the populations.
#pragma once

#include "cslbm/fused/FusedCore.h"
#include "cslbm/fused/FusedRows.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// Populations of the pack at x.
struct PackAt {
    const Places& places;
    std::ptrdiff_t x;
    template <class D>
    DRELT_FUSED_INLINE Pack operator()(D) const {
        return loadPack(places.at[D::code] + x);
    }
};

// Populations of the first nodes of a pack. Behind the end of a row stand places of other threads' nodes.
struct LanesAt {
    const Places& places;
    std::ptrdiff_t x;
    int lanes;
    template <class D>
    DRELT_FUSED_INLINE Pack operator()(D) const {
        return loadLanes(places.at[D::code] + x, lanes);
    }
};

// Force on the nodes of a pack: the frame's inertial force, and with Spread the spread force at
// `node`, summed in double precision.
template <bool Spread>
DRELT_FUSED_INLINE Triple<Pack> forceOf(const FusedState& s, const Pack& rho, std::ptrdiff_t node) {
    const Triple<Pack> inertial{s.acceleration[0] * rho, s.acceleration[1] * rho,
                                s.acceleration[2] * rho};
    if constexpr (!Spread) {
        return inertial;
    } else {
        return {narrowed(loadDoubles(s.force[0] + node) + widened(inertial.x)),
                narrowed(loadDoubles(s.force[1] + node) + widened(inertial.y)),
                narrowed(loadDoubles(s.force[2] + node) + widened(inertial.z))};
    }
}

DRELT_FUSED_INLINE std::ptrdiff_t nodeRow(const FusedState& s, int y, int z) {
    return static_cast<std::ptrdiff_t>(s.ny) * z + y;
}

// The marks of a row's chunks under a spread force.
struct SpreadMarks {
    unsigned* words;
    int count;

    DRELT_FUSED_INLINE bool any() const {
        unsigned all = 0;
        for (int i = 0; i < count; ++i) all |= words[i];
        return all != 0;
    }
    DRELT_FUSED_INLINE bool at(std::ptrdiff_t x) const {
        const std::ptrdiff_t chunk = x / kChunkNodes;
        return (words[chunk / 32] >> (chunk % 32) & 1u) != 0;
    }
};
DRELT_FUSED_INLINE SpreadMarks spreadMarks(const FusedState& s, int y, int z) {
    return {s.spread + nodeRow(s, y, z) * s.chunkWords, s.chunkWords};
}

DRELT_FUSED_INLINE int clampedInside(int a, int n, int w) {
    const int low = a > w + 1 ? a : w + 1;
    return low < n - 2 - w ? low : n - 2 - w;
}

// Open planes of a row: its boundary nodes take the streamed populations of their inner neighbour,
// which has not collided yet.
DRELT_FUSED_INLINE void openRow(const FusedState& s, int y, int z) {
    const int w = s.width;
    if (y < w || y > s.ny - 1 - w || z < w || z > s.nz - 1 - w) return;
    const int fromY = clampedInside(y, s.ny, w);
    const int fromZ = clampedInside(z, s.nz, w);
    const int last = s.nx - 1 - w;
    float* const to = s.populations + rowStart(s, y, z, 27);
    if (fromY == y && fromZ == z) {
        for (int i = 0; i < 27; ++i) {
            float* const row = to + s.place[i];
            row[w] = row[w + 1];
            row[last] = row[last - 1];
        }
        return;
    }
    const float* const from = s.populations + rowStart(s, fromY, fromZ, 27);
    for (int i = 0; i < 27; ++i) {
        float* const row = to + s.place[i];
        const float* const inner = from + s.place[i];
        __builtin_memcpy(row + w + 1, inner + w + 1, sizeof(float) * (last - w - 1));
        row[w] = inner[w + 1];
        row[last] = inner[last - 1];
    }
}

// Lines of memory to bring to the cache while a loop goes through the packs of a row, a share with each.
// Spread over all loops: a burst would be dropped where the queue of misses is full.
struct Ahead {
    static constexpr std::ptrdiff_t kFloats = 16;  // of a line
    const float* next;
    std::ptrdiff_t share;

    DRELT_FUSED_INLINE void bring() {
        for (std::ptrdiff_t line = 0; line < share; ++line) {
            __builtin_prefetch(next + line * kFloats, 0, 3);
        }
        next += share * kFloats;
    }
};

template <bool Given, bool Spread>
DRELT_FUSED_INLINE void momentsOfPacks(const FusedState& s, int y, int z, Ahead ahead) {
    const SpreadMarks marks = spreadMarks(s, y, z);
    Places places;
    findPlaces(s, y, z, places);
    const MomentRows to = momentRows(s, s.moments, y, z);
    const std::ptrdiff_t start = nodeRow(s, y, z) * s.nx;
    for (int x = 0; x < s.nx; x += kLanes) {
        const PackAt f{places, x};
        ahead.bring();
        Pack rho;
        Triple<Pack> m;
        if constexpr (Given) {
            rho = loadPack(to.rho + x);
            m = {loadPack(to.ux + x), loadPack(to.uy + x), loadPack(to.uz + x)};
        } else {
            rho = massOf<Pack>(f);
            m = momentumOf<Pack>(f);
        }
        const Pack inverse = 1.0f / rho;
        Triple<Pack> u;
        if (Spread && marks.at(x)) {
            const Triple<Pack> force = forceOf<true>(s, rho, start + x);
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

// Beyond the faces a row goes on with its end nodes, for the differences along x.
DRELT_FUSED_INLINE void extendEnds(float* row, int nx) {
    row[-1] = row[0];
    row[nx] = row[nx - 1];
}

// Density and velocity of the nodes of a row, shifted by half the force.
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
