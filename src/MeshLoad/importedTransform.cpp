#include "MeshLoad/importedTransform.h"

#include <cmath>

namespace drelt {

namespace {

Eigen::Matrix3f upperBlock(const aiMatrix4x4& m) {
    Eigen::Matrix3f block;
    block << m.a1, m.a2, m.a3, m.b1, m.b2, m.b3, m.c1, m.c2, m.c3;
    return block;
}

// The quaternion of a rotation matrix, from the trace if it is positive, else from the largest diagonal
// element (Shoemake, Animating rotation with quaternion curves, 1985).
Eigen::Quaternionf quaternionOf(const Eigen::Matrix3f& m) {
    const float trace = m(0, 0) + m(1, 1) + m(2, 2);
    if (trace > 0.0f) {
        const float s = std::sqrt(trace + 1.0f) * 2.0f;
        return {0.25f * s, (m(2, 1) - m(1, 2)) / s, (m(0, 2) - m(2, 0)) / s,
                (m(1, 0) - m(0, 1)) / s};
    }
    if (m(0, 0) > m(1, 1) && m(0, 0) > m(2, 2)) {
        const float s = std::sqrt(1.0f + m(0, 0) - m(1, 1) - m(2, 2)) * 2.0f;
        return {(m(2, 1) - m(1, 2)) / s, 0.25f * s, (m(1, 0) + m(0, 1)) / s,
                (m(0, 2) + m(2, 0)) / s};
    }
    if (m(1, 1) > m(2, 2)) {
        const float s = std::sqrt(1.0f + m(1, 1) - m(0, 0) - m(2, 2)) * 2.0f;
        return {(m(0, 2) - m(2, 0)) / s, (m(1, 0) + m(0, 1)) / s, 0.25f * s,
                (m(2, 1) + m(1, 2)) / s};
    }
    const float s = std::sqrt(1.0f + m(2, 2) - m(0, 0) - m(1, 1)) * 2.0f;
    return {(m(1, 0) - m(0, 1)) / s, (m(0, 2) + m(2, 0)) / s, (m(2, 1) + m(1, 2)) / s, 0.25f * s};
}

Eigen::Isometry3d compose(const Eigen::Matrix3f& block, const aiMatrix4x4& matrix,
                          double unitScaleFactor) {
    Eigen::Isometry3d transform = Eigen::Isometry3d::Identity();
    transform.linear() = quaternionOf(block).cast<double>().toRotationMatrix();
    transform.translation() = Eigen::Vector3d(matrix.a4, matrix.b4, matrix.c4) / unitScaleFactor;
    return transform;
}

}  // namespace

Eigen::Isometry3d importedTransform(const aiMatrix4x4& matrix, double unitScaleFactor) {
    return compose(upperBlock(matrix), matrix, unitScaleFactor);
}

Eigen::Isometry3d importedTransformWithoutScale(const aiMatrix4x4& matrix, double unitScaleFactor) {
    Eigen::Matrix3f block = upperBlock(matrix);
    Eigen::Vector3f scale = block.colwise().norm();
    if (block.determinant() < 0.0f) scale.x() = -scale.x();
    for (int axis = 0; axis < 3; ++axis) {
        if (scale[axis] != 0.0f) block.col(axis) /= scale[axis];
    }
    return compose(block, matrix, unitScaleFactor);
}

}  // namespace drelt
