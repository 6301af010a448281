// A fluid domain under the production schedule: one array of populations, updated in place, and no arrays
// for the layer. This class keeps the host record and the domain's own state together; its two forms
// compute the steps.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cslbm/domain/FluidDomain.h"

namespace drelt {

struct FusedState;

// Where numbers are not finite, the layer's part of a step may spread them one node further than the
// operators do.
class ProductionDomain : public FluidDomain {
public:
    // Nodes that a box needs along each axis so that every open plane has an inner neighbour.
    static int leastNodes(const MLFluidParam& param) { return 2 * param.pml_width + 3; }
    static bool tooThin(const MLFluidParam& param);
    // Throws std::invalid_argument for a box with fewer nodes.
    static void requireInnerNodes(const MLFluidParam& param);
    // Throws std::invalid_argument if DRELT_INSTRUCTIONS names an instruction set that is not there.
    static void requireInstructions();
    // Why the schedule cannot compute the domain of a host record; empty if it can. It needs a box that
    // is not too thin, no excluded or solid nodes, the layer that pml_width and sigmaMax describe, and
    // Sopt 0.
    static std::string obstacle(const mlFlow& host, float sigmaMax);
    // Device bytes per node of the domain that makeProductionDomain makes.
    static double bytesPerNode(const MLFluidParam& param);

    Schedule schedule() const override { return Schedule::Production; }
    void choose(const StepChoices& choices) override;
    bool defersWaits() const override { return true; }

    // Takes over a host record, for a domain just made. With Uniform the record's density must be 1 and
    // its momentum that of the given velocity (lattice units).
    void begin(const mlFlow& host, HostPopulations held,
               const Vector3<float>& velocity = {0.0f, 0.0f, 0.0f});
    void syncToDevice(mlFlow& host) override;
    void syncToHost(mlFlow& host) override;
    void populationsToHost(mlFlow& host) override;
    void requireResettable(const mlFlow& host) const override;
    void reset(mlFlow& host, const Vector3<float>& velocity) override;
    void uploadForcesAndPml(const mlFlow& host) override;
    void setFluid(const mlFlow& fluid) override;

    void visitState(StateVisitor& state) override;
    void stateLoaded(bool hostNewer) override;
    bool readsHostPopulations() const override { return held_ == HostPopulations::Current; }

    // Takes f, rou, ux uy uz (raw momentum) and, if not null, Sopt of a host record as they are between two
    // steps. The layer's data stay.
    virtual void load(const mlFlow& host) = 0;
    // Takes f and ux, uy, uz. The density stays, and the next step uses it. If f is null, the populations
    // become the equilibrium at the record's rou and the uniform velocity.
    virtual void upload(const mlFlow& host) = 0;
    // Sets the layer to rest at the given density, which becomes the density of its reference
    // equilibrium, and drops the spread forces.
    virtual void resetLayer(const mlDensity<float>* rou) = 0;
    // Makes rou and ux, uy, uz (raw momentum) of a record those of the step before, for the layer.
    virtual void setStepBefore(const mlFlow& fluid) = 0;
    // Call it for all nodes whose force arrays are written before the next step.
    virtual void announceForces(const NodeBox* boxes, int count) = 0;
    // Besides what FluidDomain says: fPost, if not null, as the last step left it; before the first step
    // and after an upload, as f.
    void materialise(mlFlow& host) const override = 0;

    // Bytes of the arrays that every step touches.
    virtual std::size_t residentBytes() const = 0;
    // How the step is computed, in one word.
    virtual const char* instructionSet() const = 0;

protected:
    // Sets what a state tells the collision of a step: the frame's inertial acceleration (0 if the frame
    // turns, because each node has a force of its own then), and whether populations, density and
    // momentum belong together.
    static void takeMotion(FusedState& s, const FrameMotion& motion);
    // Lists what the form's numbers have in common between steps.
    static void visitNumbers(StateVisitor& state, FusedState& s);
    // Lists the spread forces that no step has consumed, `words` marks with them. There are none after most
    // steps.
    void visitForces(StateVisitor& state, FusedState& s, std::size_t words, bool onDevice);
    // Clears the spread forces that no step has consumed.
    virtual void dropForces() = 0;
    // Whether a step was taken since the populations were made or uploaded.
    virtual bool stepped() const = 0;

    // Of a fluid that begins or was reset [lattice units].
    Vector3<float> uniformVelocity_{0.0f, 0.0f, 0.0f};
    OpenPlaneKind planeKind_ = OpenPlaneKind::Copy;  // of the steps to come
    bool forcesGiven_ = false;  // forces were spread or announced and no step has consumed them

private:
    mlFlow image();
    void takeForces(const mlFlow& host);
    void forcesToHost(mlFlow& host);
    void referenceToHost(mlFlow& host) const;

    HostPopulations held_ = HostPopulations::Stale;
    bool fPostGiven_ = false;  // the last upload came with an fPost, which only the host keeps
    std::vector<float> referenceDensity_;  // of the layer's equilibrium; empty for 1
};

// A domain at rest on the selected device: density 1, Sopt 0. Sizes, layer width, dx and body
// acceleration come from param; nu is the lattice viscosity, sigmaMax the layer's damping at the outer
// faces. Throws std::invalid_argument for a box thinner than 2 pml_width + 3 nodes.
std::unique_ptr<ProductionDomain> makeProductionDomain(const MLFluidParam& param, float nu,
                                                       float sigmaMax);

}  // namespace drelt
