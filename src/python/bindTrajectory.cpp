// Trajectories, debug lines and their files, and the controller.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>
#include <vector>

#include "output/mlVTKWrtier.h"
#include "python/bindings.h"
#include "trajectory/mlSimplePDControl_1D.h"
#include "trajectory/mlTPTrajectory.h"
#include "trajectory/mlTrajectory.h"

namespace py = pybind11;

namespace drelt {
namespace {

using Point = mlTrajectoryPointData<double, 3>;
using Trajectory = mlTrajectory<double, 3>;

using PointClass = py::class_<Point, std::shared_ptr<Point>>;
using PosePointClass = py::class_<mlTPTrajectoryPData, Point, std::shared_ptr<mlTPTrajectoryPData>>;
using TrajectoryClass = py::class_<Trajectory, std::shared_ptr<Trajectory>>;
using PoseTrajectoryClass = py::class_<mlTPTrajectory, Trajectory, std::shared_ptr<mlTPTrajectory>>;
using LineClass = py::class_<mlVTKLine, std::shared_ptr<mlVTKLine>>;
using WriterClass = py::class_<mlVTKWrtier, std::shared_ptr<mlVTKWrtier>>;
using ControllerClass = py::class_<mlSimplePDControl_1D, std::shared_ptr<mlSimplePDControl_1D>>;

// Binds an attribute whose getter returns a copy. With def_readwrite, arrays would be views of the
// member: they would change with it, and dangle once it grows.
template <class Class, class Bound, class Value>
void bindCopied(Class& bound, const char* name, Value Bound::*member, const char* text) {
    bound.def_property(
        name, [member](const Bound& self) -> Value { return self.*member; },
        [member](Bound& self, const Value& value) { self.*member = value; }, text);
}

void bindFactories(py::module_& module) {
    module.def(
        "make_trajectory", [] { return std::make_shared<mlTPTrajectory>(); },
        "New poseTrajectory without points.");
    module.def(
        "make_tpPoint", [] { return std::make_shared<mlTPTrajectoryPData>(); },
        "New trajectoryPosePoint3d; its position and direction are zero.");
    module.def(
        "make_controller",
        [](double Kp, double Kd, double timestep) {
            return std::make_shared<mlSimplePDControl_1D>(Kp, Kd, timestep);
        },
        py::arg("Kp"), py::arg("Kd"), py::arg("timestep"), py::pos_only(),
        "New PDControl1D with proportional gain Kp, derivative gain Kd [s] and time step [s].");
}

void bindPoints(PointClass& point, PosePointClass& posePoint) {
    point.def(py::init<>(), "A point at the origin.");
    bindCopied(point, "data", &Point::data,
               "World position [m], shape (3,). Reading gives a copy: assign a whole vector.");

    posePoint.def(py::init<>(), "The same as make_tpPoint.")
        .def("getPosition", &mlTPTrajectoryPData::getPosition, py::return_value_policy::copy,
             "World position on the path [m], shape (3,).")
        .def("getOrientation", &mlTPTrajectoryPData::getOrientation, py::return_value_policy::copy,
             "Unit tangent of the path, world axes, shape (3,). Zero if the curve does not move\n"
             "there.");
}

void bindCurve(TrajectoryClass& trajectory) {
    trajectory.def(py::init<>(), "A trajectory without points.")
        .def("setPoints", &Trajectory::setPoints, py::arg("points"),
             "Copies the data of a list of trajectoryPoint3d as control points. The curve changes\n"
             "only at the next fit.")
        .def("fit", &Trajectory::fit,
             "Fits a uniform cubic B-spline to the control points. It accepts fewer than four\n"
             "points, but then the curve cannot be evaluated.");
}

void bindPoseQueries(PoseTrajectoryClass& trajectory) {
    trajectory
        .def("getPose", &mlTPTrajectory::getPose, py::arg("t"),
             "The pose at progress t: 0 is the start of the curve, 1 its end. Clamps t to 0 .. 1.\n"
             "Raises RuntimeError before fit, ValueError for a curve of fewer than four points.")
        .def("getCurvature", &mlTPTrajectory::getCurvature, py::arg("t"),
             "The second derivative of the curve at its parameter t [m], shape (3,). Clamps t to\n"
             "0 .. 1, so it covers the first segment only. Raises the errors of getPose.")
        .def("getReferencePose",
             py::overload_cast<const Eigen::Vector3d&>(&mlTPTrajectory::getReferencePose,
                                                       py::const_),
             py::arg("position"), "Get Pose t using spline")  // sic: prescribed text
        .def("getReferencePose",
             py::overload_cast<const Eigen::Vector3d&, int, int>(&mlTPTrajectory::getReferencePose),
             py::arg("position"), py::arg("posIdx"), py::arg("look_forward") = 10,
             "Get Pose t using samples within lookforward range");  // sic: prescribed text
}

void bindPoses(PoseTrajectoryClass& trajectory) {
    trajectory.def(py::init<>(), "The same as make_trajectory.")
        .def("sample", &mlTPTrajectory::sample, py::arg("sample_num"),
             "Replaces the samples by sample_num poses at even steps of the curve's parameter,\n"
             "without its end. Raises RuntimeError before fit, ValueError for a negative number\n"
             "and for a curve of fewer than four points.")
        .def("getLastIdx", &mlTPTrajectory::getLastIdx,
             "Index of the sample that the latest getTargetPose, or getReferencePose with posIdx,\n"
             "found. Pass it to the next call.")
        .def(
            "getTargetPose",
            [](mlTPTrajectory& self, const Eigen::Vector3d& position, int preSampleIdx,
               int look_forward) {
                return self.getTargetPose(position, preSampleIdx, look_forward);
            },
            py::arg("position"), py::arg("preSampleIdx"), py::arg("look_forward"),
            "Finds the sample that a body at position (3) [m] has reached, and returns the sample\n"
            "after it. Searches look_forward samples from preSampleIdx on and never goes back.\n"
            "getLastIdx gives the index found. Raises IndexError without samples, and when the\n"
            "body has reached the last one.")
        .def("getSampleNum", &mlTPTrajectory::getSampleNum, "Number of samples.");
    bindPoseQueries(trajectory);
}

void bindLines(LineClass& line, WriterClass& writer) {
    line.def(py::init<>(), "A line without vertices.");
    bindCopied(line, "vertices", &mlVTKLine::vertices,
               "List of world positions [m], each of shape (3,). Reading gives a copy: assign a\n"
               "whole list.");
    writer
        .def_static("writeLines", &mlVTKWrtier::writeLines, py::arg("lines"), py::arg("file_path"),
                    "Writes a list of debugLine. Returns False if the file cannot be written.")
        .def_static(
            "writeTrajectory", &mlVTKWrtier::writeTrajectory, py::arg("trajectory").none(false),
            py::arg("file_path"),
            "Writes the fitted curve with its first derivatives, 200 samples per control\n"
            "point. Returns False if the file cannot be written. Raises RuntimeError before\n"
            "fit and ValueError for fewer than four control points, before it touches the\n"
            "file.");
}

template <class Visit>
void forEachNumber(Visit&& visit) {
    visit("Kp", &mlSimplePDControl_1D::Kp);
    visit("Kd", &mlSimplePDControl_1D::Kd);
    visit("timestep", &mlSimplePDControl_1D::timestep);
    visit("value", &mlSimplePDControl_1D::value);
    visit("rate", &mlSimplePDControl_1D::dvalue);
    visit("desired_value", &mlSimplePDControl_1D::desired_value);
    visit("desired_rate", &mlSimplePDControl_1D::desired_dvalue);
}

void setControllerState(mlSimplePDControl_1D& self, const py::dict& state) {
    mlSimplePDControl_1D next = self;
    forEachNumber([&](const char* name, double mlSimplePDControl_1D::*number) {
        if (!state.contains(name)) {
            throw py::key_error(std::string("setState: the dict has no '") + name +
                                "'; give one that getState returned");
        }
        const double value = PyFloat_AsDouble(py::object(state[name]).ptr());
        if (PyErr_Occurred() != nullptr) throw py::error_already_set();
        next.*number = value;
    });
    self = next;
}

void bindController(ControllerClass& controller) {
    controller
        .def(py::init<double, double, double>(), py::arg("Kp"), py::arg("Kd"), py::arg("timestep"),
             "The same as make_controller.")
        .def(
            "feedback", &mlSimplePDControl_1D::feedback, py::arg("value"), py::arg("timestep"),
            "Takes the value measured timestep [s] after the previous one and returns the output.\n"
            "The first call forms its difference with 0. A timestep of 0 gives inf or nan.")
        .def("set_value", &mlSimplePDControl_1D::set_value, py::arg("desired_value"),
             "Sets the desired value.")
        .def("set_dvalue", &mlSimplePDControl_1D::set_dvalue, py::arg("desired_dvalue") = 0.0,
             "Sets the desired value, as set_value does. The desired rate is always 0.")
        .def("reset", &mlSimplePDControl_1D::reset,
             "Forgets the measurements and the desired value; keeps the gains.")
        .def(
            "getState",
            [](const mlSimplePDControl_1D& self) {
                py::dict state;
                forEachNumber([&](const char* name, double mlSimplePDControl_1D::*number) {
                    state[name] = self.*number;
                });
                return state;
            },
            "All that the controller keeps, gains included, as a dict of numbers for setState.")
        .def(
            "setState", &setControllerState, py::arg("state"),
            "Takes a dict that getState returned. Raises KeyError for one that lacks a number and\n"
            "TypeError for a value that is no number; nothing has changed then.");
}

}  // namespace

void bindTrajectory(py::module_& module) {
    // All classes first, so that signatures name them.
    PointClass point(module, "trajectoryPoint3d", "One control point of a trajectory.");
    PosePointClass posePoint(
        module, "trajectoryPosePoint3d",
        "A position on a path and the direction of the path there. data is the position too.");
    TrajectoryClass trajectory(module, "trajectory3d",
                               "A path in space along control points. Order of use: setPoints, "
                               "fit, then draw or write it.");
    PoseTrajectoryClass poseTrajectory(
        module, "poseTrajectory",
        "A path to follow. Order of use: setPoints, fit, sample, then the queries.\n"
        "\n"
        "getReferencePose(position) returns the progress of the sample nearest to position (3)\n"
        "[m], from 0 at the start to 1 at the end; nan without samples.\n"
        "\n"
        "getReferencePose(position, posIdx, look_forward) searches look_forward samples from\n"
        "posIdx on, which is the index that the previous call found (getLastIdx). It returns the\n"
        "progress of the sample that the body has reached, plus the distance [m] from this sample\n"
        "to the body's projection on the path. It raises IndexError without samples and for an\n"
        "index past the last one.");
    LineClass line(module, "debugLine", "A line through vertices, for VTKWriter.");
    WriterClass writer(
        module, "VTKWriter",
        "Writes VTK legacy files as text, and makes missing folders. For a file that\n"
        "cannot be written, it returns False and prints a warning, once per folder.");
    ControllerClass controller(
        module, "PDControl1D",
        "Proportional-derivative controller of one value. Its output is\n"
        "Kp (desired - value) - Kd rate, where rate is the difference to the previous value over\n"
        "the time step. The script chooses the units.");

    bindFactories(module);
    bindPoints(point, posePoint);
    bindCurve(trajectory);
    bindPoses(poseTrajectory);
    bindLines(line, writer);
    bindController(controller);
}

}  // namespace drelt
