// A fluid domain for tests: an mlFlow record with its arrays on the host and on a device.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "cslbm/mlsolver/FlowArrays.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/check.h"
#include "support/device.h"
#include "support/vectors.h"

namespace drelt::test {

// Owns both records. Starts at rest: rou is 1, v0k is 0.01, f, fPost and fEqBar hold the weights, all nodes
// are ML_NODE_FLUID, the absorbing layer has sigma_max 0.01, and the rest is zero. Usage: change host(),
// upload(), launch with device() and param(), download(), read host().
class HostFlow {
public:
    HostFlow(int nx, int ny, int nz, int pml_width = 0, int device = test::device())
        : nodes_(static_cast<std::size_t>(nx) * ny * nz), deviceId_(device) {
        allocateHost(nx, ny, nz, pml_width);
        layOut(0.01f);
        checkCudaErrors(cudaSetDevice(deviceId_));
        checkCudaErrors(cudaMalloc(&device_, sizeof(mlFlow)));
        checkCudaErrors(cudaMalloc(&image_.param, sizeof(MLFluidParam)));
        forEachArray([](auto*&, auto*& there, std::size_t size) {
            checkCudaErrors(cudaMalloc(&there, size * sizeof(*there)));
        });
        upload();
    }
    // The domain of a case: its scalars, and every "in_" array named after a field.
    explicit HostFlow(const VectorCase& given, int device = test::device())
        : HostFlow(given.integer("nx"), given.integer("ny"), given.integer("nz"),
                   given.integer("pml_width"), device) {
        MLFluidParam& p = *host_.param;
        const auto scalar = [&](const char* name) {
            return static_cast<float>(given.scalar(name));
        };
        p.dx = scalar("dx");
        p.width = scalar("width");
        p.height = scalar("height");
        p.depth = scalar("depth");
        host_.startx = p.startx = scalar("startx");
        host_.starty = p.starty = scalar("starty");
        host_.startz = p.startz = scalar("startz");
        p.bodyAccelx = scalar("bodyAccelx");
        p.bodyAccely = scalar("bodyAccely");
        p.bodyAccelz = scalar("bodyAccelz");
        host_.v0k = scalar("v0k");
        load(given);
        upload();
    }
    ~HostFlow() {
        forEachArray([](auto*&, auto*& there, std::size_t) { cudaFree(there); });
        cudaFree(image_.param);
        cudaFree(device_);
        freeHostArrays(host_);
    }
    HostFlow(const HostFlow&) = delete;
    HostFlow& operator=(const HostFlow&) = delete;

    mlFlow& host() { return host_; }
    const mlFlow& host() const { return host_; }
    mlFlow* device() { return device_; }
    // The device record's content: its pointers are device pointers.
    const mlFlow& deviceImage() const { return image_; }
    MLFluidParam* param() { return host_.param; }
    std::size_t nodes() const { return nodes_; }
    std::size_t node(int x, int y, int z) const {
        return x + static_cast<std::size_t>(host_.param->samples_x) *
                       (y + static_cast<std::size_t>(host_.param->samples_y) * z);
    }

    // Brings scalars, parameters and all arrays to the device.
    void upload() {
        forEachArray([](auto*& here, auto*& there, std::size_t size) {
            checkCudaErrors(cudaMemcpy(there, here, size * sizeof(*here), cudaMemcpyHostToDevice));
        });
        checkCudaErrors(
            cudaMemcpy(image_.param, host_.param, sizeof(MLFluidParam), cudaMemcpyHostToDevice));
        const mlFlow pointers = image_;
        image_ = host_;
        forEachDeviceArray([&](auto field, const char*, int) { image_.*field = pointers.*field; });
        checkCudaErrors(cudaMemcpy(device_, &image_, sizeof(mlFlow), cudaMemcpyHostToDevice));
    }

    // Brings the origin and all arrays back to the host record.
    void download() {
        mlFlow record;
        checkCudaErrors(cudaMemcpy(&record, device_, sizeof(mlFlow), cudaMemcpyDeviceToHost));
        host_.startx = record.startx;
        host_.starty = record.starty;
        host_.startz = record.startz;
        forEachArray([](auto*& here, auto*& there, std::size_t size) {
            checkCudaErrors(cudaMemcpy(here, there, size * sizeof(*here), cudaMemcpyDeviceToHost));
        });
    }

    // Copy one array. `there` is an array of deviceImage(); perNode is 27 for populations.
    template <class T>
    void copyUp(T* there, const T* here, std::size_t perNode = 1) const {
        checkCudaErrors(
            cudaMemcpy(there, here, perNode * nodes_ * sizeof(T), cudaMemcpyHostToDevice));
    }
    template <class T>
    void copyDown(T* here, const T* there, std::size_t perNode = 1) const {
        checkCudaErrors(
            cudaMemcpy(here, there, perNode * nodes_ * sizeof(T), cudaMemcpyDeviceToHost));
    }

    // A host array as a vector; perNode is 27 for populations.
    template <class T>
    std::vector<T> values(const T* array, int perNode = 1) const {
        return std::vector<T>(array, array + perNode * nodes_);
    }
    std::vector<float> values(const mlDensity<float>* density) const {
        std::vector<float> out(nodes_);
        for (std::size_t n = 0; n < nodes_; ++n) out[n] = density[n].value;
        return out;
    }

    // Overwrites host arrays with the "in_" arrays of a case that are named after a field.
    void load(const VectorCase& given) {
        loadArray(given, "in_f", host_.f);
        loadArray(given, "in_fPost", host_.fPost);
        loadArray(given, "in_ux", host_.ux);
        loadArray(given, "in_uy", host_.uy);
        loadArray(given, "in_uz", host_.uz);
        loadArray(given, "in_rou", host_.rou);
        loadArray(given, "in_forcex", host_.forcex);
        loadArray(given, "in_forcey", host_.forcey);
        loadArray(given, "in_forcez", host_.forcez);
        loadArray(given, "in_Sopt", host_.Sopt);
        loadArray(given, "in_flag", host_.flag);
        loadArray(given, "in_PML_type", host_.PML_type);
        loadArray(given, "in_sigma", host_.sigma);
        loadArray(given, "in_fEqTildeOld", host_.fEqTildeOld);
    }

    // Places the absorbing layer: quadratic damping towards the faces, and the class of each node.
    void layOut(float sigmaMax) {
        const MLFluidParam& p = *host_.param;
        const int w = p.pml_width;
        for (int z = 0; z < p.samples_z; ++z)
            for (int y = 0; y < p.samples_y; ++y)
                for (int x = 0; x < p.samples_x; ++x) {
                    const int far[3] = {p.samples_x - 1 - x, p.samples_y - 1 - y,
                                        p.samples_z - 1 - z};
                    const int depth = std::min({x, y, z, far[0], far[1], far[2]});
                    const int faces =
                        (x == 0 || far[0] == 0) + (y == 0 || far[1] == 0) + (z == 0 || far[2] == 0);
                    const std::size_t n = node(x, y, z);
                    const float d = static_cast<float>(w - depth);
                    host_.sigma[n] =
                        depth < w ? d * ((sigmaMax / static_cast<float>(w * w)) * d) : 0.0f;
                    PML_TYPE type = faces == 0 ? PML_INTERIOR : PML_EDGE;
                    if (faces == 1) {
                        type = x == 0        ? PML_FACE_LEFT
                               : far[0] == 0 ? PML_FACE_RIGHT
                               : y == 0      ? PML_FACE_DOWN
                               : far[1] == 0 ? PML_FACE_UP
                               : z == 0      ? PML_FACE_FORWARD
                                             : PML_FACE_BACK;
                    }
                    if (depth >= w) type = PML_NONE;
                    if (faces == 3) type = PML_CORNER;
                    host_.PML_type[n] = type;
                }
    }

private:
    // All arrays but the parameters.
    template <class Visit>
    void forEachArray(Visit&& visit) {
        forEachDeviceArray([&](auto field, const char*, int perNode) {
            if (perNode > 0) visit(host_.*field, image_.*field, perNode * nodes_);
        });
    }

    void allocateHost(int nx, int ny, int nz, int pml_width) {
        allocateHostArray(host_.param, 1);
        MLFluidParam& p = *host_.param;
        p.samples_x = nx;
        p.samples_y = ny;
        p.samples_z = nz;
        p.dx = 1.0f;
        p.width = static_cast<float>(nx);
        p.height = static_cast<float>(ny);
        p.depth = static_cast<float>(nz);
        p.reserved = 1;
        p.count32 = nx * ny * nz;
        p.pml_width = pml_width;
        host_.count = static_cast<std::int64_t>(nodes_);
        host_.v0k = 0.01f;
        host_.cs = 0.57735026f;
        forEachArray([](auto*& here, auto*&, std::size_t size) {
            allocateHostArray(here, static_cast<std::int64_t>(size));
        });
        for (std::size_t n = 0; n < nodes_; ++n) {
            host_.rou[n].value = 1.0f;
            host_.flag[n] = ML_NODE_FLUID;
            for (int i = 0; i < kDirections; ++i) {
                const std::size_t entry = i * nodes_ + n;
                host_.f[entry] = host_.fPost[entry] = host_.fEqBar[entry] = w_cas1[i];
            }
        }
    }

    template <class T>
    static void loadArray(const VectorCase& given, const char* name, T* into) {
        using Stored = std::conditional_t<std::is_enum_v<T>, std::int32_t,
                                          std::conditional_t<std::is_class_v<T>, float, T>>;
        if (!given.has(name)) return;
        const std::vector<Stored> values = given.array<Stored>(name);
        for (std::size_t i = 0; i < values.size(); ++i) {
            if constexpr (std::is_class_v<T>) {
                into[i].value = values[i];
            } else {
                into[i] = static_cast<T>(values[i]);
            }
        }
    }

    std::size_t nodes_;
    int deviceId_;
    mlFlow host_{};
    mlFlow image_{};
    mlFlow* device_ = nullptr;
};

}  // namespace drelt::test
