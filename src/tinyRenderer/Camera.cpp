#include "tinyRenderer/Camera.h"

#include <Eigen/Geometry>
#include <cmath>

namespace drelt {

namespace {
constexpr float kPi = 3.1415927f;
constexpr float kRadians = 0.017453292f;  // in a degree
}  // namespace

void Camera::lookAt(const Eigen::Vector3f& eye, const Eigen::Vector3f& target,
                    const Eigen::Vector3f& upwards) {
    position = eye;
    worldUp = upwards;
    const Eigen::Vector3f along = target - eye;
    front = along / along.norm();
    pitch = std::asin(front.y()) * 180 / kPi;
    yaw = std::acos(front.x() / std::cos(pitch * kRadians)) * 180 / kPi;
    right = front.cross(worldUp);
    right /= right.norm();
    up = right.cross(front);
    up /= up.norm();
}

Eigen::Matrix4f Camera::view() const {
    const Eigen::Vector3f target = position + front;
    const Eigen::Vector3f forward = (target - position).normalized();
    const Eigen::Vector3f side = forward.cross(up).normalized();
    Eigen::Matrix4f view = Eigen::Matrix4f::Identity();
    view.block<1, 3>(0, 0) = side.transpose();
    view.block<1, 3>(1, 0) = side.cross(forward).transpose();
    view.block<1, 3>(2, 0) = -forward.transpose();
    view.block<3, 1>(0, 3) = -view.block<3, 3>(0, 0) * position;
    return view;
}

Eigen::Matrix4f Camera::perspective(float aspect, float near, float far) const {
    const float t = std::tan(zoom * kRadians / 2);
    Eigen::Matrix4f projection = Eigen::Matrix4f::Zero();
    projection(0, 0) = 1 / (aspect * t);
    projection(1, 1) = 1 / t;
    projection(2, 2) = -(far + near) / (far - near);
    projection(3, 2) = -1;
    projection(2, 3) = -2 * far * near / (far - near);
    return projection;
}

}  // namespace drelt
