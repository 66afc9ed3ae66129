// Merging 8 temporary files into one, opening and closing included, without syncing.
#include "support.h"

#include "merge/merge_file_list.h"

#include <benchmark/benchmark.h>

namespace kestrine::bench {

namespace {

constexpr size_t g_inputs = 8;

struct Inputs {
    void add(const std::string& name, const std::vector<size_t>& indices) {
        const HostFile file = writeHostFile(name, indices);
        paths.push_back(file.path);
        records += file.records;
        bytes += file.bytes;
    }
    std::vector<std::string> paths;
    uint64_t records = 0;
    uint64_t bytes = 0;
};

// Each file holds a quarter of the hosts, drawn anew: every block must be taken apart.
Inputs overlappingInputs() {
    Inputs inputs;
    for (size_t file = 0; file < g_inputs; ++file) {
        std::vector<size_t> indices;
        for (size_t i = 0; i < hosts().size(); ++i) {
            if ((hosts()[i].key >> (4 * file)) % 4 == 0) {
                indices.push_back(i);
            }
        }
        inputs.add("overlapping" + std::to_string(file), indices);
    }
    return inputs;
}

// Each file holds a range of keys of its own: whole blocks are copied.
Inputs disjointInputs() {
    Inputs inputs;
    const size_t each = hosts().size() / g_inputs;
    for (size_t file = 0; file < g_inputs; ++file) {
        std::vector<size_t> indices;
        for (size_t i = file * each; i < (file + 1) * each; ++i) {
            indices.push_back(i);
        }
        inputs.add("disjoint" + std::to_string(file), indices);
    }
    return inputs;
}

void merge(benchmark::State& state, const Inputs& inputs) {
    const ScopedSettings settings("");
    const std::string output = directory() + "/merged";
    for (auto _ : state) {
        MergeFileList list;
        require(list.mergeTemp2Temp(inputs.paths, someStatus(), output) == 0, "merge");
    }
    state.SetBytesProcessed(static_cast<int64_t>(inputs.bytes) * state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(inputs.records) * state.iterations());
}

void mergeOverlapping(benchmark::State& state) {
    static const Inputs inputs = overlappingInputs();
    merge(state, inputs);
}

void mergeDisjoint(benchmark::State& state) {
    static const Inputs inputs = disjointInputs();
    merge(state, inputs);
}

BENCHMARK(mergeOverlapping)->Unit(benchmark::kMillisecond);
BENCHMARK(mergeDisjoint)->Unit(benchmark::kMillisecond);

} // namespace

} // namespace kestrine::bench
