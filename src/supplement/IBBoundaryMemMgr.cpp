#include "supplement/IBBoundaryMemMgr.h"

#include <new>
#include <type_traits>
#include <vector>

#include "supplement/MLCuMemcpy.h"
#include "supplement/MirroredArray.h"

namespace drelt {
namespace {

// The record is copied as one block, and its fields are addressed one by one on the device side.
static_assert(std::is_standard_layout_v<mlLagrangeBoundary>);

constexpr MirrorOwner kOwner{"mllaboundary", "mllaboundary_gpu", __FILE__, __LINE__};

// Whether a download brings an array back.
enum class Back { Yes, No };

// Visits every array in the order of the copies, with the manager's pointer to it.
template <class Visit>
void forEachArray(IBBoundaryMemMgr& m, Visit&& visit) {
    using Record = mlLagrangeBoundary;
    const auto array = [&](auto field, auto*& there, const char* name, Back back) {
        visit(MirroredArray(kOwner, field, name), there, back);
    };
    array(&Record::ux, m.ux_dev, "ux", Back::Yes);
    array(&Record::uy, m.uy_dev, "uy", Back::Yes);
    array(&Record::uz, m.uz_dev, "uz", Back::Yes);
    array(&Record::coordx, m.coordx_dev, "coordx", Back::Yes);
    array(&Record::coordy, m.coordy_dev, "coordy", Back::Yes);
    array(&Record::coordz, m.coordz_dev, "coordz", Back::Yes);
    array(&Record::normalx, m.normalx_dev, "normalx", Back::Yes);
    array(&Record::normaly, m.normaly_dev, "normaly", Back::Yes);
    array(&Record::normalz, m.normalz_dev, "normalz", Back::Yes);
    array(&Record::coordInitx, m.coordInitx_dev, "coordInitx", Back::No);
    array(&Record::coordInity, m.coordInity_dev, "coordInity", Back::No);
    array(&Record::coordInitz, m.coordInitz_dev, "coordInitz", Back::No);
    array(&Record::forcex, m.forcex_dev, "forcex", Back::Yes);
    array(&Record::forcey, m.forcey_dev, "forcey", Back::Yes);
    array(&Record::forcez, m.forcez_dev, "forcez", Back::Yes);
    visit(MirroredArray(kOwner, &Record::rou, "rou", 1, "den"), m.den_dev, Back::No);
}

}  // namespace

IBBoundaryMemMgr::~IBBoundaryMemMgr() {
    free();
    delete mllagbndHost;
}

void IBBoundaryMemMgr::allocate() {
    cudaSetDevice(gpuDeviceId);
    delete mllagbndHost;
    mllagbndHost = new mlLagrangeBoundary();
    mllagbndHost->reservedOne = 1.0f;
    free();
    checkCudaErrors(cudaMalloc(&mllaboundary_gpu, sizeof(mlLagrangeBoundary)));
    forEachArray(*this, [&](const auto& array, auto*& there, Back) {
        array.allocate(there, mllaboundary->count);
    });
}

void IBBoundaryMemMgr::upload() {
    cudaSetDevice(gpuDeviceId);
    forEachArray(*this, [&](const auto& array, auto* there, Back) {
        array.upload(there, *mllaboundary, mllaboundary->count);
    });
    // The copied record holds host addresses, so every array pointer is patched after it.
    _MLCuMemcpy(mllaboundary_gpu, mllaboundary, sizeof(mlLagrangeBoundary), cudaMemcpyHostToDevice);
    forEachArray(
        *this, [&](const auto& array, auto* there, Back) { array.patch(mllaboundary_gpu, there); });
}

void IBBoundaryMemMgr::download() {
    cudaSetDevice(gpuDeviceId);
    _MLCuMemcpy(mllagbndHost, mllaboundary_gpu, sizeof(mlLagrangeBoundary), cudaMemcpyDeviceToHost);
    // The copy of reservedList is the bytes of another vector. A new empty list replaces it, because this
    // record must not release the other's memory.
    new (&mllagbndHost->reservedList) std::vector<int>();
    forEachArray(*this, [&](const auto& array, auto* there, Back back) {
        if (back == Back::Yes) array.download(there, *mllaboundary, mllaboundary->count);
    });
}

void IBBoundaryMemMgr::reserveWeights() {
    if (weights_dev != nullptr) return;
    cudaSetDevice(gpuDeviceId);
    const auto count = static_cast<std::size_t>(mllaboundary->count);
    checkCudaErrors(cudaMalloc(&weights_dev, count * sizeof(double)));
}

void IBBoundaryMemMgr::dropWeights() {
    if (weights_dev == nullptr) return;
    cudaSetDevice(gpuDeviceId);
    checkCudaErrors(cudaFree(weights_dev));
    weights_dev = nullptr;
}

void IBBoundaryMemMgr::visitState(StateVisitor& state) {
    cudaSetDevice(gpuDeviceId);
    forEachArray(*this, [&](const auto& array, auto*& there, Back) {
        array.list(state, there, mllaboundary->count);
    });
}

void IBBoundaryMemMgr::free() {
    dropWeights();
    cudaSetDevice(gpuDeviceId);
    if (mllaboundary_gpu == nullptr) return;
    checkCudaErrors(cudaFree(mllaboundary_gpu));
    mllaboundary_gpu = nullptr;
    forEachArray(*this, [](const auto& array, auto*& there, Back) { array.free(there); });
}

void IBBoundaryMemMgr::setScale(float nodesPerLength, float length, float velocity,
                                float latticeVelocity) {
    if (mllaboundary != nullptr) {
        mllaboundary->N = nodesPerLength;
        mllaboundary->l0p = length;
    }
    N = nodesPerLength;
    l0p = length;
    u0p = velocity;
    u0k = latticeVelocity;
    upload();
}

}  // namespace drelt
