// Where the six open planes lie, and which node gives its state to a node on them. w is pml_width: the
// planes lie w nodes inside the faces of the grid.
#pragma once

#include "platform/launch.h"

namespace drelt {

// Whether coordinate a of an axis of n nodes lies on or between the two open planes of the axis.
DRELT_HOST_DEVICE bool withinPlanes(int a, int n, int w) { return a >= w && a <= n - 1 - w; }

// The coordinate of the inner neighbour: a clamped to w + 1 .. n - 2 - w. In a box too thin for both
// bounds the upper bound wins.
DRELT_HOST_DEVICE int innerCoordinate(int a, int n, int w) {
    const int low = a > w + 1 ? a : w + 1;
    return low < n - 2 - w ? low : n - 2 - w;
}

}  // namespace drelt
