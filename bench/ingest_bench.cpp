// From log files to counted hosts, against the least that it can cost: inflating the same blocks.
#include "support.h"

#include "cycle/url_stat.h"
#include "frame/buffer.h"
#include "input/loader_reader.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

namespace kestrine::bench {

namespace {

constexpr size_t g_bufferSize = 2097152;

void report(benchmark::State& state, const LogNode& node) {
    state.SetBytesProcessed(static_cast<int64_t>(node.rawBytes) * state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(node.records) * state.iterations());
}

struct Buffers {
    Buffers() {
        for (Buffer* buffer : {&stored, &raw, &delivered}) {
            require(buffer->allocate(g_bufferSize) == 0, "allocate a buffer");
        }
    }
    Buffer stored;
    Buffer raw;
    Buffer delivered;
};

// Hands every delivered piece of the node's record stream to `use`.
template <typename Use>
void readNode(const LogNode& node, Buffers& buffers, const Use& use) {
    LoaderReader reader;
    require(reader.init(buffers.stored.span(), buffers.raw.span()) == 0 &&
                reader.open(node.typeDirectory, 0) == g_loaderDone,
            "open the log files");
    int result = g_loaderDone;
    while (result == g_loaderDone) {
        size_t used = 0;
        result = reader.readHistory(buffers.delivered.span(), used);
        if (used > 0) {
            use(ByteView(buffers.delivered.data(), used));
        }
    }
    require(result == g_loaderNoMore, "read the log files");
}

void inflateAlone(benchmark::State& state) {
    const LogNode& node = logNode(static_cast<uint32_t>(state.range(0)), true);
    Buffers buffers;
    for (auto _ : state) {
        for (const std::string& payload : node.payloads) {
            uLongf length = g_bufferSize;
            const ByteView bytes = asBytes(payload);
            require(uncompress(buffers.raw.data(), &length, bytes.data(), bytes.size()) == Z_OK,
                    "inflate a block");
            benchmark::DoNotOptimize(buffers.raw.data());
        }
    }
    report(state, node);
}

// Reads, inflates, checks and copies the records out.
void readRecords(benchmark::State& state) {
    const LogNode& node = logNode(static_cast<uint32_t>(state.range(0)), state.range(1) != 0);
    Buffers buffers;
    for (auto _ : state) {
        readNode(node, buffers, [](ByteView stream) { benchmark::DoNotOptimize(stream.data()); });
    }
    report(state, node);
}

// The same, then finds the hosts and counts them.
void ingest(benchmark::State& state) {
    const LogNode& node = logNode(static_cast<uint32_t>(state.range(0)), state.range(1) != 0);
    Buffers buffers;
    for (auto _ : state) {
        UrlStat stat(loadedSettings());
        require(stat.init() == 0, "prepare the counting");
        readNode(node, buffers, [&stat](ByteView stream) {
            require(stat.dealOneUserBuffer(stream) == 0, "count");
        });
    }
    report(state, node);
}

BENCHMARK(inflateAlone)->ArgName("hosts")->Arg(5000)->Arg(500000)->Unit(benchmark::kMillisecond);
BENCHMARK(readRecords)
    ->ArgNames({"hosts", "compressed"})
    ->ArgsProduct({{5000, 500000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ingest)
    ->ArgNames({"hosts", "compressed"})
    ->ArgsProduct({{5000, 500000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

} // namespace

} // namespace kestrine::bench
