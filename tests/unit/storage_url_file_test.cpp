#include "storage/compress.h"
#include "storage/url_file.h"
#include "storage/url_key.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;
using Bytes = std::vector<uint8_t>;

constexpr size_t g_capacity = 2048 * 1024; // bytes of a block's buffer

class UrlFileTest : public testing::Test {
protected:
    // Header fields of every block, by walking the file.
    std::vector<BlockHeader> headers() {
        UrlFile file;
        EXPECT_EQ(file.open(m_path, OpenMode::Read), 0);
        EXPECT_EQ(file.readStatus(g_dayStatusType), 0);
        std::vector<BlockHeader> all;
        BlockHeader header;
        while (file.readBlockHeader(header) == 0) {
            ByteView data;
            EXPECT_EQ(file.readBlockData(data), 0);
            EXPECT_EQ(data.size(), static_cast<size_t>(header.blockSize));
            all.push_back(header);
        }
        EXPECT_FALSE(file.broken());
        return all;
    }

    TempDir m_directory;
    const std::string m_path = m_directory / "file";
    const DayStatus m_status = dayStatusOf({{"data/a/devid_1/20240229", 3, 17}}, 5);
};

void put(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}
template <typename T>
void putLittle(Bytes& bytes, T value) {
    bytes.resize(bytes.size() + sizeof(T));
    storeLittle(bytes.data() + bytes.size() - sizeof(T), value);
}
void putHeader(Bytes& bytes, uint64_t minKey, uint64_t maxKey, int64_t total, int32_t stored,
               int32_t raw, int32_t flag, int32_t count) {
    putLittle(bytes, minKey);
    putLittle(bytes, maxKey);
    putLittle(bytes, total);
    putLittle(bytes, stored);
    putLittle(bytes, raw);
    putLittle(bytes, flag);
    putLittle(bytes, count);
}
void putRecord(Bytes& bytes, const TestRecord& record) {
    putLittle(bytes, record.key);
    putLittle(bytes, record.count);
    putLittle(bytes, record.type);
    putLittle(bytes, static_cast<uint32_t>(record.url.size() + 1));
    put(bytes, asBytes(record.url));
    putLittle(bytes, uint8_t{0});
}

// A block of one short record (raw, since zlib would make it longer), one of repetitive records
// (compressed), a week status and the end position.
TEST_F(UrlFileTest, HasItsFormat) {
    const TestRecord first{0x0123456789abcdef, 0x1122334455667788, 0xdeadbeef, "q"};
    const TestRecord second{0x7000000000000000, 2, 3, std::string(259, 'z')};
    const TestRecord third{0xf000000000000000, 5, 3, std::string(100, 'z')};
    writeUrlFile(m_path, {{first}, {second, third}}, weekMonStatusOf({{"new/20240229", 4}}));

    Bytes expected;
    putHeader(expected, first.key, first.key, 0x1122334455667788, 26, 26, 0, 1);
    putRecord(expected, first);
    Bytes raw;
    putRecord(raw, second);
    putRecord(raw, third);
    Compress* compressor = nullptr;
    ASSERT_EQ(Compress::getInstance(&compressor), 0);
    ByteView stored;
    ASSERT_EQ(compressor->compress(raw.data(), static_cast<int32_t>(raw.size()), &stored), 0);
    putHeader(expected, second.key, third.key, 7, static_cast<int32_t>(stored.size()), 284 + 125, 1,
              2);
    put(expected, stored);
    const auto endPos = static_cast<int64_t>(expected.size());
    Bytes body;
    putLittle(body, int64_t{0x1122334455667788 + 7});
    putLittle(body, uint32_t{1});
    put(body, asBytes("new/20240229"));
    body.resize(12 + 260);
    putLittle(body, int32_t{4});
    putLittle(expected, urlKey(body));
    putLittle(expected, uint32_t{276});
    put(expected, body);
    putLittle(expected, endPos);
    EXPECT_EQ(readBytes(m_path), expected);

    const UrlFileContent content = readUrlFile(m_path, g_weekMonStatusType);
    EXPECT_TRUE(content.whole);
    EXPECT_EQ(content.records, (TestRecords{first, second, third}));
}

TEST_F(UrlFileTest, ReturnsWhatWasWritten) {
    const uint64_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    struct {
        size_t number, shortest, longest;
    } const table[] = {
        {0, 1, 1}, {1, 1, 259}, {100, 3, 259}, {30000, 10, 259}, {8000, 259, 259}, // several blocks
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.number);
        const TestRecords records = randomRecords(random, row.number, row.shortest, row.longest);
        std::vector<TestRecords> blocks;
        if (!records.empty()) {
            blocks.push_back(records);
        }
        writeUrlFile(m_path, blocks, m_status);
        const UrlFileContent content = readUrlFile(m_path);
        EXPECT_TRUE(content.whole);
        EXPECT_FALSE(content.broken);
        EXPECT_TRUE(content.records == records); // not printed: too many
        ASSERT_TRUE(content.dayStatus.has_value());
        EXPECT_EQ(content.dayStatus->newCounter(), 5);
        EXPECT_EQ(content.dayStatus->entries()[0].path, m_status.entries()[0].path);
        uint64_t total = 0;
        for (const TestRecord& record : records) {
            total += record.count;
        }
        EXPECT_EQ(content.dayStatus->totalCount(), total);

        size_t next = 0;
        for (const BlockHeader& header : headers()) {
            EXPECT_EQ(header.minKey, records[next].key);
            next += static_cast<size_t>(header.count);
            ASSERT_LE(next, records.size());
            EXPECT_EQ(header.maxKey, records[next - 1].key);
            EXPECT_LT(header.rawSize, static_cast<int32_t>(g_capacity));
        }
        EXPECT_EQ(next, records.size());
    }
}

// Records of 64 bytes fill a block but for the last one, whose size decides.
TEST_F(UrlFileTest, OneByteOfABlockStaysFree) {
    const size_t filled = g_capacity - 200;
    struct {
        size_t lastSize;
        size_t blocks;
    } const table[] = {{199, 1}, {200, 2}, {201, 2}};
    for (const auto& row : table) {
        TestRecords records;
        for (uint64_t key = 1; 64 * key <= filled - 64; ++key) {
            records.push_back({key, 1, 0, std::string(64 - 25, 'a')});
        }
        const size_t rest = filled - 64 * records.size();
        records.push_back({1u << 20, 1, 0, std::string(rest - 25, 'b')});
        records.push_back({1u << 21, 1, 0, std::string(row.lastSize - 25, 'c')});
        writeUrlFile(m_path, {records}, m_status);
        const std::vector<BlockHeader> all = headers();
        ASSERT_EQ(all.size(), row.blocks) << row.lastSize;
        EXPECT_EQ(all[0].rawSize,
                  static_cast<int32_t>(row.blocks == 1 ? filled + row.lastSize : filled));
        EXPECT_TRUE(readUrlFile(m_path).records == records) << row.lastSize;
    }
}

TEST_F(UrlFileTest, PendingSizeIsTheSizeWithoutCompression) {
    UrlFile file;
    ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
    EXPECT_EQ(file.pendingSize(), 0);
    ASSERT_EQ(file.flush(), 0); // an empty block is not written
    EXPECT_EQ(file.pendingSize(), 0);
    ASSERT_EQ(file.writeOneRecord({1, 1, 1, std::string(200, 'x')}), 0);
    EXPECT_EQ(file.pendingSize(), 40 + 225);
    ASSERT_EQ(file.flush(), 0);
    const int64_t size = file.pendingSize();
    EXPECT_LT(size, 40 + 225);
    BlockHeader header{5, 5, 1, 26, 26, 0, 1};
    ASSERT_EQ(file.writeBlockHeader(header), 0);
    ASSERT_EQ(file.writeBlockData(Bytes(26)), 0);
    EXPECT_EQ(file.pendingSize(), size + 40 + 26);
    EXPECT_EQ(file.totalCount(), 2u);
    ASSERT_EQ(file.close(), 0);
    EXPECT_EQ(static_cast<int64_t>(readBytes(m_path).size()), size + 66);
}

TEST_F(UrlFileTest, BlocksAreCopiedAsTheyAre) {
    std::mt19937_64 random(7);
    const TestRecords records = randomRecords(random, 60);
    const std::vector<TestRecords> blocks = {
        {records.begin(), records.begin() + 1}, // raw
        {records.begin() + 1, records.begin() + 40},
        {records.begin() + 40, records.end()},
    };
    writeUrlFile(m_path, blocks, m_status);

    UrlFile in;
    UrlFile out;
    ASSERT_EQ(in.open(m_path, OpenMode::Read), 0);
    ASSERT_EQ(in.readStatus(g_dayStatusType), 0);
    const std::string copy = m_directory / "copy";
    ASSERT_EQ(out.open(copy, OpenMode::Truncate), 0);
    BlockHeader header;
    ByteView data;
    EXPECT_EQ(in.readBlockData(data), -1); // no header yet
    for (size_t i = 0; i < blocks.size(); ++i) {
        ASSERT_EQ(in.readBlockHeader(header), 0);
        ASSERT_EQ(in.readBlockHeader(header), 0); // again, until the data is read
        EXPECT_EQ(header.count, static_cast<int32_t>(blocks[i].size()));
        EXPECT_EQ(in.unCompress(), -1); // no data yet
        EXPECT_FALSE(in.block().hasCurrent());
        ASSERT_EQ(in.readBlockData(data), 0);
        ASSERT_EQ(out.writeBlockHeader(header), 0);
        ASSERT_EQ(out.writeBlockData(data), 0);
        if (i == 1) { // decoded and read by records after all
            ASSERT_EQ(in.unCompress(), 0);
            EXPECT_EQ(in.readBlockHeader(header), -1); // still has records
            EXPECT_EQ(in.block().rawData().size(), static_cast<size_t>(header.rawSize));
            for (const TestRecord& expected : blocks[i]) {
                UrlRecordView record;
                ASSERT_EQ(in.getTopRecord(record), 0);
                ASSERT_EQ(in.readOneRecord(record), 0);
                EXPECT_EQ(record.url, expected.url);
                EXPECT_EQ(record.key, expected.key);
            }
        }
    }
    EXPECT_EQ(in.readBlockHeader(header), 1);
    EXPECT_EQ(in.readBlockHeader(header), 1);
    EXPECT_FALSE(in.broken());
    EXPECT_EQ(in.totalCount(), blocks[1].size());
    DayStatus status = *in.dayStatus();
    ASSERT_EQ(out.writeStatus(status), 0);
    ASSERT_EQ(out.close(), 0);
    EXPECT_EQ(readBytes(copy), readBytes(m_path));
}

TEST_F(UrlFileTest, WhatCannotBeReadBackIsNotWritten) {
    UrlFile file;
    EXPECT_EQ(file.writeOneRecord({1, 1, 1, "x"}), -1); // not open
    EXPECT_EQ(file.writeStatus(m_status), -1);
    EXPECT_EQ(file.open("", OpenMode::Truncate), -1);
    ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
    EXPECT_EQ(file.open(m_path, OpenMode::Truncate), -1); // open already
    EXPECT_EQ(file.writeOneRecord({1, 1, 1, std::string(260, 'x')}), -1);
    EXPECT_EQ(file.writeBlockHeader({1, 1, 0, 26, 26, 0, 1}), -1);
    EXPECT_EQ(file.writeBlockData({}), -1);
    EXPECT_EQ(file.writeStatus(DayStatus()), -1);
    EXPECT_EQ(file.pendingSize(), 0);
    ASSERT_EQ(file.writeOneRecord({1, 0, 1, "x"}), 0);
    EXPECT_EQ(file.flush(), -1); // a block whose counts are 0
    EXPECT_EQ(file.close(), 0);
    EXPECT_EQ(file.close(), 0);
    EXPECT_TRUE(readBytes(m_path).empty());
}

TEST_F(UrlFileTest, StatusKind) {
    writeUrlFile(m_path, {{recordOf("a.org", 3)}}, m_status);
    UrlFile file;
    EXPECT_EQ(file.readStatus(g_dayStatusType), -1); // not open
    ASSERT_EQ(file.open(m_path, OpenMode::ReadExisting), 0);
    EXPECT_EQ(file.readStatus(0xFE), -1);
    EXPECT_FALSE(file.broken());
    EXPECT_EQ(file.dayStatus(), nullptr);
    ASSERT_EQ(file.readStatus(g_dayStatusType), 0);
    ASSERT_NE(file.dayStatus(), nullptr);
    EXPECT_EQ(file.weekMonStatus(), nullptr);
    // A status in hand, which the owner may have changed, is not read again.
    file.dayStatus()->setNewCounter(99);
    UrlRecordView record;
    ASSERT_EQ(file.readOneRecord(record), 0);
    EXPECT_EQ(file.readOneRecord(record), 1);
    EXPECT_EQ(file.getTopRecord(record), 1);
    ASSERT_EQ(file.readStatus(g_dayStatusType), 0);
    EXPECT_EQ(file.dayStatus()->newCounter(), 99);
    EXPECT_EQ(file.dayStatus()->entries().size(), 1u);
    EXPECT_EQ(file.readOneRecord(record), 0); // from the start again
}

} // namespace
} // namespace kestrine
