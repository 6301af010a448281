// One fluid domain as solver and driver see it: its state on the device, its step, and the copies between
// device and host record. There is one implementation per way to compute a step; what they hold and
// return is the same to rounding.
#pragma once

#include "cslbm/domain/operatorStep.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

class StateVisitor;

// How a step is computed.
enum class Schedule {
    Operators,   // the operators one after the other: what a step means
    Production,  // few sweeps over one array of populations; default choices only
};

// What the populations of a host record hold. The production schedule writes them only on request.
enum class HostPopulations {
    Current,  // f and fPost as they should be
    Uniform,  // not written: the equilibrium at the record's density and one velocity for all nodes
    Stale,    // older than the rest, which was read from the device
};

// All calls work on the device that is selected: the domain's own, at every call.
class FluidDomain {
public:
    FluidDomain() = default;
    virtual ~FluidDomain() = default;
    FluidDomain(const FluidDomain&) = delete;
    FluidDomain& operator=(const FluidDomain&) = delete;

    virtual Schedule schedule() const = 0;

    // The device record for the operators that couple bodies, read markers and move the grid: ux, uy,
    // uz and rou hold raw momentum and density, forcex, forcey, forcez take the spread forces, startx,
    // starty, startz are the caller's to move.
    virtual mlFlow* record() = 0;

    // Sets collision and boundaries of the steps to come. Throws std::logic_error for choices that the
    // schedule does not have.
    virtual void choose(const StepChoices& choices) = 0;
    // Call it before samples gather from the record and spread to it; `samples` is their device record.
    virtual void prepareCoupling(const mlLagrangeBoundary* samples, int count,
                                 const mlUnitScale& scale) = 0;
    // One step. Consumes the spread forces.
    virtual void step(const FrameMotion& motion) = 0;
    // Whether the launches of a step may follow each other without waits; see platform::DeferredWaits.
    virtual bool defersWaits() const = 0;

    // Whether the record holds density and momentum of all nodes between steps. If not, it holds those of
    // the boxes that prepareMoments was last called for; the record is in host memory then.
    virtual bool holdsMoments() const = 0;
    virtual void prepareMoments(const NodeBox* boxes, int count) = 0;

    // Host to device: momentum, classes, layer types and populations; neither density nor layer data.
    // Throws std::runtime_error, before anything changes, if the schedule cannot carry the layer types.
    virtual void syncToDevice(mlFlow& host) = 0;
    // Device to host: momentum, forces, density, classes, f, fPost, fEqBar and the origin. Under the
    // production schedule f, fPost and fEqBar wait for populationsToHost.
    virtual void syncToHost(mlFlow& host) = 0;
    // Makes f, fPost and fEqBar of the host record hold what the operators hold. Call it before
    // reading or changing them.
    virtual void populationsToHost(mlFlow& host) = 0;
    // Throws std::runtime_error if the host record holds nodes that a reset must leave alone and the
    // schedule cannot.
    virtual void requireResettable(const mlFlow& host) const = 0;
    // Sets the populations of the host record to the equilibrium at its density and the given velocity
    // (lattice units), sets the device's layer data to rest at that density, and brings the host's
    // forces to the device. Populations and momentum go to the device by syncToDevice.
    virtual void reset(mlFlow& host, const Vector3<float>& velocity) = 0;
    // Brings the host's forces and layer data to the device. Throws std::logic_error if the schedule
    // keeps no layer data.
    virtual void uploadForcesAndPml(const mlFlow& host) = 0;

    // Sets the fluid on the device between two steps: takes f, rou and ux, uy, uz (raw momentum) of the
    // given record, whose other fields may be null. The populations after collision become f, and for
    // the layer the step before had the same fluid. The domain's host record is older afterwards.
    virtual void setFluid(const mlFlow& fluid) = 0;

    // Fills f, fPost, rou, ux uy uz and Sopt of a host record, where not null, from the device.
    virtual void materialise(mlFlow& host) const = 0;

    // Lists what the domain holds between steps, on the device and of its own.
    virtual void visitState(StateVisitor& state);
    // Call it after the list was loaded. `hostNewer`: the host record holds populations that the next
    // step uploads, and has been loaded too.
    virtual void stateLoaded(bool /*hostNewer*/) {}
    // Whether syncToDevice reads the populations of the host record.
    virtual bool readsHostPopulations() const = 0;

    // Copies the origin from or to the device record. originToHost returns the whole record, whose
    // pointers are device addresses.
    mlFlow originToHost(mlFlow& host);
    void originToDevice(const mlFlow& host);
};

}  // namespace drelt
