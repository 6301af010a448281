// How the frame moves that the grid follows.
#pragma once

#include <Eigen/Geometry>

#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/mlsolver/OpenPlanes.h"

namespace drelt {

// The arguments of mlAddForcetoUOpt: scales from physical to lattice units, and the motion of the frame
// in SI units. The default is a frame at rest.
struct FrameMotion {
    float velocityScale = 1.0f;
    Eigen::Vector3d lengthScale = Eigen::Vector3d::Ones();
    Eigen::Vector3d linearAcceleration = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularVelocity = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularAcceleration = Eigen::Vector3d::Zero();
    FrameTransform inverse = FrameTransform::Identity();
    FarState far;  // at the end of the step; held by characteristic planes

    bool turns() const { return !angularVelocity.isZero(0) || !angularAcceleration.isZero(0); }
};

}  // namespace drelt
