#include "simulatorInterface/coupledLBM_sim3D.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <dart/dynamics/Frame.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "Markers/Markers.h"
#include "SkeletonDynamics/skSystem.h"
#include "cslbm/fused/FusedDomain.h"
#include "output/mlVTKWrtier.h"
#include "simulatorInterface/FluidHelper.h"

namespace drelt {

namespace {

// [s]
float timeStep(const mlUnitScale& scale) {
    return (scale.u0k * scale.l0p) / (scale.u0px * scale.N);
}

// The environment's choice comes before the scene's: a way to the operators from any script.
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
    params.push_back(std::move(param));
    createFlows();
}

coupledLBM_sim3D::coupledLBM_sim3D(const coupledLBM_sim3D& other)
    : gpuId(other.gpuId), params(other.params) {
    createFlows();
}

coupledLBM_sim3D::~coupledLBM_sim3D() {
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

void coupledLBM_sim3D::checkBodies() const {
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
        throw std::invalid_argument("commitInit: the simulator is on device " +
                                    std::to_string(gpuId) + ", a skeleton of its world on device " +
                                    std::to_string(body->gpuId) + "; give both the same device id");
    }
}

void coupledLBM_sim3D::checkTimeStep() const {
    const mlUnitScale scale = params.front()->computeUnitScale();
    const float dt = timeStep(scale);
    const bool possible = scale.u0k > 0 && scale.u0px > 0 && dt > 0 && std::isfinite(dt);
    if (possible) return;
    char text[256];
    std::snprintf(
        text, sizeof text,
        "commitInit: the time step is %g s; it is l0p u0k / (N u0p), with l0p %g m, u0k %g, "
        "N %g and u0p %g m/s: set finite positive ones",
        dt, scale.l0p, scale.u0k, scale.N, scale.u0px);
    throw std::invalid_argument(text);
}

void coupledLBM_sim3D::checkFluid() const {
    const simParams& p = *params.front();
    const bool possible = p.visp >= 0 && std::isfinite(p.visp) && p.rou0p > 0 &&
                          std::isfinite(p.rou0p) && std::isfinite(p.slip_ratio);
    if (possible) return;
    char text[256];
    std::snprintf(text, sizeof text,
                  "commitInit: the fluid has visp %g m^2/s, rou0p %g kg/m^3 and slip_ratio %g: set "
                  "finite ones, the density positive and the viscosity not negative",
                  p.visp, p.rou0p, p.slip_ratio);
    throw std::invalid_argument(text);
}

void coupledLBM_sim3D::commitInit() {
    checkBodies();
    checkTimeStep();
    checkFluid();
    const auto next = createSolver();
    checkMemory(*next);
    if (next->schedule == Schedule::Production)
        fusedSweeps();  // an instruction set that is none is refused
    world->lock();
    solver = next;  // the device side of the old one is freed
    try {
        initialise();
        solver->mlImmersedSolver::gpuDeviceId = gpuId;
        world->setTimestep(solver->scale.dt);
        solver->world = world;
        solver->boundaries = world->getBoundaries();
        if (!world->isFixed()) centreOnBody();
        solver->allocateDevice();
    } catch (...) {
        solver.reset();  // half a solver serves no step
        throw;
    }
}

// What the next solver takes beyond what the present one gives back.
void coupledLBM_sim3D::checkMemory(const mlSinglePhaseSolverNew& next) const {
    double needed = 0;
    for (const mlFlow* const flow : lbmvec) {
        const MLFluidParam& grid = *flow->param;
        needed += FluidHelper::deviceSideBytes(grid, gpuId, next.schedule);
        if (next.schedule == Schedule::Operators && !populationsWritten_)
            needed += FluidHelper::hostPopulationBytes(grid);
        if (solver)
            needed -= FluidHelper::deviceSideBytes(grid, solver->gpuDeviceId, solver->schedule);
    }
    FluidHelper::checkMemory(*lbmvec.front()->param, needed);
}

void coupledLBM_sim3D::initialise() {
    for (mlFlow* const flow : lbmvec) FluidHelper::initialiseFields(*flow);
    const bool fused = solver->schedule == Schedule::Production;
    solver->hostPopulations.assign(lbmvec.size(),
                                   fused ? HostPopulations::AtRest : HostPopulations::Current);
    if (fused) return;
    for (mlFlow* const flow : lbmvec) FluidHelper::initialisePopulations(*flow);
    populationsWritten_ = true;
}

// Without device side.
std::shared_ptr<mlSinglePhaseSolverNew> coupledLBM_sim3D::createSolver() const {
    auto next = std::make_shared<mlSinglePhaseSolverNew>(gpuId);
    next->lbmvec = lbmvec;
    next->lbm_dev_gpu.assign(lbmvec.size(), nullptr);
    next->scale = params.front()->computeUnitScale();
    next->scale.dt = timeStep(next->scale);
    next->collisionOperator = collisionOperator;
    next->boundaryFamily = boundaryFamily;
    next->sigmaMax = params.front()->sigma_max;
    for (const auto& param : params) next->unitScales.push_back(param->computeUnitScale());
    next->schedule = wishedSchedule(schedule);
    for (const mlFlow* const flow : lbmvec)
        next->schedule = next->possibleSchedule(next->schedule, *flow);
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
    requireSolver("step");
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
    ++iterNum;
}

void coupledLBM_sim3D::sampleMarkers() {
    mlFlow* const flow = solver->lbm_dev_gpu.front();
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        Markers& markers = *world->getSkeleton(s)->getMarkers();
        ProductionDomain* const domain = solver->fused(0);
        if (domain != nullptr && !domain->holdsMoments()) {
            const std::vector<NodeBox> cells = markers.cells(*flow);
            domain->prepareMoments(cells.data(), static_cast<int>(cells.size()));
        }
        markers.sample(flow);
    }
}

void coupledLBM_sim3D::reset() {
    requireSolver("reset");
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidHelper::resetFields(*lbmvec[i]);
        if (solver->fused(static_cast<int>(i)) != nullptr) {
            solver->hostPopulations[i] = HostPopulations::AtRest;
        } else {
            FluidHelper::resetPopulations(*lbmvec[i]);
        }
        solver->uploadForcesAndPml(static_cast<int>(i));
    }
    world->reset();
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

void coupledLBM_sim3D::log() {
    std::puts("##System Info##");
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        simParams& param = *params[i];
        const mlUnitScale scale = param.computeUnitScale();
        const MLFluidParam& grid = *lbmvec[i]->param;
        std::printf("time step: %fs   space resolution:%f m \n", param.get_tp(), param.dx);
        std::printf("PML Width: %d \n", param.pml_width);
        std::printf("|  u0k:       %f    |  u0p:     %f m/s    |   l0p: %f m   | rou0p  %f |\n",
                    scale.u0k, scale.u0px, scale.l0p, scale.rou0p);
        std::printf("|  v0k:       %f    |  v0p:     %f m/s    |\n", scale.v0k, scale.v0p);
        std::printf("Reynolds number :  %f \n", scale.Re);
        std::puts("##Fluid Info##");
        std::printf("start (%f,%f,%f)   width %.4f height %.4f depth %.4f \n", grid.startx,
                    grid.starty, grid.startz, grid.width, grid.height, grid.depth);
        std::printf("samples  %d %d %d \n", grid.samples_x, grid.samples_y, grid.samples_z);
    }
    std::fflush(stdout);
}

void coupledLBM_sim3D::bringToHost() {
    if (syncState != DeviceNewer || params.front()->use_gpu != 1) return;
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidHelper::syncToHost(*solver, static_cast<int>(i));
    }
    syncState = HostCurrent;
}

// The device's origins move in steps without fluid too, after which the rest of the host is current.
void coupledLBM_sim3D::bringOriginsToHost() {
    if (params.front()->use_gpu != 1) return;
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidHelper::originToHost(*solver, static_cast<int>(i));
    }
}

void coupledLBM_sim3D::saveScene(int frame, int save_flags) {
    requireSolver("saveScene");
    bringToHost();
    char stem[256];
    if ((save_flags & BODY) != 0) {
        std::snprintf(stem, sizeof stem, "vis_object_%05d", frame);
        saveObjectsData(stem);
    }
    if ((save_flags & FLUID) != 0) {
        std::snprintf(stem, sizeof stem, "vis_fluid%05d", frame);
        saveFluidData(stem);
    }
}

void coupledLBM_sim3D::saveFluidData(const std::string& fluid_name) {
    requireSolver("saveFluidData");
    bringOriginsToHost();
    bringToHost();
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        const std::string path = mainDataFolderPath + fluidFolderName + "/" + std::to_string(i) +
                                 "_" + fluid_name + ".vtk";
        mlVTKWrtier::writeFluid(*lbmvec[i], params[i]->computeUnitScale(), path, world->getFrame());
    }
}

void coupledLBM_sim3D::saveObjectsData(const std::string& object_name) {
    requireSolver("saveObjectsData");
    bringToHost();
    const std::string folder = mainDataFolderPath + objectsFolderName + "/";
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        const std::shared_ptr<skSystem> body = world->getSkeleton(s);
        SkeletalMesh& mesh = *body->description()->mesh;
        const std::string stem = std::to_string(s) + "_" + object_name;
        const auto path = [&](const std::string& prefix) {
            return std::string(folder).append(prefix).append(stem).append(".vtk");
        };
        if (body->useGpuPath()) mesh.update(true, true);
        for (std::size_t j = 0; j < mesh.meshes.size(); ++j) {
            mlVTKWrtier::writeObject(mesh.meshes[j]->data_cpu, path(std::to_string(j)));
        }
        mlVTKWrtier::writeMarkers(body->getMarkers()->data_cpu, path("markers_"));
    }
}

}  // namespace drelt
