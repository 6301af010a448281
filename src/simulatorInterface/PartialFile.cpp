#include "simulatorInterface/PartialFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace drelt {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMark = ".partial-";

// A link stays, and the file that it names is replaced.
std::string resolved(const std::string& path) {
    std::error_code ignored;
    if (!fs::is_symlink(path, ignored)) return path;
    const fs::path target = fs::weakly_canonical(path, ignored);
    return ignored ? path : target.string();
}

fs::path folderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

// Of this process, this file.
std::string partialName(const std::string& path) {
    static std::atomic<unsigned> count{0};
    return path + kMark + std::to_string(getpid()) + "-" + std::to_string(count++);
}

// A process holds a lock on what it writes; what nobody has locked was left by one that is gone.
void removeLeftovers(const std::string& path) {
    const std::string start = fs::path(path).filename().string() + kMark;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folderOf(path), ignored)) {
        if (entry.path().filename().string().rfind(start, 0) != 0) continue;
        const Descriptor file(open(entry.path().c_str(), O_RDWR | O_CLOEXEC));
        if (file.get() >= 0 && flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            fs::remove(entry.path(), ignored);
        }
    }
}

void makeFolder(const std::string& path) {
    std::error_code ignored;  // the open that follows reports what matters
    fs::create_directories(folderOf(path), ignored);
}

}  // namespace

PartialFile::PartialFile(const std::string& path)
    : path_(resolved(path)),
      shown_(path),
      name_(partialName(path_)),
      file_((makeFolder(path_), removeLeftovers(path_),
             open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666))) {
    if (file_.get() < 0) fail(errno);
    flock(file_.get(), LOCK_EX | LOCK_NB);
    if (fs::is_directory(path_)) {
        unlink(name_.c_str());
        fail(EISDIR);
    }
}

PartialFile::~PartialFile() {
    if (!finished_ && file_.get() >= 0) unlink(name_.c_str());
}

void PartialFile::fail(int error) const {
    throw std::runtime_error("saveState: cannot write '" + shown_ + "': " + std::strerror(error) +
                             "; what was there is unchanged");
}

void PartialFile::finish(int error) {
    if (error != 0) fail(error);
    if (fsync(file_.get()) != 0) fail(errno);
    if (std::rename(name_.c_str(), path_.c_str()) != 0) fail(errno);
    finished_ = true;
    const Descriptor folder(open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) fsync(folder.get());  // not all file systems have it
}

}  // namespace drelt
