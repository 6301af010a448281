// A pool of simulators: commands and read-outs are arrays with one row per world.
#include <pybind11/eigen.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "python/bindings.h"
#include "simulatorInterface/SimulatorPool.h"

namespace py = pybind11;

namespace drelt {
namespace {

using Pool = py::class_<SimulatorPool, std::shared_ptr<SimulatorPool>>;
using Commands = py::array_t<double, py::array::c_style | py::array::forcecast>;

std::string shapeOf(const py::array& array) {
    std::string text = "(";
    for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
        text += std::to_string(array.shape(axis)) + (axis + 1 < array.ndim() ? ", " : "");
    }
    return text + (array.ndim() == 1 ? ",)" : ")");
}

PoolCommands viewOf(const Commands& given, const SimulatorPool& pool, int count) {
    const int perWorld = pool.commandsPerWorld();
    const bool held = given.ndim() == 2;
    const bool fits = (held || (given.ndim() == 3 && given.shape(1) == count)) &&
                      given.shape(0) == pool.size() && given.shape(given.ndim() - 1) == perWorld;
    if (!fits) {
        const std::string worlds = "(" + std::to_string(pool.size()) + ", ";
        const std::string dofs = std::to_string(perWorld) + ")";
        throw py::value_error("step: got commands of shape " + shapeOf(given) + "; give " + worlds +
                              dofs + ", or for each step another row, " + worlds +
                              std::to_string(count) + ", " + dofs);
    }
    return {given.data(), held ? 1 : count};
}

void step(SimulatorPool& pool, couplingMode mode, const std::optional<Commands>& commands,
          int count) {
    PoolCommands view{};
    if (commands) view = viewOf(*commands, pool, count);
    const py::gil_scoped_release release;
    pool.step(mode, commands ? &view : nullptr, count);
}

void bindReadOuts(Pool& pool) {
    const auto body = py::arg("body") = 0;
    const auto base = py::arg("includeBase") = true;
    pool.def("getPositions", &SimulatorPool::positions, body, base,
             "Joint positions of a body [m, rad], shape (K, m); without the DOFs of the first\n"
             "joint if includeBase is False. All read-outs are copies of float64. They raise\n"
             "IndexError for a body that does not exist, and RuntimeError while another thread\n"
             "steps the pool.")
        .def("getVelocities", &SimulatorPool::velocities, body, base,
             "Joint velocities of a body [m/s, rad/s], shape (K, m), as getPositions.")
        .def("getCOM", &SimulatorPool::centresOfMass, body,
             "Centres of mass, world axes [m], shape (K, 3). Raises RuntimeError for a body\n"
             "without mass.")
        .def("getCOMLinearVelocity", &SimulatorPool::centreVelocities, body,
             "Velocities of the centres of mass, world axes [m/s], shape (K, 3). Raises\n"
             "RuntimeError for a body without mass.")
        .def("getBaseLinkFwd", &SimulatorPool::forwardAxes, body,
             "Forward axes, world, shape (K, 3).")
        .def("getBaseLinkRight", &SimulatorPool::rightAxes, body,
             "Right axes, world, shape (K, 3).")
        .def("getBaseLinkUp", &SimulatorPool::upAxes, body, "Up axes, world, shape (K, 3).")
        .def("getMarkersPressure", &SimulatorPool::markerDensities, body,
             "Fluid densities at a body's markers, lattice units, shape (K, m); 1 is the fluid\n"
             "at rest.")
        .def("getIterNum", &SimulatorPool::iterations,
             "Steps done by each world since its start or reset, a list of K.")
        .def("getFailedWorlds", &SimulatorPool::failedWorlds,
             "Indices of the worlds that the latest step could not complete; empty if all did.");
}

constexpr const char* kStepText =
    "`count` steps of all worlds on the machine's threads; other Python threads run on.\n"
    "commands: those of the actuated DOFs, of all bodies one after the other; shape (K, m)\n"
    "holds them for all steps, (K, count, m) gives each step its own. Without commands the\n"
    "first step uses those that the bodies have. Each world gets the same bits as stepped\n"
    "alone. With fewer than half as many worlds as threads, steps with fluid take the worlds\n"
    "one after the other, each on all threads; so they do on a GPU.\n"
    "\n"
    "Raises ValueError, before anything changes, for another shape, numbers that are not\n"
    "finite, a count below 1 and a number that is no COUPLE_MODE; RuntimeError while another\n"
    "thread uses the pool. Do not touch the worlds themselves from other threads meanwhile.\n"
    "Raises RuntimeError, which names the worlds by index, if worlds cannot be stepped, for\n"
    "instance because a body diverges. Those stay at the step that failed (getIterNum tells\n"
    "it) and need a scene made anew, as by themselves; all others have completed the call,\n"
    "and later calls step them on.";

}  // namespace

void bindPool(py::module_& module) {
    Pool pool(module, "simulatorPool",
              "K independent simulators, the worlds, that are stepped together. Keeps them alive;\n"
              "they can be used by themselves between the pool's steps.");
    const auto make = [](SimulatorPool::Worlds simulators) {
        return std::make_shared<SimulatorPool>(std::move(simulators));
    };
    module.def(
        "make_pool", make, py::arg("simulators"), py::pos_only(),
        "New pool of committed simulators with equal bodies. Raises ValueError for none, for\n"
        "one that is there twice or in another pool, for another device than the first\n"
        "one's, for bodies that differ in number, DOFs or markers, and for worlds whose\n"
        "bodies share a description; RuntimeError for a simulator before commitInit.\n"
        "Nothing changes then. Deleting the pool frees the simulators for another one.");
    pool.def(py::init(make), py::arg("simulators"), "As make_pool.");
    pool.def("__len__", &SimulatorPool::size, "Number of worlds, K.")
        .def("getSimulator", &SimulatorPool::world, py::arg("index"),
             "The simulator of a world. Raises IndexError for an index without one.")
        .def("step", &step, py::arg("couple_mode"), py::arg("commands") = py::none(),
             py::arg("count") = 1, kStepText);
    bindReadOuts(pool);
}

}  // namespace drelt
