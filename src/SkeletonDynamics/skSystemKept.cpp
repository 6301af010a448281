// What a body keeps between steps, and what tells bodies apart.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/DegreeOfFreedom.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/SimpleFrame.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <string>
#include <vector>

#include "Markers/Markers.h"
#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/JointPower.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/check.h"
#include "supplement/StateVisitor.h"

namespace drelt {

namespace {

// A link's record, without the padding at its end.
constexpr std::size_t kRecordNumbers = offsetof(skLinkData, isWorld) / sizeof(double) + 1;

using dart::dynamics::DegreeOfFreedom;
using dart::dynamics::Skeleton;

// DART's setters ignore a value that equals the present one, and so would keep the sign of a zero.
template <class Set>
void setExactly(double now, double value, Set&& set) {
    if (now == value && std::signbit(now) != std::signbit(value)) set(1.0);
    set(value);
}

void visitDofs(StateVisitor& state, const char* name, Skeleton& skeleton,
               double (DegreeOfFreedom::*get)() const, void (DegreeOfFreedom::*set)(double)) {
    std::vector<double> now;
    for (const DegreeOfFreedom* dof : skeleton.getDofs()) now.push_back((dof->*get)());
    state.numbers<double>(name, now.data(), now.size(), [=, &skeleton](const double* from) {
        for (DegreeOfFreedom* const dof : skeleton.getDofs()) {
            setExactly((dof->*get)(), *from++, [&](double value) { (dof->*set)(value); });
        }
    });
}

// Velocities and forces also set the commands of some actuators, so commands come last.
void visitJointState(StateVisitor& state, Skeleton& skeleton) {
    using D = DegreeOfFreedom;
    visitDofs(state, "positions", skeleton, &D::getPosition, &D::setPosition);
    visitDofs(state, "velocities", skeleton, &D::getVelocity, &D::setVelocity);
    visitDofs(state, "accelerations", skeleton, &D::getAcceleration, &D::setAcceleration);
    visitDofs(state, "forces", skeleton, &D::getForce, &D::setForce);
    visitDofs(state, "commands", skeleton, &D::getCommand, &D::setCommand);
}

void visitExternalForces(StateVisitor& state, Skeleton& skeleton) {
    for (std::size_t i = 0; i < skeleton.getNumBodyNodes(); ++i) {
        dart::dynamics::BodyNode& body = *skeleton.getBodyNode(i);
        const Eigen::Vector6d now = body.getExternalForceLocal();
        state.numbers<double>(
            "externalForce" + std::to_string(i), now.data(), 6, [&body](const double* from) {
                const Eigen::Vector6d wrench = Eigen::Map<const Eigen::Vector6d>(from);
                body.setAspectState(dart::dynamics::detail::BodyNodeState(wrench));
            });
    }
}

// The place of a joint in its parent, which setHead changes.
void visitAnchors(StateVisitor& state, Skeleton& skeleton) {
    for (std::size_t i = 0; i < skeleton.getNumJoints(); ++i) {
        dart::dynamics::Joint& joint = *skeleton.getJoint(i);
        const Eigen::Isometry3d now = joint.getTransformFromParentBodyNode();
        state.numbers<double>("anchor" + std::to_string(i), now.data(), 16,
                              [&joint](const double* from) {
                                  Eigen::Isometry3d place;
                                  std::copy_n(from, 16, place.data());
                                  joint.setTransformFromParentBodyNode(place);
                              });
    }
}

void visitFrame(StateVisitor& state, dart::dynamics::SimpleFrame& frame) {
    const Eigen::Isometry3d place = frame.getRelativeTransform();
    state.numbers<double>("framePose", place.data(), 16, [&frame](const double* from) {
        Eigen::Isometry3d pose;
        std::copy_n(from, 16, pose.data());
        frame.setRelativeTransform(pose);
    });
    const Eigen::Vector6d velocity = frame.getRelativeSpatialVelocity();
    state.numbers<double>("frameVelocity", velocity.data(), 6, [&frame](const double* from) {
        frame.setRelativeSpatialVelocity(Eigen::Map<const Eigen::Vector6d>(from));
    });
    const Eigen::Vector6d acceleration = frame.getRelativeSpatialAcceleration();
    state.numbers<double>(
        "frameAcceleration", acceleration.data(), 6, [&frame](const double* from) {
            frame.setRelativeSpatialAcceleration(Eigen::Map<const Eigen::Vector6d>(from));
        });
}

// FNV-1a (Fowler, Noll and Vo).
class Digest {
public:
    template <class T>
    void add(const T& value) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&value);
        for (std::size_t i = 0; i < sizeof(T); ++i) hash_ = (hash_ ^ bytes[i]) * 1099511628211U;
    }
    std::string text() const {
        char buffer[20];
        std::snprintf(buffer, sizeof buffer, "%016llx", static_cast<unsigned long long>(hash_));
        return buffer;
    }

private:
    std::uint64_t hash_ = 14695981039346656037U;
};

std::string number(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

}  // namespace

// The skin follows from the nodes. Link records, samples and markers are those of the last update, which may
// be older than the joint state.
void skSystem::visitState(StateVisitor& state) {
    checkCudaErrors(cudaSetDevice(gpuId));
    visitJointState(state, *skeleton_);
    visitExternalForces(state, *skeleton_);
    visitAnchors(state, *skeleton_);
    visitFrame(state, *movingFrame_);
    for (std::size_t i = 0; i < mesh().nodes->nodes.size(); ++i) {
        hierachyNode& node = *mesh().nodes->nodes[i];
        const std::string name = "node" + std::to_string(i);
        state.array(name + "Position", node.position.data(), 3);
        state.array(name + "Angles", node.eulerAngles.data(), 3);
    }
    for (Eigen::Vector3d* const axis : {&baseLinkFwd_, &baseLinkRight_, &baseLinkUp_}) {
        const char* const name = axis == &baseLinkFwd_     ? "forward"
                                 : axis == &baseLinkRight_ ? "right"
                                                           : "up";
        state.array(name, axis->data(), 3);
    }
    for (std::size_t i = 0; i < links_->link_data_host.size(); ++i) {
        const std::string name = "link" + std::to_string(i);
        double* const onDevice = links_->link_data_device[i].transform.data();
        state.array(name, links_->link_data_host[i].transform.data(), kRecordNumbers);
        state.deviceArray(name + "OnDevice", onDevice, kRecordNumbers);
    }
    state.group("samples", [&] { sampler_->boundaryMgr().visitState(state); });
    state.group("markers", [&] { markers_->visitState(state); });
    state.group("fluidForces", [&] { fluidForces_->visitState(state); });
    state.group("jointPower", [&] { jointPower_->visitState(state); });
}

void skSystem::stateLoaded() {
    checkCudaErrors(cudaSetDevice(gpuId));
    mesh().update(useGpuPath_, useGpuPath_);
    markers_->copyToDevice();
    if (!useGpuPath_) sampler_->copyToHost();
}

std::vector<std::string> skSystem::identity() const {
    std::vector<std::string> lines;
    for (int i = 1; i < links_->count() - 1; ++i) {
        const skLink& link = *links_->links[i];
        lines.push_back("link " + link.getName() + " = mass " + number(link.getMass()));
    }
    for (const auto& live : joints_->joints) {
        const dart::dynamics::Joint& joint = *live->joint();
        std::string line = "joint " + live->getName() + " = " + live->getJointType() +
                           ", actuator " + kActuatorWords[live->description()->actuator];
        for (std::size_t d = 0; d < joint.getNumDofs(); ++d) {
            line += ", from " + number(joint.getPositionLowerLimit(d)) + " to " +
                    number(joint.getPositionUpperLimit(d)) + ", spring " +
                    number(joint.getSpringStiffness(d)) + ", damping " +
                    number(joint.getDampingCoefficient(d));
        }
        lines.push_back(line);
    }
    lines.push_back("grid follows = " + (baseFrameName_.empty() ? "nothing" : baseFrameName_));
    lines.push_back("samples = " + std::to_string(sampler_->sampleCount()));
    lines.push_back("markers = " + std::to_string(markers_->count()));

    Digest inertia;
    for (const auto& link : links_->links) {
        for (Eigen::Index i = 0; i < 36; ++i) inertia.add(link->ownInertia().data()[i]);
    }
    lines.push_back("checksum of the inertia = " + inertia.text());
    Digest skin;
    for (const auto& part : mesh().meshes) {
        for (const Eigen::Vector3d& place : part->data_cpu.init_positions) {
            for (int a = 0; a < 3; ++a) skin.add(place[a]);
        }
    }
    lines.push_back("checksum of the skin = " + skin.text());
    Digest samples;
    for (const MeshSample& sample : sampler_->samples) {
        samples.add(sample.meshId);
        samples.add(sample.faceId);
        samples.add(sample.linkId);
        samples.add(sample.w0);
        samples.add(sample.w1);
    }
    samples.add(sampler_->retraction());
    if (sampler_->boundary() != nullptr) samples.add(sampler_->boundary()->sampleArea);
    lines.push_back("checksum of the samples = " + samples.text());
    return lines;
}

}  // namespace drelt
