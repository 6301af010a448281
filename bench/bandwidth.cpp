#include "bandwidth.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <map>

#include "platform/check.h"
#include "setup.h"

namespace drelt::bench {
namespace {

// Best of a few runs, as is the custom for a bound.
template <class Run>
double gigabytesPerSecond(double bytes, Run&& run) {
    run();
    checkCudaErrors(cudaDeviceSynchronize());
    double best = 0.0;
    for (int i = 0; i < 5; ++i) {
        const double start = omp_get_wtime();
        run();
        checkCudaErrors(cudaDeviceSynchronize());
        best = std::max(best, bytes / (omp_get_wtime() - start) * 1e-9);
    }
    return best;
}

Bandwidth measure(int threads) {
    const LaunchExtent extent{4096, 4096, 4};  // 256 MiB an array
    const std::size_t bytes = sizeof(float) * extent.x * extent.y * extent.z;
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    checkCudaErrors(cudaSetDevice(setup().device));
    float* a = nullptr;
    float* b = nullptr;
    checkCudaErrors(cudaMalloc(&a, bytes));
    checkCudaErrors(cudaMalloc(&b, bytes));
    const double both = 2.0 * static_cast<double>(bytes);
    Bandwidth result{};
    const LaunchShape shape = coveringShape(extent, 256, 1, 1);
    result.inPlace =
        gigabytesPerSecond(both, [&] { launchVolume<&scaleKernel>(shape, extent, a); });
    result.copy = gigabytesPerSecond(
        both, [&] { launchVolume<&copyKernel>(shape, extent, static_cast<const float*>(a), b); });
    if (!setup().onHost) {
        const double runtime = gigabytesPerSecond(
            both, [&] { checkCudaErrors(cudaMemcpy(b, a, bytes, cudaMemcpyDeviceToDevice)); });
        result.copy = std::max(result.copy, runtime);
    }
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
