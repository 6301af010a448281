#include "rows.h"

#include <benchmark/benchmark.h>
#include <omp.h>

#include <string>

#include "bandwidth.h"

namespace drelt::bench {
namespace {

constexpr int kLayerWidth = 10;

void runRow(benchmark::State& state, const Row& row, const Grid& grid, int threads) {
    BenchFlow* const flow = benchFlow(grid);
    if (flow == nullptr) {
        state.SkipWithError(kNoMemory);
        return;
    }
    BenchFlow& b = *flow;
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    const double perPass = static_cast<double>(b.nodes());
    double passes = 0;
    const double start = omp_get_wtime();
    for (auto _ : state) {
        row.run(b);
        ++passes;
    }
    const double seconds = omp_get_wtime() - start;
    omp_set_num_threads(before);
    const double gigabytes = passes * perPass * row.bytesPerNode * 1e-9 / seconds;
    state.counters["MLUPS"] = passes * perPass * 1e-6 / seconds;
    state.counters["resident_B"] = b.residentBytesPerNode();
    if (row.bytesPerNode > 0) {
        state.counters["GB/s"] = gigabytes;
        state.counters["share"] = gigabytes / bandwidth(threads).copy;
    }
}

void addRow(const Row& row, const Grid& grid) {
    const auto add = [&](const std::string& name, int threads) {
        benchmark::RegisterBenchmark(
            name.c_str(),
            [row, grid, threads](benchmark::State& state) { runRow(state, row, grid, threads); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->MinTime(0.5);
    };
    forEachThreads(std::string(row.name) + "/" + nameOf(grid), add);
}

}  // namespace

bool registerRows(const Row* rows, std::size_t count) {
    return onSetup([rows, count] {
        for (const Grid& grid : grids(kLayerWidth)) {
            for (std::size_t i = 0; i < count; ++i) addRow(rows[i], grid);
        }
    });
}

}  // namespace drelt::bench
