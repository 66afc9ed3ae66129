// A month of day files for urlstat, and what reading them costs at the least.
#include "codecs.h"
#include "hosts.h"
#include "measure.h"
#include "merge/merge_file_list.h"
#include "rows.h"
#include "tree/names.h"

#include <cstdio>
#include <filesystem>

namespace kestrine::bench {

namespace {

constexpr int32_t g_firstDay = 20240301;
constexpr int32_t g_days = 31;

std::vector<std::string> dayFiles(const std::string& root) {
    std::vector<std::string> files;
    for (int32_t day = g_firstDay; day < g_firstDay + g_days; ++day) {
        const std::string directory =
            names::dayDir(names::accountDir(root, "bench"), names::dateText(day));
        files.push_back(names::formalFile(directory, Period::Day));
    }
    return files;
}

} // namespace

void makeMonth(const std::string& root, uint32_t hosts) {
    const std::vector<Host> all = makeHosts(hosts);
    std::vector<const Host*> pointers;
    for (const Host& host : all) {
        pointers.push_back(&host);
    }
    for (const std::string& path : dayFiles(root)) {
        const std::filesystem::path directory = std::filesystem::path(path).parent_path();
        std::filesystem::create_directories(directory);
        writeHostFile(path, pointers, directory.filename().string());
    }
}

void printMonth(const std::string& root) {
    const std::vector<std::string> files = dayFiles(root);
    const std::string output = root + "/merged";
    std::printf("merging their files into one\t%.6f\n", cpuOf([&] {
                    MergeFileList list;
                    require(list.mergeTemp2Temp(files, someStatus(), output) == 0, "merge");
                }));
    std::filesystem::remove(output);
    for (const Codec& codec : codecs()) {
        const double seconds = cpuOf([&] {
            for (const std::string& path : files) {
                forEachBlock(path, [&codec](ByteView stored, bool compressed) {
                    require(!codec.decoded(stored, compressed).empty(), "find bytes in a block");
                });
            }
        });
        std::printf("reading and decoding them (%s)\t%.6f\n", codec.decoder.c_str(), seconds);
    }
}

} // namespace kestrine::bench
