#include "input/loader_reader.h"
#include "input/user_buffer.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"
#include "worldgen/dat_file.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace kestrine {
namespace {

using test::ForwardingPlatform;
using test::ScopedPlatform;
using test::TempDir;
using worldgen::Block;
using worldgen::DatFile;

using Hosts = std::vector<std::string>;

DatFile fileOf(const Hosts& hosts, bool compressed = true) {
    Block block;
    block.compressed = compressed;
    for (const std::string& host : hosts) {
        block.visit(host, 1);
    }
    return DatFile().add(block);
}

struct Outcome {
    int result = -1; // of the last call
    Hosts hosts;
    int32_t file = -1; // -1: no position
    uint64_t offset = 0;

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "result " << outcome.result << " file " << outcome.file << " offset "
            << outcome.offset << " hosts " << testing::PrintToString(outcome.hosts);
}

class LoaderReaderTest : public testing::Test {
protected:
    static constexpr size_t g_capacity = worldgen::largestBlock;

    void put(int number, const DatFile& file) {
        file.write(m_dir.path(), number);
        m_sizes[number] = file.bytes().size();
    }

    // Reads to the end as the statistics pipeline does.
    Outcome drain(int32_t start = 0, size_t bufferSize = g_capacity) {
        const std::span<uint8_t> buffer = std::span(m_buffer).first(bufferSize);
        EXPECT_EQ(m_reader.init(m_compressed, m_raw), 0);
        Outcome outcome;
        outcome.result = m_reader.open(m_dir / "A", start);
        while (outcome.result == g_loaderDone) {
            size_t used = 0;
            outcome.result = m_reader.readHistory(buffer, used);
            EXPECT_LE(used, buffer.size());
            collect(ByteView(buffer).first(used), outcome.hosts);
        }
        if (m_reader.hasPosition()) {
            outcome.file = m_reader.currentPosition().fileNumber;
            outcome.offset = m_reader.currentPosition().offset;
        }
        EXPECT_EQ(m_reader.close(), 0);
        return outcome;
    }

    static void collect(ByteView stream, Hosts& hosts) {
        size_t offset = 0;
        for (ByteView payload; nextEntry(stream, offset, payload);) {
            std::string_view host;
            uint32_t type = 0;
            if (findHost(payload, host, type) == HostResult::Found) {
                hosts.emplace_back(host);
            }
        }
        EXPECT_EQ(offset, stream.size());
    }

    // Everything of the files up to `file` was taken.
    Outcome whole(const Hosts& hosts, int32_t file) {
        return {g_loaderNoMore, hosts, file, m_sizes[file]};
    }

    // The reader may use no byte beyond this.
    void lendBuffers(size_t compressedSize, size_t rawSize) {
        m_compressed = std::vector<uint8_t>(compressedSize);
        m_raw = std::vector<uint8_t>(rawSize);
    }

    TempDir m_dir; // stands for a date directory
    std::map<int, uint64_t> m_sizes;
    std::vector<uint8_t> m_compressed = std::vector<uint8_t>(g_capacity);
    std::vector<uint8_t> m_raw = std::vector<uint8_t>(g_capacity);
    std::vector<uint8_t> m_buffer = std::vector<uint8_t>(g_capacity);
    LoaderReader m_reader;
};

const Outcome g_nothing{g_loaderNoMore, {}, -1, 0};

TEST_F(LoaderReaderTest, FollowsFilesFromTheStartNumber) {
    EXPECT_EQ(drain(), g_nothing); // not even the directory
    put(1, fileOf({"b"}));
    EXPECT_EQ(drain(), g_nothing); // file 0 is missing
    put(0, fileOf({"a"}, false));
    put(2, fileOf({"c"}, false).add(Block().visit("d", 1)));
    EXPECT_EQ(drain(), whole({"a", "b", "c", "d"}, 2));
    EXPECT_EQ(drain(2), whole({"c", "d"}, 2));
    EXPECT_EQ(drain(3), g_nothing);

    put(99, fileOf({"x"}));
    put(100, fileOf({"y"}));
    fileOf({"wrong"}).write(m_dir / "A/0", 101); // a path that no number leads to
    EXPECT_EQ(drain(99), whole({"x", "y"}, 100));
}

// A file without a good header is passed over when one behind it is good; at the end of the row the
// position stays before it, so that it is tried again.
TEST_F(LoaderReaderTest, UnreadableFiles) {
    const std::vector<DatFile> bad = {DatFile().truncate(0), fileOf({"z"}).truncate(27),
                                      fileOf({"z"}).magic(0xABCDABCC)};
    for (const DatFile& file : bad) {
        put(0, fileOf({"a"}));
        put(1, file);
        EXPECT_EQ(drain(), whole({"a"}, 0));
        EXPECT_EQ(drain(1), g_nothing);
        put(2, file);
        EXPECT_EQ(drain(), whole({"a"}, 0));
        EXPECT_EQ(drain(1), g_nothing);
        put(2, fileOf({"c"}));
        EXPECT_EQ(drain(), whole({"a", "c"}, 2));
        put(0, file);
        EXPECT_EQ(drain(), whole({"c"}, 2));
        // The writer completes its header.
        put(1, fileOf({"b"}));
        EXPECT_EQ(drain(1), whole({"b", "c"}, 2));
        std::filesystem::remove(m_dir / "A/0/2.dat");
    }
    std::filesystem::remove(m_dir / "A/0/1.dat");
    m_dir.makeDirs("A/0/1.dat"); // cannot be opened
    put(0, fileOf({"a"}));
    put(2, fileOf({"c"}));
    EXPECT_EQ(drain(), whole({"a", "c"}, 2));
}

// What the damaged block of file 0 (good block "a" first, good block "z" behind) still yields.
struct DamageCase {
    const char* name;
    Block block;
    Hosts delivered;
};

Block visits() {
    return Block().visit("b", 1).visit("c", 1);
}

std::vector<DamageCase> damageCases() {
    std::vector<DamageCase> cases;
    const auto damaged = [&](const char* name, Hosts delivered, const auto& damage) {
        for (const bool compressed : {false, true}) {
            Block block = visits();
            block.compressed = compressed;
            damage(block);
            cases.push_back({name, std::move(block), delivered});
        }
    };
    damaged("type 7", {}, [](Block& b) { b.blockType = 7; });
    damaged("type 6", {"b", "c", "z"}, [](Block& b) { b.blockType = 6; });
    damaged("flag 2", {}, [](Block& b) { b.flag = 2; });
    damaged("raw size above the bound", {}, [](Block& b) { b.rawSize = 2097153; });
    damaged("stored size above the bound", {}, [](Block& b) { b.blockSize = 2097153; });
    damaged("both sizes 2^32 - 1", {}, [](Block& b) { b.rawSize = b.blockSize = 0xFFFFFFFF; });
    damaged("payload behind the end of the file", {},
            [](Block& b) { b.rawSize = b.blockSize = 2097152; });
    const auto second = [](std::optional<uint32_t> length, std::optional<uint32_t> crc) {
        return [=](Block& b) {
            b.raw = Block().visit("b", 1).raw;
            b.add({worldgen::visitPayload("c", 1), 10, length, crc}).visit("d", 1);
        };
    };
    damaged("crc", {"b"}, second({}, 1));
    damaged("length near 2^32", {"b"}, second(0xFFFFFFFF, {}));
    damaged("length that wraps to the head", {"b"}, second(0xFFFFFFF4, {}));
    damaged("length into the next record", {"b"}, second(500, {}));
    damaged("crc of a record of another type", {"b"}, [](Block& b) {
        b.raw = Block().visit("b", 1).raw;
        b.add({"payload", 3, {}, 1}).visit("d", 1);
    });
    damaged("trailing bytes less than a head", {"b", "c", "z"},
            [](Block& b) { b.raw += std::string(11, '\xFF'); });
    damaged("empty", {"z"}, [](Block& b) { b.raw.clear(); });

    const auto stored = [&](const char* name, std::optional<uint32_t> rawSize, auto payload) {
        Block block = visits();
        block.compressed = true;
        block.rawSize = rawSize;
        const std::string good = block.encode().substr(worldgen::blockHeaderBytes);
        block.payload = payload(good);
        cases.push_back({name, std::move(block), {}});
    };
    const auto same = [](const std::string& good) { return good; };
    const auto rawSize = static_cast<uint32_t>(visits().raw.size());
    stored("raw size one less", rawSize - 1, same);
    stored("raw size one more", rawSize + 1, same);
    stored("no zlib data", {}, [](const std::string&) { return std::string(50, 'x'); });
    stored("zlib data cut", {}, [](const std::string& g) { return g.substr(0, g.size() - 5); });
    stored("no data", {}, [](const std::string&) { return std::string(); });
    return cases;
}

TEST_F(LoaderReaderTest, DamageGivesUpTheRestOfTheFileOnly) {
    for (const DamageCase& c : damageCases()) {
        SCOPED_TRACE(c.name);
        put(0, fileOf({"a"}).add(c.block).add(Block().visit("z", 1)));
        Hosts expected = {"a"};
        expected.insert(expected.end(), c.delivered.begin(), c.delivered.end());
        const Outcome alone = drain();
        EXPECT_EQ(alone.result, g_loaderNoMore);
        EXPECT_EQ(alone.hosts, expected);
        EXPECT_EQ(alone.file, 0);

        put(1, fileOf({"next"}));
        expected.emplace_back("next");
        EXPECT_EQ(drain(), whole(expected, 1));
        std::filesystem::remove(m_dir / "A/0/1.dat");
    }
}

// The file as its writer may leave it at any moment: whole blocks are taken, a part of one never.
TEST_F(LoaderReaderTest, UnfinishedBlockWaits) {
    for (const bool compressed : {false, true}) {
        Block block = visits();
        block.compressed = compressed;
        const DatFile first = fileOf({"a"}, compressed);
        const DatFile full = DatFile(first).add(block);
        const size_t firstSize = first.bytes().size();
        std::set<size_t> sizes;
        for (size_t size = worldgen::fileHeaderBytes; size < full.bytes().size(); size += 29) {
            sizes.insert(size);
        }
        for (const size_t edge :
             {firstSize, firstSize + worldgen::blockHeaderBytes, full.bytes().size() - 1}) {
            sizes.insert({edge - 1, edge, std::min(edge + 1, full.bytes().size() - 1)});
        }
        for (const size_t size : sizes) {
            put(0, DatFile(full).truncate(size));
            const Outcome expected = size < firstSize
                                         ? Outcome{g_loaderNoMore, {}, 0, 28}
                                         : Outcome{g_loaderNoMore, {"a"}, 0, firstSize};
            ASSERT_EQ(drain(), expected) << size;
        }
        put(0, full);
        EXPECT_EQ(drain(), whole({"a", "b", "c"}, 0));
    }
}

TEST_F(LoaderReaderTest, LargestBlockAndRecord) {
    const std::string base = worldgen::visitPayload("big", 1);
    lendBuffers(g_capacity + 100, g_capacity + 100); // they are not what bounds a block
    for (const bool compressed : {false, true}) {
        for (const size_t size : {g_capacity, g_capacity + 1}) {
            Block block;
            block.compressed = compressed;
            std::string payload = base;
            payload.resize(size - worldgen::recordHeadBytes, '\0');
            block.add({payload, 10, {}, {}});
            ASSERT_EQ(block.raw.size(), size);
            put(0, DatFile().add(block));
            put(1, fileOf({"next"}));
            EXPECT_EQ(drain(), whole(size > g_capacity ? Hosts{"next"} : Hosts{"big", "next"}, 1));
        }
    }
}

TEST_F(LoaderReaderTest, OnlyVisitsAreDelivered) {
    Block block;
    Hosts expected;
    for (int kind = 0; kind < worldgen::skipKindCount; ++kind) {
        for (uint32_t variant = 0; variant < 4; ++variant) {
            block.add(makeSkipped(worldgen::SkipKind(kind), "skipped", 1, variant));
            expected.push_back(std::to_string(kind) + "." + std::to_string(variant));
            block.visit(expected.back(), 1, 1,
                        variant % 2 ? worldgen::ContentForm::Xml : worldgen::ContentForm::List);
        }
    }
    for (const uint32_t action : {2U, 3U, 4U}) {
        expected.push_back("action" + std::to_string(action));
        worldgen::Record record;
        record.payload = worldgen::makePayload(
            {worldgen::listContent(expected.back()), 1, 1, action, std::nullopt});
        block.add(record);
    }
    put(0, DatFile().add(block).add(Block()));
    EXPECT_EQ(drain(), whole(expected, 0));
}

TEST_F(LoaderReaderTest, SmallBufferLosesNothing) {
    std::mt19937 random(11);
    Hosts expected;
    size_t largest = 0;
    for (int file = 0; file < 3; ++file) {
        DatFile content;
        for (int blocks = 0; blocks < 3; ++blocks) {
            Block block;
            block.compressed = random() % 2 == 0;
            for (auto records = random() % 5; records > 0; --records) {
                expected.push_back(std::string(1 + random() % 40, 'h'));
                block.visit(expected.back(), 1);
                block.add(makeSkipped(worldgen::SkipKind::InvalidNetAction, "s", 1));
                largest = std::max(largest, 4 + worldgen::visitPayload(expected.back(), 1).size());
            }
            content.add(block);
        }
        put(file, content);
    }
    for (size_t size = largest; size < 4 * largest; size += 13) {
        ASSERT_EQ(drain(0, size), whole(expected, 2)) << size;
    }

    // A record that can never fit stops the reader where it stands.
    put(0, fileOf({"a"}));
    ASSERT_EQ(m_reader.open(m_dir / "A", 0), g_loaderDone);
    size_t used = 1;
    EXPECT_EQ(m_reader.readHistory(std::span(m_buffer).first(300), used), g_loaderDone);
    EXPECT_EQ(used, 0U);
    Hosts hosts;
    EXPECT_EQ(m_reader.readHistory(m_buffer, used), g_loaderDone);
    collect(ByteView(m_buffer).first(used), hosts);
    EXPECT_EQ(hosts, Hosts{"a"});
}

TEST_F(LoaderReaderTest, RefusesMissingParameters) {
    LoaderReader reader;
    std::vector<uint8_t> bytes(10);
    size_t used = 1;
    EXPECT_EQ(reader.init({}, bytes), -1);
    EXPECT_EQ(reader.init(bytes, {}), -1);
    EXPECT_EQ(reader.open("", 0), g_loaderError);
    EXPECT_EQ(reader.readHistory({}, used), g_loaderError);
    EXPECT_EQ(used, 0U);
    EXPECT_EQ(reader.readHistory(bytes, used), g_loaderNoMore); // nothing is open
}

TEST_F(LoaderReaderTest, StaysInsideLentBuffers) {
    // A block that they cannot take ends its file.
    put(0, fileOf({"a"}, false).add(Block().visit("b", 1, 5)));
    put(1, fileOf({"c"}, false));
    lendBuffers(1000, 1001);
    EXPECT_EQ(drain(), whole({"a", "c"}, 1));

    put(1, fileOf({"next"}));
    // Records that end before their fields do, at the very end of the buffers.
    for (size_t missing = 1; missing < 20; ++missing) {
        Block block = visits();
        block.raw.resize(block.raw.size() - missing);
        put(0, DatFile().add(block));
        lendBuffers(block.raw.size(), block.raw.size());
        EXPECT_EQ(drain(), whole({"b", "next"}, 1)) << missing;
    }
    for (const auto kind : {worldgen::SkipKind::BelowNetAction, worldgen::SkipKind::ShortPayload}) {
        Block block;
        block.add(makeSkipped(kind, "s", 1));
        put(0, DatFile().add(block));
        lendBuffers(block.raw.size(), block.raw.size());
        std::filesystem::remove(m_dir / "A/0/1.dat");
        EXPECT_EQ(drain(), whole({}, 0));
    }
}

// Log files whose chosen call fails once.
class BadFilePlatform : public ForwardingPlatform {
public:
    enum class Call { Read, ShortRead, Size, Close };

    BadFilePlatform(Call badCall, int badTurn) : call(badCall), turn(badTurn) {}
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        auto file = ForwardingPlatform::open(path, mode);
        return file ? std::make_unique<BadFile>(*this, std::move(file)) : nullptr;
    }
    bool fails(Call which) { return which == call && turn-- == 0; }

    Call call;
    int turn; // so many such calls succeed first

private:
    struct BadFile : File {
        BadFile(BadFilePlatform& o, std::unique_ptr<File> f) : owner(o), file(std::move(f)) {}
        int64_t read(std::span<uint8_t> buffer) override {
            if (owner.fails(Call::Read)) {
                return -1;
            }
            return file->read(owner.fails(Call::ShortRead) ? buffer.first(buffer.size() - 1)
                                                           : buffer);
        }
        int64_t write(std::span<const uint8_t> data) override { return file->write(data); }
        int seek(int64_t offset) override { return file->seek(offset); }
        int64_t tell() override { return file->tell(); }
        int64_t size() override { return owner.fails(Call::Size) ? -1 : file->size(); }
        int sync() override { return file->sync(); }
        int close() override { return owner.fails(Call::Close) ? -1 : file->close(); }

        BadFilePlatform& owner;
        std::unique_ptr<File> file;
    };
};

TEST_F(LoaderReaderTest, FailingCalls) {
    using Call = BadFilePlatform::Call;
    put(0, fileOf({"a"}));
    put(1, fileOf({"b"}));
    // Reads of a file: its header, a block header, a payload. The file is given up.
    for (const Call call : {Call::Read, Call::ShortRead}) {
        for (int turn = 0; turn < 3; ++turn) {
            BadFilePlatform bad(call, turn);
            const ScopedPlatform scope(bad);
            EXPECT_EQ(drain(), whole({"b"}, 1)) << turn;
        }
    }
    struct Case {
        Call call;
        int turn;
        Outcome outcome;
    };
    for (const Case& c : {Case{Call::Size, 0, {g_loaderError, {}, 0, 28}},
                          {Call::Size, 1, {g_loaderError, {"a"}, 1, 28}},
                          {Call::Close, 0, {g_loaderError, {"a"}, 0, m_sizes[0]}}}) {
        BadFilePlatform bad(c.call, c.turn);
        const ScopedPlatform scope(bad);
        EXPECT_EQ(drain(), c.outcome);
    }
}

// Any change of any byte: no crash, no endless loop, and the undamaged file behind is read.
TEST_F(LoaderReaderTest, RandomDamage) {
    std::mt19937 random(5);
    DatFile good;
    for (int i = 0; i < 4; ++i) {
        Block block;
        block.compressed = i % 2 == 1;
        good.add(block.visit("a", 1, 2).visit("b", 1, 1, worldgen::ContentForm::Xml));
    }
    put(1, fileOf({"next"}));
    for (int round = 0; round < 300; ++round) {
        DatFile file = good;
        for (auto count = 1 + random() % 3; count > 0; --count) {
            const char byte = static_cast<char>(random() % 3 == 0 ? 0xFF : random());
            file.patch(random() % file.bytes().size(), std::string(1, byte));
        }
        put(0, file.truncate(random() % 4 == 0 ? random() % file.bytes().size() : SIZE_MAX));
        const Outcome outcome = drain(0, 8192);
        ASSERT_EQ(outcome.result, g_loaderNoMore);
        ASSERT_EQ(outcome.file, 1);
        ASSERT_FALSE(outcome.hosts.empty());
        ASSERT_EQ(outcome.hosts.back(), "next");
    }
}

} // namespace
} // namespace kestrine
