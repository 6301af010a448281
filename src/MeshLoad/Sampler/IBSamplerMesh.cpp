#include "MeshLoad/Sampler/IBSamplerMesh.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMeshGpuKernel.h"
#include "MeshLoad/Sampler/SampleElimination.h"
#include "MeshLoad/Sampler/SampleInset.h"
#include "MeshLoad/Sampler/SampleOrder.h"
#include "platform/check.h"
#include "platform/runtime.h"

namespace drelt {

namespace {

constexpr unsigned kSeed = 12345;
constexpr int kCandidatesPerSample = 10;
// Memory of a candidate: point, record, weight and, during the elimination, its list of neighbours.
constexpr double kBytesPerCandidate = 1000;

// A mesh's candidates: points, and the sample that each would become.
struct Candidates {
    std::vector<Eigen::Vector3d> points;
    std::vector<MeshSample> samples;
};

// The whole part of a positive number; 0 for all others, as NaN from the share of an empty surface.
long long wholePart(double value) { return value >= 1.0 ? static_cast<long long>(value) : 0; }

// Draws ten candidates per wanted sample, distributed over the faces by area, on a coarse random grid in
// each triangle.
Candidates drawCandidates(const host_MeshData& mesh, unsigned meshId, long long wanted) {
    Candidates drawn;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        const MeshFace& face = mesh.faces[f];
        const Eigen::Vector3d& p0 = mesh.init_positions[face.vertexIds[0]];
        const Eigen::Vector3d& p1 = mesh.init_positions[face.vertexIds[1]];
        const Eigen::Vector3d& p2 = mesh.init_positions[face.vertexIds[2]];
        const long long count = wholePart(
            ((face.area / mesh.totalArea) * static_cast<double>(wanted)) * kCandidatesPerSample);
        for (long long i = 0; i < count; ++i) {
            double u = (std::rand() % 100) / 101.0;
            double v = (std::rand() % 100) / 101.0;
            if (u + v > 1) {
                u = 1 - u;
                v = 1 - v;
            }
            const double w = 1 - u - v;
            drawn.points.emplace_back((w * p0 + u * p1) + v * p2);
            drawn.samples.push_back({meshId, face.linkId, static_cast<std::uint32_t>(f), w, u, v});
        }
    }
    return drawn;
}

bool precedes(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
    return std::lexicographical_compare(a.data(), a.data() + 3, b.data(), b.data() + 3);
}

// Appends, for each chosen point in turn, the samples of all candidates at exactly this place, in the
// order of the candidates.
void appendAtPlaces(const Candidates& candidates, const std::vector<int>& chosen,
                    std::vector<MeshSample>& samples) {
    std::vector<int> byPlace(candidates.points.size());
    std::iota(byPlace.begin(), byPlace.end(), 0);
    const auto& points = candidates.points;
    std::stable_sort(byPlace.begin(), byPlace.end(),
                     [&](int a, int b) { return precedes(points[a], points[b]); });
    for (const int pick : chosen) {
        auto at = std::lower_bound(byPlace.begin(), byPlace.end(), pick,
                                   [&](int a, int b) { return precedes(points[a], points[b]); });
        for (; at != byPlace.end() && points[*at] == points[pick]; ++at) {
            samples.push_back(candidates.samples[*at]);
        }
    }
}

// Area of a disc with the largest radius that n Poisson-disk samples can have on an area [m^2]; 0 without
// samples.
float discArea(float totalArea, std::size_t n) {
    if (n == 0) return 0.0f;
    const double area = totalArea > 0 ? static_cast<double>(totalArea) : 1.0;
    const double radius = std::sqrt(area / static_cast<double>(n) / 3.4641016151377544);
    return static_cast<float>(radius * 3.1415926 * radius);
}

}  // namespace

IBSamplerMesh::IBSamplerMesh(SkeletalMesh* mesh, int device)
    : IBSampler(device), mesh_(mesh), mgr_(device) {}

IBSamplerMesh::~IBSamplerMesh() {
    if (boundary_ == nullptr) return;
    freeBoundary();
    IBSamplerMesh::freeDevice();
}

void IBSamplerMesh::requireSampleCount(int sampleNum) {
    if (sampleNum < 0) {
        throw std::invalid_argument("the number of samples is " + std::to_string(sampleNum) +
                                    "; it must be 0 or more");
    }
    const double candidates = static_cast<double>(sampleNum) * kCandidatesPerSample;
    if (candidates > std::numeric_limits<int>::max() ||
        candidates * kBytesPerCandidate > static_cast<double>(platform::availableHostBytes())) {
        throw std::invalid_argument("the number of samples is " + std::to_string(sampleNum) +
                                    ", more than memory allows; one or two samples per surface "
                                    "node are enough");
    }
}

void IBSamplerMesh::generateSamples(int sampleNum) {
    requireSampleCount(sampleNum);
    if (mesh_ == nullptr) return;
    if (boundary_ != nullptr) {
        freeBoundary();
        freeDevice();
    }
    placeSamples(sampleNum);
    if (retraction_ > 0) insets_ = sampleInsets(*mesh_, samples, retraction_);
    createBoundary(discArea(totalArea, samples.size()));
    updateOnHost();
    allocateDevice();
    copyToDevice();
}

void IBSamplerMesh::setRetraction(double distance) {
    std::vector<float> insets;
    if (mesh_ != nullptr) insets = sampleInsets(*mesh_, samples, distance);
    if (distance == 0) insets.clear();
    retraction_ = distance;
    insets_ = std::move(insets);
    if (boundary_ != nullptr) uploadInsets();
}

void IBSamplerMesh::beginCoupling(double spacing) {
    spacing_ = spacing;
    clearForces();
}

void IBSamplerMesh::clearForces() {
    if (boundary_ == nullptr) return;
    checkCudaErrors(cudaSetDevice(gpuId));
    double* const host[] = {boundary_->forcex, boundary_->forcey, boundary_->forcez};
    double* const device[] = {mgr_.forcex_dev, mgr_.forcey_dev, mgr_.forcez_dev};
    const std::size_t bytes = sizeof(double) * static_cast<std::size_t>(boundary_->count);
    for (int a = 0; a < 3; ++a) {
        std::fill_n(host[a], boundary_->count, 0.0);
        checkCudaErrors(cudaMemcpy(device[a], host[a], bytes, cudaMemcpyHostToDevice));
    }
}

void IBSamplerMesh::placeSamples(int sampleNum) {
    samples.clear();
    sampleLinks.clear();
    for (const auto& mesh : mesh_->meshes) {
        totalArea += static_cast<float>(mesh->data_cpu.totalArea);
    }
    std::srand(kSeed);
    for (std::size_t m = 0; m < mesh_->meshes.size(); ++m) {
        const host_MeshData& mesh = mesh_->meshes[m]->data_cpu;
        const long long wanted = wholePart(static_cast<double>(sampleNum) *
                                           (mesh.totalArea / static_cast<double>(totalArea)));
        const Candidates candidates = drawCandidates(mesh, static_cast<unsigned>(m), wanted);
        appendAtPlaces(
            candidates,
            eliminateSamples(candidates.points, static_cast<int>(wanted), mesh.totalArea), samples);
    }
    if (static_cast<double>(samples.size()) < 0.9 * sampleNum) {
        std::printf(
            "[warning] %zu of %d wanted samples were placed: triangles smaller than a tenth of a "
            "sample's area get none, and each repeated sampling counts the surface again; ask for "
            "more samples\n",
            samples.size(), sampleNum);
    }
    sortByLinkAndPlace(samples, *mesh_);
    for (const MeshSample& sample : samples) sampleLinks.push_back(sample.linkId);
    sampleWrenches.resize(samples.size(), Eigen::Matrix<double, 6, 1>::Zero());
}

void IBSamplerMesh::createBoundary(float sampleArea) {
    const std::size_t n = samples.size();
    boundary_ = new mlLagrangeBoundary{};
    mlLagrangeBoundary& b = *boundary_;
    for (float** array : {&b.coordx, &b.coordy, &b.coordz, &b.normalx, &b.normaly, &b.normalz,
                          &b.coordInitx, &b.coordInity, &b.coordInitz, &b.ux, &b.uy, &b.uz}) {
        *array = new float[n]{};
    }
    for (double** array : {&b.forcex, &b.forcey, &b.forcez}) *array = new double[n]{};
    b.rou = new mlDensity<float>[n];
    std::fill_n(b.rou, n, mlDensity<float>{1.0f});
    b.sampleArea = sampleArea;
    b.count = static_cast<int>(n);
    b.reservedOne = 1.0f;
}

void IBSamplerMesh::freeBoundary() {
    mlLagrangeBoundary& b = *boundary_;
    b.count = 0;
    for (float* array : {b.coordx, b.coordy, b.coordz, b.normalx, b.normaly, b.normalz,
                         b.coordInitx, b.coordInity, b.coordInitz, b.ux, b.uy, b.uz}) {
        delete[] array;
    }
    for (double* array : {b.forcex, b.forcey, b.forcez}) delete[] array;
    delete[] b.rou;
    delete boundary_;
    boundary_ = nullptr;
}

void IBSamplerMesh::updateOnHost() {
    if (boundary_ == nullptr) {
        std::printf(" Error boundary host data not setted");  // sic: prescribed text
        return;
    }
    mlLagrangeBoundary& b = *boundary_;
    const int count = sampleCount();
#pragma omp parallel for schedule(static)
    for (int i = 0; i < count; ++i) {
        const MeshSample& s = samples[i];
        const host_MeshData& mesh = mesh_->meshes[s.meshId]->data_cpu;
        const std::int32_t* const v = mesh.faces[s.faceId].vertexIds;
        const auto& positions = mesh.curr_positions;
        const auto& normals = mesh.curr_normals;
        Eigen::Vector3f position =
            (s.w0 * positions[v[0]] + s.w1 * positions[v[1]] + s.w2 * positions[v[2]])
                .cast<float>();
        const Eigen::Vector3f normal =
            (s.w0 * normals[v[0]] + s.w1 * normals[v[1]] + s.w2 * normals[v[2]]).cast<float>();
        if (!insets_.empty()) {
            moveInside(insets_[i], normal.data(), normal.norm(), position.data());
        }
        b.coordx[i] = b.coordInitx[i] = position.x();
        b.coordy[i] = b.coordInity[i] = position.y();
        b.coordz[i] = b.coordInitz[i] = position.z();
        b.normalx[i] = normal.x();
        b.normaly[i] = normal.y();
        b.normalz[i] = normal.z();
    }
}

void IBSamplerMesh::updateOnDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    for (std::size_t m = 0; m < mesh_->meshes.size(); ++m) {
        const device_MeshData& mesh = mesh_->meshes[m]->data_gpu;
        updateSamplesPosNormal(static_cast<int>(m), mesh.faces, samples_dev, mesh.curr_positions,
                               mesh.curr_normals, mgr_.coordx_dev, mgr_.coordy_dev, mgr_.coordz_dev,
                               mgr_.normalx_dev, mgr_.normaly_dev, mgr_.normalz_dev, insets_dev_,
                               sampleCount());
    }
}

void IBSamplerMesh::allocateDevice() {
    using Wrench = Eigen::Matrix<double, 6, 1>;
    checkCudaErrors(cudaSetDevice(gpuId));
    const std::size_t n = samples.size();
    checkCudaErrors(cudaMalloc(&samples_dev, n * sizeof(MeshSample)));
    checkCudaErrors(cudaMalloc(&sampleLinks_dev, n * sizeof(int)));
    checkCudaErrors(cudaMalloc(&sampleWrenches_dev, n * sizeof(Wrench)));
    checkCudaErrors(
        cudaMemcpy(samples_dev, samples.data(), n * sizeof(MeshSample), cudaMemcpyHostToDevice));
    checkCudaErrors(
        cudaMemcpy(sampleLinks_dev, sampleLinks.data(), n * sizeof(int), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(sampleWrenches_dev, sampleWrenches.data(), n * sizeof(Wrench),
                               cudaMemcpyHostToDevice));
    uploadInsets();
    mgr_.bindHostRecord(boundary_);
    mgr_.allocate();
}

void IBSamplerMesh::uploadInsets() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaFree(insets_dev_));
    insets_dev_ = nullptr;
    if (insets_.empty()) return;
    const std::size_t bytes = insets_.size() * sizeof(float);
    checkCudaErrors(cudaMalloc(&insets_dev_, bytes));
    checkCudaErrors(cudaMemcpy(insets_dev_, insets_.data(), bytes, cudaMemcpyHostToDevice));
}

void IBSamplerMesh::freeDevice() {
    checkCudaErrors(cudaFree(samples_dev));
    checkCudaErrors(cudaFree(sampleLinks_dev));
    checkCudaErrors(cudaFree(sampleWrenches_dev));
    checkCudaErrors(cudaFree(insets_dev_));
    samples_dev = nullptr;
    sampleLinks_dev = nullptr;
    sampleWrenches_dev = nullptr;
    insets_dev_ = nullptr;
    mgr_.free();
}

void IBSamplerMesh::copyToDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(samples_dev, samples.data(), samples.size() * sizeof(MeshSample),
                               cudaMemcpyHostToDevice));
    mgr_.upload();
    hostDirty = false;
}

void IBSamplerMesh::copyToHost() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(samples.data(), samples_dev, samples.size() * sizeof(MeshSample),
                               cudaMemcpyDeviceToHost));
    mgr_.download();
    deviceDirty = false;
}

void IBSamplerMesh::update(bool onDevice, bool fetch) {
    if (!onDevice) {
        updateOnHost();
        hostDirty = true;
        deviceDirty = false;
        return;
    }
    if (boundary_ == nullptr) return;
    if (hostDirty) copyToDevice();
    updateOnDevice();
    if (fetch) {
        copyToHost();
    } else {
        hostDirty = false;
        deviceDirty = true;
    }
}

}  // namespace drelt
