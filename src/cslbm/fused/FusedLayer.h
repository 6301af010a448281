// Absorbing layer of the fused step; see PMLOperation.h for the scheme. Nothing of it is stored: the
// deviation of the last step comes again from that step's density and velocity, and Q, its mean over
// both steps, lives in a ring of rows about the row that is collided.
#pragma once

#include "cslbm/fused/FusedMoments.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// Rows of Q of a tile: three planes of the tile's rows and one more on each side. A row holds the 27
// directions by code, `pitch` floats each.
struct DeviationRing {
    float* first;
    int y0;      // the tile's first row
    int height;  // rows of a plane of the ring

    DRELT_FUSED_INLINE float* row(const FusedState& s, int y, int z) const {
        return first + static_cast<std::ptrdiff_t>(z % 3 * height + (y - y0 + 1)) * 27 * s.pitch;
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
    constexpr int squaredLength = codeX(Code) * codeX(Code) + codeY(Code) * codeY(Code) +
                                  codeZ(Code) * codeZ(Code);
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

// The rows of Q about a row; those outside the grid stand for its own, and are never used.
struct DeviationRows {
    const float* at[9];  // (ey + 1) + 3 (ez + 1)
    std::ptrdiff_t pitch;

    template <class D>
    DRELT_FUSED_INLINE Pack own(D, std::ptrdiff_t x) const {
        return loadPack(at[4] + D::code * pitch + x);
    }
    template <class D>
    DRELT_FUSED_INLINE Pack ahead(D, std::ptrdiff_t x) const {
        return loadPack(at[D::code / 3] + D::code * pitch + x + D::x);
    }
    template <class D>
    DRELT_FUSED_INLINE Pack behind(D, std::ptrdiff_t x) const {
        return loadPack(at[D::opposite / 3] + D::code * pitch + x - D::x);
    }
};

DRELT_FUSED_INLINE void findDeviations(const FusedState& s, const DeviationRing& ring, int y, int z,
                                       DeviationRows& rows) {
    for (int i = 0; i < 9; ++i) {
        const int j = y + i % 3 - 1;
        const int k = z + i / 3 - 1;
        const bool inside = j >= 0 && j < s.ny && k >= 0 && k < s.nz;
        rows.at[i] = inside ? ring.row(s, j, k) : ring.row(s, y, z);
    }
    rows.pitch = s.pitch;
}

// What the layer takes from the nodes of a pack: sigma (sigma Q + 2 fEqTilde + cNQ). The equilibrium's
// part of fEqTilde goes through the collision (see below), so 2 sigma times the reference is given back.
struct Absorption {
    Pack square;        // sigma^2
    Pack along[4];      // sigma / (2 |e|) by squared length
    Pack reference[4];  // 2 sigma times the reference equilibrium
    Pack sigma;

    DRELT_FUSED_INLINE Pack of(int squaredLength, const Pack& value, const Pack& q,
                               const Pack& difference) const {
        return negMulAdd(along[squaredLength], difference,
                         negMulAdd(square, q, value + reference[squaredLength]));
    }
};

DRELT_FUSED_INLINE Absorption absorptionAt(const FusedState& s, int depth, std::ptrdiff_t x,
                                           std::ptrdiff_t row) {
    const auto w = static_cast<float>(s.width);
    const Pack inX = loadPack(s.depth + x);
    const Pack least = inX < static_cast<float>(depth) ? inX : splat(static_cast<float>(depth));
    const Pack inside = w - least;
    const Pack d = inside > 0.0f ? inside : Pack{};
    const Pack sigma = d * (s.sigmaScale * d);
    const Pack twice = 2.0f * sigma * referenceAt(s, row + x);
    const Pack half = 0.5f * sigma;
    Absorption a;
    a.sigma = sigma;
    a.square = sigma * sigma;
    a.along[0] = Pack{};
    a.along[1] = half;
    a.along[2] = half * (1.0f / 1.4142135f);
    a.along[3] = half * (1.0f / 1.7320508f);
    for (int i = 0; i < 4; ++i) a.reference[i] = kWeights[i] * twice;
    return a;
}

// Stores of packs whose nodes all have their neighbours.
struct StoreAbsorbed {
    const Places& places;
    std::ptrdiff_t x;
    const Absorption& absorption;
    const DeviationRows& q;
    template <class D>
    DRELT_FUSED_INLINE void operator()(D d, const Pack& value) const {
        storePack(places.at[D::opposite] + x,
                  absorption.of(D::squaredLength, value, q.own(d, x), q.ahead(d, x) - q.behind(d, x)));
    }
};

// Which nodes of a pack lie on the grid's faces.
struct Faces {
    bool outerRow;        // all of the row
    bool down, up, forward, back;  // no row beyond along -y, y, -z, z
    PackMask left, right;  // x = 0, x = nx - 1

    // Nodes whose neighbour toward (x, y, z) lies outside.
    template <int X, int Y, int Z>
    DRELT_FUSED_INLINE PackMask outside() const {
        const bool row = (Y < 0 && down) || (Y > 0 && up) || (Z < 0 && forward) || (Z > 0 && back);
        const PackMask all = PackMask{} - (row ? 1 : 0);
        if constexpr (X < 0) return all | left;
        if constexpr (X > 0) return all | right;
        return all;
    }
};

DRELT_FUSED_INLINE Faces facesAt(const FusedState& s, int y, int z, int x) {
    Faces faces;
    faces.down = y == 0;
    faces.up = y == s.ny - 1;
    faces.forward = z == 0;
    faces.back = z == s.nz - 1;
    faces.outerRow = faces.down || faces.up || faces.forward || faces.back;
    PackMask lane;
    for (int i = 0; i < kLanes; ++i) lane[i] = x + i;
    faces.left = lane == 0;
    faces.right = lane == s.nx - 1;
    return faces;
}

// Stores of packs with nodes on the faces, where only directions that leave the grid have a derivative,
// and that one is one-sided.
struct StoreAbsorbedAtFaces {
    const Places& places;
    std::ptrdiff_t x;
    int lanes;
    const Absorption& absorption;
    const DeviationRows& q;
    const Faces& faces;
    template <int X, int Y, int Z>
    DRELT_FUSED_INLINE void operator()(Toward<X, Y, Z> d, const Pack& value) const {
        using D = Toward<X, Y, Z>;
        const Pack own = q.own(d, x);
        const Pack behind = q.behind(d, x);
        const PackMask outer = faces.left | faces.right | (PackMask{} - (faces.outerRow ? 1 : 0));
        const PackMask leaves = faces.outside<X, Y, Z>();
        const PackMask alone = faces.outside<-X, -Y, -Z>();
        const Pack oneSided = (leaves & ~alone) ? 2.0f * (own - behind) : Pack{};
        const Pack difference = outer ? oneSided : q.ahead(d, x) - behind;
        storeLanes(places.at[D::opposite] + x,
                   absorption.of(D::squaredLength, value, own, difference), lanes);
    }
};

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
