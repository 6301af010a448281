// The fluid file: header lines, and four blocks of three big-endian 32-bit values per node.
#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <dart/dynamics/Frame.hpp>
#include <locale>
#include <sstream>
#include <vector>

#include "output/OutputFile.h"
#include "output/mlVTKWrtier.h"

namespace drelt {
namespace {

constexpr std::int64_t kNodesPerBlock = 1 << 20;

template <class T>
std::uint32_t bigEndian(T value) {
    static_assert(sizeof(T) == sizeof(std::uint32_t));
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return __builtin_bswap32(bits);
}

// Writes three values per node; value(n) returns them as an array of three 32-bit numbers.
template <class Value>
void writeVectors(OutputFile& file, std::int64_t count, std::vector<std::uint32_t>& block,
                  Value&& value) {
    for (std::int64_t start = 0; start < count; start += kNodesPerBlock) {
        const std::int64_t nodes = std::min(kNodesPerBlock, count - start);
#pragma omp parallel for schedule(static)
        for (std::int64_t i = 0; i < nodes; ++i) {
            const auto components = value(start + i);
            for (int c = 0; c < 3; ++c) block[3 * i + c] = bigEndian(components[c]);
        }
        file.write(reinterpret_cast<const char*>(block.data()), 12 * nodes);
    }
}

// Converts grid velocities to inertial ones: adds the motion of the frame that the grid follows.
class InertialVelocity {
public:
    InertialVelocity(const mlFlow& flow, const mlUnitScale& scale,
                     const dart::dynamics::Frame* frame)
        : flow_(flow), scale_(scale) {
        const Eigen::Isometry3d& pose = frame->getWorldTransform();
        rotation_ = Eigen::Affine3d(pose.matrix()).rotation();
        inverseLinear_ = pose.linear().transpose();
        inverseTranslation_ = -(inverseLinear_ * pose.translation());
        frameVelocity_ = rotation_.transpose() * frame->getLinearVelocity();
        angularVelocity_ = frame->getAngularVelocity();
    }

    // Lattice units.
    std::array<float, 3> operator()(std::int64_t n) const {
        const MLFluidParam& param = *flow_.param;
        const std::int64_t row = n / param.samples_x;
        const auto x = static_cast<int>(n % param.samples_x);
        const auto y = static_cast<int>(row % param.samples_y);
        const auto z = static_cast<int>(row / param.samples_y);
        const float px = x * param.dx + flow_.startx;
        const float py = y * param.dx + flow_.starty;
        const float pz = z * param.dx + flow_.startz;
        const Eigen::Vector3d place =
            inverseLinear_ * Eigen::Vector3d(px, py, pz) + inverseTranslation_;
        const float u0k = scale_.u0k;
        const float ux = flow_.ux[n] * scale_.u0px / u0k;
        const float uy = flow_.uy[n] * scale_.u0py / u0k;
        const float uz = flow_.uz[n] * scale_.u0pz / u0k;
        const Eigen::Vector3d velocity =
            Eigen::Vector3d(ux, uy, uz) + angularVelocity_.cross(place) + frameVelocity_;
        // The two rotations cancel up to rounding; they stay because that rounding is part of the result.
        const Eigen::Vector3d turned = rotation_ * velocity;
        const Eigen::Vector3d out = rotation_.transpose() * turned;
        return {static_cast<float>(out.x() / scale_.u0px * u0k),
                static_cast<float>(out.y() / scale_.u0py * u0k),
                static_cast<float>(out.z() / scale_.u0pz * u0k)};
    }

private:
    const mlFlow& flow_;
    const mlUnitScale& scale_;
    Eigen::Matrix3d rotation_, inverseLinear_;
    Eigen::Vector3d inverseTranslation_, frameVelocity_, angularVelocity_;
};

std::string fluidHead(const mlFlow& flow) {
    const MLFluidParam& param = *flow.param;
    const VtkText head("output  a fluid", "BINARY", "STRUCTURED_POINTS");
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << head.text() << "DIMENSIONS " << param.samples_x << " " << param.samples_y << " "
        << param.samples_z << "\n"
        << "ORIGIN " << flow.startx << " " << flow.starty << " " << flow.startz << "\n"
        << "SPACING " << param.dx << " " << param.dx << " " << param.dx << "\n"
        << "POINT_DATA " << flow.count << "\n";
    return out.str();
}

}  // namespace

int mlVTKWrtier::writeFluid(const mlFlow& flow, const mlUnitScale& scale, const std::string& path,
                            const dart::dynamics::Frame* frame) {
    OutputFile file(path);
    std::vector<std::uint32_t> block(3 * std::min(kNodesPerBlock, flow.count));
    file.write(fluidHead(flow));
    file.write("VECTORS cell_velocity float\n");
    writeVectors(file, flow.count, block, InertialVelocity(flow, scale, frame));
    const auto thrice = [](auto value) { return std::array{value, value, value}; };
    file.write("VECTORS density float\n");
    writeVectors(file, flow.count, block,
                 [&](std::int64_t n) { return thrice(flow.rou[n].value); });
    file.write("VECTORS PML_type int\n");
    writeVectors(file, flow.count, block,
                 [&](std::int64_t n) { return thrice(std::int32_t{flow.PML_type[n]}); });
    file.write("VECTORS sigma float\n");
    writeVectors(file, flow.count, block, [&](std::int64_t n) { return thrice(flow.sigma[n]); });
    file.close();
    return 1;
}

}  // namespace drelt
