#include "simulatorInterface/BodyWatch.h"

#include <array>
#include <dart/dynamics/Frame.hpp>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/skWorld.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/messages.h"
#include "supplement/MLCuMemcpy.h"

namespace drelt {
namespace {

struct Range {
    float low, high;
};

// The box [m] along x, y, z, where the next step will have it.
std::array<Range, 3> boxOf(skWorld& world, const mlFlow& domain) {
    const MLFluidParam& grid = *domain.param;
    Eigen::Vector3d start(domain.startx, domain.starty, domain.startz);
    if (!world.isFixed()) {
        start = world.getFrame()->getWorldTransform().translation() -
                0.5 * Eigen::Vector3d(grid.width, grid.height, grid.depth);
    }
    const std::array<int, 3> nodes{grid.samples_x, grid.samples_y, grid.samples_z};
    std::array<Range, 3> box{};
    for (int a = 0; a < 3; ++a) {
        box[a] = {static_cast<float>(start[a]),
                  static_cast<float>(start[a] + nodes[a] * static_cast<double>(grid.dx))};
    }
    return box;
}

}  // namespace

void BodyWatch::start() { reported_.clear(); }

void BodyWatch::look(skWorld& world, const mlFlow& domain, int step) {
    reported_.resize(world.getNumSkeletons(), false);
    for (int i = 0; i < world.getNumSkeletons(); ++i) {
        if (reported_[i]) continue;
        const int samples = outside(i, world, domain);
        if (samples == 0) continue;
        reported_[i] = true;
        warn("step " + std::to_string(step) + ": " + std::to_string(samples) + " of " +
             std::to_string(world.getSkeleton(i)->sampler().sampleCount()) + " samples of body " +
             std::to_string(i) + " ('" + world.getSkeleton(i)->description()->mesh->filePath +
             "') lie outside the fluid box, where no fluid acts on them; make the box larger "
             "(width, height, depth) or move its centre (x0, y0, z0)");
    }
}

// The number of samples outside the box.
int BodyWatch::outside(int body, skWorld& world, const mlFlow& domain) {
    const auto system = world.getSkeleton(body);
    const IBBoundaryMemMgr& mirror = system->sampler().boundaryMgr();
    if (mirror.mllaboundary == nullptr || mirror.mllaboundary->count == 0) return 0;
    const auto count = static_cast<std::size_t>(mirror.mllaboundary->count);
    positions_.resize(3 * count);
    const float* const device[] = {mirror.coordx_dev, mirror.coordy_dev, mirror.coordz_dev};
    const float* const host[] = {mirror.mllaboundary->coordx, mirror.mllaboundary->coordy,
                                 mirror.mllaboundary->coordz};
    for (int a = 0; a < 3; ++a) {
        const bool onDevice = system->useGpuPath();
        _MLCuMemcpy(&positions_[a * count], onDevice ? device[a] : host[a], count * sizeof(float),
                    onDevice ? cudaMemcpyDeviceToHost : cudaMemcpyHostToHost);
    }
    const std::array<Range, 3> box = boxOf(world, domain);
    int found = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bool inside = true;
        for (int a = 0; a < 3; ++a) {
            const float place = positions_[a * count + i];
            inside = inside && place >= box[a].low && place < box[a].high;
        }
        found += inside ? 0 : 1;
    }
    return found;
}

}  // namespace drelt
