#include "platform/messages.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <stdexcept>

namespace drelt {
namespace {

int firstVerbosity() {
    const char* const given = std::getenv("DRELT_VERBOSITY");
    return given != nullptr && std::string(given) == "0" ? 0 : 1;
}

std::atomic<int>& level() {
    static std::atomic<int> value{firstVerbosity()};
    return value;
}

}  // namespace

void setVerbosity(int wanted) {
    if (wanted != 0 && wanted != 1) {
        throw std::invalid_argument("setVerbosity: got " + std::to_string(wanted) +
                                    "; give 1 (everything) or 0 (warnings and errors only)");
    }
    level() = wanted;
}

int verbosity() { return level(); }

void inform(const char* format, ...) {
    if (verbosity() == 0) return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

void warn(const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "[warning] %s\n", text.c_str());
}

void warnOnce(const std::string& key, const std::string& text) {
    static std::mutex mutex;
    static std::set<std::string> said;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!said.insert(key).second) return;
    }
    warn(text);
}

}  // namespace drelt
