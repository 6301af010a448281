// Applies the open planes to a row of the host's production step.
#pragma once

#include "cslbm/fused/FusedPlanes.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/fused/Pack.h"
#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

constexpr std::ptrdiff_t kLineFloats = 16;  // of a cache line

// The populations of a pack; `base` is its first node in the row of populations.
struct RowPackAt {
    const FusedState& s;
    const float* base;
    template <class D>
    DRELT_HOST_DEVICE Pack operator()(D) const {
        return loadPack(base + s.place[D::code]);
    }
};

// Whether a row crosses the space between the planes.
DRELT_HOST_DEVICE bool rowWithinPlanes(const FusedState& s, int y, int z) {
    return withinPlanes(y, s.ny, s.width) && withinPlanes(z, s.nz, s.width);
}

// Calls take(populations, x, lanes) for the packs of nodes x0 <= x < x1 of a row that lie on one
// characteristic plane, with inner neighbours `shift` nodes further along x.
template <class Take>
DRELT_HOST_DEVICE void visitOpenRun(const FusedState& s, int y, int z, int x0, int x1, int shift,
                                    const Take& take) {
    const int w = s.width;
    const PlaneNormal normal = planeNormal(x0, y, z, s.nx, s.nz, w);
    const auto behind = [&](int a, int n, int axis) DRELT_LAMBDA_INLINE {
        return normal.axis == axis ? innerCoordinate(a - normal.outward, n, w) : a;
    };
    const int fromY = innerCoordinate(y, s.ny, w);
    const int fromZ = innerCoordinate(z, s.nz, w);
    const float* const first = s.populations + rowStart(s, fromY, fromZ, 27) + shift;
    const float* const second = s.populations +
                                rowStart(s, behind(fromY, s.ny, 1), behind(fromZ, s.nz, 2), 27) +
                                (behind(x0 + shift, s.nx, 0) - x0);
    // The row of `second` two rows ahead: no other loop prefetches it.
    const std::ptrdiff_t packs = (s.nx + kLanes - 1) / kLanes;
    const std::ptrdiff_t share =
        normal.axis == 2 ? (27 * s.pitch / kLineFloats + packs - 1) / packs : 0;
    const float* next = second + s.pitch * 27 * 2;
    for (std::ptrdiff_t x = x0; x < x1; x += kLanes) {
        for (std::ptrdiff_t i = 0; i < share; ++i, next += kLineFloats)
            __builtin_prefetch(next, 0, 3);
        const int lanes = static_cast<int>(x1 - x < kLanes ? x1 - x : kLanes);
        take(openPopulations<Pack>(s.planes, normal, RowPackAt{s, first + x},
                                   RowPackAt{s, second + x}),
             x, lanes);
    }
}

// The same for all nodes x0 <= x < x1 of a row that lie on a characteristic plane. Needs a row within the
// planes.
template <class Take>
DRELT_HOST_DEVICE void visitOpenNodes(const FusedState& s, int y, int z, int x0, int x1,
                                      const Take& take) {
    const int w = s.width;
    const int last = s.nx - 1 - w;
    if (x0 <= w && w < x1) visitOpenRun(s, y, z, w, w + 1, 1, take);
    if (x0 <= last && last < x1) visitOpenRun(s, y, z, last, last + 1, -1, take);
    if (y == innerCoordinate(y, s.ny, w) && z == innerCoordinate(z, s.nz, w)) return;
    const int from = x0 > w ? x0 : w + 1;
    visitOpenRun(s, y, z, from, x1 < last ? x1 : last, 0, take);
}

// Two nodes at each end of a row in one pack: lanes 0 and 1 from `low` on, lanes 2 and 3 from `high` on.
struct EndsAt {
    const FusedState& s;
    const float* low;
    const float* high;
    template <class D>
    DRELT_HOST_DEVICE Pack operator()(D) const {
        return loadPairs(low + s.place[D::code], high + s.place[D::code]);
    }
};

// Opens a row that only its ends connect to the planes. One pack serves both ends: its lanes are the nodes
// w + 1, w + 2, last - 2 and last - 1. Needs two nodes between the planes.
static void openEnds(const FusedState& s, int y, int z) {
    const int w = s.width;
    const int last = s.nx - 1 - w;
    float* const row = s.populations + rowStart(s, y, z, 27);
    const EndsAt f{s, row + w + 1, row + last - 2};
    const PlaneFluid<Pack> own = fluidOf<Pack>(f);
    const PlaneFluid<Pack> neighbour{swapPairs(own.rho),
                                     {swapPairs(own.u.x), swapPairs(own.u.y), swapPairs(own.u.z)}};
    const Pack outward{-1.0f, -1.0f, 1.0f, 1.0f};
    const auto open = openPopulations(f, own, fluidOnPlane(s.planes, 0, outward, own, neighbour));
    forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
        using E = TowardOf<decltype(e)>;
        const Pack value = open(E{});
        row[s.place[E::code] + w] = value[0];
        row[s.place[E::code] + last] = value[3];
    });
}

// Stores the populations of the nodes on characteristic planes in their own places. The nodes that it reads
// must not have collided yet.
static void openCharacteristicRow(const FusedState& s, int y, int z) {
    if (!rowWithinPlanes(s, y, z)) return;
    const bool onPlane =
        y != innerCoordinate(y, s.ny, s.width) || z != innerCoordinate(z, s.nz, s.width);
    if (!onPlane && s.nx > 2 * s.width + 3) {
        openEnds(s, y, z);
        return;
    }
    float* const to = s.populations + rowStart(s, y, z, 27);
    visitOpenNodes(s, y, z, 0, s.nx,
                   [&](const auto& f, std::ptrdiff_t x, int lanes) DRELT_LAMBDA_INLINE {
                       forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
                           using E = TowardOf<decltype(e)>;
                           float* const place = to + s.place[E::code] + x;
                           if (lanes == kLanes) {
                               storePack(place, f(E{}));
                           } else {
                               storeLanes(place, f(E{}), lanes);
                           }
                       });
                   });
}

// See FusedSweeps::fillOpenNodes.
static void fillOpenNodes(const FusedState& s, int y, int z, float* const* to) {
    if (!rowWithinPlanes(s, y, z)) return;
    visitOpenNodes(s, y, z, 0, s.nx, [&](const auto& f, std::ptrdiff_t x, int lanes) {
        forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
            using E = TowardOf<decltype(e)>;
            storeLanes(to[E::code] + x, f(E{}), lanes);
        });
    });
}

// Whether `edges` opens the rows of a plane. A characteristic plane across z reads two planes inside, and
// one of them may have collided when the sweep or its neighbour thread comes to it. Without a layer `edges`
// forms the moments of these planes anyway.
DRELT_HOST_DEVICE bool opensAhead(const FusedState& s, int z) {
    return s.width > 0 && hasCharacteristicPlanes(s) && (z == s.width || z == s.nz - 1 - s.width);
}

// Gives the nodes of a row that lie on copied planes the streamed populations of their inner neighbours.
DRELT_HOST_DEVICE void openCopiedRow(const FusedState& s, int y, int z) {
    if (!rowWithinPlanes(s, y, z)) return;
    const int w = s.width;
    const int fromY = innerCoordinate(y, s.ny, w);
    const int fromZ = innerCoordinate(z, s.nz, w);
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

// Applies the open planes to a row. The nodes inside have not collided yet.
DRELT_HOST_DEVICE void openRow(const FusedState& s, int y, int z) {
    if (!hasCharacteristicPlanes(s)) {
        openCopiedRow(s, y, z);
    } else if (!opensAhead(s, z)) {
        openCharacteristicRow(s, y, z);
    }
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
