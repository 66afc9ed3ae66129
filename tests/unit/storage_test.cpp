// Records, status records and the key of a host by themselves, then whole files.
#include "storage/compress.h"
#include "storage/reading.h"
#include "storage/url_key.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <bit>

namespace kestrine {
namespace {

using namespace test;
using Bytes = std::vector<uint8_t>;

// The longest text is kept whole, a longer one is cut, and a longer one is no record.
TEST(UrlRecord, BoundsOfItsText) {
    Bytes bytes(g_recordHeadSize + 400); // zeros: a terminator everywhere
    UrlRecordView parsed;
    for (const auto& [urlLen, result] :
         {std::pair(0U, -1), {1, 0}, {260, 0}, {261, -1}, {~0U, -1}}) {
        storeLittle(bytes.data() + recordAt::g_urlLen, urlLen);
        EXPECT_EQ(parseRecord(bytes, parsed), result) << urlLen;
    }
    for (const size_t length : {258U, 259U, 260U, 1000U}) {
        const UrlRecordPtr record = makeUrlRecord({7, 8, 9, std::string(length, 'h')});
        EXPECT_EQ(record->url().size(), std::min<size_t>(length, 259));
    }
}

class StatusTest : public testing::Test {
protected:
    template <typename Status>
    int write(const Status& status) {
        const int result = status.writeStatus(platform().open(m_path, OpenMode::Truncate).get());
        EXPECT_EQ(readBytes(m_path).empty(), result != 0);
        return result;
    }
    // A record of that body and length field.
    template <typename Status>
    int read(Status& status, const Bytes& body, size_t length) {
        Bytes bytes(12);
        storeLittle(bytes.data(), urlKey(body));
        storeLittle(bytes.data() + 8, static_cast<uint32_t>(length));
        bytes.insert(bytes.end(), body.begin(), body.end());
        writeBytes(m_path, bytes);
        const std::unique_ptr<File> file = platform().open(m_path, OpenMode::Read);
        return Status::readStatus(file.get(), static_cast<int64_t>(bytes.size()), status);
    }

    static constexpr size_t g_most = 4194304; // bytes of a body
    TempDir m_directory;
    const std::string m_path = m_directory / "status";
};

TEST_F(StatusTest, LengthsOnRead) {
    const std::tuple<size_t, size_t, int, int> table[] = {
        // body, length, results
        {11, 11, g_damaged, g_damaged},   {12, 12, g_damaged, 0},
        {15, 15, g_damaged, 0},           {16, 16, 0, 0},
        {100, 101, g_damaged, g_damaged}, {100, ~0U, g_damaged, g_damaged},
        {g_most, g_most, 0, 0},           {g_most + 1, g_most + 1, g_damaged, g_damaged}};
    for (const auto& [body, length, dayResult, weekResult] : table) {
        DayStatus day;
        WeekMonStatus week;
        EXPECT_EQ(read(day, Bytes(body), length), dayResult) << body << " " << length;
        EXPECT_EQ(read(week, Bytes(body), length), weekResult) << body << " " << length;
    }
}

TEST_F(StatusTest, WhatCannotBeReadBackIsNotWritten) {
    std::vector<NodeEntry> nodes((g_most - 16) / 272, {std::string(259, 'p'), 1, 0});
    std::vector<DateEntry> dates((g_most - 12) / 264, {std::string(259, 'p'), 1});
    EXPECT_EQ(write(dayStatusOf(nodes)), 0);
    EXPECT_EQ(readBytes(m_path).size(), dayStatusOf(nodes).writtenSize());
    EXPECT_EQ(write(weekMonStatusOf(dates)), 0);
    nodes.push_back({"n", 1, 0});
    dates.push_back({"n", 1});
    const std::string tooLong(260, 'p');
    EXPECT_EQ(write(dayStatusOf(nodes)), -1);
    EXPECT_EQ(write(weekMonStatusOf(dates)), -1);
    EXPECT_EQ(write(dayStatusOf({{tooLong, 0, 0}})), -1);
    EXPECT_EQ(write(weekMonStatusOf({{tooLong, 0}})), -1);
    EXPECT_EQ(write(DayStatus()), -1);
    EXPECT_EQ(write(WeekMonStatus()), -1);
    // One more than the counter, the next number, must be a number too.
    for (const auto& [counter, good] : {std::pair(-2, false),
                                        {-1, true},
                                        {INT32_MAX - 1, true},
                                        {INT32_MAX, false},
                                        {INT32_MIN, false}}) {
        EXPECT_EQ(write(dayStatusOf({{"n", 1, 0}}, counter)), good ? 0 : -1) << counter;
        Bytes body(16);
        storeLittle(body.data(), counter);
        DayStatus day;
        EXPECT_EQ(read(day, body, body.size()), good ? 0 : g_damaged) << counter;
    }
}

// A published result; and all keys of 0 to 64 bytes, folded, the number being that of an
// implementation which adds byte by byte. Texts end where their memory ends: reads beyond show.
TEST(UrlKey, EqualsOtherImplementations) {
    EXPECT_EQ(urlKey(asBytes("Four score and seven years ago")), 0x17770551ce7226e6U);
    for (size_t offset = 0; offset < 8; ++offset) {
        uint64_t folded = 0;
        for (size_t length = 0; length <= 64; ++length) {
            Bytes text(offset + length);
            for (size_t i = 0; i < length; ++i) {
                text[offset + i] = static_cast<uint8_t>(37 * i + 200);
            }
            folded = std::rotl(folded, 7) ^ urlKey(ByteView(text).subspan(offset));
        }
        EXPECT_EQ(folded, 0xba08caac8c5c1b0U) << offset;
    }
}

void put(Bytes& bytes, std::initializer_list<std::pair<uint64_t, int>> fields) { // value, width
    for (const auto& [value, width] : fields) {
        for (int i = 0; i < width; ++i) {
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }
}
void putText(Bytes& bytes, std::string_view text, size_t width) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.resize(bytes.size() + width - text.size());
}
Bytes compressed(const Bytes& raw) {
    Compress* compressor = nullptr;
    ByteView stored;
    EXPECT_EQ(Compress::getInstance(&compressor), 0);
    EXPECT_EQ(compressor->compress(raw.data(), static_cast<int32_t>(raw.size()), &stored), 0);
    return {stored.begin(), stored.end()};
}

// Two raw blocks of one record each, since zlib cannot make those shorter, a compressed one, a day
// status and the end position.
class UrlFileTest : public testing::Test {
protected:
    void SetUp() override {
        TestRecords many;
        for (uint64_t key = 0xf0; key < 0xf6; ++key) {
            many.push_back({key << 56, 1, 2, std::string(20, 'c')});
        }
        m_blocks.push_back(many);
        writeUrlFile(m_path, m_blocks, m_status);
        m_whole = readBytes(m_path);
    }

    TempDir m_directory;
    const std::string m_path = m_directory / "file";
    const std::string m_longest = std::string(259, 'p'); // path
    const DayStatus m_status =
        dayStatusOf({{"data/20240229", 3, 0x0102030405060708}, {m_longest, -1, 0}}, 5);
    static constexpr size_t g_second = 66; // offset of the second block
    static constexpr size_t g_third = 132;
    static constexpr size_t g_body = 16 + 2 * 272; // of the status
    std::vector<TestRecords> m_blocks = {
        {{0x1032547698badcfe, 0x1122334455667788, 0xdeadbeef, "a"}},
        {{0x2031425364758697, 0x1726354453627180, 0xcafef00d, "b"}}};
    Bytes m_whole;
};

TEST_F(UrlFileTest, HasItsFormat) {
    Bytes expected;
    uint64_t total = 0;
    for (const TestRecords& block : m_blocks) {
        Bytes raw;
        uint64_t sum = 0;
        for (const auto& [key, count, type, url] : block) {
            put(raw, {{key, 8}, {count, 8}, {type, 4}, {url.size() + 1, 4}});
            putText(raw, url, url.size() + 1);
            sum += count;
        }
        const bool packed = block.size() > 1;
        const Bytes stored = packed ? compressed(raw) : raw;
        put(expected, {{block.front().key, 8}, {block.back().key, 8}, {sum, 8}});
        put(expected,
            {{stored.size(), 4}, {raw.size(), 4}, {packed ? 1 : 0, 4}, {block.size(), 4}});
        expected.insert(expected.end(), stored.begin(), stored.end());
        total += sum;
    }
    const auto withStatus = [&](const Bytes& body) {
        Bytes bytes = expected;
        put(bytes, {{urlKey(body), 8}, {body.size(), 4}});
        bytes.insert(bytes.end(), body.begin(), body.end());
        put(bytes, {{expected.size(), 8}});
        return bytes;
    };
    Bytes body;
    put(body, {{5, 4}, {total, 8}, {2, 4}});
    putText(body, "data/20240229", 260);
    put(body, {{3, 4}, {0x0102030405060708, 8}});
    putText(body, m_longest, 260);
    put(body, {{0xFFFFFFFF, 4}, {0, 8}});
    EXPECT_EQ(m_whole, withStatus(body));
    writeUrlFile(m_path, m_blocks, *readUrlFile(m_path).dayStatus);
    EXPECT_EQ(readBytes(m_path), m_whole);

    writeUrlFile(m_path, m_blocks, weekMonStatusOf({{"r/20240229", 0x01020304}, {m_longest, -1}}));
    body.clear();
    put(body, {{total, 8}, {2, 4}});
    putText(body, "r/20240229", 260);
    put(body, {{0x01020304, 4}});
    putText(body, m_longest, 260);
    put(body, {{0xFFFFFFFF, 4}});
    Bytes bytes = withStatus(body);
    EXPECT_EQ(readBytes(m_path), bytes);
    bytes[expected.size()] ^= 1;                     // such a checksum is not looked at,
    bytes.insert(bytes.end() - 8, 5, uint8_t{0xEE}); // nor what lies behind the status,
    bytes.insert(bytes.begin() + std::ssize(expected), 39, uint8_t{0}); // nor less than a header
    storeLittle(bytes.data() + bytes.size() - 8, expected.size() + 39);
    writeBytes(m_path, bytes);
    const UrlFileContent week = readUrlFile(m_path, g_weekMonStatusType);
    EXPECT_TRUE(week.whole);
    EXPECT_EQ(week.weekMonStatus->counterOfDate("elsewhere/20240229"), 0x01020304);
    writeUrlFile(m_path, m_blocks, *week.weekMonStatus);
    EXPECT_EQ(readBytes(m_path), withStatus(body));
}

// Also files of one block and of several: records of 64 bytes fill a block but for the last one,
// whose size decides, since one byte of the buffer stays free.
TEST_F(UrlFileTest, ReturnsWhatWasWritten) {
    std::mt19937_64 random(1);
    constexpr int32_t capacity = 4096;
    constexpr size_t filled = capacity - 192;
    std::vector<TestRecords> cases = {{}, randomRecords(random, 1), randomRecords(random, 30000)};
    for (const size_t lastSize : {191U, 192U}) {
        TestRecords& records = cases.emplace_back();
        for (uint64_t key = 1; 64 * key <= filled; ++key) {
            records.push_back({key, 1, 0, std::string(64 - 25, 'a')});
        }
        records.push_back({capacity, 1, 0, std::string(lastSize - 25, 'c')});
        writeUrlFile(m_path, {records}, m_status, capacity);
        EXPECT_EQ(loadLittle<uint32_t>(readBytes(m_path).data() + 28),
                  lastSize == 191 ? filled + 191 : filled);
        EXPECT_EQ(readUrlFile(m_path).records, records);
    }
    for (const TestRecords& records : cases) {
        writeUrlFile(m_path, {records}, m_status);
        EXPECT_TRUE(readUrlFile(m_path).records == records); // not printed: too many
    }
}

TEST_F(UrlFileTest, WhatCannotBeReadBackIsNotWritten) {
    const std::string longest(g_maxHostText, 'a');
    for (const auto& [count, url, result] : {std::tuple(uint64_t{1}, longest, 0),
                                             {uint64_t{INT64_MAX}, "", 0},
                                             {0, "", -1},
                                             {uint64_t{1} << 63, "", -1},
                                             {1, longest + "a", -1}}) {
        UrlFile file;
        ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
        EXPECT_EQ(file.writeOneRecord({1, count, 0, url}), result) << count << url;
    }
    for (const int32_t capacity : {-1, 0, g_blockCapacity + 1}) {
        EXPECT_EQ(UrlFile(capacity).open(m_path, OpenMode::Truncate), -1) << capacity;
    }
}

TEST_F(UrlFileTest, DamageFieldByField) {
    const auto size = static_cast<int64_t>(m_whole.size());
    const size_t tail = m_whole.size() - 8;
    const size_t end = tail - 12 - g_body; // where the blocks end
    const struct {
        size_t offset;
        int width;
        std::vector<int64_t> values;
        size_t records; // read before the damage is found
    } table[] = {
        // header of the raw second block: total, sizes, flag, count
        {g_second + 16, 8, {0, -1}, 1},
        {g_second + 24, 4, {0, 25, 27, -1}, 1},
        {g_second + 28, 4, {27, INT32_MAX}, 1},
        {g_second + 32, 4, {1, 2}, 1},
        {g_second + 36, 4, {0, -1}, 1},
        {g_second + 36, 4, {2}, 2},
        // header of the compressed third block, zlib's own header and the last byte of its data
        {g_third + 24, 4, {1, INT32_MAX}, 2},
        {g_third + 28, 4, {269, 271, g_blockCapacity, g_blockCapacity + 1, INT32_MAX}, 2},
        {g_third + 32, 4, {0}, 2},
        {g_third + 36, 4, {5}, 6},
        {g_third + 36, 4, {7}, 8},
        {g_third + 40, 1, {0}, 2},
        {end - 1, 1, {m_whole[end - 1] ^ 1}, 2},
        // record of the raw second block: count, text length, terminator
        {g_second + 48, 8, {0, -1, INT64_MIN}, 1},
        {g_second + 60, 4, {0, 1, 3, 261, -1}, 1},
        {g_second + 65, 1, {'x'}, 1},
        // status: checksum, length, body; end position
        {end, 1, {m_whole[end] ^ 1}, 0},
        {end + 8, 4, {0, g_body - 1, g_body + 1, 4194305, -1}, 0},
        {end + 12, 1, {6}, 0},
        {tail, 8, {-1, INT64_MIN, INT64_MAX, size, size - 19, size - 20, 0}, 0},
        {tail, 8, {static_cast<int64_t>(end) - 1}, 0}};
    for (const auto& [offset, width, values, records] : table) {
        for (const int64_t value : values) {
            Bytes bytes = m_whole;
            for (int i = 0; i < width; ++i) {
                bytes[offset + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
            }
            writeBytes(m_path, bytes);
            const UrlFileContent content = readUrlFile(m_path);
            EXPECT_TRUE(content.broken && !content.whole) << offset << " " << value;
            EXPECT_EQ(content.records.size(), records) << offset << " " << value;
        }
    }
}

// Blocks whose sizes are at odds with the buffer or the end of the blocks, where the status would
// be taken for data, in files that are otherwise right: not even the undecoded data is handed out.
TEST_F(UrlFileTest, ABlockThatDoesNotFitIsRefused) {
    for (const auto& [flag, rawSize, missing] : {std::tuple(0U, g_blockCapacity, 0),
                                                 {0, g_blockCapacity + 1, 0},
                                                 {0, 100, 1},
                                                 {1, g_blockCapacity, 0},
                                                 {1, g_blockCapacity + 1, 0},
                                                 {1, 100, 1}}) {
        Bytes data(static_cast<size_t>(rawSize));
        data = flag == 1 ? compressed(data) : data;
        BlockHeader header{
            1, 1, 1, static_cast<int32_t>(data.size()), static_cast<int32_t>(rawSize), flag, 1};
        data.resize(data.size() - static_cast<size_t>(missing));
        UrlFile file;
        ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
        ASSERT_EQ(file.writeBlockHeader(header), 0);
        ASSERT_EQ(file.writeBlockData(data), 0);
        DayStatus status = m_status;
        status.setTotalCount(1);
        ASSERT_EQ(file.writeStatus(status), 0);
        ASSERT_EQ(file.close(), 0);
        ASSERT_EQ(file.openToRead(m_path, g_dayStatusType), 0);
        ASSERT_EQ(file.readBlockHeader(header), 0);
        ByteView view;
        const bool fits = rawSize == g_blockCapacity;
        EXPECT_EQ(file.readBlockData(view), fits ? 0 : -1) << flag << " " << rawSize;
        EXPECT_EQ(file.broken(), !fits) << flag << " " << rawSize;
    }
}

} // namespace
} // namespace kestrine
