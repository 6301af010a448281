// Rigid transforms out of imported matrices, which are single precision and may hold scale.
#pragma once

#include <assimp/matrix4x4.h>

#include <Eigen/Geometry>

namespace drelt {

// Rotation from the upper 3 x 3 block as it stands, by way of a single-precision quaternion;
// translation from the last column, divided by unitScaleFactor.
Eigen::Isometry3d importedTransform(const aiMatrix4x4& matrix, double unitScaleFactor);

// The same with the block's scale, the lengths of its columns, taken out first. A mirrored block
// gets a negative scale along x.
Eigen::Isometry3d importedTransformWithoutScale(const aiMatrix4x4& matrix, double unitScaleFactor);

}  // namespace drelt
