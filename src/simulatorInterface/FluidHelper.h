// The host record of a fluid domain: how it is built from the parameters, its first state, its reset, and
// the copies between host and device.
#pragma once

#include "cslbm/domain/HostState.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"
#include "simulatorInterface/simParams.h"

namespace drelt::FluidHelper {

// Counts the nodes along an axis of `length` metres: adds dx to a single-precision sum that starts at 0,
// until the sum is not below the length. The rounding of the sum is part of the result.
struct AxisNodes {
    int count;
    float length;  // the sum [m]
};
AxisNodes countNodes(float length, float dx);

// The parameter record of the domain that normalised parameters describe. Throws
// std::invalid_argument for a node spacing that is not a positive finite number, box sizes that are
// not positive, a centre that is not finite, more than 2^24 nodes along an axis, a negative pml_width,
// and a box too thin for the open boundary planes behind its absorbing layer.
MLFluidParam describeGrid(const simParams& params);

// Host bytes of a domain's device side under a schedule. None on a GPU; a box too thin for the production
// schedule counts as under the operators.
double deviceSideBytes(const MLFluidParam& grid, int gpuId, Schedule schedule);
// Host bytes of its populations on the host, once they are written.
double hostPopulationBytes(const MLFluidParam& grid);

// Throws std::runtime_error if `needed` more bytes of host memory are not available, or if the grid has
// more nodes than 31 bits count.
void checkMemory(const MLFluidParam& grid, double needed);

// Builds the flow record of a domain with all host arrays: fluid at rest and the absorbing layer; the
// populations stay unset. Normalises the parameters. Throws as describeGrid does, and
// std::runtime_error if the arrays (and the device side, if device `gpuId` is the host) do not fit into
// memory; the parameters are unchanged then. The caller frees the record with destroyFlow.
mlFlow* createFlow(simParams& params, int gpuId);
void destroyFlow(mlFlow* flow);

// Sets PML_type and sigma of all nodes; see layerNode.
void layOutAbsorbingLayer(mlFlow& flow, float sigma_max);

// The state before the first step: classes of the face nodes, density 1, at rest. The populations follow by
// initialisePopulations.
void initialiseFields(mlFlow& flow);
using drelt::initialisePopulations;

// The class of a node by its physical position, against 0 and the far limit of each axis exactly.
MLLATTICENODE_FLAG positionFlag(const mlFlow& flow, int x, int y, int z);

// Brings the fluid to rest at its present density and sets the classes anew from the physical positions.
// Nodes that are excluded or solid stay as they are. Populations and layer follow by resetPopulations.
void resetFields(mlFlow& flow);
using drelt::resetPopulations;

// Makes the node at `position` [m] an inlet with `velocity` times u0k: sets its class, its velocity, and
// the equilibrium of its density in f and fPost. The node's coordinates are (position - start) / size
// times the number of nodes, rounded down. Throws std::out_of_range for a position outside the box and
// std::invalid_argument for a velocity that is not finite; the flow is unchanged then.
void markInlet(mlFlow& flow, const mlVelocity3D<float>& position,
               const mlVelocity3D<float>& velocity, float u0k);

// Sets the class of every node anew from its physical position. Inlets and the nodes that get the class of
// a face come to rest: no velocity, and the equilibrium of their density in f and fPost. Nodes that are
// excluded or solid stay as they are.
void clearInlets(mlFlow& flow);

// These four select the solver's device and call domain i; see FluidDomain.
//
// Device to host: the origin alone, which every step moves. Returns the device record.
mlFlow originToHost(mlSinglePhaseSolverNew& solver, int i);
// Host to device: momentum, classes, layer types and populations; neither density nor layer data.
void syncToDevice(mlSinglePhaseSolverNew& solver, int i);
// Device to host: momentum, forces, density, classes, f, fPost, fEqBar and the origin. Under the
// production schedule f, fPost and fEqBar wait for populationsToHost.
void syncToHost(mlSinglePhaseSolverNew& solver, int i);
// Makes f, fPost and fEqBar of the host record hold what the operators hold. Call it before reading or
// changing them.
void populationsToHost(mlSinglePhaseSolverNew& solver, int i);

}  // namespace drelt::FluidHelper
