// The Python module `drelt`.
#include <cstddef>
#include <initializer_list>

#include "python/bindings.h"

namespace py = pybind11;

namespace {

// Binds what belongs together and lists its functions before its classes. A signature names only
// classes that are bound already, so the binders go the other way round, classes first: these move
// behind the functions, each in the order of the binders.
void bindGroup(py::module_& module, std::initializer_list<void (*)(py::module_&)> binders) {
    const py::dict names = module.attr("__dict__");
    const std::size_t before = names.size();
    for (auto* const bind : binders) bind(module);

    const py::list entries = module.attr("__dict__").attr("items")();
    for (std::size_t i = before; i < entries.size(); ++i) {
        const py::tuple entry = entries[i];
        if (!py::isinstance<py::type>(entry[1])) continue;
        names.attr("pop")(entry[0]);
        names[entry[0]] = entry[1];
    }
}

}  // namespace

PYBIND11_MODULE(drelt, module) {
    module.doc() = "pybind11 example plugin";
    bindGroup(module, {drelt::bindEnumerations});
    bindGroup(module, {drelt::bindParameters});
    bindGroup(module, {drelt::bindSkeleton});
    bindGroup(module, {drelt::bindSimulator});
    bindGroup(module, {drelt::bindTrajectory, drelt::bindRenderer});
}
