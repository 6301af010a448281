// One coupled run by the operators on host threads, and by both schedules on the device under test.
// DRELT_COMPARE_STEPS=N sets the number of steps and also runs the comparison without a GPU.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "driver/scene.h"
#include "support/fields.h"

namespace drelt {
namespace {

using Eigen::Vector3d;

// The result of a run: fields, force and torque of each link, joint positions.
struct Outcome {
    test::Fields fields;
    std::vector<Vector3d> forces, torques;
    Eigen::VectorXd positions;
};

// A swimmer of 48 nodes per length: a wave of velocity commands runs down its joints.
Outcome swim(int device, Schedule schedule, int steps) {
    const auto p = test::boxOf(96, 43, 53, 4, 2e-5f);
    p->N = 48;
    p->l0p = 0.2f;
    p->u0p = 0.5f;
    for (float* const size : {&p->width, &p->height, &p->depth}) *size *= 0.2f / 48 / 0.0025f;
    const auto body =
        test::bodyOf("swimmer_follow", 2000, Vector3d::Zero(), Vector3d::Zero(), device);
    const auto simulator = test::simulatorOf(p, body, Vector3d::Zero(), schedule);
    const double frequency = 25.0;  // [rad/s]
    Eigen::VectorXd rates(body->getNumDofs());
    for (int i = 0; i < steps; ++i) {
        for (Eigen::Index j = 0; j < rates.size(); ++j) {
            rates[j] = 2.0 * std::sin(frequency * i * simulator->solver->scale.dt - 0.7 * j);
        }
        body->setCommands(rates);
        simulator->step(TWO_WAY);
    }
    Outcome out;
    out.fields = test::fieldsOf(*simulator->solver);
    for (const skLinkData& link : body->links().link_data_host) {
        out.forces.push_back(link.force);
        out.torques.push_back(link.torque);
    }
    out.positions = body->getPositions();
    return out;
}

std::vector<float> momentum(const test::Fields& fields) {
    std::vector<float> all = fields.ux;
    all.insert(all.end(), fields.uy.begin(), fields.uy.end());
    all.insert(all.end(), fields.uz.begin(), fields.uz.end());
    return all;
}

// Size of a difference over the size of the first.
double relative(const std::vector<float>& a, const std::vector<float>& b) {
    double difference = 0, size = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference += std::pow(static_cast<double>(a[i]) - b[i], 2);
        size += std::pow(a[i], 2);
    }
    EXPECT_GT(size, 0.0);
    return std::sqrt(difference / size);
}

// Largest difference of a link's vectors over the largest of them.
double relative(const std::vector<Vector3d>& a, const std::vector<Vector3d>& b) {
    double difference = 0, size = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference = std::max(difference, (a[i] - b[i]).norm());
        size = std::max(size, a[i].norm());
    }
    EXPECT_GT(size, 0.0);
    return difference / size;
}

TEST(Devices, SwimAlike) {
    const char* const given = std::getenv("DRELT_COMPARE_STEPS");
    if (given == nullptr && !test::onGpu()) {
        GTEST_SKIP() << "compares a GPU with the host's threads; set DRELT_TEST_DEVICE to a GPU";
    }
    const int steps = given != nullptr ? std::atoi(given) : 100;
    const Outcome host = swim(platform::kHostDevice, Schedule::Operators, steps);
    for (const Schedule schedule : {Schedule::Operators, Schedule::Production}) {
        const std::string name = schedule == Schedule::Operators ? "operators " : "production ";
        const Outcome device = swim(test::device(), schedule, steps);
        const auto within = [&](const std::string& what, double difference, double allowed) {
            EXPECT_TRUE(difference <= allowed) << name << what << " differ by " << difference;
            testing::Test::RecordProperty(name + what, std::to_string(difference));
        };
        within("density", relative(host.fields.rou, device.fields.rou), 1e-4);
        // a last-bit change of the viscosity alone moves the momentum by about 5e-5 in 100 steps
        within("momentum", relative(momentum(host.fields), momentum(device.fields)), 1e-4);
        within("Sopt", relative(host.fields.Sopt, device.fields.Sopt), 1e-4);
        within("forces", relative(host.forces, device.forces), 1e-3);
        within("torques", relative(host.torques, device.torques), 1e-3);
        within("positions", (host.positions - device.positions).norm() / host.positions.norm(),
               1e-4);
    }
}

}  // namespace
}  // namespace drelt
