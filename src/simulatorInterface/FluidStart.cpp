// Sets the fluid from given fields.
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "cslbm/domain/HostState.h"
#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/gpu_inc/gpu/mlTurbulence.h"
#include "simulatorInterface/FluidFields.h"
#include "simulatorInterface/FluidHelper.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt::FluidFields {
namespace {

// As for a current: beyond this Mach number the error of the equilibrium is no longer small.
constexpr double kHighestMach = 0.3;

// Velocities and densities [lattice units], and the populations that follow.
struct Fields {
    explicit Fields(std::int64_t count) : rho(count), f(kDirections * count) {
        for (auto& axis : u) axis.resize(count);
    }
    // Bytes of the above, for each node.
    static constexpr double kBytesPerNode = (1 + 3 + kDirections) * sizeof(float);

    std::vector<mlDensity<float>> rho;
    std::vector<float> u[3];
    std::vector<float> f;
};

std::string nodeName(const MLFluidParam& grid, std::int64_t n) {
    const std::int64_t row = n / grid.samples_x;
    return "at node (x, y, z) = (" + std::to_string(n % grid.samples_x) + ", " +
           std::to_string(row % grid.samples_y) + ", " + std::to_string(row / grid.samples_y) + ")";
}

std::string text(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

// Throws for the first node with numbers that no fluid can have.
void requireFluid(const MLFluidParam& grid, std::int64_t count, const Start& start,
                  const FieldFactors& factors) {
    const double highest = kHighestMach / std::sqrt(3.0);
    for (std::int64_t n = 0; n < count; ++n) {
        const double* const u = start.velocity + 3 * n;
        const double speed = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]) / factors.velocity;
        if (speed <= highest) continue;
        const std::string what = "setFields: the velocity " + nodeName(grid, n) + " is (" +
                                 text(u[0]) + ", " + text(u[1]) + ", " + text(u[2]) + ")";
        if (!std::isfinite(speed)) throw std::invalid_argument(what + "; give finite numbers");
        throw std::invalid_argument(what + ", a speed of " + text(speed) +
                                    " in lattice units (times u0k / u0p), more than " +
                                    text(highest) + " (Mach " + text(kHighestMach) +
                                    "); make u0k smaller or the flow slower");
    }
    if (start.density == nullptr) return;
    for (std::int64_t n = 0; n < count; ++n) {
        const auto rho = static_cast<float>(start.density[n] / factors.density);
        if (rho > 0 && std::isfinite(rho)) continue;
        throw std::invalid_argument("setFields: the density " + nodeName(grid, n) + " is " +
                                    text(start.density[n]) +
                                    "; give finite positive numbers, near the reference density");
    }
}

// The velocity gradient of node (x, y, z): central differences, and one-sided ones on the faces of the box.
class Gradient {
public:
    Gradient(const Fields& fields, const MLFluidParam& grid)
        : fields_(fields), size_{grid.samples_x, grid.samples_y, grid.samples_z} {}

    // Over two node spacings, as the rates take it.
    Differences<float> at(std::int64_t n, int x, int y, int z) const {
        float h[3][3];
        const int place[3] = {x, y, z};
        std::int64_t stride = 1;
        for (int b = 0; b < 3; ++b) {
            const std::int64_t below = place[b] > 0 ? stride : 0;
            const std::int64_t above = place[b] < size_[b] - 1 ? stride : 0;
            const float factor = below != 0 && above != 0 ? 1.0f : 2.0f;
            for (int a = 0; a < 3; ++a) {
                h[a][b] = factor * (fields_.u[a][n + above] - fields_.u[a][n - below]);
            }
            stride *= size_[b];
        }
        return {h[0][0], h[0][1], h[0][2], h[1][0], h[1][1], h[1][2], h[2][0], h[2][1], h[2][2]};
    }

private:
    const Fields& fields_;
    int size_[3];
};

// Adds to the populations of a node what the velocity gradient makes of them, to first order (Chapman-Enskog;
// Skordos, Phys. Rev. E 48 (1993) 4823; Latt and Chopard, Math. Comput. Simul. 72 (2006) 165):
//
//     f_i^neq = -(w_i rho / c_s^2) (c_i c_i - c_s^2 I) : [tau dev(S) + tau_h tr(S)/3 I],  c_i = e_i - u,
//
// with the strain rate S. It is formed in central moments, where the collision relaxes the deviator with the
// rate 1/tau and the trace with 1/tau_h. It has neither mass nor momentum.
void addNonEquilibrium(const Differences<float>& h, float rho, const Vector3<float>& u, float nu,
                       float (&f)[kDirections]) {
    const Rates<float> rates = ratesOf<float>(h, rho, u, 0.0f, nu);
    const float mean = (h.xx + h.yy + h.zz) * (1.0f / 3.0f);
    // Half the differences are the gradient, and the moments hold -2/3 rho tau S.
    const float shear = -rho / (3.0f * rates.shear);
    const float trace = -rho / (3.0f * rates.high) * mean;
    const float xx = shear * (h.xx - mean) + trace;
    const float yy = shear * (h.yy - mean) + trace;
    const float zz = shear * (h.zz - mean) + trace;
    const float xy = 0.5f * shear * (h.xy + h.yx);
    const float xz = 0.5f * shear * (h.xz + h.zx);
    const float yz = 0.5f * shear * (h.yz + h.zy);

    float kappa[kMoments] = {};
    const auto set = [&](int l, int m, int n, float value) { kappa[plainIndex(l, m, n)] = value; };
    set(2, 0, 0, xx);
    set(0, 2, 0, yy);
    set(0, 0, 2, zz);
    set(1, 1, 0, xy);
    set(1, 0, 1, xz);
    set(0, 1, 1, yz);
    // those of the same polynomials in higher order
    set(2, 2, 0, (xx + yy) / 3.0f);
    set(2, 0, 2, (xx + zz) / 3.0f);
    set(0, 2, 2, (yy + zz) / 3.0f);
    set(1, 1, 2, xy / 3.0f);
    set(1, 2, 1, xz / 3.0f);
    set(2, 1, 1, yz / 3.0f);
    set(2, 2, 2, (xx + yy + zz) / 9.0f);
    float addition[kDirections];
    populationsOf(kappa, u.x, u.y, u.z, addition);
    for (int i = 0; i < kDirections; ++i) f[i] += addition[i];
}

void takeFields(Fields& fields, const MLFluidParam& grid, const Start& start,
                const FieldFactors& factors) {
    forEachNode(grid, [&](std::int64_t n, int, int, int) {
        for (int a = 0; a < 3; ++a) {
            fields.u[a][n] = static_cast<float>(start.velocity[3 * n + a] / factors.velocity);
        }
        const double rho = start.density != nullptr ? start.density[n] / factors.density : 1.0;
        fields.rho[n].value = static_cast<float>(rho);
    });
}

void formPopulations(Fields& fields, const mlFlow& host, bool nonEquilibrium) {
    const Gradient gradient(fields, *host.param);
    forEachNode(*host.param, [&](std::int64_t n, int x, int y, int z) {
        const float rho = fields.rho[n].value;
        const Vector3<float> u{fields.u[0][n], fields.u[1][n], fields.u[2][n]};
        float f[kDirections];
        forEachDirection([&](auto d) { f[decltype(d)::index] = uniformPopulation(d, rho, u); });
        if (nonEquilibrium) addNonEquilibrium(gradient.at(n, x, y, z), rho, u, host.v0k, f);
        for (int i = 0; i < kDirections; ++i) fields.f[i * host.count + n] = f[i];
    });
}

}  // namespace

void setFluid(coupledLBM_sim3D& simulator, const Start& start) {
    const Grid size = grid(simulator, "setFields");
    mlSinglePhaseSolverNew& solver = *simulator.solver;
    const mlFlow& host = *simulator.lbmvec.front();
    const FieldFactors factors(start.units, solver.scale);
    requireFluid(*host.param, size.count(), start, factors);
    FluidHelper::checkMemory(*host.param,
                             static_cast<double>(size.count()) * Fields::kBytesPerNode);
    Fields fields(size.count());
    takeFields(fields, *host.param, start, factors);
    formPopulations(fields, host, start.nonEquilibrium);
    for (auto& axis : fields.u) {
        for (std::int64_t n = 0; n < host.count; ++n) axis[n] *= fields.rho[n].value;
    }
    if (simulator.syncState == coupledLBM_sim3D::HostNewer) FluidHelper::syncToDevice(solver, 0);
    mlFlow fluid{};
    fluid.count = host.count;
    fluid.param = host.param;
    fluid.f = fields.f.data();
    fluid.rou = fields.rho.data();
    fluid.ux = fields.u[0].data();
    fluid.uy = fields.u[1].data();
    fluid.uz = fields.u[2].data();
    solver.domain(0).setFluid(fluid);
    simulator.syncState = coupledLBM_sim3D::DeviceNewer;
}

}  // namespace drelt::FluidFields
