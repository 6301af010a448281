// Sound at the open planes: how much of a plane pulse they reflect.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "cslbm/domain/operatorStep.h"
#include "cslbm/gpu_inc/gpu/mlCharacteristicPlanes.h"
#include "support/device.h"
#include "support/flow_fixture.h"

namespace drelt::test {
namespace {

// A density pulse at rest in the middle of a long box, uniform along y and z. The planes across x are under
// test; those across y and z always copy, so that they leave the pulse alone.
class PlanePulse {
public:
    PlanePulse(double halfWidth, int layer, OpenPlaneKind ends, double height)
        : layer_(layer),
          planes_{ends, {}},
          flow_(kLength + 2 * layer, kWidth + 2 * layer, kWidth + 2 * layer, layer) {
        const MLFluidParam& p = *flow_.param();
        for (std::size_t n = 0; n < flow_.nodes(); ++n) {
            const double x = static_cast<int>(n % p.samples_x) - 0.5 * (p.samples_x - 1);
            const auto rho =
                static_cast<float>(1.0 + height * std::exp(-0.5 * std::pow(x / halfWidth, 2)));
            for (int i = 0; i < kDirections; ++i) {
                flow_.host().f[i * flow_.nodes() + n] = w_cas1[i] * rho;
            }
        }
        flow_.host().v0k = 0.001f;
        flow_.upload();
        mlCalOneOrderMomentOpt(flow_.device(), flow_.param());
    }

    void run(int steps) {
        for (int i = 0; i < steps; ++i) {
            operatorStep(flow_.device(), flow_.param());
            if (planes_.kind == OpenPlaneKind::Copy) continue;
            launchPlane<&mlCharacteristicPlane_Left_Kernel, 0>(flow_.device(), flow_.param(),
                                                               planes_);
            launchPlane<&mlCharacteristicPlane_Right_Kernel, 0>(flow_.device(), flow_.param(),
                                                                planes_);
        }
    }

    // The largest deviation from density 1 between the low-x plane and the middle, with its sign. Leaves
    // out the middle, where a small rest of the pulse stays.
    double extreme() {
        flow_.download();
        const int middle = layer_ + kWidth / 2;
        double value = 0.0;
        for (int x = layer_ + 1; x < layer_ + kLength / 2 - 10; ++x) {
            const double deviation = flow_.host().rou[flow_.node(x, middle, middle)].value - 1.0;
            if (std::abs(deviation) > std::abs(value)) value = deviation;
        }
        return value;
    }

private:
    static constexpr int kLength = 400;
    static constexpr int kWidth = 6;
    int layer_;
    OpenPlanes planes_;
    HostFlow flow_;
};

// Half of the pulse runs 200 nodes to the plane, at 1 / sqrt(3) nodes per step, and comes back inverted.
double reflection(double halfWidth, int layer, OpenPlaneKind ends = OpenPlaneKind::Copy,
                  double height = 1e-2) {
    PlanePulse pulse(halfWidth, layer, ends, height);
    pulse.run(170);
    const double incident = pulse.extreme();
    pulse.run(350);
    return pulse.extreme() / incident;
}

TEST(OpenPlanes, ReflectAQuarterOfAPlanePulseInverted) {
    if (guarded) GTEST_SKIP() << "too slow with guarded memory; other tests guard these operators";
    for (const double halfWidth : {4.0, 8.0, 16.0}) {
        EXPECT_NEAR(reflection(halfWidth, 0), -0.255, 0.015) << halfWidth;
    }
    // A layer lies outside the planes and does not change the reflection.
    EXPECT_NEAR(reflection(8.0, 4), -0.255, 0.015);
}

// The pulse is low: steepening grows with the square of its height and must stay below the reflection. The
// constant wave is one node old, which reflects more than the extrapolated one.
TEST(OpenPlanes, LetAPlanePulseLeaveByCharacteristics) {
    if (guarded)
        GTEST_SKIP() << "opens and closes pages too often; other tests guard these operators";
    constexpr double kHeight = 1e-3;
    const auto linear = [](double halfWidth, int layer) {
        return reflection(halfWidth, layer, OpenPlaneKind::Characteristic, kHeight);
    };
    const double extrapolated = std::abs(linear(8.0, 0));
    const double constant =
        std::abs(reflection(8.0, 0, OpenPlaneKind::CharacteristicConstant, kHeight));
    EXPECT_LT(extrapolated, 0.01);
    EXPECT_LT(std::abs(linear(8.0, 4)), 0.01);
    EXPECT_LT(constant, 0.03);
    EXPECT_GT(constant, 2.0 * extrapolated);
    RecordProperty("linear", std::to_string(extrapolated));
    RecordProperty("constant", std::to_string(constant));
}

}  // namespace
}  // namespace drelt::test
