#define DRELT_FUSED_ISA fused_domain
#include "cslbm/fused/FusedDomain.h"

#include <omp.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "cslbm/PML/PMLScheme.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"
#include "platform/check.h"

namespace drelt {
namespace {

constexpr int kLine = 16;           // floats of a cache line
constexpr int kWorthThreads = 256;  // boxes or nodes from which threads pay off
constexpr int kRowsAtOnce = 4;      // rows that a thread takes at a time

// Rows stand an odd number of cache lines apart, so that the fields of a node spread over the cache sets.
int pitchFor(int nx) {
    const int lines = (nx + kLine - 1) / kLine + 1;
    return kLine * (lines % 2 == 0 ? lines + 1 : lines);
}

// Sets a bit that other threads may set at the same time. Most bits are set already.
void markBit(unsigned& word, unsigned bit) {
    if ((__atomic_load_n(&word, __ATOMIC_RELAXED) & bit) != 0) return;
    __atomic_fetch_or(&word, bit, __ATOMIC_RELAXED);
}

// The slab of a thread.
struct Slab {
    int z0, z1;
};
Slab slabOf(int thread, int threads, int nz) {
    const auto bound = [&](int t) { return static_cast<int>(std::int64_t{nz} * t / threads); };
    return {bound(thread), bound(thread + 1)};
}

}  // namespace

double FusedDomain::bytesPerNode(const MLFluidParam& param) {
    // populations, density and velocity (twice with a layer), Sopt
    const int fields = 27 + (param.pml_width > 0 ? 2 : 1) * 4 + 1;
    const double ghosts = (1.0 + 1.0 / param.samples_y) * (1.0 + 1.0 / param.samples_z);
    const double rows = static_cast<double>(param.samples_y) * param.samples_z;
    const double scratch =
        param.pml_width > 0 ? static_cast<double>(kScratchRows) * omp_get_max_threads() / rows : 0;
    return (fields * ghosts + scratch) * sizeof(float) *
           static_cast<double>(pitchFor(param.samples_x)) / param.samples_x;
}

// Memory of the host device: a page takes memory when it is first touched. Sparse arrays are touched in a
// few places only, so they must not get huge pages.
template <class T>
T* FusedDomain::allocate(std::size_t count, bool sparse) {
    constexpr std::size_t pad =
        64;  // sweeps may read one pack before the first and after the last row
    T* array = nullptr;
    const std::size_t bytes = (count + 2 * pad) * sizeof(T);
    checkCudaErrors(cudaMalloc(&array, bytes));
    arrays_.push_back(array);
    if (sparse) {
        madvise(array, bytes, MADV_NOHUGEPAGE);
    } else {
        bytes_ += bytes;
    }
    return array + pad;
}

template float* FusedDomain::allocate<float>(std::size_t, bool);

FusedDomain::FusedDomain(const MLFluidParam& param, float nu, float sigmaMax,
                         const FusedSweeps& sweeps)
    : sweeps_(&sweeps), param_(param) {
    requireInnerNodes(param);
    FusedState& s = state_;
    s.nx = param.samples_x;
    s.ny = param.samples_y;
    s.nz = param.samples_z;
    s.width = param.pml_width;
    nodes_ = static_cast<std::size_t>(s.nx) * s.ny * s.nz;
    s.pitch = pitchFor(s.nx);
    s.nu = nu;
    layOutLayer(sigmaMax);
    s.chunkWords = (s.nx + 32 * kChunkNodes - 1) / (32 * kChunkNodes);
    spread_.assign(static_cast<std::size_t>(s.ny) * s.nz * s.chunkWords, 0);
    wanted_ = spread_;
    columns_ = spread_;
    s.spread = spread_.data();
    arrays_.reserve(32);  // from here on nothing throws
    const std::size_t row = s.pitch;
    const std::size_t rows = static_cast<std::size_t>(s.ny + 1) * s.nz;
    s.populations = allocate<float>(27 * row * (rows + s.ny + 1));
    s.moments = allocate<float>(4 * row * rows);
    if (s.width > 0) momentsBefore_ = allocate<float>(4 * row * rows);
    s.sopt = allocate<float>(row * rows);

    record_.param = &param_;
    record_.count = static_cast<std::int64_t>(nodes_);
    record_.v0k = nu;
    for (auto field : {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz}) {
        record_.*field = allocate<float>(nodes_, true);
    }
    record_.rou = allocate<mlDensity<float>>(nodes_, true);
    int axis = 0;
    for (auto field : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        s.force[axis++] = record_.*field = allocate<double>(nodes_, true);
    }
    s.bodyAcceleration[0] = param.bodyAccelx;
    s.bodyAcceleration[1] = param.bodyAccely;
    s.bodyAcceleration[2] = param.bodyAccelz;
    fused_domain::findOffsets(s);
    startAtRest();
}

// The damping grows with the square of the depth in the layer, like sigma of the flow record.
void FusedDomain::layOutLayer(float sigmaMax) {
    FusedState& s = state_;
    if (s.width <= 0) return;
    s.sigmaScale = dampingScale(sigmaMax, s.width);
    depth_.assign(s.pitch, 0.0f);
    for (int x = 0; x < s.nx; ++x) depth_[x] = static_cast<float>(std::min(x, s.nx - 1 - x));
    s.depth = depth_.data();
}

void FusedDomain::prepareScratch() {
    if (state_.width <= 0) return;
    const auto threads = static_cast<std::size_t>(omp_get_max_threads());
    while (scratch_.size() < threads) {
        scratch_.push_back(allocate<float>(static_cast<std::size_t>(kScratchRows) * state_.pitch));
    }
}

float* FusedDomain::scratchOf(int thread) const {
    return scratch_.empty() ? nullptr : scratch_[thread];
}

FusedDomain::~FusedDomain() {
    for (void* array : arrays_) cudaFree(array);
}

void FusedDomain::step(const FrameMotion& motion) {
    FusedState& s = state_;
    if (motion.turns()) turnFrame(motion);
    takeMotion(s, motion);
    prepareScratch();
#pragma omp parallel
    {
        FlushDenormals flush;
        const Slab slab = slabOf(omp_get_thread_num(), omp_get_num_threads(), s.nz);
        sweeps_->edges(s, slab.z0, slab.z1);
#pragma omp barrier
        sweeps_->slab(s, slab.z0, slab.z1, scratchOf(omp_get_thread_num()));
    }
    s.swapped = 1 - s.swapped;
    fused_domain::findOffsets(s);
    s.planesPending = true;
    s.planes = {planeKind_, motion.far};
    s.momentsGiven = false;
    forcesGiven_ = false;
    if (momentsBefore_ != nullptr) {
        std::swap(momentsBefore_, s.moments);
        s.before = momentsBefore_;
    }
}

// In a frame that turns, the inertial force differs from node to node. The operator adds it to the dense
// force arrays, and the sweep takes it from there together with the spread forces.
void FusedDomain::turnFrame(const FrameMotion& motion) {
    const NodeBox all{0, 0, 0, state_.nx, state_.ny, state_.nz};
    prepareMoments(&all, 1);
    mlAddForcetoUOpt(&record_, &param_, motion.velocityScale, motion.lengthScale,
                     motion.linearAcceleration, motion.angularVelocity, motion.angularAcceleration,
                     motion.inverse);
    announceForces(&all, 1);
}

NodeBox FusedDomain::clipped(const NodeBox& box) const {
    return intersection(box, {0, 0, 0, state_.nx, state_.ny, state_.nz});
}

void FusedDomain::announceForces(const NodeBox* boxes, int count) {
    forcesGiven_ = true;
    mark(boxes, count, spread_);
}

// Marks the chunks of nodes that the boxes touch. Returns a box around all rows with marks.
NodeBox FusedDomain::mark(const NodeBox* boxes, int count, std::vector<unsigned>& chunks) const {
    int y0 = state_.ny, y1 = 0, z0 = state_.nz, z1 = 0;
#pragma omp parallel for schedule(static) reduction(min       \
                                                    : y0, z0) \
    reduction(max                                             \
              : y1, z1) if (count > kWorthThreads)
    for (int i = 0; i < count; ++i) {
        const NodeBox box = clipped(boxes[i]);
        if (box.empty()) continue;
        y0 = std::min(y0, box.y0);
        y1 = std::max(y1, box.y1);
        z0 = std::min(z0, box.z0);
        z1 = std::max(z1, box.z1);
        for (int z = box.z0; z < box.z1; ++z) {
            for (int y = box.y0; y < box.y1; ++y) {
                unsigned* const words = &chunks[wordOf(y, z)];
                for (int c = box.x0 / kChunkNodes; c <= (box.x1 - 1) / kChunkNodes; ++c) {
                    markBit(words[c / 32], 1u << (c % 32));
                }
            }
        }
    }
    return {0, y0, z0, state_.nx, y1, z1};
}

std::size_t FusedDomain::wordOf(int y, int z) const {
    return (static_cast<std::size_t>(state_.ny) * z + y) * state_.chunkWords;
}

void FusedDomain::prepareMoments(const NodeBox* boxes, int count) {
    const NodeBox marked = mark(boxes, count, wanted_);
    if (marked.empty()) return;
    const int height = marked.y1 - marked.y0;
    const int rows = (marked.z1 - marked.z0) * height;
#pragma omp parallel
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (int i = 0; i < rows; ++i) fillWanted(marked.y0 + i % height, marked.z0 + i / height);
    }
}

void FusedDomain::prepareCoupling(const mlLagrangeBoundary* samples, int count,
                                  const mlUnitScale& scale) {
    sampleNodes_.resize(static_cast<std::size_t>(count));
#pragma omp parallel if (count >= platform::kWorthThreads)
    {
        FlushDenormals
            flush;  // as in the operators, so that both agree on which samples are inside
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) {
            const GridPosition p = gridPosition(samples, &record_, i, scale.N, scale.l0p);
            if (insideGrid(p, state_.nx, state_.ny, state_.nz)) {
                sampleNodes_[i] = {static_cast<int>(p.x), static_cast<int>(p.y),
                                   static_cast<int>(p.z)};
            } else {
                sampleNodes_[i] = {-1, 0, 0};
            }
        }
    }
    prepareAround(
        sampleNodes_.data(), count,
        {-kSampleBelow, -kSampleBelow, -kSampleBelow, kSampleAbove, kSampleAbove, kSampleAbove});
}

// Many samples stand in few rows. So chunks are first marked in the rows of the samples; then each row
// takes over the marks of the rows around it.
void FusedDomain::prepareAround(const NodeIndex* nodes, int count, const NodeBox& around) {
    forcesGiven_ = true;
    const NodeBox own = markColumns(nodes, count, around);
    if (own.empty()) return;
    const NodeBox all = clipped({0, own.y0 + around.y0, own.z0 + around.z0, state_.nx,
                                 own.y1 - 1 + around.y1, own.z1 - 1 + around.z1});
    const int height = all.y1 - all.y0;
    const int rows = (all.z1 - all.z0) * height;
#pragma omp parallel
    {
        FlushDenormals flush;
#pragma omp for schedule(static, kRowsAtOnce)
        for (int i = 0; i < rows; ++i) coupleRow(all.y0 + i % height, all.z0 + i / height, around);
#pragma omp for schedule(static)
        for (int z = own.z0; z < own.z1; ++z) {
            std::fill(&columns_[wordOf(own.y0, z)],
                      &columns_[wordOf(own.y1 - 1, z)] + state_.chunkWords, 0U);
        }
    }
}

// Marks the chunks around the nodes, along x only. Returns a box around the nodes' own rows.
NodeBox FusedDomain::markColumns(const NodeIndex* nodes, int count, const NodeBox& around) {
    int y0 = state_.ny, y1 = 0, z0 = state_.nz, z1 = 0;
#pragma omp parallel for schedule(static) reduction(min       \
                                                    : y0, z0) \
    reduction(max                                             \
              : y1, z1) if (count > kWorthThreads)
    for (int i = 0; i < count; ++i) {
        const NodeIndex& node = nodes[i];
        if (node.x < 0) continue;
        y0 = std::min(y0, node.y);
        y1 = std::max(y1, node.y + 1);
        z0 = std::min(z0, node.z);
        z1 = std::max(z1, node.z + 1);
        unsigned* const words = &columns_[wordOf(node.y, node.z)];
        const int first = std::max(node.x + around.x0, 0) / kChunkNodes;
        const int last = (std::min(node.x + around.x1, state_.nx) - 1) / kChunkNodes;
        for (int c = first; c <= last; ++c) markBit(words[c / 32], 1u << (c % 32));
    }
    return {0, y0, z0, state_.nx, y1, z1};
}

// Takes over the marks of all rows that have this row in their surroundings.
void FusedDomain::coupleRow(int y, int z, const NodeBox& around) {
    unsigned* const wanted = &wanted_[wordOf(y, z)];
    const int yEnd = std::min(y - around.y0 + 1, state_.ny);
    const int zEnd = std::min(z - around.z0 + 1, state_.nz);
    unsigned any = 0;
    for (int c = std::max(z - around.z1 + 1, 0); c < zEnd; ++c) {
        for (int b = std::max(y - around.y1 + 1, 0); b < yEnd; ++b) {
            const unsigned* const marked = &columns_[wordOf(b, c)];
            for (int w = 0; w < state_.chunkWords; ++w) any |= wanted[w] |= marked[w];
        }
    }
    if (any == 0) return;
    for (int w = 0; w < state_.chunkWords; ++w) spread_[wordOf(y, z) + w] |= wanted[w];
    fillWanted(y, z);
}

// Computes the moments of the marked chunks of a row and clears the marks.
void FusedDomain::fillWanted(int y, int z) {
    const int nx = state_.nx;
    const std::size_t start = (static_cast<std::size_t>(state_.ny) * z + y) * nx;
    float* const to[4] = {&record_.rou[start].value, record_.ux + start, record_.uy + start,
                          record_.uz + start};
    unsigned* const words = &wanted_[wordOf(y, z)];
    const auto marked = [&](int c) {
        return c * kChunkNodes < nx && (words[c / 32] >> (c % 32) & 1u) != 0;
    };
    for (int c = 0; c * kChunkNodes < nx; ++c) {
        const int first = c;
        while (marked(c)) ++c;
        if (c == first) continue;
        sweeps_->fillMoments(state_, y, z, first * kChunkNodes, std::min(nx, c * kChunkNodes), to);
    }
    std::fill(words, words + state_.chunkWords, 0u);
}

const FusedSweeps& fusedSweeps(const char* name) {
    for (const char* known : fusedInstructionSets()) {
        if (std::strcmp(known, name) != 0) continue;
#if defined(DRELT_FUSED_X86)
        if (std::strcmp(name, "avx512") == 0) return fusedSweepsAvx512();
        if (std::strcmp(name, "avx2") == 0) return fusedSweepsAvx2();
#endif
        return fusedSweepsBaseline();
    }
    std::string all;
    for (const char* known : fusedInstructionSets()) all += std::string(" ") + known;
    throw std::invalid_argument("no instruction set \"" + std::string(name) +
                                "\" here (the environment variable DRELT_INSTRUCTIONS names one): "
                                "choose one of" +
                                all);
}

std::vector<const char*> fusedInstructionSets() {
    std::vector<const char*> names{"baseline"};
#if defined(DRELT_FUSED_X86)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) names.push_back("avx2");
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
        names.push_back("avx512");
    }
#endif
    return names;
}

const FusedSweeps& fusedSweeps() {
    const char* const asked = std::getenv("DRELT_INSTRUCTIONS");
    const bool given = asked != nullptr && *asked != '\0';
    return fusedSweeps(given ? asked : fusedInstructionSets().back());
}

}  // namespace drelt
