#include "cslbm/fused/FusedDeviceDomain.h"

#include <algorithm>

#include "cslbm/fused/FusedDeviceKernels.h"
#include "cslbm/fused/FusedDeviceTransfer.h"
#include "platform/check.h"
#include "supplement/MLCuMemcpy.h"
#include "supplement/StateVisitor.h"

namespace drelt {
namespace {

constexpr int kSector = 8;  // floats that a GPU loads or stores together

// Floats of a row, with one place beyond each end.
int pitchOf(int nx) { return (nx + 2 + kSector - 1) / kSector * kSector; }

std::size_t populationFloats(const MLFluidParam& p) {
    return std::size_t{27} * pitchOf(p.samples_x) * (p.samples_y + 1) * (p.samples_z + 1);
}
std::size_t populationFloats(const FusedState& s) {
    return std::size_t{27} * s.pitch * (s.ny + 1) * (s.nz + 1);
}

LaunchExtent extentOf(const FusedState& s) { return {s.nx, s.ny, s.nz}; }

void check() {
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

// A device array that lives for one transfer.
class Staging {
public:
    explicit Staging(std::size_t count) : bytes_(count * sizeof(float)) {
        checkCudaErrors(cudaMalloc(&data_, bytes_));
    }
    ~Staging() { checkCudaErrors(cudaFree(data_)); }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    float* data() const { return data_; }
    void fill(const void* host) const { _MLCuMemcpy(data_, host, bytes_, cudaMemcpyHostToDevice); }
    void read(float* host) const { _MLCuMemcpy(host, data_, bytes_, cudaMemcpyDeviceToHost); }

private:
    std::size_t bytes_;
    float* data_ = nullptr;
};

}  // namespace

double FusedDeviceDomain::bytesPerNode(const MLFluidParam& p) {
    const double nodes = static_cast<double>(p.samples_x) * p.samples_y * p.samples_z;
    const int fields = (p.pml_width > 0 ? 2 : 1) * 4 + 1;
    return static_cast<double>(populationFloats(p)) * sizeof(float) / nodes +
           fields * sizeof(float) + 3 * sizeof(double);
}

template <class T>
T* FusedDeviceDomain::allocate(std::size_t count) {
    T* array = nullptr;
    checkCudaErrors(cudaMalloc(&array, count * sizeof(T)));
    arrays_.push_back(array);
    return array;
}

void FusedDeviceDomain::allocateMoments(DeviceMoments& moments) {
    moments.rho = allocate<float>(nodes_);
    for (float*& momentum : moments.momentum) momentum = allocate<float>(nodes_);
}

FusedDeviceDomain::FusedDeviceDomain(const MLFluidParam& param, float nu, float sigmaMax) {
    requireInnerNodes(param);
    FusedState& s = state_.base;
    s.nx = param.samples_x;
    s.ny = param.samples_y;
    s.nz = param.samples_z;
    s.width = param.pml_width;
    s.pitch = pitchOf(s.nx);
    s.nu = nu;
    if (s.width > 0) s.sigmaScale = dampingScale(sigmaMax, s.width);
    s.chunkWords = (s.nx + 32 * kChunkNodes - 1) / (32 * kChunkNodes);
    s.bodyAcceleration[0] = param.bodyAccelx;
    s.bodyAcceleration[1] = param.bodyAccely;
    s.bodyAcceleration[2] = param.bodyAccelz;
    nodes_ = static_cast<std::size_t>(s.nx) * s.ny * s.nz;

    s.populations = allocate<float>(populationFloats(param));
    s.sopt = allocate<float>(nodes_);
    allocateMoments(state_.now);
    if (s.width > 0) allocateMoments(state_.before);
    for (double*& force : s.force) force = allocate<double>(nodes_);
    s.spread = allocate<unsigned>(static_cast<std::size_t>(s.chunkWords) * s.ny * s.nz);
    makeRecord(param, nu);
    fused_device::findOffsets(s);
    launchNodes<&fused_device::startKernel>(state_);
}

void FusedDeviceDomain::makeRecord(const MLFluidParam& param, float nu) {
    mlFlow image{};
    image.param = allocate<MLFluidParam>(1);
    _MLCuMemcpy(image.param, &param, sizeof(param), cudaMemcpyHostToDevice);
    image.count = static_cast<std::int64_t>(nodes_);
    image.v0k = nu;
    image.rou = reinterpret_cast<mlDensity<float>*>(state_.now.rho);
    image.ux = state_.now.momentum[0];
    image.uy = state_.now.momentum[1];
    image.uz = state_.now.momentum[2];
    image.forcex = state_.base.force[0];
    image.forcey = state_.base.force[1];
    image.forcez = state_.base.force[2];
    record_ = allocate<mlFlow>(1);
    _MLCuMemcpy(record_, &image, sizeof(image), cudaMemcpyHostToDevice);
}

FusedDeviceDomain::~FusedDeviceDomain() {
    for (void* array : arrays_) checkCudaErrors(cudaFree(array));
}

// One thread per node, consecutive threads along x, 128 per block: the layer's kernels allow no more.
template <auto Op, class... Args>
void FusedDeviceDomain::launchNodes(Args... args) const {
    const LaunchExtent nodes = extentOf(state_.base);
    launchRange<Op>(coveringShape(nodes, 32, 4, 1), nodes, args...);
    check();
}

void FusedDeviceDomain::step(const FrameMotion& motion) {
    FusedState& s = state_.base;
    state_.shifted = motion.turns();
    if (state_.shifted) turnFrame(motion);
    takeMotion(s, motion);
    for (int a = 0; a < 3; ++a) state_.now.halfAcceleration[a] = 0.5f * s.acceleration[a];
    launchNodes<&fused_device::prepareKernel>(state_);
    collide();
    s.swapped = 1 - s.swapped;
    fused_device::findOffsets(s);
    s.planesPending = true;
    s.planes = {planeKind_, motion.far};
    s.momentsGiven = false;
    forcesGiven_ = false;
    if (s.width > 0) std::swap(state_.now, state_.before);
    launchNodes<&fused_device::momentsKernel>(state_, state_.now);
    if (s.width == 0) return;
    launchLinear<&fused_device::recordKernel>(LaunchShape{1, 1, 1, 1, 1, 1}, 1, record_,
                                              state_.now);
    check();
}

void FusedDeviceDomain::collide() {
    const FusedState& s = state_.base;
    if (s.whole && s.width > 0) {
        launchNodes<&fused_device::collideWholeLayerKernel>(state_);
    } else if (s.whole) {
        launchNodes<&fused_device::collideWholeKernel>(state_);
    } else if (s.width > 0) {
        launchNodes<&fused_device::collideLayerKernel>(state_);
    } else {
        launchNodes<&fused_device::collideKernel>(state_);
    }
}

// In a frame that turns, the inertial force differs from node to node: the operator adds it to the spread
// forces.
void FusedDeviceDomain::turnFrame(const FrameMotion& motion) {
    const FusedState& s = state_.base;
    MLFluidParam grid{};
    grid.samples_x = s.nx;
    grid.samples_y = s.ny;
    grid.samples_z = s.nz;
    mlAddForcetoUOpt(record_, &grid, motion.velocityScale, motion.lengthScale,
                     motion.linearAcceleration, motion.angularVelocity, motion.angularAcceleration,
                     motion.inverse);
    launchNodes<&fused_device::momentumKernel>(state_.now);
    const NodeBox all{0, 0, 0, s.nx, s.ny, s.nz};
    announceForces(&all, 1);
}

void FusedDeviceDomain::announceForces(const NodeBox* boxes, int count) {
    forcesGiven_ = true;
    const FusedState& s = state_.base;
    for (int i = 0; i < count; ++i) {
        const NodeBox box = intersection(boxes[i], {0, 0, 0, s.nx, s.ny, s.nz});
        if (box.empty()) continue;
        const LaunchExtent rows{box.y1 - box.y0, box.z1 - box.z0, 1};
        launchRange<&fused_device::markBoxKernel>(coveringShape(rows, 32, 4, 1), rows, state_, box);
        check();
    }
}

void FusedDeviceDomain::prepareCoupling(const mlLagrangeBoundary* samples, int count,
                                        const mlUnitScale& scale) {
    if (count <= 0) return;
    forcesGiven_ = true;
    const LaunchExtent items{count, 1, 1};
    const mlFlow* const record = record_;
    launchLinear<&fused_device::markSampleKernel>(coveringShape(items, 128, 1, 1), count, state_,
                                                  samples, record, scale.N, scale.l0p);
    check();
}

void FusedDeviceDomain::load(const mlFlow& host) {
    const std::size_t bytes = nodes_ * sizeof(float);
    _MLCuMemcpy(state_.now.rho, host.rou, bytes, cudaMemcpyHostToDevice);
    if (host.Sopt != nullptr) {
        _MLCuMemcpy(state_.base.sopt, host.Sopt, bytes, cudaMemcpyHostToDevice);
    }
    upload(host);
}

void FusedDeviceDomain::upload(const mlFlow& host) {
    const float* const from[3] = {host.ux, host.uy, host.uz};
    for (int a = 0; a < 3; ++a) {
        _MLCuMemcpy(state_.now.momentum[a], from[a], nodes_ * sizeof(float),
                    cudaMemcpyHostToDevice);
    }
    storePopulations(host);
    state_.base.momentsGiven = true;
    state_.base.planesPending = false;
}

void FusedDeviceDomain::storePopulations(const mlFlow& host) {
    const Staging staging(nodes_);
    const float* const values = staging.data();
    if (host.f == nullptr) {
        staging.fill(host.rou);
        launchNodes<&fused_device::uniformKernel>(state_, values, uniformVelocity_);
        return;
    }
    for (int i = 0; i < kDirections; ++i) {
        staging.fill(host.f + i * nodes_);
        launchNodes<&fused_device::storeKernel>(state_, fused_device::codeOfDirection(i), values);
    }
}

void FusedDeviceDomain::dropForces() {
    const FusedState& s = state_.base;
    const LaunchExtent words{s.chunkWords, s.ny, s.nz};
    launchRange<&fused_device::dropForcesKernel>(coveringShape(words, 1, 32, 4), words, state_);
    check();
}

void FusedDeviceDomain::visitMoments(StateVisitor& state, DeviceMoments& moments) const {
    state.deviceArray("density", moments.rho, nodes_);
    for (int a = 0; a < 3; ++a) {
        state.deviceArray("momentum" + std::to_string(a), moments.momentum[a], nodes_);
    }
    state.array("halfAcceleration", moments.halfAcceleration, 3);
}

void FusedDeviceDomain::visitState(StateVisitor& state) {
    ProductionDomain::visitState(state);
    FusedState& s = state_.base;
    visitNumbers(state, s);
    visitForces(state, s, static_cast<std::size_t>(s.chunkWords) * s.ny * s.nz, true);
    state.deviceArray("populations", s.populations, populationFloats(s));
    state.deviceArray("sopt", s.sopt, nodes_);
    state.group("moments", [&] { visitMoments(state, state_.now); });
    if (s.width > 0) state.group("momentsBefore", [&] { visitMoments(state, state_.before); });
    state.optionalArray<float>("reference", s.reference, nodes_, true, [this](const float* from) {
        state_.base.reference = nullptr;
        if (from == nullptr) return;
        if (reference_ == nullptr) reference_ = allocate<float>(nodes_);
        _MLCuMemcpy(reference_, from, nodes_ * sizeof(float), cudaMemcpyHostToDevice);
        state_.base.reference = reference_;
    });
}

void FusedDeviceDomain::stateLoaded(bool hostNewer) {
    ProductionDomain::stateLoaded(hostNewer);
    fused_device::findOffsets(state_.base);
}

void FusedDeviceDomain::resetLayer(const mlDensity<float>* rou) {
    forcesGiven_ = false;
    const FusedState& s = state_.base;
    dropForces();
    if (s.width == 0) return;
    const bool everywhereOne =
        std::all_of(rou, rou + nodes_, [](auto density) { return density.value == 1.0f; });
    if (reference_ == nullptr && !everywhereOne) reference_ = allocate<float>(nodes_);
    state_.base.reference = reference_;
    const std::size_t bytes = nodes_ * sizeof(float);
    if (reference_ != nullptr) {
        _MLCuMemcpy(reference_, rou, bytes, cudaMemcpyHostToDevice);
    }
    DeviceMoments& before = state_.before;
    _MLCuMemcpy(before.rho, rou, bytes, cudaMemcpyHostToDevice);
    launchNodes<&fused_device::clearKernel>(before.momentum[0], before.momentum[1],
                                            before.momentum[2]);
    std::fill_n(before.halfAcceleration, 3, 0.0f);
}

void FusedDeviceDomain::setStepBefore(const mlFlow& fluid) {
    if (state_.base.width == 0) return;
    DeviceMoments& before = state_.before;
    const std::size_t bytes = nodes_ * sizeof(float);
    const float* const from[3] = {fluid.ux, fluid.uy, fluid.uz};
    _MLCuMemcpy(before.rho, fluid.rou, bytes, cudaMemcpyHostToDevice);
    for (int a = 0; a < 3; ++a) {
        _MLCuMemcpy(before.momentum[a], from[a], bytes, cudaMemcpyHostToDevice);
    }
    std::fill_n(before.halfAcceleration, 3, 0.0f);
}

void FusedDeviceDomain::materialise(mlFlow& host) const {
    const auto fetch = [&](float* to, const float* from) {
        _MLCuMemcpy(to, from, nodes_ * sizeof(float), cudaMemcpyDeviceToHost);
    };
    if (host.rou != nullptr && host.ux != nullptr) {
        fetch(&host.rou->value, state_.now.rho);
        fetch(host.ux, state_.now.momentum[0]);
        fetch(host.uy, state_.now.momentum[1]);
        fetch(host.uz, state_.now.momentum[2]);
    }
    if (host.Sopt != nullptr) fetch(host.Sopt, state_.base.sopt);
    if (host.f == nullptr && host.fPost == nullptr) return;
    const Staging staging(nodes_);
    for (int i = 0; i < kDirections; ++i) {
        if (host.f != nullptr) {
            launchNodes<&fused_device::fetchKernel>(state_, fused_device::codeOfDirection(i),
                                                    staging.data());
            staging.read(host.f + i * nodes_);
        }
        if (host.fPost != nullptr) {
            if (stepped()) {
                launchNodes<&fused_device::fetchPostKernel>(
                    state_, fused_device::codeOfDirection(i), staging.data());
            } else {
                launchNodes<&fused_device::fetchKernel>(state_, fused_device::codeOfDirection(i),
                                                        staging.data());
            }
            staging.read(host.fPost + i * nodes_);
        }
    }
}

std::size_t FusedDeviceDomain::residentBytes() const {
    const FusedState& s = state_.base;
    const std::size_t rows = static_cast<std::size_t>(s.ny + 1) * (s.nz + 1);
    const std::size_t fields = (s.width > 0 ? 2 : 1) * 4 + 1;
    return sizeof(float) * (27 * s.pitch * rows + fields * nodes_);
}

}  // namespace drelt
