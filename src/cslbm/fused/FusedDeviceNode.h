// One node in the production step of a device: the places of its populations, the velocities around it, the
// marks of the force on it.
#pragma once

#define DRELT_FUSED_ISA fused_device

#include "cslbm/fused/FusedCore.h"
#include "cslbm/fused/FusedDeviceState.h"
#include "cslbm/fused/FusedPlanes.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {
namespace fused_device {

// Reads a value that no thread of the launch writes. A GPU may keep it in its read-only cache.
DRELT_HOST_DEVICE float readOnly(const float* from) {
#if defined(__CUDA_ARCH__)
    return __ldg(from);
#else
    return *from;
#endif
}

// The base of the places of node (x, y, z). Its streamed population of a direction is at [place[code]]. The
// post-collision one goes to the place of the opposite direction.
DRELT_HOST_DEVICE float* placesOf(const FusedState& s, int x, int y, int z) {
    return s.populations + rowStart(s, y, z, 27) + x;
}

// The index of node (x, y, z) in dense arrays.
DRELT_HOST_DEVICE std::int64_t nodeOf(const FusedState& s, int x, int y, int z) {
    return x + s.nx * (y + static_cast<std::int64_t>(s.ny) * z);
}

// A node's populations in memory.
struct PopulationsAt {
    const float* base;
    const FusedState& s;
    template <class D>
    DRELT_HOST_DEVICE float operator()(D) const {
        return base[s.place[D::code]];
    }
};
// A node's populations that a thread has loaded, by code.
struct LoadedPopulations {
    const float (&f)[27];
    template <class D>
    DRELT_HOST_DEVICE float operator()(D) const {
        return f[D::code];
    }
};

// The faces of the grid that a node lies on.
struct Faces {
    bool left, right, down, up, forward, back;

    DRELT_HOST_DEVICE bool any() const { return left || right || down || up || forward || back; }
    // Whether the neighbour in direction D lies outside the grid, and whether the one opposite does.
    template <class D>
    DRELT_HOST_DEVICE bool leaves() const {
        return leavesBy<D::x, D::y, D::z>();
    }
    template <class D>
    DRELT_HOST_DEVICE bool leavesBackwards() const {
        return leavesBy<-D::x, -D::y, -D::z>();
    }

private:
    template <int X, int Y, int Z>
    DRELT_HOST_DEVICE bool leavesBy() const {
        return (X < 0 && left) || (X > 0 && right) || (Y < 0 && down) || (Y > 0 && up) ||
               (Z < 0 && forward) || (Z > 0 && back);
    }
};
DRELT_HOST_DEVICE Faces facesOf(const FusedState& s, const LaunchIndex& at) {
    return {at.x == 0, at.x == s.nx - 1, at.y == 0, at.y == s.ny - 1, at.z == 0, at.z == s.nz - 1};
}

// The node that gives a node its state: its inner neighbour for a node on the open planes, else the node
// itself.
struct SourceNode {
    int x, y, z;
    bool other;  // not the node itself
};
DRELT_HOST_DEVICE SourceNode sourceOf(const FusedState& s, const LaunchIndex& at) {
    const int w = s.width;
    const bool between =
        withinPlanes(at.x, s.nx, w) && withinPlanes(at.y, s.ny, w) && withinPlanes(at.z, s.nz, w);
    if (!between) return {at.x, at.y, at.z, false};
    const Vector3<int> from{innerCoordinate(at.x, s.nx, w), innerCoordinate(at.y, s.ny, w),
                            innerCoordinate(at.z, s.nz, w)};
    return {from.x, from.y, from.z, from.x != at.x || from.y != at.y || from.z != at.z};
}

// The populations of a node on a characteristic plane with the given inner neighbour.
DRELT_HOST_DEVICE OpenPopulations<float, PopulationsAt> openPopulationsOf(const FusedState& s,
                                                                          const LaunchIndex& at,
                                                                          const SourceNode& from) {
    const int w = s.width;
    const PlaneNormal normal = planeNormal(at.x, at.y, at.z, s.nx, s.nz, w);
    const auto behind = [&](int a, int n, int axis) DRELT_LAMBDA_INLINE {
        return normal.axis == axis ? innerCoordinate(a - normal.outward, n, w) : a;
    };
    const PopulationsAt first{placesOf(s, from.x, from.y, from.z), s};
    const PopulationsAt second{
        placesOf(s, behind(from.x, s.nx, 0), behind(from.y, s.ny, 1), behind(from.z, s.nz, 2)), s};
    return openPopulations<float>(s.planes, normal, first, second);
}

// Density and velocity of a node, shifted by half the force.
struct NodeFluid {
    float rho;
    Vector3<float> u;
};
DRELT_HOST_DEVICE NodeFluid fluidAt(const DeviceMoments& m, std::int64_t n) {
    const float rho = readOnly(m.rho + n);
    const float inverse = 1.0f / rho;
    return {rho,
            {mulAdd(readOnly(m.momentum[0] + n), inverse, m.halfAcceleration[0]),
             mulAdd(readOnly(m.momentum[1] + n), inverse, m.halfAcceleration[1]),
             mulAdd(readOnly(m.momentum[2] + n), inverse, m.halfAcceleration[2])}};
}

// The differences of the velocity between a node's neighbours, clamped to the grid.
DRELT_HOST_DEVICE Differences<float> differencesAt(const FusedDeviceState& d,
                                                   const LaunchIndex& at) {
    const FusedState& s = d.base;
    const std::int64_t row = s.nx;
    const std::int64_t plane = row * s.ny;
    const auto along = [&](int a, int count, std::int64_t step) DRELT_LAMBDA_INLINE {
        const Vector3<float> up = fluidAt(d.now, a < count - 1 ? at.n + step : at.n).u;
        const Vector3<float> down = fluidAt(d.now, a > 0 ? at.n - step : at.n).u;
        return Vector3<float>{up.x - down.x, up.y - down.y, up.z - down.z};
    };
    const Vector3<float> x = along(at.x, s.nx, 1);
    const Vector3<float> y = along(at.y, s.ny, row);
    const Vector3<float> z = along(at.z, s.nz, plane);
    return {x.x, y.x, z.x, x.y, y.y, z.y, x.z, y.z, z.z};
}

// The words that mark the chunks of a row under a spread force.
DRELT_HOST_DEVICE unsigned* marksOf(const FusedState& s, int y, int z) {
    return s.spread + (static_cast<std::int64_t>(s.ny) * z + y) * s.chunkWords;
}
DRELT_HOST_DEVICE bool marked(const FusedState& s, const LaunchIndex& at) {
    const int chunk = at.x / kChunkNodes;
    return (marksOf(s, at.y, at.z)[chunk / 32] >> (chunk % 32) & 1u) != 0;
}

// Sets bits that other threads may set at the same time. Most are set already.
DRELT_HOST_DEVICE void setBits(unsigned* word, unsigned bits) {
#if defined(__CUDA_ARCH__)
    if ((*static_cast<volatile unsigned*>(word) & bits) != bits) atomicOr(word, bits);
#else
    if ((__atomic_load_n(word, __ATOMIC_RELAXED) & bits) != bits) {
        __atomic_fetch_or(word, bits, __ATOMIC_RELAXED);
    }
#endif
}

// Marks the chunks of nodes x0 <= x < x1 of a row. Needs x0 < x1.
DRELT_HOST_DEVICE void markRow(const FusedState& s, int x0, int x1, int y, int z) {
    unsigned* const words = marksOf(s, y, z);
    for (int c = x0 / kChunkNodes; c <= (x1 - 1) / kChunkNodes; ++c) {
        setBits(words + c / 32, 1u << (c % 32));
    }
}

}  // namespace fused_device
}  // namespace drelt
