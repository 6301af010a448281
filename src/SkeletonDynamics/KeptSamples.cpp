#include "SkeletonDynamics/KeptSamples.h"

#include <cstddef>

#include "SkeletonDynamics/skSystem_GPU.h"
#include "platform/check.h"
#include "supplement/IBBoundaryMemMgr.h"

namespace drelt {

namespace {

template <class T>
std::vector<T> fetch(const T* there, int count) {
    std::vector<T> here(static_cast<std::size_t>(count));
    if (count == 0) return here;
    checkCudaErrors(
        cudaMemcpy(here.data(), there, here.size() * sizeof(T), cudaMemcpyDeviceToHost));
    return here;
}

}  // namespace

KeptSamples::~KeptSamples() { checkCudaErrors(cudaFree(places_dev_)); }

void KeptSamples::keep(const IBBoundaryMemMgr& samples) {
    count_ = samples.mllaboundary->count;
    if (count_ == 0) return;
    const std::size_t bytes = static_cast<std::size_t>(count_) * sizeof(float);
    if (count_ > room_) {
        checkCudaErrors(cudaFree(places_dev_));
        checkCudaErrors(cudaMalloc(&places_dev_, 3 * bytes));
        room_ = count_;
    }
    float* to = places_dev_;
    for (const float* const from : {samples.coordx_dev, samples.coordy_dev, samples.coordz_dev}) {
        checkCudaErrors(cudaMemcpy(to, from, bytes, cudaMemcpyDeviceToDevice));
        to += count_;
    }
}

void KeptSamples::sum(const IBBoundaryMemMgr& samples, const std::vector<int>& labels, float scale,
                      std::vector<skLinkData>& records) const {
    std::vector<float> places = fetch(places_dev_, 3 * count_);
    std::vector<double> x = fetch(samples.forcex_dev, count_);
    std::vector<double> y = fetch(samples.forcey_dev, count_);
    std::vector<double> z = fetch(samples.forcez_dev, count_);
    mlLagrangeBoundary then{};
    then.coordx = places.data();
    then.coordy = then.coordx + count_;
    then.coordz = then.coordy + count_;
    then.forcex = x.data();
    then.forcey = y.data();
    then.forcez = z.data();
    then.sampleArea = samples.mllaboundary->sampleArea;
    std::vector<LinkWrench> sums(records.size(), LinkWrench::Zero());
    for (int i = 0; i < count_; ++i) {
        LinkWrench wrench;
        link::sampleWrench(records[labels[i]], &then, i, scale, wrench.data());
        sums[labels[i]] += wrench;
    }
    for (std::size_t k = 0; k < records.size(); ++k) {
        records[k].torque = sums[k].head<3>();
        records[k].force = sums[k].tail<3>();
    }
}

}  // namespace drelt
