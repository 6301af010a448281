#include "simulatorInterface/coupledLBM_sim3D.h"

#include <cstdlib>
#include <dart/dynamics/Frame.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "Markers/Markers.h"
#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/check.h"
#include "platform/messages.h"
#include "simulatorInterface/FluidHelper.h"

namespace drelt {

namespace {

// [s]
float timeStep(const mlUnitScale& scale) {
    return (scale.u0k * scale.l0p) / (scale.u0px * scale.N);
}

// The environment overrides the scene, so that any script can run the operators.
Schedule wishedSchedule(Schedule given) {
    const char* const asked = std::getenv("DRELT_SCHEDULE");
    const std::string name = asked != nullptr ? asked : "";
    if (name.empty()) return given;
    if (name == "operators") return Schedule::Operators;
    if (name == "production") return Schedule::Production;
    throw std::invalid_argument("commitInit: DRELT_SCHEDULE is '" + name +
                                "'; give operators or production, or unset it");
}

}  // namespace

coupledLBM_sim3D::coupledLBM_sim3D(std::shared_ptr<simParams> param, int device) : gpuId(device) {
    if (!param) {
        throw std::invalid_argument("simulator: the parameters are None; give a simParam");
    }
    platform::requireDevice(gpuId, "make_simulator");
    params.push_back(std::move(param));
    createFlows();
}

coupledLBM_sim3D::coupledLBM_sim3D(const coupledLBM_sim3D& other)
    : gpuId(other.gpuId), params(other.params) {
    createFlows();
}

coupledLBM_sim3D::~coupledLBM_sim3D() {
    releaseWorld();
    for (mlFlow* const flow : lbmvec) FluidHelper::destroyFlow(flow);
    lbmvec.clear();
}

void coupledLBM_sim3D::createFlows() {
    lbmvec.clear();
    lbmvec.reserve(1);
    lbmvec.push_back(FluidHelper::createFlow(*params.front(), gpuId));
}

void coupledLBM_sim3D::requireSolver(const char* operation) const {
    if (solver) return;
    throw std::runtime_error(std::string(operation) +
                             ": the simulator is not initialised; call commitInit first");
}

mlFlow& coupledLBM_sim3D::requireDomain(const char* operation, int domain) const {
    requireSolver(operation);
    const int domains = static_cast<int>(lbmvec.size());
    if (domain >= 0 && domain < domains) return *lbmvec[domain];
    throw std::out_of_range(std::string(operation) + ": the simulator holds " +
                            std::to_string(domains) + " domain(s); index " +
                            std::to_string(domain) + " names none, give 0 to " +
                            std::to_string(domains - 1));
}

void coupledLBM_sim3D::attachWorld(std::shared_ptr<skWorld> bodies) {
    if (solver) {
        throw std::runtime_error(
            "attachWorld: the simulator is initialised already; attach the world before "
            "commitInit");
    }
    world = std::move(bodies);
}

void coupledLBM_sim3D::commitInit() {
    checkWorld();
    checkTimeStep();
    checkSpacing();
    checkFluid();
    checkOptions();
    const auto next = createSolver();
    checkMemory(*next);
    warnOfEdits();
    world->lock();
    locksWorld_ = true;
    solver = next;  // frees the device side of the old one
    try {
        initialise();
    } catch (...) {
        solver.reset();  // no step can use an unfinished solver
        releaseWorld();
        throw;
    }
    committed_ = *params.front();
    watch_.start();
    watch_.look(*world, *lbmvec.front(), 0);
}

void coupledLBM_sim3D::initialise() {
    solver->mlImmersedSolver::gpuDeviceId = gpuId;
    world->setTimestep(solver->scale.dt);
    world->setFluidDensity(solver->scale.rou0p);
    retractSamples();
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        world->getSkeleton(s)->sampler().beginCoupling(lbmvec.front()->param->dx);
    }
    solver->world = world;
    solver->boundaries = world->getBoundaries();
    const Vector3<float> start = startVelocity();
    if (!world->isFixed()) centreOnBody();
    startFluid(start);
    rememberCommit(start);
}

// Fluid with one velocity (lattice units) on the host and on the device.
void coupledLBM_sim3D::startFluid(const Vector3<float>& velocity) {
    const bool production = solver->schedule == Schedule::Production;
    for (mlFlow* const flow : lbmvec) {
        FluidHelper::initialiseFields(*flow);
        setUniformMomentum(*flow, velocity);
        if (!production) FluidHelper::initialisePopulations(*flow, velocity);
    }
    populationsWritten_ = populationsWritten_ || !production;
    solver->allocateDevice(production ? HostPopulations::Uniform : HostPopulations::Current,
                           velocity);
}

void coupledLBM_sim3D::releaseWorld() {
    if (locksWorld_) world->unlock();
    locksWorld_ = false;
}

// A solver with the simulator's choices, still without its device side.
std::shared_ptr<mlSinglePhaseSolverNew> coupledLBM_sim3D::createSolver() const {
    auto next = std::make_shared<mlSinglePhaseSolverNew>(gpuId);
    next->lbmvec = lbmvec;
    next->lbm_dev_gpu.assign(lbmvec.size(), nullptr);
    next->scale = params.front()->computeUnitScale();
    next->scale.dt = timeStep(next->scale);
    next->collisionOperator = collisionOperator;
    next->boundaryFamily = boundaryFamily;
    next->sigmaMax = params.front()->sigma_max;
    takeOptions(*next);
    for (const auto& param : params) next->unitScales.push_back(param->computeUnitScale());
    next->schedule = wishedSchedule(schedule);
    for (const mlFlow* const flow : lbmvec) {
        if (next->schedule == Schedule::Operators) break;
        const std::string obstacle = next->productionObstacle(*flow);
        if (obstacle.empty()) continue;
        next->schedule = Schedule::Operators;
        inform("[Info] commitInit: steps run by the operators: %s\n", obstacle.c_str());
    }
    return next;
}

void coupledLBM_sim3D::centreOnBody() {
    const Eigen::Vector3d place = world->getFrame()->getWorldTransform().translation();
    mlFlow& flow = *lbmvec.front();
    flow.startx = static_cast<float>(place.x() - flow.param->width / 2.0);
    flow.starty = static_cast<float>(place.y() - flow.param->height / 2.0);
    flow.startz = static_cast<float>(place.z() - flow.param->depth / 2.0);
}

void coupledLBM_sim3D::step(couplingMode couple_mode) {
    requireCouplingMode(couple_mode, "step");
    requireSolver("step");
    requireOptionsOfCommit();
    try {
        advance(couple_mode);
    } catch (...) {
        // a body that has left the box is often why the step failed
        watch_.look(*world, *lbmvec.front(), iterNum);
        throw;
    }
    ++iterNum;
    if (iterNum % BodyWatch::kSteps == 0 && advancesFluid(couple_mode)) {
        watch_.look(*world, *lbmvec.front(), iterNum);
    }
}

void coupledLBM_sim3D::advance(couplingMode couple_mode) {
    world->requireBoundedMotion(couple_mode, solver->scale.dt, solver->scale.l0p / solver->scale.N);
    if (params.front()->use_gpu == 1 && advancesFluid(couple_mode)) {
        if (syncState == HostNewer) {
            for (std::size_t i = 0; i < lbmvec.size(); ++i) {
                FluidHelper::syncToDevice(*solver, static_cast<int>(i));
            }
        }
        syncState = DeviceNewer;
    }
    solver->step(couple_mode);
    sampleMarkers();
}

void coupledLBM_sim3D::sampleMarkers() {
    FluidDomain& domain = solver->domain(0);
    mlFlow* const flow = domain.record();
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        Markers& markers = *world->getSkeleton(s)->getMarkers();
        if (!domain.holdsMoments()) {
            const std::vector<NodeBox> cells = markers.cells(*flow);
            domain.prepareMoments(cells.data(), static_cast<int>(cells.size()));
        }
        markers.sample(flow);
    }
}

void coupledLBM_sim3D::reset() {
    requireSolver("reset");
    const int domains = static_cast<int>(lbmvec.size());
    for (int i = 0; i < domains; ++i) solver->domain(i).requireResettable(*lbmvec[i]);
    world->reset();
    const Vector3<float> start = startVelocity();
    for (int i = 0; i < domains; ++i) {
        FluidHelper::resetFields(*lbmvec[i]);
        setUniformMomentum(*lbmvec[i], start);
        solver->domain(i).reset(*lbmvec[i], start);
    }
    iterNum = 0;
    syncState = HostNewer;
}

std::array<double, 3> coupledLBM_sim3D::toReferenceVelocity(float x, float y, float z) {
    requireSolver("toReferenceVelocity");
    bringToHost();
    const double u0k = params.front()->u0k;
    return {x / u0k, y / u0k, z / u0k};
}

void coupledLBM_sim3D::markInlet(int domain, const mlVelocity3D<float>& position,
                                 const mlVelocity3D<float>& velocity) {
    mlFlow& flow = requireDomain("markInlet", domain);
    bringOriginsToHost();
    bringToHost();
    FluidHelper::populationsToHost(*solver, domain);
    FluidHelper::markInlet(flow, position, velocity, params.front()->u0k);
    syncState = HostNewer;
}

void coupledLBM_sim3D::clearInlets(int domain) {
    mlFlow& flow = requireDomain("clearInlets", domain);
    bringOriginsToHost();
    bringToHost();
    FluidHelper::populationsToHost(*solver, domain);
    FluidHelper::clearInlets(flow);
    syncState = HostNewer;
}

int coupledLBM_sim3D::getIterPerSave(int frame_rate) {
    return params.front()->getIterPerSave(frame_rate);
}

void coupledLBM_sim3D::bringToHost() {
    if (syncState != DeviceNewer || params.front()->use_gpu != 1) return;
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidHelper::syncToHost(*solver, static_cast<int>(i));
    }
    syncState = HostCurrent;
}

// Steps without fluid move the origin on the device too, while the rest of the host stays current.
void coupledLBM_sim3D::bringOriginsToHost() {
    if (params.front()->use_gpu != 1) return;
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidHelper::originToHost(*solver, static_cast<int>(i));
    }
}

}  // namespace drelt
