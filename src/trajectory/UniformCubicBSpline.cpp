#include "trajectory/UniformCubicBSpline.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace drelt {
namespace {

// One point of the Gauss-Legendre rule with 13 points on -1 .. 1. The rule is exact for polynomials
// up to degree 25 (M. Abramowitz, I. Stegun, Handbook of Mathematical Functions, 25.4.29).
struct GaussPoint {
    float node;
    float weight;
};

constexpr GaussPoint kGaussLegendre13[] = {
    {0.0F, 0.2325515532308739F},
    {0.2304583159551348F, 0.2262831802628972F},
    {-0.2304583159551348F, 0.2262831802628972F},
    {0.4484927510364469F, 0.2078160475368885F},
    {-0.4484927510364469F, 0.2078160475368885F},
    {0.6423493394403402F, 0.1781459807619457F},
    {-0.6423493394403402F, 0.1781459807619457F},
    {0.8015780907333099F, 0.1388735102197872F},
    {-0.8015780907333099F, 0.1388735102197872F},
    {0.9175983992229779F, 0.0921214998377285F},
    {-0.9175983992229779F, 0.0921214998377285F},
    {0.9841830547185881F, 0.0404840047653159F},
    {-0.9841830547185881F, 0.0404840047653159F},
};

}  // namespace

template <class Point, class Real>
UniformCubicBSplineCommon<Point, Real>::UniformCubicBSplineCommon(std::vector<Point> controlPoints)
    : points_(std::move(controlPoints)) {}

template <class Point, class Real>
int UniformCubicBSplineCommon<Point, Real>::segmentForT(Real T) const {
    assert(points_.size() >= 4);
    const int last = segmentCount() - 1;
    if (!(T >= Real(0))) return 0;
    // Compare before truncating: a large T does not fit into an int.
    return T >= static_cast<Real>(last) ? last : static_cast<int>(T);
}

template <class Point, class Real>
auto UniformCubicBSplineCommon<Point, Real>::at(Real T) const -> Local {
    const int segment = segmentForT(T);
    return {&points_[segment], T - static_cast<Real>(segment)};
}

template <class Point, class Real>
Point UniformCubicBSplineCommon<Point, Real>::position(const Local& at) {
    const auto& [p, t] = at;
    const Real r = 1 - t;
    const double a = r * r * r;
    const double b = 3 * t * t * (t - 2) + 4;
    const double c = ((-3 * t + 3) * t + 3) * t + 1;
    const double d = t * t * t;
    return (a * p[0] + b * p[1] + c * p[2] + d * p[3]) / 6.0;
}

template <class Point, class Real>
Point UniformCubicBSplineCommon<Point, Real>::firstDerivative(const Local& at) {
    const auto& [p, t] = at;
    const double a = -(1 - t) * (1 - t);
    const double b = t * (3 * t - 4);
    const double c = (1 + 3 * t) * (1 - t);
    const double d = t * t;
    return (a * p[0] + b * p[1] + c * p[2] + d * p[3]) * 0.5;
}

template <class Point, class Real>
Point UniformCubicBSplineCommon<Point, Real>::secondDerivative(const Local& at) {
    const auto& [p, t] = at;
    const double a = 1 - t;
    const double b = 3 * t - 2;
    const double c = 1 - 3 * t;
    const double d = t;
    return a * p[0] + b * p[1] + c * p[2] + d * p[3];
}

template <class Point, class Real>
Point UniformCubicBSplineCommon<Point, Real>::thirdDerivative(const Local& at) {
    const Point* const p = at.p;
    return 3.0 * (p[1] - p[2]) + (p[3] - p[0]);
}

template <class Point, class Real>
Point UniformCubicBSplineCommon<Point, Real>::getPosition(Real T) const {
    return position(at(T));
}

template <class Point, class Real>
SplineTangent<Point> UniformCubicBSplineCommon<Point, Real>::getTangent(Real T) const {
    const Local local = at(T);
    return {position(local), firstDerivative(local)};
}

template <class Point, class Real>
SplineCurvature<Point> UniformCubicBSplineCommon<Point, Real>::getCurvature(Real T) const {
    const Local local = at(T);
    return {position(local), firstDerivative(local), secondDerivative(local)};
}

template <class Point, class Real>
SplineWiggle<Point> UniformCubicBSplineCommon<Point, Real>::getWiggle(Real T) const {
    const Local local = at(T);
    return {position(local), firstDerivative(local), secondDerivative(local),
            thirdDerivative(local)};
}

template <class Point, class Real>
Real UniformCubicBSplineCommon<Point, Real>::segmentLength(int segment, Real a, Real b) const {
    assert(segment >= 0 && segment < segmentCount());
    const Real half = (b - a) / 2;
    const Real middle = (a + b) / 2;
    Real sum = 0;
    for (const auto& [node, weight] : kGaussLegendre13) {
        const Local local{&points_[segment], node * half + middle};
        sum = static_cast<Real>(sum + weight * firstDerivative(local).norm());
    }
    return sum * half;
}

template <template <class, class> class Common, class Point, class Real>
Real SplineImpl<Common, Point, Real>::arcLength(Real a, Real b) const {
    if (b < a) std::swap(a, b);
    const int first = segmentForT(a);
    const int last = segmentForT(b);
    if (first == last) return segmentArcLength(first, a, b);
    Real length = common_.segmentLength(first, a - segmentT(first), 1);
    for (int segment = first + 1; segment < last; ++segment) {
        length += common_.segmentLength(segment, 0, 1);
    }
    return length + common_.segmentLength(last, 0, b - segmentT(last));
}

template <template <class, class> class Common, class Point, class Real>
Real SplineImpl<Common, Point, Real>::totalLength() const {
    Real length = 0;
    for (int segment = 0; segment < segmentCount(); ++segment) {
        length += common_.segmentLength(segment, 0, 1);
    }
    return length;
}

template <class Point, class Real>
UniformCubicBSpline<Point, Real>::UniformCubicBSpline(const std::vector<Point>& points)
    : SplineImpl<UniformCubicBSplineCommon, Point, Real>(
          static_cast<Real>(static_cast<int>(points.size()) - 3), points) {}

template class UniformCubicBSplineCommon<Eigen::Vector3d, float>;
template class SplineImpl<UniformCubicBSplineCommon, Eigen::Vector3d, float>;
template class UniformCubicBSpline<Eigen::Vector3d, float>;

}  // namespace drelt
