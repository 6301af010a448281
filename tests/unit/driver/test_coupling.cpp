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

TEST(Coupling, LinksReceiveWhatTheGridIsGivenWithOppositeSign) {
    const auto params = test::boxOf(28, 28, 28);  // the sphere in the middle
    const auto body = test::bodyOf("sphere_floating", 500, {10, 20, 30});
    const auto simulator = test::simulatorOf(params, body, {0.3, -0.5, 0.2});
    for (int i = 0; i < 40; ++i) simulator->step(TWO_WAY);

    mlSinglePhaseSolverNew& solver = *simulator->solver;
    const mlFlow& host = *simulator->lbmvec.front();
    solver.couple(0);
    Vector3d onGrid = Vector3d::Zero();
    mlFlow record{};
    cudaMemcpy(&record, solver.lbm_dev_gpu.front(), sizeof record, cudaMemcpyDeviceToHost);
    std::vector<double> force(static_cast<std::size_t>(host.count));
    int axis = 0;
    for (const double* const component : {record.forcex, record.forcey, record.forcez}) {
        cudaMemcpy(force.data(), component, force.size() * sizeof(double), cudaMemcpyDeviceToHost);
        onGrid[axis++] = std::accumulate(force.begin(), force.end(), 0.0);
    }
    // a lattice force is density x spacing^4 / time step^2
    const double dx = host.param->dx;
    onGrid *= params->rou0p * std::pow(dx, 4) / std::pow(params->get_tp(), 2);

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

}  // namespace
}  // namespace drelt
