// The host side of a fluid domain: building the flow record from the script's parameters, its first
// state, its reset, and the copies between host and device.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"
#include "simulatorInterface/simParams.h"

namespace drelt::FluidHelper {

// Counts the nodes along an axis of `length` metres: adds dx to a single-precision sum, starting from
// 0, until the sum is not below the length. The rounding of the sum is part of the result.
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

// Bytes of host memory that a domain's device side takes under a schedule: none on a GPU, the
// operators' where the device or the grid cannot have the production schedule.
double deviceSideBytes(const MLFluidParam& grid, int gpuId, Schedule schedule);
// And its populations on the host, once they are written.
double hostPopulationBytes(const MLFluidParam& grid);

// Throws std::runtime_error where `needed` bytes more of host memory are not available, or the nodes
// of the grid cannot be counted in 31 bits.
void checkMemory(const MLFluidParam& grid, double needed);

// Builds the flow record of a domain, with all host arrays: fluid at rest, and the absorbing layer laid
// out; the populations are left unset. Normalises the parameters. Throws as describeGrid, and
// std::runtime_error where the arrays (and their device copies, if the device `gpuId` is the host)
// do not fit into memory; the parameters are unchanged then. The caller frees the record with
// destroyFlow.
mlFlow* createFlow(simParams& params, int gpuId);
void destroyFlow(mlFlow* flow);

// Sets PML_type and sigma: quadratic damping from sigma_max on the outer faces to
// sigma_max / pml_width^2 on the innermost plane of the layer.
void layOutAbsorbingLayer(mlFlow& flow, float sigma_max);

// The state before the first step: node classes of the faces, density 1, at rest, in equilibrium.
// First all but the populations, then these.
void initialiseFields(mlFlow& flow);
void initialisePopulations(mlFlow& flow);

// Whether initialisation, reset and clearInlets leave a node of this class as it is: excluded or solid.
bool keepsItsState(MLLATTICENODE_FLAG flag);

// The class of a node by its physical position, against 0 and the far limit of each axis exactly.
MLLATTICENODE_FLAG positionFlag(const mlFlow& flow, int x, int y, int z);

// Brings the fluid to rest at its present density and forgets the layer's history; classes are set
// anew from the physical positions. Nodes that are excluded or solid stay as they are. First all but
// the populations and the layer, then these.
void resetFields(mlFlow& flow);
void resetPopulations(mlFlow& flow);
// Of these f and fPost alone, on all nodes.
void restPopulations(mlFlow& flow);

// Makes the node below `position` [m] an inlet with `velocity` times u0k: class, velocity, and the
// equilibrium of its density in f and fPost. The node's coordinates are (position - start) / size times
// the number of nodes, rounded down. Throws std::out_of_range for a position outside the box and
// std::invalid_argument for a velocity that is not finite; the flow is unchanged then.
void markInlet(mlFlow& flow, const mlVelocity3D<float>& position,
               const mlVelocity3D<float>& velocity, float u0k);

// Brings all inlets to rest, sets the class of every node anew from its physical position, and brings
// the nodes that get a face's class to rest as well: no velocity, and the equilibrium of their density
// in f and fPost. Nodes that are excluded or solid stay as they are.
void clearInlets(mlFlow& flow);

// Device to host: the moving origin alone, which every step moves. Gives the device record.
mlFlow originToHost(mlSinglePhaseSolverNew& solver, int i);
// Host to device: momentum, classes, layer types and populations; neither density nor layer data.
void syncToDevice(mlSinglePhaseSolverNew& solver, int i);
// Device to host: momentum, forces, density, classes, f, fPost, fEqBar and the moving origin. Under the
// production schedule populations stay where they are until populationsToHost.
void syncToHost(mlSinglePhaseSolverNew& solver, int i);
// Makes f and fPost of the host record hold what the schedule of operators would hold there. Call it
// before reading or changing them.
void populationsToHost(mlSinglePhaseSolverNew& solver, int i);

}  // namespace drelt::FluidHelper
