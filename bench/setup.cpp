#include "setup.h"

#include <omp.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "platform/runtime.h"

namespace drelt::bench {
namespace {

Setup& current() {
    static Setup setup{platform::kHostDevice, true, {}};
    return setup;
}

std::vector<std::function<void()>>& waiting() {
    static std::vector<std::function<void()>> functions;
    return functions;
}

int deviceOf(const char* text) {
    char* end = nullptr;
    const long id = text == nullptr ? 0 : std::strtol(text, &end, 10);
    if (text == nullptr || *text == '\0' || *end != '\0') {
        throw std::invalid_argument(
            "--device needs a number: a GPU's, or -1 for the host's threads");
    }
    return static_cast<int>(id);
}

// Removes --device from the arguments and returns its value, or the host without it.
int takeDevice(int* argc, char** argv) {
    const char* const option = "--device";
    const std::size_t length = std::strlen(option);
    int device = platform::kHostDevice;
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strcmp(argv[i], option) == 0) {
            device = deviceOf(i + 1 < *argc ? argv[i + 1] : nullptr);
            ++i;
        } else if (std::strncmp(argv[i], option, length) == 0 && argv[i][length] == '=') {
            device = deviceOf(argv[i] + length + 1);
        } else {
            argv[kept++] = argv[i];
        }
    }
    *argc = kept;
    argv[kept] = nullptr;
    return device;
}

}  // namespace

const Setup& setup() { return current(); }

void readSetup(int* argc, char** argv) {
    Setup& s = current();
    s.device = takeDevice(argc, argv);
    if (cudaSetDevice(s.device) != cudaSuccess) {
        throw std::invalid_argument("--device " + std::to_string(s.device) +
                                    ": no such device here; leave it out for the host's threads");
    }
    s.onHost = platform::onHostDevice();
    const int all = omp_get_max_threads();
    s.threads = s.onHost && all > 1 ? std::vector<int>{1, all} : std::vector<int>{all};
}

bool onSetup(std::function<void()> addRows) {
    waiting().push_back(std::move(addRows));
    return true;
}

void addAllRows() {
    for (const auto& addRows : waiting()) addRows();
}

std::vector<Grid> grids(int pml_width) {
    if (setup().onHost) return {{256, 96, 96, pml_width}, {250, 97, 97, pml_width}};
    return {{160, 80, 80, pml_width}, {256, 128, 124, pml_width}, {400, 200, 200, pml_width}};
}

std::string nameOf(const Grid& grid) {
    return std::to_string(grid.nx) + "x" + std::to_string(grid.ny) + "x" + std::to_string(grid.nz);
}

void forEachThreads(const std::string& name,
                    const std::function<void(const std::string&, int)>& body) {
    for (const int threads : setup().threads) {
        const std::string row = setup().onHost ? "/threads:" + std::to_string(threads)
                                               : "/device:" + std::to_string(setup().device);
        body(name + row, threads);
    }
}

}  // namespace drelt::bench
