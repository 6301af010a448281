// Moments of the streamed populations on demand, as the operators leave them after a step: density and
// raw momentum, open planes included. Bit for bit the sums that the next step forms.
#pragma once

#include "cslbm/fused/FusedMoments.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

struct Segment {
    const FusedState& s;
    MomentRows
        given;  // the row's uploaded density and momentum, while they stand for the populations
    float* const* to;  // density and momentum of the row's x = 0, dense

    // Nodes x to x + count from the nodes of the row with these places that lie `shift` further on.
    DRELT_FUSED_INLINE void fill(const Places& places, int x, int end, int shift) const {
        for (; x < end; x += kLanes) {
            const PackAt f{places, x + shift};
            const int lanes = end - x < kLanes ? end - x : kLanes;
            const Triple<Pack> m = momentumOf<Pack>(f);
            storeLanes(to[0] + x, massOf<Pack>(f), lanes);
            storeLanes(to[1] + x, m.x, lanes);
            storeLanes(to[2] + x, m.y, lanes);
            storeLanes(to[3] + x, m.z, lanes);
        }
    }
    DRELT_FUSED_INLINE void copyGiven(int x, int end) const {
        const std::size_t bytes = sizeof(float) * static_cast<std::size_t>(end - x);
        __builtin_memcpy(to[0] + x, given.rho + x, bytes);
        __builtin_memcpy(to[1] + x, given.ux + x, bytes);
        __builtin_memcpy(to[2] + x, given.uy + x, bytes);
        __builtin_memcpy(to[3] + x, given.uz + x, bytes);
    }
};

DRELT_FUSED_INLINE int lesser(int a, int b) { return a < b ? a : b; }
DRELT_FUSED_INLINE int greater(int a, int b) { return a > b ? a : b; }

// Nodes x0 <= x < x1 of row (y, z) into dense rows of density and momentum.
static void segment(const FusedState& s, int y, int z, int x0, int x1, float* const* to) {
    const Segment row{s, momentRows(s, s.moments, y, z), to};
    if (s.momentsGiven) {
        row.copyGiven(x0, x1);
        return;
    }
    Places own;
    findPlaces(s, y, z, own);
    const int w = s.width;
    const int last = s.nx - 1 - w;
    if (!s.planesPending || y < w || y > s.ny - 1 - w || z < w || z > s.nz - 1 - w) {
        row.fill(own, x0, x1, 0);
        return;
    }
    Places inner;
    findPlaces(s, clampedInside(y, s.ny, w), clampedInside(z, s.nz, w), inner);
    row.fill(own, x0, lesser(x1, w), 0);
    if (x0 <= w && w < x1) row.fill(inner, w, w + 1, 1);
    row.fill(inner, greater(x0, w + 1), lesser(x1, last), 0);
    if (x0 <= last && last < x1) row.fill(inner, last, last + 1, -1);
    row.fill(own, greater(x0, last + 1), x1, 0);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
