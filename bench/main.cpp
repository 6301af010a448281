// Node updates per second of the fluid operators, compared with the device's memory bandwidth. The other
// sources register their rows. `--device N` chooses the device; the default is the host's threads. All
// other arguments go to Google Benchmark.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "bandwidth.h"
#include "setup.h"

namespace {

using namespace drelt::bench;

// The processor's name as the kernel gives it.
std::string processorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown";
}

void printBandwidth() {
    for (const int threads : setup().threads) {
        const Bandwidth& measured = bandwidth(threads);
        if (setup().onHost) {
            std::printf("memory bandwidth, %d thread%s: in place %.1f GB/s, copy %.1f GB/s\n",
                        threads, threads == 1 ? "" : "s", measured.inPlace, measured.copy);
            benchmark::AddCustomContext("in_place_GB/s/threads:" + std::to_string(threads),
                                        std::to_string(measured.inPlace));
        } else {
            std::printf("memory bandwidth, device %d: in place %.1f GB/s, copy %.1f GB/s\n",
                        setup().device, measured.inPlace, measured.copy);
        }
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        readSetup(&argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::AddCustomContext("processor", processorName());
    addAllRows();
    printBandwidth();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
