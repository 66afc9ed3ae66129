// Records, block headers and the compressor; blocks inside files are tested in
// storage_url_file_test.cpp.
#include "storage/block_header.h"
#include "storage/compress.h"
#include "storage/url_record.h"
#include "storage/url_record_block.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <zlib.h>

namespace kestrine {
namespace {

TEST(UrlRecord, HasItsFormat) {
    const UrlRecordView record{0x0807060504030201, 0x1817161514131211, 0x24232221, "ab"};
    std::vector<uint8_t> bytes(record.size());
    record.store(bytes.data());
    const std::vector<uint8_t> expected = {
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, // key
        0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, // count
        0x21, 0x22, 0x23, 0x24,                         // type
        3,    0,    0,    0,                            // length with the zero
        'a',  'b',  0,
    };
    EXPECT_EQ(bytes, expected);

    UrlRecordView parsed;
    ASSERT_EQ(parseRecord(bytes, parsed), 0);
    EXPECT_EQ(parsed.key, record.key);
    EXPECT_EQ(parsed.count, record.count);
    EXPECT_EQ(parsed.type, record.type);
    EXPECT_EQ(parsed.url, record.url);

    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(parseRecord(ByteView(bytes).first(length), parsed), -1) << length;
    }
}

TEST(UrlRecord, IsRefusedWithABadTextLength) {
    struct {
        uint32_t urlLen;
        int result;
    } const table[] = {{0, -1}, {1, 0}, {260, 0}, {261, -1}, {0x80000001, -1}, {0xFFFFFFFF, -1}};
    for (const auto& row : table) {
        std::vector<uint8_t> bytes(g_recordHeadSize + 400); // zeros: a terminator everywhere
        storeLittle(bytes.data() + 20, row.urlLen);
        UrlRecordView record;
        EXPECT_EQ(parseRecord(bytes, record), row.result) << row.urlLen;
    }
    std::vector<uint8_t> unterminated(g_recordHeadSize + 2, 'x');
    storeLittle(unterminated.data() + 20, uint32_t{2});
    UrlRecordView record;
    EXPECT_EQ(parseRecord(unterminated, record), -1);
}

TEST(UrlRecord, KeepsTheFirst259BytesOfAHost) {
    for (const size_t length : {0u, 1u, 258u, 259u, 260u, 1000u}) {
        const std::string host(length, 'h');
        const UrlRecordPtr record = makeUrlRecord({7, 8, 9, host});
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->url(), host.substr(0, 259));
        EXPECT_EQ(record->size(), 25 + std::min<size_t>(length, 259));
        EXPECT_EQ(record->url().data()[record->url().size()], '\0');
        EXPECT_EQ(record->view().key, 7u);
        EXPECT_EQ(record->view().count, 8u);
        EXPECT_EQ(record->view().type, 9u);
    }
}

TEST(BlockHeader, IsValidated) {
    struct {
        int32_t flag, count;
        int64_t total;
        int32_t blockSize, rawSize;
        int result;
    } const table[] = {
        {1, 1, 1, 1, 1, 0},
        {1, 1, 1, 1, 2, 0},
        {0, 1, 1, 1, 1, 0},
        {1, 1, INT64_MAX, 1, 9, 0},
        {0, INT32_MAX, 1, INT32_MAX, INT32_MAX, 0},
        {2, 1, 1, 1, 1, -1},
        {-1, 1, 1, 1, 1, -1}, // flag
        {1, 0, 1, 1, 1, -1},
        {1, -1, 1, 1, 1, -1}, // count
        {1, 1, 0, 1, 1, -1},
        {1, 1, -1, 1, 1, -1}, // total
        {1, 1, 1, 0, 1, -1},
        {1, 1, 1, 2, 1, -1},
        {1, 1, 1, -1, 1, -1}, // compressed
        {1, 1, 1, 1, -1, -1},
        {0, 1, 1, 0, 0, -1},
        {0, 1, 1, 1, 2, -1}, // raw
        {0, 1, 1, 2, 1, -1},
        {0, 1, 1, -1, -1, -1},
    };
    for (const auto& row : table) {
        const BlockHeader header{
            1,        2, row.total, row.blockSize, row.rawSize, static_cast<uint32_t>(row.flag),
            row.count};
        EXPECT_EQ(Util::validateBlockHeader(&header), row.result)
            << row.flag << " " << row.count << " " << row.total << " " << row.blockSize << " "
            << row.rawSize;
    }
    EXPECT_EQ(Util::validateBlockHeader(nullptr), -1);
}

class CompressTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Compress::getInstance(&m_compress), 0); }

    static constexpr int32_t g_limit = 4194304;
    Compress* m_compress = nullptr;
};

TEST_F(CompressTest, ReturnsWhatWasCompressed) {
    const std::vector<uint8_t> source(g_limit, 'x');
    ByteView data;
    ASSERT_EQ(m_compress->compress(source.data(), g_limit, &data), 0);
    EXPECT_LT(data.size(), source.size() / 100);
    const std::vector<uint8_t> stored(data.begin(), data.end());
    ASSERT_EQ(m_compress->unCompress(stored.data(), static_cast<int32_t>(stored.size()), &data), 0);
    EXPECT_TRUE(std::ranges::equal(data, source));
}

TEST_F(CompressTest, RefusesWhatDoesNotShrinkWhatIsTooLargeAndBadArguments) {
    ByteView data;
    const std::vector<uint8_t> one(1, 'x');
    EXPECT_EQ(m_compress->compress(one.data(), 1, &data), -1); // zlib needs 9 bytes
    EXPECT_EQ(m_compress->compress(one.data(), 0, &data), -1);
    EXPECT_EQ(m_compress->compress(one.data(), -1, &data), -1);
    EXPECT_EQ(m_compress->compress(nullptr, 1, &data), -1);
    EXPECT_EQ(m_compress->compress(one.data(), 1, nullptr), -1);
    EXPECT_EQ(m_compress->unCompress(one.data(), 0, &data), -1);
    EXPECT_EQ(m_compress->unCompress(nullptr, 1, &data), -1);
    EXPECT_EQ(m_compress->unCompress(one.data(), 1, &data), -1); // damaged
    EXPECT_EQ(Compress::getInstance(nullptr), -1);

    const std::vector<uint8_t> source(g_limit + 1, 'x');
    std::vector<uint8_t> stored(100000);
    uLongf length = static_cast<uLongf>(stored.size());
    ASSERT_EQ(
        compress2(stored.data(), &length, source.data(), static_cast<uLong>(source.size()), 1),
        Z_OK);
    EXPECT_EQ(m_compress->unCompress(stored.data(), static_cast<int32_t>(length), &data), -1);
}

// The bound between the two: a compressed form exactly as long as the source is taken.
TEST_F(CompressTest, TakesAFormOfEqualLength) {
    std::vector<uint8_t> source;
    for (uint8_t value = 1; source.size() < 20; value = static_cast<uint8_t>(value * 7 + 3)) {
        source.push_back(value);
    }
    std::vector<uint8_t> stored(1000);
    uLongf length = 0;
    do {
        source.push_back('x');
        length = static_cast<uLongf>(stored.size());
        ASSERT_EQ(
            compress2(stored.data(), &length, source.data(), static_cast<uLong>(source.size()), 1),
            Z_OK);
    } while (length > source.size());
    ASSERT_EQ(length, source.size());
    ByteView data;
    EXPECT_EQ(m_compress->compress(source.data(), static_cast<int32_t>(source.size()), &data), 0);
    source.pop_back();
    EXPECT_EQ(m_compress->compress(source.data(), static_cast<int32_t>(source.size()), &data), -1);
}

} // namespace
} // namespace kestrine
