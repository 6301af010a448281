// Fields of the fluid, samples and skins as NumPy arrays. All arrays are copies that Python owns.
#include <pybind11/eigen.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SkeletonDynamics/BodyArrays.h"
#include "SkeletonDynamics/skSystem.h"
#include "python/bindings.h"
#include "simulatorInterface/FluidFields.h"
#include "simulatorInterface/InUse.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace py = pybind11;

namespace drelt {
namespace {

template <class T>
using Class = py::class_<T, std::shared_ptr<T>>;
using Simulator = coupledLBM_sim3D;
using Given = py::array_t<double, py::array::c_style | py::array::forcecast>;
using FluidFields::Grid;

// A class that another group has made.
template <class T>
Class<T> classOf(const py::module_& module, const char* name) {
    return py::reinterpret_borrow<Class<T>>(module.attr(name));
}

py::arg_v unitsArgument() { return py::arg_v("units", FieldUnits::SI, "UNITS.SI"); }

// The shape of a field with one number or one vector per node.
std::vector<py::ssize_t> shapeOf(const Grid& grid, bool vectors) {
    std::vector<py::ssize_t> shape{grid.nz, grid.ny, grid.nx};
    if (vectors) shape.push_back(3);
    return shape;
}

template <auto Read, class T, bool Vectors>
py::array_t<T> field(Simulator& simulator, FieldUnits units, const char* operation) {
    const InUse use(simulator.inUse, operation);
    py::array_t<T> out(shapeOf(FluidFields::grid(simulator, operation), Vectors));
    Read(simulator, units, out.mutable_data());
    return out;
}

py::array_t<float> velocityOf(Simulator& s, FieldUnits units) {
    return field<&FluidFields::readVelocity, float, true>(s, units, "getVelocity");
}
py::array_t<float> densityOf(Simulator& s, FieldUnits units) {
    return field<&FluidFields::readDensity, float, false>(s, units, "getDensity");
}
py::array_t<float> pressureOf(Simulator& s, FieldUnits units) {
    return field<&FluidFields::readPressure, float, false>(s, units, "getPressure");
}
py::array_t<double> spreadForceOf(Simulator& s, FieldUnits units) {
    return field<&FluidFields::readSpreadForce, double, true>(s, units, "getSpreadForce");
}
py::array_t<std::int32_t> layerTypesOf(Simulator& s) {
    const InUse use(s.inUse, "getLayerTypes");
    py::array_t<std::int32_t> out(shapeOf(FluidFields::grid(s, "getLayerTypes"), false));
    FluidFields::readLayerTypes(s, out.mutable_data());
    return out;
}

Grid gridOf(Simulator& simulator, const char* operation) {
    const InUse use(simulator.inUse, operation);
    return FluidFields::grid(simulator, operation);
}

std::string textOf(const py::handle& shape) { return py::str(shape); }

void requireShape(const char* what, const Given& array, const Grid& grid, bool vectors) {
    const py::tuple needed = py::cast(shapeOf(grid, vectors)).cast<py::tuple>();
    const py::tuple shape = array.attr("shape");
    if (shape.equal(needed)) return;
    throw py::value_error("setFields: the " + std::string(what) + " has the shape " +
                          textOf(shape) + "; the grid needs " + textOf(needed) +
                          (vectors ? ", that is (nz, ny, nx, 3)" : ", that is (nz, ny, nx)"));
}

void setFields(Simulator& simulator, const Given& velocity, const std::optional<Given>& density,
               bool nonEquilibrium, FieldUnits units) {
    const InUse use(simulator.inUse, "setFields");
    const Grid grid = FluidFields::grid(simulator, "setFields");
    requireShape("velocity", velocity, grid, true);
    if (density) requireShape("density", *density, grid, false);
    FluidFields::setFluid(
        simulator, {velocity.data(), density ? density->data() : nullptr, nonEquilibrium, units});
}

py::module_ importXarray() {
    try {
        return py::module_::import("xarray");
    } catch (py::error_already_set& error) {
        if (!error.matches(PyExc_ImportError)) throw;
        throw py::import_error(
            "toDataset needs the package xarray, which is not installed here: "
            "install it (pip install xarray), or use getVelocity and the other "
            "functions that give NumPy arrays");
    }
}

py::object toDataset(Simulator& simulator, FieldUnits units) {
    const Grid grid = FluidFields::grid(simulator, "toDataset");
    const py::module_ xarray = importXarray();
    const bool si = units == FieldUnits::SI;
    const py::tuple nodes = py::make_tuple("z", "y", "x");
    const py::tuple vectors = py::make_tuple("z", "y", "x", "component");
    const auto unit = [&](const char* name) {
        py::dict attributes;
        attributes["units"] = si ? name : "lattice units";
        return attributes;
    };
    py::dict fields;
    fields["velocity"] = py::make_tuple(vectors, velocityOf(simulator, units), unit("m/s"));
    fields["density"] = py::make_tuple(nodes, densityOf(simulator, units), unit("kg/m^3"));
    fields["pressure"] = py::make_tuple(nodes, pressureOf(simulator, units), unit("Pa"));
    fields["spread_force"] =
        py::make_tuple(vectors, spreadForceOf(simulator, units), unit("N/m^3"));
    fields["layer_type"] = py::make_tuple(nodes, layerTypesOf(simulator));
    py::dict coordinates;
    const char* const names[] = {"x", "y", "z"};
    const int counts[] = {grid.nx, grid.ny, grid.nz};
    py::dict metres;
    metres["units"] = "m";
    for (int a = 0; a < 3; ++a) {
        py::array_t<double> places(counts[a]);
        for (int i = 0; i < counts[a]; ++i) {
            places.mutable_at(i) = grid.origin[a] + i * grid.spacing;
        }
        coordinates[names[a]] = py::make_tuple(names[a], places, metres);
    }
    coordinates["component"] = py::cast(std::vector<std::string>{"x", "y", "z"});
    py::dict attributes;
    attributes["steps"] = simulator.getIterNum();
    attributes["time_s"] = simulator.getIterNum() * static_cast<double>(simulator.solver->scale.dt);
    attributes["grid_velocity_m_per_s"] = grid.velocity;
    return xarray.attr("Dataset")(fields, coordinates, attributes);
}

void bindReading(Class<Simulator>& simulator) {
    simulator
        .def(
            "getVelocity", &velocityOf, unitsArgument(),
            "Velocity of the fluid as seen from the grid, world axes: momentum over density, "
            "float32,\n"
            "shape (nz, ny, nx, 3), [m/s] or lattice units. Add getGridVelocity() for that in the\n"
            "world. Files hold momentum over the reference density plus the velocity of the grid.\n"
            "Like all arrays of the simulator and of bodies, a copy that outlives both; reading\n"
            "leaves the run as it is, bit for bit. The functions of fields raise RuntimeError "
            "before\n"
            "commitInit, ValueError for a number that is no UNITS.")
        .def("getDensity", &densityOf, unitsArgument(),
             "Density, float32, shape (nz, ny, nx), [kg/m^3] or reference densities.")
        .def("getPressure", &pressureOf, unitsArgument(),
             "Pressure above that of the fluid at rest with the reference density, float32, shape\n"
             "(nz, ny, nx), [Pa] or lattice units: c_s^2 (density - reference density).")
        .def("getSpreadForce", &spreadForceOf, unitsArgument(),
             "Force per volume that the samples of all bodies put on the fluid in the last step "
             "with\n"
             "fluid, float64, shape (nz, ny, nx, 3), [N/m^3] or lattice units; zero before the "
             "first.\n"
             "The step itself consumes these forces, so this call spreads the samples' forces "
             "anew,\n"
             "from where the samples are now: the step spread them before it moved the bodies, at\n"
             "most one step's way from there. The forces of a moving frame are not in it.")
        .def("getLayerTypes", &layerTypesOf,
             "Place of each node in the absorbing layer, int32, shape (nz, ny, nx), as in the "
             "files: 9\n"
             "outside the layer, 1 in it, 2 to 7 on its outer faces (up, down, left, right, back,\n"
             "forward), 0 on edges, 8 at the corners of the box.")
        .def(
            "getGridOrigin", [](Simulator& s) { return gridOf(s, "getGridOrigin").origin; },
            "Position of node [0, 0, 0], world [m], shape (3,), as the last step placed it. A "
            "grid\n"
            "that follows a body moves at the beginning of a step.")
        .def(
            "getGridSpacing", [](Simulator& s) { return gridOf(s, "getGridSpacing").spacing; },
            "Distance of neighbouring nodes [m].")
        .def(
            "getGridShape",
            [](Simulator& s) {
                const Grid grid = gridOf(s, "getGridShape");
                return py::make_tuple(grid.nz, grid.ny, grid.nx);
            },
            "Numbers of nodes (nz, ny, nx).")
        .def(
            "getGridVelocity", [](Simulator& s) { return gridOf(s, "getGridVelocity").velocity; },
            "Velocity of the frame that the grid follows, world axes [m/s], shape (3,); zero for "
            "a\n"
            "fixed grid. The grid never turns.")
        .def("toDataset", &toDataset, unitsArgument(),
             "All fields as an xarray.Dataset: velocity, density, pressure, spread_force and\n"
             "layer_type over the coordinates z, y, x [m, world]. Raises ImportError if the "
             "package\n"
             "xarray is not installed.");
}

void bindSetting(Class<Simulator>& simulator) {
    simulator.def(
        "setFields", &setFields, py::arg("velocity"), py::arg("density") = py::none(),
        py::arg("non_equilibrium") = true, unitsArgument(),
        "Sets the fluid between two steps, for example to a vortex: velocity as getVelocity gives "
        "it,\n"
        "shape (nz, ny, nx, 3), and density, shape (nz, ny, nx); None is the reference density. A\n"
        "flow without sound needs the density of its pressure. Populations become the equilibrium\n"
        "plus, with non_equilibrium, the viscous part that belongs to the velocity's gradients, "
        "by\n"
        "central differences (Skordos, 1993): the flow then decays at the right rate from the "
        "first\n"
        "step on. Bodies, time and counters stay; open planes and layer act on the new fluid from\n"
        "the next step on, and reset goes back to the fluid at rest. Raises RuntimeError before\n"
        "commitInit and if memory does not suffice, ValueError for another shape, numbers that "
        "are\n"
        "not finite, a density that is not positive and speeds above Mach 0.3 of the lattice;\n"
        "nothing changes then.");
}

void bindBody(Class<skSystem>& body) {
    body.def("getSamplePositions", &BodyArrays::samplePositions,
             "Positions of the samples, world [m], shape (n, 3), as the last update placed them.\n"
             "EMPIRICAL steps leave samples where they are; update() brings them to the pose.")
        .def("getSampleVelocities", &BodyArrays::sampleVelocities,
             "Velocities of the body at its samples, world axes [m/s], shape (n, 3).")
        .def(
            "getSampleForces", &BodyArrays::sampleForces,
            "Force of each sample on the fluid in the last step with fluid, world axes [N], shape\n"
            "(n, 3); zero before the first one and after a reset. The body feels the opposite.")
        .def("getSampleLinks", &BodyArrays::sampleLinks,
             "Index of each sample's link in getLinkNames(), int32, shape (n,).")
        .def("getSampleArea", &BodyArrays::sampleArea,
             "Area that each sample stands for [m^2]: a disc, 0.907 of its share of the skin.")
        .def("getSkinVertices", &BodyArrays::skinVertices,
             "Vertices of the skin in the present pose, world [m], shape (m, 3). Several meshes "
             "follow\n"
             "each other.")
        .def("getSkinFaces", &BodyArrays::skinFaces,
             "Triangles of the skin: three rows of getSkinVertices() each, int32, shape (k, 3).")
        .def("getSkinFaceLinks", &BodyArrays::skinFaceLinks,
             "Index of each triangle's link in getLinkNames(), int32, shape (k,).")
        .def("getLinkNames", &BodyArrays::linkNames,
             "Names of all links. The first is the world, the last the frame that the grid may "
             "follow;\n"
             "neither has samples.");
}

}  // namespace

void bindFieldUnits(py::module_& module) {
    py::enum_<FieldUnits>(
        module, "UNITS", py::arithmetic(),
        "Units of a field: SI, or LATTICE with node spacing, time step and reference density 1.")
        .value("LATTICE", FieldUnits::Lattice)
        .value("SI", FieldUnits::SI);
}

void bindFields(py::module_& module) {
    auto simulator = classOf<Simulator>(module, "simulator3D");
    bindReading(simulator);
    bindSetting(simulator);
    auto body = classOf<skSystem>(module, "SkeletonDynamics");
    bindBody(body);
}

}  // namespace drelt
