#include "falling_sphere.h"

#include <unistd.h>

#include <fstream>

#include "SkeletonDynamics/SkeletonDescription.h"

namespace drelt::bench {

using Eigen::Vector3d;

std::unique_ptr<coupledLBM_sim3D> fallingSphere(const Grid& grid, int samples, Schedule schedule,
                                                const std::function<void(simParams&)>& choose) {
    auto p = std::make_shared<simParams>();
    p->setup_mode = simParams::MANUAL;
    p->N = 16;
    p->l0p = 0.02f;
    p->u0p = p->u0k = 0.1f;
    p->visp = 4e-5f;
    p->rou0p = 1000;
    // half a spacing less than the count, so that rounding cannot change the number of nodes
    p->width = (static_cast<float>(grid.nx) - 0.5f) * 0.00125f;
    p->height = (static_cast<float>(grid.ny) - 0.5f) * 0.00125f;
    p->depth = (static_cast<float>(grid.nz) - 0.5f) * 0.00125f;
    p->pml_width = grid.pml_width;
    choose(*p);
    auto simulator = std::make_unique<coupledLBM_sim3D>(p, setup().device);
    const auto world = std::make_shared<skWorld>(Vector3d(0.5, 0, 0));
    world->addSkeleton(
        std::make_shared<skSystem>(skeletonFromJson("assets/sphere.json", setup().device), samples,
                                   setup().device, Vector3d::Zero(), Vector3d::Zero()));
    simulator->schedule = schedule;
    simulator->attachWorld(world);
    simulator->commitInit();
    return simulator;
}

double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

}  // namespace drelt::bench
