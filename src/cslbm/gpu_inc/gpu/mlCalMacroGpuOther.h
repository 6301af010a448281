// Other operators for moments and forcing: without frame forces, without the half-force shift, with three
// launch axes, and the forcing of a fixed test scene. No step calls them.
#pragma once

#include <algorithm>

#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"

namespace drelt {

// mlCalOneOrderMomentOptKernel with three launch axes and 64-bit sizes. It has no launcher; use launchRange.
DRELT_KERNEL void mlCalOneOrderMomentKernel(LaunchIndex at, mlFlow* flow, long nx, long ny,
                                            long nz) {
    const std::int64_t n = (at.z * ny + at.y) * nx + at.x;
    detail::storeMoments(flow, n, nx * ny * nz);
}

// Shifts ordinary fluid nodes by half the force, u = (momentum + F/2) / rho, without frame forces. After the
// division, half of gy is added to the y component; gy is an acceleration, not a force density. It has no
// launcher; use launchRange.
DRELT_KERNEL void mlAddForcetoUKernel(LaunchIndex at, mlFlow* flow, float gy, long nx, long ny,
                                      long) {
    const std::int64_t n = (at.z * ny + at.y) * nx + at.x;
    if (flow->flag[n] != ML_NODE_FLUID) return;
    const double rho = flow->rou[n].value;
    flow->ux[n] = static_cast<float>((flow->forcex[n] * 0.5 + flow->ux[n]) / rho);
    flow->uy[n] = static_cast<float>(gy * 0.5 + (flow->forcey[n] * 0.5 + flow->uy[n]) / rho);
    flow->uz[n] = static_cast<float>((flow->forcez[n] * 0.5 + flow->uz[n]) / rho);
}

// Turns momentum into velocity, without force. A density of 0 gives velocities that are not finite.
DRELT_KERNEL void mlRestoreUOptKernel(LaunchIndex at, mlFlow* flow, int, int, int, int) {
    const float rho = flow->rou[at.n].value;
    flow->ux[at.n] = flow->ux[at.n] / rho;
    flow->uy[at.n] = flow->uy[at.n] / rho;
    flow->uz[at.n] = flow->uz[at.n] / rho;
}

// Forms density and velocity of the populations. Where the density is 0, it stores the raw momentum. The force
// arrays keep their values.
DRELT_KERNEL void mlCalMacroGpuKernel(LaunchIndex at, mlFlow* flow) {
    const std::int64_t nx = flow->param->samples_x;
    const std::int64_t ny = flow->param->samples_y;
    const std::int64_t n = at.x + nx * at.y + nx * ny * at.z;
    const detail::MomentSums sums =
        detail::momentSums(flow->f + n, nx * ny * flow->param->samples_z);
    const float divisor = sums.rho != 0.0f ? sums.rho : 1.0f;
    flow->rou[n].value = sums.rho;
    flow->ux[n] = sums.mx / divisor;
    flow->uy[n] = sums.my / divisor;
    flow->uz[n] = sums.mz / divisor;
}

// Copies fEqTilde of the absorbing layer to fEqTildeOld. Skips nodes beyond the sizes in the device's
// parameter record.
DRELT_KERNEL void mlCopyFTildeKernel(LaunchIndex at, mlFlow* flow, int, int, int, int) {
    const MLFluidParam* const param = flow->param;
    if (at.x >= param->samples_x || at.y >= param->samples_y || at.z >= param->samples_z) return;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        const std::int64_t entry = decltype(d)::index * flow->count + at.n;
        flow->fEqTildeOld[entry] = flow->fEqTilde[entry];
    });
}

// The same for a row of nodes on the host.
DRELT_HOST_ROW void copyFTildeRow(LaunchIndex first, int length, mlFlow* flow, int, int, int, int) {
    const MLFluidParam* const param = flow->param;
    if (first.y >= param->samples_y || first.z >= param->samples_z) return;
    const int size = length < param->samples_x ? length : param->samples_x;
    for (int i = 0; i < kDirections; ++i) {
        const float* const from = flow->fEqTilde + i * flow->count + first.n;
        std::copy(from, from + size, flow->fEqTildeOld + i * flow->count + first.n);
    }
}

// The forcing of a fixed test scene, made for startx = startz = 0. With inletVelocity, nodes of class 12 get
// the upward velocity 0.1 + 0.05 phase and nodes of class 13 get 0.1 - 0.05 phase. With wallJets, four plane
// jets push the fluid around the box below a height of 120 m. They lie at the indices 4 and n - 4, one along
// each side wall. Each covers 0.4 of the width at one end of its wall.
DRELT_KERNEL void mlCalForceTermKernel(LaunchIndex at, mlFlow* flow, bool wallJets,
                                       bool inletVelocity, float phase) {
    const MLFluidParam* const param = flow->param;
    const std::int64_t nx = param->samples_x;
    const std::int64_t ny = param->samples_y;
    const std::int64_t n = at.x + nx * at.y + nx * ny * at.z;
    if (inletVelocity) {
        const auto flag = static_cast<std::int32_t>(flow->flag[n]);
        // sic: prescribed value
        if (flag == 12) flow->uy[n] = static_cast<float>(0.1 + 0.05 * phase);
        if (flag == 13) flow->uy[n] = static_cast<float>(0.1 - 0.05 * phase);
    }
    const float dx = param->dx;
    const float x = at.x * dx + flow->startx;
    const float y = at.y * dx + flow->starty;
    const float z = at.z * dx + flow->startz;
    if (!wallJets || !(y < 120.0)) return;  // sic: prescribed value
    // A node belongs to a jet only if its coordinate matches exactly. All limits are shares of the width.
    const double low = 0.4 * param->width;
    const double high = 0.6 * param->width;
    if (z == 4 * dx && x < low) flow->forcez[n] = 0.02;
    if (z == (param->samples_z - 4) * dx + flow->startz && x > high) flow->forcez[n] = -0.02;
    if (x == 4 * dx && z > high) flow->forcex[n] = 0.02;
    if (x == (param->samples_x - 4) * dx + flow->startx && z < low) flow->forcex[n] = -0.02;
}

// Launch the operators of the same names over the domain of a device record.
void mlRestoreUOpt(mlFlow* flow, const MLFluidParam* param);
void mlCalMacroGpu(mlFlow* flow, const MLFluidParam* param);
void mlCopyFTilde(mlFlow* flow, const MLFluidParam* param);
void mlCalForceTerm(mlFlow* flow, const MLFluidParam* param, bool wallJets, bool inletVelocity,
                    float phase);

}  // namespace drelt
