// Where a row's fields stand in memory. FusedState.h draws the places of populations.
#pragma once

#include <cstddef>

#include "cslbm/fused/FusedDirections.h"
#include "cslbm/fused/FusedState.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// The start of row (y, z) in an array of `fields` fields.
DRELT_HOST_DEVICE std::ptrdiff_t rowStart(const FusedState& s, int y, int z, int fields) {
    return ((static_cast<std::ptrdiff_t>(s.ny) + 1) * z + y) * fields * s.pitch;
}

// The places of a row's streamed populations: node x finds direction `code` in at[code][x]. It stores the
// post-collision population of that direction in the place of the opposite one.
struct Places {
    float* at[27];
};

DRELT_HOST_DEVICE void findPlaces(const FusedState& s, int y, int z, Places& p) {
    float* const own = s.populations + rowStart(s, y, z, 27);
    for (int code = 0; code < 27; ++code) p.at[code] = own + s.place[code];
}

// The places A and B of a pair in a row, as offsets. `code` is that of the positive direction.
struct PairPlaces {
    std::ptrdiff_t a, b;
    std::ptrdiff_t ahead;  // from a node to its neighbour in the positive direction
};
DRELT_HOST_DEVICE PairPlaces pairPlaces(const FusedState& s, int code) {
    const int a = s.swapped != 0 ? code : code - 14;
    const int b = s.swapped != 0 ? code - 14 : code;
    return {a * s.pitch, b * s.pitch, rowStart(s, codeY(code), codeZ(code), 27) + codeX(code)};
}

// Fills the offsets of a state for the current roles of A and B.
DRELT_HOST_DEVICE void findOffsets(FusedState& s) {
    s.place[13] = 13 * s.pitch;
    int ends = 0;
    for (int code = 14; code < 27; ++code) {
        const PairPlaces pair = pairPlaces(s, code);
        s.place[code] = pair.a;
        s.place[26 - code] = pair.b + pair.ahead;
        const int ex = codeX(code);
        if (ex == 0) continue;
        const int first = ex > 0 ? 0 : s.nx - 1;  // the positive population has no source here
        const int last = s.nx - 1 - first;        // and the negative one has none here
        s.keepFrom[ends] = pair.a + first;
        s.keepTo[ends++] = pair.b + first;
        s.keepFrom[ends] = pair.b + pair.ahead + last;
        s.keepTo[ends++] = pair.a + pair.ahead + last;
    }
}

// A row of density and velocity.
struct MomentRows {
    float* rho;
    float* ux;
    float* uy;
    float* uz;
};

DRELT_HOST_DEVICE MomentRows momentRows(const FusedState& s, float* moments, int y, int z) {
    float* const first = moments + rowStart(s, y, z, 4);
    return {first, first + s.pitch, first + 2 * s.pitch, first + 3 * s.pitch};
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
