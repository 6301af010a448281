// Restart and state files in C++: with device memory that host code cannot touch (guarded.*), and with what
// only C++ callers do. Scripts' cases are in tests/python/test_state.py.
#include <gtest/gtest.h>
#include <omp.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "driver/scene.h"
#include "support/fields.h"

namespace drelt {
namespace {

struct Run {
    Schedule schedule;
    int layer;
};

class States : public testing::TestWithParam<Run> {
protected:
    void SetUp() override { std::filesystem::create_directories(folder_); }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::unique_ptr<coupledLBM_sim3D> scene() const {
        return test::simulatorOf(test::boxOf(21, 17, 19, GetParam().layer),
                                 test::bodyOf("sphere_follow", 300, {10, 20, 30},
                                              Eigen::Vector3d::Zero(), test::device(), 4),
                                 {2, -1.2, 0.8}, GetParam().schedule);
    }
    std::string file(const char* name) const { return (folder_ / name).string(); }
    std::string saved(coupledLBM_sim3D& simulator) const {
        simulator.saveState(file("now.h5"));
        std::ifstream in(file("now.h5"), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void run(coupledLBM_sim3D& simulator, int steps) {
        for (int i = 0; i < steps; ++i) simulator.step(TWO_WAY);
    }
    // A density other than 1 in a reset layer, and an inlet that no step has uploaded.
    static void edit(coupledLBM_sim3D& simulator) {
        run(simulator, 3);
        simulator.saveScene(0, 0);
        simulator.reset();
        run(simulator, 2);
        const mlFlow& flow = *simulator.lbmvec.front();
        simulator.markInlet(0, {flow.startx + 0.01f, flow.starty + 0.01f, flow.startz + 0.01f},
                            {0.1f, 0.0f, 0.0f});
    }

private:
    // CTest runs several cases at once, each as a process
    std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("drelt_state_" + std::to_string(getpid()));
};

TEST_P(States, ARunGoesOnFromAFileWithAnotherNumberOfThreads) {
    const auto whole = scene();
    edit(*whole);
    whole->saveState(file("middle.h5"));
    run(*whole, 3);
    const auto other = scene();
    run(*other, 1);
    other->loadState(file("middle.h5"));
    const int before = omp_get_max_threads();
    omp_set_num_threads(before + 2);
    run(*other, 3);
    omp_set_num_threads(before);
    const auto fields = test::fieldsOf(*other->solver), wanted = test::fieldsOf(*whole->solver);
    EXPECT_EQ(fields.rou, wanted.rou);
    EXPECT_EQ(fields.ux, wanted.ux);
    EXPECT_EQ(fields.Sopt, wanted.Sopt);
    EXPECT_EQ(fields.uz, wanted.uz);
    // a reset layer has other numbers in the padding of rows, which no node sees
    if (GetParam().schedule == Schedule::Production && GetParam().layer > 0) return;
    EXPECT_EQ(saved(*other), saved(*whole));
}

TEST_P(States, ARestartForgetsEdits) {
    const auto fresh = scene();
    const auto again = scene();
    edit(*again);
    again->restart();
    run(*fresh, 3);
    run(*again, 3);
    EXPECT_EQ(test::fieldsOf(*again->solver).uz, test::fieldsOf(*fresh->solver).uz);
    EXPECT_EQ(saved(*again), saved(*fresh));
}

INSTANTIATE_TEST_SUITE_P(Schedules, States,
                         testing::Values(Run{Schedule::Production, 0}, Run{Schedule::Production, 3},
                                         Run{Schedule::Operators, 3}));

}  // namespace
}  // namespace drelt
