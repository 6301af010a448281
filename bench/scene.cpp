// The whole coupled step of a falling sphere, the memory that a scene takes, and the time to sample a
// surface. Assets are found from the repository's root.
#include <benchmark/benchmark.h>
#include <omp.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "platform/runtime.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt::bench {
namespace {

using Eigen::Vector3d;
constexpr int kHost = platform::kHostDevice;

double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// The sphere of 16 nodes a diameter in a box of 256 x 96 x 96 nodes with a layer of 10.
std::unique_ptr<coupledLBM_sim3D> scene(int samples, Schedule schedule, int layer) {
    auto p = std::make_shared<simParams>();
    p->setup_mode = simParams::MANUAL;
    p->N = 16;
    p->l0p = 0.02f;
    p->u0p = p->u0k = 0.1f;
    p->visp = 4e-5f;
    p->rou0p = 1000;
    p->width = 255.5f * 0.00125f;
    p->height = p->depth = 95.5f * 0.00125f;
    p->pml_width = layer;
    auto simulator = std::make_unique<coupledLBM_sim3D>(p, kHost);
    const auto world = std::make_shared<skWorld>(Vector3d(0.5, 0, 0));
    world->addSkeleton(std::make_shared<skSystem>(skeletonFromJson("assets/sphere.json", kHost),
                                                  samples, kHost, Vector3d::Zero(),
                                                  Vector3d::Zero()));
    simulator->schedule = schedule;
    simulator->attachWorld(world);
    simulator->commitInit();
    return simulator;
}

void wholeStep(benchmark::State& state, int samples, Schedule schedule, int layer, int threads) {
    const int before = omp_get_max_threads();
    const double empty = residentBytes();
    const auto simulator = scene(samples, schedule, layer);
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
    state.counters["MLUPS"] = steps * nodes * 1e-6 / (omp_get_wtime() - start);
    omp_set_num_threads(before);
}

void sampleSurface(benchmark::State& state) {
    SkeletalMesh mesh;
    mesh.load("assets/sphere.glb", kHost);
    for (auto _ : state) {
        IBSamplerMesh sampler(&mesh, kHost);
        sampler.generateSamples(static_cast<int>(state.range(0)));
        state.counters["placed"] = sampler.sampleCount();
    }
}

const bool registered = [] {
    const int all = omp_get_max_threads();
    struct Case {
        Schedule schedule;
        int layer, samples;
    };
    for (const Case& c :
         {Case{Schedule::Operators, 10, 800}, Case{Schedule::Production, 10, 800},
          Case{Schedule::Production, 10, 20000}, Case{Schedule::Production, 0, 800}}) {
        for (const int threads : {1, all}) {
            const std::string name =
                std::string("wholeStep/256x96x96/") +
                (c.schedule == Schedule::Operators ? "operators" : "production") +
                "/layer:" + std::to_string(c.layer) + "/samples:" + std::to_string(c.samples) +
                "/threads:" + std::to_string(threads);
            benchmark::RegisterBenchmark(name.c_str(),
                                         [c, threads](benchmark::State& state) {
                                             wholeStep(state, c.samples, c.schedule, c.layer,
                                                       threads);
                                         })
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime()
                ->MinTime(2);
            if (all == 1) break;
        }
    }
    benchmark::RegisterBenchmark("sampleSphere", sampleSurface)
        ->Arg(20000)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();
    return true;
}();

}  // namespace
}  // namespace drelt::bench
