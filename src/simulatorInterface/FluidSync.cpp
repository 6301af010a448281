// Copies of a domain's state between the host record and the device.
#include "simulatorInterface/FluidHelper.h"

namespace drelt::FluidHelper {

void syncToDevice(mlSinglePhaseSolverNew& solver, int i) {
    solver.domain(i).syncToDevice(*solver.lbmvec[i]);
}

mlFlow originToHost(mlSinglePhaseSolverNew& solver, int i) {
    return solver.domain(i).originToHost(*solver.lbmvec[i]);
}

void syncToHost(mlSinglePhaseSolverNew& solver, int i) {
    solver.domain(i).syncToHost(*solver.lbmvec[i]);
}

void populationsToHost(mlSinglePhaseSolverNew& solver, int i) {
    solver.domain(i).populationsToHost(*solver.lbmvec[i]);
}

}  // namespace drelt::FluidHelper
