#include "SkeletonDynamics/SampleMasses.h"

#include "platform/check.h"

namespace drelt {

SampleMasses::~SampleMasses() { release(); }

void SampleMasses::release() {
    checkCudaErrors(cudaFree(masses_dev_));
    checkCudaErrors(cudaFree(gains_dev_));
    masses_dev_ = nullptr;
    gains_dev_ = nullptr;
    sampleRoom_ = linkRoom_ = 0;
}

void SampleMasses::reserve(int sampleCount, int linkCount) {
    reduction_.reserve(sampleCount, linkCount);
    int device = 0;
    checkCudaErrors(cudaGetDevice(&device));
    if (sampleCount <= sampleRoom_ && linkCount <= linkRoom_ && device == device_) return;
    release();
    device_ = device;
    checkCudaErrors(
        cudaMalloc(&masses_dev_, static_cast<std::size_t>(sampleCount) * sizeof(LinkMassSums)));
    checkCudaErrors(
        cudaMalloc(&gains_dev_, static_cast<std::size_t>(linkCount) * sizeof(LinkVelocityGain)));
    sampleRoom_ = sampleCount;
    linkRoom_ = linkCount;
}

const std::vector<LinkMassSums>& SampleMasses::sum(const skLinkData* links,
                                                   const mlLagrangeBoundary* boundary,
                                                   const int* labels, const double* weights,
                                                   int linkCount, int sampleCount,
                                                   const SampleGrid& grid, float dx) {
    reserve(sampleCount, linkCount);
    launchLinear<&sampleMassKernel>(listShape(sampleCount, 512), sampleCount, links, boundary,
                                    labels, weights, masses_dev_, linkCount, sampleCount, grid, dx);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    reduction_.reduce(labels, masses_dev_, sampleCount, linkCount);
    const auto entries = static_cast<std::size_t>(linkCount);
    keys_.resize(entries);
    runs_.resize(entries);
    checkCudaErrors(
        cudaMemcpy(keys_.data(), reduction_.keys(), entries * sizeof(int), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(runs_.data(), reduction_.sums(), entries * sizeof(LinkMassSums),
                               cudaMemcpyDeviceToHost));
    sums_.assign(entries, LinkMassSums::Zero());
    for (std::size_t run = 0; run < entries; ++run) {
        if (keys_[run] > 0 && keys_[run] < linkCount) sums_[keys_[run]] = runs_[run];
    }
    return sums_;
}

void SampleMasses::correct(const skLinkData* links, mlLagrangeBoundary* boundary, const int* labels,
                           const double* weights, const std::vector<LinkVelocityGain>& gains,
                           int sampleCount, const SampleGrid& grid, float dt) {
    const int linkCount = static_cast<int>(gains.size());
    reserve(sampleCount, linkCount);
    checkCudaErrors(cudaMemcpy(gains_dev_, gains.data(), gains.size() * sizeof(LinkVelocityGain),
                               cudaMemcpyHostToDevice));
    const LinkVelocityGain* const there = gains_dev_;
    launchLinear<&correctSampleForceKernel>(listShape(sampleCount, 512), sampleCount, links,
                                            boundary, labels, weights, there, linkCount,
                                            sampleCount, grid, dt);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
