#include "cslbm/domain/operatorStep.h"

#include "cslbm/PML/PMLOperation.h"
#include "cslbm/gpu_inc/gpu/mlCharacteristicPlanes.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"

namespace drelt {

void operatorStep(mlFlow* flow, const MLFluidParam* param, const FrameMotion& motion,
                  const StepChoices& choices) {
    mlAddForcetoUOpt(flow, param, motion.velocityScale, motion.lengthScale,
                     motion.linearAcceleration, motion.angularVelocity, motion.angularAcceleration,
                     motion.inverse);
    collide(choices.collision, flow, param);
    PML_Operation(flow, param);
    applyBoundary(choices.boundaries, BoundaryStage::AfterLayer, flow, param);
    mlCuStream3dOpt(flow, param);
    mlCalOneOrderMomentOpt(flow, param);
    if (choices.boundaries == BoundaryFamily::NonEquilibriumExtrapolation &&
        choices.planes != OpenPlaneKind::Copy) {
        mlCharacteristicPlanes(flow, param, {choices.planes, motion.far});
    } else {
        applyBoundary(choices.boundaries, BoundaryStage::AfterMoments, flow, param);
    }
}

}  // namespace drelt
