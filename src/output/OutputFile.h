// A file that a saving operation writes.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <fstream>
#include <string>

namespace drelt {

// Creates the missing folders of the path and truncates the file. After a failure all writes are
// dropped.
class OutputFile {
public:
    explicit OutputFile(const std::string& path);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const char* bytes, std::size_t count);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Flushes and closes; gives whether everything was written.
    bool close();

private:
    std::ofstream stream_;
};

// Text of an ASCII file, built in memory: independent of the locale, and quick.
class VtkText {
public:
    // The four lines that every file starts with. `format` is ASCII or BINARY.
    VtkText(const char* title, const char* format, const char* dataset);

    VtkText& operator<<(const char* text);
    VtkText& operator<<(long long value);
    // Three numbers in fixed notation with 4 decimals, on a line of their own.
    void row(const Eigen::Vector3d& values);
    // The same for two numbers and for one.
    void row(const Eigen::Vector2d& values);
    void row(double value);

    const std::string& text() const { return text_; }

private:
    void fixed(double value);

    std::string text_;
};

}  // namespace drelt
