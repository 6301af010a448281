// What scripts see of models, descriptions and bodies; bound after their classes.
#pragma once

#include <pybind11/pybind11.h>

namespace drelt {

void bindMesh(pybind11::module_& module);

}  // namespace drelt
