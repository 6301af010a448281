// Nodes with a prescribed velocity, on the host side of a fluid domain.
#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "cslbm/mlsolver/mlLattice.h"
#include "simulatorInterface/FluidHelper.h"

namespace drelt::FluidHelper {
namespace {

std::string text(const mlVelocity3D<float>& v) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "(%g, %g, %g)", v.x, v.y, v.z);
    return buffer;
}

void setState(mlFlow& flow, std::int64_t n, float ux, float uy, float uz) {
    flow.ux[n] = ux;
    flow.uy[n] = uy;
    flow.uz[n] = uz;
    for (int i = 0; i < kDirections; ++i) {
        const std::int64_t entry = i * flow.count + n;
        flow.f[entry] = flow.fPost[entry] = hostEquilibrium(i, flow.rou[n].value, ux, uy, uz);
    }
}

}  // namespace

void markInlet(mlFlow& flow, const mlVelocity3D<float>& position,
               const mlVelocity3D<float>& velocity, float u0k) {
    const MLFluidParam& param = *flow.param;
    const float x = std::floor((position.x - flow.startx) / param.width * param.samples_x);
    const float y = std::floor((position.y - flow.starty) / param.height * param.samples_y);
    const float z = std::floor((position.z - flow.startz) / param.depth * param.samples_z);
    const bool inside = x >= 0 && x < param.samples_x && y >= 0 && y < param.samples_y && z >= 0 &&
                        z < param.samples_z;
    if (!inside) {
        throw std::out_of_range("inlet: the position " + text(position) +
                                " m lies outside the fluid box, which begins at " +
                                text({flow.startx, flow.starty, flow.startz}) + " m and measures " +
                                text({param.width, param.height, param.depth}) +
                                " m; give a position inside");
    }
    const float ux = velocity.x * u0k;
    const float uy = velocity.y * u0k;
    const float uz = velocity.z * u0k;
    if (!std::isfinite(ux) || !std::isfinite(uy) || !std::isfinite(uz)) {
        throw std::invalid_argument("inlet: the velocity " + text(velocity) + " times u0k " +
                                    std::to_string(u0k) + " is not finite; give finite numbers");
    }
    const std::int64_t n = static_cast<std::int64_t>(x) +
                           param.samples_x * (static_cast<std::int64_t>(y) +
                                              param.samples_y * static_cast<std::int64_t>(z));
    flow.flag[n] = ML_NODE_INLET;
    setState(flow, n, ux, uy, uz);
}

void clearInlets(mlFlow& flow) {
    const MLFluidParam& param = *flow.param;
    std::int64_t n = 0;
    for (int z = 0; z < param.samples_z; ++z)
        for (int y = 0; y < param.samples_y; ++y)
            for (int x = 0; x < param.samples_x; ++x, ++n) {
                const MLLATTICENODE_FLAG before = flow.flag[n];
                if (keepsItsState(before)) continue;
                flow.flag[n] = positionFlag(flow, x, y, z);
                if (before == ML_NODE_INLET || flow.flag[n] != ML_NODE_FLUID) {
                    setState(flow, n, 0, 0, 0);
                }
            }
}

}  // namespace drelt::FluidHelper
