// The device side of the fluid: device records and arrays of all domains, and the order of a step.
#pragma once

#include <memory>
#include <vector>

#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"
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

    // One time step of all domains; mode is a couplingMode. Needs the device side of every domain and a
    // world with at least one body.
    void step(int mode);

    // Allocates the device side of all domains and uploads the host records; frees what was there.
    void allocateDevice();
    // Frees the device side of all domains.
    void freeDevice();
    // Brings forces and layer data of domain i to the device.
    void uploadForcesAndPml(int i);

    int gpuDeviceId;
    std::vector<mlFlow*> lbmvec;          // host records, one a domain; not owned
    std::vector<mlFlow*> lbm_dev_gpu;     // device records, one a domain, null until allocated
    std::vector<mlUnitScale> unitScales;  // one a parameter record
    std::shared_ptr<mlBaseCouplingSolver> world;
    // The collision and the boundaries of a step; may be changed between steps. A simulator that is
    // committed again has a new solver, with the defaults.
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
    void followBody(int i);
    void advanceFluid(int i);
    void addFrameForce(int i);
};

}  // namespace drelt
