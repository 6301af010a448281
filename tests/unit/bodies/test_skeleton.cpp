// Live bodies: joints, limits, placement, base axes, state, and what a script can ask wrongly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <functional>
#include <limits>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skWorld.h"
#include "bodies/rig.h"

namespace drelt {
namespace {

using test::makeChain;
using test::messageOf;
using testing::HasSubstr;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const Eigen::Vector3d kZero = Eigen::Vector3d::Zero();

std::shared_ptr<skSystem> build(const std::shared_ptr<SkeletonSystem>& description,
                                const Eigen::Vector3d& translation = kZero,
                                const Eigen::Vector3d& rotation = kZero) {
    return std::make_shared<skSystem>(description, 200, test::device(), translation, rotation);
}

TEST(Skeleton, LinksJointsAndMassesOfAChain) {
    auto description = makeChain(3);
    description->links[1]->mass = 0.25;
    description->links[1]->name = "renamed";
    const auto body = build(description);
    ASSERT_EQ(body->links().count(), 5);
    EXPECT_EQ(body->links().links[0]->getName(), "World");
    EXPECT_EQ(body->links().links[4]->getName(), "simple_frame");
    EXPECT_EQ(body->worldLinkIndex(), 0);
    EXPECT_EQ(body->frameLinkIndex(), 4);
    EXPECT_EQ(body->skeleton()->getName(), "rig");
    EXPECT_EQ(body->joints().joints.size(), 3u);  // the leaf joint makes nothing
    EXPECT_EQ(body->getJoint("end"), nullptr);
    EXPECT_EQ(body->getLink("[link]bone_1"), nullptr);
    EXPECT_EQ(body->getJoint("bone_0")->getJointType(), "floating");
    EXPECT_EQ(body->getJoint("bone_0")->getNumDofs(), 6);
    const auto link = body->getLink("renamed");
    EXPECT_EQ(link->getMass(), 0.25);
    EXPECT_TRUE(link->getPosition().isApprox(Eigen::Vector3d(0.3, 0, 0), 1e-7));
    // half-axes (L, 0.02, 0.02) / 2 of an ellipsoid: I_xx = m (b^2 + c^2) / 5
    const double lateral = 0.01 * 0.01;
    const double axial = 0.1 * 0.1;
    const auto moment = link->body()->getInertia().getMoment();
    EXPECT_NEAR(moment(0, 0), 0.25 * 2 * lateral / 5, 1e-12);
    EXPECT_NEAR(moment(1, 1), 0.25 * (axial + lateral) / 5, 1e-12);
    EXPECT_TRUE(link->body()->getLocalCOM().isZero());
}

TEST(Skeleton, LimitsSpringsAndRestPositions) {
    struct Case {
        bool useLimits;
        double lower, upper, rest;
    };
    const Case cases[] = {{true, 0.1, 0.5, 0.3},          {true, -0.1, 0.5, 0},
                          {true, -0.5, -0.25, -0.375},    {true, 0.1, kInfinity, 0.1},
                          {true, -kInfinity, -0.2, -0.2}, {false, 0.1, 0.5, 0}};
    for (const Case& c : cases) {
        auto description = makeChain(2);
        SkeletonJoint& joint = *description->jointsByName.at("bone_1");
        joint.useLimits = c.useLimits;
        joint.useDynamcis = c.useLimits;
        joint.lower = c.lower;
        joint.upper = c.upper;
        joint.velocity = 3;
        joint.effort = 4;
        joint.damping = 5;
        joint.friction = 6;
        joint.springStiffness = 7;
        const auto body = build(description);
        const dart::dynamics::Joint& live = *body->getJoint("bone_1")->joint();
        EXPECT_EQ(live.getPositionLowerLimit(0), c.useLimits ? c.lower : -kInfinity);
        EXPECT_EQ(live.getVelocityUpperLimit(0), c.useLimits ? 3 : kInfinity);
        EXPECT_EQ(live.getForceLowerLimit(0), c.useLimits ? -4 : -kInfinity);
        EXPECT_EQ(live.getDampingCoefficient(0), c.useLimits ? 5 : 0);
        EXPECT_EQ(live.getCoulombFriction(0), c.useLimits ? 6 : 0);
        EXPECT_EQ(live.getSpringStiffness(0), 7);
        EXPECT_DOUBLE_EQ(live.getRestPosition(0), c.rest);
        EXPECT_DOUBLE_EQ(live.getPosition(0), c.rest);
        EXPECT_EQ(live.areLimitsEnforced(), c.useLimits);
    }
}

TEST(Skeleton, EveryJointType) {
    const char* const dartTypes[] = {
        "",          "RevoluteJoint", "RevoluteJoint", "PrismaticJoint",
        "WeldJoint", "FreeJoint",     "PlanarJoint"};
    const int dofs[] = {0, 1, 1, 1, 0, 6, 3};
    for (int type = 1; type < kJointTypeCount; ++type) {
        auto description = makeChain(2);
        description->jointsByName.at("bone_1")->type = type;
        const auto body = build(description);
        const auto joint = body->getJoint("bone_1");
        EXPECT_EQ(joint->joint()->getType(), dartTypes[type]);
        EXPECT_EQ(joint->getJointType(), kJointTypeWords[type]);
        EXPECT_EQ(joint->getNumDofs(), dofs[type]);
        EXPECT_EQ(joint->joint()->getName(), "bone_1");
    }
}

TEST(Skeleton, UnsupportedJointIsLeftOutAndItsChildrenStartATree) {
    auto description = makeChain(3);
    description->jointsByName.at("bone_1")->type = 0;
    testing::internal::CaptureStderr();
    const auto body = build(description);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text,
                HasSubstr("[DartLoader::createDartJoint] Unsupported joint type (invalid)\n"));
    EXPECT_THAT(text, HasSubstr("Conver to default joint Typebone_1\n"));
    EXPECT_EQ(body->getJoint("bone_1"), nullptr);
    EXPECT_EQ(body->skeleton()->getNumTrees(), 2u);
    EXPECT_EQ(body->getJoint("bone_2")->joint()->getParentBodyNode(), nullptr);
}

TEST(Skeleton, RootWithoutChildrenMakesNoBody) {
    auto description = std::make_shared<SkeletonSystem>(
        test::makeRig({{"scene", -1, kZero}, {"bone", 0, kZero}}, 1, 1), test::device());
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const auto body = std::make_shared<skSystem>(description, 3, test::device(), kZero, kZero);
    skWorld world;
    world.addSkeleton(body);
    world.step(0, 1e-3f, 1e-2f);
    world.reset();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("s\n"));  // a face without link
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("'bone' has no child joint"));
    EXPECT_EQ(body->links().count(), 2);
    // DART would end the process
    for (const auto& read : std::vector<std::function<void()>>{
             [&] { body->getCOM(); }, [&] { body->getCOMLinearVelocity(); },
             [&] { body->getCOMAngularVelocity(); }}) {
        EXPECT_THAT(messageOf<std::logic_error>(read), HasSubstr("'rig' has no mass"));
    }
    EXPECT_EQ(body->getVelocities(false).size(), 0);
}

TEST(Skeleton, MimicJointsAreTiedToTheirMaster) {
    auto description = makeChain(3);
    SkeletonJoint& follower = *description->jointsByName.at("bone_2");
    follower.actuator = 3;
    follower.mimicJoint = "bone_1";
    follower.multiplier = 2;
    follower.offset = 0.5;
    description->jointsByName.at("bone_1")->actuator = 2;
    const auto body = build(description);
    const auto* live = body->getJoint("bone_2")->joint();
    EXPECT_EQ(live->getMimicJoint(), body->getJoint("bone_1")->joint());
    EXPECT_EQ(live->getMimicMultiplier(), 2);
    EXPECT_EQ(live->getMimicOffset(), 0.5);
    // passive root and mimic joint are not actuated
    EXPECT_EQ(body->getNumDofs(), 1);
    body->setCommands(Eigen::VectorXd::Constant(1, 0.125));
    EXPECT_EQ(body->getCommands()[0], 0.125);
    EXPECT_EQ(body->skeleton()->getCommand(6), 0.125);

    follower.mimicJoint = "ghost";
    const auto message = messageOf<std::invalid_argument>([&] { build(description); });
    EXPECT_THAT(message, HasSubstr("'bone_2' mimics the joint 'ghost'"));
    follower.mimicJoint = "bone_2";
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { build(description); }),
                HasSubstr("'bone_2' mimics itself"));
    follower.mimicJoint = "bone_1";
    for (const auto& [type, dofs] : {std::pair{6, "3 degrees"}, {4, "0 degrees"}}) {
        follower.type = type;
        EXPECT_THAT(
            messageOf<std::invalid_argument>([&] { build(description); }),
            HasSubstr(dofs + std::string(" of freedom cannot mimic 'bone_1', which has 1")));
    }
}

// Numbers that mean nothing; DART would end the process on most of them, some in the first step only.
TEST(Skeleton, BodiesThatCannotBeAreRefused) {
    using Change = void (*)(SkeletonJoint&, SkeletonLink&);
    const std::vector<std::pair<const char*, Change>> cases{
        {"mass of", [](auto&, auto& link) { link.mass = kInfinity; }},
        {"mass of", [](auto&, auto& link) { link.mass = 1e300; }},
        {"radius", [](auto&, auto& link) { link.radius = 0; }},
        {"size", [](auto&, auto& link) { link.size.y() = 0; }},
        {"size", [](auto&, auto& link) { link.size.y() = 1e200; }},
        {"axis", [](auto& joint, auto&) { joint.axis.setZero(); }},
        {"springStiffness", [](auto& joint, auto&) { joint.springStiffness = -1; }},
        {"springStiffness", [](auto& joint, auto&) { joint.springStiffness = 1e308; }},
        {"damping", [](auto& joint, auto&) { joint.damping = 1e308; }},
        {"friction", [](auto& joint, auto&) { joint.friction = kInfinity; }},
        {"mimic multiplier and offset",
         [](auto& joint, auto&) {
             joint.mimicJoint = "bone_0";
             joint.multiplier = 1e160;
         }},
        {"mimic multiplier and offset",
         [](auto& joint, auto&) {
             joint.mimicJoint = "bone_0";
             joint.offset = -1e300;
         }},
        {"damping", [](auto& joint, auto&) { joint.damping = -1; }},
        {"friction", [](auto& joint, auto&) { joint.friction = -1; }},
        {"effort limit", [](auto& joint, auto&) { joint.effort = -1; }},
        {"velocity limit", [](auto& joint, auto&) { joint.velocity = -1; }},
        {"limits of the joint 'bone_1': got (1 0)", [](auto& joint, auto&) { joint.lower = 1; }},
        {"limits", [](auto& joint, auto&) { joint.lower = joint.upper = 1e308; }},
    };
    for (const auto& [part, change] : cases) {
        auto description = makeChain(2);
        SkeletonJoint& joint = *description->jointsByName.at("bone_1");
        joint.useLimits = joint.useDynamcis = true;
        change(joint, *description->linksByJoint.at("bone_1"));
        EXPECT_THAT(messageOf<std::invalid_argument>([&] { build(description); }),
                    HasSubstr(std::string("the description's ") + part));
    }
    auto description = makeChain(2);  // a link without mass is held by what hangs on it
    description->links.front()->mass = 0;
    EXPECT_EQ(build(description)->links().links[1]->getMass(), 0);
    description = makeChain(2);  // and one that is led needs none
    description->jointsByName.at("bone_1")->actuator = 5;
    description->linksByJoint.at("bone_1")->mass = 0;
    EXPECT_EQ(build(description)->links().links[2]->getMass(), 0);
}

// Of a servo with several DOFs, DART wants a response that is symmetric in absolute terms.
TEST(Skeleton, ServosThatMoveTooLightLinksAreRefused) {
    const auto floating = [](double mass) {
        auto description = makeChain(3);
        for (int i = 0; i < 3; ++i) {
            SkeletonJoint& joint = *description->jointsByName.at("bone_" + std::to_string(i));
            joint.type = 5;
            joint.actuator = 2;
            description->links[i]->mass = mass;
        }
        return description;
    };
    EXPECT_THAT(messageOf<std::runtime_error>([&] { build(floating(1e-9)); }),
                testing::AllOf(HasSubstr("the joint 'bone_"), HasSubstr("type 'floating'"),
                               HasSubstr("actuator 'servo'")));
    const auto body = build(floating(1));
    skWorld world({0, -9.81, 0});
    world.addSkeleton(body);
    for (int n = 0; n < 20; ++n) {
        body->setCommands(Eigen::VectorXd::Constant(18, 0.1));
        world.requireBoundedMotion(0, 1e-3, 1e-2);
        world.step(2, 1e-3f, 1e-2f);
    }
    EXPECT_TRUE(body->getVelocities().allFinite());
}

TEST(Skeleton, ForcesActOnForceActuatorsOnly) {
    auto description = makeChain(2);
    description->mesh->filePath = "forced rig";  // the warning comes once per name
    description->jointsByName.at("bone_1")->actuator = 0;
    const auto body = build(description);
    const auto warned = [&](const Eigen::VectorXd& forces) {
        testing::internal::CaptureStderr();
        body->setForces(forces);
        return testing::internal::GetCapturedStderr();
    };
    Eigen::VectorXd forces = Eigen::VectorXd::Zero(7);
    forces[6] = 1e-3;
    EXPECT_EQ(warned(forces), "");
    forces.setConstant(1e-3);
    EXPECT_THAT(warned(forces), HasSubstr("ignore them: 'bone_0' (passive)."));
    EXPECT_EQ(warned(forces), "");
    skWorld world;
    world.addSkeleton(body);
    forces[6] = 0;
    body->setForces(forces);
    world.step(2, 1e-3f, 1e-2f);
    EXPECT_TRUE(body->getVelocities().isZero(0));
    forces[6] = 1e-3;
    body->setForces(forces);
    world.step(2, 1e-3f, 1e-2f);
    EXPECT_GT(body->getVelocities()[6], 0);
}

TEST(Skeleton, PlacementTurnsAndMovesTheWholeBody) {
    const auto body = build(makeChain(2), {1, 2, 3}, {0, 0, 90});
    // 90 degrees are converted with 3.1415: a little less than a quarter turn
    const double angle = 90.0 / 180 * 3.1415;
    const Eigen::Vector3d along(std::cos(angle), std::sin(angle), 0);
    EXPECT_TRUE(body->getBaseLinkFwd().isApprox(along, 1e-7));
    EXPECT_TRUE(body->getBaseLinkUp().isApprox(Eigen::Vector3d(-along.y(), along.x(), 0), 1e-7));
    EXPECT_TRUE(body->getBaseLinkRight().isApprox(Eigen::Vector3d::UnitZ(), 1e-7));
    const Eigen::Vector3d middle = Eigen::Vector3d(1, 2, 3) + 0.3 * along;
    EXPECT_TRUE(body->getLink("[link]bone_1")->getPosition().isApprox(middle, 1e-6));
    // the pose is the joints' zero
    EXPECT_TRUE(body->getPositions().isZero());
    // skin and samples went along
    body->sampler().copyToHost();
    Eigen::Vector3d mean = kZero;
    const mlLagrangeBoundary& samples = *body->sampler().boundary();
    for (int i = 0; i < samples.count; ++i) {
        mean += Eigen::Vector3d(samples.coordx[i], samples.coordy[i], samples.coordz[i]);
    }
    mean /= samples.count;
    EXPECT_LT((mean - Eigen::Vector3d(1, 2, 3) - 0.2 * along).norm(), 0.01);
}

TEST(Skeleton, FacesBelongToTheNearestLinkThatIsNotIntermediate) {
    auto description = makeChain(3);
    description->links[1]->isIntermediate = true;
    const auto body = build(description);
    const host_MeshData& data = description->mesh->meshes[0]->data_cpu;
    std::vector<int> counts(body->links().links.size());
    for (const MeshFace& face : data.faces) ++counts[face.linkId];
    EXPECT_EQ(counts[0], 0);
    EXPECT_EQ(counts[2], 0);
    EXPECT_EQ(counts[1] + counts[3], 36);
    for (int k = 0; k < 12; ++k) EXPECT_EQ(data.faces[k].linkId, 1);
}

TEST(Skeleton, SetHeadPointsTheBodyAlongADirection) {
    const Eigen::Vector3d targets[] = {{2, 0, 0}, {-1, 0, 0}, {0, 0, 3}, {1, -2, 0.5}};
    for (const Eigen::Vector3d& target : targets) {
        const auto body = build(makeChain(2));
        body->setHead({5, 6, 7}, target);
        EXPECT_TRUE(body->getBaseLinkFwd().isApprox(target.normalized(), 1e-6));
        const Eigen::Vector3d middle = Eigen::Vector3d(5, 6, 7) + 0.1 * target.normalized();
        EXPECT_TRUE(body->getBaseLink()->getPosition().isApprox(middle, 1e-6));
        EXPECT_TRUE(body->getPositions().isZero());
    }
    // a direction without length only moves the body
    const auto body = build(makeChain(2));
    body->setHead({0, 1, 0}, kZero);
    EXPECT_TRUE(body->getBaseLinkFwd().isApprox(Eigen::Vector3d::UnitX(), 1e-6));
    EXPECT_NEAR(body->getBaseLink()->getPosition().y(), 1, 1e-9);
}

TEST(Skeleton, VelocitiesWithAndWithoutTheBase) {
    const auto body = build(makeChain(3));
    Eigen::VectorXd velocities(8);
    velocities << 0.1, 0.2, 0.3, 4, 5, 6, 7, 8;
    body->skeleton()->setVelocities(velocities);
    EXPECT_EQ(body->getVelocities(), velocities);
    EXPECT_EQ(body->getVelocities(false), velocities.tail(2));
    EXPECT_EQ(body->getPositions(false).size(), 2);
    // the free joint's linear part, at the root's node, in axes parallel to the world's
    const auto base = body->getBaseLink();
    EXPECT_TRUE(base->getVelocityAt(kZero).isApprox(Eigen::Vector3d(4, 5, 6), 1e-9));
    EXPECT_TRUE(base->getAngularVelocity().isApprox(Eigen::Vector3d(0.1, 0.2, 0.3), 1e-9));
    EXPECT_TRUE(body->getCOMLinearVelocity().isApprox(body->getCOMAngularVelocity(), 1e-9));
}

TEST(Skeleton, BadInputsByMessage) {
    auto description = makeChain(2);
    description->baseLinkName = "nose";
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { build(description); }),
                testing::AllOf(HasSubstr("base link 'nose'"), HasSubstr("'[link]bone_0'")));
    EXPECT_EQ(description->markers, nullptr);  // nothing was changed
    description->baseLinkName.clear();
    description->baseFrameName = "tail";
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { build(description); }),
                HasSubstr("base frame 'tail'"));
    description->baseFrameName.clear();
    EXPECT_THAT(messageOf<std::invalid_argument>(
                    [&] { skSystem(description, -1, test::device(), kZero, kZero); }),
                HasSubstr("is -1; it must be 0 or more"));
    EXPECT_THAT(messageOf<std::invalid_argument>(
                    [&] { skSystem(description, 2000000000, test::device(), kZero, kZero); }),
                HasSubstr("more than memory allows"));
    const auto twins = makeChain(3);
    twins->links[1]->name = twins->links[0]->name;
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { build(twins); }),
                HasSubstr("is empty, taken or reserved"));
    EXPECT_THAT(
        messageOf<std::invalid_argument>([&] { skSystem(description, 1, 0, kZero, kZero); }),
        HasSubstr("lives on device -1"));
    EXPECT_THAT(messageOf<std::runtime_error>(
                    [] { build(std::make_shared<SkeletonSystem>("nowhere.glb", test::device())); }),
                HasSubstr("'nowhere.glb' has no joints"));

    const auto body = build(description);
    EXPECT_EQ(body->getBaseLink(), nullptr);
    EXPECT_EQ(body->getBaseLinkRight(), Eigen::Vector3d::UnitZ());
    EXPECT_EQ(body->getLink("nobody"), nullptr);
    const Eigen::VectorXd nine = Eigen::VectorXd::Zero(9);
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { body->setForces(nine); }),
                HasSubstr("got 9 values, needed 7"));
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { body->setCommands(nine); }),
                HasSubstr("got 9 values, needed 0"));
    EXPECT_THAT(messageOf<std::invalid_argument>([&] { body->sample(-2); }), HasSubstr("-2"));
    skJoint& joint = *body->getJoint("bone_1");
    for (const auto& set : {&skJoint::setCommand, &skJoint::setForce, &skJoint::setPositions}) {
        EXPECT_THAT(messageOf<std::invalid_argument>([&] { (joint.*set)(nine); }),
                    HasSubstr("joint 'bone_1': got 9 values, needed 1"));
    }
    for (const auto& set :
         {&skJoint::setPosition, &skJoint::setVelocity, &skJoint::setAcceleration}) {
        EXPECT_THAT(messageOf<std::out_of_range>([&] { (joint.*set)(1, 0.0); }),
                    HasSubstr("none with index 1"));
        EXPECT_THROW((joint.*set)(-1, 0.0), std::out_of_range);
    }
    EXPECT_THAT(messageOf<std::logic_error>([&] { body->getLink("World")->getMass(); }),
                HasSubstr("frame without a body"));

    testing::internal::CaptureStdout();
    build(description);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("[warning] a second skeleton"));
}

TEST(Skeleton, LinksAndJointsOutliveTheirOwner) {
    auto body = build(makeChain(2), {1, 0, 0});
    const auto link = body->getLink("[link]bone_0");
    const auto frame = body->getLink("simple_frame");
    const auto joint = body->getJoint("bone_1");
    body.reset();
    joint->setVelocity(0, 2.0);
    EXPECT_EQ(joint->getVelocities()[0], 2.0);
    EXPECT_EQ(joint->getJointType(), "revolute");
    EXPECT_NEAR(link->getPosition().x(), 1.1, 1e-7);
    EXPECT_NEAR(frame->getPosition().x(), 0.0, 1e-9);
}

}  // namespace
}  // namespace drelt
