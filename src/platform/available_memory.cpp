// How much memory an allocation can still get.
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

#include "platform/cuda_backend.h"
#include "platform/hooks.h"
#include "platform/runtime.h"

namespace drelt::platform {
namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

// What the memory limit of a container leaves.
std::size_t bytesToContainerLimit() {
    const char* const files[][2] = {{"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory.current"},
                                    {"/sys/fs/cgroup/memory/memory.limit_in_bytes",
                                     "/sys/fs/cgroup/memory/memory.usage_in_bytes"}};
    for (const auto& [limitFile, usageFile] : files) {
        std::size_t limit = 0;
        std::size_t usage = 0;
        if (!(std::ifstream(limitFile) >> limit) || !(std::ifstream(usageFile) >> usage)) continue;
        return limit > usage ? limit - usage : 0;
    }
    return kNoLimit;
}

std::size_t freeMachineBytes() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    std::size_t kilobytes = 0;
    std::string unit;
    while (meminfo >> key >> kilobytes) {
        if (key == "MemAvailable:") return kilobytes * 1024;
        std::getline(meminfo, unit);
    }
    return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

std::size_t availableHostBytes() {
    const auto cap = hooks::hostBytesCap.load();
    return std::min(
        {freeMachineBytes(), bytesToContainerLimit(), cap != nullptr ? cap() : kNoLimit});
}

std::size_t deviceBytesFree() { return onHostDevice() ? availableHostBytes() : gpu::freeBytes(); }

}  // namespace drelt::platform
