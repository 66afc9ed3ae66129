// Whole passes over generated worlds: everything is counted once, wherever it has to go through.
#include "service_world.h"

#include "worldgen/install.h"

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

// New files, dates and devices while the service runs, across a restart.
TEST(Passes, RoundsOfNewLogDataAreAddedWhileRunning) {
    std::vector<worldgen::WorldSettings> rounds(3, smallWorld(1500));
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
    for (int run = 0; run < 2; ++run) {
        const auto service = world.start();
        ASSERT_TRUE(service->waitForPause()) << service->tail();
        for (int i = 0; i < 2 - run; ++i) {
            world.append(rounds[next++]);
            // The pass after the next pause has seen everything.
            ASSERT_TRUE(service->waitForPause(service->pauses() + 2)) << service->tail();
        }
        EXPECT_EQ(errorLines(*service), Lines());
        ASSERT_TRUE(world.stop(*service));
        ASSERT_TRUE(world.matches()) << "run " << run;
    }
    EXPECT_TRUE(world.setAside().empty());
}

// Within the intervals new-day files wait; the first pass after a start folds them in.
TEST(Passes, WaitingNewDayFilesAreMergedOnTheirInterval) {
    ServiceWorld world(
        Settings{{"daycrcsortInterval", "36000"}, {"weekmoncrcsortInterval", "172800"}});
    world.generate(tinyWorld(3000, 20121230));
    const auto service = world.start();
    ASSERT_TRUE(service->waitForPause()) << service->tail();
    world.append(smallWorld(1000));
    ASSERT_TRUE(service->waitForPause(service->pauses() + 2)) << service->tail();
    ASSERT_TRUE(world.stop(*service));
    EXPECT_TRUE(world.dir().has("data/log_data/_urlstat/alice/new/20121231/1.daycrcsortnew"));
    EXPECT_FALSE(world.matches()) << "the intervals were not kept";
    ASSERT_TRUE(world.onePass());
    ASSERT_TRUE(world.matches());
}

struct Budgets {
    const char* name;
    const char* maxHashMemory;
    const char* exportPersent;
    const char* memoryDiskSize;
    uint64_t visits;
    int spills; // at least
};

void PrintTo(const Budgets& budgets, std::ostream* stream) {
    *stream << budgets.name;
}

class TinyBudgets : public testing::TestWithParam<Budgets> {};

TEST_P(TinyBudgets, LoseNothing) {
    const Budgets& budgets = GetParam();
    ServiceWorld world(Settings{{"maxHashMemory", budgets.maxHashMemory},
                                {"exportPersent", budgets.exportPersent},
                                {"memoryDiskSize", budgets.memoryDiskSize}});
    world.generate(tinyWorld(budgets.visits));
    const std::string giant(3000, 'g'); // longer than the smallest budget
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
              budgets.spills);
    ASSERT_TRUE(world.stop(*service));
    ASSERT_TRUE(world.matches());
}

// The memory disk keeps 1024 K free: of 1024 K nothing can be used, of 1025 K one.
INSTANTIATE_TEST_SUITE_P(
    Passes, TinyBudgets,
    testing::Values(Budgets{"ThousandsOfSpills", "1", "60", "512000", 40000, 2000},
                    Budgets{"NoMemoryDisk", "1", "100", "1024", 4000, 10},
                    Budgets{"OneKiBOfMemoryDisk", "1", "60", "1025", 4000, 100},
                    Budgets{"MemoryDiskOfAFewFiles", "8", "30", "1040", 12000, 100}),
    testing::PrintToStringParamName());

TEST(Passes, OfTwoAccountsWithOneDirectoryNameTheSecondIsLeftOut) {
    ServiceWorld world;
    world.generate(smallWorld(2000));
    worldgen::writeFile(worldgen::accountFilePath(world.dir().path()),
                        worldgen::accountFileBytes({"\\alice", "\\group\\alice", "\\bob"}, false));
    worldgen::DatFile()
        .add(worldgen::Block().visit("never.example", 1))
        .write(world.node("group/alice", 5, 20121230), 0);
    const auto service = world.start();
    ASSERT_TRUE(service->waitForPause()) << service->tail();
    const Lines errors = errorLines(*service);
    EXPECT_FALSE(errors.empty());
    EXPECT_EQ(countLines(errors, "/group/alice"), static_cast<int>(errors.size()));
    ASSERT_TRUE(world.stop(*service));
    ASSERT_TRUE(world.matches());
}

} // namespace
} // namespace kestrine::test
