// Damaged and lost statistics files before a start of the real program: at most a few starts later
// the totals are exact again, and what was damaged can be looked at.
#include "service_world.h"

#include "support/damages.h"
#include "worldgen/install.h"

namespace kestrine::test {
namespace {

// Dates 20121230 and 20121231: one week, one month.
const std::string g_day = "20121230/daycrcsort";
const std::string g_week = "week20121230_20130105/weekcrcsort";
const std::string g_month = "mon20121201_20121231/moncrcsort";

TEST(DamagedStatistics, AreMadeExactAgain) {
    struct Case {
        std::vector<std::pair<std::string, void (*)(const std::string&)>> harms;
        std::vector<std::string> setAside;
        bool newLogs = true; // arrive between damage and restart
    };
    const std::string newDay = "20121230/2.daycrcsortnew";
    const Case cases[] = {
        // The new-day file that was kept waits beyond a gap then.
        {{{g_day, truncate}, {g_day + "_backup", flipBlock}, {g_week, lose}},
         {g_day, g_day, newDay}},
        {{{g_month, flipBlock}, {"new/" + newDay, flipStatus}}, {g_month, newDay}},
        {{{g_day, flipStatus}, {"20121231/topn", lose}, {g_week + ".temp.temp", litter}},
         {g_day},
         false},
    };
    ServiceWorld world;
    world.generate(tinyWorld(3000, 20121230));
    ASSERT_TRUE(world.onePass());
    world.append(tinyWorld(1500));
    ASSERT_TRUE(world.onePass());
    worldgen::writeFile(world.programDir() + "/do_not_delete_daycrcsortnew", "");
    world.append(tinyWorld(1000));
    ASSERT_TRUE(world.onePass());
    world.save();
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        for (const auto& [path, apply] : c.harms) {
            apply(world.statRoot() + "/alice/" + path);
        }
        if (c.newLogs) {
            world.append(tinyWorld(1500));
        }
        // Until a run gets through a pass; that one is killed, which is quicker than a stop.
        bool passed = false;
        for (int starts = 0; starts < 4 && !passed; ++starts) {
            const auto service = world.start();
            passed = service->waitForPause();
            service->kill();
            EXPECT_EQ(service->wait() == -1 || passed, true) << service->tail();
        }
        ASSERT_TRUE(passed);
        EXPECT_TRUE(world.matches(true));
        EXPECT_THAT(world.setAside(), testing::IsSupersetOf(c.setAside));
        world.restore();
    }
}

} // namespace
} // namespace kestrine::test
