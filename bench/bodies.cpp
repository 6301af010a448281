// A body's share of a time step: the update of skin, samples and link records, and a step of the dynamics
// without fluid, for a tube that is skinned to a chain of links.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <dart/dynamics/Skeleton.hpp>
#include <memory>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skWorld.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "platform/runtime.h"
#include "setup.h"
#include "support/skinned_mesh.h"

namespace drelt::bench {
namespace {

using Eigen::Vector3d;
constexpr double kLinkLength = 0.2;  // [m]
constexpr double kTubeRadius = 0.05;
constexpr float kTimeStep = 1e-3f;  // [s]
constexpr float kSpacing = 0.01f;   // [m]

// Weights of a vertex at x: linear between the centres of the two nearest links.
Eigen::VectorXd chainWeights(double x, int links) {
    const double place = std::clamp(x / kLinkLength - 0.5, 0.0, links - 1.0);
    const int first = std::min(static_cast<int>(place), links - 2);
    Eigen::VectorXd weights = Eigen::VectorXd::Zero(links);
    weights[first] = 1 - (place - first);
    weights[first + 1] = place - first;
    return weights;
}

void addTube(host_MeshData& data, int links, int rings, int sides) {
    constexpr double kTurn = 6.283185307179586;
    for (int r = 0; r < rings; ++r) {
        const double x = links * kLinkLength * r / (rings - 1);
        for (int s = 0; s < sides; ++s) {
            const double angle = kTurn * s / sides;
            const Vector3d out(0, std::cos(angle), std::sin(angle));
            data.init_positions.emplace_back(Vector3d(x, 0, 0) + kTubeRadius * out);
            data.init_normals.push_back(out);
            data.weights.push_back(chainWeights(x, links));
            if (r + 1 == rings) continue;
            const int a = r * sides + s;
            const int b = r * sides + (s + 1) % sides;
            data.faces.push_back({0, {a, b, a + sides}, 0});
            data.faces.push_back({0, {b, b + sides, a + sides}, 0});
        }
    }
}

// A tube of rings x sides vertices around a chain of links, with one sample per four vertices.
std::shared_ptr<skSystem> makeBody(int links, int rings, int sides) {
    const auto fill = [&](host_MeshData& data, const nodeMgr&) {
        addTube(data, links, rings, sides);
    };
    const int device = setup().device;
    const auto mesh = test::makeSkinned(test::chainNodes(links), 1, links, device, fill);
    return std::make_shared<skSystem>(test::withoutLimits(mesh, device), rings * sides / 4, device,
                                      Vector3d::Zero(), Vector3d::Zero());
}

void countSizes(benchmark::State& state, const skSystem& body) {
    state.counters["vertices"] = static_cast<double>(
        body.description()->mesh->meshes.front()->data_cpu.init_positions.size());
    state.counters["samples"] = body.sampler().sampleCount();
    state.counters["links"] = static_cast<double>(body.description()->links.size());
}

void updateBody(benchmark::State& state, int links, int rings, int sides, int threads) {
    const auto body = makeBody(links, rings, sides);
    Eigen::VectorXd positions = body->getPositions();
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    for (auto _ : state) {
        // A new pose, as after a step. For an old one, DART would use its cached link transforms.
        positions[positions.size() - 1] += 1e-6;
        positions[0] += 1e-6;
        body->skeleton()->setPositions(positions);
        body->update();
    }
    omp_set_num_threads(before);
    countSizes(state, *body);
}

void stepWithoutFluid(benchmark::State& state) {
    const auto body = makeBody(40, 100, 50);
    skWorld world(Vector3d(0, -9.8, 0));
    world.addSkeleton(body);
    for (auto _ : state) world.step(NO_FLUID, kTimeStep, kSpacing);
    countSizes(state, *body);
}

void addUpdates(int links, int rings, int sides) {
    const auto add = [&](const std::string& name, int threads) {
        benchmark::RegisterBenchmark(
            name.c_str(),
            [=](benchmark::State& state) { updateBody(state, links, rings, sides, threads); })
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
    };
    forEachThreads(
        "updateBody/links:" + std::to_string(links) + "/vertices:" + std::to_string(rings * sides),
        add);
}

const bool registered = onSetup([] {
    for (const int links : {8, 40}) {
        addUpdates(links, 100, 50);
        addUpdates(links, 500, 100);
    }
    benchmark::RegisterBenchmark("stepWithoutFluid/links:40/vertices:5000", stepWithoutFluid)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
});

}  // namespace
}  // namespace drelt::bench
