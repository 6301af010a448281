#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"

#include <stdexcept>
#include <string>

#include "cslbm/gpu_inc/gpu/mlCollideAlternatives.h"
#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"

namespace drelt {

void collide(CollisionOperator choice, mlFlow* flow, const MLFluidParam* param) {
    switch (choice) {
        case CollisionOperator::HighorderFitted:
            return mlCollideAddForceHighorderFiiting(flow, param);
        case CollisionOperator::HighorderFittedPart1:
            return mlCollideAddForceHighorderFitingPart1(flow, param);
        case CollisionOperator::HighorderFixed: return mlCollideAddForceHighorder(flow, param);
        case CollisionOperator::Plain: return mlCollideGpu(flow, param);
        case CollisionOperator::Forced: return mlCollideAddForce(flow, param);
        case CollisionOperator::Cascade: return mlCollideAddForceOpt(flow, param);
        case CollisionOperator::Polynomial: return mlCollideAddForceTvcg(flow, param);
    }
    throw std::invalid_argument("collide: " + std::to_string(static_cast<int>(choice)) +
                                " is not a collision; give a member of CollisionOperator");
}

}  // namespace drelt
