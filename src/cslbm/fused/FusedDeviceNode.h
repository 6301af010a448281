// One node of the production step of a device: where its populations stand, its velocity and those
// around it, the force on it.
#pragma once

#define DRELT_FUSED_ISA fused_device
#define DRELT_FUSED_FLOAT

#include "cslbm/fused/FusedCore.h"
#include "cslbm/fused/FusedDeviceState.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {
namespace fused_device {

template <class D>
constexpr int codeOf = (D::x + 1) + 3 * (D::y + 1) + 9 * (D::z + 1);

// Base of the places of node (x, y, z): the streamed population in direction code stands at
// [place[code]], and the post-collision one goes to the place of the opposite direction.
DRELT_FUSED_INLINE float* placesOf(const FusedState& s, int x, int y, int z) {
    return s.populations + rowStart(s, y, z, 27) + x;
}

DRELT_FUSED_INLINE std::int64_t nodeOf(const FusedState& s, int x, int y, int z) {
    return x + s.nx * (y + static_cast<std::int64_t>(s.ny) * z);
}

// Populations in memory, and as they were read.
struct PopulationsAt {
    const float* base;
    const FusedState& s;
    template <class D>
    DRELT_FUSED_INLINE float operator()(D) const {
        return base[s.place[D::code]];
    }
};
struct LoadedPopulations {
    const float (&f)[27];
    template <class D>
    DRELT_FUSED_INLINE float operator()(D) const {
        return f[D::code];
    }
};

// Which faces of the grid a node lies on.
struct Faces {
    bool left, right, down, up, forward, back;

    DRELT_FUSED_INLINE bool any() const { return left || right || down || up || forward || back; }
    // Whether the neighbour in a direction lies outside the grid.
    template <int X, int Y, int Z>
    DRELT_FUSED_INLINE bool leaves() const {
        return (X < 0 && left) || (X > 0 && right) || (Y < 0 && down) || (Y > 0 && up) ||
               (Z < 0 && forward) || (Z > 0 && back);
    }
};
DRELT_FUSED_INLINE Faces facesOf(const FusedState& s, const LaunchIndex& at) {
    return {at.x == 0, at.x == s.nx - 1, at.y == 0, at.y == s.ny - 1, at.z == 0, at.z == s.nz - 1};
}

// A node of the open planes takes everything from its inner neighbour; any other is its own source.
struct SourceNode {
    int x, y, z;
    bool other;
};
DRELT_FUSED_INLINE SourceNode sourceOf(const FusedState& s, const LaunchIndex& at) {
    const int w = s.width;
    const bool open = at.x >= w && at.x <= s.nx - 1 - w && at.y >= w && at.y <= s.ny - 1 - w &&
                      at.z >= w && at.z <= s.nz - 1 - w;
    if (!open) return {at.x, at.y, at.z, false};
    const auto inside = [w](int a, int n) DRELT_LAMBDA_INLINE {
        const int low = a > w + 1 ? a : w + 1;
        return low < n - 2 - w ? low : n - 2 - w;
    };
    const SourceNode from{inside(at.x, s.nx), inside(at.y, s.ny), inside(at.z, s.nz), true};
    return {from.x, from.y, from.z, from.x != at.x || from.y != at.y || from.z != at.z};
}

struct NodeFluid {
    float rho;
    Triple<float> u;
};
DRELT_FUSED_INLINE NodeFluid fluidAt(const DeviceMoments& m, std::int64_t n) {
    const float rho = readOnly(m.rho + n);
    const float inverse = 1.0f / rho;
    return {rho,
            {mulAdd(readOnly(m.momentum[0] + n), inverse, m.halfAcceleration[0]),
             mulAdd(readOnly(m.momentum[1] + n), inverse, m.halfAcceleration[1]),
             mulAdd(readOnly(m.momentum[2] + n), inverse, m.halfAcceleration[2])}};
}

// Beyond the grid's faces the velocity goes on as it is there.
DRELT_FUSED_INLINE Differences<float> differencesAt(const FusedDeviceState& d,
                                                    const LaunchIndex& at) {
    const FusedState& s = d.base;
    const std::int64_t row = s.nx;
    const std::int64_t plane = row * s.ny;
    const auto along = [&](int a, int count, std::int64_t step) DRELT_LAMBDA_INLINE {
        const Triple<float> up = fluidAt(d.now, a < count - 1 ? at.n + step : at.n).u;
        const Triple<float> down = fluidAt(d.now, a > 0 ? at.n - step : at.n).u;
        return Triple<float>{up.x - down.x, up.y - down.y, up.z - down.z};
    };
    const Triple<float> x = along(at.x, s.nx, 1);
    const Triple<float> y = along(at.y, s.ny, row);
    const Triple<float> z = along(at.z, s.nz, plane);
    return {x.x, y.x, z.x, x.y, y.y, z.y, x.z, y.z, z.z};
}

// Marks of the chunks of nodes under a spread force.
DRELT_FUSED_INLINE unsigned* marksOf(const FusedState& s, int y, int z) {
    return s.spread + (static_cast<std::int64_t>(s.ny) * z + y) * s.chunkWords;
}
DRELT_FUSED_INLINE bool marked(const FusedState& s, const LaunchIndex& at) {
    const int chunk = at.x / kChunkNodes;
    return (marksOf(s, at.y, at.z)[chunk / 32] >> (chunk % 32) & 1u) != 0;
}

// Sets bits that other threads may be setting as well; most are set already.
DRELT_FUSED_INLINE void setBits(unsigned* word, unsigned bits) {
#if defined(__CUDA_ARCH__)
    if ((*static_cast<volatile unsigned*>(word) & bits) != bits) atomicOr(word, bits);
#else
    if ((__atomic_load_n(word, __ATOMIC_RELAXED) & bits) != bits) {
        __atomic_fetch_or(word, bits, __ATOMIC_RELAXED);
    }
#endif
}

// Marks the chunks of nodes x0 <= x < x1 of a row, of which there are some.
DRELT_FUSED_INLINE void markRow(const FusedState& s, int x0, int x1, int y, int z) {
    unsigned* const words = marksOf(s, y, z);
    for (int c = x0 / kChunkNodes; c <= (x1 - 1) / kChunkNodes; ++c) {
        setBits(words + c / 32, 1u << (c % 32));
    }
}

}  // namespace fused_device
}  // namespace drelt
