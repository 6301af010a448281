#include "bench_flow.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/check.h"

namespace drelt::bench {
namespace {

struct Node {
    std::int64_t n;
    int x, y, z;
};

// A weak vortex sheet.
struct Velocity {
    float x, y, z;
};
Velocity velocityAt(const Node& at) {
    return {0.05f * std::sin(0.1f * static_cast<float>(at.y)),
            0.03f * std::sin(0.07f * static_cast<float>(at.z)),
            0.04f * std::cos(0.09f * static_cast<float>(at.x))};
}

constexpr double kBytesPerNode = 8.0 * 27 * sizeof(float) + 8 * sizeof(float) + 3 * sizeof(double);

// Whether a grid fits into device memory and its initial values into host memory.
bool fits(const Grid& grid) {
    const double nodes = static_cast<double>(grid.nx) * grid.ny * grid.nz;
    const double staged = nodes * 27 * sizeof(float);
    const double kept = nodes * kBytesPerNode;
    checkCudaErrors(cudaSetDevice(setup().device));
    const auto host = static_cast<double>(platform::availableHostBytes());
    if (setup().onHost) return kept + staged < host;
    return kept < static_cast<double>(platform::deviceBytesFree()) && staged < host;
}

}  // namespace

// Calls visit for every node, rows in parallel.
template <class Visit>
void BenchFlow::forEachNode(Visit&& visit) const {
    const std::int64_t rows = static_cast<std::int64_t>(param_.samples_y) * param_.samples_z;
#pragma omp parallel for schedule(static)
    for (std::int64_t row = 0; row < rows; ++row) {
        const int y = static_cast<int>(row % param_.samples_y);
        const int z = static_cast<int>(row / param_.samples_y);
        for (int x = 0; x < param_.samples_x; ++x) {
            visit(Node{row * param_.samples_x + x, x, y, z});
        }
    }
}

// Allocates a device array with value(i, node) as entry i of each node. Every byte is written, so that
// all pages exist before the clock runs.
template <class T, class Value>
void BenchFlow::fill(T*& array, std::size_t perNode, Value&& value) {
    const std::size_t count = perNode * nodes_;
    const std::unique_ptr<T[]> staged(new T[count]);
    forEachNode([&](const Node& at) {
        for (std::size_t i = 0; i < perNode; ++i) {
            staged[i * nodes_ + static_cast<std::size_t>(at.n)] = value(static_cast<int>(i), at);
        }
    });
    checkCudaErrors(cudaMalloc(&array, count * sizeof(T)));
    arrays_.push_back(array);
    bytes_ += count * sizeof(T);
    checkCudaErrors(cudaMemcpy(array, staged.get(), count * sizeof(T), cudaMemcpyHostToDevice));
}

// Density 1 and the equilibrium of the velocity.
void BenchFlow::start() {
    const auto populations = [](int i, const Node& at) {
        const Velocity u = velocityAt(at);
        return hostEquilibrium(i, 1.0f, u.x, u.y, u.z);
    };
    fill(image_.f, kDirections, populations);
    fill(image_.fPost, kDirections, populations);
    fill(image_.ux, 1, [](int, const Node& at) { return velocityAt(at).x; });
    fill(image_.uy, 1, [](int, const Node& at) { return velocityAt(at).y; });
    fill(image_.uz, 1, [](int, const Node& at) { return velocityAt(at).z; });
    fill(image_.rou, 1, [](int, const Node&) { return mlDensity<float>{1.0f}; });
    const auto zero = [](int, const Node&) { return 0.0f; };
    fill(image_.fStore, kDirections, zero);
    fill(image_.Sopt, 1, zero);
    for (auto force : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        fill(image_.*force, 1, zero);
    }
    fill(image_.flag, 1, [this](int, const Node& at) {
        if (at.y == param_.samples_y - 1) return ML_NODE_UP;
        if (at.y == 0) return ML_NODE_DOWN;
        if (at.z == param_.samples_z - 1) return ML_NODE_BACK;
        if (at.z == 0) return ML_NODE_FORWARD;
        if (at.x == param_.samples_x - 1) return ML_NODE_RIGHT;
        return at.x == 0 ? ML_NODE_LEFT : ML_NODE_FLUID;
    });
}

// Layer types and damping by the distance to the faces.
void BenchFlow::startLayer() {
    const auto zero = [](int, const Node&) { return 0.0f; };
    for (auto array : {&mlFlow::Q, &mlFlow::cNQ, &mlFlow::fEqTilde, &mlFlow::fEqTildeOld}) {
        fill(image_.*array, kDirections, zero);
    }
    fill(image_.fEqBar, kDirections, [](int i, const Node&) { return w_cas1[i]; });
    const int width = param_.pml_width;
    const auto depthAt = [this](const Node& at) {
        return std::min({at.x, at.y, at.z, param_.samples_x - 1 - at.x, param_.samples_y - 1 - at.y,
                         param_.samples_z - 1 - at.z});
    };
    fill(image_.sigma, 1, [&](int, const Node& at) {
        const int depth = depthAt(at);
        const float d = static_cast<float>(width - depth) / static_cast<float>(width);
        return depth < width ? 0.01f * d * d : 0.0f;
    });
    fill(image_.PML_type, 1, [&](int, const Node& at) {
        const int depth = depthAt(at);
        return depth >= width ? PML_NONE : (depth == 0 ? PML_EDGE : PML_INTERIOR);
    });
}

BenchFlow::BenchFlow(const Grid& grid)
    : nodes_(static_cast<std::size_t>(grid.nx) * grid.ny * grid.nz) {
    checkCudaErrors(cudaSetDevice(setup().device));
    param_.samples_x = grid.nx;
    param_.samples_y = grid.ny;
    param_.samples_z = grid.nz;
    param_.dx = 0.01f;
    param_.pml_width = grid.pml_width;
    start();
    startLayer();
    checkCudaErrors(cudaMalloc(&image_.param, sizeof param_));
    arrays_.push_back(image_.param);
    checkCudaErrors(cudaMemcpy(image_.param, &param_, sizeof param_, cudaMemcpyHostToDevice));
    image_.count = static_cast<std::int64_t>(nodes_);
    image_.v0k = 0.01f;
    checkCudaErrors(cudaMalloc(&flow_dev_, sizeof image_));
    arrays_.push_back(flow_dev_);
    checkCudaErrors(cudaMemcpy(flow_dev_, &image_, sizeof image_, cudaMemcpyHostToDevice));
}

BenchFlow::~BenchFlow() {
    for (void* array : arrays_) cudaFree(array);
}

double BenchFlow::residentBytesPerNode() const {
    return static_cast<double>(bytes_) / static_cast<double>(nodes_);
}

namespace {
std::unique_ptr<BenchFlow>& kept() {
    static std::unique_ptr<BenchFlow> flow;
    return flow;
}
}  // namespace

BenchFlow* benchFlow(const Grid& grid) {
    std::unique_ptr<BenchFlow>& flow = kept();
    if (!flow || flow->param()->samples_x != grid.nx || flow->param()->samples_y != grid.ny ||
        flow->param()->samples_z != grid.nz || flow->param()->pml_width != grid.pml_width) {
        flow.reset();
        if (fits(grid)) flow = std::make_unique<BenchFlow>(grid);
    }
    return flow.get();
}

void releaseBenchFlow() { kept().reset(); }

}  // namespace drelt::bench
