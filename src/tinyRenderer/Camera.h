// The camera: position, directions, and the matrices that follow from them.
#pragma once

#include <Eigen/Core>

namespace drelt {

// Lengths in metres, world axes.
struct Camera {
    Eigen::Vector3f position{0, 0, 3};
    Eigen::Vector3f front{-4.371139e-8f, 0, -1};  // unit, as are up and right
    Eigen::Vector3f up{0, 1, 0};
    Eigen::Vector3f right{1, 0, -4.371139e-8f};
    Eigen::Vector3f worldUp{0, 1, 0};
    float yaw = -90;  // [degrees]
    float pitch = 0;  // [degrees]
    float zoom = 45;  // vertical field of view [degrees]

    // Looks from eye to target with worldUp upwards. If the target is the eye, or lies straight above or
    // below it, the directions are NaN.
    void lookAt(const Eigen::Vector3f& eye, const Eigen::Vector3f& target,
                const Eigen::Vector3f& upwards);

    // World to eye: right-handed, looking along -z.
    Eigen::Matrix4f view() const;
    // Eye to clip space between a near and a far plane; aspect is width over height.
    Eigen::Matrix4f perspective(float aspect, float near, float far) const;
};

}  // namespace drelt
