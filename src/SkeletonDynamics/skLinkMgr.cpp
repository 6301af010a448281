#include "SkeletonDynamics/skLinkMgr.h"

#include <dart/dynamics/BodyNode.hpp>

#include "SkeletonDynamics/requireFinite.h"
#include "platform/check.h"

namespace drelt {

namespace {

skLinkData restingRecord() {
    skLinkData record;
    record.transform = record.inverse = Eigen::Isometry3d::Identity();
    record.velocity.setZero();
    record.torque.setZero();
    record.force.setZero();
    record.isWorld = 0;
    return record;
}

}  // namespace

skLinkMgr::~skLinkMgr() { checkCudaErrors(cudaFree(this->link_data_device)); }

void skLinkMgr::add(const std::shared_ptr<skLink>& link) {
    links.push_back(link);
    byName[link->getName()] = link;
}

std::shared_ptr<skLink> skLinkMgr::find(const std::string& name) const {
    const auto found = byName.find(name);
    return found == byName.end() ? nullptr : found->second;
}

std::string skLinkMgr::listNames() const {
    std::string names;
    for (const auto& link : links) names += (names.empty() ? "'" : ", '") + link->getName() + "'";
    return names;
}

void skLinkMgr::allocateRecords() {
    link_data_host.assign(links.size(), restingRecord());
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaFree(this->link_data_device));
    // clang-format off
    checkCudaErrors(cudaMalloc((void **)&this->link_data_device, sizeof(skLinkData) * this->link_data_host.size()));
    // clang-format on
}

void skLinkMgr::refreshRecords() {
    for (std::size_t i = 0; i < links.size(); ++i) {
        const dart::dynamics::Frame& frame = *links[i]->frame();
        skLinkData& record = link_data_host[i];
        record.velocity = frame.getSpatialVelocity();
        record.transform = frame.getWorldTransform();
        record.inverse = record.transform.inverse();
        record.isWorld = frame.isWorld() ? 1.0 : 0.0;
    }
}

void skLinkMgr::copyToDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    // clang-format off
    checkCudaErrors(cudaMemcpy(this->link_data_device, this->link_data_host.data(), sizeof(skLinkData) * this->link_data_host.size(), cudaMemcpyHostToDevice));
    // clang-format on
}

void skLinkMgr::copyToHost() {
    checkCudaErrors(cudaSetDevice(gpuId));
    // clang-format off
    checkCudaErrors(cudaMemcpy(this->link_data_host.data(),this->link_data_device, sizeof(skLinkData) * this->link_data_host.size(), cudaMemcpyDeviceToHost));
    // clang-format on
}

void skLinkMgr::applyWrenches() {
    for (int i = 1; i < count() - 1; ++i) {
        requireStable(link_data_host[i].force, "fluid forces", links[i]->getName());
        requireStable(link_data_host[i].torque, "fluid torques", links[i]->getName());
    }
    for (int i = 1; i < count() - 1; ++i) {
        dart::dynamics::BodyNode& body = *links[i]->body();
        body.addExtForce(link_data_host[i].force, Eigen::Vector3d::Zero(), true, true);
        body.addExtTorque(link_data_host[i].torque, true);
    }
}

}  // namespace drelt
