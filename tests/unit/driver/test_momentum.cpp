// Bodies and fluid together keep their momentum, linear and angular.
#include <gtest/gtest.h>

#include <cmath>
#include <dart/dynamics/Skeleton.hpp>
#include <string>
#include <vector>

#include "SkeletonDynamics/skJointMgr.h"
#include "bodies/rig.h"
#include "driver/scene.h"
#include "support/fields.h"
#include "support/step_ledger.h"

namespace drelt {
namespace {

using Eigen::Vector3d;

constexpr int kServo = 2;  // actuator

// An ellipsoid of 10 x 6 x 5 nodes. Its bone starts beside its centre.
void addEllipsoid(host_MeshData& data, const nodeMgr&) {
    constexpr int kRings = 12, kSpokes = 24;
    const Vector3d axes(0.0125, 0.0075, 0.00625), centre(0.004, 0, 0);
    for (int ring = 0; ring <= kRings; ++ring) {
        for (int spoke = 0; spoke < kSpokes; ++spoke) {
            const double a = M_PI * ring / kRings, b = 2 * M_PI * spoke / kSpokes;
            const Vector3d out(std::cos(a), std::sin(a) * std::cos(b), std::sin(a) * std::sin(b));
            data.init_positions.emplace_back(centre + axes.cwiseProduct(out));
            data.init_normals.push_back(out);
            data.weights.emplace_back(Eigen::VectorXd::Ones(1));
            if (ring == kRings) continue;
            const int here = ring * kSpokes + spoke;
            const int next = ring * kSpokes + (spoke + 1) % kSpokes;
            data.faces.push_back({0, {here, here + kSpokes, next}, 0});
            data.faces.push_back({0, {next, here + kSpokes, next + kSpokes}, 0});
        }
    }
}

// Boxes of 4 nodes, one a link.
void addBoxes(host_MeshData& data, const nodeMgr& nodes) {
    for (int bone = 0; bone < 3; ++bone) {
        const Vector3d start = nodes.nodes[bone + 1]->worldTransform.translation();
        test::addBox(data, start + Vector3d(0.01, 0, 0), 0.01, bone, 3);
    }
}

// A body of links 0.02 m long, each with the given mass [kg].
template <class Fill>
std::shared_ptr<SkeletonSystem> jointed(int links, double mass, const Vector3d& size, Fill&& fill) {
    auto nodes = test::chainNodes(links);
    for (test::RigNode& node : nodes) node.position *= 0.1;
    auto description = test::withoutLimits(test::makeSkinned(nodes, 1, links, test::device(), fill),
                                           test::device());
    for (const auto& link : description->links) {
        link->mass = mass;
        link->size = size;
    }
    return description;
}

std::shared_ptr<SkeletonSystem> bodyNamed(const std::string& name) {
    if (name == "ellipsoid") return jointed(1, 5e-4, {0.025, 0.015, 0.0125}, addEllipsoid);
    if (name == "chain") {
        auto chain = jointed(3, 3e-4, {0.02, 0.01, 0.01}, addBoxes);
        chain->jointsByName.at("bone_1")->actuator = kServo;
        return chain;
    }
    auto sphere = skeletonFromJson("assets/sphere_floating.json", test::device());
    for (const auto& link : sphere->links) link->mass *= 0.2;
    sphere->baseFrameName.clear();  // the grid stays
    return sphere;
}

// Linear and angular momentum of all fluid about the world's origin [N s, N m s].
std::pair<Vector3d, Vector3d> fluidMomentum(const coupledLBM_sim3D& sim) {
    const mlFlow& flow = *sim.lbmvec.front();
    const mlUnitScale& scale = sim.solver->scale;
    const double dx = flow.param->dx;
    const Vector3d start(flow.startx, flow.starty, flow.startz);
    const test::Fields fields = test::fieldsOf(*sim.solver);
    Vector3d linear = Vector3d::Zero(), angular = Vector3d::Zero();
    for (std::size_t n = 0; n < fields.ux.size(); ++n) {
        const auto nx = static_cast<std::size_t>(flow.param->samples_x);
        const auto ny = static_cast<std::size_t>(flow.param->samples_y);
        const Vector3d node(static_cast<double>(n % nx), static_cast<double>(n / nx % ny),
                            static_cast<double>(n / nx / ny));
        const Vector3d momentum(fields.ux[n], fields.uy[n], fields.uz[n]);
        linear += momentum;
        angular += (start + dx * node).cross(momentum);
    }
    const double unit = static_cast<double>(scale.rou0p) * dx * dx * dx *
                        static_cast<double>(scale.u0px / scale.u0k);
    return {unit * linear, unit * angular};
}

// What the links take, the fluid gives, until the disturbance has reached the open planes: a node a step.
TEST(Momentum, OfBodiesAndFluidStays) {
    constexpr int kSteps = 11;
    const Vector3d gravity(0.3, -0.5, 0.2);
    for (const char* const name : {"sphere", "ellipsoid", "chain"}) {
        for (const ForcingWeights weights : {ForcingWeights::Area, ForcingWeights::Normalised}) {
            SCOPED_TRACE(std::string(name) +
                         (weights == ForcingWeights::Area ? "" : " normalised"));
            const bool chain = name[0] == 'c';
            const auto box = chain ? test::boxOf(56, 38, 38) : test::boxOf(44, 44, 44);
            box->coupling = Coupling::SemiImplicit;
            box->weights = weights;
            testing::internal::CaptureStdout();
            const auto body = std::make_shared<skSystem>(
                bodyNamed(name), 400, test::device(), Vector3d(chain ? -0.03 : 0, 0, 0),
                chain ? Vector3d(20, 0, 0) : Vector3d(10, 20, 30));
            testing::internal::GetCapturedStdout();
            const auto sim = test::simulatorOf(box, body, gravity);
            Eigen::VectorXd velocities =
                Eigen::VectorXd::Constant(body->getVelocities().size(), 2.0);
            velocities.head<6>() << 6, -5, 7, 0.06, 0.04, -0.03;
            body->skeleton()->setVelocities(velocities);
            body->update();
            const mlUnitScale& scale = sim->solver->scale;
            Vector3d taken = Vector3d::Zero(), turned = taken;
            for (int i = 0; i < kSteps; ++i) {
                if (body->getNumDofs() > 0)
                    body->setCommands(Eigen::VectorXd::Constant(body->getNumDofs(), 3.0));
                const test::StepLedger ledger(*body);
                sim->step(TWO_WAY);
                const auto residual = ledger.after(scale.dt, scale.l0p / scale.N, gravity);
                ASSERT_LT(residual.force, 1e-6) << i;
                ASSERT_LT(residual.moment, 1e-6) << i;
                taken += residual.impulse;
                turned += residual.turningImpulse;
            }
            const auto [linear, angular] = fluidMomentum(*sim);
            EXPECT_GT(linear.norm(), 1e-6);
            EXPECT_LT((linear + taken).norm(), 1e-5 * linear.norm());
            // The populations' rounding at an arm of 20 nodes comes close to 1e-5 here.
            EXPECT_LT((angular + turned).norm(), 2e-5 * angular.norm());
            RecordProperty(
                std::string(name) + (weights == ForcingWeights::Area ? "" : "_normalised"),
                std::to_string(1e6 * (linear + taken).norm() / linear.norm()) + " " +
                    std::to_string(1e6 * (angular + turned).norm() / angular.norm()));
        }
    }
}

}  // namespace
}  // namespace drelt
