// The Python module `drelt`.
#include "python/bindings.h"

PYBIND11_MODULE(drelt, module) {
    module.doc() = "pybind11 example plugin";
    drelt::bindParameters(module);
    drelt::bindSkeleton(module);
    drelt::bindSimulator(module);
    drelt::bindTrajectory(module);
    drelt::bindRenderer(module);
}
