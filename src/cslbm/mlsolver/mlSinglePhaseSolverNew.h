// The solver: the device records of all domains, and the order of a step.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cslbm/domain/FluidDomain.h"
#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlBaseCouplingSolver.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

// Owns device memory only: host records belong to the caller and outlive this object.
class mlSinglePhaseSolverNew : public mlImmersedSolver {
public:
    explicit mlSinglePhaseSolverNew(int device);
    ~mlSinglePhaseSolverNew();
    mlSinglePhaseSolverNew(const mlSinglePhaseSolverNew&) = delete;
    mlSinglePhaseSolverNew& operator=(const mlSinglePhaseSolverNew&) = delete;

    // Why the production schedule cannot compute a domain with the choices below; empty if it can.
    // Throws std::invalid_argument if DRELT_INSTRUCTIONS names an instruction set that is not there.
    std::string productionObstacle(const mlFlow& host) const;

    // One time step of all domains; mode is a couplingMode. Needs the device side of every domain and a
    // world with at least one body. Throws std::invalid_argument for another mode and std::logic_error
    // for choices that the schedule does not have, before anything changes.
    void step(int mode);

    // The first part of an explicit step: adds the forces of the samples to the grid of domain i.
    void couple(int i);

    // Allocates the device side of all domains for `schedule` and uploads the host records; frees what
    // was there. `held` tells what the populations of the host records hold; Stale is not allowed.
    // `velocity` is that of Uniform [lattice units].
    void allocateDevice(HostPopulations held = HostPopulations::Current,
                        const Vector3<float>& velocity = {0.0f, 0.0f, 0.0f});
    // Frees the device side of all domains.
    void freeDevice();
    // Selects the device and gives domain i.
    FluidDomain& domain(int i) const;
    // What characteristic planes hold: the far fluid as seen from the grid, lattice units.
    FarState farState() const;
    // Brings forces and layer data of domain i to the device. Throws std::logic_error under the
    // production schedule, which keeps no layer data.
    void uploadForcesAndPml(int i);

    int gpuDeviceId;
    std::vector<mlFlow*> lbmvec;  // host records, one per domain; not owned
    // Device records, one per domain, null until allocated. Under the production schedule they have no
    // populations: single operators need Schedule::Operators.
    std::vector<mlFlow*> lbm_dev_gpu;
    std::vector<mlUnitScale> unitScales;  // one per parameter record
    std::shared_ptr<mlBaseCouplingSolver> world;
    // As of the next allocateDevice.
    Schedule schedule = Schedule::Operators;
    float sigmaMax = 0.01f;  // damping of the absorbing layer at the outer faces
    // The collision and the boundaries of a step; under the operator schedule they may change between
    // steps. A simulator that is committed again has a new solver, with the simulator's choices.
    CollisionOperator collisionOperator = CollisionOperator::HighorderFitted;
    BoundaryFamily boundaryFamily = BoundaryFamily::NonEquilibriumExtrapolation;
    OpenPlaneKind openPlanes = OpenPlaneKind::Copy;
    // How a TWO_WAY step couples; may change between steps. SemiImplicit needs a slip ratio of 0.
    Coupling coupling = Coupling::Explicit;
    ForcingWeights weights = ForcingWeights::Area;  // of the semi-implicit coupling
    // What characteristic planes hold far away: density in lattice units, velocity in the world [m/s].
    // They may change between steps.
    float farDensity = 1.0f;
    Eigen::Vector3d current = Eigen::Vector3d::Zero();

    // The device array behind each field of the device record, one entry per domain; empty under the
    // production schedule, whose record changes its arrays from step to step.
    std::vector<float*> f_dev_vec, fPost_dev_vec, fStore_dev_vec;
    std::vector<mlDensity<float>*> rou_dev_vec;
    std::vector<float*> ux_dev_vec, uy_dev_vec, uz_dev_vec;
    std::vector<MLLATTICENODE_FLAG*> flag_dev_vec;
    std::vector<MLFluidParam*> param_dev_vec;
    std::vector<double*> forcex_dev_vec, forcey_dev_vec, forcez_dev_vec;
    std::vector<float*> Sopt_dev_vec, sigma_dev_vec;
    std::vector<float*> Q_dev_vec, cNQ_dev_vec, fEqTilde_dev_vec, fEqBar_dev_vec;
    std::vector<float*> fEqTildeOld_dev_vec;
    std::vector<PML_TYPE*> PML_type_dev_vec;

private:
    StepChoices choices() const { return {collisionOperator, boundaryFamily, openPlanes}; }
    std::unique_ptr<FluidDomain> makeDomain(const mlFlow& host, HostPopulations held,
                                            const Vector3<float>& velocity);
    template <class Visit>
    void forEachArrayList(Visit&& visit);
    void advance(int mode);
    void followBody(int i);
    void prepareCoupling(int i);
    void coupleSemiImplicitly(int i);
    FrameMotion frameMotion() const;

    std::vector<std::unique_ptr<FluidDomain>> domains_;  // one per host record, once allocated
};

}  // namespace drelt
