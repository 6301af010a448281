// The sweeps of the production step for one instruction set; see FusedState.h. A thread goes through its slab
// in tiles of a few rows, plane by plane. It forms the moments one row and one plane ahead of the collision:
// a row that collides then has the velocities of all its neighbours, and its populations are in cache.
#pragma once

#include "cslbm/fused/FusedLayer.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// A population whose source lies outside the grid keeps its value. It moves to the place where the next step
// looks for it. No node uses that place in this step.
static void keepRow(const FusedState& s, int y, int z) {
    float* const own = s.populations + rowStart(s, y, z, 27);
    if (y > 0 && y < s.ny - 1 && z > 0 && z < s.nz - 1) {
        for (int i = 0; i < 18; ++i) own[s.keepTo[i]] = own[s.keepFrom[i]];
        return;
    }
    for (int code = 14; code < 27; ++code) {
        const int ex = codeX(code);
        const int ey = codeY(code);
        const int ez = codeZ(code);
        const PairPlaces pair = pairPlaces(s, code);
        float* const a = own + pair.a;
        float* const b = own + pair.b;
        if (y - ey < 0 || y - ey >= s.ny || z - ez < 0) {
            __builtin_memcpy(b, a, sizeof(float) * s.nx);
        } else if (ex != 0) {
            const int x = ex > 0 ? 0 : s.nx - 1;
            b[x] = a[x];
        }
        if (y + ey < 0 || y + ey >= s.ny || z + ez >= s.nz) {
            __builtin_memcpy(a + pair.ahead, b + pair.ahead, sizeof(float) * s.nx);
        } else if (ex != 0) {
            const std::ptrdiff_t x = pair.ahead + (ex > 0 ? s.nx - 1 : 0);
            a[x] = b[x];
        }
    }
}

// Stores the post-collision populations of a pack.
struct StorePack {
    const Places& places;
    std::ptrdiff_t x;
    template <class D>
    DRELT_HOST_DEVICE void operator()(D, const Pack& value) const {
        storePack(places.at[D::opposite] + x, value);
    }
};
// The same for the last lanes of a row.
struct StoreLanes {
    const Places& places;
    std::ptrdiff_t x;
    int lanes;
    template <class D>
    DRELT_HOST_DEVICE void operator()(D, const Pack& value) const {
        storeLanes(places.at[D::opposite] + x, value, lanes);
    }
};
// The same in the absorbing layer, with what the layer adds.
template <class Store>
struct StoreAbsorbed {
    Store store;
    const float* added;  // to the pack's first node, direction 0
    template <class D>
    DRELT_HOST_DEVICE void operator()(D d, const Pack& value) const {
        store(d, value + loadPack(added + D::code * kBlockNodes));
    }
};

// The rows of the velocity around row (y, z): its own and its four neighbours, clamped to the grid.
struct VelocityRows {
    const float* own;
    const float* down;
    const float* up;
    const float* forward;
    const float* back;
};

DRELT_HOST_DEVICE VelocityRows velocityRows(const FusedState& s, int y, int z) {
    const auto row = [&](int j, int k)
                         DRELT_LAMBDA_INLINE { return s.moments + rowStart(s, j, k, 4) + s.pitch; };
    return {row(y, z), row(y > 0 ? y - 1 : y, z), row(y < s.ny - 1 ? y + 1 : y, z),
            row(y, z > 0 ? z - 1 : z), row(y, z < s.nz - 1 ? z + 1 : z)};
}

DRELT_HOST_DEVICE Differences<Pack> differencesAt(const VelocityRows& v, std::ptrdiff_t x,
                                                  std::ptrdiff_t pitch) {
    const auto alongX = [&](std::ptrdiff_t a) DRELT_LAMBDA_INLINE {
        return loadPack(v.own + a + x + 1) - loadPack(v.own + a + x - 1);
    };
    const auto alongY = [&](std::ptrdiff_t a) DRELT_LAMBDA_INLINE {
        return loadPack(v.up + a + x) - loadPack(v.down + a + x);
    };
    const auto alongZ = [&](std::ptrdiff_t a) DRELT_LAMBDA_INLINE {
        return loadPack(v.back + a + x) - loadPack(v.forward + a + x);
    };
    return {alongX(0),     alongY(0),         alongZ(0),         alongX(pitch),    alongY(pitch),
            alongZ(pitch), alongX(2 * pitch), alongY(2 * pitch), alongZ(2 * pitch)};
}

// A row that collides.
struct CollideArguments {
    Places places;
    VelocityRows velocity;
    const float* rho;
    float* sopt;
    std::ptrdiff_t node;  // of x = 0 in the dense force arrays
    SpreadMarks marks;
    int depth;       // distance to the nearest face along y or z
    LayerRow layer;  // set only if there is a layer
};

constexpr std::ptrdiff_t kBlockPacks = kBlockNodes / kLanes;

// The rates of the packs of a block. They are computed for the whole block first, so that the latency of
// roots and divisions overlaps across packs.
struct RateBlock {
    Pack shear[kBlockPacks];
    Pack high[kBlockPacks];
};

DRELT_HOST_DEVICE Vector3<Pack> velocityAt(const FusedState& s, const CollideArguments& row,
                                           std::ptrdiff_t x) {
    const float* const own = row.velocity.own + x;
    return {loadPack(own), loadPack(own + s.pitch), loadPack(own + 2 * s.pitch)};
}

DRELT_HOST_DEVICE void findRates(const FusedState& s, const CollideArguments& row,
                                 std::ptrdiff_t first, int packs, RateBlock& block, Ahead& ahead) {
    for (int i = 0; i < packs; ++i) {
        ahead.bring();
        const std::ptrdiff_t x = first + i * kLanes;
        const Rates<Pack> rates =
            ratesOf(differencesAt(row.velocity, x, s.pitch), loadPack(row.rho + x),
                    velocityAt(s, row, x), loadPack(row.sopt + x), s.nu);
        storePack(row.sopt + x, rates.sopt);
        block.shear[i] = rates.shear;
        block.high[i] = rates.high;
    }
}

template <bool Whole, bool Spread, class Populations, class Store>
DRELT_HOST_DEVICE void relaxPack(const FusedState& s, const CollideArguments& row, std::ptrdiff_t x,
                                 const Pack& shear, const Pack& high, const Pack& equilibrium,
                                 const Populations& f, const Store& store) {
    Relaxation<Pack> r;
    r.rho = loadPack(row.rho + x);
    r.u = velocityAt(s, row, x);
    r.shear = shear;
    r.high = high;
    r.equilibrium = equilibrium;
    r.force = Spread && row.marks.at(x) ? forceOf<true>(s, r.rho, row.node + x)
                                        : forceOf<false>(s, r.rho, row.node + x);
    if constexpr (Whole) {
        r.force = withBodyForce(s.bodyAcceleration, r.rho, r.force);
    }
    relax<Whole>(r, f, store);
}

// What each loop over a row prefetches. Populations are shared out among the loops inMoments, inRates and
// inRelax; the last one also prefetches density, velocity and the high-order parameter.
struct AheadOfRow {
    Ahead inMoments, inRates, inRelax, moments, before, sopt;
};

// Whether any node of the pack at x lies in the layer.
DRELT_HOST_DEVICE bool inLayer(const FusedState& s, const CollideArguments& row, int x) {
    return row.depth < s.width || x < s.width || x + kLanes > s.nx - s.width;
}

// What the layer adds to a pack, and its damping. Valid only for a pack in the layer.
struct LayerShare {
    const Pack& sigma;
    const float* added;
};

template <bool Whole, bool Spread, class Populations, class Store>
DRELT_HOST_DEVICE void relaxIn(const FusedState& s, const CollideArguments& row, int x,
                               const Pack& shear, const Pack& high, const LayerShare& layer,
                               const Populations& f, const Store& store) {
    if (s.width > 0 && inLayer(s, row, x)) {
        // The layer takes 2 sigma of the equilibrium away, so the collision adds that much less.
        relaxPack<Whole, Spread>(s, row, x, shear, high, negMulAdd(2.0f, layer.sigma, high), f,
                                 StoreAbsorbed<Store>{store, layer.added});
    } else {
        relaxPack<Whole, Spread>(s, row, x, shear, high, high, f, store);
    }
}

template <bool Whole, bool Spread>
DRELT_HOST_DEVICE void collidePacks(const FusedState& s, const CollideArguments& row,
                                    AheadOfRow ahead) {
    RateBlock rates;
    AbsorptionBlock absorption;
    for (int begin = 0; begin < s.nx; begin += kBlockNodes) {
        const int end = begin + kBlockNodes < s.nx ? begin + kBlockNodes : s.nx;
        findRates(s, row, begin, (end - begin + kLanes - 1) / kLanes, rates, ahead.inRates);
        for (int x = begin; s.width > 0 && x < end; x += kLanes) {
            const int from = x;
            while (x < end && inLayer(s, row, x)) x += kLanes;
            if (x > from) absorb(s, row.layer, from, x < end ? x : end, from - begin, absorption);
        }
        for (int x = begin; x < end; x += kLanes) {
            const int i = (x - begin) / kLanes;
            const Pack& shear = rates.shear[i];
            const Pack& high = rates.high[i];
            ahead.inRelax.bring();
            ahead.moments.bring();
            ahead.before.bring();
            ahead.sopt.bring();
            const LayerShare layer{absorption.sigma[i], absorption.added + (x - begin)};
            if (x + kLanes <= s.nx) {
                relaxIn<Whole, Spread>(s, row, x, shear, high, layer, PackAt{row.places, x},
                                       StorePack{row.places, x});
            } else {
                const int lanes = s.nx - x;
                relaxIn<Whole, Spread>(s, row, x, shear, high, layer, LanesAt{row.places, x, lanes},
                                       StoreLanes{row.places, x, lanes});
            }
        }
    }
}

// Clears the spread forces of a row after they have acted.
DRELT_HOST_DEVICE void clearForces(const FusedState& s, const CollideArguments& row) {
    for (int x = 0; x < s.nx; x += kChunkNodes) {
        if (!row.marks.at(x)) continue;
        const int nodes = s.nx - x < kChunkNodes ? s.nx - x : kChunkNodes;
        for (int a = 0; a < 3; ++a) {
            __builtin_memset(s.force[a] + row.node + x, 0, sizeof(double) * nodes);
        }
    }
    for (int i = 0; i < row.marks.count; ++i) row.marks.words[i] = 0;
}

// Collides and streams a row.
static void collideAndStreamRow(const FusedState& s, int y, int z, const DeviationRing& ring,
                                const AheadOfRow& ahead) {
    keepRow(s, y, z);
    CollideArguments row;
    findPlaces(s, y, z, row.places);
    row.velocity = velocityRows(s, y, z);
    row.rho = row.velocity.own - s.pitch;
    row.sopt = s.sopt + rowStart(s, y, z, 1);
    row.node = nodeRow(s, y, z) * s.nx;
    row.depth = rowDepth(s, y, z);
    if (s.width > 0) findLayerRow(s, ring, y, z, row.layer);
    row.marks = spreadMarks(s, y, z);
    const bool spread = row.marks.any();
    if (s.whole) {
        if (spread) {
            collidePacks<true, true>(s, row, ahead);
        } else {
            collidePacks<true, false>(s, row, ahead);
        }
    } else if (spread) {
        collidePacks<false, true>(s, row, ahead);
    } else {
        collidePacks<false, false>(s, row, ahead);
    }
    if (spread) clearForces(s, row);
}

// Forms the moments of a plane. Prefetches the populations of the row after the next.
static void momentsOfPlane(const FusedState& s, int z) {
    const std::ptrdiff_t packs = (s.nx + kLanes - 1) / kLanes;
    const std::ptrdiff_t share = (27 * s.pitch / Ahead::kFloats + packs - 1) / packs;
    const bool open = s.planesPending && (z == s.width || z == s.nz - 1 - s.width);
    const int from = open ? innerCoordinate(z, s.nz, s.width) : z;
    for (int y = 0; y < s.ny; ++y) {
        momentsOfRow(s, y, z, {s.populations + rowStart(s, y + 2, from, 27), share});
    }
}

static void edges(const FusedState& s, int z0, int z1) {
    if (z0 >= z1) return;
    for (const int z : {s.width, s.nz - 1 - s.width}) {
        if (!s.planesPending || !opensAhead(s, z) || z < z0 || z >= z1) continue;
        for (int y = 0; y < s.ny; ++y) openCharacteristicRow(s, y, z);
    }
    momentsOfPlane(s, z0);
    if (z1 - 1 > z0) momentsOfPlane(s, z1 - 1);
}

// What to prefetch while row (y, z) of a tile is worked on: populations two planes and some rows ahead, and
// the moments of the row after the next.
DRELT_HOST_DEVICE AheadOfRow aheadOf(const FusedState& s, int y, int z, int y0, int y1) {
    constexpr int kRowsAhead = 4;
    const std::ptrdiff_t packs = (s.nx + kLanes - 1) / kLanes;
    const std::ptrdiff_t height = y1 - y0;
    const int touched = (y1 + 2 < s.ny + 1 ? y1 + 2 : s.ny + 1) - y0;
    const std::ptrdiff_t lines = rowStart(s, touched, 0, 27) / Ahead::kFloats;
    const std::ptrdiff_t share = (lines + height * packs - 1) / (height * packs);
    const int place = y - y0 + kRowsAhead;
    const int plane = z + 2 + place / height;
    const float* const populations = s.populations +
                                     rowStart(s, y0, plane < s.nz ? plane : s.nz, 27) +
                                     place % height * packs * share * Ahead::kFloats;
    const int nextY = y + 2 < s.ny ? y + 2 : y;
    const int nextZ = z + 1 < s.nz ? z + 1 : z;
    const std::ptrdiff_t next = rowStart(s, nextY, nextZ, 4);
    const std::ptrdiff_t momentShare = (4 * s.pitch / Ahead::kFloats + packs - 1) / packs;
    const bool layer = s.width > 0 && rowDepth(s, nextY, nextZ) <= s.width;
    const int far = y - y0 + 2;
    const std::ptrdiff_t sopt =
        rowStart(s, y0 + far % static_cast<int>(height), z + far / static_cast<int>(height), 1);
    const std::ptrdiff_t inMoments = share / 4;
    const std::ptrdiff_t inRates = share / 5;
    const std::ptrdiff_t line = packs * Ahead::kFloats;
    return {{populations, inMoments},
            {populations + inMoments * line, inRates},
            {populations + (inMoments + inRates) * line, share - inMoments - inRates},
            {s.moments + next, momentShare},
            {s.width > 0 ? s.before + next : s.moments, layer ? momentShare : 0},
            {s.sopt + sopt, 1}};
}

// Prefetches the ends of a row of density and velocity of the last step, where only they lie in the layer.
DRELT_HOST_DEVICE void bringEnds(const FusedState& s, const float* row) {
    const int right = (s.nx - 1 - s.width) / Ahead::kFloats * Ahead::kFloats;
    for (int field = 0; field < 4; ++field, row += s.pitch) {
        for (int x = 0; x <= s.width; x += Ahead::kFloats) __builtin_prefetch(row + x, 0, 3);
        for (int x = right; x < s.nx; x += Ahead::kFloats) __builtin_prefetch(row + x, 0, 3);
    }
}

// The end of the tile that begins at row y0. The high characteristic plane across y reads two rows below it,
// and its row is formed in the tile of the row below it: no tile may begin there.
DRELT_HOST_DEVICE int tileEnd(const FusedState& s, int y0, int rows) {
    const int y1 = y0 + rows < s.ny ? y0 + rows : s.ny;
    return hasCharacteristicPlanes(s) && y1 == s.ny - 2 - s.width ? y1 - 1 : y1;
}

static void slab(const FusedState& s, int z0, int z1, float* scratch) {
    const bool layer = s.width > 0;
    const int tiles = (s.ny + kTileRows - 1) / kTileRows;
    const int rows = (s.ny + tiles - 1) / tiles;
    for (int y0 = 0, y1 = 0; y0 < s.ny; y0 = y1) {
        y1 = tileEnd(s, y0, rows);
        const DeviationRing ring{scratch, y0, y1 - y0 + 2};
        for (int y = y0 - 1; layer && y <= y1; ++y) {
            deviationOfRow(s, y, z0 - 1, ring);
            deviationOfRow(s, y, z0, ring);
        }
        for (int z = z0; z < z1; ++z) {
            const bool inner = z + 1 < z1 - 1;  // `edges` has formed the moments of the others
            if (inner && y0 == 0) momentsOfRow(s, 0, z + 1, {s.populations, 0});
            if (layer) {
                deviationOfRow(s, y0 - 1, z + 1, ring);
                deviationOfRow(s, y0, z + 1, ring);
            }
            for (int y = y0; y < y1; ++y) {
                const AheadOfRow ahead = aheadOf(s, y, z, y0, y1);
                if (layer && ahead.before.share == 0) bringEnds(s, ahead.before.next);
                if (inner && y + 1 < s.ny) momentsOfRow(s, y + 1, z + 1, ahead.inMoments);
                if (layer) deviationOfRow(s, y + 1, z + 1, ring);
                collideAndStreamRow(s, y, z, ring, ahead);
            }
        }
    }
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
