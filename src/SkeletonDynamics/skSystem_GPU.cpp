#include "SkeletonDynamics/skSystem_GPU.h"

#include <algorithm>

#include "platform/check.h"

namespace drelt {
namespace {

constexpr int kSampleRun = 256;  // samples that a thread takes at a time

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

void LinkForceReduction::reduce(skLinkData* links, mlLagrangeBoundary* boundary, int* labels,
                                LinkWrench* wrenches, int linkCount, int sampleCount, float scale) {
    sums_.reserve(sampleCount, linkCount);
    launchLinear<&calExtForcesKernel>(listShape(sampleCount, 512), sampleCount, links, boundary,
                                      labels, wrenches, linkCount, sampleCount, scale);
    checkCudaErrorsAtLine(54, cudaGetLastError());       // sic: prescribed value
    checkCudaErrorsAtLine(55, cudaDeviceSynchronize());  // sic: prescribed value
    sums_.reduce(labels, wrenches, sampleCount, linkCount);
    launchLinear<&assignExtForceKernel>(listShape(linkCount, 32), linkCount, links, linkCount,
                                        sums_.sums(), sums_.keys());
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
