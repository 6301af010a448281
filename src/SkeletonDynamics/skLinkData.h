// The record of one link that host and device share.
#pragma once

#include <Eigen/Geometry>

namespace drelt {

struct skLinkData {
    Eigen::Isometry3d transform;           // world transform of the link's frame [m]
    Eigen::Isometry3d inverse;             // its inverse
    Eigen::Matrix<double, 6, 1> velocity;  // spatial velocity: angular [rad/s], then linear [m/s],
                                           // link coordinates
    Eigen::Vector3d torque;  // fluid moment about the link's origin, link coordinates [N m]
    Eigen::Vector3d force;   // fluid force, link coordinates [N]
    double isWorld;          // 1 for the world frame, else 0
};

// The record is copied as one block, so host compilers and nvcc must agree on its layout.
static_assert(sizeof(skLinkData) == 368 && alignof(skLinkData) == 16);

}  // namespace drelt
