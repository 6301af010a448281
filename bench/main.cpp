// Node updates a second of the fluid operators against the machine's bandwidth. Rows register
// themselves from the other sources; another row is another source.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bandwidth.h"

namespace {

// As the kernel names it.
std::string processorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown";
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::AddCustomContext("processor", processorName());
    const int all = omp_get_max_threads();
    for (const int threads : {1, all}) {
        const auto& measured = drelt::bench::bandwidth(threads);
        std::printf("memory bandwidth, %d thread%s: in place %.1f GB/s, copy %.1f GB/s\n", threads,
                    threads == 1 ? "" : "s", measured.inPlace, measured.copy);
        benchmark::AddCustomContext("in_place_GB/s/threads:" + std::to_string(threads),
                                    std::to_string(measured.inPlace));
        if (all == 1) break;
    }
    std::fflush(stdout);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
