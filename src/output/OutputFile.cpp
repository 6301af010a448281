#include "output/OutputFile.h"

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/messages.h"

namespace drelt {

OutputFile::OutputFile(std::string path, MissingFolders folders) : path_(std::move(path)) {
    const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
    std::error_code error;
    if (folders == MissingFolders::Create && !folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    errno = 0;
    stream_.open(path_, std::ios::binary | std::ios::trunc);
    if (stream_) return;
    noteFailure();
    if (error) failure_ = error.message();  // more exact than "No such file or directory"
}

void OutputFile::write(const char* bytes, std::size_t count) {
    if (!stream_) return;
    errno = 0;
    stream_.write(bytes, static_cast<std::streamsize>(count));
    if (!stream_) noteFailure();
}

bool OutputFile::close() {
    if (stream_.is_open()) {
        errno = 0;
        stream_.close();  // writes what is still in the buffer
        if (!stream_) noteFailure();
    }
    if (failure_.empty()) return true;
    const std::string folder = std::filesystem::path(path_).parent_path().string();
    warnOnce("OutputFile " + folder,
             "'" + path_ + "' cannot be written: " + failure_ +
                 "; the run goes on, and later failures in this folder are not reported");
    return false;
}

// errno is that of the failed call; the standard library may leave it at 0.
void OutputFile::noteFailure() {
    if (!failure_.empty()) return;
    failure_ = errno != 0 ? std::generic_category().message(errno) : "unknown error";
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

void VtkText::integer(long long value) {
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value);
    text_.append(buffer, end.ptr);
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

bool VtkText::save(const std::string& path) const {
    OutputFile file(path);
    file.write(text_);
    return file.close();
}

}  // namespace drelt
