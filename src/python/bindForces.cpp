// What the fluid does to bodies, and what their actuators do.
#include <pybind11/eigen.h>

#include "SkeletonDynamics/FluidForces.h"
#include "SkeletonDynamics/skLink.h"
#include "SkeletonDynamics/skSystem.h"
#include "python/bindings.h"

namespace py = pybind11;

namespace drelt {

void bindForceKinds(py::module_& module) {
    py::enum_<FluidForce>(
        module, "FLUID_FORCE", py::arithmetic(),
        "Which force of the fluid is meant. OUTER: of the fluid outside the skin, as experiments\n"
        "measure it; take it for drag, lift and thrust. ON_LINK: on the link's own mass, the mass\n"
        "in excess of the fluid inside the skin; it obeys own mass times acceleration = own\n"
        "weight + ON_LINK + forces of joints. OUTER is ON_LINK plus what accelerates the fluid\n"
        "inside, taken as a rigid body with volume, centroid and second moments of the closed\n"
        "part of the link's skin at rest (Uhlmann, 2005; Suzuki and Inamuro, 2011). Both are the\n"
        "same for links that do not accelerate, for open sheets and in EMPIRICAL.")
        .value("OUTER", FluidForce::Outer)
        .value("ON_LINK", FluidForce::OnLink);
}

void bindForces(BodyClass<skLink>& link, BodyClass<skSystem>& system) {
    // the default as the stub writes it
    const py::arg_v outer("which", FluidForce::Outer, "FLUID_FORCE.OUTER");
    link.def(
            "getFluidForce",
            [](const skLink& self, FluidForce which) { return self.fluidForce(which).force; },
            outer,
            "Force of the fluid on the link in the last step [N], world axes, shape (3,). By\n"
            "default that of the outer fluid, which drag and thrust mean; see FLUID_FORCE. In\n"
            "ONE_WAY the force is computed, though it does not act; in EMPIRICAL it is that of\n"
            "the force model; in NO_FLUID, before the first step and after reset() it is zero.\n"
            "A body that starts or stops within one step drags the fluid inside along only later:\n"
            "the force of OUTER is then right as a mean over some steps. Keeps its value after\n"
            "the body is deleted. Raises RuntimeError for a link without a body.")
        .def(
            "getFluidTorque",
            [](const skLink& self, FluidForce which) { return self.fluidForce(which).torque; },
            outer,
            "Torque that goes with getFluidForce [N m], world axes, shape (3,), about the\n"
            "link's centre of mass at the pose at which the force acted: that before the step.");
    system.def(
        "getFluidWrench",
        [](const skSystem& self, FluidForce which) {
            const ForceAndTorque sum = self.getFluidWrench(which);
            Eigen::VectorXd wrench(6);
            wrench << sum.force, sum.torque;
            return wrench;
        },
        outer,
        "Force [N], then torque [N m] of the fluid on the whole body in the last step, world\n"
        "axes, shape (6,): the sum of getFluidForce and getFluidTorque over the links, the\n"
        "torque about the body's centre of mass before the step. Raises RuntimeError for a\n"
        "body without mass.");
    system.def("getJointPower", &skSystem::getJointPower,
               "Mechanical power [W] that the actuators delivered in the last step, shape (k,),\n"
               "k = getNumDofs(), in the order of the commands: force or moment of the actuator\n"
               "times velocity of the joint. The velocity is the mean of those before and after\n"
               "the step, so that power times time step, summed over all DOFs and steps, is the\n"
               "work: the change of the links' energy and the work on fluid, springs, dampers\n"
               "and friction, but for an error that shrinks in proportion to the time step.\n"
               "Actuators 'velocity' and 'acceleration': the force that the prescribed motion\n"
               "needed; 'servo': the force of the motor, with that of a position limit while\n"
               "the joint is at it; 'locked': 0. Positive power goes into the body. Zero before\n"
               "the first step and after reset().");
}

}  // namespace drelt
