// Damaged, unfinished and late log files: what lies before the damage and in later files counts,
// the rest of a damaged file does not, and nothing is read twice.
#include "service_world.h"

namespace kestrine::test {
namespace {

using worldgen::Block;
using worldgen::DatFile;

constexpr int g_date = 20121230;
constexpr int g_noDate = 20121399; // none of the calendar, so in no week and no month
constexpr uint32_t g_type = 3;

Block blockOf(const std::string& host, bool compressed = false) {
    Block block;
    block.compressed = compressed;
    return block.visit(host, g_type, 2);
}

// A (g)ood file, of four visits to the host; one with a bad (c)rc behind them, or a bad (t)ype of
// block or a (u)nfinished one behind two; one with nothing to (s)ee; and ones that cannot be read:
// (m)agic number, (h)alf a header, (e)mpty.
DatFile fileOf(char kind, const std::string& host) {
    const std::string never = "never." + host;
    if (kind == 's') {
        Block skipped;
        for (int i = 0; i < worldgen::skipKindCount; ++i) {
            skipped.add(makeSkipped(worldgen::SkipKind(i), never, g_type));
        }
        return DatFile().add(skipped);
    }
    Block block = blockOf(kind == 'g' || kind == 'c' ? host : never, kind != 'u');
    if (kind == 'c') {
        block.add({worldgen::visitPayload(never, g_type), worldgen::userBufferRecord, {}, 1});
    }
    block.blockType = kind == 't' ? 7 : 1;
    DatFile file = DatFile().add(blockOf(host)).add(block);
    switch (kind) {
    case 'g':
        return file;
    case 'u':
        return file.truncate(file.bytes().size() - 1);
    case 'm':
        return file.magic(0xABCDABCCu);
    case 'h':
        return file.truncate(27);
    case 'e':
        return file.truncate(0);
    default:
        return file.add(blockOf(never));
    }
}

// The files of a node by number, at first and later; '-' stands for none.
struct Node {
    int date;
    std::string files[2];
    int newest = -1; // that was read
};

// Writes what a node has now, and expects what is not read yet.
void bring(ServiceWorld& world, Node& node, int device, const std::string& files) {
    bool reached = true; // no file is missing before
    for (int i = node.newest + 1; i < std::ssize(files); ++i) {
        const char kind = files[size_t(i)];
        reached = reached && kind != '-';
        const std::string host = std::to_string(i) + "." + std::to_string(device) + ".example";
        if (kind != '-') {
            fileOf(kind, host).write(world.node("alice", device, node.date), i);
        }
        const uint64_t visits = kind == 'g' || kind == 'c' ? 4 : kind == 't' || kind == 'u' ? 2 : 0;
        if (reached && visits > 0) {
            world.expected().visit("alice", node.date, host, g_type, visits);
        }
        node.newest = reached && (visits > 0 || kind == 's') ? i : node.newest;
    }
    // A node without a readable file is looked at, if its date has a day file.
    if (node.newest >= 0 || (node.date == g_date && files[0] != '-')) {
        world.expected().node("alice", device, node.date, node.newest);
    }
}

TEST(DamagedLogs, LoseTheRestOfTheirFileAlone) {
    std::vector<Node> nodes = {{g_date, {"gh", "gg"}},   {g_date, {"-g", "gg"}},
                               {g_date, {"g-g", "ggg"}}, {20121231, {"m", "mg"}},
                               {20130101, {"s", "s"}},   {g_noDate, {"g", "g"}}};
    for (const char damage : std::string("ctumhe")) {
        const std::string bad(1, damage);
        for (const std::string& files : {bad + "g", "g" + bad + "g", "g" + bad, bad}) {
            nodes.push_back({g_date, {files, files + "g"}});
        }
    }
    ServiceWorld world;
    world.makeAccounts({"alice"});
    for (size_t round = 0; round < 2; ++round) {
        for (size_t i = 0; i < nodes.size(); ++i) {
            bring(world, nodes[i], int(i), nodes[i].files[round]);
        }
        const auto service = world.start();
        ASSERT_TRUE(service->waitForPause(2)) << service->tail(); // the second finds nothing to do
        ASSERT_TRUE(world.stop(*service));
        ASSERT_TRUE(world.matches(true)) << round; // new-day files of no date are never deleted
    }
    EXPECT_TRUE(world.setAside().empty());
}

} // namespace
} // namespace kestrine::test
