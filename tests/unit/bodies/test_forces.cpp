// What scripts read of a step: forces of the fluid on links, and the power of actuators.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <dart/dynamics/Skeleton.hpp>
#include <random>
#include <vector>

#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skWorld.h"
#include "bodies/rig.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"
#include "support/step_ledger.h"

namespace drelt {
namespace {

using Eigen::Vector3d;
using Eigen::VectorXd;
using test::makeChain;

constexpr float kDt = 1e-3f, kDx = 0.01f, kDensity = 1000;
const SampleGrid kEverywhere{nullptr, 0, 0, 0, 0, 0, kDensity};
const Vector3d kGravity(0.5, -9.81, 1.5);

enum Actuator { Force, Passive, Servo, Mimic, Acceleration, Velocity, Locked };

std::shared_ptr<SkeletonSystem> chain(const std::vector<Actuator>& actuators) {
    auto description = makeChain(static_cast<int>(actuators.size()));
    for (const auto& link : description->links) {
        link->mass = 0.5;
        link->size = {0.1, 0.06, 0.03};
    }
    for (std::size_t i = 0; i < actuators.size(); ++i) {
        SkeletonJoint& joint = *description->jointsByName.at("bone_" + std::to_string(i));
        joint.actuator = actuators[i];
        joint.damping = joint.friction = joint.springStiffness = 0;
    }
    return description;
}

std::shared_ptr<skSystem> build(const std::shared_ptr<SkeletonSystem>& description) {
    testing::internal::CaptureStdout();
    auto body = std::make_shared<skSystem>(description, 300, test::device(), Vector3d(1, 2, 3),
                                           Vector3d(10, 20, 30));
    testing::internal::GetCapturedStdout();
    return body;
}

// The root turns about an axis, so that all DOFs are of one kind and M du/dt + c is the force on them.
std::shared_ptr<SkeletonSystem> anchored(const std::vector<Actuator>& actuators) {
    auto description = chain(actuators);
    description->rootJoint->type = 1;
    return description;
}

// The power of each actuated DOF is its share of M du/dt + c, less springs, dampers and friction, times the
// mean velocity.
TEST(JointPower, IsThatOfTheForcesThatMovedTheLinks) {
    auto springs = anchored({Force, Velocity, Passive, Acceleration, Locked});
    for (const char* const name : {"bone_0", "bone_1", "bone_3"}) {
        SkeletonJoint& joint = *springs->jointsByName.at(name);
        joint.useDynamcis = true;
        joint.damping = 0.02;
        joint.springStiffness = 0.3;
    }
    auto servos = anchored({Servo, Passive, Velocity, Servo, Force});
    for (const char* const name : {"bone_1", "bone_3"}) {
        SkeletonJoint& joint = *servos->jointsByName.at(name);
        joint.useDynamcis = true;
        joint.friction = 0.01;
    }
    for (const auto& description : {springs, servos}) {
        const auto body = build(description);
        skWorld world(kGravity);
        world.addSkeleton(body);
        EXPECT_TRUE(body->getJointPower().isZero(0));
        body->skeleton()->setVelocities(VectorXd::Constant(5, 1.5));
        for (int n = 0; n < 40; ++n) {
            VectorXd commands(4);
            for (int i = 0; i < 4; ++i) commands[i] = 0.4 * std::sin(0.3 * n + i) + 0.1;
            if (body->skeleton()->getJoint(4)->getActuatorType() == dart::dynamics::Joint::LOCKED)
                commands[3] = 0;
            body->setCommands(commands);
            const auto old = body->skeleton()->cloneSkeleton();
            world.step(NO_FLUID, kDt, kDx);
            const double dt = kDt;
            const VectorXd before = old->getVelocities(), after = body->getVelocities();
            const VectorXd forces =
                old->getMassMatrix() * (after - before) / dt + old->getCoriolisAndGravityForces();
            VectorXd watts = VectorXd::Zero(4);
            double largest = 0;
            for (int dof = 0, k = 0; dof < 5; ++dof) {
                const auto& joint = *body->skeleton()->getJoint(dof);
                if (joint.getActuatorType() == dart::dynamics::Joint::PASSIVE) continue;
                double force =
                    forces[dof] + joint.getDampingCoefficient(0) * after[dof] +
                    joint.getSpringStiffness(0) * (old->getPosition(dof) + dt * after[dof]);
                force += std::copysign(joint.getCoulombFriction(0), after[dof]);
                watts[k++] = joint.getActuatorType() == dart::dynamics::Joint::LOCKED
                                 ? 0
                                 : force * (before[dof] + after[dof]) / 2;
                largest = std::max(largest, std::abs(watts[k - 1]));
            }
            if (n == 0 && description == springs) continue;  // the lock has just closed
            ASSERT_LT((body->getJointPower() - watts).norm(), 1e-7 * largest)
                << "step " << n << "\n"
                << body->getJointPower().transpose() << "\n"
                << watts.transpose();
        }
        world.reset();
        EXPECT_TRUE(body->getJointPower().isZero(0));
    }
}

// Work of the actuators of a free chain that wriggles, less the change of its kinetic energy, over the energy that
// passed through the actuators.
double missingWork(double dt) {
    const auto body = build(chain({Passive, Servo, Velocity, Servo}));
    skWorld world(Vector3d::Zero());
    world.addSkeleton(body);
    double work = 0, passed = 0;
    for (int n = 1; n * dt < 0.2; ++n) {
        VectorXd commands(3);
        for (int i = 0; i < 3; ++i) commands[i] = 4 * std::sin(9 * n * dt - i);
        body->setCommands(commands);
        world.step(NO_FLUID, static_cast<float>(dt), kDx);
        work += dt * body->getJointPower().sum();
        passed += dt * body->getJointPower().cwiseAbs().sum();
    }
    const double energy = body->skeleton()->computeKineticEnergy();
    EXPECT_GT(energy, 0.05 * passed);
    return std::abs(work - energy) / passed;
}

TEST(JointPower, AddsUpToTheKineticEnergyOfASwimmerWithoutFluid) {
    const double coarse = missingWork(1e-3), fine = missingWork(2.5e-4);
    EXPECT_LT(coarse, 0.01);
    EXPECT_LT(fine, 0.3 * coarse) << "in proportion to the time step";
}

// Stands for a fluid: slip of up to 0.1 m/s at every sample, another one at each call.
void slip(const skSystem& body, std::mt19937& random) {
    std::uniform_real_distribution<double> draw(-0.1, 0.1);
    IBSamplerMesh& sampler = body.sampler();
    sampler.copyToHost();
    mlLagrangeBoundary& b = *sampler.boundary();
    for (int i = 0; i < b.count; ++i) {
        for (double* const axis : {b.forcex, b.forcey, b.forcez})
            axis[i] = kDensity * draw(random) / kDt;
    }
    sampler.copyToDevice();
}

// Moves a wrench about the body's centre of mass to the origin.
ForceAndTorque aboutOrigin(ForceAndTorque wrench, const Vector3d& centre) {
    wrench.torque += centre.cross(wrench.force);
    return wrench;
}

// Own mass times acceleration, less weight, is the force on the links of a body that nothing else moves.
TEST(FluidForces, OnTheLinksAreWhatMovesThem) {
    for (const bool implicit : {false, true}) {
        const auto body = build(chain({Passive, Passive, Passive}));
        skWorld world(kGravity);
        world.addSkeleton(body);
        world.setFluidDensity(kDensity);
        body->skeleton()->setVelocities(VectorXd::Constant(8, 2.0));
        body->update();
        std::mt19937 random(5);
        for (int n = 0; n < 10; ++n) {
            slip(*body, random);
            const Vector3d centre = body->getCOM();
            const test::StepLedger ledger(*body);
            if (implicit) {
                world.stepSemiImplicit(kEverywhere, kDt, kDx);
            } else {
                world.step(TWO_WAY, kDt, kDx);
            }
            const auto needed = ledger.needed(kDt, kGravity);
            if (implicit) world.updateBodies(kDt, kDx);
            const auto found = aboutOrigin(body->getFluidWrench(FluidForce::OnLink), centre);
            ASSERT_LT((found.force - needed.force).norm(), 1e-9 * needed.force.norm()) << n;
            ASSERT_LT((found.torque - needed.moment).norm(), 1e-9 * needed.moment.norm()) << n;
        }
    }
}

// One link with a box for a skin, in which the force of the outer fluid is that on the link and what
// accelerates the fluid inside.
TEST(FluidForces, OfTheOuterFluidLeaveTheFluidInsideAside) {
    const double volume = 0.05 * 0.05 * 0.05, inertia = volume * 0.05 * 0.05 / 6;
    const Vector3d beside(0.1, 0, 0);  // the box from the bone
    for (const bool implicit : {false, true}) {
        const auto body = build(chain({Passive}));
        const skLink& link = *body->links().links[1];
        skWorld world(kGravity);
        world.addSkeleton(body);
        world.setFluidDensity(kDensity);
        VectorXd velocities(6);
        velocities << 3, -2, 1, 0.1, 0.2, 0.3;
        body->skeleton()->setVelocities(velocities);
        body->update();
        std::mt19937 random(5);
        // momentum of the fluid inside about the link's centre, which is the box's
        const auto momentum = [&] { return Vector3d(volume * link.getLinearVelocity()); };
        const auto spin = [&] { return Vector3d(inertia * link.getAngularVelocity()); };
        Vector3d earlier = momentum(), earlierSpin = spin();
        for (int n = 0; n < 4; ++n) {
            slip(*body, random);
            const Vector3d start = momentum(), startSpin = spin();
            if (implicit) {
                world.stepSemiImplicit(kEverywhere, kDt, kDx);
                world.updateBodies(kDt, kDx);
                earlier = start;
                earlierSpin = startSpin;
            } else {
                world.step(TWO_WAY, kDt, kDx);
            }
            const double perTime = static_cast<double>(kDensity) / kDt;
            const Vector3d gain = implicit ? momentum() - start : start - earlier;
            const Vector3d turn = implicit ? spin() - startSpin : startSpin - earlierSpin;
            const auto on = link.fluidForce(FluidForce::OnLink);
            const auto outer = link.fluidForce(FluidForce::Outer);
            const double largest = outer.force.norm(), most = outer.torque.norm();
            ASSERT_LT((outer.force - on.force - perTime * gain).norm(), 1e-9 * largest) << n;
            ASSERT_LT((outer.torque - on.torque - perTime * turn).norm(), 1e-9 * most) << n;
            earlier = start;
            earlierSpin = startSpin;
        }
    }
}

TEST(FluidForces, AreThoseOfTheMode) {
    const auto body = build(chain({Passive, Passive}));
    const auto link = body->getLink(body->links().links[2]->getName());
    auto world = std::make_unique<skWorld>(kGravity);
    world->addSkeleton(body);
    world->setFluidDensity(kDensity);
    const auto force = [&](FluidForce which) { return link->fluidForce(which).force; };
    EXPECT_EQ(force(FluidForce::Outer), Vector3d::Zero());
    body->skeleton()->setVelocities(VectorXd::Constant(7, 1.0));
    body->update();
    const VectorXd speeds = body->getVelocities();
    std::vector<VectorXd> ends;
    std::vector<Vector3d> found;
    for (const int mode : {ONE_WAY, TWO_WAY}) {
        std::mt19937 random(2);
        world->reset();
        EXPECT_EQ(force(FluidForce::Outer), Vector3d::Zero()) << "after a reset";
        body->skeleton()->setVelocities(speeds);
        body->update();
        slip(*body, random);
        world->step(mode, kDt, kDx);
        ends.push_back(body->getVelocities());
        found.push_back(force(FluidForce::OnLink));
    }
    EXPECT_GT(found[0].norm(), 0);
    EXPECT_LT((found[0] - found[1]).norm(), 1e-12 * found[1].norm()) << "ONE_WAY computes it";
    world->reset();
    body->skeleton()->setVelocities(speeds);
    world->step(NO_FLUID, kDt, kDx);
    EXPECT_EQ(body->getVelocities(), ends[0]) << "ONE_WAY does not apply it";
    EXPECT_EQ(force(FluidForce::OnLink), Vector3d::Zero());
    EXPECT_NE(ends[0], ends[1]);

    world->step(EMPIRICAL, kDt, kDx);
    world->step(EMPIRICAL, kDt, kDx);
    EXPECT_GT(force(FluidForce::OnLink).norm(), 0);
    EXPECT_EQ(force(FluidForce::OnLink), force(FluidForce::Outer));
    EXPECT_THROW(body->links().links[0]->fluidForce(FluidForce::Outer), std::logic_error);
}

}  // namespace
}  // namespace drelt
