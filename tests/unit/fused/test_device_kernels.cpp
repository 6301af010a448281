// The kernels of a device's production step, run one invocation after the other: no two invocations of a launch
// write to the same place, and any order of invocations gives the same bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "cslbm/fused/FusedDeviceDomain.h"
#include "cslbm/fused/FusedDeviceKernels.h"
#include "support/device.h"

namespace drelt::test {
namespace {

struct Array1 {
    float* data;
    std::size_t count;
};

// A flow without symmetry in a small box, with its arrays and its nodes.
class SmallDomain {
public:
    SmallDomain(int width, OpenPlaneKind planes) : domain_(param(width), 0.02f, 0.1f) {
        StepChoices choices;
        choices.planes = planes;
        domain_.choose(choices);
        const FusedState& s = state().base;
        const std::size_t nodes = static_cast<std::size_t>(s.nx) * s.ny * s.nz;
        const std::size_t places = static_cast<std::size_t>(s.pitch) * 27 * (s.ny + 1) * (s.nz + 1);
        arrays_ = {{s.populations, places}, {s.sopt, nodes}};
        for (const DeviceMoments& m : {state().now, state().before}) {
            if (m.rho == nullptr) continue;
            arrays_.push_back({m.rho, nodes});
            for (float* const momentum : m.momentum) arrays_.push_back({momentum, nodes});
        }
        FrameMotion motion;
        motion.linearAcceleration = {1e-3, -2e-3, 5e-4};
        domain_.step(motion);
        std::mt19937 random(7);
        std::uniform_real_distribution<float> noise(0.98f, 1.02f);
        for (const Array1& array : arrays_) {
            for (std::size_t i = 0; i < array.count; ++i) array.data[i] *= noise(random);
        }
        for (int z = 0; z < s.nz; ++z)
            for (int y = 0; y < s.ny; ++y)
                for (int x = 0; x < s.nx; ++x)
                    nodes_.push_back({x, y, z, x + s.nx * (y + s.ny * z)});
        initial_ = values();
    }

    const FusedDeviceState& state() const { return domain_.state(); }
    const std::vector<LaunchIndex>& nodes() const { return nodes_; }
    std::vector<float> values() const {
        std::vector<float> all;
        for (const Array1& array : arrays_) {
            all.insert(all.end(), array.data, array.data + array.count);
        }
        return all;
    }
    void restore() {
        const FusedState& s = state().base;
        const NodeBox forced{1, 1, 1, s.nx, 3, 3};
        domain_.announceForces(&forced, 1);
        for (std::size_t n = 0; n < nodes_.size(); ++n) s.force[0][n] = 1e-3 * std::sin(1.0 * n);
        const float* from = initial_.data();
        for (const Array1& array : arrays_) {
            std::copy_n(from, array.count, array.data);
            from += array.count;
        }
    }
    const std::vector<float>& initial() const { return initial_; }

private:
    static MLFluidParam param(int width) {
        MLFluidParam p{};
        p.samples_x = 9;
        p.samples_y = 7;
        p.samples_z = 5;
        p.dx = 1;
        p.pml_width = width;
        p.bodyAccelx = 1e-4f;
        return p;
    }
    FusedDeviceDomain domain_;
    std::vector<Array1> arrays_;
    std::vector<LaunchIndex> nodes_;
    std::vector<float> initial_;
};

using Kernel = void (*)(const LaunchIndex&, const FusedDeviceState&);

const Kernel kKernels[] = {
    [](const LaunchIndex& at, const FusedDeviceState& d) { fused_device::prepareKernel(at, d); },
    [](const LaunchIndex& at, const FusedDeviceState& d) { fused_device::collideKernel(at, d); },
    [](const LaunchIndex& at, const FusedDeviceState& d) {
        fused_device::collideWholeKernel(at, d);
    },
    [](const LaunchIndex& at, const FusedDeviceState& d) {
        fused_device::momentsKernel(at, d, d.now);
    },
    [](const LaunchIndex& at, const FusedDeviceState& d) {
        fused_device::collideLayerKernel(at, d);
    },
    [](const LaunchIndex& at, const FusedDeviceState& d) {
        fused_device::collideWholeLayerKernel(at, d);
    },
};
constexpr int kWithoutLayer = 4;

class Kernels : public testing::TestWithParam<std::tuple<int, OpenPlaneKind>> {
protected:
    void SetUp() override { DRELT_HOST_ONLY("runs kernels on the device's memory, node by node"); }
};

TEST_P(Kernels, WritePlacesOfTheirNodeOnlyAndGiveTheSameBitsInAnyOrder) {
    const auto [width, planes] = GetParam();
    SmallDomain box(width, planes);
    std::mt19937 random(3);
    const int kernels = width > 0 ? static_cast<int>(std::size(kKernels)) : kWithoutLayer;
    for (int k = 0; k < kernels; ++k) {
        std::vector<float> expected;
        std::vector<LaunchIndex> order = box.nodes();
        for (int run = 0; run < 4; ++run) {
            box.restore();
            for (const LaunchIndex& at : order) kKernels[k](at, box.state());
            const std::vector<float> got = box.values();
            if (expected.empty()) expected = got;
            EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(float)), 0)
                << "kernel " << k << ", order " << run;
            std::shuffle(order.begin(), order.end(), random);
        }
        std::vector<int> writers(expected.size());
        for (const LaunchIndex& at : box.nodes()) {
            box.restore();
            kKernels[k](at, box.state());
            const std::vector<float> got = box.values();
            for (std::size_t i = 0; i < got.size(); ++i) writers[i] += got[i] != box.initial()[i];
        }
        EXPECT_EQ(*std::max_element(writers.begin(), writers.end()), 1) << "kernel " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Layers, Kernels,
                         testing::Combine(testing::Values(0, 1),
                                          testing::Values(OpenPlaneKind::Copy,
                                                          OpenPlaneKind::Characteristic)));

}  // namespace
}  // namespace drelt::test
