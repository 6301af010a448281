// One row per operator: node updates per second, and memory traffic compared with the bandwidth.
#include "cslbm/PML/PMLOperation.h"
#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "rows.h"

namespace drelt::bench {
namespace {

constexpr double kPlain = 2 * kPopulations + kState;
// Both operators of the second stage read the moments but four, the state and the force.
constexpr double kTwoStages =
    3 * kPopulations + kState + 2 * (kPopulations - 4 * 4 + kState + kForce);

void addForce(BenchFlow& b) {
    const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
    mlAddForcetoUOpt(b.flow(), b.param(), 0.1f, Eigen::Vector3d::Constant(1e-4),
                     Eigen::Vector3d(0.1, 0.2, 0.3), zero, zero, FrameTransform::Identity());
}
template <CollisionOperator Choice>
void collision(BenchFlow& b) {
    collide(Choice, b.flow(), b.param());
}
void layer(BenchFlow& b) { PML_Operation(b.flow(), b.param()); }
void stream(BenchFlow& b) { mlCuStream3dOpt(b.flow(), b.param()); }
void moments(BenchFlow& b) { mlCalOneOrderMomentOpt(b.flow(), b.param()); }
void streamMoments(BenchFlow& b) {
    stream(b);
    moments(b);
}
void openBoundary(BenchFlow& b) { mlBoundaryConditionNEE(b.flow(), b.param()); }

const Row kRows[] = {
    {"mlCollideAddForceHighorderFiiting", collision<CollisionOperator::HighorderFitted>,
     kCollisionBytes},
    {"mlCollideAddForceHighorderFitingPart1", collision<CollisionOperator::HighorderFittedPart1>,
     kCollisionBytes},
    {"mlCollideAddForceHighorder", collision<CollisionOperator::HighorderFixed>, kPlain + kForce},
    {"mlCollideGpu", collision<CollisionOperator::Plain>, kPlain},
    {"mlCollideAddForce", collision<CollisionOperator::Forced>, kPlain + kForce},
    {"mlCollideAddForceOpt+Cascade", collision<CollisionOperator::Cascade>, kTwoStages},
    {"mlCollideAddForceTvcg", collision<CollisionOperator::Polynomial>, kTwoStages},
    {"mlCuStream3dOpt", stream, kStreamBytes},
    {"mlCalOneOrderMomentOpt", moments, kMomentBytes},
    {"stream+moments", streamMoments, kStreamBytes + kMomentBytes},
    {"mlAddForcetoUOpt", addForce, kFrameForceBytes},
    {"PML_Operation", layer, kLayerBytes},
    {"mlBoundaryConditionNEE", openBoundary, 0},
};

const bool registered = registerRows(kRows);

}  // namespace
}  // namespace drelt::bench
