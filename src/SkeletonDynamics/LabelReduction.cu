#include "SkeletonDynamics/LabelReduction.h"

#include <thrust/execution_policy.h>
#include <thrust/functional.h>
#include <thrust/reduce.h>
#include <thrust/system_error.h>

#include "platform/check.h"

namespace drelt {
namespace {

struct SameLabel {
    __host__ __device__ bool operator()(int a, int b) const { return a == b; }
};

template <class Value>
struct AddValues {
    __host__ __device__ Value operator()(const Value& a, const Value& b) const { return a + b; }
};

// Gives the algorithm memory from buffers that are kept, so that a step allocates nothing.
struct ScratchAllocator {
    using value_type = char;
    DeviceScratch* scratch;

    char* allocate(std::ptrdiff_t bytes) {
        return static_cast<char*>(scratch->take(static_cast<std::size_t>(bytes)));
    }
    void deallocate(char* memory, std::size_t) { scratch->giveBack(memory); }
};

}  // namespace

template <int Size>
void deviceReduceByLabel(const int* labels, const Eigen::Matrix<double, Size, 1>* values,
                         int sampleCount, int* keys, Eigen::Matrix<double, Size, 1>* sums,
                         DeviceScratch& scratch) {
    ScratchAllocator allocator{&scratch};
    try {
        thrust::reduce_by_key(thrust::cuda::par(allocator), labels, labels + sampleCount, values,
                              keys, sums, SameLabel{}, AddValues<Eigen::Matrix<double, Size, 1>>{});
    } catch (const thrust::system_error& error) {
        platform::checkDeviceCall(static_cast<cudaError_t>(error.code().value()),
                                  "thrust::reduce_by_key", __FILE__, __LINE__);
    }
}

template void deviceReduceByLabel<6>(const int*, const Eigen::Matrix<double, 6, 1>*, int, int*,
                                     Eigen::Matrix<double, 6, 1>*, DeviceScratch&);
template void deviceReduceByLabel<10>(const int*, const Eigen::Matrix<double, 10, 1>*, int, int*,
                                      Eigen::Matrix<double, 10, 1>*, DeviceScratch&);

}  // namespace drelt
