#include "output/OutputFile.h"

#include <charconv>
#include <filesystem>
#include <system_error>

namespace drelt {

OutputFile::OutputFile(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code ignored;
    if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
    stream_.open(path, std::ios::binary | std::ios::trunc);
}

void OutputFile::write(const char* bytes, std::size_t count) {
    if (stream_) stream_.write(bytes, static_cast<std::streamsize>(count));
}

bool OutputFile::close() {
    if (!stream_.is_open()) return false;
    stream_.flush();
    stream_.close();
    return static_cast<bool>(stream_);
}

VtkText::VtkText(const char* title, const char* format, const char* dataset) {
    *this << "# vtk DataFile Version 3.0\n"
          << title << "\n"
          << format << "\n"
          << "DATASET " << dataset << "\n";
}

VtkText& VtkText::operator<<(const char* text) {
    text_ += text;
    return *this;
}

VtkText& VtkText::operator<<(long long value) {
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value);
    text_.append(buffer, end.ptr);
    return *this;
}

void VtkText::fixed(double value) {
    char buffer[400];  // the largest double has 309 digits before the point
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 4);
    text_.append(buffer, end.ptr);
}

void VtkText::row(const Eigen::Vector3d& values) {
    fixed(values.x());
    text_ += ' ';
    fixed(values.y());
    text_ += ' ';
    fixed(values.z());
    text_ += '\n';
}

void VtkText::row(const Eigen::Vector2d& values) {
    fixed(values.x());
    text_ += ' ';
    fixed(values.y());
    text_ += '\n';
}

void VtkText::row(double value) {
    fixed(value);
    text_ += '\n';
}

}  // namespace drelt
