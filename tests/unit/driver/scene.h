// What the driver's tests share.
#pragma once

#include <memory>

#include "simulatorInterface/simParams.h"

namespace drelt::test {

// A box of nx x ny x nz nodes, 8 of them to the bundled sphere's diameter of 0.02 m; 0.1 m/s is 0.1 in
// lattice units.
inline std::shared_ptr<simParams> boxOf(int nx, int ny, int nz, int layer = 0, float visp = 4e-5f) {
    auto p = std::make_shared<simParams>();
    p->setup_mode = simParams::MANUAL;
    p->N = 8;
    p->l0p = 0.02f;
    p->u0p = p->u0k = 0.1f;
    p->visp = visp;
    p->rou0p = 1000;
    // half a node short, so that the counted nodes do not depend on rounding
    const auto length = [](int nodes) { return (static_cast<float>(nodes) - 0.5f) * 0.0025f; };
    p->width = length(nx);
    p->height = length(ny);
    p->depth = length(nz);
    p->pml_width = layer;
    return p;
}

}  // namespace drelt::test
