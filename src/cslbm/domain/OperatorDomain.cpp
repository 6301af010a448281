#include "cslbm/domain/OperatorDomain.h"

#include <type_traits>
#include <vector>

#include "cslbm/PML/PMLOperation.h"
#include "cslbm/domain/HostState.h"
#include "cslbm/mlsolver/FlowArrays.h"
#include "platform/check.h"
#include "supplement/MLCuMemcpy.h"
#include "supplement/MirroredArray.h"

namespace drelt {
namespace {

constexpr MirrorOwner kOwner{"mllbm_host", "mllbm_gpu", __FILE__, __LINE__};

template <class Visit>
void forEachMirroredArray(Visit&& visit) {
    forEachDeviceArray([&](auto field, const char* name, int perNode) {
        visit(MirroredArray(kOwner, field, name, perNode), field);
    });
}

template <class A, class B>
bool sameField(A a, B b) {
    if constexpr (std::is_same_v<A, B>) {
        return a == b;
    } else {
        return false;
    }
}

// Visits the arrays of the given fields only, in the order of the list.
template <class Visit, class... Fields>
void forArraysOf(Visit&& visit, Fields... fields) {
    forEachMirroredArray([&](const auto& array, auto field) {
        if ((sameField(field, fields) || ...)) visit(array, field);
    });
}

}  // namespace

double OperatorDomain::bytesPerNode() {
    double bytes = 0;
    forEachDeviceArray([&](auto field, const char*, int perNode) {
        bytes += perNode * sizeof(*(mlFlow{}.*field));
    });
    return bytes;
}

OperatorDomain::OperatorDomain(const mlFlow& host) : param_(host.param) {
    // Not checked: the copy into the record reports a failure.
    static_cast<void>(cudaMalloc(&record_, sizeof(mlFlow)));
    mlFlow device = host;
    forEachMirroredArray(
        [&](const auto& array, auto field) { array.allocate(device.*field, host.count); });
    forEachMirroredArray(
        [&](const auto& array, auto field) { array.upload(device.*field, host, host.count); });
    _MLCuMemcpy(record_, &host, sizeof(mlFlow), cudaMemcpyHostToDevice);
    forEachMirroredArray(
        [&](const auto& array, auto field) { array.patch(record_, device.*field); });
    image_ = device;
}

OperatorDomain::~OperatorDomain() {
    forEachMirroredArray([&](const auto& array, auto field) { array.free(image_.*field); });
    checkCudaErrors(cudaFree(record_));
}

void OperatorDomain::step(const FrameMotion& motion) {
    operatorStep(record_, param_, motion, choices_);
}

template <class... Fields>
void OperatorDomain::upload(const mlFlow& host, Fields... fields) const {
    forArraysOf(
        [&](const auto& array, auto field) { array.upload(image_.*field, host, image_.count); },
        fields...);
}

template <class... Fields>
void OperatorDomain::download(mlFlow& host, Fields... fields) const {
    forArraysOf(
        [&](const auto& array, auto field) {
            if (host.*field != nullptr) array.download(image_.*field, host, image_.count);
        },
        fields...);
}

void OperatorDomain::syncToDevice(mlFlow& host) {
    forArraysOf(
        [&](const auto& array, auto field) {
            array.upload(image_.*field, host, image_.count);
            array.patch(record_, image_.*field);
        },
        &mlFlow::ux, &mlFlow::uy, &mlFlow::uz, &mlFlow::flag, &mlFlow::PML_type, &mlFlow::f,
        &mlFlow::fPost);
}

void OperatorDomain::materialise(mlFlow& host) const {
    download(host, &mlFlow::f, &mlFlow::fPost, &mlFlow::rou, &mlFlow::ux, &mlFlow::uy, &mlFlow::uz,
             &mlFlow::Sopt);
}

void OperatorDomain::syncToHost(mlFlow& host) {
    originToHost(host);
    download(host, &mlFlow::ux, &mlFlow::uy, &mlFlow::uz, &mlFlow::forcex, &mlFlow::forcey,
             &mlFlow::forcez, &mlFlow::rou, &mlFlow::flag, &mlFlow::f, &mlFlow::fEqBar,
             &mlFlow::fPost);
}

void OperatorDomain::visitState(StateVisitor& state) {
    FluidDomain::visitState(state);
    forEachMirroredArray(
        [&](const auto& array, auto field) { array.list(state, image_.*field, image_.count); });
}

void OperatorDomain::reset(mlFlow& host, const Vector3<float>& velocity) {
    resetPopulations(host, velocity);
    uploadForcesAndPml(host);
}

// A pass of the layer's operators leaves its data of the step before. They read velocities and change fPost,
// so momentum and populations come after them.
void OperatorDomain::setFluid(const mlFlow& fluid) {
    const auto count = static_cast<std::size_t>(fluid.count);
    mlFlow moving = fluid;
    std::vector<float> velocity[3];
    float* mlFlow::*const axes[3] = {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz};
    for (int a = 0; a < 3; ++a) {
        velocity[a].resize(count);
        for (std::size_t n = 0; n < count; ++n) {
            velocity[a][n] = (fluid.*axes[a])[n] / fluid.rou[n].value;
        }
        moving.*axes[a] = velocity[a].data();
    }
    upload(moving, &mlFlow::rou, &mlFlow::ux, &mlFlow::uy, &mlFlow::uz);
    PML_Operation(record_, param_);
    mlFlow given = fluid;
    given.fPost = given.f;
    upload(given, &mlFlow::f, &mlFlow::fPost, &mlFlow::ux, &mlFlow::uy, &mlFlow::uz);
}

void OperatorDomain::uploadForcesAndPml(const mlFlow& host) {
    upload(host, &mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez, &mlFlow::fEqBar,
           &mlFlow::fEqTilde, &mlFlow::fEqTildeOld, &mlFlow::Q, &mlFlow::cNQ);
}

}  // namespace drelt
