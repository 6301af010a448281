// The semi-implicit coupling in a fluid: its balance, light bodies, and how it compares with the explicit one.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <dart/dynamics/Skeleton.hpp>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "driver/scene.h"
#include "support/fields.h"
#include "support/step_ledger.h"

namespace drelt {
namespace {

using Eigen::Vector3d;

constexpr ForcingWeights kArea = ForcingWeights::Area, kNormalised = ForcingWeights::Normalised;

// A sphere of 8 nodes per diameter in a box. Its mass is given over that of the fluid that it displaces.
struct Scene {
    Scene(double mass, Coupling coupling, const Vector3d& gravity,
          const char* asset = "sphere_floating", Schedule schedule = Schedule::Production,
          ForcingWeights weights = ForcingWeights::Area) {
        const auto box = test::boxOf(28, 28, 28);
        box->coupling = coupling;
        box->weights = weights;
        body = test::bodyOf(asset, 500, {10, 20, 30}, Vector3d::Zero(), test::device(), mass);
        sim = test::simulatorOf(box, body, gravity, schedule);
        sim->solver->coupling = coupling;
    }
    // Sets the velocities of the joints before the first step.
    void kick(const Eigen::VectorXd& velocities) const {
        body->skeleton()->setVelocities(velocities);
        body->update();
    }
    void steps(int count) const {
        for (int i = 0; i < count; ++i) sim->step(TWO_WAY);
    }

    std::shared_ptr<skSystem> body;
    std::unique_ptr<coupledLBM_sim3D> sim;
};

Eigen::VectorXd spinning() {
    Eigen::VectorXd velocities(6);
    velocities << 3, -2, 4, 0.03, 0.02, -0.01;
    return velocities;
}

TEST(SemiImplicitFluid, BodyAndFluidExchangeTheSameMomentum) {
    const Vector3d gravity(0.3, -0.5, 0.2);
    for (const Schedule schedule : {Schedule::Production, Schedule::Operators}) {
        for (const auto& [mass, weights] : {std::pair{0.0, kArea},
                                            {0.3, kArea},
                                            {1.0, kArea},
                                            {-0.1, kArea},
                                            {0.0, kNormalised},
                                            {-0.4, kNormalised}}) {
            SCOPED_TRACE(mass);
            const Scene scene(mass, Coupling::SemiImplicit, gravity, "sphere_floating", schedule,
                              weights);
            scene.kick(spinning());
            const mlUnitScale& scale = scene.sim->solver->scale;
            for (int i = 0; i < 12; ++i) {
                const test::StepLedger ledger(*scene.body);
                scene.steps(1);
                const auto residual = ledger.after(scale.dt, scale.l0p / scale.N, gravity);
                ASSERT_LT(residual.force, 1e-6);
                ASSERT_LT(residual.moment, 1e-6);
            }
        }
    }
}

// A kicked sphere has to come to rest. Explicit steps of a light one push it back ever harder.
TEST(SemiImplicitFluid, LightBodiesComeToRest) {
    const auto speedAfterKick = [](double mass, Coupling coupling, ForcingWeights weights = kArea) {
        const Scene scene(mass, coupling, Vector3d::Zero(), "sphere", Schedule::Production,
                          weights);
        scene.kick(Eigen::VectorXd::Constant(1, 0.02));
        double largest = 0;
        for (int i = 0; i < 150; ++i) {
            scene.steps(1);
            largest = std::max(largest, std::abs(scene.body->getVelocities()[0]));
            if (largest > 1) break;
        }
        EXPECT_LE(std::abs(scene.body->getVelocities()[0]), largest);
        return largest > 0.02 ? largest : std::abs(scene.body->getVelocities()[0]);
    };
    for (const double mass : {-0.2, 0.0, 0.1, 0.3})
        EXPECT_LT(speedAfterKick(mass, Coupling::SemiImplicit), 0.004) << mass;
    for (const double mass : {-0.4, 0.0, 0.3})
        EXPECT_LT(speedAfterKick(mass, Coupling::SemiImplicit, kNormalised), 0.004) << mass;
    EXPECT_GT(speedAfterKick(0.3, Coupling::Explicit), 0.1);
}

TEST(SemiImplicitFluid, HeavyBodiesFallAsWithExplicitSteps) {
    const auto fall = [](Coupling coupling) {
        const Scene scene(1, coupling, Vector3d(0, -0.25, 0));
        scene.steps(150);
        return scene.body->getCOMLinearVelocity()[1];
    };
    const double one = fall(Coupling::Explicit);
    ASSERT_LT(one, -0.01);
    EXPECT_NEAR(fall(Coupling::SemiImplicit), one, 0.01 * std::abs(one));
}

TEST(SemiImplicitFluid, SchedulesAgreeAndThreadsGiveTheSameBits) {
    const auto run = [](Schedule schedule, int threads, ForcingWeights weights) {
        const int usual = omp_get_max_threads();
        omp_set_num_threads(threads);
        const Scene scene(0.2, Coupling::SemiImplicit, {0.3, -0.5, 0.2}, "sphere_floating",
                          schedule, weights);
        scene.kick(spinning());
        scene.steps(25);
        omp_set_num_threads(usual);
        return std::pair{Eigen::VectorXd(scene.body->getVelocities()),
                         test::fieldsOf(*scene.sim->solver).ux};
    };
    for (const ForcingWeights weights : {kArea, kNormalised}) {
        const auto [velocity, ux] = run(Schedule::Production, 1, weights);
        const auto operators = run(Schedule::Operators, 2, weights);
        EXPECT_LT((operators.first - velocity).norm(), 1e-4 * velocity.norm());
        if (test::onGpu()) continue;  // its sums have no fixed order
        const auto again = run(Schedule::Production, 2, weights);
        EXPECT_EQ(again.first, velocity);
        EXPECT_EQ(again.second, ux);
    }
}

// The velocity that a heavy sphere's samples miss before they force the fluid, after a while of steady motion.
// Their force is then their weight times the slip per time step.
TEST(SemiImplicitFluid, NormalisedWeightsLeaveLessSlip) {
    const auto slip = [](ForcingWeights weights) {
        const Scene scene(1e4, Coupling::SemiImplicit, Vector3d::Zero(), "sphere",
                          Schedule::Production, weights);
        scene.kick(Eigen::VectorXd::Constant(1, 0.03));
        scene.steps(80);
        const IBBoundaryMemMgr& samples = scene.body->sampler().boundaryMgr();
        const auto count = static_cast<std::size_t>(samples.mllaboundary->count);
        const auto forces = test::sampleForces(samples);
        double sum = 0;
        test::Array<double> each(count, 1.0);
        if (weights == kNormalised) each = test::fetched(samples.weights_dev, count);
        for (std::size_t i = 0; i < forces.size(); ++i)
            sum += std::pow(forces[i] / each[i % count], 2);
        return std::sqrt(sum / static_cast<double>(count));
    };
    const double ratio = slip(kArea) / slip(kNormalised);
    EXPECT_GT(ratio, 2.2);
    EXPECT_LT(ratio, 3.2);
}

// The fluid takes the reaction of a massless body in TWO_WAY only, and nothing of it stays behind.
TEST(SemiImplicitFluid, OtherModesNeedMassAndAResetStartsAnew) {
    const Scene scene(0, Coupling::SemiImplicit, Vector3d(0, -1, 0));
    scene.kick(spinning());
    scene.steps(10);
    const Eigen::VectorXd first = scene.body->getPositions();
    for (const couplingMode mode : {ONE_WAY, NO_FLUID, EMPIRICAL})
        EXPECT_THROW(scene.sim->step(mode), std::runtime_error);
    EXPECT_EQ(scene.body->getPositions(), first);
    scene.sim->reset();
    scene.kick(spinning());
    scene.steps(10);
    EXPECT_LT((scene.body->getPositions() - first).norm(), 1e-6);

    const Scene heavy(1, Coupling::SemiImplicit, Vector3d(0, -1, 0));
    const Scene usual(1, Coupling::Explicit, Vector3d(0, -1, 0));
    for (const Scene* one : {&heavy, &usual}) {
        for (int i = 0; i < 5; ++i) one->sim->step(ONE_WAY);
    }
    EXPECT_EQ(heavy.body->getPositions(), usual.body->getPositions());
    EXPECT_EQ(test::sampleForces(heavy.body->sampler().boundaryMgr()),
              test::sampleForces(usual.body->sampler().boundaryMgr()));
}

}  // namespace
}  // namespace drelt
