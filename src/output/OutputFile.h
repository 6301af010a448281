// A file that a saving operation writes.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <fstream>
#include <string>
#include <type_traits>

namespace drelt {

// Creates or truncates a file. A failure drops all later writes; close() reports it.
class OutputFile {
public:
    enum class MissingFolders { Create, Keep };

    explicit OutputFile(std::string path, MissingFolders folders = MissingFolders::Create);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const char* bytes, std::size_t count);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Flushes, closes and returns whether everything was written. If not, one warning on standard error
    // names the file and the system's reason, once for each folder.
    bool close();

private:
    void noteFailure();

    std::string path_;
    std::string failure_;  // the system's message for the first failure
    std::ofstream stream_;
};

// Text of an ASCII file, built in memory: fast, and independent of the locale.
class VtkText {
public:
    // The four lines that every file starts with. `format` is ASCII or BINARY.
    VtkText(const char* title, const char* format, const char* dataset);

    VtkText& operator<<(const char* text);
    template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
    VtkText& operator<<(Integer value) {
        integer(static_cast<long long>(value));
        return *this;
    }
    // A line of numbers in fixed notation with 4 decimals: three, two or one.
    void row(const Eigen::Vector3d& values);
    void row(const Eigen::Vector2d& values);
    void row(double value);
    template <class Rows>
    void rows(const Rows& all) {
        for (const auto& values : all) row(values);
    }

    const std::string& text() const { return text_; }
    // Writes the text to a file; returns whether everything was written.
    bool save(const std::string& path) const;

private:
    void integer(long long value);
    void fixed(double value);

    std::string text_;
};

}  // namespace drelt
