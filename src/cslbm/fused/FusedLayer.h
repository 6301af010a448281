// Absorbing layer of the fused step; see PMLOperation.h for the scheme. Nothing of it is stored: the
// deviation of the last step comes again from that step's density and velocity, and Q, its mean over
// both steps, lives in a ring of rows about the row that is collided.
#pragma once

#include "cslbm/fused/FusedMoments.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// Rows of Q of a tile: as many as are made between a row's making, just before the row below it in the
// plane before collides, and its last use, by the row above it in the plane after. A row holds the 27
// directions by code, `pitch` floats each.
struct DeviationRing {
    float* first;
    int y0;      // the tile's first row
    int height;  // rows of a plane: the tile's and one more on each side

    DRELT_FUSED_INLINE float* row(const FusedState& s, int y, int z) const {
        return first + (z * height + y - y0 + 1) % (2 * height + 3) * (27 * s.pitch);
    }
};

// Distance of a row to the nearest face along y or z.
DRELT_FUSED_INLINE int rowDepth(const FusedState& s, int y, int z) {
    const int inY = y < s.ny - 1 - y ? y : s.ny - 1 - y;
    const int inZ = z < s.nz - 1 - z ? z : s.nz - 1 - z;
    return inY < inZ ? inY : inZ;
}

// The equilibrium's factors of an axis for components -1, 0, 1.
struct AxisFactors {
    Pack of[3];
};
DRELT_FUSED_INLINE AxisFactors factorsOf(const Pack& u) {
    const Pack half = 0.5f * u;
    const Pack even = mulAdd(half, u, splat(1.0f / 6.0f));
    return {{even - half, negMulAdd(u, u, splat(2.0f / 3.0f)), even + half}};
}

// Density times the factors along y and z, and those along x: the parts of an equilibrium.
struct EquilibriumParts {
    Pack yz[9];
    AxisFactors x;
};
DRELT_FUSED_INLINE EquilibriumParts halfEquilibrium(const FusedState& s, const float* rho) {
    const AxisFactors y = factorsOf(loadPack(rho + 2 * s.pitch));
    const AxisFactors z = factorsOf(loadPack(rho + 3 * s.pitch));
    EquilibriumParts parts;
    const Pack half = 0.5f * loadPack(rho);
    for (int k = 0; k < 3; ++k) {
        const Pack part = half * z.of[k];
        for (int j = 0; j < 3; ++j) parts.yz[3 * k + j] = part * y.of[j];
    }
    parts.x = factorsOf(loadPack(rho + s.pitch));
    return parts;
}

// Density of the reference equilibrium.
DRELT_FUSED_INLINE Pack referenceAt(const FusedState& s, std::ptrdiff_t at) {
    return s.reference != nullptr ? loadPack(s.reference + at) : splat(1.0f);
}

constexpr float kWeights[4] = {8.0f / 27.0f, 2.0f / 27.0f, 1.0f / 54.0f, 1.0f / 216.0f};

template <int Code>
DRELT_FUSED_INLINE void storeDeviations(const EquilibriumParts& a, const EquilibriumParts& b,
                                        const Pack (&rest)[4], float* to, std::ptrdiff_t pitch) {
    constexpr int squaredLength =
        codeX(Code) * codeX(Code) + codeY(Code) * codeY(Code) + codeZ(Code) * codeZ(Code);
    const Pack half = mulAdd(b.yz[Code / 3], b.x.of[Code % 3], rest[squaredLength]);
    storePack(to + Code * pitch, mulAdd(a.yz[Code / 3], a.x.of[Code % 3], half));
    if constexpr (Code < 26) storeDeviations<Code + 1>(a, b, rest, to, pitch);
}

DRELT_FUSED_INLINE void deviationOfPacks(const FusedState& s, int y, int z, int first, int end,
                                         float* to) {
    const float* const now = s.moments + rowStart(s, y, z, 4);
    const float* const before = s.before + rowStart(s, y, z, 4);
    for (std::ptrdiff_t x = first; x < end; x += kLanes) {
        const EquilibriumParts a = halfEquilibrium(s, now + x);
        const EquilibriumParts b = halfEquilibrium(s, before + x);
        const Pack reference = referenceAt(s, rowStart(s, y, z, 1) + x);
        Pack rest[4];
        for (int i = 0; i < 4; ++i) rest[i] = -kWeights[i] * reference;
        storeDeviations<0>(a, b, rest, to + x, s.pitch);
    }
}

// Q of the nodes of a row that lie in the layer or beside it.
static void deviationOfRow(const FusedState& s, int y, int z, const DeviationRing& ring) {
    if (y < 0 || y >= s.ny || z < 0 || z >= s.nz) return;
    const int w = s.width;
    float* const to = ring.row(s, y, z);
    const int right = (s.nx - 1 - w) / kLanes * kLanes;
    if (rowDepth(s, y, z) <= w || w + 1 >= right) {
        deviationOfPacks(s, y, z, 0, s.nx, to);
    } else {
        deviationOfPacks(s, y, z, 0, w + 1, to);
        deviationOfPacks(s, y, z, right, s.nx, to);
    }
}

// What the layer needs of a row: the rows of Q about it, and which faces it lies on. Rows outside the
// grid stand for its own, and are never used.
struct LayerRow {
    const float* q[9];  // (ey + 1) + 3 (ez + 1)
    const float* reference;
    float depth;
    bool outer;                    // on a face along y or z
    bool down, up, forward, back;  // no row beyond along -y, y, -z, z

    // Whether the row toward (y, z) lies outside.
    DRELT_FUSED_INLINE bool leaves(int y, int z) const {
        return (y < 0 && down) || (y > 0 && up) || (z < 0 && forward) || (z > 0 && back);
    }
};

DRELT_FUSED_INLINE void findLayerRow(const FusedState& s, const DeviationRing& ring, int y, int z,
                                     LayerRow& row) {
    row.depth = static_cast<float>(rowDepth(s, y, z));
    row.down = y == 0;
    row.up = y == s.ny - 1;
    row.forward = z == 0;
    row.back = z == s.nz - 1;
    row.outer = row.down || row.up || row.forward || row.back;
    for (int i = 0; i < 9; ++i) {
        const bool leaves = row.leaves(i % 3 - 1, i / 3 - 1);
        row.q[i] = leaves ? ring.row(s, y, z) : ring.row(s, y + i % 3 - 1, z + i / 3 - 1);
    }
    row.reference = s.reference != nullptr ? s.reference + rowStart(s, y, z, 1) : nullptr;
}

// Nodes of a row that are collided together.
constexpr std::ptrdiff_t kBlockNodes = 128;

// What the layer gives to the nodes of a block, direction by direction:
// -sigma (sigma Q + 2 fEqTilde + cNQ) without the part of 2 fEqTilde that the collision leaves out.
struct AbsorptionBlock {
    Pack sigma[kBlockNodes / kLanes];
    float given[27 * kBlockNodes];
};

// Damping of the nodes of a pack; 0 outside the layer.
DRELT_FUSED_INLINE Pack dampingAt(const FusedState& s, float depth, std::ptrdiff_t x) {
    const Pack inX = loadPack(s.depth + x);
    const Pack inside = static_cast<float>(s.width) - (inX < depth ? inX : splat(depth));
    const Pack d = inside > 0.0f ? inside : Pack{};
    return d * (s.sigmaScale * d);
}

constexpr float kHalfInverseLength[4] = {0.0f, 0.5f, 0.5f / 1.4142135f, 0.5f / 1.7320508f};

// The packs of a run of nodes, and which of them lie on the faces x = 0 and x = nx - 1.
struct LayerRun {
    int packs;
    int left, right;       // packs, -1 for none
    PackMask first, last;  // their nodes on the faces
    const Pack* sigma;
    Pack reference[kBlockNodes / kLanes];
};

// cNQ is a difference of Q times a factor: on a face only a direction that leaves the grid has one, and
// that one is one-sided.
template <int X, int Y, int Z>
DRELT_FUSED_INLINE float faceFactor(const LayerRow& row, int endX) {
    constexpr int length = X * X + Y * Y + Z * Z;
    const bool leaves = row.leaves(Y, Z) || (X != 0 && X == endX);
    const bool alone = row.leaves(-Y, -Z) || (X != 0 && X == -endX);
    return leaves && !alone ? 2.0f * kHalfInverseLength[length] : 0.0f;
}

template <int Code>
DRELT_FUSED_INLINE void absorbAlong(const FusedState& s, const LayerRow& row, const LayerRun& run,
                                    std::ptrdiff_t x0, float* to) {
    constexpr int ex = codeX(Code);
    constexpr int ey = codeY(Code);
    constexpr int ez = codeZ(Code);
    constexpr int length = ex * ex + ey * ey + ez * ez;
    const std::ptrdiff_t start = Code * s.pitch + x0;
    const float* const own = row.q[4] + start;
    const float* const ahead = row.outer ? own : row.q[Code / 3] + start + ex;
    const float* const behind = row.q[(26 - Code) / 3] + start - ex;
    const Pack factor =
        splat(row.outer ? faceFactor<ex, ey, ez>(row, 0) : kHalfInverseLength[length]);
    const Pack weight = splat(2.0f * kWeights[length]);
    for (int i = 0; i < run.packs; ++i) {
        const std::ptrdiff_t x = i * kLanes;
        const Pack q = loadPack(own + x);
        const Pack back = loadPack(behind + x);
        Pack cNQ = factor * (loadPack(ahead + x) - back);
        if (i == run.left) cNQ = run.first ? faceFactor<ex, ey, ez>(row, -1) * (q - back) : cNQ;
        if (i == run.right) cNQ = run.last ? faceFactor<ex, ey, ez>(row, 1) * (q - back) : cNQ;
        const Pack rest = negMulAdd(run.sigma[i], q, weight * run.reference[i]);
        storePack(to + Code * kBlockNodes + x, run.sigma[i] * (rest - cNQ));
    }
    if constexpr (Code < 26) absorbAlong<Code + 1>(s, row, run, x0, to);
}

// Nodes x0 <= x < x1 of a row, into the block from its node `at` on.
static void absorb(const FusedState& s, const LayerRow& row, int x0, int x1, int at,
                   AbsorptionBlock& block) {
    Pack* const sigma = block.sigma + at / kLanes;
    LayerRun run;
    run.packs = (x1 - x0 + kLanes - 1) / kLanes;
    run.left = x0 == 0 ? 0 : -1;
    run.right = x1 == s.nx ? run.packs - 1 : -1;
    PackMask lane;
    for (int i = 0; i < kLanes; ++i) lane[i] = i;
    run.first = lane == 0;
    run.last = lane == static_cast<int>((s.nx - 1) % kLanes);
    run.sigma = sigma;
    for (int i = 0; i < run.packs; ++i) {
        sigma[i] = dampingAt(s, row.depth, x0 + i * kLanes);
        run.reference[i] =
            row.reference != nullptr ? loadPack(row.reference + x0 + i * kLanes) : splat(1.0f);
    }
    absorbAlong<0>(s, row, run, x0, block.given + at);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
