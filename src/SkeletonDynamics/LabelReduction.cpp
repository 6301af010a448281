#include "SkeletonDynamics/LabelReduction.h"

#include <thrust/execution_policy.h>
#include <thrust/functional.h>
#include <thrust/reduce.h>

#include <algorithm>

#include "platform/check.h"
#include "platform/launch.h"

namespace drelt {

DeviceScratch::~DeviceScratch() {
    for (const Block& block : blocks_) checkCudaErrors(cudaFree(block.memory));
}

void* DeviceScratch::take(std::size_t bytes) {
    int device = 0;
    checkCudaErrors(cudaGetDevice(&device));
    for (Block& block : blocks_) {
        if (block.taken || block.bytes < bytes || block.device != device) continue;
        block.taken = true;
        return block.memory;
    }
    char* memory = nullptr;
    checkCudaErrors(cudaMalloc(&memory, bytes));
    blocks_.push_back({memory, bytes, device, true});
    return memory;
}

void DeviceScratch::giveBack(const void* memory) {
    for (Block& block : blocks_) {
        if (block.memory == memory) block.taken = false;
    }
}

template <int Size>
void LabelReduction<Size>::release() {
    checkCudaErrors(cudaFree(keys_dev_));
    checkCudaErrors(cudaFree(sums_dev_));
    keys_dev_ = nullptr;
    sums_dev_ = nullptr;
    capacity_ = 0;
}

template <int Size>
void LabelReduction<Size>::reserve(int sampleCount, int linkCount) {
    // There can be as many runs as samples if the labels are out of order.
    const int entries = std::max(linkCount, sampleCount);
    int device = 0;
    checkCudaErrors(cudaGetDevice(&device));
    if (entries <= capacity_ && device == device_) return;
    release();
    device_ = device;
    const std::size_t size = static_cast<std::size_t>(entries);
    checkCudaErrors(cudaMalloc(&keys_dev_, size * sizeof(int)));
    checkCudaErrors(cudaMalloc(&sums_dev_, size * sizeof(Value)));
    capacity_ = entries;
}

template <int Size>
void LabelReduction<Size>::reduce(const int* labels, const Value* values, int sampleCount,
                                  int linkCount) {
    unusedKeys_.assign(static_cast<std::size_t>(linkCount), 0);
    checkCudaErrors(cudaMemcpy(keys_dev_, unusedKeys_.data(), unusedKeys_.size() * sizeof(int),
                               cudaMemcpyHostToDevice));
    platform::onSelectedDevice(
        [&] {
            deviceReduceByLabel<Size>(labels, values, sampleCount, keys_dev_, sums_dev_, scratch_);
        },
        [&] {
            const platform::HostAccess access;
            thrust::reduce_by_key(thrust::seq, labels, labels + sampleCount, values, keys_dev_,
                                  sums_dev_, thrust::equal_to<int>(), thrust::plus<Value>());
        });
}

template class LabelReduction<6>;
template class LabelReduction<10>;

}  // namespace drelt
