// The force as a source of populations, for the collisions without a source of moments.
#pragma once

#include "cslbm/gpu_inc/gpu/mlCollideNode.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// The dot product e . v of direction D with a vector.
template <class D>
DRELT_HOST_DEVICE double along(D, const double (&v)[3]) {
    double sum = 0.0;
    if constexpr (D::x != 0) sum += D::x * v[0];
    if constexpr (D::y != 0) sum += D::y * v[1];
    if constexpr (D::z != 0) sum += D::z * v[2];
    return sum;
}

}  // namespace detail

// G_i = (1 - s0/2) w_i (3 (e_i - u).F + 9 (e_i.u)(e_i.F)), where s0 is the rate that belongs to the lattice
// viscosity without eddy viscosity (Guo, Zheng, Shi, Phys. Rev. E 65 (2002) 046308, eq. 20). Computed in
// double precision and rounded once.
struct PopulationSource {
    double force[3];
    double u[3];
    double scale;     // 1 - s0/2
    double forceByU;  // F . u

    template <class D>
    DRELT_HOST_DEVICE float addedTo(D d, float f) const {
        const double alongForce = detail::along(d, force);
        const double bracket =
            3.0 * (alongForce - forceByU) + 9.0 * detail::along(d, u) * alongForce;
        return f + static_cast<float>(scale * D::weight * bracket);
    }
};

// The source of a node. `gravity` is a body acceleration along y, in addition to the force arrays.
DRELT_HOST_DEVICE PopulationSource populationSource(const mlFlow* flow, const LaunchIndex& at,
                                                    const NodeState& node, float gravity) {
    const double fx = static_cast<float>(flow->forcex[at.n]);
    const double fy = static_cast<float>(node.rho * gravity + flow->forcey[at.n]);
    const double fz = static_cast<float>(flow->forcez[at.n]);
    const double ux = node.u[0], uy = node.u[1], uz = node.u[2];
    const double rate = 1.0 / (3.0 * flow->v0k + 0.5);
    return {{fx, fy, fz}, {ux, uy, uz}, 1.0 - rate * 0.5, fx * ux + fy * uy + fz * uz};
}

}  // namespace drelt
