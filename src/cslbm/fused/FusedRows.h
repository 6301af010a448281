// Where the fields of a row stand, and how populations are reached through it.
#pragma once

#include <cstddef>

#include "cslbm/fused/FusedState.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// Row (y, z) in arrays of `fields` rows a node row.
DRELT_FUSED_INLINE std::ptrdiff_t rowStart(const FusedState& s, int y, int z, int fields) {
    return ((static_cast<std::ptrdiff_t>(s.ny) + 1) * z + y) * fields * s.pitch;
}

// Components of a positive code's direction.
constexpr int codeX(int code) { return code % 3 - 1; }
constexpr int codeY(int code) { return code / 3 % 3 - 1; }
constexpr int codeZ(int code) { return code / 9 - 1; }

// The places of the streamed populations of a row: that of node x in direction code at at[code][x].
// The post-collision population of a direction goes to the place of the opposite one.
struct Places {
    float* at[27];
};

DRELT_FUSED_INLINE void findPlaces(const FusedState& s, int y, int z, Places& p) {
    float* const own = s.populations + rowStart(s, y, z, 27);
    for (int code = 0; code < 27; ++code) p.at[code] = own + s.place[code];
}

// The two places of a pair in a row, by the code of its positive direction, as offsets.
struct PairPlaces {
    std::ptrdiff_t a, b;
    std::ptrdiff_t ahead;  // to the same places of the neighbour in that direction
};
DRELT_FUSED_INLINE PairPlaces pairPlaces(const FusedState& s, int code) {
    const int a = s.swapped != 0 ? code : code - 14;
    const int b = s.swapped != 0 ? code - 14 : code;
    return {a * s.pitch, b * s.pitch, rowStart(s, codeY(code), codeZ(code), 27) + codeX(code)};
}

// Fills the offsets of a state for its present roles of the places.
DRELT_FUSED_INLINE void findOffsets(FusedState& s) {
    s.place[13] = 13 * s.pitch;
    int ends = 0;
    for (int code = 14; code < 27; ++code) {
        const PairPlaces pair = pairPlaces(s, code);
        s.place[code] = pair.a;
        s.place[26 - code] = pair.b + pair.ahead;
        const int ex = codeX(code);
        if (ex == 0) continue;
        const int first = ex > 0 ? 0 : s.nx - 1;  // has no source
        const int last = s.nx - 1 - first;        // its neighbour ahead is no node
        s.keepFrom[ends] = pair.a + first;
        s.keepTo[ends++] = pair.b + first;
        s.keepFrom[ends] = pair.b + pair.ahead + last;
        s.keepTo[ends++] = pair.a + pair.ahead + last;
    }
}

// Density and velocity rows.
struct MomentRows {
    float* rho;
    float* ux;
    float* uy;
    float* uz;
};

DRELT_FUSED_INLINE MomentRows momentRows(const FusedState& s, float* moments, int y, int z) {
    float* const first = moments + rowStart(s, y, z, 4);
    return {first, first + s.pitch, first + 2 * s.pitch, first + 3 * s.pitch};
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
