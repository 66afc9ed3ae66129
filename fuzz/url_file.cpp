// A URL file: its status as both kinds, its records, and a merge of it with a good file.
#include "harness/target.h"

#include "merge/merge_file_list.h"
#include "storage/compress.h"
#include "storage/url_key.h"
#include "storage/verify.h"

#include <algorithm>
#include <fuzzer/FuzzedDataProvider.h>
#include <map>
#include <optional>

namespace kestrine::fuzz {

namespace {

using Bytes = test::MemoryDisk::Bytes;
using Counts = std::map<uint64_t, uint64_t>; // by key

constexpr const char* g_hostile = "stat/acc/20120303/daycrcsort";
constexpr const char* g_good = "stat/acc/20120304/daycrcsort";
constexpr int32_t g_smallBlock = 4096; // bytes, more than this writes into one
constexpr const char* g_output = "stat/acc/20120303/daycrcsort.temp.temp";

// ---- the files

void closeWithStatus(UrlFile& file) {
    DayStatus status;
    status.setNewCounter(5);
    status.entries() = {{"d/acc/devid_1/20120303", 3, 17}, {"d/acc/devid_2/20120303", 0, 28}};
    status.setTotalCount(file.totalCount());
    require(file.writeStatus(status) == 0 && file.close() == 0, "writes a status");
}

// Two records a block; their keys are far apart, for blocks to be put in between.
Counts goodCounts() {
    Counts counts;
    for (uint64_t key = 8; key < 256; key += 8) {
        counts[key] = key + 1;
    }
    return counts;
}

Bytes goodFile() {
    UrlFile file(g_smallBlock);
    require(file.open(g_good, OpenMode::Truncate) == 0, "opens");
    for (const auto& [key, count] : goodCounts()) {
        require(key % 16 != 0 || file.writeUrlRecordBlocks() == 0, "writes a block");
        require(file.writeOneRecord({key, count, 7, "good.example"}) == 0, "writes a record");
    }
    closeWithStatus(file);
    return machine().disk.files[g_good];
}

// A compressed block of any bytes. Its header tells what is true of their records.
void putBlock(UrlFile& file, ByteView data) {
    BlockHeader header;
    UrlRecordView record;
    for (ByteView rest = data; parseRecord(rest, record) == 0; rest = rest.subspan(record.size())) {
        header.add(record);
    }
    Compress* compress = nullptr;
    ByteView packed;
    header.flag = 1;
    header.rawSize = static_cast<int32_t>(data.size());
    require(Compress::getInstance(&compress) == 0, "compresses");
    if (data.empty() || compress->compress(data, &packed) != 0) {
        return;
    }
    header.blockSize = static_cast<int32_t>(packed.size());
    // Nothing that the writer refuses: a reader never gets past its header.
    if (Util::validateBlockHeader(&header) == 0) {
        require(file.writeBlockHeader(header) == 0 && file.writeBlockData(packed) == 0, "writes");
    }
}

// Bytes as they are, or what blocks hold.
void putHostileFile(FuzzedDataProvider& input) {
    if (input.ConsumeBool()) {
        machine().put(g_hostile, input.ConsumeRemainingBytes<uint8_t>());
        return;
    }
    UrlFile file(g_smallBlock);
    require(file.open(g_hostile, OpenMode::Truncate) == 0, "opens");
    while (input.remaining_bytes() > 0) {
        putBlock(file, input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint16_t>()));
    }
    closeWithStatus(file);
}

// ---- readings and merge

// The counts of a file without any damage, with a status of either kind; none for any other file.
std::optional<Counts> readWhole(const std::string& path) {
    for (const uint32_t type : {g_dayStatusType, g_weekMonStatusType}) {
        UrlFile file;
        int result = file.openToRead(path, type) == 0 ? 0 : -1;
        if (file.dayStatus() != nullptr) {
            file.dayStatus()->print();
            (void)file.dayStatus()->date();
        }
        VerifyingReader reader(file);
        UrlRecordView record;
        Counts counts;
        while (result == 0 && (result = reader.readOneRecord(record)) == 0) {
            require(std::string(record.url).size() <= g_maxHostText, "a text is not too long");
            counts[record.key] = record.count;
        }
        if (result == 1) {
            return counts;
        }
        require(file.broken(), "damage marks the file broken");
    }
    return std::nullopt;
}

void merge(const std::vector<std::string>& inputs) {
    static const Counts good = goodCounts();
    const std::optional<Counts> hostile = readWhole(g_hostile);
    Counts sums;
    std::vector<UrlFile> files(inputs.size());
    std::vector<UrlFile*> pointers;
    for (size_t i = 0; i < inputs.size(); ++i) {
        // A status of a week is accepted with any checksum.
        if (files[i].openToRead(inputs[i], g_weekMonStatusType) != 0) {
            require(!hostile, "the status was good before");
            return;
        }
        pointers.push_back(&files[i]);
        for (const auto& [key, count] :
             inputs[i] == g_hostile ? hostile.value_or(Counts()) : good) {
            // As far as a block's total can hold it.
            sums[key] = std::min<uint64_t>(sums[key] + count, INT64_MAX);
        }
    }
    UrlFile output;
    require(output.open(g_output, OpenMode::Truncate) == 0, "opens");
    const int result = MergeFileList().commonMergeProcess(&output, pointers);
    bool blamed = false;
    for (const UrlFile& file : files) {
        require(!file.broken() || file.path() == g_hostile, "the good file stays good");
        blamed = blamed || file.broken();
    }
    require(!hostile || !blamed, "a file without damage stays good");
    require(result == 0 || blamed, "a merge that fails tells which file is to blame");
    closeWithStatus(output);
    // A block that is copied whole is not looked into: damage can pass through.
    require(!hostile || readWhole(g_output) == sums, "no key is lost or made, and counts are sums");
}

} // namespace

void runInput(ByteView bytes) {
    FuzzedDataProvider input(bytes.data(), bytes.size());
    const bool goodFirst = input.ConsumeBool();
    putHostileFile(input);
    static const Bytes good = goodFile();
    machine().put(g_good, good);
    merge(goodFirst ? std::vector<std::string>{g_good, g_hostile, g_good}
                    : std::vector<std::string>{g_hostile, g_good});
}

std::vector<std::string> makeSeeds() {
    const Bytes file = goodFile();
    const std::string good(file.begin(), file.end());
    std::vector<std::string> seeds = {good + "\1" + '\0'};
    // Blocks that begin at a good file's key, span one of its blocks, or its end.
    std::string blocks;
    std::string numbers;
    for (const std::vector<uint64_t>& keys :
         std::vector<std::vector<uint64_t>>{{8, 9}, {30, 50}, {64, 72, 300}}) {
        const size_t before = blocks.size();
        for (const uint64_t key : keys) {
            Bytes record(g_maxRecordSize);
            const UrlRecordView view{key, key, 1, "example"};
            view.store(record.data());
            blocks += asText(record).substr(0, view.size());
        }
        numbers.insert(0, {static_cast<char>(blocks.size() - before), '\0'});
        seeds.push_back(blocks + numbers + '\0' + "\1");
    }
    return seeds;
}

} // namespace kestrine::fuzz
