// Compares weighted sample elimination with a plain evaluation of its definition.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

#include "MeshLoad/Sampler/SampleElimination.h"

namespace drelt {
namespace {

using Points = std::vector<Eigen::Vector3d>;

Points randomSquare(int count) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> draw(0, 1);
    Points points;
    for (int i = 0; i < count; ++i) points.emplace_back(draw(random), draw(random), 0.25);
    return points;
}

// Removes the point of the largest weight until `wanted` are left, weighing all pairs.
std::vector<int> plainElimination(const Points& points, std::vector<int> left, std::size_t wanted,
                                  double dMax, double dMin) {
    const auto pair = [&](int i, int j) {
        const double d = (points[i] - points[j]).norm();
        return i != j && d < dMax ? std::pow(1 - std::max(d, dMin) / dMax, 8) : 0.0;
    };
    std::vector<double> weights(points.size());
    for (const int i : left) {
        for (const int j : left) weights[i] += pair(i, j);
    }
    while (left.size() > wanted) {
        const auto top = std::max_element(left.begin(), left.end(),
                                          [&](int a, int b) { return weights[a] < weights[b]; });
        const int taken = *top;
        left.erase(top);
        for (const int j : left) weights[j] -= pair(taken, j);
    }
    return left;
}

std::set<int> prefix(const std::vector<int>& order, std::size_t n) {
    return {order.begin(), order.begin() + static_cast<std::ptrdiff_t>(n)};
}

TEST(SampleElimination, EveryStageKeepsTheDefinedSet) {
    const Points points = randomSquare(400);
    const std::size_t wanted = 41;
    const double area = 1.7;
    const std::vector<int> order = eliminateSamples(points, static_cast<int>(wanted), area);
    ASSERT_EQ(order.size(), wanted);

    double dMax = 2 * std::sqrt(area / wanted / (2 * std::sqrt(3.0)));
    const double dMin = dMax * 0.65 * (1 - std::pow(wanted / 400.0, 1.5));
    std::vector<int> all(points.size());
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int>(i);
    std::vector<int> expected = plainElimination(points, all, wanted, dMax, dMin);
    EXPECT_EQ(prefix(order, wanted), std::set<int>(expected.begin(), expected.end()));
    for (std::size_t n = wanted; n >= 3; n /= 2) {
        dMax *= static_cast<double>(1.41421356f);
        expected = plainElimination(points, expected, n / 2, dMax, dMin);
        EXPECT_EQ(prefix(order, n / 2), std::set<int>(expected.begin(), expected.end()))
            << "first " << n / 2;
    }
}

TEST(SampleElimination, PointsKeepTheirDistanceForAnyNumberOfThreads) {
    const Points points = randomSquare(20000);
    const int threads = omp_get_max_threads();
    const std::vector<int> order = eliminateSamples(points, 2000, 1.0);
    omp_set_num_threads(1);
    EXPECT_EQ(eliminateSamples(points, 2000, 1.0), order);
    omp_set_num_threads(threads);
    // The densest packing has neighbours at dMax; an even random set comes to about 0.7 of that.
    for (const std::size_t n : {2000, 500}) {
        const double dMax = 2 * std::sqrt(1.0 / static_cast<double>(n) / (2 * std::sqrt(3.0)));
        double nearest = 1;
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                nearest = std::min(nearest, (points[order[i]] - points[order[j]]).norm());
            }
        }
        EXPECT_GT(nearest, 0.6 * dMax) << n;
    }
}

TEST(SampleElimination, SmallInputsStayWhole) {
    EXPECT_TRUE(eliminateSamples({}, 5, 1.0).empty());
    EXPECT_TRUE(eliminateSamples(randomSquare(5), 0, 1.0).empty());
    EXPECT_EQ(prefix(eliminateSamples(randomSquare(5), 9, 0.0), 5), (std::set<int>{0, 1, 2, 3, 4}));
}

}  // namespace
}  // namespace drelt
