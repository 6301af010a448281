#include "cslbm/fused/ProductionDomain.h"

#include <algorithm>
#include <stdexcept>
#include <type_traits>

#include "cslbm/domain/HostState.h"
#include "cslbm/fused/FusedDeviceDomain.h"
#include "cslbm/fused/FusedDomain.h"
#include "cslbm/fused/FusedState.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/runtime.h"
#include "supplement/MLCuMemcpy.h"
#include "supplement/StateVisitor.h"

namespace drelt {
namespace {

constexpr const char* kAdvice =
    "; set the simulator's schedule to Schedule::Operators and call commitInit before the change";

std::int64_t kept(const mlFlow& host) {
    return countNodesWhere(
        *host.param, [&](std::int64_t n, int, int, int) { return keepsItsState(host.flag[n]); });
}

std::int64_t otherLayerTypes(const mlFlow& host) {
    const MLFluidParam& p = *host.param;
    return countNodesWhere(p, [&](std::int64_t n, int x, int y, int z) {
        return host.PML_type[n] != layerNode(p, 0.0f, x, y, z).type;
    });
}

std::int64_t otherDamping(const mlFlow& host, float sigmaMax) {
    const MLFluidParam& p = *host.param;
    return countNodesWhere(p, [&](std::int64_t n, int x, int y, int z) {
        return host.sigma[n] != layerNode(p, sigmaMax, x, y, z).sigma;
    });
}

}  // namespace

bool ProductionDomain::tooThin(const MLFluidParam& param) {
    return std::min({param.samples_x, param.samples_y, param.samples_z}) < leastNodes(param);
}

void ProductionDomain::requireInnerNodes(const MLFluidParam& param) {
    if (!tooThin(param)) return;
    throw std::invalid_argument(
        "a box of " + std::to_string(param.samples_x) + " x " + std::to_string(param.samples_y) +
        " x " + std::to_string(param.samples_z) + " nodes is too thin for a layer of " +
        std::to_string(param.pml_width) + ": give it at least " +
        std::to_string(leastNodes(param)) + " nodes along each axis");
}

void ProductionDomain::requireInstructions() { fusedSweeps(); }

std::string ProductionDomain::obstacle(const mlFlow& host, float sigmaMax) {
    if (tooThin(*host.param)) {
        return "the box has no node between its open planes";
    }
    const auto nodes = [](std::int64_t count, const std::string& what) {
        return std::to_string(count) + " node(s) of the host record " + what;
    };
    if (const auto n = kept(host)) return nodes(n, "are excluded or solid");
    if (const auto n = otherLayerTypes(host)) {
        return nodes(n, "have another PML_type than pml_width gives");
    }
    if (const auto n = otherDamping(host, sigmaMax)) {
        return nodes(n, "have another sigma than pml_width and sigma_max give");
    }
    const auto n = countNodesWhere(
        *host.param, [&](std::int64_t at, int, int, int) { return host.Sopt[at] != 0.0f; });
    return n != 0 ? nodes(n, "have an Sopt that is not 0") : "";
}

double ProductionDomain::bytesPerNode(const MLFluidParam& param) {
    return platform::hostReachesDevice() ? FusedDomain::bytesPerNode(param)
                                         : FusedDeviceDomain::bytesPerNode(param);
}

void ProductionDomain::choose(const StepChoices& choices) {
    if (!choices.areDefault()) {
        throw std::logic_error(
            "step: the production schedule has the default collision and boundaries only; choose "
            "others, or Schedule::Operators, before commitInit");
    }
    planeKind_ = choices.planes;
}

void ProductionDomain::begin(const mlFlow& host, HostPopulations held,
                             const Vector3<float>& velocity) {
    held_ = held;
    uniformVelocity_ = velocity;
    fPostGiven_ = held == HostPopulations::Current;
    const bool moves = velocity.x != 0.0f || velocity.y != 0.0f || velocity.z != 0.0f;
    if (fPostGiven_) {
        load(host);
    } else if (moves) {
        mlFlow given = host;
        given.f = nullptr;
        upload(given);
    }
    takeForces(host);
}

void ProductionDomain::syncToDevice(mlFlow& host) {
    if (const auto n = otherLayerTypes(host)) {
        throw std::runtime_error("step: PML_type was changed at " + std::to_string(n) +
                                 " node(s) of the host record; the production schedule takes the "
                                 "layer from pml_width" +
                                 kAdvice);
    }
    // The host edited momentum only: the populations stay what they are on the device.
    if (held_ == HostPopulations::Stale) populationsToHost(host);
    mlFlow given = host;
    if (held_ == HostPopulations::Uniform) given.f = nullptr;
    fPostGiven_ = held_ == HostPopulations::Current;
    upload(given);
}

void ProductionDomain::syncToHost(mlFlow& host) {
    originToHost(host);
    mlFlow moments = host;
    moments.f = moments.fPost = moments.Sopt = nullptr;
    materialise(moments);
    forcesToHost(host);
    held_ = HostPopulations::Stale;
}

void ProductionDomain::populationsToHost(mlFlow& host) {
    if (held_ == HostPopulations::Current) return;
    if (held_ == HostPopulations::Uniform) {
        uniformPopulations(host, uniformVelocity_);
    } else {
        mlFlow populations = host;
        populations.rou = nullptr;
        populations.ux = populations.uy = populations.uz = populations.Sopt = nullptr;
        if (fPostGiven_ && !stepped()) populations.fPost = nullptr;
        materialise(populations);
    }
    referenceToHost(host);
    held_ = HostPopulations::Current;
}

void ProductionDomain::requireResettable(const mlFlow& host) const {
    if (const auto n = kept(host)) {
        throw std::runtime_error("reset: " + std::to_string(n) +
                                 " node(s) of the host record became excluded or solid after "
                                 "commitInit; the production schedule cannot keep their state" +
                                 kAdvice);
    }
}

void ProductionDomain::reset(mlFlow& host, const Vector3<float>& velocity) {
    const auto other = countNodesWhere(
        *host.param, [&](std::int64_t n, int, int, int) { return host.rou[n].value != 1.0f; });
    referenceDensity_.clear();
    if (other != 0) referenceDensity_.assign(&host.rou->value, &host.rou->value + host.count);
    resetLayer(host.rou);
    takeForces(host);
    uniformVelocity_ = velocity;
    held_ = HostPopulations::Uniform;
}

void ProductionDomain::uploadForcesAndPml(const mlFlow&) {
    throw std::logic_error(
        std::string("uploadForcesAndPml: the production schedule keeps no layer data") + kAdvice);
}

void ProductionDomain::setFluid(const mlFlow& fluid) {
    mlFlow given = fluid;
    given.Sopt = nullptr;
    load(given);
    setStepBefore(given);
    fPostGiven_ = false;
    held_ = HostPopulations::Stale;
}

void ProductionDomain::visitState(StateVisitor& state) {
    FluidDomain::visitState(state);
    state.value("hostPopulations", held_);
    state.value("fPostGiven", fPostGiven_);
    state.value("uniformVelocity", uniformVelocity_);
    state.value("planeKind", planeKind_);
    const bool given = !referenceDensity_.empty();
    state.optionalArray<float>("hostReference", given ? referenceDensity_.data() : nullptr,
                               static_cast<std::size_t>(image().count), false,
                               [this, count = image().count](const float* from) {
                                   referenceDensity_.clear();
                                   if (from == nullptr) return;
                                   referenceDensity_.assign(from, from + count);
                               });
}

void ProductionDomain::stateLoaded(bool hostNewer) {
    if (held_ == HostPopulations::Current && !hostNewer) held_ = HostPopulations::Stale;
}

void ProductionDomain::visitNumbers(StateVisitor& state, FusedState& s) {
    state.value("swapped", s.swapped);
    state.value("momentsGiven", s.momentsGiven);
    state.value("planesPending", s.planesPending);
    state.value("planes", s.planes);
    state.array("acceleration", s.acceleration, 3);
}

void ProductionDomain::visitForces(StateVisitor& state, FusedState& s, std::size_t words,
                                   bool onDevice) {
    const auto nodes = static_cast<std::size_t>(s.nx) * s.ny * s.nz;
    const auto list = [&](const std::string& name, auto* array, std::size_t count) {
        using T = std::remove_pointer_t<decltype(array)>;
        state.optionalArray<T>(
            name, forcesGiven_ ? array : nullptr, count, onDevice, [=](const T* from) {
                if (from == nullptr) return;
                _MLCuMemcpy(array, from, count * sizeof(T), cudaMemcpyHostToDevice);
            });
    };
    // a load clears what is there before it takes what the state holds
    state.numbers<bool>("forcesGiven", &forcesGiven_, 1, [this](const bool* given) {
        if (forcesGiven_) dropForces();
        forcesGiven_ = *given;
    });
    for (int a = 0; a < 3; ++a) list("force" + std::to_string(a), s.force[a], nodes);
    list("forceMarks", s.spread, words);
}

mlFlow ProductionDomain::image() {
    mlFlow device{};
    _MLCuMemcpy(&device, record(), sizeof(mlFlow), cudaMemcpyDeviceToHost);
    return device;
}

void ProductionDomain::takeForces(const mlFlow& host) {
    const auto forced = countNodesWhere(*host.param, [&](std::int64_t n, int, int, int) {
        return host.forcex[n] != 0.0 || host.forcey[n] != 0.0 || host.forcez[n] != 0.0;
    });
    if (forced == 0) return;
    const mlFlow device = image();
    for (auto force : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        _MLCuMemcpy(device.*force, host.*force, host.count * sizeof(double),
                    cudaMemcpyHostToDevice);
    }
    const MLFluidParam& p = *host.param;
    const NodeBox all{0, 0, 0, p.samples_x, p.samples_y, p.samples_z};
    announceForces(&all, 1);
}

void ProductionDomain::forcesToHost(mlFlow& host) {
    const mlFlow device = forcesGiven_ ? image() : mlFlow{};
    for (auto force : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        if (forcesGiven_) {
            _MLCuMemcpy(host.*force, device.*force, host.count * sizeof(double),
                        cudaMemcpyDeviceToHost);
        } else {
            clearWritten(host.*force, host.count);
        }
    }
}

void ProductionDomain::referenceToHost(mlFlow& host) const {
    forEachNode(*host.param, [&](std::int64_t n, int, int, int) {
        const float rou = referenceDensity_.empty() ? 1.0f : referenceDensity_[n];
        for (int i = 0; i < kDirections; ++i) host.fEqBar[i * host.count + n] = w_cas1[i] * rou;
    });
}

void ProductionDomain::takeMotion(FusedState& s, const FrameMotion& motion) {
    for (int a = 0; a < 3; ++a) {
        const double acceleration = motion.lengthScale[a] * -motion.linearAcceleration[a];
        s.acceleration[a] = motion.turns() ? 0.0f : static_cast<float>(acceleration);
    }
    s.whole = s.momentsGiven || s.bodyAcceleration[0] != 0.0f || s.bodyAcceleration[1] != 0.0f ||
              s.bodyAcceleration[2] != 0.0f;
}

std::unique_ptr<ProductionDomain> makeProductionDomain(const MLFluidParam& param, float nu,
                                                       float sigmaMax) {
    if (platform::hostReachesDevice()) return std::make_unique<FusedDomain>(param, nu, sigmaMax);
    return std::make_unique<FusedDeviceDomain>(param, nu, sigmaMax);
}

}  // namespace drelt
