// A scene for rows of whole steps.
#pragma once

#include <functional>
#include <memory>

#include "setup.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt::bench {

// A sphere of 16 nodes per diameter in a box of the given grid, committed. `choose` sets options.
std::unique_ptr<coupledLBM_sim3D> fallingSphere(
    const Grid& grid, int samples, Schedule schedule,
    const std::function<void(simParams&)>& choose = [](simParams&) {});

// Memory of the process that is in use.
double residentBytes();

}  // namespace drelt::bench
