#include "cslbm/fused/ProductionDomain.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "cslbm/fused/FusedDeviceDomain.h"
#include "cslbm/fused/FusedDomain.h"
#include "platform/runtime.h"

namespace drelt {

bool ProductionDomain::tooThin(const MLFluidParam& param) {
    return std::min({param.samples_x, param.samples_y, param.samples_z}) < leastNodes(param);
}

void ProductionDomain::requireInnerNodes(const MLFluidParam& param) {
    if (!tooThin(param)) return;
    throw std::invalid_argument(
        "a box of " + std::to_string(param.samples_x) + " x " + std::to_string(param.samples_y) +
        " x " + std::to_string(param.samples_z) + " nodes is too thin for a layer of " +
        std::to_string(param.pml_width) + ": give it at least " +
        std::to_string(leastNodes(param)) + " nodes along each axis");
}

double ProductionDomain::bytesPerNode(const MLFluidParam& param) {
    return platform::hostReachesDevice() ? FusedDomain::bytesPerNode(param)
                                         : FusedDeviceDomain::bytesPerNode(param);
}

void ProductionDomain::takeMotion(FusedState& s, const FrameMotion& motion) {
    for (int a = 0; a < 3; ++a) {
        const double acceleration = motion.lengthScale[a] * -motion.linearAcceleration[a];
        s.acceleration[a] = motion.turns() ? 0.0f : static_cast<float>(acceleration);
    }
    s.whole = s.momentsGiven || s.bodyAcceleration[0] != 0.0f || s.bodyAcceleration[1] != 0.0f ||
              s.bodyAcceleration[2] != 0.0f;
}

std::unique_ptr<ProductionDomain> makeProductionDomain(const MLFluidParam& param, float nu,
                                                       float sigmaMax) {
    if (platform::hostReachesDevice()) return std::make_unique<FusedDomain>(param, nu, sigmaMax);
    return std::make_unique<FusedDeviceDomain>(param, nu, sigmaMax);
}

}  // namespace drelt
