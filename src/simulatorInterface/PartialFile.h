// A file that gets its name only when it is whole.
#pragma once

#include <unistd.h>

#include <string>

namespace drelt {

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// Written under a name of its own in the folder of `path`. Errors are std::runtime_error with the path, the
// reason and that the file at `path` is unchanged.
class PartialFile {
public:
    // Makes missing folders, and removes what killed processes left of the same file.
    explicit PartialFile(const std::string& path);
    // Removes the file unless it was finished.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    int descriptor() const { return file_.get(); }
    const std::string& name() const { return name_; }
    // Brings the file to the disk and renames it to `path`. `error` is an errno of an earlier write, or 0.
    void finish(int error);

private:
    [[noreturn]] void fail(int error) const;

    std::string path_, shown_, name_;
    Descriptor file_;
    bool finished_ = false;
};

}  // namespace drelt
