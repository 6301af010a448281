// Rigid transforms from imported matrices, which have single precision and can contain scale.
#pragma once

#include <assimp/matrix4x4.h>

#include <Eigen/Geometry>

namespace drelt {

// Turns the upper 3 x 3 block, with any scale that it contains, into a quaternion in single precision; this
// gives the rotation. Takes the translation from the last column, divided by unitScaleFactor.
Eigen::Isometry3d importedTransform(const aiMatrix4x4& matrix, double unitScaleFactor);

// The same after dividing the block's columns by their lengths. A mirrored block gets a negative scale
// along x.
Eigen::Isometry3d importedTransformWithoutScale(const aiMatrix4x4& matrix, double unitScaleFactor);

}  // namespace drelt
