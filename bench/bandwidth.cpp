#include "bandwidth.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <map>

#include "platform/check.h"
#include "platform/launch.h"

namespace drelt::bench {
namespace {

DRELT_KERNEL void scaleKernel(LaunchIndex at, float* a) { a[at.n] *= 0.5f; }
DRELT_KERNEL void copyKernel(LaunchIndex at, const float* a, float* b) { b[at.n] = a[at.n]; }

// Best of a few runs, as is the custom for a bound.
template <class Run>
double gigabytesPerSecond(double bytes, Run&& run) {
    run();
    double best = 0.0;
    for (int i = 0; i < 5; ++i) {
        const double start = omp_get_wtime();
        run();
        best = std::max(best, bytes / (omp_get_wtime() - start) * 1e-9);
    }
    return best;
}

Bandwidth measure(int threads) {
    const LaunchExtent extent{4096, 4096, 4};  // 256 MiB an array
    const std::size_t bytes = sizeof(float) * extent.x * extent.y * extent.z;
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    float* a = nullptr;
    float* b = nullptr;
    checkCudaErrors(cudaMalloc(&a, bytes));
    checkCudaErrors(cudaMalloc(&b, bytes));
    const double both = 2.0 * static_cast<double>(bytes);
    Bandwidth result{};
    result.inPlace =
        gigabytesPerSecond(both, [&] { platform::hostLaunchRows<&scaleKernel>(extent, a); });
    result.copy = gigabytesPerSecond(both, [&] {
        platform::hostLaunchRows<&copyKernel>(extent, static_cast<const float*>(a), b);
    });
    checkCudaErrors(cudaFree(a));
    checkCudaErrors(cudaFree(b));
    omp_set_num_threads(before);
    return result;
}

}  // namespace

const Bandwidth& bandwidth(int threads) {
    static std::map<int, Bandwidth> measured;
    const auto found = measured.find(threads);
    if (found != measured.end()) return found->second;
    return measured.emplace(threads, measure(threads)).first->second;
}

}  // namespace drelt::bench
