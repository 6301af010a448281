// The simulator.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>

#include "python/bindings.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace py = pybind11;

namespace drelt {
namespace {

void bindStepping(py::class_<coupledLBM_sim3D, std::shared_ptr<coupledLBM_sim3D>>& simulator) {
    simulator
        .def("attachWorld", &coupledLBM_sim3D::attachWorld, py::arg("world"),
             "Sets the bodies; the world is shared. Raises RuntimeError after commitInit.")
        .def_readwrite("mainDataFolderPath", &coupledLBM_sim3D::mainDataFolderPath,
                       "Root of the output tree, with a slash at its end.")
        .def_readwrite("fluidFolderName", &coupledLBM_sim3D::fluidFolderName,
                       "Folder of the fluid files under the root.")
        .def_readwrite("objectsFolderName", &coupledLBM_sim3D::objectsFolderName,
                       "Folder of the object and marker files under the root.")
        .def("log", &coupledLBM_sim3D::log, "Prints scales and grid.")
        .def("commitInit", &coupledLBM_sim3D::commitInit,
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
        .def("step", &coupledLBM_sim3D::step, py::arg("couple_mode"),
             "One time step of get_tp() seconds. Raises ValueError for a number that is no "
             "COUPLE_MODE,\n"
             "RuntimeError before commitInit and if a body or the force on it diverges: build the "
             "scene\n"
             "anew then. Every 64 steps it warns, once per body, of samples outside the fluid box.")
        .def("getIterNum", &coupledLBM_sim3D::getIterNum,
             "Steps done since the start or the reset.")
        .def(
            "getIterPerSave", &coupledLBM_sim3D::getIterPerSave, py::arg("frame_rate"),
            "Steps between two frames at frame_rate frames a second, truncated. Raises ValueError\n"
            "for a frame rate of zero or less.")
        .def("reset", &coupledLBM_sim3D::reset,
             "Back to the start of fluid and bodies. The density stays as it was last saved. "
             "Raises\n"
             "RuntimeError before commitInit.");
}

void bindSaving(py::class_<coupledLBM_sim3D, std::shared_ptr<coupledLBM_sim3D>>& simulator) {
    simulator
        .def("saveScene", &coupledLBM_sim3D::saveScene, py::arg("frame"), py::arg("save_flags"),
             "Writes frame number `frame` as VTK files; save_flags joins members of SAVE_FLAG. "
             "Missing\n"
             "folders are created. Raises RuntimeError before commitInit.")
        .def("saveObjectsData", &coupledLBM_sim3D::saveObjectsData, py::arg("object_name"),
             "Writes meshes and markers of all bodies into the objects folder, under this stem.")
        .def("saveFluidData", &coupledLBM_sim3D::saveFluidData, py::arg("fluid_name"),
             "Writes the fluid into the fluid folder, under this stem.");
}

void bindCurrent(py::class_<coupledLBM_sim3D, std::shared_ptr<coupledLBM_sim3D>>& simulator) {
    simulator
        .def(
            "setCurrent", &coupledLBM_sim3D::setCurrent, py::arg("velocity"),
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
    py::class_<coupledLBM_sim3D, std::shared_ptr<coupledLBM_sim3D>> simulator(
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
}

}  // namespace drelt
