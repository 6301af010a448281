// The uniform cubic B-spline: four consecutive control points make one segment.
//
// The curve follows its control polygon but does not pass through the points. The end points are not
// repeated, so n points give n - 3 segments and the parameter range maxT = n - 3. See L. Piegl and
// W. Tiller, The NURBS Book, 2nd ed., Springer 1997, chapter 2.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "trajectory/Spline.h"

namespace drelt {

// Chooses the segment and evaluates the curve on it. Weights have the type Real; their products with
// the points have the scalar type of the points. All but segmentCount need at least four points.
template <class Point, class Real>
class UniformCubicBSplineCommon {
public:
    explicit UniformCubicBSplineCommon(std::vector<Point> controlPoints);

    int segmentCount() const { return static_cast<int>(points_.size()) - 3; }
    // The segment that holds T. Below the range it is the first one, above the range the last one.
    int segmentForT(Real T) const;

    Point getPosition(Real T) const;
    SplineTangent<Point> getTangent(Real T) const;
    SplineCurvature<Point> getCurvature(Real T) const;
    SplineWiggle<Point> getWiggle(Real T) const;

    // Length of a segment between two of its local parameters (0 to 1), by quadrature in Real.
    Real segmentLength(int segment, Real a, Real b) const;

private:
    // The four control points of a segment and the local parameter.
    struct Local {
        const Point* p;
        Real t;
    };
    Local at(Real T) const;

    static Point position(const Local& at);
    static Point firstDerivative(const Local& at);
    static Point secondDerivative(const Local& at);
    static Point thirdDerivative(const Local& at);

    std::vector<Point> points_;
};

// A spline whose evaluation is done by an object of type Common.
template <template <class, class> class Common, class Point, class Real>
class SplineImpl : public Spline<Point, Real> {
public:
    Point getPosition(Real T) const override { return common_.getPosition(T); }
    SplineTangent<Point> getTangent(Real T) const override { return common_.getTangent(T); }
    SplineCurvature<Point> getCurvature(Real T) const override { return common_.getCurvature(T); }
    SplineWiggle<Point> getWiggle(Real T) const override { return common_.getWiggle(T); }

    Real arcLength(Real a, Real b) const override;
    Real totalLength() const override;
    bool isLooping() const override { return false; }

    int segmentCount() const override { return common_.segmentCount(); }
    int segmentForT(Real T) const override { return common_.segmentForT(T); }
    Real segmentT(int segment) const override { return static_cast<Real>(segment); }
    Real segmentArcLength(int segment, Real a, Real b) const override {
        return common_.segmentLength(segment, a - segmentT(segment), b - segmentT(segment));
    }

protected:
    SplineImpl(Real maxT, const std::vector<Point>& points)
        : Spline<Point, Real>(maxT, points), common_(points) {}

private:
    Common<Point, Real> common_;
};

// Compiled for Eigen::Vector3d and float. It can be made from any number of points. With fewer than
// four it has no segment and the length 0, and must not be evaluated.
template <class Point, class Real>
class UniformCubicBSpline final : public SplineImpl<UniformCubicBSplineCommon, Point, Real> {
public:
    explicit UniformCubicBSpline(const std::vector<Point>& points);
};

extern template class UniformCubicBSplineCommon<Eigen::Vector3d, float>;
extern template class SplineImpl<UniformCubicBSplineCommon, Eigen::Vector3d, float>;
extern template class UniformCubicBSpline<Eigen::Vector3d, float>;

}  // namespace drelt
