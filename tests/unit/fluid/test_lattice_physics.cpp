// Transport coefficients of the collision in small periodic boxes. The operators know no periodic faces, so the
// test copies ghost planes between them.
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "support/flow_fixture.h"

namespace drelt::test {
namespace {

constexpr double kPi = 3.14159265358979323846;

// A periodic column of n nodes along y, uniform along x and z. It has a ghost node at both ends of each axis.
class PeriodicColumn {
public:
    PeriodicColumn(int n, float viscosity) : n_(n), flow_(3, n + 2, 3) {
        flow_.host().v0k = viscosity;
        flow_.upload();
    }

    // Density 1 + density(y), velocity (ux(y), uy, 0), populations in equilibrium.
    template <class Density, class Shear>
    void start(Density&& density, Shear&& shear, double uy) {
        const mlFlow& h = flow_.host();
        for (std::size_t node = 0; node < flow_.nodes(); ++node) {
            const int y = static_cast<int>(node / 3) % (n_ + 2) - 1;
            const auto rho = static_cast<float>(1.0 + density(y));
            const auto ux = static_cast<float>(shear(y));
            for (int i = 0; i < kDirections; ++i) {
                h.f[i * flow_.nodes() + node] =
                    hostEquilibrium(i, rho, ux, static_cast<float>(uy), 0.0f);
            }
        }
        flow_.upload();
        moments();
    }

    void step(double forcex = 0.0) {
        const mlFlow& h = flow_.host();
        const mlFlow& d = flow_.deviceImage();
        const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
        std::fill_n(h.forcex, flow_.nodes(), forcex);
        flow_.copyUp(d.forcex, h.forcex);
        mlAddForcetoUOpt(flow_.device(), flow_.param(), 1.0f, Eigen::Vector3d::Ones(), zero, zero,
                         zero, FrameTransform::Identity());
        mlCollideAddForceHighorderFiiting(flow_.device(), flow_.param());
        mlCuStream3dOpt(flow_.device(), flow_.param());
        flow_.copyDown(h.f, d.f, kDirections);
        for (int i = 0; i < kDirections; ++i) wrap(h.f + i * flow_.nodes());
        flow_.copyUp(d.f, h.f, kDirections);
        moments();
    }

    double momentum(int y) const { return flow_.host().ux[flow_.node(1, y + 1, 1)]; }
    double density(int y) const { return flow_.host().rou[flow_.node(1, y + 1, 1)].value; }

    // The amplitude of the first harmonic of a field.
    template <class Field>
    std::complex<double> harmonic(Field&& field) const {
        std::complex<double> sum = 0.0;
        for (int y = 0; y < n_; ++y) sum += field(y) * std::polar(1.0, -2.0 * kPi * y / n_);
        return sum * 2.0 / static_cast<double>(n_);
    }

private:
    void moments() {
        mlCalOneOrderMomentOpt(flow_.device(), flow_.param());
        flow_.copyDown(flow_.host().ux, flow_.deviceImage().ux);
        flow_.copyDown(flow_.host().rou, flow_.deviceImage().rou);
    }

    // Copies the values of the inner column, one period away, to the ghosts.
    void wrap(float* field) {
        for (int z = 0; z < 3; ++z)
            for (int y = 0; y < n_ + 2; ++y)
                for (int x = 0; x < 3; ++x) {
                    const int inner = y == 0 ? n_ : (y == n_ + 1 ? 1 : y);
                    if (x == 1 && z == 1 && inner == y) continue;
                    field[flow_.node(x, y, z)] = field[flow_.node(1, inner, 1)];
                }
    }

    int n_;
    HostFlow flow_;
};

// The viscosity from the decay of a shear wave u = U sin(2 pi y / n) with n = 32, after 200 steps.
double decayViscosity(double nu, double meanFlow) {
    const int n = 32;
    PeriodicColumn column(n, static_cast<float>(nu));
    column.start([](int) { return 0.0; }, [&](int y) { return 0.01 * std::sin(2.0 * kPi * y / n); },
                 meanFlow);
    const auto amplitude = [&] {
        return std::abs(column.harmonic([&](int y) { return column.momentum(y); }));
    };
    for (int i = 0; i < 200; ++i) column.step();
    const double early = amplitude();
    for (int i = 0; i < 400; ++i) column.step();
    const double k = 2.0 * kPi / n;
    return std::log(early / amplitude()) / (400.0 * k * k);
}

TEST(LatticePhysics, ShearWaveDecaysWithTheMolecularViscosity) {
    EXPECT_NEAR(decayViscosity(0.02, 0.0), 0.02, 0.005 * 0.02);
    EXPECT_NEAR(decayViscosity(0.05, 0.0), 0.05, 0.005 * 0.05);
    EXPECT_NEAR(decayViscosity(0.05, 0.1), 0.05, 0.01 * 0.05) << "with a mean flow";
}

// A standing sound wave passes through zero every half period n / (2 c).
TEST(LatticePhysics, SoundTravelsAtOneOverRootThree) {
    const int n = 64;
    PeriodicColumn column(n, 0.005f);
    column.start([&](int y) { return 1e-3 * std::cos(2.0 * kPi * y / n); }, [](int) { return 0.0; },
                 0.0);
    const auto amplitude = [&] {
        return column.harmonic([&](int y) { return column.density(y); }).real();
    };
    std::vector<double> zeros;
    double last = amplitude();
    for (int step = 1; zeros.size() < 5 && step < 1000; ++step) {
        column.step();
        const double now = amplitude();
        if (last * now < 0.0) zeros.push_back(step - now / (now - last));
        last = now;
    }
    ASSERT_EQ(zeros.size(), 5u);
    const double speed = 2.0 * n / (zeros[4] - zeros[0]);
    EXPECT_NEAR(speed, 1.0 / std::sqrt(3.0), 0.005 / std::sqrt(3.0));
}

TEST(LatticePhysics, UniformForceGivesItsMomentum) {
    PeriodicColumn column(4, 0.01f);
    column.start([](int) { return 0.0; }, [](int) { return 0.0; }, 0.0);
    const double force = 1e-3;
    const int steps = 100;
    for (int i = 0; i < steps; ++i) column.step(force);
    for (int y = 0; y < 4; ++y) EXPECT_NEAR(column.momentum(y) / (steps * force), 1.0, 1e-5);
}

}  // namespace
}  // namespace drelt::test
