// The whole coupled step of a falling sphere, the memory of a scene, and the time to sample a surface. Run
// it from the repository's root, which holds the assets.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/SkeletalMesh.h"
#include "bandwidth.h"
#include "bench_flow.h"
#include "falling_sphere.h"
#include "platform/runtime.h"
#include "rows.h"
#include "setup.h"

namespace drelt::bench {
namespace {

void wholeStep(benchmark::State& state, const Grid& grid, int samples, Schedule schedule,
               int threads) try {
    releaseBenchFlow();
    const int before = omp_get_max_threads();
    const double empty = residentBytes();
    const std::size_t others = platform::deviceBytesInUse();
    const auto simulator = fallingSphere(grid, samples, schedule);
    simulator->step(TWO_WAY);
    const auto nodes = static_cast<double>(simulator->lbmvec.front()->count);
    state.counters["resident_B"] = (residentBytes() - empty) / nodes;
    omp_set_num_threads(threads);
    double steps = 0;
    const double start = omp_get_wtime();
    for (auto _ : state) {
        simulator->step(TWO_WAY);
        ++steps;
    }
    const double rate = steps * nodes * 1e-6 / (omp_get_wtime() - start);
    omp_set_num_threads(before);
    state.counters["MLUPS"] = rate;
    if (setup().onHost) return;
    state.counters["device_B"] = static_cast<double>(platform::deviceBytesInUse() - others) / nodes;
    const double bytes = schedule == Schedule::Operators ? kStepBytes : kProductionBytes;
    state.counters["moved_B"] = bytes;
    state.counters["GB/s"] = rate * bytes * 1e-3;
    state.counters["share"] = rate * bytes * 1e-3 / bandwidth(threads).copy;
} catch (const std::runtime_error& error) {
    state.SkipWithError(error.what());
}

// The cost of samples per step. Bodies with none, few and many samples take a few steps in turn, so that the
// machine's load is the same for all. Counters are medians [ms] and the ratio of many to none.
void samplesCost(benchmark::State& state, const Grid& grid, int threads) {
    constexpr std::array<int, 3> kSamples{0, 800, 20000};
    constexpr int kStepsInTurn = 5;
    releaseBenchFlow();
    std::vector<std::unique_ptr<coupledLBM_sim3D>> simulators;
    for (const int samples : kSamples) {
        simulators.push_back(fallingSphere(grid, samples, Schedule::Production));
        simulators.back()->step(TWO_WAY);
    }
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    std::array<std::vector<double>, kSamples.size()> times;
    for (auto _ : state) {
        for (std::size_t i = 0; i < simulators.size(); ++i) {
            for (int step = 0; step < kStepsInTurn; ++step) {
                const double start = omp_get_wtime();
                simulators[i]->step(TWO_WAY);
                times[i].push_back(1e3 * (omp_get_wtime() - start));
            }
        }
    }
    omp_set_num_threads(before);
    std::array<double, kSamples.size()> medians{};
    for (std::size_t i = 0; i < times.size(); ++i) {
        const auto middle = times[i].begin() + static_cast<std::ptrdiff_t>(times[i].size() / 2);
        std::nth_element(times[i].begin(), middle, times[i].end());
        medians[i] = *middle;
        state.counters["samples_" + std::to_string(kSamples[i])] = medians[i];
    }
    state.counters["ratio"] = medians.back() / medians.front();
}

void sampleSurface(benchmark::State& state) {
    SkeletalMesh mesh;
    mesh.load("assets/sphere.glb", setup().device);
    for (auto _ : state) {
        IBSamplerMesh sampler(&mesh, setup().device);
        sampler.generateSamples(static_cast<int>(state.range(0)));
        state.counters["placed"] = sampler.sampleCount();
    }
}

void addWholeSteps(const Grid& grid, int samples, Schedule schedule) {
    const auto add = [&](const std::string& name, int threads) {
        benchmark::RegisterBenchmark(
            name.c_str(),
            [=](benchmark::State& state) { wholeStep(state, grid, samples, schedule, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->MinTime(2);
    };
    forEachThreads(std::string("wholeStep/") +
                       (schedule == Schedule::Operators ? "operators/" : "production/") +
                       nameOf(grid) + "/layer:" + std::to_string(grid.pml_width) +
                       "/samples:" + std::to_string(samples),
                   add);
}

void addSamplesCost(const Grid& grid) {
    const auto add = [&](const std::string& name, int threads) {
        benchmark::RegisterBenchmark(
            name.c_str(), [=](benchmark::State& state) { samplesCost(state, grid, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(10);
    };
    forEachThreads("samplesCost/" + nameOf(grid) + "/layer:" + std::to_string(grid.pml_width), add);
}

const bool registered = onSetup([] {
    if (setup().onHost) {
        const Grid layered = grids(10).front();
        addWholeSteps(layered, 800, Schedule::Operators);
        addWholeSteps(layered, 800, Schedule::Production);
        addWholeSteps(layered, 20000, Schedule::Production);
        addWholeSteps(grids(0).front(), 800, Schedule::Production);
        for (const int layer : {0, 10}) addSamplesCost(grids(layer).front());
    } else {
        for (const int samples : {800, 20000}) {
            for (const Grid& grid : grids(10)) {
                addWholeSteps(grid, samples, Schedule::Operators);
                addWholeSteps(grid, samples, Schedule::Production);
            }
        }
    }
    benchmark::RegisterBenchmark("sampleSphere", sampleSurface)
        ->Arg(20000)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();
});

}  // namespace
}  // namespace drelt::bench
