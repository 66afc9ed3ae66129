#include "frame/log.h"
#include "frame/run_flag.h"
#include "support.h"
#include "tree/free_space.h"

#include <benchmark/benchmark.h>

using namespace kestrine;

int main(int argc, char** argv) {
    reportErrorsToStderr();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    uint32_t free = 0;
    bench::require(Util::getAvailableSpace(bench::directory(), free) == 0 &&
                       free > g_minFreeSpaceMiB,
                   "run: merges wait until more than 5 GiB are free in the temporary directory");
    g_isRunning = 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
