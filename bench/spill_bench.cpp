// From the map of counted hosts to files: the steps of a spill that writes everything, and the
// whole day stage, in which spills happen as they do in the service.
#include "support.h"

#include "aggregate/url_hash_map.h"
#include "cycle/url_stat.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace kestrine::bench {

namespace {

void spill(benchmark::State& state) {
    const auto number = static_cast<size_t>(state.range(0));
    uint64_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        UrlHashMap map;
        for (size_t i = 0; i < number; ++i) {
            // In no order of keys, as hosts come in logs.
            map.insert(makeUrlRecord(hosts()[i * 7919 % hosts().size()].view()));
        }
        bytes = map.usedMemory();
        state.ResumeTiming();

        std::vector<KeyedRecord> records;
        if (map.takeAll(records) != 0) {
            state.SkipWithError("takeAll fail");
            break;
        }
        std::sort(records.begin(), records.end(),
                  [](const KeyedRecord& a, const KeyedRecord& b) { return a.key < b.key; });
        UrlFile file;
        require(file.open(directory() + "/spill", OpenMode::Truncate) == 0, "open the spill");
        for (KeyedRecord& entry : records) {
            require(file.writeOneRecord(entry.record->view()) == 0, "write a record");
            entry.record.reset();
        }
        require(file.writeStatus(someStatus()) == 0 && file.close() == 0, "finish the spill");
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(number) * state.iterations());
}

// Logs to day file with its top lists. `budget` is maxHashMemory in KiB.
void dayStage(benchmark::State& state) {
    const LogNode& node = logNode(500000, true);
    const ScopedSettings settings("maxHashMemory=" + std::to_string(state.range(0)) + "\n");
    for (auto _ : state) {
        UrlStat stat(loadedSettings());
        require(stat.init() == 0 && stat.daycrcsort(node.account) == 0, "run the day stage");
        state.PauseTiming();
        ScopedSettings::clear();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(node.rawBytes) * state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(node.records) * state.iterations());
}

BENCHMARK(spill)->ArgName("records")->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(dayStage)->ArgName("budget")->Arg(102400)->Arg(256)->Arg(32)->Unit(
    benchmark::kMillisecond);

} // namespace

} // namespace kestrine::bench
