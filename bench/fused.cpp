// The whole fluid step under both schedules, without bodies. The rows also give the share of the machine's
// bound, the rate at which it reads and writes 216 bytes per node in place.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <memory>
#include <string>

#include "bandwidth.h"
#include "bench_flow.h"
#include "cslbm/domain/operatorStep.h"
#include "cslbm/fused/ProductionDomain.h"
#include "platform/check.h"
#include "rows.h"

namespace drelt::bench {
namespace {

constexpr double kBytesInPlace = 2.0 * 27.0 * 4.0;

FrameMotion motion() {
    FrameMotion m;
    m.lengthScale = Eigen::Vector3d::Constant(1e-4);
    m.linearAcceleration = {0.1, 0.2, 0.3};
    return m;
}

template <class Step>
void runSteps(benchmark::State& state, const Grid& grid, int threads, double residentBytes,
              Step&& step) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    step();
    double steps = 0;
    const double start = omp_get_wtime();
    for (auto _ : state) {
        step();
        ++steps;
    }
    const double seconds = omp_get_wtime() - start;
    omp_set_num_threads(before);
    const double nodes = static_cast<double>(grid.nx) * grid.ny * grid.nz;
    const double rate = steps * nodes / seconds;
    state.counters["MLUPS"] = rate * 1e-6;
    state.counters["resident_B"] = residentBytes / nodes;
    state.counters["of_bound"] = rate * kBytesInPlace / (inPlaceNow(threads) * 1e9);
}

// The bytes that a step must at least move, and their rate compared with a device copy.
void addBandwidth(benchmark::State& state, double bytesPerNode, int threads) {
    const double gigabytes = state.counters["MLUPS"] * bytesPerNode * 1e-3;
    state.counters["moved_B"] = bytesPerNode;
    state.counters["GB/s"] = gigabytes;
    state.counters["share"] = gigabytes / bandwidth(threads).copy;
}

void operators(benchmark::State& state, const Grid& grid, int threads) {
    BenchFlow* const flow = benchFlow(grid);
    if (flow == nullptr) {
        state.SkipWithError(kNoMemory);
        return;
    }
    BenchFlow& b = *flow;
    const FrameMotion m = motion();
    runSteps(state, grid, threads, b.residentBytesPerNode() * static_cast<double>(b.nodes()),
             [&] { operatorStep(b.flow(), b.param(), m); });
    addBandwidth(state, kStepBytes, threads);
}

// Starts from the same flow as the rows of the operators.
void production(benchmark::State& state, const Grid& grid, int threads) {
    static std::unique_ptr<ProductionDomain> domain;
    static Grid made{};
    if (!domain || made.nx != grid.nx || made.ny != grid.ny || made.nz != grid.nz ||
        made.pml_width != grid.pml_width) {
        domain.reset();
        const BenchFlow* const b = benchFlow(grid);
        if (b == nullptr) {
            state.SkipWithError(kNoMemory);
            return;
        }
        domain = makeProductionDomain(*b->param(), b->image().v0k, 0.01f);
        domain->load(b->image());
        made = grid;
    }
    const FrameMotion m = motion();
    runSteps(state, grid, threads, static_cast<double>(domain->residentBytes()), [&] {
        {
            const platform::DeferredWaits deferred;
            domain->step(m);
        }
        checkCudaErrors(cudaDeviceSynchronize());
    });
    state.SetLabel(domain->instructionSet());
    if (!setup().onHost) addBandwidth(state, kProductionBytes, threads);
}

void addRows(const char* schedule, void (*run)(benchmark::State&, const Grid&, int)) {
    for (const int layer : {0, 10}) {
        for (const Grid& grid : grids(layer)) {
            const auto add = [&](const std::string& name, int threads) {
                benchmark::RegisterBenchmark(
                    name.c_str(), [=](benchmark::State& state) { run(state, grid, threads); })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                    ->MinTime(0.4)
                    ->Repetitions(5)
                    ->ReportAggregatesOnly(true);
            };
            forEachThreads(std::string("fluidStep/") + schedule + "/" + nameOf(grid) +
                               "/layer:" + std::to_string(layer),
                           add);
        }
    }
}

const bool registered = onSetup([] {
    addRows("operators", operators);
    addRows("production", production);
});

}  // namespace
}  // namespace drelt::bench
