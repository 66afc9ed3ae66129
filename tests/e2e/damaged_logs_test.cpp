// Damaged log files: what lies before the damage and in later files counts, the rest of a damaged
// file does not, and nothing is read twice.
#include "service_world.h"

#include "worldgen/install.h"

namespace kestrine::test {
namespace {

using worldgen::Block;
using worldgen::DatFile;
using worldgen::Record;

constexpr int g_date = 20121230;
constexpr uint32_t g_type = 3;

// What is wrong with a file of three blocks: visits to before.HOST, the damage with visits to
// never.HOST, and visits to never.HOST.
struct Damage {
    const char* name;
    bool headerGood; // so that the file counts as read
    std::function<DatFile(const std::string& host)> make;
};

Block blockOf(const std::string& host, bool compressed = false) {
    Block block;
    block.compressed = compressed;
    return block.visit(host, g_type, 2);
}

Record visitRecord(const std::string& host) {
    return {worldgen::visitPayload(host, g_type), worldgen::userBufferRecord, {}, {}};
}

DatFile goodFile(const std::string& host) {
    return DatFile().add(blockOf(host, true)).add(blockOf(host));
}

// The damaged block in the middle.
auto inBlock(const std::function<void(Block&)>& damage, bool compressed = false) {
    return [=](const std::string& host) {
        Block block = blockOf("never." + host, compressed);
        damage(block);
        return DatFile()
            .add(blockOf("before." + host, true))
            .add(block)
            .add(blockOf("never." + host));
    };
}

// A damaged record in the middle of a block: the records before it have been delivered already.
auto inRecord(const std::function<void(Record&)>& damage, bool compressed) {
    return [=](const std::string& host) {
        Record record = visitRecord("never." + host);
        damage(record);
        Block block;
        block.compressed = compressed;
        block.visit("before." + host, g_type, 2).add(record).visit("never." + host, g_type);
        return DatFile().add(block).add(blockOf("never." + host));
    };
}

// Without its last bytes.
auto cut(size_t missing) {
    return [=](const std::string& host) {
        DatFile file = DatFile().add(blockOf("before." + host));
        const size_t size = file.bytes().size();
        file.add(blockOf("never." + host));
        return file.truncate(missing == 0 ? size + 31 : file.bytes().size() - missing);
    };
}

auto badHeader(const std::function<void(DatFile&)>& damage) {
    return [=](const std::string& host) {
        DatFile file = goodFile("never." + host);
        damage(file);
        return file;
    };
}

const std::vector<Damage>& damages() {
    static const std::vector<Damage> all = {
        {"crc", true, inRecord([](Record& r) { r.crc = 1; }, false)},
        {"crc-compressed", true, inRecord([](Record& r) { r.crc = 1; }, true)},
        {"record-too-long", true, inRecord([](Record& r) { r.length = 100000; }, false)},
        {"record-near-4g", true, inRecord([](Record& r) { r.length = 0xFFFFFFF5u; }, true)},
        {"block-type", true, inBlock([](Block& b) { b.blockType = 7; })},
        {"block-flag", true, inBlock([](Block& b) { b.flag = 2; })},
        {"block-size", true, inBlock([](Block& b) { b.blockSize = 2097153; }, true)},
        {"raw-size", true, inBlock([](Block& b) { b.rawSize = 2097153; })},
        {"raw-size-off-by-one", true,
         inBlock([](Block& b) { b.rawSize = uint32_t(b.raw.size() + 1); }, true)},
        {"no-zlib", true, inBlock([](Block& b) { b.payload = std::string(90, 'z'); }, true)},
        {"cut-payload", true, cut(1)},
        {"cut-block-header", true, cut(0)},
        {"magic", false, badHeader([](DatFile& f) { f.magic(0xABCDABCCu); })},
        {"cut-header", false, badHeader([](DatFile& f) { f.truncate(27); })},
        {"empty", false, badHeader([](DatFile& f) { f.truncate(0); })},
    };
    return all;
}

class DamagedLogs : public testing::Test {
protected:
    DamagedLogs() { m_world.makeAccounts({"alice"}); }

    void write(const DatFile& file, int device, int number, int date = g_date) {
        file.write(m_world.node("alice", device, date), number);
    }
    void expect(const std::string& host, uint64_t times, int date = g_date) {
        m_world.expected().visit("alice", date, host, g_type, times);
    }
    void expectNode(int device, int newest, int date = g_date) {
        m_world.expected().node("alice", device, date, newest);
    }
    // Log data is damaged on purpose: error lines are no reason to fail.
    testing::AssertionResult passes(int number) {
        const auto service = m_world.start();
        if (!service->waitForPause(number)) {
            return testing::AssertionFailure() << service->tail();
        }
        return m_world.stop(*service);
    }

    ServiceWorld m_world;
};

// Every kind of damage as the first, a middle, the last and the only file of a node; later another
// good file follows.
TEST_F(DamagedLogs, LoseTheRestOfTheirFileAlone) {
    struct Node {
        int device;
        int files;
        std::string host;
    };
    std::vector<Node> nodes;
    for (const Damage& damage : damages()) {
        for (const std::string shape : {"bg", "gbg", "gb", "b"}) { // bad and good files
            const int device = static_cast<int>(nodes.size());
            const std::string host = shape + "." + damage.name + ".example";
            int newest = -1;
            for (size_t i = 0; i < shape.size(); ++i) {
                const bool good = shape[i] == 'g';
                write(good ? goodFile(host) : damage.make(host), device, int(i));
                if (good) {
                    expect(host, 4);
                } else if (damage.headerGood) {
                    expect("before." + host, 2);
                }
                newest = good || damage.headerGood ? int(i) : newest;
            }
            expectNode(device, newest);
            nodes.push_back({device, int(shape.size()), host});
        }
    }
    ASSERT_TRUE(passes(2)); // the second one must find nothing to do
    ASSERT_TRUE(m_world.matches());
    for (const Node& node : nodes) {
        write(goodFile("later." + node.host), node.device, node.files);
        expect("later." + node.host, 4);
        expectNode(node.device, node.files);
    }
    ASSERT_TRUE(passes(1));
    ASSERT_TRUE(m_world.matches());
}

// Files that are still being written, or come late.
TEST_F(DamagedLogs, UnfinishedAndLateFilesAreCountedWhenTheyAreThere) {
    constexpr int unreadable = 20121231; // a date without a readable file
    constexpr int noVisit = 20130101;    // a date with nothing to count
    constexpr int noDate = 20121399;     // no date of the calendar, so in no week and no month
    write(goodFile("first.example"), 1, 0);
    write(goodFile("late.example").truncate(10), 1, 1); // its header is not complete
    expect("first.example", 4);
    expectNode(1, 0);
    write(goodFile("one.example"), 2, 1); // file 0 is missing
    write(goodFile("zero.example"), 3, 0);
    write(goodFile("two.example"), 3, 2); // file 1 is missing
    expect("zero.example", 4);
    expectNode(3, 0);
    write(DatFile().magic(1), 1, 0, unreadable);
    Block skipped;
    for (int kind = 0; kind < worldgen::skipKindCount; ++kind) {
        skipped.add(makeSkipped(worldgen::SkipKind(kind), "never.example", g_type));
    }
    write(DatFile().add(skipped), 1, 0, noVisit);
    expectNode(1, 0, noVisit);
    write(goodFile("thirteenth.example"), 1, 0, noDate);
    expect("thirteenth.example", 4, noDate);
    expectNode(1, 0, noDate);
    ASSERT_TRUE(passes(1));
    ASSERT_TRUE(m_world.matches(true)); // those of the last date are never deleted

    write(goodFile("late.example"), 1, 1);
    expect("late.example", 4);
    expectNode(1, 1);
    write(goodFile("zero.example"), 2, 0);
    expect("zero.example", 4);
    expect("one.example", 4);
    expectNode(2, 1);
    write(goodFile("one.example"), 3, 1);
    expect("one.example", 4);
    expect("two.example", 4);
    expectNode(3, 2);
    write(goodFile("readable.example"), 1, 1, unreadable);
    expect("readable.example", 4, unreadable);
    expectNode(1, 1, unreadable);
    ASSERT_TRUE(passes(1));
    ASSERT_TRUE(m_world.matches(true)); // those of the last date are never deleted
    EXPECT_TRUE(m_world.setAside().empty());
}

} // namespace
} // namespace kestrine::test
