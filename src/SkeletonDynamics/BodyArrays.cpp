#include "SkeletonDynamics/BodyArrays.h"

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/check.h"

namespace drelt::BodyArrays {

namespace {

// Fetches three device arrays, one per axis, into the columns of a matrix. The device holds the newest samples
// under both update paths.
template <class T>
Rows fetched(const IBSamplerMesh& sampler, const T* const (&axes)[3]) {
    Rows rows(sampler.sampleCount(), 3);
    if (rows.rows() == 0) return rows;
    checkCudaErrors(cudaSetDevice(sampler.gpuId));
    Eigen::Matrix<T, Eigen::Dynamic, 1> column(rows.rows());
    const std::size_t bytes = sizeof(T) * static_cast<std::size_t>(rows.rows());
    for (int a = 0; a < 3; ++a) {
        checkCudaErrors(cudaMemcpy(column.data(), axes[a], bytes, cudaMemcpyDeviceToHost));
        rows.col(a) = column.template cast<double>();
    }
    return rows;
}

// The first vertex of each mesh, and the number of all.
std::vector<Eigen::Index> vertexStarts(const SkeletalMesh& mesh) {
    std::vector<Eigen::Index> starts{0};
    for (const auto& part : mesh.meshes) {
        const auto count = static_cast<Eigen::Index>(part->data_cpu.curr_positions.size());
        starts.push_back(starts.back() + count);
    }
    return starts;
}

Eigen::Index faceCount(const SkeletalMesh& mesh) {
    std::size_t count = 0;
    for (const auto& part : mesh.meshes) count += part->data_cpu.faces.size();
    return static_cast<Eigen::Index>(count);
}

}  // namespace

Rows samplePositions(const skSystem& body) {
    IBBoundaryMemMgr& device = body.sampler().boundaryMgr();
    return fetched<float>(body.sampler(),
                          {device.coordx_dev, device.coordy_dev, device.coordz_dev});
}

Rows sampleVelocities(const skSystem& body) {
    Rows rows = samplePositions(body);
    const std::vector<int>& labels = body.sampler().sampleLinks;
    for (Eigen::Index i = 0; i < rows.rows(); ++i) {
        const skLink& link = *body.links().links[labels[i]];
        const Eigen::Vector3d place = rows.row(i);
        rows.row(i) = link.getVelocityAt(place);
    }
    return rows;
}

// The samples keep force densities in volumes of their area times the node spacing.
Rows sampleForces(const skSystem& body) {
    IBBoundaryMemMgr& device = body.sampler().boundaryMgr();
    return body.sampler().spacing() * sampleArea(body) *
           fetched<double>(body.sampler(),
                           {device.forcex_dev, device.forcey_dev, device.forcez_dev});
}

Indices sampleLinks(const skSystem& body) {
    const std::vector<int>& labels = body.sampler().sampleLinks;
    return Eigen::Map<const Indices>(labels.data(), static_cast<Eigen::Index>(labels.size()));
}

double sampleArea(const skSystem& body) {
    const mlLagrangeBoundary* const boundary = body.sampler().boundary();
    return boundary != nullptr ? boundary->sampleArea : 0.0;
}

Rows skinVertices(const skSystem& body) {
    const SkeletalMesh& mesh = *body.description()->mesh;
    const std::vector<Eigen::Index> starts = vertexStarts(mesh);
    Rows rows(starts.back(), 3);
    for (std::size_t m = 0; m < mesh.meshes.size(); ++m) {
        const MeshData& part = *mesh.meshes[m];
        std::vector<Eigen::Vector3d> vertices = part.data_cpu.curr_positions;
        if (part.deviceDirty) {
            checkCudaErrors(cudaSetDevice(part.gpuId));
            checkCudaErrors(cudaMemcpy(vertices.data(), part.data_gpu.curr_positions,
                                       sizeof(Eigen::Vector3d) * vertices.size(),
                                       cudaMemcpyDeviceToHost));
        }
        for (std::size_t v = 0; v < vertices.size(); ++v) {
            rows.row(starts[m] + static_cast<Eigen::Index>(v)) = vertices[v];
        }
    }
    return rows;
}

IndexRows skinFaces(const skSystem& body) {
    const SkeletalMesh& mesh = *body.description()->mesh;
    const std::vector<Eigen::Index> starts = vertexStarts(mesh);
    IndexRows rows(faceCount(mesh), 3);
    Eigen::Index f = 0;
    for (std::size_t m = 0; m < mesh.meshes.size(); ++m) {
        const auto start = static_cast<std::int32_t>(starts[m]);
        for (const MeshFace& face : mesh.meshes[m]->data_cpu.faces) {
            for (int corner = 0; corner < 3; ++corner) {
                rows(f, corner) = start + face.vertexIds[corner];
            }
            ++f;
        }
    }
    return rows;
}

Indices skinFaceLinks(const skSystem& body) {
    const SkeletalMesh& mesh = *body.description()->mesh;
    Indices links(faceCount(mesh));
    Eigen::Index f = 0;
    for (const auto& part : mesh.meshes) {
        for (const MeshFace& face : part->data_cpu.faces) links[f++] = face.linkId;
    }
    return links;
}

std::vector<std::string> linkNames(const skSystem& body) {
    std::vector<std::string> names;
    for (const auto& link : body.links().links) names.push_back(link->getName());
    return names;
}

}  // namespace drelt::BodyArrays
