// The samples' forces on the grid and on the links are equal and opposite.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "driver/scene.h"
#include "platform/runtime.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/fields.h"

namespace drelt {
namespace {

using Eigen::Vector3d;

// The sum of the grid's forces [N].
Vector3d forceOnGrid(const coupledLBM_sim3D& simulator) {
    const mlFlow& host = *simulator.lbmvec.front();
    Vector3d sum = Vector3d::Zero();
    mlFlow record{};
    cudaMemcpy(&record, simulator.solver->lbm_dev_gpu.front(), sizeof record,
               cudaMemcpyDeviceToHost);
    std::vector<double> force(static_cast<std::size_t>(host.count));
    int axis = 0;
    for (const double* const component : {record.forcex, record.forcey, record.forcez}) {
        cudaMemcpy(force.data(), component, force.size() * sizeof(double), cudaMemcpyDeviceToHost);
        sum[axis++] = std::accumulate(force.begin(), force.end(), 0.0);
    }
    // a lattice force is density x spacing^4 / time step^2
    simParams& params = *simulator.params.front();
    return sum * params.rou0p * std::pow(static_cast<double>(host.param->dx), 4) /
           std::pow(params.get_tp(), 2);
}

TEST(Coupling, LinksReceiveWhatTheGridIsGivenWithOppositeSign) {
    const auto params = test::boxOf(28, 28, 28);  // the sphere in the middle
    const auto body = test::bodyOf("sphere_floating", 500, {10, 20, 30});
    const auto simulator = test::simulatorOf(params, body, {0.3, -0.5, 0.2});
    for (int i = 0; i < 40; ++i) simulator->step(TWO_WAY);

    const mlFlow& host = *simulator->lbmvec.front();
    simulator->solver->couple(0);
    const Vector3d onGrid = forceOnGrid(*simulator);
    const double dx = host.param->dx;

    body->applyFluidForce(host.param->dx);
    Vector3d onLinks = Vector3d::Zero();
    for (const skLinkData& link : body->links().link_data_host) {
        onLinks += link.transform.linear() * link.force;
    }

    const mlLagrangeBoundary& samples = *body->sampler().boundary();
    const std::vector<double> forces = test::sampleForces(body->sampler().boundaryMgr());
    const auto n = static_cast<std::size_t>(samples.count);
    double exchanged = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        exchanged +=
            Vector3d(forces[i], forces[n + i], forces[2 * n + i]).norm() * samples.sampleArea * dx;
    }
    ASSERT_GT(exchanged, 1e-5) << "the falling sphere pushes the fluid";
    EXPECT_GT(onGrid.norm(), 0.1 * exchanged);
    EXPECT_LT((onGrid + onLinks).norm(), 1e-6 * exchanged);
}

// The forces that scripts read, over a run, as impulses.
TEST(Coupling, ForcesThatAreReadTakeFromTheLinksWhatTheFluidGets) {
    for (const Coupling coupling : {Coupling::Explicit, Coupling::SemiImplicit}) {
        const auto params = test::boxOf(28, 28, 28);
        params->coupling = coupling;
        const auto body = test::bodyOf("sphere_floating", 500, {10, 20, 30});
        const auto simulator = test::simulatorOf(params, body, {0.3, -0.5, 0.2});
        Vector3d onGrid = Vector3d::Zero(), onLinks = onGrid;
        double exchanged = 0;
        // the grid holds the step's forces when the samples are about to move
        body->addBeforeUpdate([&](skSystem&, float, float) {
            const Vector3d force = body->getFluidWrench(FluidForce::OnLink).force;
            onLinks += force;
            exchanged += force.norm();
            onGrid += forceOnGrid(*simulator);
        });
        for (int i = 0; i < 40; ++i) simulator->step(TWO_WAY);
        ASSERT_GT(onGrid.norm(), 0.5 * exchanged);
        EXPECT_LT((onGrid + onLinks).norm(), 1e-6 * exchanged);
    }
}

}  // namespace
}  // namespace drelt
