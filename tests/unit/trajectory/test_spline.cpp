// Compares the spline with the reference case and with curves of known closed form.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "support/vectors.h"
#include "trajectory/UniformCubicBSpline.h"
#include "trajectory/mlTrajectory.h"
#include "trajectory/path_fixture.h"

namespace drelt::test {
namespace {

using Curve = UniformCubicBSpline<Vec3, float>;

// The B-spline of a parabola is the parabola plus a constant: control points (i, i^2) give
// (x, x^2 + 1/3) at x = T + 1, whose length is known.
Vec3 parabola(double i) { return {i, i * i, 0.0}; }
double parabolaLength(double x0, double x1) {
    const auto integral = [](double x) {
        return 0.5 * x * std::sqrt(1.0 + 4.0 * x * x) + 0.25 * std::asinh(2.0 * x);
    };
    return integral(x1) - integral(x0);
}

TEST(Spline, AgreesWithReference) {
    const VectorCase given("spline");
    const Curve curve(toPoints(given.array<double>("in_points")));
    std::vector<double> position, first, second, third;
    for (const float T : given.array<float>("in_T")) {
        const auto all = curve.getWiggle(T);
        append(position, all.position);
        append(first, all.tangent);
        append(second, all.curvature);
        append(third, all.wiggle);
        EXPECT_EQ(curve.getPosition(T), all.position);
        EXPECT_EQ(curve.getTangent(T).tangent, all.tangent);
        EXPECT_EQ(curve.getCurvature(T).curvature, all.curvature);
    }
    EXPECT_TRUE(compareScaled(given.array<double>("out_position"), position, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_first"), first, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_second"), second, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_third"), third, 1e-6));

    const auto ab = given.array<float>("in_ab");
    const auto arc = given.array<double>("out_arc");
    for (std::size_t i = 0; i < arc.size(); ++i) {
        EXPECT_NEAR(curve.arcLength(ab[2 * i], ab[2 * i + 1]), arc[i], 1e-5 * arc[i])
            << "arc " << i;
    }
    const double total = given.array<double>("out_total")[0];
    EXPECT_NEAR(curve.totalLength(), total, 1e-5 * total);
}

TEST(Spline, OneSegmentWeighsItsFourPoints) {
    const Vec3 a(6, 0, 1), b(0, 6, -2), c(12, 0, 3), d(0, 0, 30);
    const Curve curve({a, b, c, d});
    EXPECT_EQ(curve.getMaxT(), 1.0F);
    EXPECT_EQ(curve.segmentCount(), 1);
    EXPECT_FALSE(curve.isLooping());
    EXPECT_EQ(curve.getPosition(0.0F), Vec3(3, 4, -4.0 / 6.0));
    EXPECT_EQ(curve.getPosition(1.0F), Vec3(8, 1, 40.0 / 6.0));
    // Below the range the first cubic continues; its weights at t = -1 are 8, -5, 4, -1 over 6.
    EXPECT_TRUE(curve.getPosition(-1.0F).isApprox((8 * a - 5 * b + 4 * c - d) / 6.0, 1e-14));
}

TEST(Spline, DerivativesOfACubic) {
    // Control points i^3 give x^3 + x at x = T + 1, in every segment and beyond both ends.
    const Curve curve(pointsAlong(7, [](double i) { return Vec3(i * i * i, i, 0.0); }));
    for (const float T : {-0.5F, 0.0F, 0.25F, 1.0F, 2.75F, 3.5F, 4.0F, 4.5F}) {
        const double x = T + 1.0;
        const auto at = curve.getWiggle(T);
        const double near = 1e-5 * (1.0 + x * x * x);
        EXPECT_NEAR(at.position.x(), x * x * x + x, near) << T;
        EXPECT_NEAR(at.tangent.x(), 3 * x * x + 1, near) << T;
        EXPECT_NEAR(at.curvature.x(), 6 * x, near) << T;
        EXPECT_EQ(at.wiggle, Vec3(6, 0, 0)) << T;
        EXPECT_NEAR(at.position.y(), x, near) << T;
        EXPECT_NEAR(at.tangent.y(), 1.0, 1e-6) << T;
    }
}

TEST(Spline, SegmentOfAParameter) {
    const Curve curve(pointsAlong(6, parabola));  // 3 segments
    const float below = std::nextafter(1.0F, 0.0F);
    const std::vector<std::pair<float, int>> expected = {
        {-2.0F, 0}, {0.0F, 0}, {below, 0}, {1.0F, 1}, {2.5F, 2}, {3.0F, 2}, {1e20F, 2}};
    for (const auto& [T, segment] : expected) EXPECT_EQ(curve.segmentForT(T), segment) << T;
    EXPECT_EQ(curve.segmentForT(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(curve.segmentT(2), 2.0F);
}

TEST(Spline, ArcLengthOfAParabola) {
    const Curve curve(pointsAlong(9, parabola));
    const auto length = [](double a, double b) { return parabolaLength(a + 1.0, b + 1.0); };
    const std::pair<float, float> ranges[] = {{0.25F, 0.5F}, {0.5F, 1.25F}, {0.5F, 4.75F},
                                              {2.0F, 3.0F},  {5.5F, 7.0F},  {-0.5F, 6.5F}};
    for (const auto& [a, b] : ranges) {
        const double expected = length(a, b);
        EXPECT_NEAR(curve.arcLength(a, b), expected, 1e-6 * expected) << a << " to " << b;
        EXPECT_EQ(curve.arcLength(b, a), curve.arcLength(a, b)) << a << " to " << b;
    }
    EXPECT_EQ(curve.arcLength(1.5F, 1.5F), 0.0F);
    EXPECT_NEAR(curve.segmentArcLength(3, 3.25F, 3.75F), length(3.25, 3.75), 1e-5);
    EXPECT_NEAR(curve.totalLength(), length(0.0, 6.0), 5e-5);
}

TEST(Spline, StraightEvenPolygonMovesEvenly) {
    const double h = 0.125;
    const Vec3 direction = Vec3(2, -1, 2) / 3.0;
    const Curve curve(pointsAlong(12, [&](double i) -> Vec3 { return i * h * direction; }));
    EXPECT_NEAR(curve.totalLength(), 9 * h, 1e-6);
    EXPECT_NEAR((curve.getPosition(6.3F) - curve.getPosition(5.3F)).norm(), h, 1e-6 * h * 8);
    EXPECT_NEAR(curve.getTangent(7.7F).tangent.norm(), h, 1e-6 * h);
}

TEST(Trajectory, NewPointsCountFromTheNextFitOn) {
    mlTrajectory<double, 3> trajectory;
    give(trajectory, pointsAlong(5, parabola));
    trajectory.fit();
    const Vec3 before = trajectory.curve().getPosition(0.5F);
    give(trajectory, pointsAlong(8, [](double i) { return Vec3(0, 0, i); }));
    EXPECT_EQ(trajectory.points.size(), 8U);
    EXPECT_EQ(trajectory.curve().getPosition(0.5F), before);
    trajectory.fit();
    EXPECT_EQ(trajectory.curve().getMaxT(), 5.0F);
    EXPECT_NEAR(trajectory.curve().getPosition(0.5F).z(), 1.5, 1e-6);
}

TEST(Trajectory, CurveNeedsAFitToFourPoints) {
    mlTrajectory<double, 3> trajectory;
    give(trajectory, pointsAlong(5, parabola));
    EXPECT_EQ(messageOf<std::logic_error>([&] { trajectory.curve(); }),
              "the trajectory has no curve yet; give it at least 4 control points with setPoints, "
              "then call fit");
    for (const int count : {0, 1, 3}) {
        give(trajectory, pointsAlong(count, parabola));
        trajectory.fit();
        EXPECT_EQ(messageOf<std::invalid_argument>([&] { trajectory.curve(); }),
                  "the curve has been fitted to " + std::to_string(count) +
                      " control points; it needs at least 4: give them with setPoints, then call "
                      "fit again");
        EXPECT_EQ(Curve(pointsAlong(count, parabola)).totalLength(), 0.0F);
    }
}

}  // namespace
}  // namespace drelt::test
