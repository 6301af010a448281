// Open planes by characteristics: sound leaves through them, and they hold a far state.
//
// On a plane with outward normal n and sound speed c_s, small disturbances travel as two waves
// (Thompson, J. Comput. Phys. 68 (1987) 1; for the lattice Boltzmann method Izquierdo and Fueyo,
// Phys. Rev. E 78 (2008) 046707):
//
//   outward   w_out = u . n + c_s (rho - 1)     taken from the fluid inside
//   inward    w_in  = u . n - c_s (rho - 1)     taken from the far state
//
// They give the plane's density and normal velocity; the tangential velocity is that of the inner
// neighbour. The populations are those of the inner neighbour with the equilibrium exchanged (Guo, Zheng
// and Shi, Chin. Phys. 11 (2002) 366). Lattice units. V is one float or a pack.
#pragma once

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"
#include "cslbm/mlsolver/OpenPlanes.h"
#include "platform/vector3.h"

namespace drelt {

// Density and velocity.
template <class V>
struct PlaneFluid {
    V rho;
    Vector3<V> u;
};

// A plane's outward normal: the axis (0 x, 1 y, 2 z) and the sign along it.
struct PlaneNormal {
    int axis;
    int outward;
};

// The plane that a node lies on, for a node between the planes that is not an inner node. Where planes meet,
// z goes before x, and x before y: the copied planes are written in this order.
DRELT_HOST_DEVICE PlaneNormal planeNormal(int x, int y, int z, int nx, int nz, int w) {
    if (z == w || z == nz - 1 - w) return {2, z == w ? -1 : 1};
    if (x == w || x == nx - 1 - w) return {0, x == w ? -1 : 1};
    return {1, y == w ? -1 : 1};
}

template <class V>
DRELT_HOST_DEVICE V alongAxis(const Vector3<V>& v, int axis) {
    return axis == 0 ? v.x : (axis == 1 ? v.y : v.z);
}

// The outward wave of a node's fluid. The sign of the outward normal is one float, or a pack for lanes on
// opposite planes.
template <class V, class Sign>
DRELT_HOST_DEVICE V outwardWave(const PlaneFluid<V>& fluid, int axis, const Sign& sign) {
    return sign * alongAxis(fluid.u, axis) + kSoundSpeed * (fluid.rho - 1.0f);
}

// The fluid on a plane across `axis`, from the inner neighbour and the node behind it.
template <class V, class Sign>
DRELT_HOST_DEVICE PlaneFluid<V> fluidOnPlane(const OpenPlanes& planes, int axis, const Sign& sign,
                                             const PlaneFluid<V>& first,
                                             const PlaneFluid<V>& second) {
    V leaving = outwardWave(first, axis, sign);
    if (planes.kind == OpenPlaneKind::Characteristic) {
        leaving = 2.0f * leaving - outwardWave(second, axis, sign);
    }
    const Sign entering =
        sign * alongAxis(planes.far.u, axis) - kSoundSpeed * (planes.far.rho - 1.0f);
    PlaneFluid<V> plane = first;
    plane.rho = 1.0f + (leaving - entering) * (0.5f / kSoundSpeed);
    const V velocity = (0.5f * sign) * (leaving + entering);
    if (axis == 0) plane.u.x = velocity;
    if (axis == 1) plane.u.y = velocity;
    if (axis == 2) plane.u.z = velocity;
    return plane;
}
template <class V>
DRELT_HOST_DEVICE PlaneFluid<V> fluidOnPlane(const OpenPlanes& planes, PlaneNormal normal,
                                             const PlaneFluid<V>& first,
                                             const PlaneFluid<V>& second) {
    return fluidOnPlane(planes, normal.axis, static_cast<float>(normal.outward), first, second);
}

}  // namespace drelt
