// A path in space: control points and the curve that is fitted to them.
#pragma once

#include <Eigen/Core>
#include <memory>
#include <vector>

#include "trajectory/Spline.h"

namespace drelt {

// One point of a trajectory.
template <class Scalar, int Dim>
struct mlTrajectoryPointData {
    Eigen::Matrix<Scalar, Dim, 1> data = Eigen::Matrix<Scalar, Dim, 1>::Zero();  // [m]
};

// Compiled for double and 3. Order of use: setPoints, fit, then the curve; new points change the
// curve only at the next fit.
template <class Scalar, int Dim>
class mlTrajectory {
public:
    using Point = Eigen::Matrix<Scalar, Dim, 1>;
    using PointData = mlTrajectoryPointData<Scalar, Dim>;

    // Control points of a curve at the least.
    static constexpr int kMinPoints = 4;

    void setPoints(const std::vector<PointData>& points);
    // Lays a uniform cubic B-spline along the control points. Fewer than four are accepted, but leave
    // a curve that cannot be evaluated.
    void fit();

    const std::vector<Point>& points() const { return points_; }
    // The fitted curve; the next fit ends its life. Raises std::logic_error before fit and
    // std::invalid_argument where it has been fitted to fewer than four points.
    const Spline<Point, float>& curve() const;

private:
    std::vector<Point> points_;
    std::unique_ptr<const Spline<Point, float>> spline_;
};

extern template class mlTrajectory<double, 3>;

}  // namespace drelt
