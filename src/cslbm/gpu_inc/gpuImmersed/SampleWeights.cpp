#include "cslbm/gpu_inc/gpuImmersed/SampleWeights.h"

#include <algorithm>
#include <numeric>

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"
#include "platform/check.h"

namespace drelt {
namespace {

std::int64_t pitchOf(const MLFluidParam& param) {
    return static_cast<std::int64_t>(param.samples_x) + AreaSums::kRoom;
}

std::size_t nodesOf(const MLFluidParam& param) {
    return static_cast<std::size_t>(pitchOf(param)) * param.samples_y * param.samples_z;
}

template <auto Op, class... Args>
void launchSamples(const WeighedSamples& samples, Args... args) {
    if (samples.count <= 0) return;
    deviceLaunch<Op, ThreadMapping::Flat>(listShape(samples.count, 256), {samples.count, 1, 1},
                                          args...);
}

void normaliseOnGpu(const mlFlow* flow, const AreaSums& sums,
                    const std::vector<WeighedSamples>& all, const mlUnitScale& scale, int R) {
    for (const WeighedSamples& s : all) {
        const mlLagrangeBoundary* const boundary = s.boundary;
        launchSamples<&mlClearAreaKernel>(s, boundary, flow, sums, s.count, scale.N, scale.l0p, R);
    }
    for (const WeighedSamples& s : all) {
        const mlLagrangeBoundary* const boundary = s.boundary;
        launchSamples<&mlSpreadAreaKernel>(s, boundary, flow, sums, s.count, scale.N, scale.l0p, R);
    }
    for (const WeighedSamples& s : all)
        launchSamples<&mlNormaliseForceKernel>(s, s.boundary, flow, sums, s.weights, s.count,
                                               scale.N, scale.l0p, R);
}

// The delta functions of two points at X and Y, summed over the nodes of an axis.
double overlap(float X, float Y, int R) {
    double sum = 0;
    const int base = static_cast<int>(std::floor(X));
    for (int i = base - R; i <= base + R; ++i) {
        sum += static_cast<double>(mlDelta(X - static_cast<float>(i), R)) *
               static_cast<double>(mlDelta(Y - static_cast<float>(i), R));
    }
    return sum;
}

}  // namespace

void mlNormaliseForces(mlFlow* flow, const MLFluidParam* param,
                       const std::vector<WeighedSamples>& all, const mlUnitScale& scale, int R,
                       double* nodes, SpreadWorkspace& workspace) {
    const AreaSums sums{nodes, pitchOf(*param), param->samples_x, param->samples_y,
                        param->samples_z};
    platform::onSelectedDevice(
        [&] { normaliseOnGpu(flow, sums, all, scale, R); },
        [&] { normaliseOnHostThreads(flow, param, sums, all, scale, R, workspace); });
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

double NodeSums::bytes(const MLFluidParam& param) {
    return static_cast<double>(nodesOf(param)) * sizeof(double);
}

double* NodeSums::reserve(const MLFluidParam& param) {
    const std::size_t size = nodesOf(param);
    int device = 0;
    checkCudaErrors(cudaGetDevice(&device));
    if (size <= size_ && device == device_) return nodes_;
    release();
    device_ = device;
    checkCudaErrors(cudaMalloc(&nodes_, size * sizeof(double)));
    size_ = size;
    return nodes_;
}

void NodeSums::release() {
    if (nodes_ == nullptr) return;
    checkCudaErrors(cudaSetDevice(device_));
    checkCudaErrors(cudaFree(nodes_));
    nodes_ = nullptr;
    size_ = 0;
}

std::vector<double> weightsInOpenSpace(const std::vector<Vector3<float>>& positions,
                                       const std::vector<double>& areas, int R) {
    std::vector<std::size_t> order(positions.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return positions[a].x < positions[b].x; });
    const auto reach = static_cast<float>(R);
    std::vector<double> shares(positions.size(), 0.0);
    const auto add = [&](std::size_t i, std::size_t j) {
        const Vector3<float>& p = positions[i];
        const Vector3<float>& q = positions[j];
        if (std::fabs(p.y - q.y) >= reach || std::fabs(p.z - q.z) >= reach) return;
        const double both = overlap(p.x, q.x, R) * overlap(p.y, q.y, R) * overlap(p.z, q.z, R);
        shares[i] += both * areas[j];
        if (i != j) shares[j] += both * areas[i];
    };
    for (std::size_t a = 0; a < order.size(); ++a) {
        const float end = positions[order[a]].x + reach;
        for (std::size_t b = a; b < order.size() && positions[order[b]].x < end; ++b)
            add(order[a], order[b]);
    }
    for (double& share : shares) share = share > 0.0 ? 1.0 / share : 0.0;
    return shares;
}

}  // namespace drelt
