// The groups of definitions that make up the Python module, in the order of their registration.
#pragma once

#include <pybind11/pybind11.h>

namespace drelt {

void bindEnumerations(pybind11::module_& module);
void bindParameters(pybind11::module_& module);
void bindSkeleton(pybind11::module_& module);
void bindSimulator(pybind11::module_& module);
void bindTrajectory(pybind11::module_& module);
void bindRenderer(pybind11::module_& module);

}  // namespace drelt
