// Log files, from their blocks to the hosts in their records.
#include "frame/run_flag.h"
#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>

namespace kestrine {
namespace {

using worldgen::Block;
using worldgen::DatFile;
using worldgen::listField;

// Opens and reads fail as the test says; nothing else about the files is known then.
class FailingLogs : public test::FakeClockPlatform {
public:
    int openError = 0;            // of opening for update; for reading alone too, unless EACCES
    int64_t readsUntilError = -1; // -1: none fails
    int failures = 0;             // that are left

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        const bool concerned = openError != EACCES || mode == OpenMode::ReadExisting;
        if (openError != 0 && concerned && failures-- > 0) {
            errno = openError;
            return nullptr;
        }
        auto file = FakeClockPlatform::open(path, mode);
        return file ? std::make_unique<FailingFile>(*this, std::move(file)) : nullptr;
    }

private:
    struct FailingFile : test::ForwardingFile {
        FailingFile(FailingLogs& l, std::unique_ptr<File> target)
            : ForwardingFile(std::move(target)), logs(l) {}
        int64_t read(std::span<uint8_t> buffer) override {
            if (logs.readsUntilError-- != 0 || logs.failures-- <= 0) {
                return ForwardingFile::read(buffer);
            }
            logs.readsUntilError = 0;
            errno = EIO;
            return -1;
        }
        FailingLogs& logs;
    };
};

class LoaderReaderTest : public testing::Test {
protected:
    static constexpr size_t g_capacity = worldgen::largestBlock;

    static Block blockOf(std::initializer_list<const char*> hosts, bool compressed = true) {
        Block block;
        block.compressed = compressed;
        for (const char* host : hosts) {
            block.visit(host, 1);
        }
        return block;
    }
    static DatFile fileOf(const char* host, bool compressed = true) {
        return DatFile().add(blockOf({host}, compressed));
    }
    void put(int number, const DatFile& file) {
        file.write(m_dir.path(), number);
        m_sizes[number] = file.bytes().size();
    }
    // Reads to the end as the statistics pipeline does: hosts, last result, and the position, if
    // there is one: "a b 2 0:28".
    std::string drain(int32_t start = 0, size_t bufferSize = g_capacity) {
        EXPECT_EQ(m_reader.init(m_compressed, m_raw, m_settleTime), 0);
        std::string all;
        int result = m_reader.open(m_dir / "A", start);
        while (result == g_loaderDone) {
            size_t used = 1;
            result = m_reader.readHistory(std::span(m_buffer).first(bufferSize), used);
            EXPECT_LE(used, bufferSize);
            size_t offset = 0;
            for (ByteView payload; nextEntry({m_buffer.data(), used}, offset, payload);) {
                std::string_view host;
                uint32_t type = 0;
                const bool found = findHost(payload, host, type) == HostResult::Found;
                all += found ? std::string(host) + " " : "";
            }
            EXPECT_EQ(offset, used);
        }
        EXPECT_EQ(m_reader.close(), 0);
        const LoaderPosition& position = m_reader.currentPosition();
        return all + std::to_string(result) +
               (m_reader.hasPosition() ? at(position.fileNumber, position.offset) : "");
    }
    static std::string at(int32_t file, uint64_t offset) {
        return " " + std::to_string(file) + ":" + std::to_string(offset);
    }
    // Everything of the files up to `file` was taken.
    std::string whole(const std::string& hosts, int file) {
        return hosts + "2" + at(file, m_sizes[file]);
    }

    test::TempDir m_dir; // stands for a date directory
    FailingLogs m_logs;
    test::ScopedPlatform m_scope{m_logs};
    std::map<int, uint64_t> m_sizes;
    std::vector<uint8_t> m_compressed = std::vector<uint8_t>(g_capacity);
    std::vector<uint8_t> m_raw = m_compressed;
    std::vector<uint8_t> m_buffer = m_compressed;
    int32_t m_settleTime = 0;
    LoaderReader m_reader;
};

TEST_F(LoaderReaderTest, FollowsFilesFromTheStartNumber) {
    EXPECT_EQ(drain(), "2"); // not even the directory
    put(1, fileOf("b"));
    EXPECT_EQ(drain(), "2"); // file 0 is missing
    put(0, fileOf("a", false));
    put(2, fileOf("c").add(blockOf({"d"})));
    EXPECT_EQ(drain(), whole("a b c d ", 2));
    EXPECT_EQ(drain(2), whole("c d ", 2));
    EXPECT_EQ(drain(3), "2");
    put(99, fileOf("x"));
    put(100, fileOf("y"));
    EXPECT_EQ(drain(99), whole("x y ", 100));
    // Bad headers: passed over if a good file is behind; else the position stays before them.
    for (const DatFile& bad : {DatFile().truncate(27), fileOf("z").magic(0xABCDABCC)}) {
        put(1, bad);
        put(2, bad);
        EXPECT_EQ(drain(), whole("a ", 0));
        EXPECT_EQ(drain(1), "2");
        put(2, fileOf("c"));
        EXPECT_EQ(drain(), whole("a c ", 2));
    }
    std::filesystem::remove(m_dir / "A/0/1.dat");
    m_dir.makeDirs("A/0/1.dat"); // cannot be opened
    EXPECT_EQ(drain(), whole("a c ", 2));
}

// An error is not damage: the node fails, with its position before what could not be read.
TEST_F(LoaderReaderTest, CallsThatFailPassNothingOver) {
    put(0, fileOf("a").add(blockOf({"b"})));
    put(1, fileOf("c"));
    const std::string all = whole("a b c ", 1);
    // A read of the header, of the first block's header and content, of the second's ...
    const std::string second = "a 3" + at(0, fileOf("a").bytes().size());
    const std::string places[] = {"3", "3 0:28", "3 0:28", second, second};
    g_isRunning = 1;
    for (const int failures : {3, 2}) { // the third try is the last
        for (const int error : {EIO, EMFILE, ENOMEM, EBUSY, EACCES}) {
            m_logs.openError = error; // EACCES: may be read only
            m_logs.failures = error == EACCES ? 1000 : failures;
            EXPECT_EQ(drain(), failures == 3 && error != EACCES ? "3" : all) << error;
        }
        m_logs.openError = 0;
        for (const std::string& expected : places) {
            m_logs.readsUntilError = &expected - places;
            m_logs.failures = failures;
            EXPECT_EQ(drain(), failures == 3 ? expected : all);
        }
    }
    g_isRunning = 0;
}

TEST_F(LoaderReaderTest, TheNewestFileRestsBeforeItIsOpened) {
    put(0, fileOf("a"));
    put(1, fileOf("b"));
    m_logs.seconds = m_logs.now();
    m_settleTime = 60;
    EXPECT_EQ(drain(), whole("a ", 0)); // it has a successor
    *m_logs.seconds += 61;
    EXPECT_EQ(drain(), whole("a b ", 1));
}

TEST_F(LoaderReaderTest, DamageGivesUpTheRestOfTheFileOnly) {
    const auto second = [](std::optional<uint32_t> length, std::optional<uint32_t> crc) {
        return [=](Block& b) {
            b.raw = blockOf({"b"}).raw;
            b.add({worldgen::visitPayload("c", 1), crc ? 3U : 10U, length, crc}).visit("d", 1);
        };
    };
    const auto zlib = [](size_t missing, int32_t more) {
        return [=](Block& b) {
            b.compressed = true;
            b.rawSize = static_cast<uint32_t>(b.raw.size()) + static_cast<uint32_t>(more);
            b.payload = b.encode().substr(worldgen::blockHeaderBytes);
            b.payload->resize(b.payload->size() - missing);
        };
    };
    // What a damaged block of visits to b and c, between good blocks a and z, still yields.
    const std::pair<const char*, std::function<void(Block&)>> cases[] = {
        {"", [](Block& b) { b.blockType = 7; }},
        {"b c z ", [](Block& b) { b.blockType = 6; }},
        {"", [](Block& b) { b.flag = 2; }},
        {"", [](Block& b) { b.rawSize = 2097153; }},
        {"", [](Block& b) { b.blockSize = 2097153; }},
        {"", [](Block& b) { b.rawSize = b.blockSize = 0xFFFFFFFF; }},
        {"", [](Block& b) { b.rawSize = b.blockSize = 2097152; }}, // behind the end of the file
        {"b ", second({}, 1)}, // also of a record that is not delivered
        {"b ", second(0xFFFFFFFF, {})},
        {"b ", second(0xFFFFFFF4, {})},                                 // wraps to the head
        {"b ", second(500, {})},                                        // into the next record
        {"b c z ", [](Block& b) { b.raw += std::string(11, '\xFF'); }}, // less than a head
        {"z ", [](Block& b) { b.raw.clear(); }},
        {"", zlib(0, -1)},
        {"", zlib(0, 1)},
        {"", zlib(5, 0)}};
    for (const auto& [delivered, damage] : cases) {
        for (const bool compressed : {false, true}) {
            Block block = blockOf({"b", "c"}, compressed);
            damage(block);
            put(0, fileOf("a").add(block).add(blockOf({"z"})));
            put(1, fileOf("next"));
            EXPECT_EQ(drain(), whole(std::string("a ") + delivered + "next ", 1))
                << &delivered - &cases[0].first;
            std::filesystem::remove(m_dir / "A/0/1.dat");
            EXPECT_TRUE(drain().starts_with(std::string("a ") + delivered + "2 0:"));
        }
    }
}

// The file as its writer may leave it at any moment: whole blocks are taken, a part of one never.
TEST_F(LoaderReaderTest, UnfinishedBlockWaits) {
    for (const bool compressed : {false, true}) {
        const DatFile full = fileOf("a", compressed).add(blockOf({"b"}, compressed));
        const size_t firstSize = fileOf("a", compressed).bytes().size();
        for (size_t size = worldgen::fileHeaderBytes; size < full.bytes().size(); ++size) {
            put(0, DatFile(full).truncate(size));
            ASSERT_EQ(drain(), size < firstSize ? "2 0:28" : "a 2" + at(0, firstSize)) << size;
        }
    }
}

TEST_F(LoaderReaderTest, LargestBlockAndRecord) {
    put(0, fileOf("a", false).add(Block().visit("b", 1, 5))); // buffers cannot take the second
    put(1, fileOf("next", false));
    for (const size_t raw : {size_t{5000}, g_capacity + 100}) { // the latter is not what bounds
        m_compressed = std::vector<uint8_t>(raw == 5000 ? 1000 : raw);
        m_raw = std::vector<uint8_t>(raw);
        EXPECT_EQ(drain(), whole(raw == 5000 ? "a next " : "a b b b b b next ", 1));
    }
    for (const bool compressed : {false, true}) {
        for (const size_t size : {g_capacity, g_capacity + 1}) {
            std::string payload = worldgen::visitPayload("big", 1);
            payload.resize(size - worldgen::recordHeadBytes, '\0');
            put(0, DatFile().add(blockOf({}, compressed).add({payload, 10, {}, {}})));
            EXPECT_EQ(drain(), whole(size > g_capacity ? "next " : "big next ", 1));
        }
    }
}

// Records of every kind that is skipped, between visits; very many of them are few log lines.
TEST_F(LoaderReaderTest, SmallBufferLosesNothingAndVisitsAloneAreDelivered) {
    std::mt19937 random(11);
    std::string expected;
    const auto record = [](const std::string& host, uint32_t action) {
        const worldgen::PayloadFields fields{worldgen::listContent(host), 1, 1, action, {}};
        return worldgen::Record{worldgen::makePayload(fields), 10, {}, {}};
    };
    for (int file = 0; file < worldgen::skipKindCount; ++file) {
        Block block;
        block.compressed = random() % 2 == 0;
        for (auto variant = static_cast<uint32_t>(random() % 5); variant > 0; --variant) {
            const std::string host(1 + random() % 40, 'h');
            block.add(record(host, static_cast<uint32_t>(2 + random() % 3)));
            block.add(makeSkipped(worldgen::SkipKind(file), "skipped", 1, variant));
            expected += host + " ";
        }
        put(file, DatFile().add(block).add(Block()));
    }
    for (size_t size = 500; size < 2500; size += 13) {
        ASSERT_EQ(drain(0, size), whole(expected, worldgen::skipKindCount - 1)) << size;
    }
    Block skipped;
    for (int i = 0; i < 1000; ++i) {
        skipped.add(record("h", 5));
    }
    put(worldgen::skipKindCount, DatFile().add(skipped));
    testing::internal::CaptureStdout();
    EXPECT_EQ(drain(worldgen::skipKindCount), whole("", worldgen::skipKindCount));
    std::fflush(stdout);
    const std::string lines = testing::internal::GetCapturedStdout();
    EXPECT_LT(std::count(lines.begin(), lines.end(), '\n'), 10);
    EXPECT_NE(lines.find(" net action invalid in 1000 records of file "), std::string::npos);
}

// A field of a length that need not fit its text.
std::string field(uint32_t length, const std::string& text) {
    std::array<uint8_t, 4> bytes{};
    storeLittle(bytes.data(), length);
    return std::string(bytes.begin(), bytes.end()) + text;
}

// The host found in a content, or why there is none.
std::string hostIn(worldgen::PayloadFields fields, size_t size = SIZE_MAX) {
    fields.type = 0x80000007;
    const std::string text = worldgen::makePayload(fields).substr(0, size);
    // On the heap in its exact size, so that a sanitizer sees every byte read beyond it.
    const std::vector<uint8_t> payload(text.begin(), text.end());
    std::string_view host;
    uint32_t type = 0;
    const HostResult result = findHost(payload, host, type);
    EXPECT_TRUE(result == HostResult::None || type == 0x80000007);
    return (result == HostResult::None ? "none" : std::string(host)) +
           (result == HostResult::Unterminated ? " unterminated" : "");
}

TEST(UserBuffer, FindsHostInBothForms) {
    const std::string host = listField("host", "a.com");
    const std::string xml = "<?xm<_f n=\"host\">";
    // Empty hosts end the search. Fields are of other names or lengths; tags and starts differ.
    const std::pair<std::string, const char*> contents[] = {
        {host, "a.com"},
        {field(13, "host:abcdefg#"), "abcdefg"}, // the last byte is not looked at
        {listField("url", "host:/x") + field(0, "") + field(3, "hos") + host, "a.com"},
        {listField("host", "c:80") + host, "c:80"},
        {listField("Host", "a") + listField("hosts", "a") + listField("hostname", "b"), "none"},
        {listField("host", "") + host, "none"},
        {field(5, "host:") + host, "none"},
        {field(8, "host:ab"), "none"},
        {field(0xFFFFFFFC, "url:") + host, "none"},
        {std::string("\1\0\0", 3), "none"},
        {"<?XM</_f><_f n=\"hos\">x</_f><_f n=\"host\">a<b></_f>" + xml + "e</_f>", "a<b>"},
        {xml + "d.com</_F>", "d.com</_F> unterminated"},
        {xml + "</_f>" + xml + "e</_f>", "none"},
        {"<?xm<_F n=\"host\">d.com</_f>", "none"},
        {" " + xml + "d</_f>", "none"},
        {"<?x", "none"}};
    for (const auto& [content, expected] : contents) {
        EXPECT_EQ(hostIn({content, 1, 1, 2, {}}), expected) << content;
    }
    EXPECT_EQ(hostIn({host, 1, 31 << 8, 2, 0xFFFFFFFF}), "a.com"); // past the payload
    EXPECT_EQ(hostIn({host, 1, 31, 2, {}}), "none");               // the kind
    EXPECT_EQ(hostIn({host, 1, 1, 2, 10}), "none");
    EXPECT_EQ(hostIn({xml + "d</_f>", 1, 1, 2, 16}), "none");
    for (const size_t size : {0U, 76U, 365U, 370U, 371U, 374U}) {
        EXPECT_EQ(hostIn({host, 1, 1, 2, {}}, size), "none") << size;
    }
}

} // namespace
} // namespace kestrine
