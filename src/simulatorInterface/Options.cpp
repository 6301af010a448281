// The options of a simulation: what commitInit checks about them, and what it does with them.
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/Sampler/SampleInset.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/messages.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt {
namespace {

// The equilibrium is a series in the velocity; beyond this Mach number its error is no longer small.
constexpr double kHighestMach = 0.3;
constexpr double kLargestDensityChange = 0.1;

std::string text(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

std::string text(const Eigen::Vector3d& v) {
    return "(" + text(v.x()) + ", " + text(v.y()) + ", " + text(v.z()) + ")";
}

void requireCurrent(const std::string& operation, const Eigen::Vector3d& current,
                    OpenPlaneKind planes, const mlUnitScale& scale) {
    if (!current.allFinite()) {
        throw std::invalid_argument(operation + ": the current is " + text(current) +
                                    " m/s; give three finite numbers");
    }
    if (!current.isZero(0) && planes == OpenPlaneKind::Copy) {
        throw std::invalid_argument(
            operation + ": the current is " + text(current) +
            " m/s, but the open planes copy the fluid inside them, so nothing holds it; set "
            "open_planes to CHARACTERISTIC before commitInit, or the current to 0");
    }
    const double lattice = current.norm() * (static_cast<double>(scale.u0k) / scale.u0px);
    const double highest = kHighestMach / std::sqrt(3.0);
    if (!(lattice <= highest)) {
        throw std::invalid_argument(
            operation + ": the current " + text(current) + " m/s has a speed of " + text(lattice) +
            " in lattice units (times u0k / u0p), more than " + text(highest) + " (Mach " +
            text(kHighestMach) + "); make u0k smaller or the current slower");
    }
}

Eigen::Vector3d currentOf(const simParams& params) {
    return {params.current[0], params.current[1], params.current[2]};
}

void requireMember(const char* option, const char* enumeration, int value, int members) {
    if (value >= 0 && value < members) return;
    throw std::invalid_argument("commitInit: " + std::string(option) + " is " +
                                std::to_string(value) + "; give a member of " + enumeration);
}

}  // namespace

void coupledLBM_sim3D::checkOptions() const {
    simParams& p = *params.front();
    requireMember("coupling", "COUPLING", static_cast<int>(p.coupling), 2);
    requireMember("weights", "WEIGHTS", static_cast<int>(p.weights), 2);
    requireMember("open_planes", "OPEN_PLANES", static_cast<int>(p.open_planes), 3);
    if (p.weights != ForcingWeights::Area && p.coupling == Coupling::Explicit) {
        throw std::invalid_argument(
            "commitInit: weights is NORMALISED, which works only with the semi-implicit coupling; "
            "set coupling to SEMI_IMPLICIT, or weights to AREA");
    }
    if (!(std::fabs(p.far_density - 1.0) <= kLargestDensityChange)) {
        throw std::invalid_argument("commitInit: far_density is " + text(p.far_density) +
                                    "; give 0.9 to 1.1 reference densities");
    }
    if (p.far_density != 1 && p.open_planes == OpenPlaneKind::Copy) {
        throw std::invalid_argument(
            "commitInit: far_density is " + text(p.far_density) +
            ", but the open planes copy the fluid inside them, so nothing holds it; set "
            "open_planes to CHARACTERISTIC, or far_density to 1");
    }
    requireCurrent("commitInit", currentOf(p), p.open_planes, p.computeUnitScale());
    checkRetraction();
    const MLFluidParam& grid = *lbmvec.front()->param;
    world->requireCoupling(p.coupling, p.rou0p, grid.dx, grid.slip_ratio, p.weights);
}

void coupledLBM_sim3D::checkRetraction() const {
    const float retraction = params.front()->retraction;
    if (!(std::isfinite(retraction) && retraction >= 0)) {
        throw std::invalid_argument("commitInit: retraction is " + text(retraction) +
                                    " node spacings; give a finite number of 0 or more, for "
                                    "example 0.8");
    }
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        const SkeletalMesh& mesh = *world->getSkeleton(s)->description()->mesh;
        const double extent = largestExtent(mesh);
        if (extent == 0 || retractionInMetres() <= 0.5 * extent) continue;
        throw std::invalid_argument(
            "commitInit: retraction is " + text(retraction) + " node spacings, " +
            text(retractionInMetres()) + " m, more than half the largest extent of body " +
            std::to_string(s) + " ('" + mesh.filePath + "'), " + text(extent) +
            " m; make it smaller, for example 0.8, or use more nodes per length (N)");
    }
}

double coupledLBM_sim3D::retractionInMetres() const {
    return static_cast<double>(params.front()->retraction) * lbmvec.front()->param->dx;
}

void coupledLBM_sim3D::takeOptions(mlSinglePhaseSolverNew& next) const {
    const simParams& p = *params.front();
    next.coupling = p.coupling;
    next.weights = p.weights;
    next.openPlanes = p.open_planes;
    next.farDensity = p.far_density;
    next.current = currentOf(p);
}

void coupledLBM_sim3D::requireOptionsOfCommit() const {
    const simParams& now = *params.front();
    const char* changed = nullptr;
    const auto compare = [&](const char* name, auto simParams::*option) {
        if (!(now.*option == committed_.*option)) changed = name;
    };
    compare("coupling", &simParams::coupling);
    compare("weights", &simParams::weights);
    compare("retraction", &simParams::retraction);
    compare("open_planes", &simParams::open_planes);
    compare("far_density", &simParams::far_density);
    compare("current", &simParams::current);
    if (changed == nullptr) return;
    throw std::runtime_error("step: the option " + std::string(changed) +
                             " was changed after commitInit, which had taken another value. Set it "
                             "back, call commitInit "
                             "again to start anew with it, or give each simulator a simParam of "
                             "its own. The current has "
                             "setCurrent");
}

void coupledLBM_sim3D::retractSamples() {
    const double distance = retractionInMetres();
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        skSystem& body = *world->getSkeleton(s);
        IBSamplerMesh& sampler = body.sampler();
        if (sampler.retraction() == distance) continue;
        sampler.setRetraction(distance);
        body.update();
        bool moved = sampler.insets().empty();
        for (const float inset : sampler.insets()) moved = moved || inset > 0;
        if (moved) continue;
        warn("commitInit: no sample of body " + std::to_string(s) + " ('" +
             body.description()->mesh->filePath +
             "') moves inside by the retraction: its skin has no thickness, or its normals point "
             "inwards");
    }
}

// The velocity that all fluid starts with [lattice units], as seen from the grid: that of the far fluid.
// Copied planes hold no far fluid; with them the fluid starts at rest on the grid.
Vector3<float> coupledLBM_sim3D::startVelocity() {
    if (solver->openPlanes == OpenPlaneKind::Copy) return {0.0f, 0.0f, 0.0f};
    for (int s = 0; s < world->getNumSkeletons(); ++s) world->getSkeleton(s)->update();
    return solver->farState().u;
}

void coupledLBM_sim3D::setCurrent(const Eigen::Vector3d& velocity) {
    requireSolver("setCurrent");
    requireCurrent("setCurrent", velocity, solver->openPlanes, solver->scale);
    solver->current = velocity;
}

Eigen::Vector3d coupledLBM_sim3D::getCurrent() const {
    requireSolver("getCurrent");
    return solver->current;
}

}  // namespace drelt
