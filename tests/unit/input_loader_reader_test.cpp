// Log files, from their blocks to the hosts in their records.
#include "frame/run_flag.h"
#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "support/failing_platform.h"
#include "support/memory_disk.h"
#include "tree/names.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

using worldgen::Block;
using worldgen::DatFile;
using worldgen::listField;
using Mode = test::FailingPlatform::Mode;
using Calls = test::FailingPlatform::Calls;

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
        const std::string bytes = file.bytes();
        m_disk.files[names::datFile("node/A", number)] = {bytes.begin(), bytes.end()};
        m_sizes[number] = bytes.size();
    }
    // Reads to the end as the statistics pipeline does: hosts, last result, and the position, if
    // there is one: "a b 2 0:28".
    std::string drain(int32_t start = 0, size_t bufferSize = g_capacity) {
        EXPECT_EQ(m_reader.init(m_compressed, m_raw, m_settleTime), 0);
        std::string all;
        int result = m_reader.open("node/A", start);
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

    test::FakeClockPlatform m_clock;
    test::MemoryDisk m_disk{m_clock};
    test::ScopedPlatform m_scope{m_disk};
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
    m_disk.files.erase("node/A/0/1.dat");
    m_disk.directories.insert("node/A/0/1.dat"); // cannot be opened
    EXPECT_EQ(drain(), whole("a c ", 2));
}

// Where files may not be written, they are opened for reading alone.
TEST_F(LoaderReaderTest, FilesThatMayNotBeWritten) {
    struct ReadOnly : test::ForwardingPlatform {
        std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
            errno = EACCES;
            return mode == OpenMode::Read ? ForwardingPlatform::open(path, mode) : nullptr;
        }
    } readOnly;
    put(0, fileOf("a"));
    const test::ScopedPlatform scope(readOnly);
    EXPECT_EQ(drain(), whole("a ", 0));
}

// An error is not damage: the node fails, with its position before what could not be read, and is
// not read on in the next file.
TEST_F(LoaderReaderTest, CallsThatFailPassNothingOver) {
    put(0, fileOf("a").add(blockOf({"b"})));
    put(1, fileOf("c"));
    const std::string places[] = {"3", "3 0:28", "a 3" + at(0, fileOf("a").bytes().size())};
    g_isRunning = 1;
    bool failed = true;
    for (int n = 1; failed; ++n) {
        test::FailingPlatform disk(n, Mode::FromThenOn, m_disk, Calls::Reading);
        disk.concerns = [](const std::string& path) { return path.ends_with("/0.dat"); };
        const test::ScopedPlatform scope(disk);
        const std::string got = drain();
        failed = disk.failed();
        EXPECT_EQ(std::ranges::count(places, got), failed ? 1 : 0) << got;
        EXPECT_TRUE(failed || got == whole("a b c ", 1));
        test::FailingPlatform once(n, Mode::Once, m_disk, Calls::Reading);
        const test::ScopedPlatform next(once);
        const std::string retried = drain(); // but a file's size is asked for once
        EXPECT_TRUE(retried == whole("a b c ", 1) || retried == places[1]) << retried;
    }
    g_isRunning = 0;
}

TEST_F(LoaderReaderTest, TheNewestFileRestsBeforeItIsOpened) {
    put(0, fileOf("a"));
    put(1, fileOf("b"));
    m_clock.seconds = m_disk.times["node/A/0/1.dat"] = 1000;
    m_settleTime = 60;
    EXPECT_EQ(drain(), whole("a ", 0)); // it has a successor
    *m_clock.seconds += 61;
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
        {"", [](Block& b) { b.flag = 2; }},
        {"", [](Block& b) { b.rawSize = 2097153; }},
        {"", [](Block& b) { b.blockSize = 2097153; }},
        {"", [](Block& b) { b.rawSize = b.blockSize = 2097152; }}, // behind the end of the file
        {"b ", second({}, 1)},          // also of a record that is not delivered
        {"b ", second(0xFFFFFFF4, {})}, // wraps to the head
        {"b ", second(500, {})},        // into the next record
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
    for (const bool compressed : {false, true}) {
        for (const size_t size : {g_capacity, g_capacity + 1}) {
            std::string payload = worldgen::visitPayload("big", 1);
            payload.resize(size - worldgen::recordHeadBytes, '\0');
            put(0, DatFile().add(blockOf({}, compressed).add({payload, 10, {}, {}})));
            put(1, fileOf("next"));
            EXPECT_EQ(drain(), whole(size > g_capacity ? "next " : "big next ", 1));
        }
    }
    m_compressed.resize(1000); // the smaller buffer bounds
    m_raw.resize(5000);
    put(0, fileOf("a", false).add(Block().visit("b", 1, 5)));
    EXPECT_EQ(drain(), whole("a next ", 1));
}

// Records of every kind that is skipped, between visits.
TEST_F(LoaderReaderTest, SmallBufferLosesNothingAndVisitsAloneAreDelivered) {
    std::string expected;
    for (int kind = 0; kind < worldgen::skipKindCount; ++kind) {
        Block block = blockOf({"a", "host"}, kind % 2 == 0);
        for (uint32_t variant = 0; variant < 4; ++variant) {
            block.add(makeSkipped(worldgen::SkipKind(kind), "skipped", 1, variant));
        }
        put(kind, DatFile().add(block.visit("b", 1)).add(Block()));
        expected += "a host b ";
    }
    for (size_t size = 500; size < 2500; size += 13) {
        ASSERT_EQ(drain(0, size), whole(expected, worldgen::skipKindCount - 1)) << size;
    }
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
        {listField("Host", "a") + listField("hosts", "a") + listField("hostname", "b"), "none"},
        {listField("host", "") + host, "none"},
        {field(8, "host:ab"), "none"},
        {field(0xFFFFFFFC, "url:") + host, "none"},
        {std::string("\1\0\0", 3), "none"},
        {"<?XM</_f><_f n=\"hos\">x</_f><_f n=\"host\">a<b></_f>" + xml + "e</_f>", "a<b>"},
        {xml + "d.com</_F>", "d.com</_F> unterminated"},
        {xml + "</_f>" + xml + "e</_f>", "none"},
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
