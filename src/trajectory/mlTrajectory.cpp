#include "trajectory/mlTrajectory.h"

#include <stdexcept>
#include <string>

#include "trajectory/UniformCubicBSpline.h"

namespace drelt {

template <class Scalar, int Dim>
void mlTrajectory<Scalar, Dim>::setPoints(const std::vector<PointData>& given) {
    points.clear();
    points.reserve(given.size());
    for (const PointData& point : given) points.push_back(point.data);
}

template <class Scalar, int Dim>
void mlTrajectory<Scalar, Dim>::fit() {
    spline_ = std::make_unique<UniformCubicBSpline<Point, float>>(points);
}

template <class Scalar, int Dim>
const Spline<Eigen::Matrix<Scalar, Dim, 1>, float>& mlTrajectory<Scalar, Dim>::curve() const {
    if (!spline_) {
        throw std::logic_error(
            "the trajectory has no curve yet; give it at least 4 control points with setPoints, "
            "then call fit");
    }
    const std::size_t count = spline_->getInputPoints().size();
    if (count < kMinPoints) {
        throw std::invalid_argument("the curve has been fitted to " + std::to_string(count) +
                                    " control points; it needs at least 4: give them with "
                                    "setPoints, then call fit again");
    }
    return *spline_;
}

template class mlTrajectory<double, 3>;

}  // namespace drelt
