#include "platform/check.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/cuda_backend.h"

namespace drelt::platform {
namespace {

std::string sourcePath(const char* file) {
    std::string path(file);
    const std::string root = "src/";
    const std::size_t at = path.rfind("/" + root);
    if (at != std::string::npos) {
        path.erase(0, at + 1 + root.size());
    } else if (path.compare(0, root.size(), root) == 0) {
        path.erase(0, root.size());
    }
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) path.erase(dot);
    return path;
}

}  // namespace

void failDeviceCall(cudaError_t status, const char* statement, const char* file, int line) {
    // at exit, destructors free device memory that is already gone: only the first failure is reported
    static std::atomic<bool> ending{false};
    if (ending.exchange(true)) std::_Exit(1);
    std::fflush(stdout);
    std::fprintf(stderr, "CUDA error at %s:%d code=%d(%s) \"%s\" \n", sourcePath(file).c_str(),
                 line, static_cast<int>(status), errorName(status), statement);
    cudaDeviceReset();
    std::exit(1);
}

void requireDevice(int device, const char* what) {
    const int gpus = gpu::deviceCount();
    const int devices = gpus > 0 ? gpus : 1;  // without a GPU, id 0 is the host's threads
    if (device >= kHostDevice && device < devices) return;
    throw std::invalid_argument(std::string(what) + ": device id " + std::to_string(device) +
                                " names no device; give " +
                                (devices > 1 ? "0 to " + std::to_string(devices - 1) : "0") +
                                ", or -1 for the host's threads");
}

}  // namespace drelt::platform
