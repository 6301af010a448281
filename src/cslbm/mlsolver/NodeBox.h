// A box of lattice nodes.
#pragma once

#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

// Nodes x0 <= x < x1 and so on.
struct NodeBox {
    int x0, y0, z0;
    int x1, y1, z1;

    DRELT_HOST_DEVICE bool empty() const { return x0 >= x1 || y0 >= y1 || z0 >= z1; }
};

// A node's index along each axis.
using NodeIndex = Vector3<int>;

DRELT_HOST_DEVICE NodeBox intersection(const NodeBox& a, const NodeBox& b) {
    return {a.x0 > b.x0 ? a.x0 : b.x0, a.y0 > b.y0 ? a.y0 : b.y0, a.z0 > b.z0 ? a.z0 : b.z0,
            a.x1 < b.x1 ? a.x1 : b.x1, a.y1 < b.y1 ? a.y1 : b.y1, a.z1 < b.z1 ? a.z1 : b.z1};
}

}  // namespace drelt
