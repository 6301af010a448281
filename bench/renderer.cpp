// Frames per second of the bundled swimmer and a cube, without a display, on Mesa's software rasteriser. Run
// it from the repository's root, which holds the assets.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/runtime.h"
#include "setup.h"
#include "tinyRenderer/tinyRenderer.h"

namespace drelt::bench {
namespace {

using Eigen::Vector3d;
constexpr int kHost = platform::kHostDevice;
constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr const char* kNoFile = "/dev/null";

void useSoftwareWithoutDisplay() {
    setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
}

// Draws frames and reads them back. The body takes a new pose for each frame, or stands still.
void savedFrames(benchmark::State& state, bool moving) {
    useSoftwareWithoutDisplay();
    const auto body = std::make_shared<skSystem>(skeletonFromJson("assets/swimmer.json", kHost), 0,
                                                 kHost, Vector3d::Zero(), Vector3d::Zero());
    tinyRenderer renderer(kWidth, kHeight, 0.1f, 100);
    renderer.addDynamics(body);
    renderer.addCube();
    renderer.setCamera({1.2f, 0.8f, 1.2f}, {0, 0, 0}, {0, 1, 0});
    renderer.render();
    try {
        renderer.savePPM(kNoFile);
    } catch (const std::runtime_error& error) {
        state.SkipWithError(error.what());
        return;
    }
    Vector3d place(0, 0.7, 0);  // on the cube
    for (auto _ : state) {
        if (moving) {
            place.x() += 1e-5;
            body->setHead(place, Vector3d::UnitX());
        }
        renderer.render();
        renderer.savePPM(kNoFile);
    }
    state.counters["frames"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

const bool registered = onSetup([] {
    if (!setup().onHost) return;
    for (const bool moving : {false, true}) {
        benchmark::RegisterBenchmark(
            moving ? "savedFrame/640x480/moving" : "savedFrame/640x480/still",
            [moving](benchmark::State& state) { savedFrames(state, moving); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
});

}  // namespace
}  // namespace drelt::bench
