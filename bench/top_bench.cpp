// Top lists of a day file, syncing included.
#include "support.h"

#include "topn/top_url_record.h"

#include <benchmark/benchmark.h>

#include <numeric>

namespace kestrine::bench {

namespace {

void topList(benchmark::State& state) {
    std::vector<size_t> all(hosts().size());
    std::iota(all.begin(), all.end(), size_t{0});
    const HostFile file = writeHostFile("daycrcsort", all);
    for (auto _ : state) {
        TopUrlRecord top;
        require(top.createTop(g_dayStatusType, directory(), file.path) == 0, "make top lists");
    }
    state.SetBytesProcessed(static_cast<int64_t>(file.bytes) * state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(file.records) * state.iterations());
}

BENCHMARK(topList)->Unit(benchmark::kMillisecond);

} // namespace

} // namespace kestrine::bench
