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

// Compiled for double and 3. Order of use: setPoints, fit, then the curve. New points change the
// curve only at the next fit.
template <class Scalar, int Dim>
class mlTrajectory {
public:
    using Point = Eigen::Matrix<Scalar, Dim, 1>;
    using PointData = mlTrajectoryPointData<Scalar, Dim>;

    // A curve needs at least this number of control points.
    static constexpr int kMinPoints = 4;

    void setPoints(const std::vector<PointData>& given);
    // Fits a uniform cubic B-spline to the control points. It accepts fewer than four points, but
    // then the curve cannot be evaluated.
    void fit();

    // The fitted curve, valid until the next fit. Throws std::logic_error before fit, and
    // std::invalid_argument if the fit had fewer than four points.
    const Spline<Point, float>& curve() const;

    std::vector<Point> points;  // control points [m]

private:
    std::unique_ptr<const Spline<Point, float>> spline_;
};

extern template class mlTrajectory<double, 3>;

}  // namespace drelt
