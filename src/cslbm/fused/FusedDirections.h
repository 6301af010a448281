// The codes of directions in the production schedule. A code counts x fastest from (-1, -1, -1): 13 is the
// rest direction, 26 - code is the opposite, and codes from 14 on are the positive directions.
//
// Sources define DRELT_FUSED_ISA as a namespace of their own: functions compiled for one instruction set
// must never be shared with another.
#pragma once

#include "cslbm/mlsolver/mlLattice.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

constexpr int codeOf(int x, int y, int z) { return (x + 1) + 3 * (y + 1) + 9 * (z + 1); }
constexpr int codeX(int code) { return code % 3 - 1; }
constexpr int codeY(int code) { return code / 3 % 3 - 1; }
constexpr int codeZ(int code) { return code / 9 - 1; }

// The code of direction i of the operators. For host code.
inline int codeOfDirection(int i) {
    return codeOf(static_cast<int>(ex_cas1[i]), static_cast<int>(ey_cas1[i]),
                  static_cast<int>(ez_cas1[i]));
}

// The weights by the squared length of a direction.
constexpr float kWeights[4] = {w_cas1[0], w_cas1[1], w_cas1[7], w_cas1[19]};

// Direction (X, Y, Z) as a type.
template <int X, int Y, int Z>
struct Toward {
    static constexpr int x = X, y = Y, z = Z;
    static constexpr int code = codeOf(X, Y, Z);
    static constexpr int opposite = 26 - code;
    static constexpr int squaredLength = X * X + Y * Y + Z * Z;
    static constexpr float weight = kWeights[squaredLength];
};
// The same by code, and for a direction of the operators.
template <int Code>
using TowardCode = Toward<codeX(Code), codeY(Code), codeZ(Code)>;
template <class Direction>
using TowardOf = Toward<Direction::x, Direction::y, Direction::z>;

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
