// The query of a pose trajectory that a script makes in every step. Its cost depends on the range searched,
// not on the number of samples.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "trajectory/mlTPTrajectory.h"

namespace drelt::bench {
namespace {

// A wavy path, sampled.
mlTPTrajectory wavyPath(int samples) {
    std::vector<mlTrajectoryPointData<double, 3>> points(200);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const double x = 0.1 * static_cast<double>(i);
        points[i].data = {x, std::sin(x), std::cos(x)};
    }
    mlTPTrajectory path;
    path.setPoints(points);
    path.fit();
    path.sample(samples);
    return path;
}

// The body is far from the range searched, so every segment in the range is tested.
void getTargetPose(benchmark::State& state) {
    mlTPTrajectory path = wavyPath(static_cast<int>(state.range(0)));
    const int range = static_cast<int>(state.range(1));
    const Eigen::Vector3d position = path.samples.back().position + Eigen::Vector3d(100, 0, 0);
    for (auto _ : state) {
        int index = 0;
        benchmark::DoNotOptimize(path.getTargetPose(position, index, range));
    }
}

BENCHMARK(getTargetPose)
    ->ArgNames({"samples", "look_forward"})
    ->Args({1000, 10})
    ->Args({100000, 10})
    ->Args({100000, 100})
    ->Unit(benchmark::kNanosecond);

}  // namespace
}  // namespace drelt::bench
