#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cstddef>
#include <dart/dynamics/Frame.hpp>
#include <stdexcept>

#include "cslbm/PML/PMLOperation.h"
#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "platform/check.h"
#include "supplement/IBBoundaryMemMgr.h"

namespace drelt {

mlSinglePhaseSolverNew::mlSinglePhaseSolverNew(int device) : gpuDeviceId(device) {}

mlSinglePhaseSolverNew::~mlSinglePhaseSolverNew() { freeDevice(); }

Schedule mlSinglePhaseSolverNew::possibleSchedule(Schedule wish, const mlFlow& domain) const {
    const bool excluded = std::any_of(
        domain.flag, domain.flag + domain.count,
        [](MLLATTICENODE_FLAG flag) { return flag == ML_NODE_NONE || flag == ML_NODE_SOLID; });
    return !hasProduction(collisionOperator, boundaryFamily) || excluded ||
                   ProductionDomain::tooThin(*domain.param)
               ? Schedule::Operators
               : wish;
}

void mlSinglePhaseSolverNew::step(int mode) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    if (fused_.empty()) {
        advance(mode);
        return;
    }
    requireDefaults();
    {
        const platform::DeferredWaits deferred;
        advance(mode);
    }
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlSinglePhaseSolverNew::advance(int mode) {
    for (int i = 0; i < static_cast<int>(lbmvec.size()); ++i) {
        followBody(i);
        if (advancesFluid(mode)) couple(i);
        world->step(mode, scale.dt, scale.l0p / scale.N);
        if (advancesFluid(mode)) advanceFluid(i);
    }
}

void mlSinglePhaseSolverNew::requireDefaults() const {
    if (hasProduction(collisionOperator, boundaryFamily)) return;
    throw std::logic_error(
        "step: the production schedule has no other collision or boundary than the default; choose "
        "them, or Schedule::Operators, before commitInit");
}

void mlSinglePhaseSolverNew::followBody(int i) {
    if (world->isFixed()) return;
    const Eigen::Vector3f place =
        world->getFrame()->getWorldTransform().translation().cast<float>();
    mlSetFlowCenter(lbm_dev_gpu[i], place.x(), place.y(), place.z());
}

void mlSinglePhaseSolverNew::couple(int i) {
    const MLFluidParam* const param = lbmvec[i]->param;
    if (ProductionDomain* const domain = fused(i)) {
        for (const IBBoundaryMemMgr* boundary : boundaries) {
            domain->prepareCoupling(boundary->mllaboundary_gpu, boundary->mllaboundary->count,
                                    scale);
        }
    }
    spreadBoundaries(lbm_dev_gpu[i], param);
}

void mlSinglePhaseSolverNew::advanceFluid(int i) {
    const FrameMotion motion = frameMotion();
    if (ProductionDomain* const domain = fused(i)) {
        domain->step(motion);
        return;
    }
    mlFlow* const flow = lbm_dev_gpu[i];
    const MLFluidParam* const param = lbmvec[i]->param;
    mlAddForcetoUOpt(flow, param, motion.velocityScale, motion.lengthScale,
                     motion.linearAcceleration, motion.angularVelocity, motion.angularAcceleration,
                     motion.inverse);
    collide(collisionOperator, flow, param);
    PML_Operation(flow, param);
    applyBoundary(boundaryFamily, BoundaryStage::AfterLayer, flow, param);
    mlCuStream3dOpt(flow, param);
    mlCalOneOrderMomentOpt(flow, param);
    applyBoundary(boundaryFamily, BoundaryStage::AfterMoments, flow, param);
}

// The grid's own motion, with the frame that it follows without turning.
FrameMotion mlSinglePhaseSolverNew::frameMotion() const {
    const float kx = scale.u0k / scale.u0px;
    const float ky = scale.u0k / scale.u0py;
    const float kz = scale.u0k / scale.u0pz;
    FrameMotion motion;
    motion.velocityScale = kx;  // of the axis with the largest u0p; all three are the same
    motion.lengthScale =
        Eigen::Vector3d(kx * kx * scale.l0p / scale.N, ky * ky * scale.l0p / scale.N,
                        kz * kz * scale.l0p / scale.N);

    dart::dynamics::Frame* const frame = world->getFrame();
    const Eigen::Isometry3d pose = frame->getWorldTransform();
    motion.inverse.linear() = pose.linear().transpose();
    motion.inverse.translation() = -(motion.inverse.linear() * pose.translation());
    motion.inverse.makeAffine();

    const Eigen::Matrix3d rotation = Eigen::Affine3d(pose.matrix()).rotation();
    const Eigen::Vector3d acceleration = frame->getLinearAcceleration();
    for (int a = 0; a < 3; ++a) motion.linearAcceleration[a] = rotation.col(a).dot(acceleration);
    motion.angularVelocity = frame->getAngularVelocity();
    motion.angularAcceleration = frame->getAngularAcceleration();
    return motion;
}

// All arrays of a domain in the order of their allocation, with their sizes in bytes.
// clang-format off
#define DRELT_DEVICE_ARRAYS(APPLY)                                       \
    APPLY(f, 27 * mllbm_host->count * sizeof(float))                     \
    APPLY(fPost, 27 * mllbm_host->count * sizeof(float))                 \
    APPLY(fStore, 27 * mllbm_host->count * sizeof(float))                \
    APPLY(rou, mllbm_host->count * sizeof(mlDensity<float>))             \
    APPLY(ux, mllbm_host->count * sizeof(float))                         \
    APPLY(uy, mllbm_host->count * sizeof(float))                         \
    APPLY(uz, mllbm_host->count * sizeof(float))                         \
    APPLY(flag, mllbm_host->count * sizeof(MLLATTICENODE_FLAG))          \
    APPLY(param, 1 * sizeof(MLFluidParam))                               \
    APPLY(forcex, mllbm_host->count * sizeof(double))                    \
    APPLY(forcey, mllbm_host->count * sizeof(double))                    \
    APPLY(forcez, mllbm_host->count * sizeof(double))                    \
    APPLY(Sopt, mllbm_host->count * sizeof(float))                       \
    APPLY(PML_type, mllbm_host->count * sizeof(PML_TYPE))                \
    APPLY(fEqBar, 27 * mllbm_host->count * sizeof(float))                \
    APPLY(fEqTilde, 27 * mllbm_host->count * sizeof(float))              \
    APPLY(fEqTildeOld, 27 * mllbm_host->count * sizeof(float))           \
    APPLY(Q, 27 * mllbm_host->count * sizeof(float))                     \
    APPLY(cNQ, 27 * mllbm_host->count * sizeof(float))                   \
    APPLY(sigma, mllbm_host->count * sizeof(float))
// clang-format on

#define DRELT_ALLOCATE(field, bytes)                  \
    decltype(mlFlow::field) field##_dev = nullptr;    \
    checkCudaErrors(cudaMalloc(&field##_dev, bytes)); \
    field##_dev_vec.push_back(field##_dev);
#define DRELT_UPLOAD(field, bytes) \
    checkCudaErrors(cudaMemcpy(field##_dev, mllbm_host->field, bytes, cudaMemcpyHostToDevice));
#define DRELT_PATCH(field, bytes)                                                      \
    checkCudaErrors(cudaMemcpy(&(mllbm_gpu->field), &field##_dev, sizeof(field##_dev), \
                               cudaMemcpyHostToDevice));
#define DRELT_FREE(field, bytes)                                                            \
    for (auto* const field##_dev : field##_dev_vec) checkCudaErrors(cudaFree(field##_dev)); \
    field##_dev_vec.clear();

void mlSinglePhaseSolverNew::allocateDomain(const mlFlow* mllbm_host, mlFlow* mllbm_gpu) {
    DRELT_DEVICE_ARRAYS(DRELT_ALLOCATE)
    DRELT_DEVICE_ARRAYS(DRELT_UPLOAD)
    checkCudaErrors(cudaMemcpy(mllbm_gpu, mllbm_host, sizeof(mlFlow), cudaMemcpyHostToDevice));
    DRELT_DEVICE_ARRAYS(DRELT_PATCH)  // NOLINT(bugprone-sizeof-expression): pointers are meant
}

void mlSinglePhaseSolverNew::allocateDevice() {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    freeDevice();
    lbm_dev_gpu.assign(lbmvec.size(), nullptr);
    hostPopulations.resize(lbmvec.size(), HostPopulations::Current);
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        if (schedule == Schedule::Production) {
            allocateFused(static_cast<int>(i));
            continue;
        }
        // Not checked here: without a record, the copy into it reports.
        static_cast<void>(cudaMalloc(&lbm_dev_gpu[i], sizeof(mlFlow)));
        allocateDomain(lbmvec[i], lbm_dev_gpu[i]);
    }
}

void mlSinglePhaseSolverNew::allocateFused(int i) {
    const mlFlow& host = *lbmvec[i];
    fused_.push_back(makeProductionDomain(*host.param, host.v0k, sigmaMax));
    if (hostPopulations[i] == HostPopulations::Current) fused_.back()->load(host);
    mlFlow* const record = fused_.back()->record();
    checkCudaErrors(
        cudaMemcpy(&record->startx, &host.startx, 3 * sizeof(float), cudaMemcpyHostToDevice));
    lbm_dev_gpu[i] = record;
}

void mlSinglePhaseSolverNew::freeDevice() {
    DRELT_DEVICE_ARRAYS(DRELT_FREE)
    if (fused_.empty()) {
        for (mlFlow* const record : lbm_dev_gpu) checkCudaErrors(cudaFree(record));
    }
    fused_.clear();
    lbm_dev_gpu.assign(lbm_dev_gpu.size(), nullptr);
}

void mlSinglePhaseSolverNew::uploadForcesAndPml(int i) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    const mlFlow* const mllbm_host = lbmvec[i];
    if (ProductionDomain* const domain = fused(i)) {
        domain->resetLayer(mllbm_host->rou);
        return;
    }
    const auto upload = [&](auto* device, const auto* host, std::int64_t count) {
        checkCudaErrors(cudaMemcpy(device, host, count * sizeof(*host), cudaMemcpyHostToDevice));
    };
    const std::int64_t count = mllbm_host->count;
    upload(forcex_dev_vec[i], mllbm_host->forcex, count);
    upload(forcey_dev_vec[i], mllbm_host->forcey, count);
    upload(forcez_dev_vec[i], mllbm_host->forcez, count);
    upload(fEqBar_dev_vec[i], mllbm_host->fEqBar, 27 * count);
    upload(fEqTilde_dev_vec[i], mllbm_host->fEqTilde, 27 * count);
    upload(fEqTildeOld_dev_vec[i], mllbm_host->fEqTildeOld, 27 * count);
    upload(Q_dev_vec[i], mllbm_host->Q, 27 * count);
    upload(cNQ_dev_vec[i], mllbm_host->cNQ, 27 * count);
}

}  // namespace drelt
