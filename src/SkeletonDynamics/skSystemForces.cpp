// Forces of a medium on a body's links, and velocities of its samples, on the device or on the host.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/KeptSamples.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"
#include "SkeletonDynamics/skSystem_GPU.h"
#include "platform/check.h"

namespace drelt {

namespace {

constexpr double kMediumDensity = 1000.0;  // of the empirical model

void storeWrenches(const std::vector<LinkWrench>& wrenches, std::vector<skLinkData>& records) {
    for (std::size_t k = 0; k < records.size(); ++k) {
        records[k].torque = wrenches[k].head<3>();
        records[k].force = wrenches[k].tail<3>();
    }
}

// Force of the flat-plate model on one face, in world axes. It acts at `centre`.
Eigen::Vector3d plateForce(const host_MeshData& data, const MeshFace& face, const skLink& link,
                           const Eigen::Vector3d& centre) {
    const Eigen::Vector3d& a = data.curr_positions[face.vertexIds[0]];
    const Eigen::Vector3d& b = data.curr_positions[face.vertexIds[1]];
    const Eigen::Vector3d& c = data.curr_positions[face.vertexIds[2]];
    Eigen::Vector3d normal =
        (data.curr_normals[face.vertexIds[0]] + data.curr_normals[face.vertexIds[1]] +
         data.curr_normals[face.vertexIds[2]]) /
        3;
    if (normal.squaredNorm() > 0) normal.normalize();
    const double area = 0.5 * (b - a).cross(c - a).norm();
    const double speed = std::min(link.getVelocityAt(centre).dot(normal), 0.0);
    return -area * normal * speed * kMediumDensity;
}

}  // namespace

// Each link gets the volume inside its faces at rest.
void skSystem::makeFluidForces() {
    std::vector<Eigen::Vector3d> vertices;
    std::vector<FaceVertices> triangles;
    std::vector<std::int32_t> labels;
    for (const auto& part : mesh().meshes) {
        const host_MeshData& data = part->data_cpu;
        const auto first = static_cast<std::int32_t>(vertices.size());
        vertices.insert(vertices.end(), data.curr_positions.begin(), data.curr_positions.end());
        for (const MeshFace& face : data.faces) {
            const std::int32_t* const v = face.vertexIds;
            triangles.push_back({first + v[0], first + v[1], first + v[2]});
            labels.push_back(face.linkId);
        }
    }
    std::vector<VolumeMoments> inside =
        volumeMomentsOfParts(vertices, triangles, labels, links_->count());
    for (int i = 1; i < links_->count() - 1; ++i)
        inside[i] = inside[i].movedBy(links_->links[i]->description()->transform.inverse());
    fluidForces_ = std::make_shared<FluidForces>(std::move(inside));
    for (int i = 1; i < links_->count() - 1; ++i) links_->links[i]->readForces(fluidForces_, i);
}

ForceAndTorque skSystem::getFluidWrench(FluidForce which) const {
    requireMass("getFluidWrench");
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();
    for (int i = 1; i < links_->count() - 1; ++i)
        centre += links_->links[i]->getMass() / ownMass() * fluidForces_->place(i);
    ForceAndTorque sum;
    for (int i = 1; i < links_->count() - 1; ++i) {
        const ForceAndTorque link = fluidForces_->on(i, which);
        sum.force += link.force;
        sum.torque += link.torque + (fluidForces_->place(i) - centre).cross(link.force);
    }
    return sum;
}

void skSystem::applyFluidForce(float scale) {
    checkCudaErrors(cudaSetDevice(gpuId));
    if (useGpuPath_) {
        reduction_->reduce(links_->link_data_device, sampler_->boundaryMgr().mllaboundary_gpu,
                           sampler_->sampleLinks_dev, sampler_->sampleWrenches_dev, links_->count(),
                           sampler_->sampleCount(), scale);
        links_->copyToHost();
    } else {
        sumWrenchesOnHost(scale);
    }
    links_->applyWrenches();
}

void skSystem::keepFluidForce(float scale, double density, double dt) {
    checkCudaErrors(cudaSetDevice(gpuId));
    if (!keptSamples_) keptSamples_ = std::make_unique<KeptSamples>();
    keptSamples_->keep(sampler_->boundaryMgr());
    fluidForces_->recordExplicit(links_->link_data_host, density, dt);
    fluidForces_->postpone(links_->link_data_host, [this, scale](std::vector<skLinkData>& records) {
        checkCudaErrors(cudaSetDevice(gpuId));
        keptSamples_->sum(sampler_->boundaryMgr(), sampler_->sampleLinks, scale, records);
    });
}

void skSystem::sumWrenchesOnHost(float scale) {
    sampler_->copyToHost();
    std::vector<LinkWrench> sums(links_->links.size(), LinkWrench::Zero());
    for (int i = 0; i < sampler_->sampleCount(); ++i) {
        calExtForcesKernel({i, 0, 0, i}, links_->link_data_host.data(), sampler_->boundary(),
                           sampler_->sampleLinks.data(), sampler_->sampleWrenches.data(),
                           links_->count(), sampler_->sampleCount(), scale);
        sums[sampler_->sampleLinks[i]] += sampler_->sampleWrenches[i];
    }
    storeWrenches(sums, links_->link_data_host);
}

void skSystem::updateSampleVelocitiesOnHost() {
    for (int i = 0; i < sampler_->sampleCount(); ++i) {
        updateSampleVelKernel({i, 0, 0, i}, sampler_->boundary(), sampler_->sampleLinks.data(),
                              links_->link_data_host.data(), frameLinkIndex_, worldLinkIndex_,
                              sampler_->sampleCount());
    }
    sampler_->copyToDevice();
}

// Uses the poses and link records of the last update, so the force lags the dynamics by one step.
void skSystem::applyEmpiricalForce() {
    std::vector<LinkWrench> sums(links_->links.size(), LinkWrench::Zero());
    for (const auto& part : mesh().meshes) {
        // after an update with samples, only the device has the current skin
        if (part->deviceDirty) part->copyToHost();
        const host_MeshData& data = part->data_cpu;
        for (const MeshFace& face : data.faces) {
            const Eigen::Vector3d centre =
                (data.curr_positions[face.vertexIds[0]] + data.curr_positions[face.vertexIds[1]] +
                 data.curr_positions[face.vertexIds[2]]) /
                3;
            const Eigen::Vector3d force =
                plateForce(data, face, *links_->links[face.linkId], centre);
            const skLinkData& record = links_->link_data_host[face.linkId];
            const Eigen::Vector3d arm = record.inverse * centre;
            const Eigen::Vector3d localForce = record.transform.linear().transpose() * force;
            sums[face.linkId].head<3>() += arm.cross(localForce);
            sums[face.linkId].tail<3>() += localForce;
        }
    }
    storeWrenches(sums, links_->link_data_host);
    links_->applyWrenches();
}

}  // namespace drelt
