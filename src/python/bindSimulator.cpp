// The simulator.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "python/bindings.h"
#include "python/simulatorCalls.h"

namespace py = pybind11;

namespace drelt {
namespace {

// Signals are looked at between steps, so that Ctrl-C finds everything whole.
void step(coupledLBM_sim3D& self, couplingMode mode, int count) {
    if (count < 0) {
        throw py::value_error("step: the count is " + std::to_string(count) + "; give 0 or more");
    }
    std::optional<InUse> use(std::in_place, self.inUse, "step");
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            use.reset();  // a handler may use the simulator, for instance save its state
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
            use.emplace(self.inUse, "step");
        }
        const py::gil_scoped_release others;
        self.step(mode);
    }
}

void bindStepping(SimulatorClass& simulator) {
    simulator
        .def("attachWorld", alone("attachWorld", &coupledLBM_sim3D::attachWorld), py::arg("world"),
             "Sets the bodies; the world is shared. Raises RuntimeError after commitInit.")
        .def_readwrite("mainDataFolderPath", &coupledLBM_sim3D::mainDataFolderPath,
                       "Root of the output tree, with a slash at its end.")
        .def_readwrite("fluidFolderName", &coupledLBM_sim3D::fluidFolderName,
                       "Folder of the fluid files under the root.")
        .def_readwrite("objectsFolderName", &coupledLBM_sim3D::objectsFolderName,
                       "Folder of the object and marker files under the root.")
        .def("log", &coupledLBM_sim3D::log, "Prints scales and grid.")
        .def("commitInit", alone("commitInit", &coupledLBM_sim3D::commitInit),
             "Brings fluid and bodies to the device: call it once all is set, before the first "
             "step.\n"
             "Centres the grid on the frame that it follows. Raises RuntimeError without a world, "
             "with\n"
             "an empty one, or with one that another simulator has committed; ValueError if device "
             "ids\n"
             "differ, if u0k, u0p, rou0p or the time step is not finite and positive, if visp is\n"
             "negative, if slip_ratio is not between 0 and 1, if N or l0p no longer fit the grid, "
             "or\n"
             "if an option is out of range or needs another one.\n"
             "Warns of other parameters that were changed since the simulator was made, and of "
             "bodies\n"
             "outside the fluid box.")
        .def(
            "step", &step, py::arg("couple_mode"), py::arg("count") = 1,
            "Time steps of get_tp() seconds, `count` of them. Other Python threads go on "
            "meanwhile; they\n"
            "must not use this simulator, its world or its bodies (a call of the simulator raises\n"
            "RuntimeError). Ctrl-C raises KeyboardInterrupt between two steps. Raises ValueError "
            "for a\n"
            "number that is no COUPLE_MODE and for a negative count, RuntimeError before "
            "commitInit,\n"
            "if an option of the simParam (coupling, weights, retraction, open_planes, "
            "far_density,\n"
            "current) was changed after it, and if\n"
            "a body or the force on it diverges: build the scene anew then. Every 64 steps it "
            "warns,\n"
            "once per body, of samples outside the fluid box.")
        .def("getIterNum", &coupledLBM_sim3D::getIterNum,
             "Steps done since the start or the reset.")
        .def(
            "getIterPerSave", &coupledLBM_sim3D::getIterPerSave, py::arg("frame_rate"),
            "Steps between two frames at frame_rate frames a second, truncated. Raises ValueError\n"
            "for a frame rate of zero or less.")
        .def("reset", alone("reset", &coupledLBM_sim3D::reset),
             "Back to the start of fluid and bodies. The density stays as it was last saved. "
             "Raises\n"
             "RuntimeError before commitInit.");
}

void bindSaving(SimulatorClass& simulator) {
    simulator
        .def("saveScene", alone("saveScene", &coupledLBM_sim3D::saveScene), py::arg("frame"),
             py::arg("save_flags"),
             "Writes frame number `frame` as VTK files; save_flags joins members of SAVE_FLAG. "
             "Missing\n"
             "folders are created. Raises RuntimeError before commitInit.")
        .def("saveObjectsData", alone("saveObjectsData", &coupledLBM_sim3D::saveObjectsData),
             py::arg("object_name"),
             "Writes meshes and markers of all bodies into the objects folder, under this stem.")
        .def("saveFluidData", alone("saveFluidData", &coupledLBM_sim3D::saveFluidData),
             py::arg("fluid_name"), "Writes the fluid into the fluid folder, under this stem.");
}

void bindCurrent(SimulatorClass& simulator) {
    simulator
        .def(
            "setCurrent", alone("setCurrent", &coupledLBM_sim3D::setCurrent), py::arg("velocity"),
            "Sets the velocity of the fluid far away [m/s], world axes, from the next step on. "
            "The\n"
            "fluid inside follows as the planes let it in; a reset starts with it. Raises\n"
            "RuntimeError before commitInit, ValueError with copied planes, above Mach 0.3 of the\n"
            "lattice, and for numbers that are not finite.")
        .def(
            "getCurrent", &coupledLBM_sim3D::getCurrent,
            "Velocity of the fluid far away [m/s]: a copy. Raises RuntimeError before commitInit.");
}

}  // namespace

void bindSimulator(py::module_& module) {
    SimulatorClass simulator(
        module, "simulator3D",
        "Fluid and bodies, coupled. Order of use: make it, attachWorld, commitInit, then step and\n"
        "save. Keeps its parameters and its world alive.");

    module.def(
        "make_simulator",
        [](std::shared_ptr<simParams> param, int gpuId) {
            return std::make_shared<coupledLBM_sim3D>(std::move(param), gpuId);
        },
        py::arg("param"), py::arg("gpuId"), py::pos_only(),
        "New simulator from a simParam and a device id: builds the grid. Raises ValueError for an "
        "id\n"
        "that names no device and for a box or node spacing that is impossible, RuntimeError if "
        "the\n"
        "grid does not fit into memory.");

    simulator.def(py::init<std::shared_ptr<simParams>, int>(), py::arg("param"), py::arg("gpuId"),
                  "As make_simulator.");
    bindStepping(simulator);
    bindSaving(simulator);
    bindCurrent(simulator);
    bindState(simulator);
}

}  // namespace drelt
