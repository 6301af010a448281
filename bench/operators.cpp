// One row an operator: node updates a second, and memory traffic against the machine's bandwidth.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <string>

#include "bandwidth.h"
#include "bench_flow.h"
#include "cslbm/PML/PMLOperation.h"
#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"

namespace drelt::bench {
namespace {

// A row: what to run, and the bytes of a node that it must read and write at least (an array that is
// only written counts once; planes and the layer's own nodes are left out of the count).
struct Row {
    const char* name;
    void (*run)(BenchFlow&);
    double bytesPerNode;
};

constexpr double kPopulations = 27.0 * 4.0;
constexpr double kState = 4 * 4;  // density and velocity
constexpr double kForce = 3 * 8;
constexpr double kCollision = 2 * kPopulations + kState;
// moments written and read twice less four, the state and the force at each half
constexpr double kTwoStages =
    3 * kPopulations + kState + 2 * (kPopulations - 4 * 4 + kState + kForce);

void addForce(BenchFlow& b) {
    const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
    mlAddForcetoUOpt(b.flow(), b.param(), 0.1f, Eigen::Vector3d::Constant(1e-4),
                     Eigen::Vector3d(0.1, 0.2, 0.3), zero, zero, FrameTransform::Identity());
}
template <CollisionOperator Choice>
void collision(BenchFlow& b) {
    collide(Choice, b.flow(), b.param());
}
void layer(BenchFlow& b) { PML_Operation(b.flow(), b.param()); }
void stream(BenchFlow& b) { mlCuStream3dOpt(b.flow(), b.param()); }
void moments(BenchFlow& b) { mlCalOneOrderMomentOpt(b.flow(), b.param()); }
void streamMoments(BenchFlow& b) {
    stream(b);
    moments(b);
}
void openBoundary(BenchFlow& b) { mlBoundaryConditionNEE(b.flow(), b.param()); }

const Row kRows[] = {
    {"mlCollideAddForceHighorderFiiting", collision<CollisionOperator::HighorderFitted>,
     kCollision + kForce + 2 * 4},
    {"mlCollideAddForceHighorderFitingPart1", collision<CollisionOperator::HighorderFittedPart1>,
     kCollision + kForce + 2 * 4},
    {"mlCollideAddForceHighorder", collision<CollisionOperator::HighorderFixed>,
     kCollision + kForce},
    {"mlCollideGpu", collision<CollisionOperator::Plain>, kCollision},
    {"mlCollideAddForce", collision<CollisionOperator::Forced>, kCollision + kForce},
    {"mlCollideAddForceOpt+Cascade", collision<CollisionOperator::Cascade>, kTwoStages},
    {"mlCollideAddForceTvcg", collision<CollisionOperator::Polynomial>, kTwoStages},
    {"mlCuStream3dOpt", stream, 2 * kPopulations},
    {"mlCalOneOrderMomentOpt", moments, kPopulations + 4 * 4 + 3 * 8},
    {"stream+moments", streamMoments, 3 * kPopulations + 4 * 4 + 3 * 8},
    {"mlAddForcetoUOpt", addForce, 4 + 2 * 3 * 4 + 2 * 3 * 8},
    {"PML_Operation", layer, 5 * kPopulations + 4 * 4 + kPopulations + 4},
    {"mlBoundaryConditionNEE", openBoundary, 0},
};

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

const bool registered = [] {
    const int all = omp_get_max_threads();
    for (const Grid& grid : kGrids) {
        for (const Row& row : kRows) {
            for (const int threads : {1, all}) {
                const std::string name = std::string(row.name) + "/" + std::to_string(grid.nx) +
                                         "x" + std::to_string(grid.ny) + "x" +
                                         std::to_string(grid.nz) +
                                         "/threads:" + std::to_string(threads);
                benchmark::RegisterBenchmark(name.c_str(),
                                             [row, grid, threads](benchmark::State& state) {
                                                 runRow(state, row, grid, threads);
                                             })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime()
                    ->MinTime(0.5);
                if (all == 1) break;
            }
        }
    }
    return true;
}();

}  // namespace
}  // namespace drelt::bench
