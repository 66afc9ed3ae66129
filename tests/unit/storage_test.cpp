// Records, status records and the key of a host by themselves, then whole files.
#include "storage/codec.h"
#include "storage/codec_library.h"
#include "storage/compress.h"
#include "storage/reading.h"
#include "storage/url_key.h"
#include "support/memory_disk.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <bit>
#include <zlib.h>

namespace kestrine {
namespace {

using namespace test;

// Bytes from fields.
struct Bytes : std::vector<uint8_t> {
    using vector::vector;
    Bytes& add(int width, std::initializer_list<uint64_t> values) {
        for (const uint64_t value : values) {
            for (int i = 0; i < width; ++i) {
                push_back(static_cast<uint8_t>(value >> (8 * i)));
            }
        }
        return *this;
    }
    Bytes& add(ByteView bytes, size_t width = 0) {
        insert(end(), bytes.begin(), bytes.end());
        resize(size() + std::max(width, bytes.size()) - bytes.size());
        return *this;
    }
};

TEST(UrlRecord, LongTextsAreCut) {
    for (const size_t length : {258U, 259U, 260U, 1000U}) {
        const UrlRecordPtr record = makeUrlRecord({7, 8, 9, std::string(length, 'h')});
        EXPECT_EQ(record->url().size(), std::min<size_t>(length, 259));
    }
}

constexpr size_t g_mostBody = 4194304; // bytes of a status

template <typename Status>
void expectWritten(const Status& status, bool good) {
    MemoryDisk disk;
    const int result = status.writeStatus(disk.open("x", OpenMode::Truncate).get());
    EXPECT_EQ(result, good ? 0 : -1);
    EXPECT_EQ(disk.files["x"].size(), good ? status.writtenSize() : 0);
}

// A record of that body and length field.
template <typename Status>
void expectRead(const Bytes& body, size_t length, bool good) {
    MemoryDisk disk;
    const Bytes bytes = Bytes().add(8, {urlKey(body)}).add(4, {length}).add(body);
    disk.files["x"] = bytes;
    Status status;
    const auto file = disk.open("x", OpenMode::Read);
    EXPECT_EQ(Status::readStatus(file.get(), std::ssize(bytes), status), good ? 0 : g_damaged)
        << body.size() << " " << length;
}

TEST(Status, LengthsOnRead) {
    expectRead<DayStatus>(Bytes(15), 15, false);
    expectRead<WeekMonStatus>(Bytes(11), 11, false);
    expectRead<WeekMonStatus>(Bytes(12), 12, true);
    for (const size_t size : {size_t{16}, g_mostBody, g_mostBody + 1}) {
        expectRead<DayStatus>(Bytes(size), size, size <= g_mostBody);
        expectRead<DayStatus>(Bytes(size), size + 1, false);
    }
}

TEST(Status, WhatCannotBeReadBackIsNotWritten) {
    std::vector<NodeEntry> nodes((g_mostBody - 16) / 272, {std::string(259, 'p'), 1, 0});
    std::vector<DateEntry> dates((g_mostBody - 12) / 264, {std::string(259, 'p'), 1});
    expectWritten(dayStatusOf(nodes), true);
    expectWritten(weekMonStatusOf(dates), true);
    nodes.push_back({"n", 1, 0});
    dates.push_back({"n", 1});
    for (const auto& entries : {nodes, {{std::string(260, 'p'), 0, 0}}, {}}) {
        expectWritten(dayStatusOf(entries), false);
    }
    for (const auto& entries : {dates, {{std::string(260, 'p'), 0}}, {}}) {
        expectWritten(weekMonStatusOf(entries), false);
    }
    // One more than the counter, the next number, must be a number too.
    for (const int32_t counter : {-2, -1, INT32_MAX - 1, INT32_MAX}) {
        const bool good = counter >= -1 && counter < INT32_MAX;
        expectWritten(dayStatusOf({{"n", 1, 0}}, counter), good);
        expectRead<DayStatus>(Bytes().add(4, {static_cast<uint32_t>(counter), 0, 0, 0}), 16, good);
    }
}

// A published result; and all keys of 0 to 64 bytes, folded, the number being that of an
// implementation which adds byte by byte. Texts end where their memory ends: reads beyond show.
TEST(UrlKey, EqualsOtherImplementations) {
    EXPECT_EQ(urlKey(asBytes("Four score and seven years ago")), 0x17770551ce7226e6U);
    uint64_t folded = 0;
    for (size_t length = 0; length <= 64; ++length) {
        Bytes text;
        for (size_t i = 0; i < length; ++i) {
            text.add(1, {37 * i + 200});
        }
        folded = std::rotl(folded, 7) ^ urlKey(Bytes(text));
        Bytes longer = text;
        longer.resize(length + g_keyReadsOn, 0xa5);
        EXPECT_EQ(urlKeyReadingOn(ByteView(longer).first(length)), urlKey(Bytes(text))) << length;
    }
    EXPECT_EQ(folded, 0xba08caac8c5c1b0U);
}

// The build's codec against zlib: what one writes the other reads, and what one refuses the other
// refuses with the same result. Cut short at every length, every byte wrong, no room.
TEST(Codec, TakesWhatZlibTakes) {
    Bytes text;
    for (uint64_t i = 0; i < 300; ++i) {
        text.add(4, {i * i % 97}).add(1, {i % 3});
    }
    const Bytes noise = Bytes().add(8, {0x9e3779b97f4a7c15, 0xba08caac8c5c1b0, 0x17770551ce7226e6});
    using Encode = int (*)(ByteView, std::span<uint8_t>, size_t&);
    for (const Encode encode : {&codec::encode, &codec::Zlib::encode}) {
        for (const Bytes& raw : {text, noise, Bytes(2)}) {
            Bytes stored(4096);
            size_t size = 0;
            ASSERT_EQ(encode(raw, stored, size), Z_OK);
            stored.resize(size);
            const auto bothTake = [](ByteView stream, size_t room) {
                Bytes one(room);
                Bytes other(room);
                size_t oneSize = 0;
                size_t otherSize = 0;
                const int result = codec::Zlib::decode(stream, one, oneSize);
                EXPECT_EQ(codec::decode(stream, other, otherSize), result);
                EXPECT_TRUE(result != Z_OK || (oneSize == otherSize && one == other));
                return result == Z_OK && oneSize == room;
            };
            EXPECT_TRUE(bothTake(stored, raw.size()) &&
                        bothTake(Bytes(stored).add(1, {1}), raw.size()));
            EXPECT_FALSE(bothTake(stored, raw.size() - 1) || bothTake(stored, raw.size() + 1));
            for (size_t i = 0; i < size; ++i) {
                EXPECT_FALSE(bothTake(ByteView(stored).first(i), raw.size()));
                for (const int wrong : {1, 0x80, 0xff}) {
                    Bytes damaged = stored;
                    damaged[i] = static_cast<uint8_t>(damaged[i] ^ wrong);
                    (void)bothTake(damaged, raw.size());
                }
            }
        }
    }
    EXPECT_EQ(codec::crc32(noise), codec::Zlib::crc32(noise));
}

Bytes compressed(const Bytes& raw) {
    Compress* compressor = nullptr;
    ByteView stored;
    EXPECT_EQ(Compress::getInstance(&compressor), 0);
    EXPECT_EQ(compressor->compress(raw, &stored), 0);
    return Bytes().add(stored);
}

// Two raw blocks of one record each, since zlib cannot make those shorter, a compressed one, a day
// status and the end position.
class UrlFileTest : public testing::Test {
protected:
    void SetUp() override {
        TestRecords& many = m_blocks.emplace_back();
        for (uint64_t key = 0xf0; key < 0xf6; ++key) {
            many.push_back({key << 56, 1, 2, std::string(20, 'c')});
        }
        writeUrlFile(m_path, m_blocks, m_status);
        m_whole.add(m_disk.files[m_path]);
    }

    MemoryDisk m_disk;
    const ScopedPlatform m_scope{m_disk};
    const std::string m_path = "file";
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
    Bytes blocks;
    uint64_t total = 0;
    for (const TestRecords& block : m_blocks) {
        Bytes raw;
        uint64_t sum = 0;
        for (const auto& [key, count, type, url] : block) {
            raw.add(8, {key, count}).add(4, {type, url.size() + 1}).add(asBytes(url)).add(1, {0});
            sum += count;
        }
        const bool packed = block.size() > 1;
        const Bytes stored = packed ? compressed(raw) : raw;
        blocks.add(8, {block.front().key, block.back().key, sum});
        blocks.add(4, {stored.size(), raw.size(), packed ? 1U : 0U, block.size()}).add(stored);
        total += sum;
    }
    const auto withStatus = [&](const Bytes& body) {
        const Bytes frame = Bytes().add(8, {urlKey(body)}).add(4, {body.size()});
        return Bytes(blocks).add(frame).add(body).add(8, {blocks.size()});
    };
    Bytes body = Bytes().add(4, {5}).add(8, {total}).add(4, {2});
    body.add(asBytes("data/20240229"), 260).add(4, {3}).add(8, {0x0102030405060708});
    body.add(asBytes(m_longest), 260).add(4, {0xFFFFFFFF}).add(8, {0});
    EXPECT_EQ(m_whole, withStatus(body));
    writeUrlFile(m_path, m_blocks, weekMonStatusOf({{"r/20240229", 0x01020304}, {m_longest, -1}}));
    body = Bytes().add(8, {total}).add(4, {2}).add(asBytes("r/20240229"), 260);
    body.add(4, {0x01020304}).add(asBytes(m_longest), 260).add(4, {0xFFFFFFFF});
    Bytes bytes = withStatus(body);
    EXPECT_EQ(m_disk.files[m_path], MemoryDisk::Bytes(bytes));
    bytes[blocks.size()] ^= 1;                       // such a checksum is not looked at,
    bytes.insert(bytes.end() - 8, 5, uint8_t{0xEE}); // nor what lies behind the status,
    bytes.insert(bytes.begin() + std::ssize(blocks), 39, uint8_t{0}); // nor less than a header
    storeLittle(bytes.data() + bytes.size() - 8, blocks.size() + 39);
    m_disk.files[m_path] = bytes;
    const UrlFileContent week = readUrlFile(m_path, g_weekMonStatusType);
    EXPECT_TRUE(week.whole);
    EXPECT_EQ(week.weekMonStatus->counterOfDate("elsewhere/20240229"), 0x01020304);
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
        EXPECT_EQ(loadLittle<uint32_t>(m_disk.files[m_path].data() + 28),
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
    UrlFile file;
    ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
    for (const auto& [count, url, result] : {std::tuple(uint64_t{1}, longest, 0),
                                             {uint64_t{INT64_MAX}, "", 0},
                                             {0, "", -1},
                                             {uint64_t{1} << 63, "", -1},
                                             {1, longest + "a", -1}}) {
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
            const Bytes field = Bytes().add(width, {static_cast<uint64_t>(value)});
            std::ranges::copy(field, bytes.begin() + static_cast<ptrdiff_t>(offset));
            m_disk.files[m_path] = bytes;
            const UrlFileContent content = readUrlFile(m_path);
            EXPECT_TRUE(content.broken && !content.whole) << offset << " " << value;
            EXPECT_EQ(content.records.size(), records) << offset << " " << value;
        }
    }
}

// Blocks whose sizes are at odds with the buffer or the end of the blocks, where the status would
// be taken for data, in files that are otherwise right: not even the undecoded data is handed out.
TEST_F(UrlFileTest, ABlockThatDoesNotFitIsRefused) {
    for (const auto& [rawSize, missing] :
         {std::pair(g_blockCapacity, 0U), {g_blockCapacity + 1, 0}, {100, 1}}) {
        for (const uint32_t flag : {0U, 1U}) {
            Bytes data(static_cast<size_t>(rawSize));
            data = flag == 1 ? compressed(data) : data;
            BlockHeader header{1, 1, 1, static_cast<int32_t>(data.size()), rawSize, flag, 1};
            UrlFile file;
            ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
            ASSERT_EQ(file.writeBlockHeader(header), 0);
            ASSERT_EQ(file.writeBlockData(ByteView(data).first(data.size() - missing)), 0);
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
}

} // namespace
} // namespace kestrine
