// Fields that are read and set, under both schedules. With guarded device memory, production takes its form for
// devices.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "SkeletonDynamics/BodyArrays.h"
#include "driver/scene.h"
#include "simulatorInterface/FluidFields.h"

namespace drelt {
namespace {

struct State {
    std::vector<float> velocity, density;
    std::vector<double> force;
    Eigen::VectorXd body;
};

State read(const coupledLBM_sim3D& sim, const skSystem& body) {
    const std::size_t count = FluidFields::grid(sim, "test").count();
    State now{std::vector<float>(3 * count), std::vector<float>(count),
              std::vector<double>(3 * count), body.getVelocities()};
    FluidFields::readVelocity(sim, FieldUnits::Lattice, now.velocity.data());
    FluidFields::readDensity(sim, FieldUnits::Lattice, now.density.data());
    FluidFields::readSpreadForce(sim, FieldUnits::SI, now.force.data());
    return now;
}

template <class A, class B>
double largestDifference(const A& a, const B& b) {
    double largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double difference = std::abs(static_cast<double>(a[i]) - b[i]);
        if (!(difference <= largest)) largest = difference;
    }
    return largest;
}

// A falling sphere in a box with a layer; after some steps its fluid is set to waves that reach into the
// layer.
State run(Schedule schedule) {
    const auto body = test::bodyOf("sphere_follow", 400);
    const auto sim = test::simulatorOf(test::boxOf(20, 17, 18, 2), body, {2, -1, 0.5}, schedule);
    for (int i = 0; i < 5; ++i) sim->step(TWO_WAY);
    const FluidFields::Grid grid = FluidFields::grid(*sim, "test");
    std::vector<double> velocity(3 * grid.count()), density(grid.count());
    for (std::int64_t n = 0; n < grid.count(); ++n) {
        const auto x = static_cast<double>(n % grid.nx);
        velocity[3 * n + 1] = 0.05 * std::sin(0.4 * x);
        velocity[3 * n] = 0.02;
        density[n] = 1 + 0.01 * std::cos(0.4 * x);
    }
    FluidFields::setFluid(*sim, {velocity.data(), density.data(), true, FieldUnits::Lattice});
    const State set = read(*sim, *body);
    EXPECT_LT(largestDifference(set.velocity, velocity), 1e-7);
    EXPECT_LT(largestDifference(set.density, density), 1e-7);
    for (int i = 0; i < 4; ++i) sim->step(TWO_WAY);

    const State end = read(*sim, *body);
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    for (std::int64_t n = 0; n < grid.count(); ++n) {
        sum += Eigen::Vector3d::Map(&end.force[3 * n]) * std::pow(grid.spacing, 3);
    }
    const Eigen::Vector3d forces = BodyArrays::sampleForces(*body).colwise().sum();
    EXPECT_LT((sum - forces).norm(), 1e-5 * forces.norm());
    EXPECT_GT(forces.norm(), 0);
    return end;
}

TEST(FluidFields, GoOnAlikeUnderBothSchedules) {
    const State operators = run(Schedule::Operators), production = run(Schedule::Production);
    EXPECT_LT(largestDifference(operators.velocity, production.velocity), 1e-5);
    EXPECT_LT(largestDifference(operators.density, production.density), 2e-5);
    EXPECT_LT((operators.body - production.body).norm(), 2e-5 * operators.body.norm());
}

}  // namespace
}  // namespace drelt
