#include "bench_flow.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/check.h"
#include "platform/launch.h"

namespace drelt::bench {
namespace {

// A weak vortex sheet in its equilibrium, and face classes and layer by the node's distance to the faces.
DRELT_KERNEL void startKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz, int width) {
    const std::int64_t n = at.n;
    const float u[3] = {0.05f * std::sin(0.1f * at.y), 0.03f * std::sin(0.07f * at.z),
                        0.04f * std::cos(0.09f * at.x)};
    flow->rou[n].value = 1.0f;
    flow->ux[n] = u[0];
    flow->uy[n] = u[1];
    flow->uz[n] = u[2];
    for (int i = 0; i < kDirections; ++i) {
        const std::int64_t entry = i * flow->count + n;
        flow->f[entry] = flow->fPost[entry] = hostEquilibrium(i, 1.0f, u[0], u[1], u[2]);
        flow->fEqBar[entry] = w_cas1[i];
        flow->fStore[entry] = 0.0f;  // its pages must be there before the clock runs
        flow->Q[entry] = flow->cNQ[entry] = flow->fEqTilde[entry] = flow->fEqTildeOld[entry] = 0.0f;
    }
    const int depth = std::min({at.x, at.y, at.z, nx - 1 - at.x, ny - 1 - at.y, nz - 1 - at.z});
    const float d = static_cast<float>(width - depth) / static_cast<float>(width);
    flow->sigma[n] = depth < width ? 0.01f * d * d : 0.0f;
    flow->flag[n] = ML_NODE_FLUID;
    if (at.x == 0) flow->flag[n] = ML_NODE_LEFT;
    if (at.x == nx - 1) flow->flag[n] = ML_NODE_RIGHT;
    if (at.z == 0) flow->flag[n] = ML_NODE_FORWARD;
    if (at.z == nz - 1) flow->flag[n] = ML_NODE_BACK;
    if (at.y == 0) flow->flag[n] = ML_NODE_DOWN;
    if (at.y == ny - 1) flow->flag[n] = ML_NODE_UP;
    flow->PML_type[n] = depth >= width ? PML_NONE : (depth == 0 ? PML_EDGE : PML_INTERIOR);
}

}  // namespace

template <class T>
T* BenchFlow::allocate(std::size_t perNode) {
    T* array = nullptr;
    const std::size_t bytes = perNode * nodes_ * sizeof(T);
    checkCudaErrors(cudaMalloc(&array, bytes));
    arrays_.push_back(array);
    bytes_ += bytes;
    return array;
}

BenchFlow::BenchFlow(const Grid& grid)
    : nodes_(static_cast<std::size_t>(grid.nx) * grid.ny * grid.nz) {
    checkCudaErrors(cudaSetDevice(platform::kHostDevice));
    param_.samples_x = grid.nx;
    param_.samples_y = grid.ny;
    param_.samples_z = grid.nz;
    param_.dx = 0.01f;
    param_.pml_width = grid.pml_width;
    flow_.param = &param_;
    flow_.count = static_cast<std::int64_t>(nodes_);
    flow_.v0k = 0.01f;
    for (auto array : {&mlFlow::f, &mlFlow::fPost, &mlFlow::fStore, &mlFlow::Q, &mlFlow::cNQ,
                       &mlFlow::fEqBar, &mlFlow::fEqTilde, &mlFlow::fEqTildeOld}) {
        flow_.*array = allocate<float>(kDirections);
    }
    for (auto array : {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz, &mlFlow::Sopt, &mlFlow::sigma}) {
        flow_.*array = allocate<float>(1);
    }
    for (auto array : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        flow_.*array = allocate<double>(1);
    }
    flow_.rou = allocate<mlDensity<float>>(1);
    flow_.flag = allocate<MLLATTICENODE_FLAG>(1);
    flow_.PML_type = allocate<PML_TYPE>(1);
    platform::hostLaunchRows<&startKernel>({grid.nx, grid.ny, grid.nz}, &flow_, grid.nx, grid.ny,
                                           grid.nz, grid.pml_width);
}

BenchFlow::~BenchFlow() {
    for (void* array : arrays_) cudaFree(array);
}

double BenchFlow::residentBytesPerNode() const {
    return static_cast<double>(bytes_) / static_cast<double>(nodes_);
}

BenchFlow& benchFlow(const Grid& grid) {
    static std::unique_ptr<BenchFlow> kept;
    if (!kept || kept->param()->samples_x != grid.nx || kept->param()->samples_y != grid.ny ||
        kept->param()->samples_z != grid.nz || kept->param()->pml_width != grid.pml_width) {
        kept.reset();
        kept = std::make_unique<BenchFlow>(grid);
    }
    return *kept;
}

}  // namespace drelt::bench
