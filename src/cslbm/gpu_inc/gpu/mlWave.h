// A point source of sound.
#pragma once

#include <cmath>
#include <cstring>

#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

// For 300 steps, sets the density of the middle node of the grid to 1 + 0.001 sin(2 pi step / 20). Stores it in
// rou, and sets f and fPost of the node to the equilibrium with its velocity. The device's parameter record
// counts the steps. One invocation.
DRELT_KERNEL void mlWaveKernel(LaunchIndex, mlFlow* flow, int nx, int ny, int nz) {
    std::uint32_t step = 0;
    std::memcpy(&step, &flow->param->waveStep, sizeof step);
    if (step > 299) return;
    const std::int64_t n = nx / 2 + nx * (ny / 2 + static_cast<std::int64_t>(ny) * (nz / 2));
    // sic: prescribed value
    const auto rho = static_cast<float>(1.0 + 0.001 * std::sin(step * 6.2831852 / 20.0));
    flow->rou[n].value = rho;
    const float u[3] = {flow->ux[n], flow->uy[n], flow->uz[n]};
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        const std::int64_t entry = decltype(d)::index * flow->count + n;
        flow->f[entry] = flow->fPost[entry] = productEquilibrium(d, rho, u[0], u[1], u[2]);
    });
    ++step;
    std::memcpy(&flow->param->waveStep, &step, sizeof step);
}

// Launches mlWaveKernel for a device record.
void mlWave(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
