// Two bodies in one world: which one the grid follows, the order of hooks, files, and resets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/SimpleFrame.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/skLink.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "driver/scene.h"
#include "platform/runtime.h"
#include "simulatorInterface/FluidHelper.h"
#include "support/fields.h"

namespace drelt {
namespace {

namespace fs = std::filesystem;
using Eigen::Vector3d;

const std::string kSphere = "sphere_floating";
const std::string kSwimmer = "swimmer";

// The sphere stands in the origin, a swimmer 2.5 cm beside it.
std::shared_ptr<skSystem> body(const std::string& asset) {
    const double z = asset == kSphere ? 0 : -0.025;
    const int samples = asset == kSphere ? 500 : 4000;  // the fin's triangles are small
    return test::bodyOf(asset, samples, Vector3d::Zero(), Vector3d(0, 0, z));
}

// What differs from body to body in a step.
struct Call {
    std::string hook;
    int body;
    bool operator==(const Call& other) const { return hook == other.hook && body == other.body; }
};
std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << call.hook << " of body " << call.body;
}

template <class T>
std::vector<T> copyOf(const T* values, std::int64_t count) {
    return {values, values + count};
}

// In a box of 88 x 26 x 32 nodes: the swimmer, 80 nodes long, has room beside the sphere of 8 nodes.
class TwoBodies : public test::InFolder {
protected:
    TwoBodies() : InFolder(test::boxOf(88, 26, 32, 2, 1e-4f), Vector3d(0.5, 0.2, 0)) {}
    void commit(const std::string& first, const std::string& second) {
        InFolder::commit({body(first), body(second)});
    }
    skSystem& at(int i) { return *world->getSkeleton(i); }
    Vector3d frame(int i) { return at(i).movingFrame()->getWorldTransform().translation(); }
    Vector3d gridCentre() {
        const mlFlow device = test::fetched(sim->solver->lbm_dev_gpu.front());
        const MLFluidParam& grid = *sim->lbmvec.front()->param;
        return Vector3d(device.startx, device.starty, device.startz) +
               0.5 * Vector3d(grid.width, grid.height, grid.depth);
    }
    void run(int steps) {
        for (int i = 0; i < steps; ++i) sim->step(TWO_WAY);
    }
};

TEST_F(TwoBodies, BothMoveWithTheFluidAndTheGridFollowsTheFirst) {
    commit(kSphere, "swimmer_follow");
    const Vector3d start = frame(0);
    run(9);
    const Vector3d before = frame(0);
    run(1);
    EXPECT_LT((gridCentre() - before).norm(), 1e-7) << "where the sphere was as the step began";
    EXPECT_GT(before.x() - start.x(), 1e-5);
    EXPECT_GT((frame(1) - before).norm(), 0.02) << "the other body's frame is elsewhere";
    EXPECT_EQ(sim->solver->boundaries.size(), 2u);
    const double freeFall = world->getGravity().x() * world->getTime();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(at(i).getPositions().allFinite() && at(i).getVelocities().allFinite()) << i;
        const double speed = at(i).getCOMLinearVelocity().x();
        EXPECT_GT(speed, 1e-4) << "body " << i << " falls";
        EXPECT_LT(speed, 0.8 * freeFall) << "the fluid holds body " << i << " back";
        double exchanged = 0;
        for (const double force : test::sampleForces(at(i).sampler().boundaryMgr())) {
            exchanged += std::abs(force);
        }
        EXPECT_TRUE(std::isfinite(exchanged)) << i;
        EXPECT_GT(exchanged, 0) << "body " << i << " and the fluid push each other";
    }
    for (const float density : test::fieldsOf(*sim->solver).rou) {
        ASSERT_TRUE(density > 0.5f && density < 1.5f) << density;
    }
}

TEST_F(TwoBodies, AFirstBodyWithoutFrameHoldsTheGrid) {
    commit(kSwimmer, kSphere);
    const Vector3d centre = gridCentre();
    const double start = frame(1).x();
    run(3);
    EXPECT_GT(frame(1).x() - start, 1e-6) << "the sphere falls";
    EXPECT_EQ(gridCentre(), centre);
}

TEST_F(TwoBodies, HooksOfAllBodiesAreCalledStageByStage) {
    commit(kSphere, kSwimmer);
    const float dt = sim->solver->scale.dt;
    const float dx = sim->lbmvec.front()->param->dx;
    std::vector<Call> calls;
    const auto timeAt = [&](double steps) {
        EXPECT_NEAR(world->getTime(), steps * dt, 1e-9) << calls.back();
    };
    for (int i = 0; i < 2; ++i) {
        skSystem* const expected = &at(i);
        const auto record = [&, i, expected](const char* hook, const skSystem& given, float step) {
            calls.push_back({hook, i});
            EXPECT_EQ(&given, expected) << calls.back();
            EXPECT_EQ(step, dt) << calls.back();
        };
        for (const char* name : {"before", "before, added later"}) {
            expected->addBeforeStep([&, name, record](skSystem& given, float spacing, float step) {
                record(name, given, step);
                EXPECT_EQ(spacing, dx);
                timeAt(sim->getIterNum());
                double applied = 0;
                for (const auto* node : given.skeleton()->getBodyNodes()) {
                    applied += node->getExternalForceLocal().norm();
                }
                EXPECT_EQ(applied > 0, sim->getIterNum() > 0) << "fluid forces are applied first";
            });
        }
        expected->addAfterStep([&, record](skSystem& given, float step) {
            record("after", given, step);
            timeAt(sim->getIterNum() + 1);
        });
        expected->addBeforeUpdate([&, i, record](skSystem& given, float spacing, float step) {
            record("beforeUpdate", given, step);
            EXPECT_EQ(spacing, dx);
            const Vector3d link = given.getBaseLink()->getPosition();
            const Vector3d skinned = given.links().link_data_host[1].transform.translation();
            EXPECT_NE(link, skinned) << "records of body " << i << " are those before the step";
        });
    }
    const std::vector<Call> oneStep{{"before", 0},       {"before, added later", 0},
                                    {"before", 1},       {"before, added later", 1},
                                    {"after", 0},        {"after", 1},
                                    {"beforeUpdate", 0}, {"beforeUpdate", 1}};
    for (int i = 0; i < 3; ++i) {
        calls.clear();
        run(1);
        EXPECT_EQ(calls, oneStep) << "step " << i;
    }
}

TEST_F(TwoBodies, EachBodyWritesItsOwnFiles) {
    commit(kSphere, kSwimmer);
    run(1);
    sim->saveScene(7, BODY);
    const fs::path objects = folder / "Objects";
    const auto points = [&](const std::string& name) {
        std::ifstream file(objects / name);
        EXPECT_TRUE(file.is_open()) << name;
        for (std::string word; file >> word;) {
            std::size_t count = 0;
            if (word == "POINTS" && file >> count) return count;
        }
        return std::size_t{0};
    };
    std::ptrdiff_t files = 0;
    for (int i = 0; i < 2; ++i) {
        const std::string stem = std::to_string(i) + "_vis_object_00007.vtk";
        EXPECT_TRUE(fs::is_regular_file(objects / ("markers_" + stem)));
        const auto& meshes = at(i).description()->mesh->meshes;
        for (std::size_t j = 0; j < meshes.size(); ++j) {
            EXPECT_EQ(points(std::to_string(j) + stem), meshes[j]->data_cpu.curr_positions.size())
                << "mesh " << j << " of body " << i;
        }
        files += static_cast<std::ptrdiff_t>(meshes.size()) + 1;
    }
    EXPECT_EQ(files, 5) << "one mesh of the sphere, two of the swimmer";
    EXPECT_EQ(std::distance(fs::directory_iterator(objects), {}), files);
}

TEST_F(TwoBodies, ResetKeepsTheDeviceFieldsUntilTheNextFluidStep) {
    commit(kSphere, kSwimmer);
    const Eigen::VectorXd first[] = {at(0).getPositions(), at(1).getPositions()};
    const mlFlow& host = *sim->lbmvec.front();
    run(4);
    sim->saveScene(0, 0);
    const auto readOut = copyOf(host.rou, host.count);
    run(4);
    const auto fields = [&] {
        test::Fields now = test::fieldsOf(*sim->solver);
        now.Sopt.insert(now.Sopt.end(), now.rou.begin(), now.rou.end());
        return now.Sopt;
    };
    const std::vector<float> last = fields();
    EXPECT_GT(*std::max_element(last.begin(), last.begin() + host.count), 0) << "Sopt was written";
    const auto differs = [&](std::int64_t n) { return last[host.count + n] != readOut[n].value; };
    std::int64_t changed = 0;
    for (std::int64_t n = 0; n < host.count; ++n) changed += differs(n);
    ASSERT_GT(changed, host.count / 10) << "steps after the read-out moved the density on";

    sim->reset();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(at(i).getPositions(), first[i]) << i;
        EXPECT_TRUE(at(i).getVelocities().isZero(0)) << i;
    }
    FluidHelper::populationsToHost(*sim->solver, 0);
    for (std::int64_t n = 0; n < host.count; ++n) {
        ASSERT_EQ(host.rou[n].value, readOut[n].value);
        ASSERT_TRUE(host.ux[n] == 0 && host.uy[n] == 0 && host.uz[n] == 0);
        for (int i = 0; i < kDirections; ++i) {
            const float atRest = w_cas1[i] * readOut[n].value;
            ASSERT_EQ(host.f[i * host.count + n], atRest);
            ASSERT_EQ(host.fPost[i * host.count + n], atRest);
        }
    }
    EXPECT_TRUE(fields() == last) << "the device keeps both";
    sim->step(NO_FLUID);
    EXPECT_TRUE(fields() == last) << "a step without fluid leaves them";
    run(1);
    const std::vector<float> next = fields();
    EXPECT_FALSE(std::equal(next.begin(), next.begin() + host.count, last.begin())) << "Sopt";
    EXPECT_FALSE(std::equal(next.begin() + host.count, next.end(), last.begin() + host.count));
}

}  // namespace
}  // namespace drelt
