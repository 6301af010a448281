// A parametric curve over a list of control points.
#pragma once

#include <utility>
#include <vector>

namespace drelt {

// The curve at one parameter. Derivatives are with respect to the parameter.
template <class Point>
struct SplineTangent {
    Point position;
    Point tangent;  // first derivative
};

template <class Point>
struct SplineCurvature {
    Point position;
    Point tangent;
    Point curvature;  // second derivative
};

template <class Point>
struct SplineWiggle {
    Point position;
    Point tangent;
    Point curvature;
    Point wiggle;  // third derivative
};

// A curve of polynomial segments over the parameters 0 to maxT. Parameters and lengths are of type
// Real; lengths have the units of the points. Outside the range the first or last polynomial goes on.
template <class Point, class Real>
class Spline {
public:
    virtual ~Spline() = default;

    virtual Point getPosition(Real T) const = 0;
    virtual SplineTangent<Point> getTangent(Real T) const = 0;
    virtual SplineCurvature<Point> getCurvature(Real T) const = 0;
    virtual SplineWiggle<Point> getWiggle(Real T) const = 0;

    // Length between two parameters, given in either order.
    virtual Real arcLength(Real a, Real b) const = 0;
    virtual Real totalLength() const = 0;
    virtual bool isLooping() const = 0;

    // Segment i covers the parameters from segmentT(i) to segmentT(i + 1).
    virtual int segmentCount() const = 0;
    virtual int segmentForT(Real T) const = 0;
    virtual Real segmentT(int segment) const = 0;
    // Length of one segment's polynomial between two parameters of the whole curve.
    virtual Real segmentArcLength(int segment, Real a, Real b) const = 0;

    Real getMaxT() const { return maxT_; }
    const std::vector<Point>& getInputPoints() const { return inputPoints_; }

protected:
    Spline(Real maxT, std::vector<Point> points) : maxT_(maxT), inputPoints_(std::move(points)) {}
    Spline(const Spline&) = default;
    Spline& operator=(const Spline&) = default;

private:
    Real maxT_;
    std::vector<Point> inputPoints_;
};

}  // namespace drelt
