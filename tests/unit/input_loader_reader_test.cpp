#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <random>

namespace kestrine {
namespace {

using worldgen::Block;
using worldgen::DatFile;

Block blockOf(std::initializer_list<const char*> hosts, bool compressed = true) {
    Block block;
    block.compressed = compressed;
    for (const char* host : hosts) {
        block.visit(host, 1);
    }
    return block;
}

DatFile fileOf(const char* host, bool compressed = true) {
    return DatFile().add(blockOf({host}, compressed));
}

class LoaderReaderTest : public testing::Test {
protected:
    static constexpr size_t g_capacity = worldgen::largestBlock;

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
    // The reader may use no byte beyond this.
    void lendBuffers(size_t size) { m_compressed = m_raw = std::vector<uint8_t>(size); }

    test::TempDir m_dir; // stands for a date directory
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
    fileOf("wrong").write(m_dir / "A/0", 101); // a path that no number leads to
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

// Opens and reads fail as the test says; nothing else about the files is known then.
class FailingLogs : public test::FakeClockPlatform {
public:
    int openError = 0; // of opening for update; for reading alone too, unless it is EACCES
    int64_t readsUntilError = -1; // -1: none fails
    int timesLeft = 1000;

    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        const bool refused = openError != EACCES || mode == OpenMode::ReadExisting;
        if (openError != 0 && refused && timesLeft-- > 0) {
            errno = openError;
            return nullptr;
        }
        auto file = FakeClockPlatform::open(path, mode);
        return file ? std::make_unique<FailingFile>(*this, std::move(file)) : nullptr;
    }

private:
    class FailingFile : public test::ForwardingFile {
    public:
        FailingFile(FailingLogs& logs, std::unique_ptr<File> target)
            : ForwardingFile(std::move(target)), m_logs(logs) {}
        int64_t read(std::span<uint8_t> buffer) override {
            if (m_logs.readsUntilError-- == 0 && m_logs.timesLeft-- > 0) {
                m_logs.readsUntilError = 0;
                errno = EIO;
                return -1;
            }
            return ForwardingFile::read(buffer);
        }

    private:
        FailingLogs& m_logs;
    };
};

// An error is not damage: the node fails, with its position before what could not be read.
TEST_F(LoaderReaderTest, CallsThatFailPassNothingOver) {
    put(0, fileOf("a").add(blockOf({"b"})));
    put(1, fileOf("c"));
    const uint64_t firstBlock = fileOf("a").bytes().size();
    FailingLogs logs;
    const test::ScopedPlatform scope(logs);
    for (const int error : {EIO, EMFILE, ENOMEM, EBUSY}) {
        logs.openError = error;
        logs.timesLeft = 1000;
        EXPECT_EQ(drain(), "3") << error;
        logs.timesLeft = 2; // in time for the third try
        EXPECT_EQ(drain(), whole("a b c ", 1)) << error;
    }
    logs.openError = EACCES; // may be read only
    logs.timesLeft = 1000;
    EXPECT_EQ(drain(), whole("a b c ", 1));
    logs.openError = 0;
    // A read of the header, of the first block's header and content, of the second's ...
    const std::pair<int64_t, std::string> places[] = {{0, "3"},
                                                      {1, "3" + at(0, 28)},
                                                      {2, "3" + at(0, 28)},
                                                      {3, "a 3" + at(0, firstBlock)},
                                                      {4, "a 3" + at(0, firstBlock)}};
    for (const auto& [reads, expected] : places) {
        logs.readsUntilError = reads;
        logs.timesLeft = 1000;
        EXPECT_EQ(drain(), expected) << reads;
        logs.readsUntilError = reads;
        logs.timesLeft = 2;
        EXPECT_EQ(drain(), whole("a b c ", 1)) << reads;
    }
}

TEST_F(LoaderReaderTest, TheNewestFileRestsBeforeItIsOpened) {
    FailingLogs logs;
    const test::ScopedPlatform scope(logs);
    put(0, fileOf("a"));
    put(1, fileOf("b"));
    logs.seconds = logs.now();
    m_settleTime = 60;
    EXPECT_EQ(drain(), whole("a ", 0)); // it has a successor
    *logs.seconds += 61;
    EXPECT_EQ(drain(), whole("a b ", 1));
}

TEST_F(LoaderReaderTest, ManySkippedRecordsAreFewLines) {
    Block block;
    for (int i = 0; i < 1000; ++i) {
        const worldgen::PayloadFields fields{worldgen::listContent("h"), 1, 1, 5, {}};
        block.add({worldgen::makePayload(fields), 10, {}, {}});
    }
    put(0, DatFile().add(block));
    testing::internal::CaptureStdout();
    EXPECT_EQ(drain(), whole("", 0));
    std::fflush(stdout);
    const std::string lines = testing::internal::GetCapturedStdout();
    EXPECT_LT(std::ranges::count(lines, '\n'), 10);
    EXPECT_NE(lines.find(" net action invalid in 1000 records of file 0 of "), std::string::npos);
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
        const DatFile first = fileOf("a", compressed);
        const DatFile full = DatFile(first).add(blockOf({"b", "c"}, compressed));
        const size_t firstSize = first.bytes().size();
        for (size_t size = worldgen::fileHeaderBytes; size < full.bytes().size(); ++size) {
            put(0, DatFile(full).truncate(size));
            ASSERT_EQ(drain(), size < firstSize ? "2 0:28" : "a 2" + at(0, firstSize)) << size;
        }
        put(0, full);
        EXPECT_EQ(drain(), whole("a b c ", 0));
    }
}

TEST_F(LoaderReaderTest, LargestBlockAndRecord) {
    put(0, fileOf("a", false).add(Block().visit("b", 1, 5))); // buffers cannot take the second
    put(1, fileOf("next", false));
    lendBuffers(1000);
    m_raw.resize(5000);
    EXPECT_EQ(drain(), whole("a next ", 1));
    lendBuffers(g_capacity + 100); // they are not what bounds a block
    for (const bool compressed : {false, true}) {
        for (const size_t size : {g_capacity, g_capacity + 1}) {
            Block block = blockOf({}, compressed);
            std::string payload = worldgen::visitPayload("big", 1);
            payload.resize(size - worldgen::recordHeadBytes, '\0');
            put(0, DatFile().add(block.add({payload, 10, {}, {}})));
            put(1, fileOf("next"));
            EXPECT_EQ(drain(), whole(size > g_capacity ? "next " : "big next ", 1));
        }
    }
}

TEST_F(LoaderReaderTest, SmallBufferLosesNothingAndVisitsAloneAreDelivered) {
    std::mt19937 random(11);
    std::string expected;
    for (int file = 0; file < worldgen::skipKindCount; ++file) {
        Block block;
        block.compressed = random() % 2 == 0;
        for (auto variant = static_cast<uint32_t>(random() % 5); variant > 0; --variant) {
            const std::string host(1 + random() % 40, 'h');
            const auto action = static_cast<uint32_t>(2 + random() % 3);
            const worldgen::PayloadFields fields{worldgen::listContent(host), 1, 1, action, {}};
            block.add({worldgen::makePayload(fields), 10, {}, {}});
            block.add(makeSkipped(worldgen::SkipKind(file), "skipped", 1, variant));
            expected += host + " ";
        }
        put(file, DatFile().add(block).add(Block()));
    }
    for (size_t size = 500; size < 2500; size += 13) {
        ASSERT_EQ(drain(0, size), whole(expected, worldgen::skipKindCount - 1)) << size;
    }
}

} // namespace
} // namespace kestrine
