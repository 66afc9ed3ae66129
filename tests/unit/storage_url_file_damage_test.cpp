// Damaged files and failing system calls.
#include "storage/compress.h"
#include "storage/url_file.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace kestrine {
namespace {

using namespace test;
using Bytes = std::vector<uint8_t>;

constexpr size_t g_capacity = 2048 * 1024; // bytes of a block's buffer

// Two raw blocks of one record each, a compressed one, a day status and the end position.
class DamagedUrlFileTest : public testing::Test {
protected:
    void SetUp() override {
        // Without runs of zeros zlib cannot make a short record shorter.
        m_records = {{0x1032547698badcfe, 0x1122334455667788, 0xdeadbeef, "a"},
                     {0x2031425364758697, 0x1726354453627180, 0xcafef00d, "b"}};
        for (uint64_t key = 0xf0; key < 0xf6; ++key) {
            m_records.push_back({key << 56, 1, 2, std::string(20, 'c')});
        }
        writeUrlFile(m_path,
                     {{m_records[0]}, {m_records[1]}, {m_records.begin() + 2, m_records.end()}},
                     m_status);
        m_whole = readBytes(m_path);
    }
    UrlFileContent contentOf(const Bytes& bytes) {
        writeBytes(m_path, bytes);
        return readUrlFile(m_path);
    }

    TempDir m_directory;
    const std::string m_path = m_directory / "file";
    const DayStatus m_status = dayStatusOf({{"data/a/devid_1/20240229", 3, 17}}, 5);
    static constexpr size_t g_second = 66; // offset of the second block
    static constexpr size_t g_third = 132;
    TestRecords m_records;
    Bytes m_whole;
};

TEST_F(DamagedUrlFileTest, FieldByField) {
    const auto size = static_cast<int64_t>(m_whole.size());
    const size_t end = m_whole.size() - 8 - 12 - 16 - 272; // where the blocks end
    constexpr size_t all = 8;
    struct {
        size_t offset;
        int width;
        int64_t value;
        bool broken;
        size_t records; // read before the damage is found
    } const table[] = {
        // header of the raw second block: total, sizes, flag, count
        {g_second + 16, 8, 0, true, 1},
        {g_second + 16, 8, -1, true, 1},
        {g_second + 24, 4, 0, true, 1},
        {g_second + 24, 4, 25, true, 1},
        {g_second + 24, 4, -1, true, 1},
        {g_second + 28, 4, 27, true, 1},
        {g_second + 28, 4, 0x7FFFFFFF, true, 1},
        {g_second + 32, 4, 1, true, 1},
        {g_second + 32, 4, 2, true, 1},
        {g_second + 36, 4, 0, true, 1},
        {g_second + 36, 4, -1, true, 1},
        {g_second + 36, 4, 2, true, 2}, // no second record in the data
        // header of the compressed third block
        {g_third + 24, 4, 1, true, 2},
        {g_third + 24, 4, 0x7FFFFFFF, true, 2},
        {g_third + 28, 4, 269, true, 2},
        {g_third + 28, 4, 271, true, 2},
        {g_third + 28, 4, static_cast<int64_t>(g_capacity), true, 2},
        {g_third + 28, 4, static_cast<int64_t>(g_capacity) + 1, true, 2},
        {g_third + 28, 4, 0x7FFFFFFF, true, 2},
        {g_third + 32, 4, 0, true, 2},
        {g_third + 36, 4, 5, true, 6}, // records would be lost without a word
        {g_third + 36, 4, 7, true, 8},
        {g_third + 40, 1, 0, true, 2}, // zlib's own header
        {end - 1, 1, m_whole[end - 1] ^ 1, true, 2},
        // record of the raw second block: text length, terminator
        {g_second + 60, 4, 0, true, 1},
        {g_second + 60, 4, 1, true, 1},
        {g_second + 60, 4, 3, true, 1},
        {g_second + 60, 4, 261, true, 1},
        {g_second + 60, 4, -1, true, 1},
        {g_second + 65, 1, 'x', true, 1},
        {g_second + 64, 1, 'x', false, all}, // the text itself has no check
        // status: checksum, length, body
        {end, 1, m_whole[end] ^ 1, true, 0},
        {end + 8, 4, 0, true, 0},
        {end + 8, 4, 16 + 272 - 1, true, 0},
        {end + 8, 4, 16 + 272 + 1, true, 0},
        {end + 8, 4, 4194305, true, 0},
        {end + 8, 4, -1, true, 0},
        {end + 12, 1, 6, true, 0},
        // end position
        {m_whole.size() - 8, 8, -1, true, 0},
        {m_whole.size() - 8, 8, INT64_MIN, true, 0},
        {m_whole.size() - 8, 8, INT64_MAX, true, 0},
        {m_whole.size() - 8, 8, size, true, 0},
        {m_whole.size() - 8, 8, size - 8 - 12, true, 0},
        {m_whole.size() - 8, 8, size - 8 - 11, true, 0},
        {m_whole.size() - 8, 8, static_cast<int64_t>(end) - 1, true, 0},
        {m_whole.size() - 8, 8, 0, true, 0},
    };
    for (const auto& row : table) {
        Bytes bytes = m_whole;
        for (int i = 0; i < row.width; ++i) {
            bytes[row.offset + static_cast<size_t>(i)] = static_cast<uint8_t>(row.value >> (8 * i));
        }
        const UrlFileContent content = contentOf(bytes);
        EXPECT_EQ(content.broken, row.broken) << row.offset << " " << row.value;
        EXPECT_EQ(content.whole, !row.broken) << row.offset << " " << row.value;
        EXPECT_EQ(content.records.size(), row.records) << row.offset << " " << row.value;
    }
}

TEST_F(DamagedUrlFileTest, EveryTruncationIsFound) {
    for (size_t length = 0; length < m_whole.size(); ++length) {
        const UrlFileContent content = contentOf(
            Bytes(m_whole.begin(), m_whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_TRUE(content.broken) << length;
        EXPECT_FALSE(content.whole) << length;
    }
}

TEST_F(DamagedUrlFileTest, AnyAlteredByteIsHarmless) {
    const size_t path = m_whole.size() - 8 - 272; // a field mostly of zeros
    for (size_t at = 0; at<m_whole.size(); at += at> path && at < path + 200 ? 50 : 1) {
        for (const int change : {0x01, 0xFF}) {
            Bytes bytes = m_whole;
            bytes[at] = static_cast<uint8_t>(bytes[at] ^ change);
            const UrlFileContent content = contentOf(bytes);
            EXPECT_EQ(content.whole, !content.broken) << at << " " << change;
            EXPECT_TRUE(content.broken || content.records.size() == m_records.size()) << at;
        }
    }
}

// What lies between the status and the end position is tolerated, what lies between the blocks and
// their end is not read.
TEST_F(DamagedUrlFileTest, ExtraBytesAndShortRests) {
    const auto trailer = static_cast<std::ptrdiff_t>(m_whole.size()) - 8;
    Bytes bytes = m_whole;
    bytes.insert(bytes.begin() + trailer, 5, uint8_t{0xEE});
    UrlFileContent content = contentOf(bytes);
    EXPECT_TRUE(content.whole);
    EXPECT_EQ(content.records, m_records);

    const std::ptrdiff_t end = trailer - 12 - 16 - 272;
    for (const size_t rest : {39u, 40u}) { // shorter than a header: no block
        bytes = m_whole;
        bytes.insert(bytes.begin() + end, rest, uint8_t{0});
        storeLittle(bytes.data() + bytes.size() - 8,
                    static_cast<int64_t>(end) + static_cast<int64_t>(rest));
        content = contentOf(bytes);
        EXPECT_EQ(content.whole, rest < 40);
        EXPECT_EQ(content.records, m_records);
    }
}

// Blocks whose sizes are at odds with the buffer or the end of the blocks, in files that are
// otherwise right: not even the undecoded data is handed out.
TEST_F(DamagedUrlFileTest, ABlockThatDoesNotFitIsRefused) {
    const auto data = [](size_t size) { return Bytes(size); };
    Compress* compressor = nullptr;
    ASSERT_EQ(Compress::getInstance(&compressor), 0);
    ByteView stored;
    ASSERT_EQ(compressor->compress(data(g_capacity + 1).data(), int32_t{g_capacity} + 1, &stored),
              0);
    const Bytes compressed(stored.begin(), stored.end());
    struct {
        int32_t flag;
        size_t rawSize;
        Bytes data;
        size_t blockSize;
        int result;
    } const table[] = {
        {0, g_capacity, data(g_capacity), g_capacity, 0},
        {0, g_capacity + 1, data(g_capacity + 1), g_capacity + 1, -1},
        {1, g_capacity, compressed, compressed.size(), 0},
        {1, g_capacity + 1, compressed, compressed.size(), -1},
        {1, g_capacity + 1, data(g_capacity + 1), g_capacity + 1, -1},
        {0, 101, data(100), 101, -1}, // the status would be taken for data
        {1, 200, data(100), 101, -1},
    };
    for (const auto& row : table) {
        const std::string name = "flag " + std::to_string(row.flag) + " raw size " +
                                 std::to_string(row.rawSize) + " block size " +
                                 std::to_string(row.blockSize);
        UrlFile file;
        ASSERT_EQ(file.open(m_path, OpenMode::Truncate), 0);
        ASSERT_EQ(file.writeBlockHeader({1, 1, 1, static_cast<int32_t>(row.blockSize),
                                         static_cast<int32_t>(row.rawSize),
                                         static_cast<uint32_t>(row.flag), 1}),
                  0);
        ASSERT_EQ(file.writeBlockData(row.data), 0);
        ASSERT_EQ(file.writeStatus(m_status), 0);
        ASSERT_EQ(file.close(), 0);
        EXPECT_TRUE(readUrlFile(m_path).broken) << name; // there is no record in the data

        UrlFile reader;
        ASSERT_EQ(reader.open(m_path, OpenMode::Read), 0);
        ASSERT_EQ(reader.readStatus(g_dayStatusType), 0);
        BlockHeader header;
        ByteView view;
        ASSERT_EQ(reader.readBlockHeader(header), 0);
        EXPECT_EQ(reader.readBlockData(view), row.result) << name;
        EXPECT_EQ(reader.broken(), row.result != 0) << name;
    }
}

// Files on which the chosen call of any kind fails; writes stop half-way.
class FaultyFiles : public ForwardingPlatform {
public:
    explicit FaultyFiles(int failAt) : m_left(failAt) {}

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        auto file = ForwardingPlatform::open(path, mode);
        return file == nullptr ? nullptr : std::make_unique<FaultyFile>(*this, std::move(file));
    }
    [[nodiscard]] const std::string& failed() const { return m_failed; } // kind of call

private:
    class FaultyFile : public File {
    public:
        FaultyFile(FaultyFiles& faults, std::unique_ptr<File> target)
            : m_faults(faults), m_target(std::move(target)) {}
        int64_t read(std::span<uint8_t> buffer) override {
            return m_faults.failsNow("read") ? -1 : m_target->read(buffer);
        }
        int64_t write(std::span<const uint8_t> data) override {
            return m_target->write(m_faults.failsNow("write") ? data.first(data.size() / 2) : data);
        }
        int seek(int64_t offset) override {
            return m_faults.failsNow("seek") ? -1 : m_target->seek(offset);
        }
        int64_t tell() override { return m_faults.failsNow("tell") ? -1 : m_target->tell(); }
        int64_t size() override { return m_faults.failsNow("size") ? -1 : m_target->size(); }
        int sync() override { return m_faults.failsNow("sync") ? -1 : m_target->sync(); }
        int close() override {
            const bool fail = m_faults.failsNow("close");
            return m_target->close() != 0 || fail ? -1 : 0;
        }

    private:
        FaultyFiles& m_faults;
        std::unique_ptr<File> m_target;
    };

    bool failsNow(const char* kind) {
        if (--m_left != 0) {
            return false;
        }
        m_failed = kind;
        errno = EIO;
        return true;
    }

    int m_left;
    std::string m_failed;
};

TEST_F(DamagedUrlFileTest, EveryFailingCallOfAWriteIsReported) {
    int n = 1;
    for (;; ++n) {
        FaultyFiles faults(n);
        const ScopedPlatform scope(faults);
        UrlFile file;
        const auto write = [&] {
            for (size_t i = 0; i < m_records.size(); ++i) {
                if (file.writeOneRecord(m_records[i].view()) != 0 ||
                    (i % 3 == 0 && file.writeUrlRecordBlocks() != 0)) {
                    return -1;
                }
            }
            return file.writeStatus(m_status) == 0 && file.sync() == 0 ? 0 : -1;
        };
        const bool opened = file.open(m_path, OpenMode::Truncate) == 0;
        const int written = opened ? write() : -1;
        const int closed = file.close();
        if (faults.failed().empty()) {
            EXPECT_TRUE(written == 0 && closed == 0);
            break;
        }
        EXPECT_TRUE(written != 0 || closed != 0) << n << " " << faults.failed();
        EXPECT_EQ(file.broken(), faults.failed() == "close") << n << " " << faults.failed();
    }
    EXPECT_GT(n, 10);
    EXPECT_EQ(readUrlFile(m_path).records, m_records);
}

TEST_F(DamagedUrlFileTest, EveryFailingCallOfAReadIsReported) {
    int n = 1;
    for (;; ++n) {
        FaultyFiles faults(n);
        const ScopedPlatform scope(faults);
        const UrlFileContent content = readUrlFile(m_path);
        if (faults.failed().empty()) {
            EXPECT_TRUE(content.whole);
            break;
        }
        if (faults.failed() != "close") { // the destructor's, after everything was read
            EXPECT_FALSE(content.whole) << n << " " << faults.failed();
        }
    }
    EXPECT_GT(n, 20);
}

} // namespace
} // namespace kestrine
