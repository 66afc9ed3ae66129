// A URL file: its status as both kinds, its records, its blocks, and a merge of it with a good
// file.
//
//   input   bits 0, 1  form: 0 the file's bytes as they are
//   byte 0                   1 the same, with sizes that fit and the status' checksum repaired
//                            2 blocks' data, packed into a file (see putBlock)
//                            3 records, written by the project's own writer (see putRecords)
//           bit 2      trailer with a week or month status (forms 2 and 3)
//           bit 3      the good file has the keys of hosts, otherwise small ones
//           bit 4      the good file comes first
//           bit 5      the good file comes twice
//           bit 6      the first block is about as large as a buffer (form 2, see putLargeBlock)
//   rest    the file, blocks or records
#include "harness/fuzz_platform.h"
#include "harness/target.h"
#include "harness/url_blocks.h"

#include "merge/merge_file_list.h"
#include "storage/status_frame.h"
#include "storage/url_key.h"
#include "storage/verify.h"

namespace kestrine::fuzz {

namespace {

constexpr const char* g_hostile = "stat/acc/20120303/daycrcsort";
constexpr const char* g_output = "stat/acc/20120303/daycrcsort.temp.temp";

enum Form { AsIs = 0, Repaired = 1, Packed = 2, Written = 3 };

struct Options {
    explicit Options(uint8_t bits)
        : form(static_cast<Form>(bits & 3)), weekly((bits & 4) != 0), hosts((bits & 8) != 0),
          goodFirst((bits & 16) != 0), goodTwice((bits & 32) != 0), large((bits & 64) != 0) {}

    Form form;
    bool weekly;
    bool hosts;
    bool goodFirst;
    bool goodTwice;
    bool large;

    [[nodiscard]] uint32_t type() const { return weekly ? g_weekMonStatusType : g_dayStatusType; }
};

// ---- good files

DayStatus dayStatus() {
    DayStatus status;
    status.setNewCounter(5);
    status.entries() = {{"d/acc/devid_1/20120303", 3, 17}, {"d/acc/devid_2/20120303", 0, 28}};
    return status;
}

WeekMonStatus weekMonStatus() {
    WeekMonStatus status;
    status.entries() = {{"stat/acc/new/20120303", 5}, {"stat/acc/new/20120304", -1}};
    return status;
}

void closeWithStatus(UrlFile& file, uint32_t type) {
    if (type == g_dayStatusType) {
        require(file.writeStatus(dayStatus()) == 0, "a day status is written");
    } else {
        require(file.writeStatus(weekMonStatus()) == 0, "a week status is written");
    }
    require(file.close() == 0, "closes");
}

// Writes the records, in key order, in blocks of at most `perBlock`.
void putGoodFile(const std::string& path, const Records& records, size_t perBlock, uint32_t type) {
    UrlFile file;
    require(file.open(path, OpenMode::Truncate) == 0, "opens");
    size_t inBlock = 0;
    for (const auto& [key, record] : records) {
        if (inBlock++ == perBlock) {
            require(file.writeUrlRecordBlocks() == 0, "a block is written");
            inBlock = 1;
        }
        require(file.writeOneRecord({key, record.count, record.type, record.url}) == 0,
                "a record is written");
    }
    closeWithStatus(file, type);
}

Records smallKeys() {
    Records records;
    for (uint64_t key = 8; key < 1024; key += key < 64 ? 8 : 64) {
        records[key] = {key + 1, 7, "good.example"};
    }
    return records;
}

Records hostKeys() {
    Records records;
    for (const char* host : {"www.example.com", "example.net", "a.example", "b.example", "c"}) {
        records[urlKey(asBytes(host))] = {3, 1, host};
    }
    return records;
}

// Both files, made once.
const Records& goodRecords(bool hosts) {
    static const Records all[] = {smallKeys(), hostKeys()};
    return all[hosts ? 1 : 0];
}

const Bytes& goodFile(bool hosts) {
    static const auto make = [](bool which) {
        putGoodFile("good", goodRecords(which), 3, g_dayStatusType);
        return disk().content("good");
    };
    static const Bytes all[] = {make(false), make(true)};
    return all[hosts ? 1 : 0];
}

// ---- forms 2 and 3

//   control byte  bit 0      compressed
//                 bits 1, 2  smallest and largest key one off
//                 bit 3      one record more than there is
//                 bit 4      a total that any sum overflows
//                 bit 5      both sizes one more than there is
//                 bit 6      the first record's count is 0
//                 bit 7      it is as large as the field allows
//   word          length of the data
//   data
void putBlock(UrlFile& file, InputReader& input) {
    const uint8_t control = input.byte();
    const ByteView taken = input.take(input.word());
    StoredBlock block = storedBlock(taken);
    if ((control & 192) != 0 && block.data.size() >= g_recordHeadSize) {
        storeLittle(block.data.data() + 8, (control & 64) != 0 ? uint64_t{0} : ~uint64_t{0});
    }
    if ((control & 1) != 0) {
        compressBlock(block);
    }
    block.header.minKey += (control >> 1) & 1U;
    block.header.maxKey -= (control >> 2) & 1U;
    block.header.count += (control >> 3) & 1;
    if ((control & 16) != 0) {
        block.header.totalCount = INT64_MAX;
    }
    block.header.blockSize += (control >> 5) & 1;
    block.header.rawSize += (control >> 5) & 1;
    // Nothing that the writer refuses: a reader never gets past its header.
    if (Util::validateBlockHeader(&block.header) == 0) {
        require(file.writeBlockHeader(block.header) == 0, "a header is written");
        require(file.writeBlockData(block.data) == 0, "data is written");
    }
}

// Zeros under a good header: up to 4 bytes less than a buffer holds, or up to 4 more.
//   byte  bit 0 compressed; the rest: the size
void putLargeBlock(UrlFile& file, InputReader& input) {
    constexpr int32_t bufferSize = 2097152;
    const uint8_t control = input.byte();
    BlockHeader header{~0ULL, ~0ULL, 1, 0, 0, control & 1U, 1};
    header.blockSize = header.rawSize = bufferSize - 4 + (control >> 1) % 9;
    require(file.writeBlockHeader(header) == 0, "a header is written");
    require(file.writeBlockData(Bytes(static_cast<size_t>(header.blockSize))) == 0,
            "data is written");
}

//   byte  bits 0 to 5  distance from the last key less 1; bit 6: 64 times as far
//         bit 7        begins a block
//   byte  count less 1 in bits 0 to 5, bits 6 and 7: shifted left by 0, 8, 16 or 56 bits
//   byte  length of the text; text
void putRecords(UrlFile& file, InputReader& input) {
    uint64_t key = 0;
    while (!input.empty()) {
        const uint8_t step = input.byte();
        key += (1U + (step & 63U)) * ((step & 64) != 0 ? 64U : 1U);
        if ((step & 128) != 0) {
            require(file.writeUrlRecordBlocks() == 0, "a block is written");
        }
        const uint8_t count = input.byte();
        static constexpr int shifts[] = {0, 8, 16, 56};
        const uint64_t shifted = (1ULL + (count & 63U)) << shifts[count >> 6];
        const ByteView url = input.take(input.byte());
        require(file.writeOneRecord({key, shifted, count, asText(url)}) == 0,
                "a record is written");
    }
}

void putHostileFile(ByteView bytes, const Options& options) {
    if (options.form == AsIs || options.form == Repaired) {
        disk().put(g_hostile, options.form == Repaired ? repairedUrlFile(bytes)
                                                       : Bytes(bytes.begin(), bytes.end()));
        return;
    }
    UrlFile file;
    require(file.open(g_hostile, OpenMode::Truncate) == 0, "opens");
    InputReader input(bytes);
    if (options.form == Written) {
        putRecords(file, input);
    }
    if (options.form == Packed && options.large) {
        putLargeBlock(file, input);
    }
    while (!input.empty()) {
        putBlock(file, input);
    }
    closeWithStatus(file, options.type());
}

// ---- readings

void useStatus(UrlFile& file) {
    if (DayStatus* const day = file.dayStatus()) {
        day->print();
        (void)day->date();
        DayStatus merged = dayStatus();
        for (const NodeEntry& entry : day->entries()) {
            require(entry.path.size() < g_statusPathSize, "a path fits its field");
            merged.updateIfNewer(entry);
        }
    }
    if (WeekMonStatus* const weekMon = file.weekMonStatus()) {
        for (; !weekMon->atEnd(); weekMon->moveNextAfter()) {
            require(weekMon->getNewPath().size() < g_statusPathSize, "a path fits its field");
            (void)weekMon->counterOfDate(weekMon->getNewPath());
            (void)weekMon->getNewCounter();
        }
    }
}

void readRecords(UrlFile& file) {
    UrlRecordView record;
    int result = 0;
    uint64_t read = 0;
    while ((result = file.readOneRecord(record)) == 0) {
        const std::string text(record.url); // every byte of it
        require(text.size() <= g_maxHostText, "a text is not too long");
        ++read;
    }
    require(result == 1 || file.broken(), "damage marks the file broken");
    require(file.totalCount() == read, "records are counted");
}

// The status of either kind, and the records. False when there is no status.
bool readAll() {
    UrlFile file;
    require(file.open(g_hostile, OpenMode::Read) == 0, "opens");
    bool good = false;
    for (const uint32_t type : {g_weekMonStatusType, g_dayStatusType}) {
        const int result = file.readStatus(type);
        require(result == 0 || file.broken(), "an unreadable status marks the file broken");
        if (result == 0) {
            useStatus(file);
        }
        good = good || result == 0;
    }
    if (good) {
        readRecords(file);
    }
    return good;
}

// ---- merge

// Sums of all, as far as a block's total can hold them.
Records sumOf(const std::vector<const Records*>& inputs) {
    Records all;
    for (const Records* const records : inputs) {
        for (const auto& [key, record] : *records) {
            const auto [place, added] = all.emplace(key, record);
            if (!added) {
                uint64_t& count = place->second.count;
                count = std::min<uint64_t>(count + record.count, INT64_MAX);
            }
        }
    }
    return all;
}

void checkMerged(const Records& merged, const Records& expected) {
    require(merged.size() == expected.size(), "no key is lost or made");
    for (const auto& [key, record] : expected) {
        const auto found = merged.find(key);
        require(found != merged.end() && found->second.count == record.count, "counts are sums");
    }
}

void merge(const Options& options, const std::optional<Records>& hostile) {
    disk().put("good", goodFile(options.hosts));
    std::vector<std::unique_ptr<UrlFile>> files;
    std::vector<const Records*> contents;
    const auto addGood = [&] {
        files.push_back(std::make_unique<UrlFile>());
        require(files.back()->open("good", OpenMode::Read) == 0, "opens");
        require(files.back()->readStatus(g_dayStatusType) == 0, "the good file is good");
        contents.push_back(&goodRecords(options.hosts));
    };
    if (options.goodFirst) {
        addGood();
    }
    files.push_back(std::make_unique<UrlFile>());
    require(openWithStatus(*files.back(), g_hostile), "a status that was good before");
    const UrlFile& damaged = *files.back();
    if (hostile) {
        contents.push_back(&*hostile);
    }
    if (!options.goodFirst || options.goodTwice) {
        addGood();
    }
    std::vector<UrlFile*> inputs;
    for (const auto& file : files) {
        inputs.push_back(file.get());
    }
    UrlFile output;
    require(output.open(g_output, OpenMode::Truncate) == 0, "opens");
    MergeFileList engine;
    const int result = engine.commonMergeProcess(&output, inputs);
    for (const auto& file : files) {
        require(!file->broken() || file.get() == &damaged, "the good file stays good");
    }
    require(!hostile || !damaged.broken(), "a file without damage stays good");
    require(result == 0 || damaged.broken(), "a merge that fails tells which file is to blame");
    if (result != 0) {
        return;
    }
    closeWithStatus(output, g_dayStatusType);
    // A block that is copied whole is not looked into: damage inside it can pass through.
    if (hostile) {
        const std::optional<Records> merged = readWhole(g_output);
        require(merged.has_value(), "the output is whole");
        checkMerged(*merged, sumOf(contents));
    } else {
        require(blocksAscend(g_output), "the output's blocks ascend");
        (void)verifyUrlFile(g_output, g_dayStatusType);
    }
}

} // namespace

void runInput(ByteView bytes) {
    (void)goodFile(false); // before the input's files
    InputReader input(bytes);
    const Options options(input.byte());
    putHostileFile(input.takeAll(), options);
    if (readAll()) {
        merge(options, readWhole(g_hostile));
    }
}

std::vector<std::string> makeSeeds() {
    Records records = hostKeys();
    records.merge(smallKeys());
    records[500] = {1, 2, std::string(259, 'x')};
    std::vector<std::string> files;
    for (const size_t perBlock : {size_t{2}, size_t{8}, size_t{1000}}) {
        for (const uint32_t type : {g_dayStatusType, g_weekMonStatusType}) {
            putGoodFile(g_hostile, perBlock == 8 ? smallKeys() : records, perBlock, type);
            files.emplace_back(asText(disk().content(g_hostile)));
        }
    }
    std::vector<std::string> seeds;
    for (const std::string& file : files) {
        for (const int options : {0x00, 0x09, 0x01, 0x39}) {
            seeds.push_back(static_cast<char>(options) + file);
        }
    }
    // Blocks that begin at a good file's key, span one of its blocks, or hold all of it.
    const std::string blocks[] = {rawData({{8, {1, 1, "a"}}, {9, {2, 1, ""}}}),
                                  rawData({{30, {1, 1, "b"}}, {50, {2, 1, "c"}}}),
                                  rawData(smallKeys())};
    for (const int control : {0, 1, 2, 4, 8, 16, 32, 64, 128}) {
        std::string two;
        for (const std::string& block : blocks) {
            const std::string one = static_cast<char>(control) + withLength(block);
            two += one;
            seeds.push_back("\2" + one);
            seeds.push_back("\42" + one);
            seeds.push_back("\26" + two);
        }
    }
    for (const char control : {'\0', '\1', '\17', '\20'}) {
        seeds.push_back("\102" + std::string(1, control));
    }
    std::string written;
    for (const char step : {'\7', '\7', '\4', '\100', '\201', '\77', '\217', '\100'}) {
        written += step + std::string("\5\7example", 9);
    }
    seeds.push_back("\3" + written);
    seeds.push_back("\47" + written);
    return seeds;
}

} // namespace kestrine::fuzz
