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
    p.at[13] = own + 13 * static_cast<std::ptrdiff_t>(s.pitch);
    const int a = s.swapped ? 0 : 14;
    const int b = s.swapped ? 14 : 0;
    for (int code = 14; code < 27; ++code) {
        const std::ptrdiff_t ahead = rowStart(s, codeY(code), codeZ(code), 27) + codeX(code);
        p.at[code] = own + static_cast<std::ptrdiff_t>(code - a) * s.pitch;
        p.at[26 - code] = own + ahead + static_cast<std::ptrdiff_t>(code - b) * s.pitch;
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
