// What the options of a simulation cost: steps of the same scene with and without them, in turn.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_flow.h"
#include "falling_sphere.h"

namespace drelt::bench {
namespace {

void couple(simParams& p) { p.coupling = Coupling::SemiImplicit; }
void retract(simParams& p) { p.retraction = 0.8f; }
void open(simParams& p) { p.open_planes = OpenPlaneKind::Characteristic; }
void stream(simParams& p) {
    open(p);
    p.current = {0.05, 0, 0};
}

struct Choice {
    const char* name;
    void (*choose)(simParams&);
};

// The first one is what the others are compared with; the second one shows the noise. A current needs
// characteristic planes.
constexpr Choice kChoices[] = {{"defaults", [](simParams&) {}},
                               {"defaults_again", [](simParams&) {}},
                               {"semi_implicit", couple},
                               {"normalised",
                                [](simParams& p) {
                                    couple(p);
                                    p.weights = ForcingWeights::Normalised;
                                }},
                               {"retraction", retract},
                               {"planes", open},
                               {"planes_current", stream},
                               {"all_four", [](simParams& p) {
                                    couple(p);
                                    retract(p);
                                    stream(p);
                                }}};

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Counters: the median time of a step with the defaults [ms]; for each choice the median, over the rounds, of
// its time over that of the defaults in the same round, and its resident memory over theirs.
void optionsCost(benchmark::State& state, const Grid& grid, int samples, int threads) try {
    releaseBenchFlow();
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    std::vector<std::unique_ptr<coupledLBM_sim3D>> scenes;
    std::vector<double> resident;
    for (const Choice& choice : kChoices) {
        const double others = residentBytes();
        scenes.push_back(fallingSphere(grid, samples, Schedule::Production, choice.choose));
        for (int step = 0; step < 3; ++step) scenes.back()->step(TWO_WAY);
        resident.push_back(residentBytes() - others);
    }
    std::vector<std::vector<double>> times(scenes.size());
    std::size_t round = 0;
    for (auto _ : state) {
        for (std::size_t turn = 0; turn < scenes.size(); ++turn) {
            const std::size_t i = (turn + round) % scenes.size();
            const double start = omp_get_wtime();
            scenes[i]->step(TWO_WAY);
            times[i].push_back(1e3 * (omp_get_wtime() - start));
        }
        ++round;
    }
    omp_set_num_threads(before);
    state.counters["defaults_ms"] = median(times[0]);
    for (std::size_t i = 1; i < scenes.size(); ++i) {
        std::vector<double> ratios;
        for (std::size_t r = 0; r < round; ++r) ratios.push_back(times[i][r] / times[0][r]);
        state.counters[kChoices[i].name] = median(ratios);
        state.counters[kChoices[i].name + std::string("_memory")] = resident[i] / resident[1];
    }
} catch (const std::runtime_error& error) {
    state.SkipWithError(error.what());
}

const bool registered = onSetup([] {
    const Grid grid = grids(0).front();
    forEachThreads("optionsCost/" + nameOf(grid) + "/samples:2000", [&](const std::string& name,
                                                                        int threads) {
        benchmark::RegisterBenchmark(
            name.c_str(), [=](benchmark::State& state) { optionsCost(state, grid, 2000, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(60);
    });
});

}  // namespace
}  // namespace drelt::bench
