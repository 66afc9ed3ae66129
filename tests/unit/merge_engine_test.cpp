#include "merge/merge_file_list.h"
#include "storage/compress.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

using namespace test;

using Blocks = std::vector<TestRecords>;

struct StoredBlock {
    BlockHeader header;
    std::vector<uint8_t> data;
};

StoredBlock rawBlock(const TestRecords& records) {
    StoredBlock block;
    block.header.minKey = records.front().key;
    block.header.maxKey = records.back().key;
    for (const TestRecord& record : records) {
        block.header.totalCount += static_cast<int64_t>(record.count);
        block.data.resize(block.data.size() + record.view().size());
        record.view().store(block.data.data() + block.data.size() - record.view().size());
    }
    block.header.count = static_cast<int32_t>(records.size());
    block.header.rawSize = block.header.blockSize = static_cast<int32_t>(block.data.size());
    return block;
}

class MergeEngineTest : public StatTree {
protected:
    std::string path(const std::string& name) const { return m_dir / name; }

    void writeStored(const std::string& name, const std::vector<StoredBlock>& blocks) {
        UrlFile file;
        ASSERT_EQ(file.open(path(name), OpenMode::Truncate), 0);
        for (const StoredBlock& block : blocks) {
            ASSERT_EQ(file.writeBlockHeader(block.header), 0);
            ASSERT_EQ(file.writeBlockData(block.data), 0);
        }
        ASSERT_EQ(file.writeStatus(m_status), 0);
        ASSERT_EQ(file.close(), 0);
    }
    std::vector<StoredBlock> readStored(const std::string& name) {
        UrlFile file;
        EXPECT_EQ(file.open(path(name), OpenMode::Read), 0);
        EXPECT_EQ(file.readStatus(g_dayStatusType), 0);
        std::vector<StoredBlock> blocks;
        StoredBlock block;
        while (file.readBlockHeader(block.header) == 0) {
            ByteView data;
            EXPECT_EQ(file.readBlockData(data), 0);
            block.data.assign(data.begin(), data.end());
            blocks.push_back(block);
        }
        return blocks;
    }

    // Result of the engine; the output is "out", closed with a status. The file objects are used
    // again and again, since their buffers are what costs time.
    int merge(const std::vector<std::string>& inputs) {
        std::vector<UrlFile*> files;
        for (size_t i = 0; i < inputs.size(); ++i) {
            if (i == m_files.size() || m_files[i]->broken()) {
                m_files.resize(std::max(m_files.size(), i + 1));
                m_files[i] = std::make_unique<UrlFile>();
            }
            files.push_back(m_files[i].get());
            EXPECT_EQ(files.back()->open(path(inputs[i]), OpenMode::Read), 0);
            EXPECT_EQ(files.back()->readStatus(g_dayStatusType), 0);
        }
        EXPECT_EQ(m_output.open(path("out"), OpenMode::Truncate), 0);
        const int result = m_merge.commonMergeProcess(&m_output, files);
        m_outputTotal = m_output.totalCount();
        EXPECT_EQ(m_output.writeStatus(m_status), 0);
        EXPECT_EQ(m_output.close(), 0);
        for (UrlFile* const file : files) {
            EXPECT_EQ(file->close(), 0);
        }
        return result;
    }

    // Records as wanted, and every block header as its records say.
    void expectOutput(const TestRecords& wanted) {
        UrlFile& file = m_output;
        ASSERT_EQ(file.open(path("out"), OpenMode::Read), 0);
        ASSERT_EQ(file.readStatus(g_dayStatusType), 0);
        TestRecords records;
        uint64_t total = 0;
        for (BlockHeader header; file.readBlockHeader(header) == 0;) {
            ByteView data;
            ASSERT_EQ(file.readBlockData(data), 0);
            ASSERT_EQ(file.unCompress(), 0);
            const size_t first = records.size();
            int64_t sum = 0;
            for (UrlRecordView record; file.block().hasCurrent(); file.block().advance(record)) {
                ASSERT_EQ(file.block().getCurrentUrlRecord(record), 0);
                records.push_back({record.key, record.count, record.type, std::string(record.url)});
                sum += static_cast<int64_t>(record.count);
            }
            ASSERT_EQ(records.size() - first, static_cast<size_t>(header.count));
            ASSERT_EQ(header.minKey, records[first].key);
            ASSERT_EQ(header.maxKey, records.back().key);
            ASSERT_EQ(header.totalCount, sum);
            total += static_cast<uint64_t>(sum);
        }
        ASSERT_EQ(file.close(), 0);
        ASSERT_EQ(records, wanted);
        ASSERT_EQ(m_outputTotal, total);
    }

    const DayStatus m_status = dayStatusOf({{"d/devid_1/20120303", 3, 17}}, 5);
    MergeFileList m_merge;
    std::vector<std::unique_ptr<UrlFile>> m_files; // inputs
    UrlFile m_output;
    uint64_t m_outputTotal = 0;
};

// Every set of keys 1 to `keys`, cut into blocks in every way. Counts tell the files apart.
std::vector<Blocks> everyFile(uint64_t keys, uint64_t count) {
    std::vector<Blocks> files;
    Choices choices;
    do {
        Blocks blocks;
        for (uint64_t key = 1; key <= keys; ++key) {
            if (choices.flip()) {
                if (blocks.empty() || choices.flip()) {
                    blocks.emplace_back();
                }
                blocks.back().push_back({key, count * key, 3, "host" + std::to_string(key)});
            }
        }
        files.push_back(blocks);
    } while (choices.next());
    return files;
}

TEST_F(MergeEngineTest, EverySetOfSmallFilesSumsAsAMap) {
    size_t merges = 0;
    for (const auto& [width, keys, variants] :
         {std::tuple<size_t, uint64_t, size_t>{1, 4, 41}, {2, 4, 41}, {3, 3, 14}}) {
        std::vector<std::vector<Blocks>> all;
        const auto name = [](size_t column, size_t variant) {
            return std::to_string(column) + "-" + std::to_string(variant);
        };
        for (size_t column = 0; column < width; ++column) {
            all.push_back(everyFile(keys, uint64_t{1} << (10 * column)));
            ASSERT_EQ(all.back().size(), variants);
            for (size_t i = 0; i < variants; ++i) {
                writeUrlFile(path(name(column, i)), all.back()[i], m_status);
            }
        }
        Choices choices;
        do {
            std::vector<std::string> inputs;
            std::vector<TestRecords> parts;
            for (size_t column = 0; column < width; ++column) {
                const size_t variant = choices.choose(variants);
                inputs.push_back(name(column, variant));
                const Blocks& blocks = all[column][variant];
                parts.insert(parts.end(), blocks.begin(), blocks.end());
            }
            ASSERT_EQ(merge(inputs), 0) << testing::PrintToString(inputs);
            expectOutput(summed(parts));
            ASSERT_FALSE(HasFatalFailure()) << testing::PrintToString(inputs);
            ++merges;
        } while (choices.next());
    }
    EXPECT_EQ(merges, 41U + 41 * 41 + 14 * 14 * 14);
}

TEST_F(MergeEngineTest, RandomFilesSumAsAMap) {
    const uint64_t seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const TestRecords hosts = randomRecords(random, 30000, 1, 60);
    for (const size_t perMille : {5U, 300U, 1000U}) {
        std::vector<std::string> inputs;
        std::vector<TestRecords> parts;
        for (int i = 0; i < 6; ++i) {
            Blocks blocks(1);
            const size_t blockLength = 1 + random() % 9000;
            const size_t from = random() % hosts.size(); // ranges that overlap or not
            for (size_t k = from; k < std::min(hosts.size(), from + 12000); ++k) {
                if (random() % 1000 < perMille) {
                    if (blocks.back().size() == blockLength) {
                        blocks.emplace_back();
                    }
                    blocks.back().push_back(hosts[k]);
                    blocks.back().back().count = 1 + random() % 50;
                }
            }
            inputs.push_back("r" + std::to_string(i));
            writeUrlFile(path(inputs.back()), blocks, m_status);
            parts.insert(parts.end(), blocks.begin(), blocks.end());
        }
        ASSERT_EQ(merge(inputs), 0);
        expectOutput(summed(parts));
    }
}

// The data is no zlib stream at all: it could not have been decoded on the way.
TEST_F(MergeEngineTest, BlocksOfDisjointRangesAreCopiedUndecoded) {
    const auto undecodable = [](uint64_t from, uint64_t to) {
        StoredBlock block;
        block.header = {from, to, 9, 50, 60, 1, 2};
        block.data.assign(50, static_cast<uint8_t>(from));
        return block;
    };
    const std::vector<StoredBlock> wanted = {undecodable(1, 4), undecodable(5, 5),
                                             undecodable(6, 8), undecodable(20, 30)};
    writeStored("a", {wanted[0], wanted[2]});
    writeStored("b", {wanted[1], wanted[3]});
    writeStored("empty", {});
    EXPECT_EQ(merge({"empty", "b", "a", "empty"}), 0);
    const std::vector<StoredBlock> blocks = readStored("out");
    ASSERT_EQ(blocks.size(), wanted.size());
    for (size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].header.minKey, wanted[i].header.minKey);
        EXPECT_EQ(blocks[i].header.flag, 1U);
        EXPECT_EQ(blocks[i].data, wanted[i].data);
    }
    EXPECT_EQ(m_outputTotal, 36U);
    // A last key that equals another input's key is an overlap.
    writeStored("c", {undecodable(30, 40)});
    EXPECT_EQ(merge({"a", "b", "c"}), -1);
    EXPECT_EQ(merge({"empty"}), 0);
    EXPECT_TRUE(readStored("out").empty());
    EXPECT_EQ(m_merge.commonMergeProcess(nullptr, {}), -1);
}

// The pending record of key 5 is folded into a block that begins with it. What the new count makes
// of the block's size decides how it is stored.
TEST_F(MergeEngineTest, FoldingAPendingRecordRewritesTheBlock) {
    Compress* compress = nullptr;
    ASSERT_EQ(Compress::getInstance(&compress), 0);
    ByteView packed;
    const auto shrinks = [&](const StoredBlock& block) {
        return compress->compress(block.data.data(), block.header.rawSize, &packed) == 0;
    };
    constexpr uint64_t pending = 0x123456789ABCDEF;
    // Few bytes that compress only as long as the count is small.
    const StoredBlock small = rawBlock({{5, 1, 0xA1B2C3D4, ""}});
    ASSERT_FALSE(shrinks(rawBlock({{5, pending + 1, 0xA1B2C3D4, ""}})));
    ASSERT_TRUE(shrinks(small));
    StoredBlock smallPacked = small;
    smallPacked.header.flag = 1;
    smallPacked.header.blockSize = static_cast<int32_t>(packed.size());
    smallPacked.data.assign(packed.begin(), packed.end());
    TestRecords many;
    for (uint64_t key = 5; key < 50; ++key) {
        many.push_back({key, 1, 0, std::string(100, 'x')});
    }
    const StoredBlock manyRaw = rawBlock(many); // stored raw though it would shrink
    const struct {
        StoredBlock block;
        uint32_t flagAfter;
    } cases[] = {{smallPacked, 0}, {small, 0}, {manyRaw, 1}};
    for (const auto& [block, flagAfter] : cases) {
        writeStored("block", {block});
        const TestRecords inBlock = readUrlFile(path("block")).records;
        // Its type is lost with it, which shows that the records were not merged one by one.
        const TestRecords first = {{5, pending, 99, "five"}};
        writeUrlFile(path("a"), {first}, m_status);
        ASSERT_EQ(merge({"a", "block"}), 0);
        expectOutput(summed({inBlock, first}));
        const std::vector<StoredBlock> blocks = readStored("out");
        ASSERT_EQ(blocks.size(), 1U);
        EXPECT_EQ(blocks[0].header.flag, flagAfter);
        EXPECT_EQ(blocks[0].header.rawSize, block.header.rawSize);
    }
}

TEST_F(MergeEngineTest, KeysThatDoNotAscendBreakTheirFile) {
    const TestRecord one{1, 1, 0, "1"};
    const TestRecord four{4, 1, 0, "4"};
    const TestRecord seven{7, 1, 0, "7"};
    const TestRecord nine{9, 1, 0, "9"};
    const auto withRange = [](StoredBlock block, uint64_t minKey, uint64_t maxKey) {
        block.header.minKey = minKey;
        block.header.maxKey = maxKey;
        return block;
    };
    const std::vector<std::vector<StoredBlock>> cases = {
        {withRange(rawBlock({seven, four}), 4, 9)}, // descending
        {rawBlock({four, four, nine})},             // twice
        {withRange(rawBlock({four, nine}), 1, 9)},  // first key not as in the header
        {withRange(rawBlock({four, nine}), 4, 7)},  // last key beyond the header's
        {withRange(rawBlock({four}), 9, 4)},        // header upside down
        {rawBlock({four}), withRange(rawBlock({nine}), 9, 7)},
        {rawBlock({four, seven}), rawBlock({seven, nine})}, // blocks overlap
        {rawBlock({seven, nine}), rawBlock({one, four})},   // blocks out of order
    };
    TestRecords others; // overlap with everything, so that every block is decoded
    for (uint64_t key = 1; key < 12; ++key) {
        others.push_back({key, 1, 0, "o"});
    }
    writeUrlFile(path("good"), {others}, m_status);
    for (size_t i = 0; i < cases.size(); ++i) {
        writeStored("bad", cases[i]);
        EXPECT_EQ(merge({"good", "bad"}), -1) << i;
        EXPECT_FALSE(m_files[0]->broken()) << i;
        EXPECT_TRUE(m_files[1]->broken()) << i;
    }
    // The same where the block is about to be copied whole and a pending record folded into it.
    writeStored("bad", {withRange(rawBlock({nine}), 11, 12)});
    EXPECT_EQ(merge({"good", "bad"}), -1);
    EXPECT_TRUE(m_files[1]->broken());
}

// Each step reads the tick counter once; each test reads the free space once.
class StepClock : public FakeClockPlatform {
public:
    using FakeClockPlatform::FakeClockPlatform;
    uint32_t step = 0;
    int checks = 0;
    int stopAt = 0;

    uint32_t tickCount() override {
        const uint32_t now = *ticks;
        *ticks += step;
        return now;
    }
    int freeSpace(const std::string& path, uint64_t& bytes) override {
        EXPECT_TRUE(path.ends_with("/stat")); // the volume of the statistics root
        if (++checks == stopAt) {
            g_isRunning = 0;
        }
        return FakeClockPlatform::freeSpace(path, bytes);
    }
};

TEST_F(MergeEngineTest, LooksAtSpaceAndStopOnceAMinute) {
    Blocks odd(1);
    Blocks even(1);
    for (uint64_t key = 1; key <= 200; ++key) {
        (key % 2 == 1 ? odd : even)[0].push_back({key, 1, 0, "host"});
    }
    writeUrlFile(path("odd"), odd, m_status);
    writeUrlFile(path("even"), even, m_status);
    constexpr uint64_t wrap = uint64_t{1} << 32;
    const struct {
        uint64_t start;
        uint32_t step;
    } cases[] = {{0, 1},
                 {0, 1000},
                 {5, 59999},
                 {5, 60000},
                 {5, 60001},
                 {wrap - 1, 1000},
                 {wrap - 60000, 1000},
                 {wrap - 90000, 60000},
                 {wrap - 1, 60001},
                 {wrap - 500, 2000000000}};
    for (const auto& [start, step] : cases) {
        std::vector<size_t> checkedAt; // steps, by time that does not wrap
        for (uint64_t i = 0, last = 0; i < 200; ++i) {
            const uint64_t now = start + i * step;
            const uint64_t lost = now / wrap - last / wrap; // one per wrap
            if (i == 0 || now - last - lost >= 60000) {
                checkedAt.push_back(i);
                last = now;
            }
        }
        for (int stopAt = 0; stopAt <= 3; ++stopAt) {
            StepClock clock;
            clock.ticks = static_cast<uint32_t>(start);
            clock.step = step;
            clock.stopAt = stopAt;
            const ScopedPlatform scope(clock);
            g_isRunning = 1;
            EXPECT_EQ(merge({"odd", "even"}), 0);
            const auto checks = static_cast<int>(checkedAt.size());
            const bool stopped = stopAt != 0 && stopAt <= checks;
            EXPECT_EQ(clock.checks, stopped ? stopAt : checks) << start << " " << step;
            const size_t consumed = stopped ? checkedAt[static_cast<size_t>(stopAt) - 1] : 201;
            EXPECT_EQ(m_outputTotal, consumed == 0 ? 0 : consumed - 1) << start << " " << step;
        }
    }
}

TEST_F(MergeEngineTest, VeryManyInputsAreMergedInRounds) {
    const TestRecords variants[] = {{{1, 1, 0, "1"}}, {{2, 2, 0, "2"}, {3, 5, 0, "3"}}, {}};
    const std::string output = "/t/stat/acc/diskTemp/20120303/1.temp";
    std::vector<std::string> inputs;
    std::vector<TestRecords> parts;
    const auto addInput = [&] {
        const TestRecords& variant = variants[inputs.size() % 3];
        inputs.push_back(path(std::to_string(inputs.size())));
        writeUrlFile(inputs.back(), variant.empty() ? Blocks() : Blocks{variant}, m_status);
        parts.push_back(variant);
    };
    for (const size_t number : {127U, 128U, 129U, 400U, 20000U}) {
        while (inputs.size() < std::min(number, size_t{400})) {
            addInput();
        }
        while (inputs.size() < number) { // for the largest case the same files again and again
            parts.push_back(variants[inputs.size() % 400 % 3]);
            inputs.push_back(inputs[inputs.size() % 400]);
        }
        m_disk.openMost = 0;
        MergeFileList list;
        ASSERT_EQ(list.mergeTemp2Temp(inputs, m_status, output), 0);
        EXPECT_EQ(m_disk.openNow(), 0U);
        EXPECT_EQ(m_disk.openMost, 128U); // 127 and the output
        const UrlFileContent content = readUrlFile(output);
        EXPECT_EQ(content.records, summed(parts));
        EXPECT_EQ(content.dayStatus->newCounter(), 5);
        EXPECT_EQ(m_disk.files.erase(output), 1U);
        EXPECT_EQ(m_disk.files.size(), std::min(number, size_t{400})); // no round file is left
    }
    inputs.resize(400);
    const auto before = m_disk.files;
    for (const int stopAt : {1, 2, 5}) { // before, in and after the rounds
        StepClock clock;
        clock.ticks = 0;
        clock.stopAt = stopAt;
        const ScopedPlatform scope(clock);
        g_isRunning = 1;
        MergeFileList list;
        EXPECT_EQ(list.mergeTemp2Temp(inputs, m_status, output), 1);
        EXPECT_EQ(clock.checks, stopAt);
        EXPECT_EQ(difference(m_disk.files, before), "");
    }
    g_isRunning = 1;
    m_disk.files[inputs[201]].back() ^= 1;
    MergeFileList list;
    EXPECT_EQ(list.mergeTemp2Temp(inputs, m_status, output), -1);
    EXPECT_EQ(m_disk.files.size(), before.size());
    EXPECT_FALSE(m_disk.files.contains(inputs[201])); // set aside
    EXPECT_TRUE(m_disk.files.begin()->first.starts_with("/t/mem/acc/"));
    EXPECT_TRUE(m_disk.files.rbegin()->first.starts_with("/t/mem/debug/20120303/"));
}

} // namespace
} // namespace kestrine
