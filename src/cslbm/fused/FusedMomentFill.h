// Density and raw momentum of some nodes of a row between two steps, as the operators leave them: open planes
// are applied. The bits are those of the sums that the next step forms.
#pragma once

#include "cslbm/fused/FusedMoments.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

struct MomentFill {
    const FusedState& s;
    MomentRows given;  // uploaded density and momentum; valid while s.momentsGiven
    float* const* to;  // dense rows of density and momentum, which begin at x = 0

    // Fills nodes x to end - 1 from the populations at `places`, `shift` nodes further along x.
    DRELT_HOST_DEVICE void fill(const Places& places, int x, int end, int shift) const {
        for (; x < end; x += kLanes) {
            store(PackAt{places, x + shift}, x, end - x < kLanes ? end - x : kLanes);
        }
    }
    template <class Populations>
    DRELT_HOST_DEVICE void store(const Populations& f, std::ptrdiff_t x, int lanes) const {
        const Vector3<Pack> m = momentumOf<Pack>(f);
        storeLanes(to[0] + x, massOf<Pack>(f), lanes);
        storeLanes(to[1] + x, m.x, lanes);
        storeLanes(to[2] + x, m.y, lanes);
        storeLanes(to[3] + x, m.z, lanes);
    }
    DRELT_HOST_DEVICE void copyGiven(int x, int end) const {
        const std::size_t bytes = sizeof(float) * static_cast<std::size_t>(end - x);
        __builtin_memcpy(to[0] + x, given.rho + x, bytes);
        __builtin_memcpy(to[1] + x, given.ux + x, bytes);
        __builtin_memcpy(to[2] + x, given.uy + x, bytes);
        __builtin_memcpy(to[3] + x, given.uz + x, bytes);
    }
};

DRELT_HOST_DEVICE int lesser(int a, int b) { return a < b ? a : b; }
DRELT_HOST_DEVICE int greater(int a, int b) { return a > b ? a : b; }

// See FusedSweeps::fillMoments.
static void fillMoments(const FusedState& s, int y, int z, int x0, int x1, float* const* to) {
    const MomentFill row{s, momentRows(s, s.moments, y, z), to};
    if (s.momentsGiven) {
        row.copyGiven(x0, x1);
        return;
    }
    Places own;
    findPlaces(s, y, z, own);
    const int w = s.width;
    const int last = s.nx - 1 - w;
    if (!s.planesPending || !withinPlanes(y, s.ny, w) || !withinPlanes(z, s.nz, w)) {
        row.fill(own, x0, x1, 0);
        return;
    }
    if (hasCharacteristicPlanes(s)) {
        row.fill(own, x0, x1, 0);
        visitOpenNodes(s, y, z, x0, x1,
                       [&](const auto& f, std::ptrdiff_t x, int lanes) { row.store(f, x, lanes); });
        return;
    }
    Places inner;
    findPlaces(s, innerCoordinate(y, s.ny, w), innerCoordinate(z, s.nz, w), inner);
    row.fill(own, x0, lesser(x1, w), 0);
    if (x0 <= w && w < x1) row.fill(inner, w, w + 1, 1);
    row.fill(inner, greater(x0, w + 1), lesser(x1, last), 0);
    if (x0 <= last && last < x1) row.fill(inner, last, last + 1, -1);
    row.fill(own, greater(x0, last + 1), x1, 0);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
