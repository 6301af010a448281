#include "Markers/Markers.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include "Markers/MarkersGPUKernel.h"
#include "platform/check.h"
#include "supplement/StateVisitor.h"

namespace drelt {

namespace {

// The vertex that a marker sits on. The ids are -1 if no vertex is within reach.
struct NearestVertex {
    int meshId = -1;
    int vId = -1;
    Eigen::Vector3d pos = Eigen::Vector3d::Zero();
    Eigen::Vector3d normal = Eigen::Vector3d::Zero();
};

// Compares distances in single precision. Of several nearest vertices the first wins.
NearestVertex nearestVertex(const Eigen::Vector3d& place, const SkeletalMesh& mesh) {
    NearestVertex nearest;
    float best = 1e8f;
    for (std::size_t m = 0; m < mesh.meshes.size(); ++m) {
        const host_MeshData& data = mesh.meshes[m]->data_cpu;
        for (std::size_t v = 0; v < data.curr_positions.size(); ++v) {
            const float distance = static_cast<float>((place - data.curr_positions[v]).norm());
            if (!(best > distance)) continue;
            best = distance;
            nearest = {static_cast<int>(m), static_cast<int>(v), data.curr_positions[v],
                       data.curr_normals[v]};
        }
    }
    return nearest;
}

// On the device, a marker follows the vertex of the first mesh that has the index of its own vertex. Warns if
// the marker's vertex belongs to another mesh; throws if the first mesh has no vertex with that index.
void checkFollowsFirstMesh(std::size_t marker, const NearestVertex& vertex,
                           const SkeletalMesh& mesh) {
    if (vertex.meshId <= 0) return;
    const std::string what = "marker " + std::to_string(marker) + " is nearest to vertex " +
                             std::to_string(vertex.vId) + " of mesh " +
                             std::to_string(vertex.meshId) + ", but markers follow mesh 0";
    const std::size_t vertices = mesh.meshes[0]->data_cpu.curr_positions.size();
    if (static_cast<std::size_t>(vertex.vId) >= vertices) {
        throw std::invalid_argument(what + ", which has only " + std::to_string(vertices) +
                                    " vertices: place the marker on the first mesh");
    }
    std::printf("[warning] %s: it will follow the vertex of that index there\n", what.c_str());
}

}  // namespace

Markers::Markers(int device) : twoSideDataWrapper(device) {}

Markers::~Markers() { Markers::freeDevice(); }

void Markers::addMarker(int meshId, int vId, const Eigen::Vector3d& pos,
                        const Eigen::Vector3d& normal) {
    data_cpu.vId.push_back(vId);
    data_cpu.meshId.push_back(meshId);
    data_cpu.pos.push_back(pos);
    data_cpu.normal.push_back(normal);
    data_cpu.velocity.emplace_back(Eigen::Vector3d::Zero());
    data_cpu.pressure.push_back(1.0f);
}

void Markers::place(const std::vector<Eigen::Vector3d>& placements, const SkeletalMesh& mesh) {
    std::vector<NearestVertex> found;
    for (std::size_t i = 0; i < placements.size(); ++i) {
        found.push_back(nearestVertex(placements[i], mesh));
        checkFollowsFirstMesh(i, found.back(), mesh);
    }
    for (const NearestVertex& v : found) addMarker(v.meshId, v.vId, v.pos, v.normal);
    allocateDevice();
    copyToDevice();
}

void Markers::updatePosNormal(const SkeletalMesh& mesh, bool onDevice) {
    if (onDevice) {
        if (mesh.meshes.empty()) return;
        checkCudaErrors(cudaSetDevice(gpuId));
        const device_MeshData& first = mesh.meshes[0]->data_gpu;
        copyMarkersPosNormalGPU(data_gpu.vId, data_gpu.pos, data_gpu.normal, first.curr_positions,
                                first.curr_normals, count());
        copyToHost();
        return;
    }
    for (int i = 0; i < count(); ++i) {
        if (data_cpu.vId[i] < 0) continue;
        const host_MeshData& followed = mesh.meshes[data_cpu.meshId[i]]->data_cpu;
        data_cpu.pos[i] = followed.curr_positions[data_cpu.vId[i]];
        data_cpu.normal[i] = followed.curr_normals[data_cpu.vId[i]];
    }
    copyToDevice();  // sample reads the positions on the device and copies them back
}

std::vector<NodeBox> Markers::cells(const mlFlow& flow) const {
    const MLFluidParam& grid = *flow.param;
    std::vector<NodeBox> cells;
    cells.reserve(data_cpu.pos.size());
    for (int i = 0; i < count(); ++i) {
        const Eigen::Vector3d& place = data_gpu.pos[i];
        const int x = markerCell(static_cast<float>(place.x()), flow.startx, grid.width,
                                 grid.samples_x, grid.dx)
                          .index;
        const int y = markerCell(static_cast<float>(place.y()), flow.starty, grid.height,
                                 grid.samples_y, grid.dx)
                          .index;
        const int z = markerCell(static_cast<float>(place.z()), flow.startz, grid.depth,
                                 grid.samples_z, grid.dx)
                          .index;
        cells.push_back({x, y, z, x + 2, y + 2, z + 2});
    }
    return cells;
}

void Markers::sample(mlFlow* flow) {
    checkCudaErrors(cudaSetDevice(gpuId));
    getMarkersPropertiesGPU(flow, data_gpu.pos, data_gpu.velocity, data_gpu.pressure, count());
    copyToHost();
}

void Markers::visitState(StateVisitor& state) {
    const auto vectors = [&](const char* name, std::vector<Eigen::Vector3d>& list) {
        state.array(name, list.empty() ? nullptr : list.front().data(), 3 * list.size());
    };
    vectors("positions", data_cpu.pos);
    vectors("normals", data_cpu.normal);
    vectors("velocities", data_cpu.velocity);
    state.array("pressures", data_cpu.pressure.data(), data_cpu.pressure.size());
}

// Failure messages quote the statements as they stand here.
// clang-format off
void Markers::allocateDevice() {
    freeDevice();
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.vId, sizeof(int)*data_cpu.vId.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.vId,data_cpu.vId.data(), sizeof(int)*data_cpu.vId.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.pos, sizeof(Eigen::Vector3d)*data_cpu.pos.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.pos,data_cpu.pos.data(), sizeof(Eigen::Vector3d)*data_cpu.pos.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.normal, sizeof(Eigen::Vector3d)*data_cpu.normal.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.normal,data_cpu.normal.data(), sizeof(Eigen::Vector3d)*data_cpu.normal.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.pressure, sizeof(float)*data_cpu.pressure.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.pressure,data_cpu.pressure.data(), sizeof(float)*data_cpu.pressure.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.velocity, sizeof(Eigen::Vector3d)*data_cpu.velocity.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.velocity,data_cpu.velocity.data(), sizeof(Eigen::Vector3d)*data_cpu.velocity.size(),cudaMemcpyHostToDevice));
}

void Markers::copyToDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(data_gpu.vId,data_cpu.vId.data(), sizeof(int)*data_cpu.vId.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(data_gpu.pos,data_cpu.pos.data(), sizeof(Eigen::Vector3d)*data_cpu.pos.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(data_gpu.normal,data_cpu.normal.data(), sizeof(Eigen::Vector3d)*data_cpu.normal.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(data_gpu.velocity,data_cpu.velocity.data(), sizeof(Eigen::Vector3d)*data_cpu.velocity.size(),cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(data_gpu.pressure,data_cpu.pressure.data(), sizeof(float)*data_cpu.pressure.size(),cudaMemcpyHostToDevice));
    hostDirty = false;
}

void Markers::copyToHost() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(data_cpu.pos.data(),data_gpu.pos, sizeof(Eigen::Vector3d)*data_cpu.pos.size(),cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(data_cpu.velocity.data(),data_gpu.velocity, sizeof(Eigen::Vector3d)*data_cpu.velocity.size(),cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(data_cpu.normal.data(),data_gpu.normal, sizeof(Eigen::Vector3d)*data_cpu.normal.size(),cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(data_cpu.pressure.data(),data_gpu.pressure, sizeof(float)*data_cpu.pressure.size(),cudaMemcpyDeviceToHost));
    deviceDirty = false;
}

void Markers::freeDevice() {
    checkCudaErrors(cudaFree(data_gpu.vId));
    checkCudaErrors(cudaFree(data_gpu.pos));
    checkCudaErrors(cudaFree(data_gpu.normal));
    checkCudaErrors(cudaFree(data_gpu.pressure));
    checkCudaErrors(cudaFree(data_gpu.velocity));
    data_gpu = {};
    hostDirty = false;
    deviceDirty = false;
}
// clang-format on

}  // namespace drelt
