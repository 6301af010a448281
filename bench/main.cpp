// Node updates a second of the fluid operators against the machine's bandwidth. Rows register
// themselves from the other sources; another row is another source.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>

#include "bandwidth.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const int all = omp_get_max_threads();
    for (const int threads : {1, all}) {
        const auto& measured = drelt::bench::bandwidth(threads);
        std::printf("memory bandwidth, %d thread%s: in place %.1f GB/s, copy %.1f GB/s\n", threads,
                    threads == 1 ? "" : "s", measured.inPlace, measured.copy);
        if (all == 1) break;
    }
    std::fflush(stdout);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
