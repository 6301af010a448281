// Discrete delta functions of the immersed boundary method, one axis.
#pragma once

#include <cmath>

#include "platform/launch.h"

namespace drelt {

inline constexpr int kDeltaPoints = 4;  // of the delta function that a step uses

// The weight of a node at the separation r (lattice units) under the R-point delta function. R = 2 is the
// linear hat, R = 3 the kernel of Roma, Peskin and Berger (J. Comput. Phys. 153, 1999), R = 4 that of Peskin
// (Acta Numerica 11, 2002). Any other R gives 0.
DRELT_HOST_DEVICE float mlDelta(float r, int R) {
    const float a = std::fabs(r);
    if (R == 4) {
        if (a <= 1.0f) return (3.0f - 2.0f * a + std::sqrt(1.0f + 4.0f * a - 4.0f * r * r)) / 8.0f;
        if (a <= 2.0f) return (5.0f - 2.0f * a - std::sqrt(12.0f * a - 7.0f - 4.0f * r * r)) / 8.0f;
    } else if (R == 3) {
        if (a <= 0.5f) return (1.0f + std::sqrt(1.0f - 3.0f * r * r)) / 3.0f;
        if (a <= 1.5f) return (5.0f - 3.0f * a - std::sqrt(6.0f * a - 2.0f - 3.0f * r * r)) / 6.0f;
    } else if (R == 2) {
        if (a <= 1.0f) return 1.0f - a;
    }
    return 0.0f;
}

// The largest number of nodes searched along an axis: 2 R + 5, when spreading with R = 4.
inline constexpr int kDeltaNodes = 13;

// The weights of one axis, for the nodes first .. first + count - 1. The first and the last one are not 0.
struct DeltaWeights {
    int first;
    int count;
    float weight[kDeltaNodes];
};

// Fills the weights of the nodes from .. to - 1. separation(i) is the separation of node i.
template <class Separation>
DRELT_HOST_DEVICE void mlDeltaWeights(DeltaWeights& axis, int from, int to, int R,
                                      Separation&& separation) {
    axis.first = from;
    axis.count = 0;
    for (int i = from; i < to; ++i) {
        const float weight = mlDelta(separation(i), R);
        if (weight != 0.0f) {
            if (axis.count == 0) axis.first = i;
            axis.count = i - axis.first + 1;
        } else if (axis.count == 0) {
            continue;
        }
        axis.weight[i - axis.first] = weight;
    }
}

}  // namespace drelt
