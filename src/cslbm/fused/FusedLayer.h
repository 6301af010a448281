// The absorbing layer of the host's production step; PMLOperation.h tells the scheme. No array of it is
// stored: the deviation of the last step is recomputed from density and velocity of that step, and Q, its
// mean over both steps, is kept only for the rows around the row that collides.
#pragma once

#include "cslbm/PML/PMLScheme.h"
#include "cslbm/fused/FusedMoments.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// The ring of rows of Q of a tile. When row (y, z) collides, the nine rows around it are in the ring:
//
//     plane z-1     y-1 ... y ... y+1     y-1 is the oldest row that is still read
//     plane z       y-1 ... y ... y+1
//     plane z+1     y-1 ... y ... y+1     y+1 was computed just before
//
// Row (y, z) is computed just before row (y-1, z-1) collides and last read by row (y+1, z+1). Rows are
// numbered plane by plane, `height` per plane, so 2 height + 3 rows suffice. A row holds the 27 directions by
// code, `pitch` floats each.
struct DeviationRing {
    float* first;
    int y0;      // first row of the tile
    int height;  // rows per plane: those of the tile and one more on each side

    DRELT_HOST_DEVICE float* row(const FusedState& s, int y, int z) const {
        return first + (z * height + y - y0 + 1) % (2 * height + 3) * (27 * s.pitch);
    }
};

// The distance of a row to the nearest face along y or z.
DRELT_HOST_DEVICE int rowDepth(const FusedState& s, int y, int z) {
    const int inY = y < s.ny - 1 - y ? y : s.ny - 1 - y;
    const int inZ = z < s.nz - 1 - z ? z : s.nz - 1 - z;
    return inY < inZ ? inY : inZ;
}

// The parts of half the equilibrium: half the density times the factors along y and z, and the factors along
// x.
struct EquilibriumParts {
    Pack yz[9];
    AxisFactors<Pack> x;
};
DRELT_HOST_DEVICE EquilibriumParts halfEquilibrium(const FusedState& s, const float* rho) {
    const AxisFactors<Pack> y = axisFactors(loadPack(rho + 2 * s.pitch));
    const AxisFactors<Pack> z = axisFactors(loadPack(rho + 3 * s.pitch));
    EquilibriumParts parts;
    const Pack half = 0.5f * loadPack(rho);
    for (int k = 0; k < 3; ++k) {
        const Pack part = half * z.of[k];
        for (int j = 0; j < 3; ++j) parts.yz[3 * k + j] = part * y.of[j];
    }
    parts.x = axisFactors(loadPack(rho + s.pitch));
    return parts;
}

// The density of the reference equilibrium.
DRELT_HOST_DEVICE Pack referenceAt(const FusedState& s, std::ptrdiff_t at) {
    return s.reference != nullptr ? loadPack(s.reference + at) : splat(1.0f);
}

// Stores Q of a pack, direction by direction: the two half equilibria a and b minus the reference.
template <int Code>
DRELT_HOST_DEVICE void storeDeviations(const EquilibriumParts& a, const EquilibriumParts& b,
                                       const Pack (&rest)[4], float* to, std::ptrdiff_t pitch) {
    constexpr int length = TowardCode<Code>::squaredLength;
    const Pack half = mulAdd(b.yz[Code / 3], b.x.of[Code % 3], rest[length]);
    storePack(to + Code * pitch, mulAdd(a.yz[Code / 3], a.x.of[Code % 3], half));
    if constexpr (Code < 26) storeDeviations<Code + 1>(a, b, rest, to, pitch);
}

// Q of the nodes first <= x < end of a row.
DRELT_HOST_DEVICE void deviationOfPacks(const FusedState& s, int y, int z, int first, int end,
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

// Computes Q of those nodes of a row that lie in the layer or next to it.
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

// A row that collides in the layer: the rows of Q around it and the faces it lies on. For a neighbour outside
// the grid, q points to the row itself; that value is never used.
struct LayerRow {
    const float* q[9];  // (ey + 1) + 3 (ez + 1)
    const float* reference;
    float depth;
    bool outer;                    // the row lies on a face along y or z,
    bool down, up, forward, back;  // namely on y = 0, y = ny - 1, z = 0, z = nz - 1

    // Whether the neighbouring row at (y, z) lies outside the grid.
    DRELT_HOST_DEVICE bool leaves(int y, int z) const {
        return (y < 0 && down) || (y > 0 && up) || (z < 0 && forward) || (z > 0 && back);
    }
};

DRELT_HOST_DEVICE void findLayerRow(const FusedState& s, const DeviationRing& ring, int y, int z,
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

// Nodes of a row that collide together.
constexpr std::ptrdiff_t kBlockNodes = 128;

// What the layer adds to the populations of a block: -sigma (sigma Q + 2 fEqTilde + cNQ), except for the
// equilibrium in 2 fEqTilde, which the collision subtracts itself (see relaxIn).
struct AbsorptionBlock {
    Pack sigma[kBlockNodes / kLanes];
    float added[27 * kBlockNodes];
};

// The damping of the nodes of a pack; 0 outside the layer.
DRELT_HOST_DEVICE Pack dampingAt(const FusedState& s, float depth, std::ptrdiff_t x) {
    const Pack inX = loadPack(s.depth + x);
    return layerDamping(static_cast<float>(s.width) - (inX < depth ? inX : splat(depth)),
                        s.sigmaScale);
}

// The packs of a run of nodes.
struct LayerRun {
    int packs;
    int left, right;       // the packs that hold the faces x = 0 and x = nx - 1, or -1
    PackMask first, last;  // the lanes of those packs that lie on the faces
    const Pack* sigma;
    Pack reference[kBlockNodes / kLanes];
};

// The factor of a difference of Q that gives cNQ on a face: only a direction that leaves the grid has a
// derivative, and that one is one-sided. endX is -1 on the face x = 0 and 1 on x = nx - 1.
template <class D>
DRELT_HOST_DEVICE float faceFactor(const LayerRow& row, int endX) {
    const bool leaves = row.leaves(D::y, D::z) || (D::x != 0 && D::x == endX);
    const bool opposite = row.leaves(-D::y, -D::z) || (D::x != 0 && D::x == -endX);
    constexpr float inverseLength = inverseDirectionLength(D::squaredLength);
    return leaves && !opposite ? inverseLength : 0.0f;
}

// Forms what the layer adds to the population of one direction, for all packs of a run, and goes on with the
// next direction.
template <int Code>
DRELT_HOST_DEVICE void absorptionAlong(const FusedState& s, const LayerRow& row,
                                       const LayerRun& run, std::ptrdiff_t x0, float* to) {
    using D = TowardCode<Code>;
    constexpr float inner = 0.5f * inverseDirectionLength(D::squaredLength);
    const std::ptrdiff_t start = Code * s.pitch + x0;
    const float* const own = row.q[4] + start;
    const float* const ahead = row.outer ? own : row.q[Code / 3] + start + D::x;
    const float* const behind = row.q[(26 - Code) / 3] + start - D::x;
    const Pack factor = splat(row.outer ? faceFactor<D>(row, 0) : inner);
    const Pack weight = splat(2.0f * D::weight);
    for (int i = 0; i < run.packs; ++i) {
        const std::ptrdiff_t x = i * kLanes;
        const Pack q = loadPack(own + x);
        const Pack back = loadPack(behind + x);
        Pack cNQ = factor * (loadPack(ahead + x) - back);
        if (i == run.left) cNQ = run.first ? faceFactor<D>(row, -1) * (q - back) : cNQ;
        if (i == run.right) cNQ = run.last ? faceFactor<D>(row, 1) * (q - back) : cNQ;
        const Pack rest = negMulAdd(run.sigma[i], q, weight * run.reference[i]);
        storePack(to + Code * kBlockNodes + x, run.sigma[i] * (rest - cNQ));
    }
    if constexpr (Code < 26) absorptionAlong<Code + 1>(s, row, run, x0, to);
}

// Forms what the layer adds to the nodes x0 <= x < x1 of a row. They begin at node `at` of the block.
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
    absorptionAlong<0>(s, row, run, x0, block.added + at);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
