// Paths for the tests of curves and poses.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "support/message_of.h"
#include "trajectory/mlTrajectory.h"

namespace drelt::test {

using Vec3 = Eigen::Vector3d;

// Makes points from the rows of three numbers of a reference case.
inline std::vector<Vec3> toPoints(const std::vector<double>& flat) {
    std::vector<Vec3> points;
    for (std::size_t i = 0; i + 2 < flat.size(); i += 3) points.emplace_back(&flat[i]);
    return points;
}

inline void append(std::vector<double>& flat, const Vec3& point) {
    flat.insert(flat.end(), point.data(), point.data() + 3);
}

// Control point i of `count` is at point(i).
inline std::vector<Vec3> pointsAlong(int count, const std::function<Vec3(double)>& point) {
    std::vector<Vec3> points;
    for (int i = 0; i < count; ++i) points.push_back(point(i));
    return points;
}

inline void give(mlTrajectory<double, 3>& trajectory, const std::vector<Vec3>& points) {
    std::vector<mlTrajectoryPointData<double, 3>> data(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) data[i].data = points[i];
    trajectory.setPoints(data);
}

}  // namespace drelt::test
