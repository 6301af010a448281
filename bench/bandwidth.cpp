#include "bandwidth.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <map>

#include "platform/check.h"
#include "setup.h"

namespace drelt::bench {
namespace {

// The best of a few runs, since the result serves as an upper bound.
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

constexpr LaunchExtent kExtent{4096, 4096, 4};  // 256 MiB per array
constexpr std::size_t kBytes = sizeof(float) * kExtent.x * kExtent.y * kExtent.z;

double measureInPlace(float* a) {
    return gigabytesPerSecond(2.0 * static_cast<double>(kBytes), [&] {
        launchVolume<&scaleKernel>(coveringShape(kExtent, 256, 1, 1), kExtent, a);
    });
}

Bandwidth measure(int threads) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    checkCudaErrors(cudaSetDevice(setup().device));
    float* a = nullptr;
    float* b = nullptr;
    checkCudaErrors(cudaMalloc(&a, kBytes));
    checkCudaErrors(cudaMalloc(&b, kBytes));
    const double both = 2.0 * static_cast<double>(kBytes);
    Bandwidth result{};
    result.inPlace = measureInPlace(a);
    result.copy = gigabytesPerSecond(both, [&] {
        launchVolume<&copyKernel>(coveringShape(kExtent, 256, 1, 1), kExtent,
                                  static_cast<const float*>(a), b);
    });
    if (!setup().onHost) {
        const double runtime = gigabytesPerSecond(
            both, [&] { checkCudaErrors(cudaMemcpy(b, a, kBytes, cudaMemcpyDeviceToDevice)); });
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

double inPlaceNow(int threads) {
    // kept, so that later measurements find its pages in memory
    static float* a = nullptr;
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    checkCudaErrors(cudaSetDevice(setup().device));
    if (a == nullptr) checkCudaErrors(cudaMalloc(&a, kBytes));
    const double result = measureInPlace(a);
    omp_set_num_threads(before);
    return result;
}

}  // namespace drelt::bench
