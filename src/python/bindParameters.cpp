// Enumerations and the parameter record.
#include <pybind11/eigen.h>

#include <Eigen/Core>
#include <memory>

#include "cslbm/mlsolver/couplingMode.h"
#include "python/bindings.h"
#include "simulatorInterface/coupledLBM_sim3D.h"
#include "simulatorInterface/simParams.h"

namespace py = pybind11;

namespace drelt {

void bindEnumerations(py::module_& module) {
    py::enum_<simParams::SETUP_MODE>(
        module, "SETUP_MODE", py::arithmetic(),
        "Where the scales of a simulation come from: MANUAL takes N, l0p and u0p of the "
        "parameters;\n"
        "GRAVITY a fall through the box, which needs a node spacing that scripts cannot set.")
        .value("GRAVITY", simParams::GRAVITY)
        .value("MANUAL", simParams::MANUAL);
    py::enum_<couplingMode>(
        module, "COUPLE_MODE", py::arithmetic(),
        "How one step couples fluid and bodies: TWO_WAY each drives the other; ONE_WAY the bodies\n"
        "drive the fluid; NO_FLUID the bodies alone; EMPIRICAL the bodies alone, under a\n"
        "flat-plate force model.")
        .value("NO_FLUID", NO_FLUID)
        .value("ONE_WAY", ONE_WAY)
        .value("TWO_WAY", TWO_WAY)
        .value("EMPIRICAL", EMPIRICAL);
    py::enum_<SCENE_SAVE_FLAG>(module, "SAVE_FLAG", py::arithmetic(),
                               "What saveScene writes; join members with |.")
        .value("BODY", BODY)
        .value("FLUID", FLUID);
    py::enum_<Coupling>(
        module, "COUPLING", py::arithmetic(),
        "How TWO_WAY forms the force between bodies and fluid: EXPLICIT from the body's velocity\n"
        "before the step; SEMI_IMPLICIT from that after it, which is stable for bodies as heavy "
        "as\n"
        "the fluid, too (Tschisgale, Kempe and Froehlich, 2017).")
        .value("EXPLICIT", Coupling::Explicit)
        .value("SEMI_IMPLICIT", Coupling::SemiImplicit);
    py::enum_<ForcingWeights>(
        module, "WEIGHTS", py::arithmetic(),
        "How strongly the samples of the semi-implicit coupling force the fluid: AREA by their\n"
        "areas, which takes away about a third of the slip in a step; NORMALISED by their areas\n"
        "over the share that these would take away, so all of an even slip goes, also where skins\n"
        "overlap or samples stand sparsely (after Pinelli, Naqavi, Piomelli and Favier, 2010).")
        .value("AREA", ForcingWeights::Area)
        .value("NORMALISED", ForcingWeights::Normalised);
    py::enum_<OpenPlaneKind>(
        module, "OPEN_PLANES", py::arithmetic(),
        "What the six open planes of the box do: COPY the fluid inside them; CHARACTERISTIC let\n"
        "sound out and hold far_density and current; CHARACTERISTIC_CONSTANT the same with a\n"
        "simpler outgoing wave, which reflects about three times as much (Thompson, 1987;\n"
        "Izquierdo and Fueyo, 2008).")
        .value("COPY", OpenPlaneKind::Copy)
        .value("CHARACTERISTIC", OpenPlaneKind::Characteristic)
        .value("CHARACTERISTIC_CONSTANT", OpenPlaneKind::CharacteristicConstant);
}

namespace {

void bindOptions(py::class_<simParams, std::shared_ptr<simParams>>& params) {
    params
        .def_property(
            "coupling", [](const simParams& p) { return p.coupling; },
            [](simParams& p, Coupling value) { p.coupling = value; },
            "A COUPLING, EXPLICIT by default; taken at commitInit. SEMI_IMPLICIT needs a "
            "slip_ratio "
            "of\n"
            "0. Reading gives a copy.")
        .def_property(
            "weights", [](const simParams& p) { return p.weights; },
            [](simParams& p, ForcingWeights value) { p.weights = value; },
            "A WEIGHTS, AREA by default; taken at commitInit. NORMALISED needs the coupling\n"
            "SEMI_IMPLICIT; ONE_WAY steps keep AREA. Reading gives a copy.")
        .def_readwrite(
            "retraction", &simParams::retraction,
            "How far samples stand inside the skin [node spacings], which makes up for the width "
            "of "
            "the\n"
            "kernels (Breugem, 2012); 0.8 is recommended, 0 the default. At most half the local\n"
            "thickness. Taken at commitInit. Skin, markers and pictures stay as they are.")
        .def_property(
            "open_planes", [](const simParams& p) { return p.open_planes; },
            [](simParams& p, OpenPlaneKind value) { p.open_planes = value; },
            "An OPEN_PLANES, COPY by default; taken at commitInit. Reading gives a copy.")
        .def_readwrite(
            "far_density", &simParams::far_density,
            "Density far away [reference densities] that characteristic planes hold; 0.9 to 1.1, 1 "
            "by\n"
            "default. Taken at commitInit.")
        .def_property(
            "current", [](const simParams& p) { return Eigen::Vector3d(p.current.data()); },
            [](simParams& p, const Eigen::Vector3d& value) {
                p.current = {value.x(), value.y(), value.z()};
            },
            "Velocity of the fluid far away [m/s], world axes, 3 numbers, that characteristic "
            "planes\n"
            "hold; the fluid starts with it. Taken at commitInit; simulator3D.setCurrent changes "
            "it "
            "later.\n"
            "Reading gives a copy.");
}

}  // namespace

void bindParameters(py::module_& module) {
    py::class_<simParams, std::shared_ptr<simParams>> params(
        module, "simParam",
        "Parameters of a simulation, in SI units unless said otherwise. Set setup_mode to MANUAL,\n"
        "then N, l0p, u0k, u0p, visp, the box and pml_width, before the simulator is made: it "
        "takes\n"
        "grid and viscosity from here once. A float of -1 is not set: the first use fills it in "
        "and\n"
        "prints a line if it takes a default. A later change of N, l0p, u0k or setup_mode derives "
        "the\n"
        "filled-in values anew.");

    module.def(
        "make_simParams", [] { return std::make_shared<simParams>(); },
        "New parameters with default values.");

    params.def(py::init<>(), "Default values.")
        .def_readwrite("x0", &simParams::x0, "Centre of the fluid box at the start, x [m].")
        .def_readwrite("y0", &simParams::y0, "Centre of the fluid box at the start, y [m].")
        .def_readwrite("z0", &simParams::z0, "Centre of the fluid box at the start, z [m].")
        .def_readwrite("width", &simParams::width, "Size of the box along x [m].")
        .def_readwrite("height", &simParams::height, "Size of the box along y [m].")
        .def_readwrite("depth", &simParams::depth, "Size of the box along z [m].")
        .def_property(
            "N", [](const simParams& p) { return p.N; }, &simParams::setN,
            "Nodes per reference length; the node spacing is l0p / N.")
        .def_property(
            "l0p", [](const simParams& p) { return p.l0p; }, &simParams::setL0p,
            "Reference length [m].")
        .def_property(
            "u0k", [](const simParams& p) { return p.u0k; }, &simParams::setU0k,
            "Reference velocity in lattice units; keep it well below 0.3.")
        .def_property(
            "u0p", [](const simParams& p) { return p.u0p; }, &simParams::setU0p,
            "Reference velocity [m/s].")
        .def_readwrite("rou0p", &simParams::rou0p, "Density of the fluid [kg/m^3].")
        .def_readwrite("visp", &simParams::visp, "Kinematic viscosity [m^2/s].")
        .def_readwrite("slip_ratio", &simParams::slip_ratio,
                       "Slip at immersed surfaces, from 0 (none) to 1 (free).")
        .def_readwrite("pml_width", &simParams::pml_width,
                       "Thickness of the absorbing layer [nodes].")
        .def_property(
            "setup_mode", [](const simParams& p) { return p.setup_mode; }, &simParams::setSetupMode,
            "A SETUP_MODE. Reading gives a copy.")
        .def("get_tp", &simParams::get_tp,
             "Time step [s], l0p u0k / (N u0p). Fills in what is not set. Infinite for a zero N or "
             "u0p.");
    bindOptions(params);
}

}  // namespace drelt
