// The groups of definitions that make up the Python module, in the order of their registration.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>

namespace drelt {

class skLink;
class skSystem;

// Objects of the bodies are shared between scripts and the world.
template <class T>
using BodyClass = pybind11::class_<T, std::shared_ptr<T>>;

void bindEnumerations(pybind11::module_& module);
void bindParameters(pybind11::module_& module);
void bindSkeleton(pybind11::module_& module);
// The kinds of force must exist before the classes whose arguments they are.
void bindForceKinds(pybind11::module_& module);
void bindForces(BodyClass<skLink>& link, BodyClass<skSystem>& system);
void bindSimulator(pybind11::module_& module);
void bindPool(pybind11::module_& module);
void bindTrajectory(pybind11::module_& module);
void bindRenderer(pybind11::module_& module);

}  // namespace drelt
