// The semi-implicit coupling on the side of the bodies, with forces that the test gives the samples.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skWorld.h"
#include "bodies/rig.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"
#include "support/step_ledger.h"

namespace drelt {
namespace {

using Eigen::Vector3d;
using test::makeChain;
using test::messageOf;
using testing::HasSubstr;

constexpr float kDt = 1e-3f, kDx = 0.01f, kDensity = 1000;
const SampleGrid kEverywhere{nullptr, 0, 0, 0, 0, 0, kDensity};
const Vector3d kGravity(0.5, -9.81, 1.5);

enum Actuator { Force, Passive, Servo, Mimic, Acceleration, Velocity, Locked };

std::shared_ptr<SkeletonSystem> chain(int links, double mass) {
    auto description = makeChain(links);
    for (const auto& link : description->links) {
        link->mass = mass;
        link->size = {0.1, 0.06, 0.03};
    }
    return description;
}

std::shared_ptr<skSystem> build(const std::shared_ptr<SkeletonSystem>& description,
                                skSystem::Path path = skSystem::Path::Device) {
    testing::internal::CaptureStdout();
    auto body = std::make_shared<skSystem>(description, 300, test::device(), Vector3d(1, 2, 3),
                                           Vector3d(10, 20, 30), path);
    testing::internal::GetCapturedStdout();
    return body;
}

// Stands for a fluid: slip of up to 0.1 m/s at every sample, another one at each call.
void slip(const skSystem& body, std::mt19937& random) {
    std::uniform_real_distribution<double> draw(-0.1, 0.1);
    IBSamplerMesh& sampler = body.sampler();
    sampler.copyToHost();
    mlLagrangeBoundary& b = *sampler.boundary();
    for (int i = 0; i < b.count; ++i) {
        b.forcex[i] = kDensity * draw(random) / kDt;
        b.forcey[i] = kDensity * draw(random) / kDt;
        b.forcez[i] = kDensity * draw(random) / kDt;
    }
    sampler.copyToDevice();
}

double wholeAddedMass(const skSystem& body) {
    const mlLagrangeBoundary& b = *body.sampler().boundary();
    return static_cast<double>(kDensity) * b.count * b.sampleArea * kDx;
}

struct Case {
    const char* name;
    std::shared_ptr<SkeletonSystem> description;
    skSystem::Path path = skSystem::Path::Device;
    int from = 0;  // first step of the balance
};

std::vector<Case> cases() {
    const double light = 0.05;
    auto servo = chain(3, light);
    servo->jointsByName.at("bone_1")->actuator = Servo;
    auto mixed = chain(4, light);
    mixed->jointsByName.at("bone_1")->actuator = Velocity;
    mixed->jointsByName.at("bone_2")->actuator = Locked;
    mixed->jointsByName.at("bone_3")->type = 4;
    auto limited = chain(3, light);
    SkeletonJoint& joint = *limited->jointsByName.at("bone_2");
    joint.useLimits = joint.useDynamcis = true;
    joint.lower = -0.05;
    joint.upper = 0.05;
    joint.velocity = joint.effort = 100;
    joint.damping = 1e-3;
    joint.friction = 1e-3;
    joint.springStiffness = 0.2;
    return {{"one link", chain(1, light)},
            {"one link, on the host", chain(1, light), skSystem::Path::Host},
            {"servo and passive joint", servo},
            {"velocity, locked and welded joints", mixed, skSystem::Path::Device, 1},
            {"limits, friction and spring", limited},
            {"without mass", chain(3, 0)},
            {"lighter than nothing", chain(3, -0.01)},
            {"heavy", chain(2, 100)}};
}

// What the samples' forces take from the links' own momentum, the fluid receives, at every step.
TEST(SemiImplicit, OwnMomentumAndSampleForcesBalance) {
    for (const Case& given : cases()) {
        SCOPED_TRACE(given.name);
        const auto body = build(given.description, given.path);
        skWorld world(kGravity);
        world.addSkeleton(body);
        world.requireCoupling(Coupling::SemiImplicit, kDensity, kDx, 0);
        std::mt19937 random(7);
        Eigen::VectorXd velocities = Eigen::VectorXd::Constant(body->getVelocities().size(), 2.0);
        velocities.head<3>() = Vector3d(12, -9, 14);
        body->skeleton()->setVelocities(velocities);
        body->update();
        for (int n = 0; n < 25; ++n) {
            if (body->getNumDofs() > 0)
                body->setCommands(Eigen::VectorXd::Constant(body->getNumDofs(), 3.0));
            slip(*body, random);
            const test::StepLedger ledger(*body);
            world.stepSemiImplicit(kEverywhere, kDt, kDx);
            const auto residual = ledger.after(kDt, kDx, kGravity);
            if (n >= given.from) {  // the impulse that stops a locked joint is no force
                ASSERT_LT(residual.force, 1e-9) << "step " << n;
                ASSERT_LT(residual.moment, 1e-9) << "step " << n;
            }
            world.updateBodies(kDt, kDx);
        }
        EXPECT_TRUE(body->getVelocities().allFinite());
    }
}

TEST(SemiImplicit, TheSamplesHaveInertiaButNoWeight) {
    const double own = 0.05;
    const auto body = build(chain(1, own));
    skWorld world(kGravity);
    world.addSkeleton(body);
    const Vector3d start = body->getCOM();
    const double added = wholeAddedMass(*body);
    ASSERT_GT(added, own);
    world.stepSemiImplicit(kEverywhere, kDt, kDx);
    // The samples stand beside the centre of mass, so the body also turns and the centre gains more.
    const double gain = body->links().links[1]->getLinearVelocity().norm();
    const double fall = kDt * kGravity.norm();
    EXPECT_LT(gain, 0.9 * fall);
    EXPECT_GT(gain, 0.99 * fall * own / (own + added));
    EXPECT_EQ(body->getLink(body->links().links[1]->getName())->getMass(), own);
    EXPECT_EQ(body->skeleton()->getMass(), own) << "DART has the own mass between steps";
    EXPECT_LT((body->getCOM() - start).norm(), 1e-5);
}

// The same bits for any number of threads, and nothing of a step is left after a reset.
TEST(SemiImplicit, StepsRepeatBitForBit) {
    std::vector<Eigen::VectorXd> ends;
    std::vector<test::Array<double>> forces;
    const auto body = build(chain(3, 0.02));
    skWorld world(kGravity);
    world.addSkeleton(body);
    for (const int threads : {1, 2, 3}) {
        const int usual = omp_get_max_threads();
        omp_set_num_threads(threads);
        world.reset();
        std::mt19937 random(3);
        for (int n = 0; n < 10; ++n) {
            slip(*body, random);
            world.stepSemiImplicit(kEverywhere, kDt, kDx);
            world.updateBodies(kDt, kDx);
        }
        omp_set_num_threads(usual);
        ends.push_back(body->getPositions());
        const IBBoundaryMemMgr& samples = body->sampler().boundaryMgr();
        forces.push_back(test::fetched(samples.forcex_dev,
                                       static_cast<std::size_t>(samples.mllaboundary->count)));
    }
    for (std::size_t run : {1, 2}) {
        EXPECT_EQ(ends[run], ends[0]);
        EXPECT_EQ(forces[run], forces[0]);
    }
}

TEST(SemiImplicit, MassesThatACouplingCannotHoldAreRefused) {
    const auto refusal = [](const std::shared_ptr<SkeletonSystem>& description, Coupling coupling,
                            double slipRatio = 0) {
        skWorld world(kGravity);
        world.addSkeleton(build(description));
        return messageOf<std::invalid_argument>(
            [&] { world.requireCoupling(coupling, kDensity, kDx, slipRatio); });
    };
    EXPECT_THAT(refusal(chain(2, -1), Coupling::Explicit), HasSubstr("the description's mass of"));
    EXPECT_THAT(refusal(chain(2, 0), Coupling::Explicit),
                HasSubstr("the description's mass with all that hangs on it of the link"));
    EXPECT_THAT(refusal(chain(2, 1), Coupling::SemiImplicit, 0.5), HasSubstr("slip ratio of 0"));

    const double area = 6 * 0.05 * 0.05;
    const double limit = -0.45 * kDensity * area * kDx;
    EXPECT_THAT(refusal(chain(1, 1.05 * limit), Coupling::SemiImplicit),
                testing::AllOf(HasSubstr("the mass of the link '"), HasSubstr(" kg; the semi")));
    auto wide = chain(1, 0.95 * limit);
    EXPECT_EQ(refusal(wide, Coupling::SemiImplicit), "no exception");
    wide->links.front()->size.setConstant(1);
    EXPECT_THAT(refusal(wide, Coupling::SemiImplicit), HasSubstr("do not resist every motion"))
        << "heavy enough as a point, but not in rotation";
}

TEST(SemiImplicit, BodiesWithoutMassOfTheirOwnNeedIt) {
    testing::internal::CaptureStderr();
    const auto none = build(chain(2, 0));
    auto description = chain(2, -0.01);
    description->links.back()->mass = -0.03;
    const auto negative = build(description);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "DART sees no such mass";
    for (const auto& body : {none, negative}) {
        skWorld world(kGravity);
        world.addSkeleton(body);
        const Eigen::VectorXd before = body->getPositions();
        for (const int mode : {1, 2, 3}) {
            EXPECT_THAT(
                messageOf<std::runtime_error>([&] { world.requireBoundedMotion(mode, kDt, kDx); }),
                HasSubstr("semi-implicit coupling"));
            EXPECT_THAT(messageOf<std::runtime_error>([&] { world.step(mode, kDt, kDx); }),
                        HasSubstr("semi-implicit coupling"));
        }
        EXPECT_EQ(body->getPositions(), before);
        EXPECT_EQ(world.getTime(), 0);
        world.requireBoundedMotion(0, kDt, kDx);
    }
    EXPECT_THAT(messageOf<std::logic_error>([&] { none->getCOM(); }),
                HasSubstr("ask its links for their positions"));
    const Vector3d a = negative->links().links[1]->getPosition();
    const Vector3d b = negative->links().links[2]->getPosition();
    EXPECT_LT((negative->getCOM() - (0.25 * a + 0.75 * b)).norm(), 1e-12);
    EXPECT_EQ(negative->links().links[2]->getMass(), -0.03);

    // Samples that leave the grid take their mass with them; the links keep what they have.
    skWorld world(kGravity);
    const auto body = build(chain(2, 0));
    world.addSkeleton(body);
    const Eigen::MatrixXd mass = body->skeleton()->getMassMatrix();
    mlFlow flow{};
    mlFlow* device = nullptr;
    cudaMalloc(&device, sizeof flow);
    flow.startx = 100;
    cudaMemcpy(device, &flow, sizeof flow, cudaMemcpyHostToDevice);
    const SampleGrid away{device, 20, 20, 20, 1, kDx, kDensity};
    EXPECT_THAT(messageOf<std::runtime_error>([&] { world.stepSemiImplicit(away, kDt, kDx); }),
                HasSubstr("keep the body inside the grid"));
    EXPECT_EQ(body->skeleton()->getMassMatrix(), mass);
    EXPECT_EQ(world.getTime(), 0);
    cudaFree(device);
}

}  // namespace
}  // namespace drelt
