// What commitInit checks before it changes anything.
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/messages.h"
#include "simulatorInterface/FluidHelper.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt {
namespace {

constexpr double kRounding = 1e-5;  // relative difference that single precision may leave

bool differ(double a, double b) {
    return !(std::fabs(a - b) <= kRounding * std::fmax(std::fabs(a), std::fabs(b)));
}

std::string text(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

}  // namespace

void coupledLBM_sim3D::checkWorld() const {
    if (!world) {
        throw std::runtime_error("commitInit: no world is attached; call attachWorld first");
    }
    if (world->getNumSkeletons() == 0) {
        throw std::runtime_error(
            "commitInit: the attached world has no skeleton; call its addSkeleton first");
    }
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        const auto body = world->getSkeleton(s);
        if (body->gpuId == gpuId) continue;
        throw std::invalid_argument(
            "commitInit: the simulator is on device " + std::to_string(gpuId) + ", skeleton " +
            std::to_string(s) + " of its world ('" + body->description()->mesh->filePath +
            "') on device " + std::to_string(body->gpuId) + "; give both the same device id");
    }
    if (world->locked() && !locksWorld_) {
        throw std::runtime_error(
            "commitInit: another simulator has committed this world; give each simulator a world "
            "of its own, or drop the other simulator first");
    }
}

void coupledLBM_sim3D::checkTimeStep() const {
    const mlUnitScale scale = params.front()->computeUnitScale();
    const float dt = (scale.u0k * scale.l0p) / (scale.u0px * scale.N);
    const bool possible = scale.u0k > 0 && scale.u0px > 0 && dt > 0 && std::isfinite(dt);
    if (possible) return;
    char message[256];
    std::snprintf(
        message, sizeof message,
        "commitInit: the time step is %g s; it is l0p u0k / (N u0p), with l0p %g m, u0k %g, "
        "N %g and u0p %g m/s: set finite positive ones",
        dt, scale.l0p, scale.u0k, scale.N, scale.u0px);
    throw std::invalid_argument(message);
}

// The bodies are placed on the grid by N / l0p, so the spacing of the grid must be l0p / N.
void coupledLBM_sim3D::checkSpacing() const {
    const simParams& p = *params.front();
    const float spacing = p.l0p / p.N;
    const float made = lbmvec.front()->param->dx;
    if (differ(made, spacing)) {
        throw std::invalid_argument("commitInit: the simulator was made with a node spacing of " +
                                    text(made) + " m, but l0p / N is now " + text(spacing) +
                                    " m; make the simulator anew, or set N and l0p back");
    }
    if (differ(p.dx, spacing)) {
        throw std::invalid_argument("commitInit: the node spacing dx is " + text(p.dx) +
                                    " m, but l0p / N is " + text(spacing) +
                                    " m; set dx to -1 and make the simulator anew");
    }
}

void coupledLBM_sim3D::checkFluid() const {
    const auto slips = [](float ratio) { return ratio >= 0 && ratio <= 1; };
    const simParams& p = *params.front();
    const bool possible = p.visp >= 0 && std::isfinite(p.visp) && p.rou0p > 0 &&
                          std::isfinite(p.rou0p) && slips(p.slip_ratio);
    char message[256];
    if (!possible) {
        std::snprintf(message, sizeof message,
                      "commitInit: the fluid has visp %g m^2/s, rou0p %g kg/m^3 and slip_ratio %g; "
                      "set finite ones, the density positive, the viscosity not negative, and "
                      "slip_ratio between 0 and 1",
                      p.visp, p.rou0p, p.slip_ratio);
        throw std::invalid_argument(message);
    }
    const mlFlow& made = *lbmvec.front();
    if (made.v0k >= 0 && std::isfinite(made.v0k) && slips(made.param->slip_ratio)) return;
    std::snprintf(message, sizeof message,
                  "commitInit: the simulator was made with a lattice viscosity of %g and a "
                  "slip_ratio of %g, and keeps them; the viscosity must not be negative and "
                  "slip_ratio must lie between 0 and 1: correct the parameters and make the "
                  "simulator anew",
                  made.v0k, made.param->slip_ratio);
    throw std::invalid_argument(message);
}

void coupledLBM_sim3D::warnOfEdits() const {
    const simParams& p = *params.front();
    const mlFlow& made = *lbmvec.front();
    const MLFluidParam& grid = *made.param;
    std::string edited;
    const auto compare = [&](const char* name, double had, double now) {
        if (!differ(had, now)) return;
        edited += (edited.empty() ? "" : ", ") + std::string(name) + " " + text(had) + " (now " +
                  text(now) + ")";
    };
    compare("width", grid.width, p.width);
    compare("height", grid.height, p.height);
    compare("depth", grid.depth, p.depth);
    compare("pml_width", grid.pml_width, p.pml_width);
    compare("slip_ratio", grid.slip_ratio, p.slip_ratio);
    compare("lattice viscosity", made.v0k, (p.u0k * p.N * p.visp) / (p.u0p * p.l0p));
    if (edited.empty()) return;
    warn("commitInit: the parameters were edited after the simulator was made, which keeps " +
         edited + "; make the simulator anew to use the new values");
}

// What the next solver takes beyond what the present one gives back.
void coupledLBM_sim3D::checkMemory(const mlSinglePhaseSolverNew& next) const {
    double needed = 0;
    for (const mlFlow* const flow : lbmvec) {
        const MLFluidParam& grid = *flow->param;
        const double side = FluidHelper::deviceSideBytes(grid, gpuId, next.schedule);
        needed += side;
        if (next.schedule == Schedule::Operators && !populationsWritten_)
            needed += FluidHelper::hostPopulationBytes(grid);
        const bool onHost = side > 0;  // the sums of the weights are device memory too
        if (onHost && next.weights == ForcingWeights::Normalised) needed += NodeSums::bytes(grid);
        if (!solver) continue;
        needed -= FluidHelper::deviceSideBytes(grid, solver->gpuDeviceId, solver->schedule);
        if (onHost && solver->weights == ForcingWeights::Normalised)
            needed -= NodeSums::bytes(grid);
    }
    FluidHelper::checkMemory(*lbmvec.front()->param, needed);
}

}  // namespace drelt
