// Top lists of a day file.
#include "codecs.h"
#include "hosts.h"
#include "measure.h"
#include "rows.h"
#include "storage/url_file.h"
#include "topn/top_url_record.h"

namespace kestrine::bench {

namespace {

std::string writeDayFile(const Run& run) {
    const std::vector<Host> hosts = makeHosts(run.hosts);
    std::vector<const Host*> all;
    for (const Host& host : hosts) {
        all.push_back(&host);
    }
    const std::string path = run.directory + "/daycrcsort";
    writeHostFile(path, all);
    return path;
}

void readAndDecode(const Codec& codec, const std::string& path) {
    forEachBlock(path, [&codec](ByteView stored, bool compressed) {
        require(!codec.decoded(stored, compressed).empty(), "find bytes in a block");
    });
}

} // namespace

void topRows(const Run& run) {
    const std::string path = writeDayFile(run);
    const auto makeLists = [&run, &path] {
        TopUrlRecord top;
        require(top.createTop(g_dayStatusType, run.directory, path) == 0, "make top lists");
    };
    std::vector<Reference> references;
    for (const Codec& codec : codecs()) {
        references.push_back({"reading and decoding it (" + codec.decoder + ")", [&codec, &path] {
                                  return cpuOf([&] { readAndDecode(codec, path); });
                              }});
    }
    printRatios(
        run.rounds, "top lists of a day file of " + std::to_string(run.hosts) + " hosts",
        [&makeLists] { return cpuOf(makeLists); }, references);
}

} // namespace kestrine::bench
