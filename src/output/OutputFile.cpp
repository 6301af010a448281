#include "output/OutputFile.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace drelt {

OutputFile::OutputFile(const std::string& path) : path_(path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code error;
    if (!folder.empty()) std::filesystem::create_directories(folder, error);
    if (error) reason_ = error.message();
    errno = 0;
    stream_.open(path, std::ios::binary | std::ios::trunc);
    if (!stream_ && reason_.empty() && errno != 0) reason_ = std::strerror(errno);
}

void OutputFile::write(const char* bytes, std::size_t count) {
    if (!stream_) return;
    errno = 0;
    stream_.write(bytes, static_cast<std::streamsize>(count));
    if (!stream_ && errno != 0) reason_ = std::strerror(errno);
}

bool OutputFile::close() {
    const bool open = stream_.is_open();
    if (stream_) {
        errno = 0;
        stream_.flush();
        stream_.close();
        if (!stream_ && errno != 0) reason_ = std::strerror(errno);
    }
    const bool written = open && static_cast<bool>(stream_);
    if (!written) {
        std::printf("[warning] %s was not written%s%s\n", path_.c_str(),
                    reason_.empty() ? "" : ": ", reason_.c_str());
    }
    return written;
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
