// Files of polylines and trajectories: exact text, and curves whose values are known.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "output/mlVTKWrtier.h"
#include "support/message_of.h"

namespace drelt::test {
namespace {

class LineWriter : public testing::Test {
protected:
    void SetUp() override { std::filesystem::remove_all(folder_); }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::string content(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }

private:
    std::filesystem::path folder_ = std::filesystem::path(testing::TempDir()) /
                                    (std::string("drelt_line_writer_") +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
};

// The curve is (x, x^2 + 1/3, 0) for x = 1 .. count - 2.
mlTrajectory<double, 3> parabola(int count) {
    std::vector<mlTrajectoryPointData<double, 3>> points(count);
    for (int i = 0; i < count; ++i) points[i].data = {1.0 * i, 1.0 * i * i, 0.0};
    mlTrajectory<double, 3> trajectory;
    trajectory.setPoints(points);
    trajectory.fit();
    return trajectory;
}

TEST_F(LineWriter, LinesCountTheirPointsOn) {
    const mlVTKLine two{{{0.5, -1, 1e-5}, {1, 2, 3.00006}}};
    const mlVTKLine three{{{1, 1, 1}, {2, 2, 2}, {12345678.25, 0, -0.00004}}};
    EXPECT_TRUE(mlVTKWrtier::writeLines({two, mlVTKLine{}, three}, path("new/folder/lines.vtk")));
    EXPECT_EQ(content("new/folder/lines.vtk"),
              "# vtk DataFile Version 3.0\noutput  lines\nASCII\nDATASET POLYDATA\n"
              "POINTS 5 double\n"
              "0.5000 -1.0000 0.0000\n1.0000 2.0000 3.0001\n"
              "1.0000 1.0000 1.0000\n2.0000 2.0000 2.0000\n12345678.2500 0.0000 -0.0000\n"
              "LINES 3 8\n2 0 1\n0\n3 2 3 4\n");

    EXPECT_TRUE(mlVTKWrtier::writeLines({}, path("none.vtk")));
    EXPECT_EQ(content("none.vtk"),
              "# vtk DataFile Version 3.0\noutput  lines\nASCII\nDATASET POLYDATA\n"
              "POINTS 0 double\nLINES 0 0\n");
}

TEST_F(LineWriter, TrajectoryHas200SamplesAPoint) {
    const mlTrajectory<double, 3> trajectory = parabola(5);
    ASSERT_TRUE(mlVTKWrtier::writeTrajectory(&trajectory, path("path.vtk")));
    std::istringstream file(content("path.vtk"));
    std::string line;
    const auto expectLine = [&](const std::string& expected) {
        std::getline(file, line);
        EXPECT_EQ(line, expected);
    };
    const auto rows = [&](auto&& expected) {
        for (int k = 0; k < 1000; ++k) {
            std::getline(file, line);
            double x = NAN, y = NAN, z = NAN;
            std::istringstream(line) >> x >> y >> z;
            const Eigen::Vector3d point = expected(1.0 + 2.0 * k / 1000.0);
            ASSERT_NEAR(x, point.x(), 6e-5) << k;
            ASSERT_NEAR(y, point.y(), 6e-5) << k;
            ASSERT_EQ(z, 0.0) << k;
        }
    };
    for (const char* head : {"# vtk DataFile Version 3.0", "output  a mlTrajectory", "ASCII",
                             "DATASET POLYDATA", "POINTS 1000 double"}) {
        expectLine(head);
    }
    rows([](double x) { return Eigen::Vector3d(x, x * x + 1.0 / 3.0, 0); });
    expectLine("LINES 1 1001");
    std::string cell = "1000";
    for (int i = 0; i < 1000; ++i) cell += " " + std::to_string(i);
    expectLine(cell);
    expectLine("POINT_DATA 1000");
    expectLine("VECTORS tagents double");
    rows([](double x) { return Eigen::Vector3d(1, 2 * x, 0); });
    EXPECT_EQ(file.get(), std::char_traits<char>::eof());
}

TEST_F(LineWriter, TrajectoryWithoutCurveTouchesNoFile) {
    const auto messageFor = [&](const mlTrajectory<double, 3>* trajectory) {
        return test::messageOf<std::logic_error>(
            [&] { mlVTKWrtier::writeTrajectory(trajectory, path("none/path.vtk")); });
    };
    EXPECT_EQ(messageFor(nullptr), "writeTrajectory: the trajectory is null; give a trajectory");
    const mlTrajectory<double, 3> empty;
    EXPECT_EQ(messageFor(&empty),
              "the trajectory has no curve yet; give it at least 4 control points with setPoints, "
              "then call fit");
    const mlTrajectory<double, 3> tooShort = parabola(2);
    EXPECT_EQ(messageFor(&tooShort),
              "the curve has been fitted to 2 control points; it needs at least 4: give them with "
              "setPoints, then call fit again");
    mlTrajectory<double, 3> emptied = parabola(5);
    emptied.setPoints({});
    EXPECT_EQ(messageFor(&emptied),
              "writeTrajectory: the trajectory now holds 0 control points, and needs at least 4; "
              "give them with setPoints, then call fit");
    EXPECT_FALSE(std::filesystem::exists(path("none")));
}

}  // namespace
}  // namespace drelt::test
