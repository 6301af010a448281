// The world's step: modes, hooks, forces from samples to links, velocities from links to samples.
#include <dart/external/odelcpsolver/error.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <dart/dynamics/SimpleFrame.hpp>
#include <dart/dynamics/Skeleton.hpp>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skWorld.h"
#include "bodies/rig.h"
#include "cslbm/mlsolver/couplingMode.h"

namespace drelt {
namespace {

using test::makeChain;
using test::messageOf;
using testing::HasSubstr;

const Eigen::Vector3d kZero = Eigen::Vector3d::Zero();
constexpr float kDt = 1e-3f;
constexpr float kDx = 0.02f;

std::shared_ptr<skSystem> build(const std::shared_ptr<SkeletonSystem>& description,
                                skSystem::Path path = skSystem::Path::Device) {
    return std::make_shared<skSystem>(description, 300, test::device(),
                                      Eigen::Vector3d(0.1, 0.2, 0.3), Eigen::Vector3d(10, 20, 30),
                                      path);
}

std::shared_ptr<skSystem> buildSphere() {
    const auto description = skeletonFromJson("assets/sphere.json", test::device());
    return std::make_shared<skSystem>(description, 300, test::device(), kZero, kZero);
}

// Writes one force density a sample, the same for all or a varied one.
void setSampleForces(skSystem& body, const Eigen::Vector3d& force, double variation = 0) {
    body.sampler().copyToHost();
    mlLagrangeBoundary& samples = *body.sampler().boundary();
    for (int i = 0; i < samples.count; ++i) {
        samples.forcex[i] = force.x() + variation * std::sin(1.0 + i);
        samples.forcey[i] = force.y() + variation * std::sin(2.0 + 3 * i);
        samples.forcez[i] = force.z() + variation * std::sin(3.0 + 7 * i);
    }
    body.sampler().copyToDevice();
}

// All that a step leaves behind, as raw numbers.
std::vector<double> stateOf(skSystem& body) {
    std::vector<double> state;
    const auto add = [&](const Eigen::VectorXd& v) {
        state.insert(state.end(), v.begin(), v.end());
    };
    add(body.getPositions());
    add(body.getVelocities());
    body.sampler().copyToHost();
    const mlLagrangeBoundary& samples = *body.sampler().boundary();
    for (int i = 0; i < samples.count; ++i) {
        state.insert(state.end(), {samples.coordx[i], samples.coordy[i], samples.normalz[i],
                                   samples.ux[i], samples.uy[i], samples.uz[i]});
    }
    for (const skLinkData& link : body.links().link_data_host) add(link.transform.translation());
    return state;
}

TEST(World, FreeFallFollowsTheSemiImplicitRule) {
    const auto body = buildSphere();
    skWorld world({0.5, 0, 0});
    world.addSkeleton(body);
    const int steps = 200;
    for (int n = 0; n < steps; ++n) world.step(NO_FLUID, kDt, kDx);
    const double dt = kDt;
    EXPECT_NEAR(body->getVelocities()[0], 0.5 * dt * steps, 1e-13);
    EXPECT_NEAR(body->getPositions()[0], 0.5 * dt * dt * steps * (steps + 1) / 2, 1e-13);
    EXPECT_NEAR(world.getTime(), steps * dt, 1e-12);
    EXPECT_EQ(world.getTimestep(), dt);
    EXPECT_NEAR(body->getBaseLink()->getLinearAcceleration().x(), 0.5, 1e-12);
    // the skin came along: the centre of the samples moved as far
    body->sampler().copyToHost();
    double mean = 0;
    const mlLagrangeBoundary& samples = *body->sampler().boundary();
    for (int i = 0; i < samples.count; ++i) mean += samples.coordx[i] / samples.count;
    EXPECT_NEAR(mean, body->getPositions()[0], 2e-4);
}

TEST(World, SampleForcesMoveTheBodyInTwoWayModeOnly) {
    for (const int mode : {TWO_WAY, ONE_WAY, NO_FLUID}) {
        const auto body = buildSphere();
        skWorld world;
        world.addSkeleton(body);
        setSampleForces(*body, {3, 5, 7});
        const mlLagrangeBoundary& samples = *body->sampler().boundary();
        // reaction of the whole surface on the prismatic joint along x
        const double force =
            -3.0 * double(kDx) * double(samples.sampleArea) * static_cast<double>(samples.count);
        const double mass = body->skeleton()->getMass();
        world.step(mode, kDt, kDx);
        const double expected = mode == TWO_WAY ? double(kDt) * force / mass : 0.0;
        EXPECT_NEAR(body->getVelocities()[0], expected, 1e-12 * std::abs(force / mass));
    }
}

TEST(World, StopsBeforeTheDynamicsOnWhatDiverges) {
    const auto other = build(makeChain(1));
    const auto body = buildSphere();
    skWorld world;
    world.addSkeleton(other);
    world.addSkeleton(body);
    const auto step = [&] {
        world.requireBoundedMotion(TWO_WAY, kDt, kDx);
        world.step(TWO_WAY, kDt, kDx);
    };
    setSampleForces(*other, {3, 5, 7});
    setSampleForces(*body, {NAN, 0, 0});
    EXPECT_THAT(
        messageOf<std::runtime_error>(step),
        AllOf(HasSubstr("step 1 "), HasSubstr("force on link '[link]bone_00' of skeleton 1 of"),
              HasSubstr("nan), the torque") /* of either sign */));
    EXPECT_EQ(world.getTime(), 0);

    // nothing of the refused step stays
    setSampleForces(*other, kZero);
    setSampleForces(*body, kZero);
    step();
    EXPECT_EQ(other->getVelocities().norm(), 0);

    setSampleForces(*body, {1e12, 0, 0});
    step();
    EXPECT_THAT(messageOf<std::runtime_error>(step),
                AllOf(HasSubstr("step 3 "), HasSubstr("link '[link]bone_0"),
                      HasSubstr("of skeleton 1 of"), HasSubstr("diverged")));
    world.requireBoundedMotion(NO_FLUID, kDt, kDx);  // falling on its own is not divergence
}

TEST(World, WrenchOfOneSampleByHand) {
    auto description = makeChain(1);
    const auto body = std::make_shared<skSystem>(description, 100, test::device(), kZero, kZero);
    setSampleForces(*body, kZero);
    mlLagrangeBoundary& samples = *body->sampler().boundary();
    samples.forcey[7] = 2;
    body->sampler().copyToDevice();
    body->applyFluidForce(kDx);
    // the link's frame stands at (0.1, 0, 0), parallel to the world's axes
    const double force = -2.0 * double(kDx) * double(samples.sampleArea);
    const skLinkData& record = body->links().link_data_host[1];
    EXPECT_LT((record.force - Eigen::Vector3d(0, force, 0)).norm(), 1e-6 * std::abs(force));
    const Eigen::Vector3d arm(samples.coordx[7] - 0.1, samples.coordy[7], samples.coordz[7]);
    const Eigen::Vector3d moment = arm.cross(Eigen::Vector3d(0, force, 0));
    EXPECT_LT((record.torque - moment).norm(), 1e-6 * moment.norm());
}

TEST(World, HostAndDevicePathsAgree) {
    const auto onDevice = build(makeChain(3));
    const auto onHost = build(makeChain(3), skSystem::Path::Host);
    Eigen::VectorXd velocities(8);
    velocities << 1, -2, 3, 0.1, 0.2, 0.3, 4, -5;
    for (const auto& body : {onDevice, onHost}) {
        skWorld world;
        world.addSkeleton(body);
        body->skeleton()->setVelocities(velocities);
        world.step(NO_FLUID, kDt, kDx);
        setSampleForces(*body, {1, 2, 3}, 10);
        world.step(TWO_WAY, kDt, kDx);
        body->sampler().copyToHost();
    }
    EXPECT_TRUE(onDevice->getVelocities().isApprox(onHost->getVelocities(), 1e-6));
    for (int k = 1; k <= 3; ++k) {
        const skLinkData& a = onDevice->links().link_data_host[k];
        const skLinkData& b = onHost->links().link_data_host[k];
        EXPECT_GT(a.force.norm(), 0);
        EXPECT_TRUE(a.force.isApprox(b.force, 1e-6));
        EXPECT_TRUE(a.torque.isApprox(b.torque, 1e-5));
    }
    const mlLagrangeBoundary& a = *onDevice->sampler().boundary();
    const mlLagrangeBoundary& b = *onHost->sampler().boundary();
    ASSERT_EQ(a.count, b.count);
    for (int i = 0; i < a.count; ++i) {
        EXPECT_NEAR(a.coordx[i], b.coordx[i], 1e-6);
        EXPECT_NEAR(a.ux[i], b.ux[i], 1e-5);
        EXPECT_NEAR(a.uz[i], b.uz[i], 1e-5);
    }
}

TEST(World, SampleVelocitiesAreSeenFromTheMovingFrame) {
    auto description = makeChain(3);
    description->baseFrameName = "[link]bone_1";
    const auto body = build(description);
    Eigen::VectorXd velocities(8);
    velocities << 1, -2, 3, 0.1, 0.2, 0.3, 4, -5;
    body->skeleton()->setVelocities(velocities);
    body->update();
    const auto frame = body->getLink("simple_frame");
    const auto base = body->getLink("[link]bone_1");
    EXPECT_EQ(frame->getPosition(), base->getPosition());
    EXPECT_TRUE(frame->getLinearVelocity().isApprox(base->getLinearVelocity(), 1e-12));
    EXPECT_TRUE(frame->getAngularVelocity().isZero());
    EXPECT_TRUE(frame->rotationMatrix().isIdentity());
    body->sampler().copyToHost();
    const mlLagrangeBoundary& samples = *body->sampler().boundary();
    for (int i = 0; i < samples.count; ++i) {
        const Eigen::Vector3d point(samples.coordx[i], samples.coordy[i], samples.coordz[i]);
        const auto& link = *body->links().links[body->sampler().sampleLinks[i]];
        const Eigen::Vector3d expected = link.getVelocityAt(point) - base->getLinearVelocity();
        const Eigen::Vector3d found(samples.ux[i], samples.uy[i], samples.uz[i]);
        EXPECT_LT((found - expected).norm(), 1e-5);
    }
    // in pure translation the samples stand still
    velocities.setZero();
    velocities.segment(3, 3) << 1, 2, 3;
    body->skeleton()->setVelocities(velocities);
    body->update();
    body->sampler().copyToHost();
    for (int i = 0; i < samples.count; ++i) {
        EXPECT_LT(std::hypot(samples.ux[i], samples.uy[i], samples.uz[i]), 1e-6);
    }
}

TEST(World, ResetRepeatsARunBitForBit) {
    for (const int mode : {NO_FLUID, EMPIRICAL}) {
        auto description = makeChain(3);
        description->jointsByName.at("bone_1")->actuator = 2;
        description->jointsByName.at("bone_2")->springStiffness = 0.5;
        const auto body = build(description);
        skWorld world({0, -9.81, 0});
        world.addSkeleton(body);
        const auto run = [&] {
            std::vector<double> states;
            for (int n = 0; n < 30; ++n) {
                body->setCommands(Eigen::VectorXd::Constant(1, std::cos(0.2 * n)));
                world.step(mode, kDt, kDx);
                const auto state = stateOf(*body);
                states.insert(states.end(), state.begin(), state.end());
            }
            return states;
        };
        const auto initial = stateOf(*body);
        const auto first = run();
        EXPECT_GT(world.getTime(), 0);
        world.reset();
        EXPECT_EQ(world.getTime(), 0);
        EXPECT_EQ(stateOf(*body), initial);
        EXPECT_EQ(run(), first);
    }
}

TEST(World, EmpiricalForceOnABox) {
    // Of a box of edge e whose corner normals point along the diagonals, the faces that move into
    // the medium at speed V feel 1000 V e^2 against the motion.
    const double edge = 0.05;
    const double speed = 2;
    const auto body = std::make_shared<skSystem>(makeChain(1), 50, test::device(), kZero, kZero);
    skWorld world;
    world.addSkeleton(body);
    Eigen::VectorXd velocities = Eigen::VectorXd::Zero(6);
    velocities[4] = speed;
    body->skeleton()->setVelocities(velocities);
    world.step(EMPIRICAL, kDt, kDx);
    EXPECT_NEAR(body->links().link_data_host[1].force.y(), -1000 * speed * edge * edge, 1e-5);
    EXPECT_NEAR(body->getCOMLinearVelocity()[1], speed - 5.0 * double(kDt), 1e-5);
}

TEST(World, SpringOscillates) {
    // a chain fixed in space, whose last two links swing as one on a spring
    auto description = makeChain(3);
    description->rootJoint->type = 4;
    description->jointsByName.at("bone_1")->springStiffness = 40;
    description->jointsByName.at("bone_2")->type = 4;
    const auto body = std::make_shared<skSystem>(description, 0, test::device(), kZero, kZero);
    skWorld world;
    world.addSkeleton(body);
    body->getJoint("bone_1")->setPosition(0, 0.1);
    // moment about the joint of two ellipsoids at 0.1 and 0.3 m; semi-implicit Euler, with the
    // spring's force taken at the end of the step
    const double inertia = 2 * (0.1 * 0.1 + 0.01 * 0.01) / 5 + 0.1 * 0.1 + 0.3 * 0.3;
    double angle = 0.1;
    double rate = 0;
    const double dt = kDt;
    for (int n = 0; n < 100; ++n) {
        world.step(NO_FLUID, kDt, kDx);
        rate -= dt * 40 * (angle + dt * rate) / (inertia + dt * dt * 40);
        angle += dt * rate;
    }
    EXPECT_NEAR(body->getPositions()[0], angle, 1e-6);
    EXPECT_LT(angle, 0.05);
}

TEST(World, MimicJointFollowsItsMaster) {
    auto description = makeChain(3);
    description->rootJoint->type = 4;
    description->jointsByName.at("bone_1")->actuator = 5;
    SkeletonJoint& follower = *description->jointsByName.at("bone_2");
    follower.actuator = 3;
    follower.mimicJoint = "bone_1";
    follower.multiplier = -2;
    follower.offset = 0.1;
    const auto body = std::make_shared<skSystem>(description, 0, test::device(), kZero, kZero);
    skWorld world;
    world.addSkeleton(body);
    ASSERT_EQ(body->getNumDofs(), 1);
    for (int n = 0; n < 100; ++n) {
        body->setCommands(Eigen::VectorXd::Constant(1, 0.5));
        world.step(NO_FLUID, kDt, kDx);
    }
    // it is driven to where its master stood before the step
    const double masterStep = 0.5 * double(kDt);
    EXPECT_NEAR(body->getPositions()[0], 100 * masterStep, 1e-8);
    EXPECT_NEAR(body->getPositions()[1], -2 * 99 * masterStep + 0.1, 1e-8);
}

TEST(World, HooksRunInOrderAndBodiesAreKept) {
    skWorld world;
    const auto a = build(makeChain(1));
    const auto b = build(makeChain(2));
    world.addSkeleton(nullptr);
    world.addSkeleton(a);
    world.addSkeleton(b);
    EXPECT_EQ(world.getSkeleton(1), b);
    EXPECT_EQ(world.getBoundaries()[1], &b->sampler().boundaryMgr());
    EXPECT_EQ(world.getFrame(), a->movingFrame().get());
    EXPECT_TRUE(world.isFixed());
    std::string calls;
    for (const auto& body : {a, b}) {
        const std::string name = body == a ? "a" : "b";
        body->addBeforeStep([&calls, &world, name](skSystem&, float dx, float dt) {
            calls += name + (dx == kDx && dt == kDt && world.getTime() == 0 ? "1 " : "? ");
        });
        body->addAfterStep([&calls, &world, name](skSystem&, float) {
            calls += name + (world.getTime() > 0 ? "2 " : "? ");
        });
        body->addBeforeUpdate([&calls, name](skSystem&, float, float) { calls += name + "3 "; });
    }
    world.step(NO_FLUID, kDt, kDx);
    EXPECT_EQ(calls, "a1 b1 a2 b2 a3 b3 ");

    EXPECT_THAT(messageOf<std::invalid_argument>([&] { world.addSkeleton(a); }),
                HasSubstr("in this world already"));
    EXPECT_THAT(messageOf<std::out_of_range>([&] { world.getSkeleton(2); }),
                HasSubstr("holds 2 bodies"));
    EXPECT_THROW(world.getSkeleton(-1), std::out_of_range);
    world.lock();
    EXPECT_THAT(messageOf<std::logic_error>([&] { world.addSkeleton(build(makeChain(1))); }),
                HasSubstr("add all bodies before"));
}

TEST(World, ABodyIsInOneWorldAtATime) {
    const auto body = build(makeChain(1));
    auto first = std::make_unique<skWorld>(Eigen::Vector3d(0, 0, -10));
    skWorld second({0, 0, -1});
    first->addSkeleton(body);
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { second.addSkeleton(body); }),
                HasSubstr("is in another world"));
    EXPECT_EQ(second.getNumSkeletons(), 0);
    first.reset();
    second.addSkeleton(body);
    second.step(NO_FLUID, kDt, kDx);
    EXPECT_NEAR(body->getCOMLinearVelocity()[2], -double(kDt), 1e-12);
}

// Where the solver meets a matrix that it cannot factorise, it would end the process.
TEST(World, AFailureOfTheConstraintSolverIsAnException) {
    skWorld world;
    const auto handler = dart::external::ode::dGetDebugHandler();
    ASSERT_NE(handler, nullptr);
    EXPECT_THAT(messageOf<std::runtime_error>(
                    [] { dart::external::ode::dDebug(1, "assertion %s failed", "a > 0"); }),
                HasSubstr("assertion a > 0 failed"));
}

TEST(World, WithoutBodiesOnlyTimePasses) {
    skWorld world;
    for (const int mode : {TWO_WAY, ONE_WAY, NO_FLUID, EMPIRICAL}) world.step(mode, kDt, kDx);
    EXPECT_NEAR(world.getTime(), 4 * double(kDt), 1e-15);
    world.reset();
    EXPECT_EQ(world.getTime(), 0);
    EXPECT_THAT(messageOf<std::logic_error>([&] { world.getFrame(); }), HasSubstr("no bodies"));
    EXPECT_THROW(world.isFixed(), std::logic_error);
}

TEST(World, ZeroSamplesAreAValidNumber) {
    const auto body = std::make_shared<skSystem>(makeChain(2), 0, test::device(), kZero, kZero);
    skWorld world({0, 0, -1});
    world.addSkeleton(body);
    world.step(TWO_WAY, kDt, kDx);
    EXPECT_NEAR(body->getCOMLinearVelocity()[2], -double(kDt), 1e-12);
}

}  // namespace
}  // namespace drelt
