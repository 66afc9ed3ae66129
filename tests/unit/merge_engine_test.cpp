#include "merge/merge_file_list.h"
#include "merge/merging_reader.h"
#include "storage/verify.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

namespace kestrine {
namespace {

using namespace test;

struct StoredBlock {
    BlockHeader header;
    std::vector<uint8_t> data;
};
using StoredBlocks = std::vector<StoredBlock>;

StoredBlock rawBlock(const TestRecords& records) {
    StoredBlock block;
    for (const TestRecord& record : records) {
        block.header.add(record.view());
        block.data.resize(block.data.size() + record.view().size());
        record.view().store(block.data.data() + block.data.size() - record.view().size());
    }
    block.header.rawSize = block.header.blockSize = static_cast<int32_t>(block.data.size());
    return block;
}

class MergeEngineTest : public StatTree {
protected:
    std::string path(const std::string& name) const { return m_dir / name; }

    void writeStored(const std::string& name, const StoredBlocks& blocks) {
        UrlFile file;
        ASSERT_EQ(file.open(path(name), OpenMode::Truncate), 0);
        for (const StoredBlock& block : blocks) {
            ASSERT_EQ(file.writeBlockHeader(block.header), 0);
            ASSERT_EQ(file.writeBlockData(block.data), 0);
        }
        DayStatus status = m_status;
        status.setTotalCount(file.totalCount());
        ASSERT_EQ(file.writeStatus(status), 0);
    }
    // Into "out".
    int merge(std::vector<std::string> inputs) {
        std::ranges::transform(inputs, inputs.begin(), [&](auto& name) { return path(name); });
        return MergeFileList().mergeTemp2Temp(inputs, m_status, path("out"));
    }
    // The same without an output.
    TestRecords readTogether(const std::vector<std::string>& names) {
        std::deque<UrlFile> files;
        std::vector<UrlFile*> inputs;
        for (const std::string& name : names) {
            inputs.push_back(&files.emplace_back());
            EXPECT_EQ(files.back().openToRead(path(name), g_dayStatusType), 0);
        }
        MergingReader reader;
        EXPECT_EQ(reader.init(inputs), 0);
        TestRecords records;
        UrlRecordView record;
        while (reader.readOneRecord(record) == 0) {
            records.push_back({record.key, record.count, record.type, std::string(record.url)});
        }
        return records;
    }
    // Records as wanted, and every block header and the total as its records say.
    void expectOutput(const TestRecords& wanted) {
        ASSERT_EQ(verifyUrlFile(path("out"), g_dayStatusType), 0);
        ASSERT_EQ(readUrlFile(path("out")).records, wanted);
    }

    const DayStatus m_status = dayStatusOf({{"d/devid_1/20120303", 3, 17}}, 5);
};

// Small sets of small keys, cut into blocks anyhow, and large files whose ranges overlap or not.
TEST_F(MergeEngineTest, RandomFilesSumAsAMap) {
    std::mt19937_64 random(1);
    for (const auto& [rounds, keys, longestBlock] :
         {std::tuple(1500, 12U, 4U), {3, 30000U, 9000U}}) {
        const TestRecords hosts = randomRecords(random, keys, 2, 60);
        for (int round = 0; round < rounds; ++round) {
            std::vector<std::string> inputs;
            std::vector<TestRecords> parts;
            for (size_t file = 0, files = 1 + random() % 5; file < files; ++file) {
                std::vector<TestRecords> blocks;
                const size_t blockLength = 1 + random() % longestBlock;
                const size_t from = random() % keys;
                const size_t to = from + random() % (keys / 2);
                for (size_t k = from; k < std::min<size_t>(keys, to); k += 1 + random() % 2) {
                    if (blocks.empty() || blocks.back().size() >= blockLength) {
                        blocks.emplace_back();
                    }
                    blocks.back().push_back(hosts[k]);
                }
                inputs.push_back("r" + std::to_string(file));
                writeUrlFile(path(inputs.back()), blocks, m_status);
                parts.insert(parts.end(), blocks.begin(), blocks.end());
            }
            ASSERT_EQ(merge(inputs), 0);
            expectOutput(summed(parts));
            EXPECT_EQ(readTogether(inputs), summed(parts));
            ASSERT_FALSE(HasFatalFailure()) << round;
        }
    }
}

// The pending record of key 5 is folded into a block that begins with it, and that is stored raw
// though it would shrink. The block's type stays, which shows that the records were not merged one
// by one.
TEST_F(MergeEngineTest, FoldingAPendingRecordRewritesTheBlock) {
    TestRecords records = {{5, 1, 0, "x"}, {6, 1, 0, std::string(100, 'x')}};
    writeUrlFile(path("a"), {{{5, 1000, 99, "five"}}}, m_status);
    writeStored("block", {rawBlock(records)});
    records[0].count += 1000;
    ASSERT_EQ(merge({"a", "block"}), 0);
    expectOutput(records);
    EXPECT_EQ(m_disk.files[path("out")][32], 1); // the block is compressed
    // Counts that no writer writes must not make a merge fail for ever that has no broken input.
    const TestRecords most = {{8, INT64_MAX, 0, "eight"}};
    writeUrlFile(path("most"), {most}, m_status);
    ASSERT_EQ(merge({"most", "most"}), 0);
    EXPECT_EQ(readUrlFile(path("out")).records, most);
}

TEST_F(MergeEngineTest, WhatNoWriterWritesBreaksItsFile) {
    // Smallest and largest key of the header, the keys and the first count of a block.
    using Keys = std::vector<uint64_t>;
    const auto block = [](uint64_t from, uint64_t to, const Keys& keys, uint64_t count = 1) {
        TestRecords records;
        for (const uint64_t key : keys) {
            records.push_back({key, std::exchange(count, 1), 0, "x"});
        }
        StoredBlock stored = rawBlock(records);
        stored.header.minKey = from;
        stored.header.maxKey = to;
        stored.header.totalCount = 1;
        return stored;
    };
    const StoredBlocks cases[] = {
        {block(4, 9, {7, 4})},                      // descending
        {block(4, 9, {4, 4, 9})},                   // twice
        {block(1, 9, {4, 9})},                      // first key not as in the header
        {block(4, 7, {4, 9})},                      // last key beyond the header's
        {block(9, 4, {4})},                         // header upside down
        {block(4, 4, {4}), block(9, 7, {9})},       // the same behind a good block
        {block(4, 7, {4, 7}), block(7, 9, {7, 9})}, // blocks overlap
        {block(7, 9, {7, 9}), block(1, 4, {1, 4})}, // blocks out of order
        {block(11, 12, {9})},                       // about to be folded into
        {block(4, 9, {4, 9}, 0)},                   // counts
        {block(4, 9, {4, 9}, uint64_t{1} << 63)},
    };
    TestRecords others; // overlap with everything, so that every block is decoded
    for (uint64_t key = 1; key < 12; ++key) {
        others.push_back({key, 1, 0, "o"});
    }
    writeUrlFile(path("good"), {others}, m_status);
    for (const size_t handles : {100U, 3U}) { // at once, and in a round
        m_disk.handles = handles;
        for (const StoredBlocks& blocks : cases) {
            writeStored("bad", blocks);
            EXPECT_EQ(merge({"good", "bad", "good"}), -1) << &blocks - cases;
            // Set aside, and nothing else is gone or left.
            EXPECT_EQ(m_disk.names(m_dir / ""), std::set<std::string>{"good"}) << &blocks - cases;
        }
    }
}

// Each step of a merge takes so long, and at one of its looks at the free space a stop is
// requested.
class StepClock : public FakeClockPlatform {
public:
    StepClock(uint32_t milliseconds, int stop) : step(milliseconds), stopAt(stop) { ticks = 0; }
    const uint32_t step;
    const int stopAt;
    int checks = 0;

    uint32_t tickCount() override { return std::exchange(*ticks, *ticks + step); }
    int freeSpace(const std::string& path, uint64_t& bytes) override {
        EXPECT_TRUE(path.ends_with("/20120303")) << path; // where the output lies
        g_isRunning = ++checks == stopAt ? 0 : 1;
        return FakeClockPlatform::freeSpace(path, bytes);
    }
};

TEST_F(MergeEngineTest, LooksAtSpaceOnceAMinute) {
    std::vector<TestRecords> blocks; // the clock is looked at for each
    for (uint64_t key = 0; key < 100; ++key) {
        blocks.push_back({{key, 1, 0, "host"}});
    }
    writeUrlFile(path("a"), blocks, m_status);
    for (const auto& [step, checks] : {std::pair(59999U, 100), {60000, 200}}) {
        StepClock clock(step, 0);
        const ScopedPlatform scope(clock);
        EXPECT_EQ(merge({"a", "a"}), 0);
        EXPECT_EQ(clock.checks, checks);
    }
}

// As many inputs as may be open at once; fewer where the system has fewer handles.
TEST_F(MergeEngineTest, VeryManyInputsAreMergedInRounds) {
    const std::string output = "/t/stat/acc/diskTemp/20120303/1.temp";
    for (size_t i = 0; i < 400; ++i) {
        put(path(std::to_string(i)), {{i % 3, 1, 0, "host"}}, m_status);
    }
    const auto before = m_disk.files;
    for (const auto& [number, handles, openMost] : {std::tuple(127U, 1000U, 128U),
                                                    {20000, 1000, 128},
                                                    {127, 127, 127}, // one short, for the output
                                                    {300, 3, 3},
                                                    {3, 2, 2}}) { // two inputs do not go
        std::vector<std::string> inputs; // at last the same files again and again
        std::vector<TestRecords> parts;
        for (size_t i = 0; i < number; ++i) {
            inputs.push_back(path(std::to_string(i % 400)));
            parts.push_back({{i % 400 % 3, 1, 0, "host"}});
        }
        for (const int stopAt : {2, 0}) { // in the rounds or behind them, and not at all
            StepClock clock(60000, stopAt);
            m_disk.handles = handles;
            const ScopedPlatform scope(clock);
            m_disk.openMost = 0;
            const int wanted = handles == 2 ? -1 : stopAt == 0 ? 0 : 1;
            ASSERT_EQ(MergeFileList().mergeTemp2Temp(inputs, m_status, output), wanted) << number;
            EXPECT_EQ(m_disk.openNow(), 0U);
            EXPECT_EQ(m_disk.openMost, openMost); // with the output
            if (wanted == 0) {
                EXPECT_EQ(readUrlFile(output).records, summed(parts));
                EXPECT_EQ(readUrlFile(output).dayStatus->newCounter(), 5);
                m_disk.files.erase(output);
            }
            EXPECT_EQ(difference(m_disk.files, before), ""); // no round file is left
            g_isRunning = 1;
        }
    }
}

} // namespace
} // namespace kestrine
