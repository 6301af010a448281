// The Python module `drelt`: the extension inside the package of the same name, which shows all its
// names as its own.
#include <cstddef>
#include <exception>
#include <initializer_list>
#include <string>
#include <utility>

#include "platform/messages.h"
#include "python/bindMesh.h"
#include "python/bindings.h"

namespace py = pybind11;

namespace {

// Binds one group. Scripts see its functions before its classes, but the binders make the classes first,
// because a signature can name only classes that exist. So this moves the classes to the end.
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

void bindMessages(py::module_& module) {
    module.def(
        "setVerbosity", &drelt::setVerbosity, py::arg("level"),
        "Sets what the program prints. 1, the default, prints everything. 0 silences the log\n"
        "and the texts of the loaders on standard output; warnings and errors still appear.\n"
        "The environment variable DRELT_VERBOSITY gives the level at the start. Raises\n"
        "ValueError for another level.");
}

constexpr const char* kNotConstructed =
    "this object was made without its constructor, so it holds nothing; call its class to make one,"
    " and in a subclass call super().__init__() before anything else";

// An object that only __new__ made holds no C++ object. If a function takes it by reference, pybind11
// allocates memory for it with operator_new but calls no constructor; this hook of the class refuses.
// If a function takes it by shared pointer, pybind11 throws a cast_error, whose text does not help.
void refuseUnconstructed(const py::module_& module) {
    const py::dict names = module.attr("__dict__");
    for (const auto& entry : names) {
        if (!py::isinstance<py::type>(entry.second)) continue;
        auto* const type = reinterpret_cast<PyTypeObject*>(entry.second.ptr());
        if (auto* const info = py::detail::get_type_info(type)) {
            info->operator_new = [](std::size_t) -> void* {
                throw py::type_error(kNotConstructed);
            };
        }
    }
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const py::cast_error& error) {
            if (std::string(error.what()).find("non-held") == std::string::npos) throw;
            py::set_error(PyExc_TypeError, kNotConstructed);
        }
    });
}

}  // namespace

PYBIND11_MODULE(drelt, module) {
    module.doc() = "pybind11 example plugin";  // sic: prescribed text
    // While the classes are made, the module has the package's name, so classes and pickles name the package.
    const py::object loadedAs = module.attr("__name__");
    module.attr("__name__") = "drelt";
    bindGroup(module, {drelt::bindEnumerations, drelt::bindFieldUnits});
    bindGroup(module, {drelt::bindParameters});
    bindGroup(module, {drelt::bindSkeleton, drelt::bindMesh});
    bindGroup(module, {drelt::bindSimulator, drelt::bindFields});
    bindGroup(module, {drelt::bindPool});
    bindGroup(module, {drelt::bindTrajectory, drelt::bindRenderer});
    bindGroup(module, {bindMessages});
    refuseUnconstructed(module);
    module.attr("__name__") = loadedAs;
}
