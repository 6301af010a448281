#include "rows.h"

#include <benchmark/benchmark.h>
#include <omp.h>

#include <string>

#include "bandwidth.h"

namespace drelt::bench {
namespace {

const Grid kGrids[] = {{256, 96, 96, 10}, {250, 97, 97, 10}};

void runRow(benchmark::State& state, const Row& row, const Grid& grid, int threads) {
    BenchFlow& b = benchFlow(grid);
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

void registerRow(const Row& row, const Grid& grid, int threads) {
    const std::string name = std::string(row.name) + "/" + std::to_string(grid.nx) + "x" +
                             std::to_string(grid.ny) + "x" + std::to_string(grid.nz) +
                             "/threads:" + std::to_string(threads);
    benchmark::RegisterBenchmark(
        name.c_str(),
        [row, grid, threads](benchmark::State& state) { runRow(state, row, grid, threads); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->MinTime(0.5);
}

}  // namespace

bool registerRows(const Row* rows, std::size_t count) {
    const int all = omp_get_max_threads();
    for (const Grid& grid : kGrids) {
        for (std::size_t i = 0; i < count; ++i) {
            registerRow(rows[i], grid, 1);
            if (all > 1) registerRow(rows[i], grid, all);
        }
    }
    return true;
}

}  // namespace drelt::bench
