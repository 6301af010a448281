#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"

#include <stdexcept>
#include <string>

#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"
#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"

namespace drelt {
namespace {

constexpr MLLATTICENODE_FLAG kFaces[] = {ML_NODE_LEFT, ML_NODE_RIGHT,   ML_NODE_DOWN,
                                         ML_NODE_UP,   ML_NODE_FORWARD, ML_NODE_BACK};

void afterLayer(BoundaryFamily family, mlFlow* flow, const MLFluidParam* param) {
    const auto classed = [&](MLLATTICENODE_FLAG which) {
        mlBoundaryConditionFlag(flow, param, which);
    };
    switch (family) {
        case BoundaryFamily::FlagNeighbours: return mlBndCondition(flow, param);
        case BoundaryFamily::FlagFaces:
            for (const MLLATTICENODE_FLAG face : kFaces) classed(face);
            return classed(ML_NODE_SOLID);
        case BoundaryFamily::FlagFacesAtOnce: return mlBndConditionOther(flow, param);
        case BoundaryFamily::FlagLeft: return classed(ML_NODE_LEFT);
        case BoundaryFamily::FlagRight: return classed(ML_NODE_RIGHT);
        case BoundaryFamily::FlagDown: return classed(ML_NODE_DOWN);
        case BoundaryFamily::FlagUp: return classed(ML_NODE_UP);
        case BoundaryFamily::FlagForward: return classed(ML_NODE_FORWARD);
        case BoundaryFamily::FlagBack: return classed(ML_NODE_BACK);
        case BoundaryFamily::FlagSolid: return classed(ML_NODE_SOLID);
        default: return;
    }
}

void afterMoments(BoundaryFamily family, mlFlow* flow, const MLFluidParam* param) {
    const auto imposed = [&](MLLATTICENODE_FLAG face) {
        mlBoundaryConditionZouHe(flow, param, face);
    };
    switch (family) {
        case BoundaryFamily::NonEquilibriumExtrapolation:
            return mlBoundaryConditionNEE(flow, param);
        case BoundaryFamily::ZouHe:
            for (const MLLATTICENODE_FLAG face : kFaces) imposed(face);
            return;
        case BoundaryFamily::ZouHeLeft: return imposed(ML_NODE_LEFT);
        case BoundaryFamily::ZouHeRight: return imposed(ML_NODE_RIGHT);
        case BoundaryFamily::ZouHeUp: return imposed(ML_NODE_UP);
        case BoundaryFamily::ZouHeDown: return imposed(ML_NODE_DOWN);
        case BoundaryFamily::ZouHeForward: return imposed(ML_NODE_FORWARD);
        case BoundaryFamily::ZouHeBack: return imposed(ML_NODE_BACK);
        case BoundaryFamily::InletAtRest: return mmlStreamChangeInlet(flow, param, true);
        default: return;
    }
}

}  // namespace

void applyBoundary(BoundaryFamily family, BoundaryStage stage, mlFlow* flow,
                   const MLFluidParam* param) {
    const bool known = family >= BoundaryFamily::NonEquilibriumExtrapolation &&
                       family <= BoundaryFamily::InletAtRest;
    if (!known) {
        throw std::invalid_argument("applyBoundary: " + std::to_string(static_cast<int>(family)) +
                                    " is not a boundary family; give a member of BoundaryFamily");
    }
    if (stage == BoundaryStage::AfterLayer) {
        afterLayer(family, flow, param);
    } else {
        afterMoments(family, flow, param);
    }
}

}  // namespace drelt
