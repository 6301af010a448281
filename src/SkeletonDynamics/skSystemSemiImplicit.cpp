// The semi-implicit coupling of a body, and the masses that each coupling needs.
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <sstream>
#include <stdexcept>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/DescriptionCheck.h"
#include "SkeletonDynamics/SemiImplicitLinks.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/check.h"

namespace drelt {

namespace {

using dart::dynamics::BodyNode;
using dart::dynamics::Joint;

bool movedByForces(const Joint& joint) {
    const auto actuator = joint.getActuatorType();
    return joint.getNumDofs() > 0 && actuator != Joint::ACCELERATION &&
           actuator != Joint::VELOCITY && actuator != Joint::LOCKED;
}

// Own mass of a link and of all links that hang on it.
double massFrom(const skLinkMgr& links, const BodyNode& body) {
    double mass = links.find(body.getName())->getMass();
    for (std::size_t i = 0; i < body.getNumChildBodyNodes(); ++i) {
        mass += massFrom(links, *body.getChildBodyNode(i));
    }
    return mass;
}

// All samples count, wherever they are.
SampleGrid everywhere(double fluidDensity) {
    return {nullptr, 0, 0, 0, 0.0f, 0.0f, static_cast<float>(fluidDensity)};
}

// A copy of the device record's head for loops on the host.
struct HostGrid {
    explicit HostGrid(const SampleGrid& given) : grid(given) {
        if (given.flow == nullptr) return;
        checkCudaErrors(cudaMemcpy(&flow, given.flow, sizeof flow, cudaMemcpyDeviceToHost));
        grid.flow = &flow;
    }
    mlFlow flow{};
    SampleGrid grid;
};

// The weights of a body's samples for loops on the host.
struct HostWeights {
    explicit HostWeights(IBSamplerMesh& sampler) {
        const double* const there = sampler.boundaryMgr().weights_dev;
        if (there == nullptr) return;
        values.resize(static_cast<std::size_t>(sampler.sampleCount()));
        checkCudaErrors(cudaMemcpy(values.data(), there, values.size() * sizeof(double),
                                   cudaMemcpyDeviceToHost));
    }
    const double* data() const { return values.empty() ? nullptr : values.data(); }
    std::vector<double> values;
};

// Gives the samples weights for the scope; null: 1 for all.
class ScopedWeights {
public:
    ScopedWeights(IBBoundaryMemMgr& boundary, const std::vector<double>* weights)
        : boundary_(boundary) {
        boundary.dropWeights();
        if (weights == nullptr) return;
        boundary.reserveWeights();
        checkCudaErrors(cudaMemcpy(boundary.weights_dev, weights->data(),
                                   weights->size() * sizeof(double), cudaMemcpyHostToDevice));
    }
    ~ScopedWeights() { boundary_.dropWeights(); }
    ScopedWeights(const ScopedWeights&) = delete;
    ScopedWeights& operator=(const ScopedWeights&) = delete;

private:
    IBBoundaryMemMgr& boundary_;
};

}  // namespace

bool skSystem::ownMassesPositive() const {
    for (int i = 1; i < links_->count() - 1; ++i) {
        if (!(links_->links[i]->getMass() > 0)) return false;
    }
    return true;
}

std::string skSystem::findMassObstacle() const {
    const auto refusal = [](const char* what, const skLink& link, double mass, const char* need) {
        std::ostringstream text;
        text << "the description's " << what << " of the link '" << link.getName() << "': got ("
             << mass << "); " << need
             << ". Only TWO_WAY steps with the semi-implicit coupling work without";
        return text.str();
    };
    for (int i = 1; i < links_->count() - 1; ++i) {
        const skLink& link = *links_->links[i];
        if (link.getMass() < 0)
            return refusal("mass", link, link.getMass(), "give zero or more, up to 1e30");
        const double all = massFrom(*links_, *link.body());
        if (all < kLeastMass && movedByForces(*link.body()->getParentJoint()))
            return refusal("mass with all that hangs on it", link, all,
                           "give positive numbers, from 1e-30 to 1e30");
    }
    return {};
}

void skSystem::requireSampleMasses(double fluidDensity, double dx,
                                   const std::vector<double>* weights) {
    SemiImplicitLinks& carriers = semiImplicit();
    const ScopedWeights given(sampler_->boundaryMgr(), weights);
    const std::vector<LinkMassSums> sums =
        sumSampleMasses(everywhere(fluidDensity), static_cast<float>(dx));
    for (int i = 1; i < links_->count() - 1; ++i) {
        const skLink& link = *links_->links[i];
        const double limit = -kHeldShare * sums[i][0];
        if (link.getMass() >= 0 || link.getMass() > limit) continue;
        std::ostringstream text;
        text << "the mass of the link '" << link.getName() << "' of '" << skeleton_->getName()
             << "' is " << link.getMass() << " kg; the semi-implicit coupling needs more than "
             << limit << " kg: "
             << (weights == nullptr
                     ? "-0.45 times fluid density, wetted area and node spacing"
                     : "-0.496 times the mass that its samples add with normalised weights");
        throw std::invalid_argument(text.str());
    }
    const std::string weak = carriers.weakness(sums);
    if (!weak.empty())
        throw std::invalid_argument("the semi-implicit coupling cannot move '" +
                                    skeleton_->getName() + "': " + weak);
}

SemiImplicitLinks& skSystem::semiImplicit() {
    if (!semiImplicit_) {
        semiImplicit_ = std::make_unique<SemiImplicitLinks>(*links_);
        sampleMasses_ = std::make_unique<SampleMasses>();
    }
    return *semiImplicit_;
}

const std::vector<LinkMassSums>& skSystem::sumSampleMasses(const SampleGrid& grid, float dx) {
    checkCudaErrors(cudaSetDevice(gpuId));
    if (useGpuPath_) {
        return sampleMasses_->sum(links_->link_data_device,
                                  sampler_->boundaryMgr().mllaboundary_gpu,
                                  sampler_->sampleLinks_dev, sampler_->boundaryMgr().weights_dev,
                                  links_->count(), sampler_->sampleCount(), grid, dx);
    }
    const HostGrid host(grid);
    const HostWeights weights(*sampler_);
    hostMassSums_.assign(links_->links.size(), LinkMassSums::Zero());
    for (int i = 0; i < sampler_->sampleCount(); ++i) {
        LinkMassSums mass;
        sampleMass(links_->link_data_host.data(), sampler_->boundary(),
                   sampler_->sampleLinks.data(), weights.data(), i, links_->count(), host.grid, dx,
                   mass.data());
        hostMassSums_[sampler_->sampleLinks[i]] += mass;
    }
    return hostMassSums_;
}

void skSystem::beginSemiImplicit(const SampleGrid& grid, float dx) {
    SemiImplicitLinks& links = semiImplicit();
    const std::vector<LinkMassSums>& sums = sumSampleMasses(grid, dx);
    const std::string weak = links.weakness(sums);
    if (!weak.empty())
        throw std::runtime_error("the semi-implicit coupling cannot move '" + skeleton_->getName() +
                                 "': " + weak + ", or keep the body inside the grid");
    links.beginStep(sums);
    requireSolvable();
    fluidForces_->beginSemiImplicit(links_->link_data_host, grid.rou0p);
}

void skSystem::endSemiImplicit(const SampleGrid& grid, float dt) {
    const std::vector<LinkVelocityGain>& gains = semiImplicit().endStep(dt);
    fluidForces_->endSemiImplicit(semiImplicit().addedWrenches(), *links_, dt);
    checkCudaErrors(cudaSetDevice(gpuId));
    if (useGpuPath_) {
        sampleMasses_->correct(links_->link_data_device, sampler_->boundaryMgr().mllaboundary_gpu,
                               sampler_->sampleLinks_dev, sampler_->boundaryMgr().weights_dev,
                               gains, sampler_->sampleCount(), grid, dt);
        return;
    }
    const HostGrid host(grid);
    const HostWeights weights(*sampler_);
    for (int i = 0; i < sampler_->sampleCount(); ++i) {
        correctSampleForceKernel({i, 0, 0, i}, links_->link_data_host.data(), sampler_->boundary(),
                                 sampler_->sampleLinks.data(), weights.data(), gains.data(),
                                 links_->count(), sampler_->sampleCount(), host.grid, dt);
    }
    sampler_->copyToDevice();
}

void skSystem::restoreOwnInertia() {
    if (semiImplicit_) semiImplicit_->restore();
}

}  // namespace drelt
