// Bodies: descriptions, live skeletons with their joints, links and markers, and the world.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>
#include <string>
#include <utility>

#include "Markers/Markers.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skJoint.h"
#include "SkeletonDynamics/skLink.h"
#include "SkeletonDynamics/skSystem.h"
#include "SkeletonDynamics/skWorld.h"
#include "python/bindings.h"

namespace py = pybind11;
using Eigen::Vector3d;

namespace drelt {
namespace {

template <class T>
using Class = py::class_<T, std::shared_ptr<T>>;

std::shared_ptr<skSystem> makeSystem(const std::shared_ptr<SkeletonSystem>& skeleton, int sampleNum,
                                     int gpuId, const Vector3d& translation,
                                     const Vector3d& rotation, const Vector3d& scaling) {
    requireFinite(scaling, "the skeleton's scaling");
    return std::make_shared<skSystem>(skeleton, sampleNum, gpuId, translation, rotation);
}

void bindFactories(py::module_& module) {
    module.def(
        "skeletonFromJson", &skeletonFromJson, py::arg("json_name"), py::arg("gpuId"),
        "Reads a skeleton description file (JSON) and the mesh that it names; a relative path of\n"
        "the mesh counts from the working directory. Raises RuntimeError with the JSON\n"
        "library's text for a file that cannot be read or lacks values.");
    module.def(
        "make_skeletonSystem",
        [](const std::string& modelFile, int gpuId) {
            return std::make_shared<SkeletonSystem>(modelFile, gpuId);
        },
        py::arg("model_file"), py::arg("gpuId"), py::pos_only(),
        "New description from a model file and a device id.");
    module.def("make_skDynamics", &makeSystem, py::arg("Skeleton"), py::arg("sampleNum"),
               py::arg("gpuId"), py::arg("translation"), py::arg("rotation"), py::arg("scaling"),
               py::pos_only(),
               "New body from a description, number of samples, device id, translation [m],\n"
               "rotation [degrees] and scaling (without effect).");
    module.def(
        "make_skWorld", [](const Vector3d& gravity) { return std::make_shared<skWorld>(gravity); },
        py::arg("Gravity"), py::pos_only(), "New world with this gravity [m/s^2].");
}

void bindJoint(Class<skJoint>& joint) {
    joint.def("getJointType", &skJoint::getJointType, "Word of the description: 'revolute', ...")
        .def("getName", &skJoint::getName, "Name of the joint's node.")
        .def("getNumDofs", &skJoint::getNumDofs, "Number of degrees of freedom (DOFs).")
        .def("setCommand", &skJoint::setCommand, py::arg("command"),
             "Commands of all DOFs for the next step; their meaning follows from the actuator.\n"
             "Raises ValueError for a vector of another length, as do the other vectors here, and "
             "all\n"
             "setters for a number that is not finite.")
        .def("setForce", &skJoint::setForce, py::arg("force"), "Forces [N] or moments [N m].")
        .def("setPositions", &skJoint::setPositions, py::arg("positions"), "[m] or [rad].")
        .def("setPosition", &skJoint::setPosition, py::arg("dof"), py::arg("position"),
             "One DOF. Raises IndexError for a DOF that is not there, as do the other setters of "
             "one.")
        .def("getPositions", &skJoint::getPositions, "[m] or [rad], one a DOF.")
        .def("getVelocities", &skJoint::getVelocities, "[m/s] or [rad/s], one a DOF.")
        .def("setVelocity", &skJoint::setVelocity, py::arg("dof"), py::arg("velocity"), "One DOF.")
        .def("getAccelerations", &skJoint::getAccelerations, "[m/s^2] or [rad/s^2], one a DOF.")
        .def("setAcceleration", &skJoint::setAcceleration, py::arg("dof"), py::arg("acceleration"),
             "One DOF.");
}

void bindLink(Class<skLink>& link) {
    link.def("getMass", &skLink::getMass, "[kg]. Raises RuntimeError for a link without a body.")
        .def("getName", &skLink::getName, "Name of the link.")
        .def("getAngularVelocity", &skLink::getAngularVelocity, "World axes [rad/s], shape (3,).")
        .def("getLinearVelocity", &skLink::getLinearVelocity, "World axes [m/s], shape (3,).")
        .def("getAngularAcceleration", &skLink::getAngularAcceleration,
             "World axes [rad/s^2], shape (3,).")
        .def("getLinearAcceleration", &skLink::getLinearAcceleration,
             "World axes [m/s^2], shape (3,).")
        .def("getPosition", &skLink::getPosition, "World position [m], shape (3,).")
        .def("getRotation", &skLink::getRotation, "Euler angles about x, y, z [rad], shape (3,).");
}

void bindMarkers(Class<Markers>& markers) {
    const auto list = [](auto Markers_CPU::*values) {
        return [values](const Markers& self) { return self.data_cpu.*values; };
    };
    markers
        .def("getMarkersPos", list(&Markers_CPU::pos), "World positions [m], a list of shape (3,).")
        .def("getMarkersNormal", list(&Markers_CPU::normal),
             "Vertex normals, world axes, a list of shape (3,).")
        .def("getMarkersPressure", list(&Markers_CPU::pressure),
             "Densities of the fluid at the markers, lattice units; 1 is the fluid at rest.")
        .def("getMarkersVel", list(&Markers_CPU::velocity),
             "Momenta of the fluid at the markers, lattice units, a list of shape (3,).");
}

void bindPose(Class<skSystem>& system) {
    system
        .def(
            "setHead", &skSystem::setHead, py::arg("position"), py::arg("target_orientation"),
            "Turns the body so that its forward axis points along target_orientation and moves "
            "its\n"
            "root to position [m]. That pose becomes the zero of the joints: positions that they\n"
            "have already come on top of it, and reset() goes back to it. Raises ValueError for a\n"
            "number that is not finite.")
        .def("sample", &skSystem::sample, py::arg("sampleNum"),
             "Places about sampleNum samples anew, at rest and on the rest pose until the next\n"
             "update(). The surface counts once more at each call: a second one places half.\n"
             "Raises ValueError for a number that is negative or does not fit into memory.")
        .def("getBaseLinkFwd", &skSystem::getBaseLinkFwd, "Forward axis, world, shape (3,).")
        .def("getBaseLinkRight", &skSystem::getBaseLinkRight, "Right axis, world, shape (3,).")
        .def("getBaseLinkUp", &skSystem::getBaseLinkUp, "Up axis, world, shape (3,).")
        .def("getBaseLink", &skSystem::getBaseLink,
             "The link that defines the heading; None where the description names none.")
        .def("getLink", &skSystem::getLink, py::arg("name"), "None for an unknown name.")
        .def("getJoint", &skSystem::getJoint, py::arg("name"), "None for an unknown name.")
        .def("update", &skSystem::update,
             "Brings frame, mesh, markers and samples up to the joints' state.");
}

void bindState(Class<skSystem>& system) {
    system.def("getNumDofs", &skSystem::getNumDofs, "Number of actuated DOFs.")
        .def("getForces", &skSystem::getForces, "Generalised forces of all DOFs [N, N m].")
        .def("getVelocities", &skSystem::getVelocities, py::arg("includeBase") = true,
             "[m/s, rad/s], shape (m,); without the first joint's DOFs if includeBase is False.")
        .def("getPositions", &skSystem::getPositions, py::arg("includeBase") = true,
             "[m, rad], shape (m,); without the first joint's DOFs if includeBase is False.")
        .def("getAccelerations", &skSystem::getAccelerations, "Of all DOFs [m/s^2, rad/s^2].")
        .def("getCOM", &skSystem::getCOM, "Centre of mass, world [m], shape (3,).")
        .def("getCOMLinearVelocity", &skSystem::getCOMLinearVelocity,
             "Velocity of the centre of mass, world [m/s], shape (3,).")
        .def("getCOMAngularVelocity", &skSystem::getCOMAngularVelocity,
             "Lower half of the spatial velocity of the centre of mass, world, shape (3,): its\n"
             "linear part [m/s], whatever the name says.")
        .def("setForces", &skSystem::setForces, py::arg("forces"),
             "Generalised forces of all DOFs for the next step. Raises ValueError for another "
             "length\n"
             "and for a number that is not finite.")
        .def("getCommands", &skSystem::getCommands, "Commands of the actuated DOFs.")
        .def("setCommands", &skSystem::setCommands, py::arg("commands"),
             "Commands of the actuated DOFs for the next step. Raises ValueError for another "
             "length\n"
             "and for a number that is not finite.")
        .def("getMarkers", &skSystem::getMarkers, "The probes on the body's skin.");
}

void bindWorld(Class<skWorld>& world) {
    world.def(py::init<const Vector3d&>(), py::arg("Gravity") = Vector3d(0, 0, 0), "[m/s^2]")
        .def("addSkeleton", &skWorld::addSkeleton, py::arg("SkeletonDynamics"),
             "Adds a body; the first one drives the fluid grid. Raises RuntimeError once a "
             "simulator\n"
             "has committed this world.")
        .def("getSkeleton", &skWorld::getSkeleton, py::arg("index"),
             "Raises IndexError for an index without a body.")
        .def("setTimestep", &skWorld::setTimestep, py::arg("timestep"),
             "[s]; each step of a simulator sets its own. Raises ValueError unless positive and "
             "finite.")
        .def("getTimestep", &skWorld::getTimestep, "[s]")
        .def("setGravity", &skWorld::setGravity, py::arg("gravity"),
             "[m/s^2], shape (3,). Raises ValueError for a number that is not finite.")
        .def("reset", &skWorld::reset,
             "All joints to their first positions and velocities, time to zero; a pose given by\n"
             "setHead stays.")
        .def_property_readonly("time", &skWorld::getTime, "Simulated time [s].");
}

}  // namespace

void bindSkeleton(py::module_& module) {
    // All classes first, so that signatures name them.
    Class<SkeletonSystem> description(module, "SkeletonSystem",
                                      "A mesh with the joints and links derived from its bones.");
    Class<skJoint> joint(module, "SkeletonJoint",
                         "A joint of a body. Keeps what it needs of the body alive.");
    Class<skLink> link(module, "SkeletonLink",
                       "A link of a body. Keeps what it needs of the body alive.");
    Class<Markers> markers(module, "Markers", "Probes on a body's skin, read after each step.");
    Class<skSystem> system(
        module, "SkeletonDynamics",
        "A live articulated body. Vectors over degrees of freedom (DOFs) are in\n"
        "the order of its joints.");
    Class<skWorld> world(module, "DartWorld", "The bodies of a simulation.");

    bindFactories(module);
    description.def(py::init<const std::string&, int>(), py::arg("model_file"), py::arg("gpuId"),
                    "As make_skeletonSystem.");
    bindJoint(joint);
    bindLink(link);
    bindMarkers(markers);
    system.def(
        py::init(&makeSystem), py::arg("Skeleton"), py::arg("sampleNum") = 5000,
        py::arg("gpuId") = 0, py::arg("translation") = Vector3d(0, 0, 0),
        py::arg("rotation") = Vector3d(1, 1, 1), py::arg("scaling") = Vector3d(1, 1, 1),
        "Builds the body of a description and places it: translation [m] and rotation\n"
        "[degrees; note its default] are added to the root joint's pose; scaling has no effect.\n"
        "Raises RuntimeError for a mesh without joints, ValueError for a base link, base frame\n"
        "or mimic master that does not exist, another device than the description's, a negative\n"
        "number of samples, and a vector that is not finite.");
    bindPose(system);
    bindState(system);
    bindWorld(world);
}

}  // namespace drelt
