#include "SkeletonDynamics/skSystem_GPU.h"

#include <thrust/execution_policy.h>
#include <thrust/functional.h>
#include <thrust/reduce.h>
#include <thrust/system_error.h>

#include "platform/check.h"
#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::calExtForcesKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::assignExtForceKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::updateSampleVelKernel, Flat);

namespace drelt {
namespace {

struct SameLabel {
    __host__ __device__ bool operator()(int a, int b) const { return a == b; }
};

struct AddWrenches {
    __host__ __device__ LinkWrench operator()(const LinkWrench& a, const LinkWrench& b) const {
        return a + b;
    }
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

void deviceReduceByLabel(const int* labels, const LinkWrench* wrenches, int sampleCount, int* keys,
                         LinkWrench* sums, DeviceScratch& scratch) {
    ScratchAllocator allocator{&scratch};
    try {
        thrust::reduce_by_key(thrust::cuda::par(allocator), labels, labels + sampleCount, wrenches,
                              keys, sums, SameLabel{}, AddWrenches{});
    } catch (const thrust::system_error& error) {
        platform::checkDeviceCall(static_cast<cudaError_t>(error.code().value()),
                                  "thrust::reduce_by_key", __FILE__, __LINE__);
    }
}

}  // namespace drelt
