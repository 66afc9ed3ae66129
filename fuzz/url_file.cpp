// A URL file: its status as both kinds, its records, its blocks, and a merge of it with a good
// file.
//
//   input   bits 0, 1  form: 0 the file's bytes as they are
//   byte 0                   1 the same, with the end position and the status' checksum repaired
//                            2 blocks' data, packed into a file (see putBlock)
//                            3 records, written by the project's own writer (see putRecords)
//           bit 2      trailer with a week or month status (forms 2 and 3)
//           bit 3      the good file has the keys of hosts, otherwise small ones
//           bit 4      the good file comes first
//           bit 5      the good file comes twice
//   rest    the file, blocks or records
#include "harness/fuzz_platform.h"

#include "merge/merge_file_list.h"
#include "storage/compress.h"
#include "storage/url_key.h"
#include "storage/verify.h"

#include <map>
#include <optional>

namespace kestrine::fuzz {

namespace {

constexpr const char* g_hostile = "stat/acc/20120303/daycrcsort";
constexpr const char* g_output = "stat/acc/20120303/daycrcsort.temp.temp";

struct Record {
    uint64_t count = 0;
    std::string url;
};
using Records = std::map<uint64_t, Record>;

// ---- good files

void closeWithStatus(UrlFile& file, bool weekly = false) {
    DayStatus day;
    day.setNewCounter(5);
    day.entries() = {{"d/acc/devid_1/20120303", 3, 17}, {"d/acc/devid_2/20120303", 0, 28}};
    day.setTotalCount(file.totalCount());
    WeekMonStatus weekMon;
    weekMon.entries() = {{"stat/acc/new/20120303", 5}, {"stat/acc/new/20120304", -1}};
    weekMon.setTotalCount(file.totalCount());
    require((weekly ? file.writeStatus(weekMon) : file.writeStatus(day)) == 0, "writes a status");
    require(file.close() == 0, "closes");
}

// Writes the records, in key order, in blocks of at most `perBlock`.
void putGoodFile(const std::string& path, const Records& records, size_t perBlock, bool weekly) {
    UrlFile file;
    require(file.open(path, OpenMode::Truncate) == 0, "opens");
    size_t written = 0;
    for (const auto& [key, record] : records) {
        require(written++ % perBlock != 0 || file.writeUrlRecordBlocks() == 0, "writes a block");
        require(file.writeOneRecord({key, record.count, 7, record.url}) == 0, "writes a record");
    }
    closeWithStatus(file, weekly);
}

Records hostKeys() {
    Records records;
    for (const char* host : {"www.example.com", "example.net", "a.example", "b.example", "c"}) {
        records[urlKey(asBytes(host))] = {3, host};
    }
    return records;
}

Records smallKeys() {
    Records records;
    for (uint64_t key = 8; key < 1024; key += key < 64 ? 8 : 64) {
        records[key] = {key + 1, "good.example"};
    }
    return records;
}

// ---- hostile files

// Makes the end position and the status' length and checksum right.
void repair(Bytes& file) {
    if (file.size() >= sizeof(uint64_t) + g_statusFrameSize) {
        uint8_t* const trailer = file.data() + file.size() - sizeof(uint64_t);
        const size_t most = file.size() - sizeof(uint64_t) - g_statusFrameSize;
        const size_t end = std::min<uint64_t>(loadLittle<uint64_t>(trailer), most);
        uint8_t* const status = file.data() + end;
        const size_t length = std::min<size_t>(loadLittle<uint32_t>(status + 8), most - end);
        storeLittle(trailer, uint64_t{end});
        storeLittle(status + 8, static_cast<uint32_t>(length));
        storeLittle(status, urlKey({status + g_statusFrameSize, length}));
    }
}

// What is true of the records in a block's data, as far as they can be told.
BlockHeader headerOf(ByteView data) {
    BlockHeader header;
    UrlRecordView record;
    for (ByteView rest = data; parseRecord(rest, record) == 0; rest = rest.subspan(record.size())) {
        header.minKey = std::min(header.minKey, record.key);
        header.maxKey = std::max(header.maxKey, record.key);
        header.totalCount =
            static_cast<int64_t>(static_cast<uint64_t>(header.totalCount) + record.count);
        ++header.count;
    }
    header.blockSize = header.rawSize = static_cast<int32_t>(data.size());
    return header;
}

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
    BlockHeader header = headerOf(taken);
    Bytes data(taken.begin(), taken.end());
    if ((control & 192) != 0 && data.size() >= g_recordHeadSize) {
        storeLittle(data.data() + recordAt::g_count,
                    (control & 64) != 0 ? uint64_t{0} : ~uint64_t{0});
    }
    Compress* compress = nullptr;
    ByteView packed;
    if ((control & 1) != 0 && Compress::getInstance(&compress) == 0 &&
        compress->compress(data.data(), header.rawSize, &packed) == 0) {
        data.assign(packed.begin(), packed.end());
        header.flag = 1;
        header.blockSize = static_cast<int32_t>(data.size());
    }
    header.minKey += (control >> 1) & 1U;
    header.maxKey -= (control >> 2) & 1U;
    header.count += (control >> 3) & 1;
    if ((control & 16) != 0) {
        header.totalCount = INT64_MAX;
    }
    header.blockSize += (control >> 5) & 1;
    header.rawSize += (control >> 5) & 1;
    // Nothing that the writer refuses: a reader never gets past its header.
    if (!data.empty() && Util::validateBlockHeader(&header) == 0) {
        require(file.writeBlockHeader(header) == 0, "a header is written");
        require(file.writeBlockData(data) == 0, "data is written");
    }
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
        require((step & 128) == 0 || file.writeUrlRecordBlocks() == 0, "a block is written");
        const uint8_t count = input.byte();
        static constexpr int shifts[] = {0, 8, 16, 56};
        const uint64_t shifted = (1ULL + (count & 63U)) << shifts[count >> 6];
        const ByteView url = input.take(input.byte());
        require(file.writeOneRecord({key, shifted, count, asText(url)}) == 0,
                "a record is written");
    }
}

void putHostileFile(InputReader& input, uint8_t options) {
    const int form = options & 3;
    if (form < 2) {
        disk().put(g_hostile, input.takeAll());
        if (form == 1) {
            repair(disk().files[g_hostile]);
        }
        return;
    }
    UrlFile file;
    require(file.open(g_hostile, OpenMode::Truncate) == 0, "opens");
    if (form == 3) {
        putRecords(file, input);
    }
    while (!input.empty()) {
        putBlock(file, input);
    }
    closeWithStatus(file, (options & 4) != 0);
}

// ---- readings

// Whether the blocks follow each other with ascending key ranges, up to their end. A week or month
// status is accepted with any checksum, which is why the status is read as one.
bool blocksAscend(const std::string& path) {
    UrlFile file;
    require(file.open(path, OpenMode::Read) == 0, "opens");
    require(file.readStatus(g_weekMonStatusType) == 0, "a status that was good before");
    BlockHeader header;
    std::optional<uint64_t> last;
    const auto end = loadLittle<uint64_t>(&disk().content(path).back() - 7);
    int result = 0;
    for (uint64_t position = 0; (result = file.readBlockHeader(header)) == 0;) {
        ByteView data;
        if (header.minKey > header.maxKey || (last && header.minKey <= *last) ||
            file.readBlockData(data) != 0) {
            return false;
        }
        last = header.maxKey;
        position += BlockHeader::g_size + data.size();
        require(position <= end, "nothing of the trailer is taken for a block");
    }
    return result == 1;
}

// The records of a file without any damage, with a status of either kind; none for any other file.
std::optional<Records> readWhole(const std::string& path) {
    for (const uint32_t type : {g_dayStatusType, g_weekMonStatusType}) {
        UrlFile file;
        require(file.open(path, OpenMode::Read) == 0, "opens");
        VerifyingReader reader(file);
        Records records;
        UrlRecordView record;
        int result = file.readStatus(type);
        while (result == 0 && (result = reader.readOneRecord(record)) == 0) {
            records[record.key] = {record.count, std::string(record.url)};
        }
        if (result == 1) {
            return records;
        }
        require(file.broken(), "damage marks the file broken");
    }
    return std::nullopt;
}

void useStatus(UrlFile& file) {
    if (DayStatus* const day = file.dayStatus()) {
        day->print();
        (void)day->date();
        DayStatus merged;
        for (const NodeEntry& entry : day->entries()) {
            require(entry.path.size() < g_statusPathSize, "a path fits its field");
            merged.updateIfNewer(entry);
        }
    }
    if (WeekMonStatus* const weekMon = file.weekMonStatus()) {
        for (; !weekMon->atEnd(); weekMon->moveNextAfter()) {
            require(weekMon->getNewPath().size() < g_statusPathSize, "a path fits its field");
            (void)weekMon->counterOfDate(weekMon->getNewPath());
        }
    }
}

// The status of either kind, and the records. False when there is no status.
bool readAll() {
    UrlFile file;
    require(file.open(g_hostile, OpenMode::Read) == 0, "opens");
    bool good = false;
    for (const uint32_t type : {g_weekMonStatusType, g_dayStatusType}) {
        const bool read = file.readStatus(type) == 0;
        require(read || file.broken(), "an unreadable status marks the file broken");
        useStatus(file);
        good = good || read;
    }
    UrlRecordView record;
    int result = good ? 0 : 1;
    while (result == 0 && (result = file.readOneRecord(record)) == 0) {
        require(std::string(record.url).size() <= g_maxHostText, "a text is not too long");
    }
    require(result == 1 || file.broken(), "damage marks the file broken");
    return good;
}

// ---- merge

// `inputs` names the files, of which all but the hostile one are good.
void merge(const std::vector<std::string>& inputs, const Records& good) {
    const std::optional<Records> hostile = readWhole(g_hostile);
    Records sums = hostile.value_or(Records());
    std::vector<UrlFile> files(inputs.size());
    std::vector<UrlFile*> pointers;
    for (size_t i = 0; i < inputs.size(); ++i) {
        require(files[i].open(inputs[i], OpenMode::Read) == 0, "opens");
        require(files[i].readStatus(g_weekMonStatusType) == 0, "a status that was good before");
        pointers.push_back(&files[i]);
        for (const auto& [key, record] : inputs[i] == g_hostile ? Records() : good) {
            uint64_t& sum = sums[key].count; // as far as a block's total can hold it
            sum = std::min<uint64_t>(sum + record.count, INT64_MAX);
        }
    }
    UrlFile output;
    require(output.open(g_output, OpenMode::Truncate) == 0, "opens");
    MergeFileList engine;
    const int result = engine.commonMergeProcess(&output, pointers);
    bool blamed = false;
    for (size_t i = 0; i < inputs.size(); ++i) {
        require(!files[i].broken() || inputs[i] == g_hostile, "the good file stays good");
        blamed = blamed || files[i].broken();
    }
    require(!hostile || !blamed, "a file without damage stays good");
    require(result == 0 || blamed, "a merge that fails tells which file is to blame");
    closeWithStatus(output);
    if (!hostile) { // a block that is copied whole is not looked into: damage can pass through
        require(result != 0 || blocksAscend(g_output), "the output's blocks ascend");
        return;
    }
    const auto merged = readWhole(g_output);
    const auto same = [](const auto& a, const auto& b) {
        return a.first == b.first && a.second.count == b.second.count;
    };
    require(merged && std::ranges::equal(*merged, sums, same),
            "no key is lost or made, and counts are sums");
}

} // namespace

void runInput(ByteView bytes) {
    InputReader input(bytes);
    const uint8_t options = input.byte();
    putHostileFile(input, options);
    if (!readAll()) {
        return;
    }
    static const Records good[] = {smallKeys(), hostKeys()};
    const Records& records = good[(options >> 3) & 1];
    putGoodFile("good", records, 3, false);
    std::vector<std::string> inputs = {g_hostile};
    inputs.insert((options & 16) != 0 ? inputs.begin() : inputs.end(), "good");
    if ((options & 32) != 0) {
        inputs.emplace_back("good");
    }
    merge(inputs, records);
}

std::vector<std::string> makeSeeds() {
    const Records small = smallKeys();
    Records records = hostKeys();
    records.insert(small.begin(), small.end());
    records[500] = {1, std::string(259, 'x')};
    std::vector<std::string> seeds;
    for (const size_t perBlock : {size_t{2}, size_t{8}, size_t{1000}}) {
        for (const bool weekly : {false, true}) {
            putGoodFile(g_hostile, perBlock == 8 ? small : records, perBlock, weekly);
            for (const char options : {'\0', '\1', '\11', '\71'}) {
                seeds.push_back(options + std::string(asText(disk().content(g_hostile))));
            }
        }
    }
    // Blocks that begin at a good file's key, span one of its blocks, or hold all of it.
    const Records blocks[] = {
        {{8, {1, "a"}}, {9, {2, ""}}}, {{30, {1, "b"}}, {50, {2, "c"}}}, small};
    for (const int control : {0, 1, 2, 4, 8, 16, 32, 64, 128}) {
        std::string all;
        for (const Records& block : blocks) {
            std::string data;
            for (const auto& [key, record] : block) {
                Bytes bytes(g_maxRecordSize);
                const UrlRecordView view{key, record.count, 1, record.url};
                view.store(bytes.data());
                data += asText(bytes).substr(0, view.size());
            }
            const std::string one = static_cast<char>(control) + withLength(data);
            all += one;
            seeds.insert(seeds.end(), {"\2" + one, "\42" + one, "\26" + all});
        }
    }
    std::string written;
    for (const char step : {'\7', '\7', '\4', '\100', '\201', '\77', '\217', '\100'}) {
        written += step + std::string("\5\7example", 9);
    }
    seeds.insert(seeds.end(), {"\3" + written, "\47" + written});
    return seeds;
}

} // namespace kestrine::fuzz
