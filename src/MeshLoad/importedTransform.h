// Rigid transforms from imported matrices, which have single precision and can contain scale.
#pragma once

#include <assimp/matrix4x4.h>

#include <Eigen/Geometry>

namespace drelt {

// Takes the rotation from the upper 3 x 3 block, scale included, through a single-precision quaternion, and
// the translation from the last column, divided by unitScaleFactor.
Eigen::Isometry3d importedTransform(const aiMatrix4x4& matrix, double unitScaleFactor);

// The same after dividing the block's columns by their lengths. A mirrored block gets a negative scale
// along x.
Eigen::Isometry3d importedTransformWithoutScale(const aiMatrix4x4& matrix, double unitScaleFactor);

}  // namespace drelt
