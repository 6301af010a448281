// The sweeps of the fused step for one instruction set, see FusedState.h. A thread goes through its
// slab by tiles of a few rows, plane by plane. Moments run one row and one plane ahead of the collision,
// so that a collided row finds the velocity of all its neighbours, and finds the populations in cache.
#pragma once

#include "cslbm/fused/FusedMoments.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

constexpr int kTileRows = 8;

// A population whose source lies outside the grid keeps its value: it moves on to the place where the
// next step looks for it. Those places belong to no node in this step.
static void keepRow(const FusedState& s, int y, int z) {
    const std::ptrdiff_t own = rowStart(s, y, z, 27);
    const int a = s.swapped ? 0 : 14;
    const int b = s.swapped ? 14 : 0;
    const int last = s.nx - 1;
    for (int code = 14; code < 27; ++code) {
        const int ex = codeX(code);
        const int ey = codeY(code);
        const int ez = codeZ(code);
        float* const ownA = s.populations + own + static_cast<std::ptrdiff_t>(code - a) * s.pitch;
        float* const ownB = s.populations + own + static_cast<std::ptrdiff_t>(code - b) * s.pitch;
        const std::ptrdiff_t ahead = rowStart(s, ey, ez, 27) + ex;
        const bool noSource = y - ey < 0 || y - ey >= s.ny || z - ez < 0;
        const bool noTarget = y + ey < 0 || y + ey >= s.ny || z + ez >= s.nz;
        if (noSource) {
            __builtin_memcpy(ownB, ownA, sizeof(float) * s.nx);
        } else if (ex != 0) {
            const int x = ex > 0 ? 0 : last;
            ownB[x] = ownA[x];
        }
        if (noTarget) {
            __builtin_memcpy(ownA + ahead, ownB + ahead, sizeof(float) * s.nx);
        } else if (ex != 0) {
            const int x = ex > 0 ? last : 0;
            ownA[ahead + x] = ownB[ahead + x];
        }
    }
}

// Takes post-collision populations to their places.
struct StorePack {
    const Places& places;
    std::ptrdiff_t x;
    template <class D>
    DRELT_FUSED_INLINE void operator()(D, const Pack& value) const {
        storePack(places.at[D::opposite] + x, value);
    }
};
// The same for the last nodes of a row.
struct StoreLanes {
    const Places& places;
    std::ptrdiff_t x;
    int lanes;
    template <class D>
    DRELT_FUSED_INLINE void operator()(D, const Pack& value) const {
        storeLanes(places.at[D::opposite] + x, value, lanes);
    }
};

// Rows of the velocity around row (y, z): its own and, clamped to the grid, those beside it.
struct VelocityRows {
    const float* own;
    const float* down;
    const float* up;
    const float* forward;
    const float* back;
};

DRELT_FUSED_INLINE VelocityRows velocityRows(const FusedState& s, int y, int z) {
    const auto row = [&](int j, int k) __attribute__((always_inline)) {
        return s.moments + rowStart(s, j, k, 4) + s.pitch;
    };
    return {row(y, z), row(y > 0 ? y - 1 : y, z), row(y < s.ny - 1 ? y + 1 : y, z),
            row(y, z > 0 ? z - 1 : z), row(y, z < s.nz - 1 ? z + 1 : z)};
}

DRELT_FUSED_INLINE Differences<Pack> differencesAt(const VelocityRows& v, std::ptrdiff_t x,
                                                   std::ptrdiff_t pitch) {
    const auto alongX = [&](std::ptrdiff_t a) __attribute__((always_inline)) {
        return loadPack(v.own + a + x + 1) - loadPack(v.own + a + x - 1);
    };
    const auto alongY = [&](std::ptrdiff_t a) __attribute__((always_inline)) {
        return loadPack(v.up + a + x) - loadPack(v.down + a + x);
    };
    const auto alongZ = [&](std::ptrdiff_t a) __attribute__((always_inline)) {
        return loadPack(v.back + a + x) - loadPack(v.forward + a + x);
    };
    return {alongX(0),         alongY(0),         alongZ(0),
            alongX(pitch),     alongY(pitch),     alongZ(pitch),
            alongX(2 * pitch), alongY(2 * pitch), alongZ(2 * pitch)};
}

struct CollideArguments {
    Places places;
    VelocityRows velocity;
    const float* rho;
    float* sopt;
    std::ptrdiff_t node;  // of x = 0 in the dense force arrays
};

template <bool Whole, bool Spread, class Store>
DRELT_FUSED_INLINE void collidePack(const FusedState& s, const CollideArguments& row,
                                    std::ptrdiff_t x, const Store& store) {
    Relaxation<Pack> r;
    r.rho = loadPack(row.rho + x);
    const float* const own = row.velocity.own + x;
    r.u = {loadPack(own), loadPack(own + s.pitch), loadPack(own + 2 * s.pitch)};
    const Rates<Pack> rates = ratesOf(differencesAt(row.velocity, x, s.pitch), r.rho, r.u,
                                      loadPack(row.sopt + x), s.nu);
    storePack(row.sopt + x, rates.sopt);
    r.shear = rates.shear;
    r.high = rates.high;
    r.equilibrium = rates.high;
    r.force = forceOf<Spread>(s, r.rho, row.node + x);
    if constexpr (Whole) {
        r.force = {mulAdd(s.bodyAcceleration[0], r.rho, r.force.x),
                   mulAdd(s.bodyAcceleration[1], r.rho, r.force.y),
                   mulAdd(s.bodyAcceleration[2], r.rho, r.force.z)};
    }
    relax<Whole>(r, PackAt{row.places, x}, store);
}

template <bool Whole, bool Spread>
DRELT_FUSED_INLINE void collidePacks(const FusedState& s, const CollideArguments& row,
                                     const float* prefetch) {
    constexpr int kFloatsOfLine = 16;
    const int packs = (s.nx + kLanes - 1) / kLanes;
    const std::ptrdiff_t share =
        (27 * static_cast<std::ptrdiff_t>(s.pitch) / kFloatsOfLine + packs - 1) / packs;
    int x = 0;
    for (; x + kLanes <= s.nx; x += kLanes) {
        for (std::ptrdiff_t i = 0; i < share; ++i) {
            __builtin_prefetch(prefetch + i * kFloatsOfLine, 1, 2);
        }
        prefetch += share * kFloatsOfLine;
        collidePack<Whole, Spread>(s, row, x, StorePack{row.places, x});
    }
    if (x < s.nx) collidePack<Whole, Spread>(s, row, x, StoreLanes{row.places, x, s.nx - x});
}

// Collides and streams a row; prefetch is the row of populations wanted next.
static void collideRow(const FusedState& s, int y, int z, const float* prefetch) {
    keepRow(s, y, z);
    CollideArguments row;
    findPlaces(s, y, z, row.places);
    row.velocity = velocityRows(s, y, z);
    row.rho = row.velocity.own - s.pitch;
    row.sopt = s.sopt + rowStart(s, y, z, 1);
    row.node = nodeRow(s, y, z) * s.nx;
    unsigned char& spread = s.spread[nodeRow(s, y, z)];
    if (s.whole) {
        if (spread) {
            collidePacks<true, true>(s, row, prefetch);
        } else {
            collidePacks<true, false>(s, row, prefetch);
        }
    } else if (spread) {
        collidePacks<false, true>(s, row, prefetch);
    } else {
        collidePacks<false, false>(s, row, prefetch);
    }
    if (spread) {
        for (double* const force : s.force) {
            __builtin_memset(force + row.node, 0, sizeof(double) * s.nx);
        }
        spread = 0;
    }
}

static void edges(const FusedState& s, int z0, int z1) {
    if (z0 >= z1) return;
    for (int y = 0; y < s.ny; ++y) momentsOfRow(s, y, z0);
    if (z1 - 1 > z0) {
        for (int y = 0; y < s.ny; ++y) momentsOfRow(s, y, z1 - 1);
    }
}

static void slab(const FusedState& s, int z0, int z1) {
    for (int y0 = 0; y0 < s.ny; y0 += kTileRows) {
        const int y1 = y0 + kTileRows < s.ny ? y0 + kTileRows : s.ny;
        for (int z = z0; z < z1; ++z) {
            const bool ahead = z + 1 < z1 - 1;
            if (ahead && y0 == 0) momentsOfRow(s, 0, z + 1);
            for (int y = y0; y < y1; ++y) {
                if (ahead && y + 1 < s.ny) momentsOfRow(s, y + 1, z + 1);
                const int soonZ = z + 2 <= s.nz ? z + 2 : s.nz;
                const int soonY = y + 2 <= s.ny ? y + 2 : s.ny;
                collideRow(s, y, z, s.populations + rowStart(s, soonY, soonZ, 27));
            }
        }
    }
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
