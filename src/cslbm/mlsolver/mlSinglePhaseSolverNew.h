// The device side of the fluid: device records and arrays of all domains, and the order of a step.
#pragma once

#include <memory>
#include <vector>

#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"
#include "cslbm/mlsolver/mlBaseCouplingSolver.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

// How a step is computed. What comes out is the same to rounding.
enum class Schedule {
    Operators,   // the operators one after the other: what a step means
    Production,  // few sweeps over one array of populations; default choices only
};

// Whether the production schedule has these operators: the default ones only.
constexpr bool hasProduction(CollisionOperator collision, BoundaryFamily boundaries) {
    return collision == CollisionOperator::HighorderFitted &&
           boundaries == BoundaryFamily::NonEquilibriumExtrapolation;
}

// What a host record's populations hold. The production schedule fills them only when asked.
enum class HostPopulations {
    Current,  // f and fPost as they should be
    AtRest,   // not written: the equilibrium at rest of the host's density
    Stale,    // not written when the rest was last read from the device
};

// Owns device memory only: host records belong to the caller and outlive this object.
class mlSinglePhaseSolverNew : public mlImmersedSolver {
public:
    explicit mlSinglePhaseSolverNew(int device);
    ~mlSinglePhaseSolverNew();
    mlSinglePhaseSolverNew(const mlSinglePhaseSolverNew&) = delete;
    mlSinglePhaseSolverNew& operator=(const mlSinglePhaseSolverNew&) = delete;

    // The schedule that a domain can have with the choices below: the one wished for, or Operators where
    // it needs them.
    Schedule possibleSchedule(Schedule wish, const mlFlow& domain) const;

    // One time step of all domains; mode is a couplingMode. Needs the device side of every domain and a
    // world with at least one body. Under the production schedule a GPU's launches are waited for at the
    // step's end only, see platform::DeferredWaits.
    void step(int mode);

    // The first part of a step: the samples' forces onto the grid of domain i.
    void couple(int i);

    // Allocates the device side of all domains and uploads the host records; frees what was there.
    void allocateDevice();
    // Frees the device side of all domains.
    void freeDevice();
    // The domain's state under the production schedule; null under the operators'.
    ProductionDomain* fused(int i) const { return fused_.empty() ? nullptr : fused_[i].get(); }
    // Brings forces and layer data of domain i to the device.
    void uploadForcesAndPml(int i);

    int gpuDeviceId;
    std::vector<mlFlow*> lbmvec;  // host records, one a domain; not owned
    // Device records, one a domain, null until allocated. Under the production schedule they have no
    // populations: single operators need Schedule::Operators.
    std::vector<mlFlow*> lbm_dev_gpu;
    std::vector<mlUnitScale> unitScales;  // one a parameter record
    std::shared_ptr<mlBaseCouplingSolver> world;
    // As of the next allocateDevice.
    Schedule schedule = Schedule::Operators;
    float sigmaMax = 0.01f;  // damping of the absorbing layer at the outer faces
    std::vector<HostPopulations> hostPopulations;  // one a domain; none means Current
    // The collision and the boundaries of a step; may be changed between steps of the operators. A
    // simulator that is committed again has a new solver, with the simulator's choices.
    CollisionOperator collisionOperator = CollisionOperator::HighorderFitted;
    BoundaryFamily boundaryFamily = BoundaryFamily::NonEquilibriumExtrapolation;

    // The device array behind each field of the device record, one entry a domain.
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
    void allocateDomain(const mlFlow* mllbm_host, mlFlow* mllbm_gpu);
    void allocateFused(int i);
    void advance(int mode);
    void followBody(int i);
    void advanceFluid(int i);
    void requireDefaults() const;
    FrameMotion frameMotion() const;

    std::vector<std::unique_ptr<ProductionDomain>> fused_;  // one a domain, or none
};

}  // namespace drelt
