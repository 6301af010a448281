// Rows for the boundaries, sources and moments that the default step does not use.
#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpuOther.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "cslbm/gpu_inc/gpu/mlWave.h"
#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"
#include "rows.h"

namespace drelt::bench {
namespace {

template <MLLATTICENODE_FLAG Which>
void flagged(BenchFlow& b) {
    mlBoundaryConditionFlag(b.flow(), b.param(), Which);
}
template <MLLATTICENODE_FLAG Face>
void zouHe(BenchFlow& b) {
    mlBoundaryConditionZouHe(b.flow(), b.param(), Face);
}
void flaggedAtOnce(BenchFlow& b) { mlBndConditionOther(b.flow(), b.param()); }
void neighbours(BenchFlow& b) { mlBndCondition(b.flow(), b.param()); }
void inlet(BenchFlow& b) { mmlStreamChangeInlet(b.flow(), b.param(), true); }
void wave(BenchFlow& b) { mlWave(b.flow(), b.param()); }

const Row kBoundaries[] = {
    {"mlCuBoundaryCondition_Left", flagged<ML_NODE_LEFT>, 0},
    {"mlCuBoundaryCondition_Right", flagged<ML_NODE_RIGHT>, 0},
    {"mlCuBoundaryCondition_Down", flagged<ML_NODE_DOWN>, 0},
    {"mlCuBoundaryCondition_Up", flagged<ML_NODE_UP>, 0},
    {"mlCuBoundaryCondition_Forward", flagged<ML_NODE_FORWARD>, 0},
    {"mlCuBoundaryCondition_Back", flagged<ML_NODE_BACK>, 0},
    {"mlCuBoundaryCondition_Solid", flagged<ML_NODE_SOLID>, 4},
    {"mlBndConditionOther", flaggedAtOnce, 4},
    {"mlBndCondition", neighbours, 4},
    {"mlCuBoundaryCondition_Left_ZouHe", zouHe<ML_NODE_LEFT>, 0},
    {"mlCuBoundaryCondition_Right_ZouHe", zouHe<ML_NODE_RIGHT>, 0},
    {"mlCuBoundaryCondition_Up_ZouHe", zouHe<ML_NODE_UP>, 0},
    {"mlCuBoundaryCondition_Down_ZouHe", zouHe<ML_NODE_DOWN>, 0},
    {"mlCuBoundaryCondition_Forward_ZouHe", zouHe<ML_NODE_FORWARD>, 0},
    {"mlCuBoundaryCondition_Back_ZouHe", zouHe<ML_NODE_BACK>, 0},
    {"mmlStreamChangeInlet", inlet, 0},
    {"mlWave", wave, 0},
};

LaunchExtent extentOf(BenchFlow& b) {
    return {b.param()->samples_x, b.param()->samples_y, b.param()->samples_z};
}

// These two operators have no launcher.
void momentsByAxes(BenchFlow& b) {
    const LaunchExtent nodes = extentOf(b);
    const long nx = nodes.x, ny = nodes.y, nz = nodes.z;
    launchRange<&mlCalOneOrderMomentKernel>(coveringShape(nodes, 8, 8, 8), nodes, b.flow(), nx, ny,
                                            nz);
}
void halfForce(BenchFlow& b) {
    const LaunchExtent nodes = extentOf(b);
    const long nx = nodes.x, ny = nodes.y, nz = nodes.z;
    launchRange<&mlAddForcetoUKernel>(coveringShape(nodes, 8, 8, 8), nodes, b.flow(), 0.0f, nx, ny,
                                      nz);
}
void restore(BenchFlow& b) { mlRestoreUOpt(b.flow(), b.param()); }
void macro(BenchFlow& b) { mlCalMacroGpu(b.flow(), b.param()); }
void copyLayer(BenchFlow& b) { mlCopyFTilde(b.flow(), b.param()); }
void sceneForce(BenchFlow& b) { mlCalForceTerm(b.flow(), b.param(), true, true, 0.5f); }

const Row kMoments[] = {
    {"mlCalOneOrderMoment", momentsByAxes, kMomentBytes},
    {"mlAddForcetoU", halfForce, 2 * 4 + 2 * 3 * 4 + 3 * 8},
    {"mlRestoreUOpt", restore, 4 + 2 * 3 * 4},
    {"mlCalMacroGpu", macro, kPopulations + 4 * 4},
    {"mlCopyFTilde", copyLayer, 2 * kPopulations},
    {"mlCalForceTerm", sceneForce, 4},
};

const bool registered = registerRows(kBoundaries) && registerRows(kMoments);

}  // namespace
}  // namespace drelt::bench
