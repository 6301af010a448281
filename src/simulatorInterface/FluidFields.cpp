#include "simulatorInterface/FluidFields.h"

#include <dart/dynamics/Frame.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "cslbm/domain/HostState.h"
#include "simulatorInterface/FluidHelper.h"
#include "simulatorInterface/coupledLBM_sim3D.h"
#include "supplement/MLCuMemcpy.h"

namespace drelt {

FieldFactors::FieldFactors(FieldUnits units, const mlUnitScale& scale)
    : velocity(1), density(1), pressure(1), force(1) {
    if (units == FieldUnits::Lattice) return;
    if (units != FieldUnits::SI) {
        throw std::invalid_argument("the units are " + std::to_string(static_cast<int>(units)) +
                                    "; give a member of UNITS");
    }
    velocity = static_cast<double>(scale.u0px) / scale.u0k;
    density = scale.rou0p;
    pressure = density * velocity * velocity;
    force = pressure * scale.N / scale.l0p;
}

namespace FluidFields {
namespace {

mlSinglePhaseSolverNew& solverOf(const coupledLBM_sim3D& simulator, const char* operation) {
    if (simulator.solver) return *simulator.solver;
    throw std::runtime_error(std::string(operation) +
                             ": the simulator is not initialised; call commitInit first");
}

// Density and raw momentum of all nodes [lattice units].
struct Moments {
    explicit Moments(const coupledLBM_sim3D& simulator);
    std::vector<mlDensity<float>> rho;
    std::vector<float> momentum[3];
};

// While an edit of the host record waits for the next step, the host record is the fluid.
Moments::Moments(const coupledLBM_sim3D& simulator) {
    const mlFlow& host = *simulator.lbmvec.front();
    const auto count = static_cast<std::size_t>(host.count);
    if (simulator.syncState == coupledLBM_sim3D::HostNewer) {
        rho.assign(host.rou, host.rou + count);
        int a = 0;
        for (const float* const from : {host.ux, host.uy, host.uz}) {
            momentum[a++].assign(from, from + count);
        }
        return;
    }
    rho.resize(count);
    for (auto& axis : momentum) axis.resize(count);
    mlFlow into{};
    into.count = host.count;
    into.rou = rho.data();
    into.ux = momentum[0].data();
    into.uy = momentum[1].data();
    into.uz = momentum[2].data();
    simulator.solver->domain(0).materialise(into);
}

// value(n) for all nodes, rows in parallel.
template <class Value>
void fill(const coupledLBM_sim3D& simulator, float* to, Value&& value) {
    forEachNode(*simulator.lbmvec.front()->param,
                [&](std::int64_t n, int, int, int) { to[n] = static_cast<float>(value(n)); });
}

// A copy of a domain's device record with force arrays of its own, which are 0.
class ForceRecord {
public:
    ForceRecord(FluidDomain& domain, std::int64_t count)
        : bytes_(sizeof(double) * static_cast<std::size_t>(count)) {
        const std::vector<double> zeros(static_cast<std::size_t>(count), 0.0);
        mlFlow image{};
        _MLCuMemcpy(&image, domain.record(), sizeof(mlFlow), cudaMemcpyDeviceToHost);
        double* mlFlow::*const fields[] = {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez};
        for (int a = 0; a < 3; ++a) {
            checkCudaErrors(cudaMalloc(&forces_[a], bytes_));
            _MLCuMemcpy(forces_[a], zeros.data(), bytes_, cudaMemcpyHostToDevice);
            image.*fields[a] = forces_[a];
        }
        checkCudaErrors(cudaMalloc(&record_, sizeof(mlFlow)));
        _MLCuMemcpy(record_, &image, sizeof(mlFlow), cudaMemcpyHostToDevice);
    }
    ~ForceRecord() {
        for (double* const force : forces_) checkCudaErrors(cudaFree(force));
        checkCudaErrors(cudaFree(record_));
    }
    ForceRecord(const ForceRecord&) = delete;
    ForceRecord& operator=(const ForceRecord&) = delete;

    mlFlow* record() const { return record_; }
    void fetch(int axis, double* to) const {
        _MLCuMemcpy(to, forces_[axis], bytes_, cudaMemcpyDeviceToHost);
    }

private:
    std::size_t bytes_;
    double* forces_[3] = {};
    mlFlow* record_ = nullptr;
};

}  // namespace

Grid grid(const coupledLBM_sim3D& simulator, const char* operation) {
    const mlSinglePhaseSolverNew& solver = solverOf(simulator, operation);
    const MLFluidParam& p = *simulator.lbmvec.front()->param;
    mlFlow place{};
    solver.domain(0).originToHost(place);
    return {p.samples_x, p.samples_y,
            p.samples_z, {place.startx, place.starty, place.startz},
            p.dx,        simulator.world->getFrame()->getLinearVelocity()};
}

void readVelocity(const coupledLBM_sim3D& simulator, FieldUnits units, float* to) {
    const FieldFactors factors(units, solverOf(simulator, "getVelocity").scale);
    const Moments moments(simulator);
    forEachNode(*simulator.lbmvec.front()->param, [&](std::int64_t n, int, int, int) {
        for (int a = 0; a < 3; ++a) {
            const double momentum = moments.momentum[a][n];
            to[3 * n + a] = static_cast<float>(momentum / moments.rho[n].value * factors.velocity);
        }
    });
}

void readDensity(const coupledLBM_sim3D& simulator, FieldUnits units, float* to) {
    const FieldFactors factors(units, solverOf(simulator, "getDensity").scale);
    const Moments moments(simulator);
    fill(simulator, to, [&](std::int64_t n) { return moments.rho[n].value * factors.density; });
}

void readPressure(const coupledLBM_sim3D& simulator, FieldUnits units, float* to) {
    const FieldFactors factors(units, solverOf(simulator, "getPressure").scale);
    const Moments moments(simulator);
    const double factor = factors.pressure / 3;
    fill(simulator, to, [&](std::int64_t n) { return (moments.rho[n].value - 1.0) * factor; });
}

void readSpreadForce(const coupledLBM_sim3D& simulator, FieldUnits units, double* to) {
    mlSinglePhaseSolverNew& solver = solverOf(simulator, "getSpreadForce");
    const FieldFactors factors(units, solver.scale);
    const mlFlow& host = *simulator.lbmvec.front();
    // three arrays for the domain's device, one of zeros and one of an axis
    FluidHelper::checkMemory(*host.param, 5.0 * sizeof(double) * static_cast<double>(host.count));
    const ForceRecord forces(solver.domain(0), host.count);
    solver.spreadForces(forces.record(), host.param);
    std::vector<double> axis(static_cast<std::size_t>(host.count));
    for (int a = 0; a < 3; ++a) {
        forces.fetch(a, axis.data());
        forEachNode(*host.param, [&](std::int64_t n, int, int, int) {
            to[3 * n + a] = axis[n] * factors.force;
        });
    }
}

void readLayerTypes(const coupledLBM_sim3D& simulator, std::int32_t* to) {
    solverOf(simulator, "getLayerTypes");
    const mlFlow& host = *simulator.lbmvec.front();
    for (std::int64_t n = 0; n < host.count; ++n) to[n] = host.PML_type[n];
}

}  // namespace FluidFields
}  // namespace drelt
