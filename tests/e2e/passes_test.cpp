// Whole passes over generated worlds: everything is counted once, wherever it has to go through.
#include "service_world.h"

namespace kestrine::test {
namespace {

TEST(Passes, OnePassOverYearEndCountsEveryVisit) {
    worldgen::WorldSettings settings = smallWorld(60000);
    settings.hosts = 20000;
    settings.zipfExponent = 0.25;
    settings.longHosts = 60;
    settings.devices = 2;
    settings.days = 4;
    settings.longNodeFiles = 103;
    settings.install.olderAccountLayout = true;
    ServiceWorld world;
    world.generate(settings);
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
    EXPECT_TRUE(world.setAside().empty());
    EXPECT_GT(world.expected().tree().at("alice/mon20121201_20121231/moncrcsort").size(), 10100u)
        << "no list was cut";

    const auto before = world.dir().tree();
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
    for (const auto& [name, content] : before) {
        if (name.find("/_urlstat/") != std::string::npos && !name.ends_with('/')) {
            EXPECT_TRUE(world.dir().read(name) == content) << name << " changed for no reason";
        }
    }
    world.expected().visit("bob", 20121231, "one.more.example", 1);
    EXPECT_FALSE(world.matches()) << "the comparison sees nothing";
}

// New files, dates and devices while the service runs, across restarts. In the last run the
// intervals are long: new-day files wait, until the first pass after a start folds them in.
TEST(Passes, RoundsOfNewLogDataAreAddedWhileRunning) {
    std::vector<worldgen::WorldSettings> rounds(4, smallWorld(1500));
    rounds[0].newDays = 1; // 20130101
    rounds[1].newDevices = 1;
    rounds[2].newDays = 1;
    rounds[2].newDevices = 1;
    ServiceWorld world;
    worldgen::WorldSettings first = smallWorld(3000);
    first.firstDate = 20121230;
    first.days = 2;
    world.generate(first);
    size_t next = 0;
    for (const int appends : {2, 1, 1}) {
        const bool waits = next == 3;
        if (waits) {
            world.configure(
                {{"daycrcsortInterval", "36000"}, {"weekmoncrcsortInterval", "172800"}});
        }
        const auto service = world.start();
        ASSERT_TRUE(service->waitForPause()) << service->tail();
        for (int i = 0; i < appends; ++i) {
            world.append(rounds[next++]);
            // The pass after the next pause has seen everything.
            ASSERT_TRUE(service->waitForPause(service->pauses() + 2)) << service->tail();
        }
        EXPECT_EQ(errorLines(*service), Lines());
        ASSERT_TRUE(world.stop(*service));
        ASSERT_EQ(bool(world.matches()), !waits) << "run with round " << next;
    }
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
    EXPECT_TRUE(world.setAside().empty());
}

// The memory disk keeps 1024 K free.
TEST(TinyBudgets, LoseNothing) {
    const std::string giant(3000, 'g'); // longer than the smallest budget
    const struct {
        Settings settings;
        uint64_t visits;
        int spills; // at least
    } rows[] = {{{{"maxHashMemory", "1"}}, 40000, 2000},
                {{{"maxHashMemory", "8"}, {"exportPersent", "30"}, {"memoryDiskSize", "1040"}},
                 12000,
                 100}};
    for (const auto& [settings, visits, spills] : rows) {
        ServiceWorld world(settings);
        world.generate(tinyWorld(visits));
        worldgen::DatFile()
            .add(worldgen::Block().visit("a.example", 1).visit(giant, 7, 3).visit("z.example", 1))
            .write(world.node("alice", 77, 20121230), 0);
        world.expected().visit("alice", 20121230, "a.example", 1);
        world.expected().visit("alice", 20121230, giant, 7, 3);
        world.expected().visit("alice", 20121230, "z.example", 1);
        world.expected().node("alice", 77, 20121230, 0);
        const auto service = world.start();
        ASSERT_TRUE(service->waitForPause()) << service->tail();
        EXPECT_EQ(errorLines(*service), Lines());
        EXPECT_GE(countLines(service->lines(), ".temp") - countLines(service->lines(), "diskTemp"),
                  spills);
        ASSERT_TRUE(world.stop(*service));
        ASSERT_TRUE(world.matches());
    }
}

} // namespace
} // namespace kestrine::test
