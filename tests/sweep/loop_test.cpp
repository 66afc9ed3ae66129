// The loop around the passes, over hours of a clock that nobody waits for.
#include "sim_world.h"

#include "frame/run_flag.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine::test {
namespace {

constexpr const char* g_accountFile = "/w/install/ml/config/syncaccount.dat";

TEST(Loop, WaitsForAccountsLooksEveryHourAndPauses) {
    worldgen::WorldSettings settings;
    settings.visits = 60;
    settings.hosts = 10;
    settings.accounts = 2;
    settings.devices = 1;
    settings.firstDate = 20131201;
    settings.days = 1;
    settings.filesPerNode = 1;
    settings.longNodeFiles = 0;
    settings.blockBytes = 16384;
    settings.threads = 1;
    SimWorld world(settings, 1);
    world.configure("sleepTime", "1100");
    const auto both = world.disk.files.at(g_accountFile);
    const std::string one = worldgen::accountFileBytes({"\\alice"}, false);
    world.disk.files.erase(g_accountFile);
    const std::string ours = SimWorld::g_statRoot;
    const auto put = [&world](const std::string& path) {
        world.disk.directories.insert(path.substr(0, path.rfind('/')));
        world.disk.files[path] = {1};
    };

    uint64_t hour = 0; // at which the first pass began, in milliseconds
    Plan plan;
    plan.onSleep = [&](uint64_t slept) {
        if (world.lines("") == 0) {
            g_isRunning = 0;
            return;
        }
        const size_t waits = world.lines("account size is 0");
        if (waits == 2 && hour == 0) { // the first and the sixtieth look
            EXPECT_EQ(slept, 60U * 60000 + 500);
            world.disk.files[g_accountFile] = {one.begin(), one.end()};
            hour = slept + 60000 - 500;
        }
        if (hour == 0 || slept <= hour) {
            return;
        }
        const uint64_t elapsed = slept - hour;
        if (elapsed == 500) { // the first pause
            EXPECT_FALSE(world.disk.exists(ours + "/bob"));
            put(ours + "/_delete_a/x");
            put(ours + "/alice/_delete_b/y");
            world.disk.directories.insert({ours + "/bob", ours + "/bob/new"});
            put(ours + "/bob/new/20131201/0.daycrcsortnew.temp"); // the check removes it
            world.disk.files[g_accountFile] = both;
        }
        // The fourth pass is the first one after an hour.
        const bool looked = elapsed > 4 * 1100500;
        EXPECT_EQ(world.disk.exists(ours + "/_delete_a"), elapsed >= 500 && !looked) << elapsed;
        EXPECT_EQ(world.lines("check account change"), looked ? 2U : 1U) << elapsed;
        if (elapsed > 4 * 1100500 + 1000) {
            g_isRunning = 0;
        }
    };
    EXPECT_EQ(world.run(plan), End::Normal);
    if (world.lines("") == 0) {
        GTEST_SKIP() << "another test of this process has switched the lines off";
    }
    EXPECT_EQ(world.wrong(), "");
    EXPECT_FALSE(world.disk.exists(ours + "/alice/_delete_b"));
    EXPECT_EQ(world.lines(" 0s elapsed, wait to find new data"), 5U);
    EXPECT_EQ(world.lines(" 1000s elapsed, wait to find new data"), 4U);
}

} // namespace
} // namespace kestrine::test
