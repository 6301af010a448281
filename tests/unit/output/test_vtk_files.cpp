// The bytes of the VTK files.
#include <gtest/gtest.h>

#include <cstring>
#include <dart/dynamics/SimpleFrame.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "output/mlVTKWrtier.h"

namespace drelt {
namespace {

namespace fs = std::filesystem;

// A folder for one test, which does not exist at first and is removed at the end.
class Files : public testing::Test {
protected:
    void SetUp() override { fs::remove_all(folder_); }
    void TearDown() override { fs::remove_all(folder_); }
    std::string path(const char* name) const { return (folder_ / "deeper" / name).string(); }
    static std::string content(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    fs::path folder_ = fs::temp_directory_path() /
                       ("drelt_output_" +
                        std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

template <class T>
T bigEndianAt(const std::string& bytes, std::size_t at) {
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | static_cast<unsigned char>(bytes.at(at + i));
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

TEST_F(Files, FluidOfTwoCubedNodes) {
    float ux[8], uy[8], uz[8], sigma[8];
    mlDensity<float> rou[8];
    PML_TYPE type[8];
    for (int n = 0; n < 8; ++n) {
        ux[n] = 0.01f * n;
        uy[n] = -0.02f;
        uz[n] = 0;
        sigma[n] = 0.5f * n;
        rou[n].value = 1 + 0.25f * n;
        type[n] = n == 7 ? PML_CORNER : PML_NONE;
    }
    MLFluidParam param{};
    param.samples_x = param.samples_y = param.samples_z = 2;
    param.dx = 0.125f;
    mlFlow flow{};
    flow.ux = ux;
    flow.uy = uy;
    flow.uz = uz;
    flow.rou = rou;
    flow.sigma = sigma;
    flow.PML_type = type;
    flow.param = &param;
    flow.count = 8;
    flow.startx = -1.5f;
    flow.starty = 1234567;
    flow.startz = 0.1f;
    mlUnitScale scale{};
    scale.u0px = scale.u0py = scale.u0pz = 2;
    scale.u0k = 0.1f;
    // The frame is turned by a quarter about z, moves and turns. The two rotations of the velocity cancel.
    dart::dynamics::SimpleFrame frame(dart::dynamics::Frame::World(), "frame");
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
    pose.rotate(Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ()));
    pose.translation() = Eigen::Vector3d(-1.5, 1234567, 0);
    frame.setTransform(pose);
    frame.setClassicDerivatives({3, 0, 0}, {0, 0, 5});

    EXPECT_EQ(mlVTKWrtier::writeFluid(flow, scale, path("fluid.vtk"), &frame), 1);

    const std::string bytes = content(path("fluid.vtk"));
    const std::string head =
        "# vtk DataFile Version 3.0\noutput  a fluid\nBINARY\nDATASET STRUCTURED_POINTS\n"
        "DIMENSIONS 2 2 2\nORIGIN -1.5 1.23457e+06 0.1\nSPACING 0.125 0.125 0.125\nPOINT_DATA 8\n"
        "VECTORS cell_velocity float\n";
    ASSERT_EQ(bytes.substr(0, head.size()), head);
    std::size_t at = head.size();
    // node 1 lies 1/8 m along x from the frame, which is -y of the frame:
    // omega x q = 5 z x (0, -1/8, 0) = (5/8, 0, 0); the frame's own velocity there is (0, -3, 0)
    EXPECT_FLOAT_EQ(bigEndianAt<float>(bytes, at + 12), 0.01f + 0.625f / 20);
    EXPECT_FLOAT_EQ(bigEndianAt<float>(bytes, at + 16), -0.02f - 3.0f / 20);
    at += 8 * 12;
    const auto expectBlock = [&](const std::string& title, auto value) {
        ASSERT_EQ(bytes.substr(at, title.size()), title);
        at += title.size();
        for (int n = 0; n < 8; ++n) {
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(bigEndianAt<decltype(value(0))>(bytes, at), value(n)) << title << n;
                at += 4;
            }
        }
    };
    expectBlock("VECTORS density float\n", [&](int n) { return rou[n].value; });
    expectBlock("VECTORS PML_type int\n", [&](int n) { return std::int32_t{type[n]}; });
    expectBlock("VECTORS sigma float\n", [&](int n) { return sigma[n]; });
    EXPECT_EQ(at, bytes.size());
}

TEST_F(Files, ObjectOfOneTriangle) {
    host_MeshData mesh;
    mesh.curr_positions = {{0, 0.5, -1}, {12345.67891, 0, 1e-9}, {1, 2, 3}};
    mesh.curr_normals.assign(3, Eigen::Vector3d(0, 0, 1));
    mesh.texCoords = {{0, 1}, {0.25, 0.5}, {1, 1}};
    mesh.faces.push_back({0, {2, 0, 1}, 0.5});
    EXPECT_TRUE(mlVTKWrtier::writeObject(mesh, path("object.vtk")));
    EXPECT_EQ(content(path("object.vtk")),
              "# vtk DataFile Version 3.0\noutput  a model\nASCII\nDATASET POLYDATA\n"
              "POINTS 3 float\n0.0000 0.5000 -1.0000\n12345.6789 0.0000 0.0000\n"
              "1.0000 2.0000 3.0000\nPOLYGONS 1 4\n3 2 0 1\nPOINT_DATA 3\n"
              "NORMALS cell_normals float\n0.0000 0.0000 1.0000\n0.0000 0.0000 1.0000\n"
              "0.0000 0.0000 1.0000\nTEXTURE_COORDINATES cell_uvs 2 float\n0.0000 1.0000\n"
              "0.2500 0.5000\n1.0000 1.0000\n");
}

TEST_F(Files, MarkersWithAndWithoutAny) {
    Markers_CPU markers;
    EXPECT_TRUE(mlVTKWrtier::writeMarkers(markers, path("none.vtk")));
    EXPECT_EQ(content(path("none.vtk")),
              "# vtk DataFile Version 3.0\noutput  markers \nASCII\nDATASET POLYDATA\n"
              "POINTS 0 double\nVERTICES 0 0\nPOINT_DATA 0\nSCALARS pressure float\n"
              "LOOKUP_TABLE default\nVECTORS normal double\nVECTORS velocity double\n");
    markers.vId = {0, 1};
    markers.pos = {{1, 2, 3}, {-1, -2, -3}};
    markers.normal = {{0, 0, 1}, {0, 1, 0}};
    markers.velocity = {{0.01, 0, 0}, {0, 0.02, 0}};
    markers.pressure = {1, 0.99f};
    EXPECT_TRUE(mlVTKWrtier::writeMarkers(markers, path("two.vtk")));
    EXPECT_EQ(content(path("two.vtk")),
              "# vtk DataFile Version 3.0\noutput  markers \nASCII\nDATASET POLYDATA\n"
              "POINTS 2 double\n1.0000 2.0000 3.0000\n-1.0000 -2.0000 -3.0000\n"
              "VERTICES 2 4\n1 0\n1 1\nPOINT_DATA 2\nSCALARS pressure float\n"
              "LOOKUP_TABLE default\n1.0000\n0.9900\nVECTORS normal double\n"
              "0.0000 0.0000 1.0000\n0.0000 1.0000 0.0000\nVECTORS velocity double\n"
              "0.0100 0.0000 0.0000\n0.0000 0.0200 0.0000\n");
}

// Every writer in turn, into files of this folder; returns what they print on standard error.
std::string warningsOfAllWriters(const fs::path& folder) {
    testing::internal::CaptureStderr();
    const auto path = [&](const char* name) { return (folder / name).string(); };
    EXPECT_FALSE(mlVTKWrtier::writeObject({}, path("object.vtk")));
    EXPECT_FALSE(mlVTKWrtier::writeMarkers({}, path("markers.vtk")));
    EXPECT_FALSE(mlVTKWrtier::writeLines({}, path("lines.vtk")));
    MLFluidParam param{};
    mlFlow flow{};
    flow.param = &param;
    const dart::dynamics::SimpleFrame still(dart::dynamics::Frame::World());
    EXPECT_EQ(mlVTKWrtier::writeFluid(flow, {}, path("fluid.vtk"), &still), 1);
    return testing::internal::GetCapturedStderr();
}

std::string warningFor(const fs::path& file, const std::string& reason) {
    return "[warning] '" + file.string() + "' cannot be written: " + reason +
           "; the run goes on, and later failures in this folder are not reported\n";
}

TEST_F(Files, AnUnwritableFolderGivesOneWarning) {
    const fs::path file = path("file");
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "no folder";
    EXPECT_EQ(warningsOfAllWriters(file), warningFor(file / "object.vtk", "Not a directory"));
    EXPECT_EQ(warningsOfAllWriters(file), "") << "said already";
    EXPECT_EQ(warningsOfAllWriters(file / "other"),
              warningFor(file / "other" / "object.vtk", "Not a directory"));
    EXPECT_EQ(content(file), "no folder");
}

TEST_F(Files, AFullDiskGivesOneWarning) {
    const fs::path folder = path("full");
    fs::create_directories(folder);
    for (const char* name : {"object.vtk", "markers.vtk", "lines.vtk", "fluid.vtk"}) {
        fs::create_symlink("/dev/full", folder / name);
    }
    EXPECT_EQ(warningsOfAllWriters(folder),
              warningFor(folder / "object.vtk", "No space left on device"));

    // fails in the middle, not only when the file is closed
    host_MeshData large;
    large.curr_positions.assign(100000, Eigen::Vector3d::Zero());
    fs::create_directories(path("large"));
    fs::create_symlink("/dev/full", fs::path(path("large")) / "object.vtk");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(mlVTKWrtier::writeObject(large, path("large/object.vtk")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              warningFor(path("large/object.vtk"), "No space left on device"));
}

}  // namespace
}  // namespace drelt
