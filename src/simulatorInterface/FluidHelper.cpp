#include "simulatorInterface/FluidHelper.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "cslbm/domain/OperatorDomain.h"
#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/check.h"
#include "platform/runtime.h"

namespace drelt::FluidHelper {
namespace {

constexpr int kMaxNodesPerAxis = 1 << 24;  // with more, node positions are not distinct floats
// Host arrays that are written when a simulator is made (flag, rou, PML_type, sigma) and when it is read
// (ux, uy, uz).
constexpr double kHostBytesPerNode = 4 * sizeof(float) + 3 * sizeof(float);
// Host populations, which the operator schedule writes in commitInit.
constexpr double kHostPopulationBytesPerNode = 27.0 * 5 * sizeof(float);

std::string text(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

double nodesOf(const MLFluidParam& grid) {
    return static_cast<double>(grid.samples_x) * grid.samples_y * grid.samples_z;
}

// Whether the device is the host's threads, so that the device side takes host memory.
bool onHost(int gpuId) { return cudaSetDevice(gpuId) != cudaSuccess || platform::onHostDevice(); }

// Host bytes from the creation of a simulator to its first steps, under the default schedule.
double bytesToStart(const MLFluidParam& grid, int gpuId) {
    return nodesOf(grid) * kHostBytesPerNode + deviceSideBytes(grid, gpuId, Schedule::Production) +
           (ProductionDomain::tooThin(grid) ? hostPopulationBytes(grid) : 0.0);
}

template <class T>
void allocateFilled(T*& array, std::int64_t count, T value) {
    allocateHostArray(array, count);
    T* const out = array;
#pragma omp parallel for schedule(static)
    for (std::int64_t n = 0; n < count; ++n) out[n] = value;
}

void checkAxis(const char* size, float length, float dx) {
    if (!(length > 0)) {
        throw std::invalid_argument(std::string("fluid box: ") + size + " is " + text(length) +
                                    "; set a positive size in metres");
    }
    if (static_cast<double>(length) / dx > kMaxNodesPerAxis) {
        throw std::invalid_argument(
            std::string("fluid box: ") + size + " " + text(length) + " m at a node spacing of " +
            text(dx) +
            " m needs more than 16777216 nodes along one axis; make the box "
            "smaller or the spacing (l0p / N) larger");
    }
}

void checkPlanes(const char* size, int nodes, int pml_width) {
    if (nodes - 2 >= pml_width) return;
    throw std::invalid_argument(
        std::string("fluid box: ") + size + " has " + std::to_string(nodes) +
        " nodes, too few for the open boundary behind a layer of pml_width " +
        std::to_string(pml_width) + " (at least " + std::to_string(std::int64_t{pml_width} + 2) +
        "); make the box larger or the layer thinner");
}

void allocateArrays(mlFlow& flow) {
    const std::int64_t count = flow.count;
    const std::int64_t populations = kDirections * count;
    for (float** array : {&flow.f, &flow.fPost, &flow.fStore, &flow.fEqTildeOld, &flow.fEqTilde,
                          &flow.fEqBar, &flow.Q, &flow.cNQ}) {
        allocateHostArray(*array, populations);
    }
    for (float** array : {&flow.ux, &flow.uy, &flow.uz, &flow.Sopt, &flow.sigma}) {
        allocateHostArray(*array, count);
    }
    for (double** array : {&flow.forcex, &flow.forcey, &flow.forcez}) {
        allocateHostArray(*array, count);
    }
    allocateFilled(flow.flag, count, ML_NODE_FLUID);
    allocateFilled(flow.rou, count, mlDensity<float>{1.0f});
    allocateFilled(flow.PML_type, count, PML_NONE);
    allocateHostArray(flow.planeBuffer,
                      static_cast<std::int64_t>(flow.param->samples_x) * flow.param->samples_y);
    constexpr std::int64_t matrix = std::int64_t{kDirections} * kDirections;
    allocateHostArray(flow.momentMatrix, matrix);
    allocateHostArray(flow.momentMatrixInv, matrix);
}

MLLATTICENODE_FLAG faceFlag(const MLFluidParam& param, int x, int y, int z) {
    if (y == 0) return ML_NODE_DOWN;
    if (y == param.samples_y - 1) return ML_NODE_UP;
    if (z == param.samples_z - 1) return ML_NODE_BACK;
    if (z == 0) return ML_NODE_FORWARD;
    if (x == 0) return ML_NODE_LEFT;
    if (x == param.samples_x - 1) return ML_NODE_RIGHT;
    return ML_NODE_FLUID;
}

}  // namespace

MLLATTICENODE_FLAG positionFlag(const mlFlow& flow, int x, int y, int z) {
    const MLFluidParam& param = *flow.param;
    const float px = x * param.dx + flow.startx;
    const float py = y * param.dx + flow.starty;
    const float pz = z * param.dx + flow.startz;
    MLLATTICENODE_FLAG flag = px == 0 ? ML_NODE_LEFT : ML_NODE_FLUID;
    if (px == param.samples_x * param.dx + flow.startx) flag = ML_NODE_RIGHT;
    if (pz == 0) flag = ML_NODE_FORWARD;
    if (pz == param.samples_z * param.dx + flow.startz) flag = ML_NODE_BACK;
    if (py == param.samples_y * param.dx + flow.starty) flag = ML_NODE_UP;
    if (py == 0) flag = ML_NODE_DOWN;
    return flag;
}

double deviceSideBytes(const MLFluidParam& grid, int gpuId, Schedule schedule) {
    if (!onHost(gpuId)) return 0;
    const bool production = schedule == Schedule::Production && !ProductionDomain::tooThin(grid);
    return nodesOf(grid) *
           (production ? ProductionDomain::bytesPerNode(grid) : OperatorDomain::bytesPerNode());
}

double hostPopulationBytes(const MLFluidParam& grid) {
    return nodesOf(grid) * kHostPopulationBytesPerNode;
}

void checkMemory(const MLFluidParam& grid, double needed) {
    const double available = static_cast<double>(platform::availableHostBytes());
    const std::string box = "fluid box: " + std::to_string(grid.samples_x) + " x " +
                            std::to_string(grid.samples_y) + " x " +
                            std::to_string(grid.samples_z) + " nodes ";
    const char* const advice = "; make the box smaller or the spacing (l0p / N) larger";
    if (nodesOf(grid) > std::numeric_limits<std::int32_t>::max()) {
        throw std::runtime_error(box + "are more than 2147483647" + advice);
    }
    if (needed > available) {
        throw std::runtime_error(box + "need " + text(needed / 1e9) + " GB of host memory, " +
                                 text(available / 1e9) + " GB are available" + advice);
    }
}

AxisNodes countNodes(float length, float dx) {
    AxisNodes axis{0, 0.0f};
    while (axis.length < length) {
        if (axis.count == kMaxNodesPerAxis) {
            throw std::invalid_argument("fluid box: " + text(length) + " m at a node spacing of " +
                                        text(dx) + " m needs more than 16777216 nodes");
        }
        axis.length += dx;
        ++axis.count;
    }
    return axis;
}

MLFluidParam describeGrid(const simParams& params) {
    if (!(params.dx > 0) || !std::isfinite(params.dx)) {
        throw std::invalid_argument(
            "fluid box: the node spacing is " + text(params.dx) +
            " m; select setup_mode MANUAL and set positive finite N and l0p (spacing l0p / N)");
    }
    checkAxis("width", params.width, params.dx);
    checkAxis("height", params.height, params.dx);
    checkAxis("depth", params.depth, params.dx);
    if (!std::isfinite(params.x0) || !std::isfinite(params.y0) || !std::isfinite(params.z0)) {
        throw std::invalid_argument("fluid box: its centre (x0, y0, z0) is (" + text(params.x0) +
                                    ", " + text(params.y0) + ", " + text(params.z0) +
                                    "); set finite numbers");
    }
    if (params.pml_width < 0) {
        throw std::invalid_argument("fluid box: pml_width is " + std::to_string(params.pml_width) +
                                    "; give 0 or the layer's thickness in nodes");
    }
    const AxisNodes x = countNodes(params.width, params.dx);
    const AxisNodes y = countNodes(params.height, params.dx);
    const AxisNodes z = countNodes(params.depth, params.dx);
    checkPlanes("width", x.count, params.pml_width);
    checkPlanes("height", y.count, params.pml_width);
    checkPlanes("depth", z.count, params.pml_width);

    MLFluidParam grid{};
    grid.startx = static_cast<float>(params.x0 - 0.5 * params.width);
    grid.starty = static_cast<float>(params.y0 - 0.5 * params.height);
    grid.startz = static_cast<float>(params.z0 - 0.5 * params.depth);
    grid.endx = (x.length + grid.startx) - params.dx;
    grid.endy = (y.length + grid.starty) - params.dx;
    grid.endz = (z.length + grid.startz) - params.dx;
    grid.samples_x = x.count;
    grid.samples_y = y.count;
    grid.samples_z = z.count;
    grid.width = params.width;
    grid.height = params.height;
    grid.depth = params.depth;
    grid.dx = params.dx;
    grid.reserved = 1;
    grid.pml_width = params.pml_width;
    grid.slip_ratio = params.slip_ratio;
    const std::int64_t plane = static_cast<std::int64_t>(x.count) * y.count;
    grid.count32 = static_cast<std::int32_t>(static_cast<std::uint64_t>(plane) *
                                             static_cast<std::uint64_t>(z.count));
    return grid;
}

mlFlow* createFlow(simParams& params, int gpuId) {
    simParams normalised = params;
    normalised.normalise();
    const MLFluidParam grid = describeGrid(normalised);
    checkMemory(grid, bytesToStart(grid, gpuId));

    std::unique_ptr<mlFlow, void (*)(mlFlow*)> flow(new mlFlow{}, destroyFlow);
    flow->cs = 0.57735026f;
    flow->v0k =
        (normalised.N * normalised.u0k * normalised.visp) / (normalised.l0p * normalised.u0p);
    flow->startx = grid.startx;
    flow->starty = grid.starty;
    flow->startz = grid.startz;
    flow->count = static_cast<std::int64_t>(grid.samples_x) * grid.samples_y * grid.samples_z;
    allocateHostArray(flow->param, 1);
    *flow->param = grid;
    allocateArrays(*flow);
    layOutAbsorbingLayer(*flow, normalised.sigma_max);
    params = normalised;
    return flow.release();
}

void destroyFlow(mlFlow* flow) {
    if (flow == nullptr) return;
    freeHostArrays(*flow);
    delete flow;
}

void layOutAbsorbingLayer(mlFlow& flow, float sigma_max) {
    forEachNode(*flow.param, [&](std::int64_t n, int x, int y, int z) {
        const LayerNode node = layerNode(*flow.param, sigma_max, x, y, z);
        flow.PML_type[n] = node.type;
        // pages without damping take no memory
        if (node.sigma != flow.sigma[n]) flow.sigma[n] = node.sigma;
    });
}

void initialiseFields(mlFlow& flow) {
    forEachNode(*flow.param, [&](std::int64_t n, int x, int y, int z) {
        if (!keepsItsState(flow.flag[n])) {
            const MLLATTICENODE_FLAG face = faceFlag(*flow.param, x, y, z);
            if (face != ML_NODE_FLUID) flow.flag[n] = face;
        }
        flow.rou[n].value = 1;
    });
    for (float* const momentum : {flow.ux, flow.uy, flow.uz}) clearWritten(momentum, flow.count);
}

void resetFields(mlFlow& flow) {
    forEachNode(*flow.param, [&](std::int64_t n, int x, int y, int z) {
        if (keepsItsState(flow.flag[n])) return;
        flow.flag[n] = positionFlag(flow, x, y, z);
        flow.ux[n] = flow.uy[n] = flow.uz[n] = 0;
    });
}

}  // namespace drelt::FluidHelper
