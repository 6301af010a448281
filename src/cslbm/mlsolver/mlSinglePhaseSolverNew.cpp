#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"

#include <Eigen/Geometry>
#include <cstddef>
#include <dart/dynamics/Frame.hpp>

#include "cslbm/domain/OperatorDomain.h"
#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"
#include "platform/check.h"
#include "supplement/IBBoundaryMemMgr.h"

namespace drelt {

mlSinglePhaseSolverNew::mlSinglePhaseSolverNew(int device) : gpuDeviceId(device) {}

mlSinglePhaseSolverNew::~mlSinglePhaseSolverNew() { freeDevice(); }

std::string mlSinglePhaseSolverNew::productionObstacle(const mlFlow& host) const {
    if (!choices().areDefault()) return "another collision or boundary than the default is chosen";
    ProductionDomain::requireInstructions();
    return ProductionDomain::obstacle(host, sigmaMax);
}

FluidDomain& mlSinglePhaseSolverNew::domain(int i) const {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    return *domains_.at(i);
}

void mlSinglePhaseSolverNew::step(int mode) {
    requireCouplingMode(mode, "step");
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    bool deferred = !domains_.empty();
    for (const auto& domain : domains_) {
        domain->choose(choices());
        deferred = deferred && domain->defersWaits();
    }
    if (!deferred) {
        advance(mode);
        return;
    }
    {
        const platform::DeferredWaits noWaits;
        advance(mode);
    }
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlSinglePhaseSolverNew::advance(int mode) {
    for (int i = 0; i < static_cast<int>(domains_.size()); ++i) {
        followBody(i);
        if (mode == TWO_WAY && coupling == Coupling::SemiImplicit) {
            coupleSemiImplicitly(i);
        } else {
            if (advancesFluid(mode)) couple(i);
            world->step(mode, scale.dt, scale.l0p / scale.N);
        }
        if (advancesFluid(mode)) domains_[i]->step(frameMotion());
    }
}

void mlSinglePhaseSolverNew::followBody(int i) {
    if (world->isFixed()) return;
    const Eigen::Vector3f place =
        world->getFrame()->getWorldTransform().translation().cast<float>();
    mlSetFlowCenter(lbm_dev_gpu[i], place.x(), place.y(), place.z());
}

void mlSinglePhaseSolverNew::prepareCoupling(int i) {
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        domains_[i]->prepareCoupling(boundary->mllaboundary_gpu, boundary->mllaboundary->count,
                                     scale);
    }
}

void mlSinglePhaseSolverNew::couple(int i) {
    prepareCoupling(i);
    spreadBoundaries(lbm_dev_gpu[i], lbmvec[i]->param);
}

// The fluid receives the forces at the places where the interpolation found them, so the samples move
// after the spreading.
void mlSinglePhaseSolverNew::coupleSemiImplicitly(int i) {
    const MLFluidParam* const param = lbmvec[i]->param;
    const float dx = scale.l0p / scale.N;
    prepareCoupling(i);
    interpolateForces(lbm_dev_gpu[i], param);
    if (weights == ForcingWeights::Normalised) {
        normaliseForces(lbm_dev_gpu[i], param);
    } else {
        dropWeights();
    }
    world->stepSemiImplicit({lbm_dev_gpu[i], param->samples_x, param->samples_y, param->samples_z,
                             scale.N, scale.l0p, scale.rou0p},
                            scale.dt, dx);
    spreadForces(lbm_dev_gpu[i], param);
    world->updateBodies(scale.dt, dx);
}

// The motion of the frame that the grid follows. The grid itself never turns.
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
    motion.far = farState();
    return motion;
}

FarState mlSinglePhaseSolverNew::farState() const {
    const Eigen::Vector3d seen = current - world->getFrame()->getLinearVelocity();
    const Eigen::Vector3f u = (seen * (static_cast<double>(scale.u0k) / scale.u0px)).cast<float>();
    return {farDensity, {u.x(), u.y(), u.z()}};
}

// Visits each list of device arrays with the field of the device record that it belongs to.
template <class Visit>
void mlSinglePhaseSolverNew::forEachArrayList(Visit&& visit) {
    visit(f_dev_vec, &mlFlow::f);
    visit(fPost_dev_vec, &mlFlow::fPost);
    visit(fStore_dev_vec, &mlFlow::fStore);
    visit(rou_dev_vec, &mlFlow::rou);
    visit(ux_dev_vec, &mlFlow::ux);
    visit(uy_dev_vec, &mlFlow::uy);
    visit(uz_dev_vec, &mlFlow::uz);
    visit(flag_dev_vec, &mlFlow::flag);
    visit(param_dev_vec, &mlFlow::param);
    visit(forcex_dev_vec, &mlFlow::forcex);
    visit(forcey_dev_vec, &mlFlow::forcey);
    visit(forcez_dev_vec, &mlFlow::forcez);
    visit(Sopt_dev_vec, &mlFlow::Sopt);
    visit(sigma_dev_vec, &mlFlow::sigma);
    visit(Q_dev_vec, &mlFlow::Q);
    visit(cNQ_dev_vec, &mlFlow::cNQ);
    visit(fEqTilde_dev_vec, &mlFlow::fEqTilde);
    visit(fEqBar_dev_vec, &mlFlow::fEqBar);
    visit(fEqTildeOld_dev_vec, &mlFlow::fEqTildeOld);
    visit(PML_type_dev_vec, &mlFlow::PML_type);
}

void mlSinglePhaseSolverNew::allocateDevice(HostPopulations held, const Vector3<float>& velocity) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    freeDevice();
    for (const mlFlow* const host : lbmvec) {
        domains_.push_back(makeDomain(*host, held, velocity));
        lbm_dev_gpu[domains_.size() - 1] = domains_.back()->record();
    }
}

std::unique_ptr<FluidDomain> mlSinglePhaseSolverNew::makeDomain(const mlFlow& host,
                                                                HostPopulations held,
                                                                const Vector3<float>& velocity) {
    if (schedule == Schedule::Production) {
        auto made = makeProductionDomain(*host.param, host.v0k, sigmaMax);
        made->begin(host, held, velocity);
        made->originToDevice(host);
        return made;
    }
    auto made = std::make_unique<OperatorDomain>(host);
    const mlFlow& device = made->image();
    forEachArrayList([&](auto& list, auto field) { list.push_back(device.*field); });
    return made;
}

void mlSinglePhaseSolverNew::freeDevice() {
    domains_.clear();
    lbm_dev_gpu.assign(lbmvec.size(), nullptr);
    forEachArrayList([](auto& list, auto) { list.clear(); });
}

void mlSinglePhaseSolverNew::uploadForcesAndPml(int i) { domain(i).uploadForcesAndPml(*lbmvec[i]); }

}  // namespace drelt
