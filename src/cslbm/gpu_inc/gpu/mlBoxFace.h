// The six faces of the box as types, so that an operator on a face is written once.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

// The outermost plane of nodes along an axis (0 x, 1 y, 2 z), at its low or its high end.
template <int Axis, bool High>
struct BoxFace {
    static constexpr int axis = Axis;
    static constexpr int inward = High ? -1 : 1;  // sign of the inward normal along the axis

    // Whether direction D leaves the box through the face, runs along the face, or enters the box.
    template <class D>
    static constexpr int component = inward*(Axis == 0 ? D::x : (Axis == 1 ? D::y : D::z));
    template <class D>
    static constexpr bool leaves = component<D> == -1;
    template <class D>
    static constexpr bool along = component<D> == 0;
    template <class D>
    static constexpr bool enters = component<D> == 1;

    // The node that belongs to an index of launchPlane over this face.
    DRELT_HOST_DEVICE static std::int64_t node(const LaunchIndex& at, int nx, int ny, int nz) {
        const int x = Axis == 0 ? (High ? nx - 1 : 0) : at.x;
        const int y = Axis == 1 ? (High ? ny - 1 : 0) : at.y;
        const int z = Axis == 2 ? (High ? nz - 1 : 0) : at.z;
        return x + nx * (y + static_cast<std::int64_t>(ny) * z);
    }
};

using LeftFace = BoxFace<0, false>;
using RightFace = BoxFace<0, true>;
using DownFace = BoxFace<1, false>;
using UpFace = BoxFace<1, true>;
using ForwardFace = BoxFace<2, false>;
using BackFace = BoxFace<2, true>;

// Launches Op(at, flow, nx, ny, nz, count, args...) over a plane across the axis, in blocks of 8 x 8. The caller
// checks for errors.
template <auto Op, int Axis, class... Args>
void launchPlane(mlFlow* flow, const MLFluidParam* param, Args... args) {
    LaunchExtent plane{param->samples_x, param->samples_y, param->samples_z};
    const LaunchExtent nodes = plane;
    (Axis == 0 ? plane.x : (Axis == 1 ? plane.y : plane.z)) = 1;
    launchRange<Op>(coveringShape(plane, Axis == 0 ? 1 : 8, Axis == 1 ? 1 : 8, Axis == 2 ? 1 : 8),
                    plane, flow, nodes.x, nodes.y, nodes.z, nodes.x * nodes.y * nodes.z, args...);
}

}  // namespace drelt
