// Merging of temporary files in which most keys stand more than once, so that every block must be
// taken apart.
#include "codecs.h"
#include "hosts.h"
#include "measure.h"
#include "merge/merge_file_list.h"
#include "rows.h"

#include <array>
#include <random>

namespace kestrine::bench {

namespace {

// So many files, in which a host stands once and a half on average.
std::vector<std::string> writeInputs(const Run& run, const std::vector<Host>& hosts,
                                     size_t number) {
    std::mt19937_64 random(number);
    std::vector<std::string> paths;
    for (size_t file = 0; file < number; ++file) {
        std::vector<const Host*> chosen;
        for (const Host& host : hosts) {
            if (random() % (2 * number) < 3) {
                chosen.push_back(&host);
            }
        }
        paths.push_back(run.directory + "/input" + std::to_string(file));
        writeHostFile(paths.back(), chosen);
    }
    return paths;
}

Reference codecAlone(const Codec& codec, const std::vector<Block>& inputs,
                     const std::vector<Block>& output) {
    const auto work = [&codec, &inputs, &output] {
        decodeAll(codec, inputs);
        for (const Block& block : output) {
            require(!codec.encoded(block.bytes).empty(), "find bytes in a block");
        }
    };
    return {"decoding the inputs (" + codec.decoder + ") and encoding the output (" +
                codec.encoder + ")",
            [work] { return cpuOf(work); }};
}

void mergeRow(const Run& run, const std::vector<Host>& hosts, size_t number) {
    const std::vector<std::string> inputs = writeInputs(run, hosts, number);
    const std::string output = run.directory + "/merged";
    const auto merge = [&inputs, &output] {
        MergeFileList list;
        require(list.mergeTemp2Temp(inputs, someStatus(), output) == 0, "merge");
    };
    merge();
    std::vector<Block> inputBlocks;
    for (const std::string& path : inputs) {
        for (Block& block : blocksOf(path)) {
            inputBlocks.push_back(std::move(block));
        }
    }
    const std::vector<Block> merged = recordsOf(blocksOf(output));
    std::vector<Reference> references;
    for (const Codec& codec : codecs()) {
        references.push_back(codecAlone(codec, inputBlocks, merged));
    }
    printRatios(
        run.rounds, "merge of " + std::to_string(number) + " overlapping files",
        [&merge] { return cpuOf(merge); }, references);
}

} // namespace

void mergeRows(const Run& run) {
    const std::vector<Host> hosts = makeHosts(run.hosts / 3);
    for (const size_t number : std::array<size_t, 3>{2, 8, 64}) {
        mergeRow(run, hosts, number);
    }
}

} // namespace kestrine::bench
