#include "SkeletonDynamics/skSystem_GPU.h"

#include <thrust/execution_policy.h>
#include <thrust/functional.h>
#include <thrust/reduce.h>

#include <algorithm>

#include "platform/check.h"

namespace drelt {
namespace {

constexpr int kSampleRun = 256;  // samples that a thread takes at a time

// Sums neighbouring wrenches with equal labels, one entry per run.
void reduceByLabel(const int* labels, const LinkWrench* wrenches, int sampleCount, int* keys,
                   LinkWrench* sums, DeviceScratch& scratch) {
    platform::onSelectedDevice(
        [&] { deviceReduceByLabel(labels, wrenches, sampleCount, keys, sums, scratch); },
        [&] {
            const platform::HostAccess access;
            thrust::reduce_by_key(thrust::seq, labels, labels + sampleCount, wrenches, keys, sums,
                                  thrust::equal_to<int>(), thrust::plus<LinkWrench>());
        });
}

// updateSampleVelKernel for all samples on host threads. Neighbouring samples of one link share what follows
// from the link.
void updateSampleVelOnHost(mlLagrangeBoundary* boundary, const int* labels, const skLinkData* links,
                           int frameIndex, int referenceIndex, int sampleCount) {
    const platform::HostAccess access;
    const int runs = (sampleCount + kSampleRun - 1) / kSampleRun;
#pragma omp parallel if (sampleCount >= platform::kWorthThreads)
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (int run = 0; run < runs; ++run) {
            const int end = std::min((run + 1) * kSampleRun, sampleCount);
            for (int i = run * kSampleRun; i < end;) {
                const link::VelocityTerms terms =
                    link::velocityTerms(links, labels[i], frameIndex, referenceIndex);
                const int first = i;
                while (i < end && labels[i] == labels[first]) ++i;
#pragma omp simd
                for (int s = first; s < i; ++s) link::updateSampleVelocity(terms, boundary, s);
            }
        }
    }
}

}  // namespace

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

LinkForceReduction::~LinkForceReduction() { release(); }

void LinkForceReduction::release() {
    checkCudaErrors(cudaFree(keys_dev_));
    checkCudaErrors(cudaFree(sums_dev_));
    keys_dev_ = nullptr;
    sums_dev_ = nullptr;
    capacity_ = 0;
}

void LinkForceReduction::reserve(int entries) {
    int device = 0;
    checkCudaErrors(cudaGetDevice(&device));
    if (entries <= capacity_ && device == device_) return;
    release();
    device_ = device;
    const std::size_t size = static_cast<std::size_t>(entries);
    checkCudaErrors(cudaMalloc(&keys_dev_, size * sizeof(int)));
    checkCudaErrors(cudaMalloc(&sums_dev_, size * sizeof(LinkWrench)));
    capacity_ = entries;
}

void LinkForceReduction::reduce(skLinkData* links, mlLagrangeBoundary* boundary, int* labels,
                                LinkWrench* wrenches, int linkCount, int sampleCount, float scale) {
    // There can be as many runs as samples if the labels are out of order.
    reserve(std::max(linkCount, sampleCount));
    launchLinear<&calExtForcesKernel>(listShape(sampleCount, 512), sampleCount, links, boundary,
                                      labels, wrenches, linkCount, sampleCount, scale);
    checkCudaErrorsAtLine(54, cudaGetLastError());       // sic: prescribed value
    checkCudaErrorsAtLine(55, cudaDeviceSynchronize());  // sic: prescribed value
    unusedKeys_.assign(static_cast<std::size_t>(linkCount), 0);
    checkCudaErrors(cudaMemcpy(keys_dev_, unusedKeys_.data(), unusedKeys_.size() * sizeof(int),
                               cudaMemcpyHostToDevice));
    reduceByLabel(labels, wrenches, sampleCount, keys_dev_, sums_dev_, scratch_);
    launchLinear<&assignExtForceKernel>(listShape(linkCount, 32), linkCount, links, linkCount,
                                        sums_dev_, keys_dev_);
    checkCudaErrorsAtLine(67, cudaGetLastError());       // sic: prescribed value
    checkCudaErrorsAtLine(68, cudaDeviceSynchronize());  // sic: prescribed value
}

void updateSampleVel(mlLagrangeBoundary* boundary, int* labels, skLinkData* links, int frameIndex,
                     int referenceIndex, int sampleCount) {
    platform::onSelectedDevice(
        [&] {
            deviceLaunch<&updateSampleVelKernel, ThreadMapping::Flat>(
                listShape(sampleCount, 512), LaunchExtent{sampleCount, 1, 1}, boundary, labels,
                links, frameIndex, referenceIndex, sampleCount);
        },
        [&] {
            updateSampleVelOnHost(boundary, labels, links, frameIndex, referenceIndex, sampleCount);
        });
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
