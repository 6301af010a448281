// A fluid domain under the production schedule, as solver and driver see it: what it holds and returns
// is what the operator schedule holds. A step is frame forcing, collision, absorbing layer, streaming,
// moments and open planes.
#pragma once

#include <Eigen/Geometry>
#include <cstddef>
#include <memory>

#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

struct FusedState;

// Motion of the frame that the grid follows; the arguments of mlAddForcetoUOpt.
struct FrameMotion {
    float velocityScale = 1.0f;
    Eigen::Vector3d lengthScale = Eigen::Vector3d::Ones();
    Eigen::Vector3d linearAcceleration = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularVelocity = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularAcceleration = Eigen::Vector3d::Zero();
    FrameTransform inverse = FrameTransform::Identity();

    bool turns() const { return !angularVelocity.isZero(0) || !angularAcceleration.isZero(0); }
};

// Where numbers are not finite, the layer's part of a step may spread them one node further than the
// operators do.
class ProductionDomain {
public:
    virtual ~ProductionDomain() = default;

    // Nodes that the open planes need along each axis to have an inner neighbour, and whether a box has
    // fewer.
    static int leastNodes(const MLFluidParam& param) { return 2 * param.pml_width + 3; }
    static bool tooThin(const MLFluidParam& param);
    // Throws std::invalid_argument for such a box.
    static void requireInnerNodes(const MLFluidParam& param);
    // Device bytes that makeProductionDomain would take for each node.
    static double bytesPerNode(const MLFluidParam& param);

    // Takes the state of a host record between two steps: f, rou, ux uy uz (raw momentum), Sopt. For a
    // domain just made, as the solver's always is: its layer stays at rest.
    virtual void load(const mlFlow& host) = 0;
    // Takes f and ux, uy, uz; the density stays what it is, and rules the next step. Where f is null,
    // the populations are those of a fluid at rest at the record's rou.
    virtual void upload(const mlFlow& host) = 0;
    // Layer at rest at the given density, which becomes that of the reference equilibrium; spread forces
    // are dropped.
    virtual void resetLayer(const mlDensity<float>* rou) = 0;

    // One step. Consumes the spread forces.
    virtual void step(const FrameMotion& motion) = 0;

    // A device record for the operators that couple bodies and read markers: ux, uy, uz and rou hold raw
    // momentum and density, forcex, forcey, forcez take spread forces. startx, starty, startz are the
    // caller's to move.
    virtual mlFlow* record() = 0;
    // Whether the record holds density and momentum of all nodes at any time between steps. Where not,
    // it holds those that prepareMoments was asked for.
    virtual bool holdsMoments() const = 0;
    // Brings density and raw momentum of the nodes of the boxes into the record's arrays.
    virtual void prepareMoments(const NodeBox* boxes, int count) = 0;
    // Tells where the force arrays have been or will be written before the next step.
    virtual void announceForces(const NodeBox* boxes, int count) = 0;
    // Both for the nodes that the samples of a device record gather from and spread to.
    virtual void prepareCoupling(const mlLagrangeBoundary* samples, int count,
                                 const mlUnitScale& scale) = 0;

    // Fills f, rou, ux uy uz and Sopt of a host record, where not null, as the operators leave them after
    // a step, and fPost as the collision and the layer left it.
    virtual void materialise(mlFlow& host) const = 0;

    // Bytes of the arrays that every step touches.
    virtual std::size_t residentBytes() const = 0;
    // How the step is computed, in a word.
    virtual const char* instructionSet() const = 0;

protected:
    // Sets what a state tells the collision of a step: the frame's inertial acceleration, 0 where the
    // frame turns and each node has a force of its own, and whether populations, density and momentum
    // belong together.
    static void takeMotion(FusedState& s, const FrameMotion& motion);
};

// A domain at rest on the selected device: density 1, Sopt 0. Sizes, layer width, dx and body
// acceleration come from param; nu is the lattice viscosity, sigmaMax the layer's damping at the outer
// faces. Throws std::invalid_argument for a box thinner than 2 pml_width + 3 nodes.
std::unique_ptr<ProductionDomain> makeProductionDomain(const MLFluidParam& param, float nu,
                                                       float sigmaMax);

}  // namespace drelt
