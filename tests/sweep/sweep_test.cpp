// Every call of the disk as a fault point: the service goes wrong there, goes on or is started
// again, and must end with what the logs hold, having set nothing aside.
#include "sim_world.h"

#include "frame/log.h"
#include "frame/run_flag.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <set>

namespace kestrine::test {
namespace {

using Mode = FailingPlatform::Mode;
using Calls = FailingPlatform::Calls;

class Sweep : public testing::Test {
protected:
    // Two dates between which a week and a month end; a hash map and a memory disk that fill
    // several times in a pass.
    static void SetUpTestSuite() {
        reportErrorsToStderr(); // other lines are not even formatted
        g_world = std::make_unique<SimWorld>(smallLogs(150, 60, 2), 2);
        g_fresh = g_world->save();
        for (const Calls calls : {Calls::Changing, Calls::Reading}) {
            g_world->restore(g_fresh);
            const auto note = [&](int, const char* what) {
                g_names[calls].emplace_back(what);
                // A mebibyte stays free.
                EXPECT_LE(g_world->disk.bytesBelow(SimWorld::g_memoryDisk), 1024U) << what;
            };
            ASSERT_EQ(g_world->run({.calls = calls, .onCall = note}), End::Normal);
            ASSERT_EQ(g_world->wrong(), "");
        }
        ASSERT_GT(g_names[Calls::Changing].size(), 500U);
    }
    static void TearDownTestSuite() { g_world.reset(); }

    static int changes() { return static_cast<int>(g_names[Calls::Changing].size()); }

    // Tries every call of a kind as the point where the run goes wrong.
    static void sweep(Plan plan) {
        Report report(*g_world);
        const auto points = static_cast<int>(g_names[plan.calls].size());
        for (plan.failAt = firstOf(); plan.failAt <= points; plan.failAt += stepOf()) {
            const std::string& name = g_names[plan.calls][static_cast<size_t>(plan.failAt - 1)];
            report.add("call " + std::to_string(plan.failAt) + ", " + name + ", errno " +
                           std::to_string(plan.error),
                       disturbAndRecover(plan));
        }
    }

    static std::string disturbAndRecover(const Plan& plan) {
        g_world->restore(g_fresh);
        const End end = g_world->run(plan);
        if (end == End::Normal && plan.mode == Mode::Once && !g_world->wrong().empty()) {
            return "not made good by the next passes: " + g_world->wrong();
        }
        return recover();
    }

    // What is wrong after the service was started again, undisturbed. It is reported once for all
    // points that leave the same.
    // Lists are made of their file, and may be torn where that is not.
    static std::string recover(bool tornLists = false) {
        g_world->disk.smallRoom.reset();
        g_world->addRound();
        if (!g_settled.insert(g_world->fingerprint()).second) {
            return {}; // this very state was seen, and what follows is the same
        }
        if (!g_world->runs(2)) {
            return "the next start failed";
        }
        // The backup and the temporary of a file that is not there.
        if (g_world->reported("impossible")) {
            return "what cannot be was met";
        }
        std::set<std::string> setAside = g_world->setAside();
        std::erase_if(setAside, [tornLists](const std::string& name) {
            return tornLists && name.ends_with(".top");
        });
        return setAside.empty() ? g_world->wrong() : "set aside: " + *setAside.begin();
    }

    static inline std::unique_ptr<SimWorld> g_world;
    static inline SimWorld::State g_fresh;
    static inline std::set<uint64_t> g_settled;                      // states that were met
    static inline std::map<Calls, std::vector<std::string>> g_names; // of an undisturbed run
};

TEST_F(Sweep, Kill) {
    sweep({.mode = Mode::Kill});
}

// The pass ends in order, wherever the request comes.
TEST_F(Sweep, Stop) {
    Report report(*g_world);
    for (int point = firstOf(); point <= changes(); point += stepOf()) {
        g_world->restore(g_fresh);
        const auto stop = [point](int number, const char*) {
            g_isRunning = number == point ? 0 : g_isRunning.load();
        };
        const End end = g_world->run({.onCall = stop});
        report.add("stopped at change " + std::to_string(point),
                   end == End::Normal ? recover() : "did not end in order");
    }
}

TEST_F(Sweep, KillAndKillInsideTheNextStartUp) {
    Report report(*g_world);
    std::set<uint64_t> seen;
    for (int first = firstOf(); first <= changes(); first += stepOf()) {
        g_world->restore(g_fresh);
        ASSERT_EQ(g_world->run({.failAt = first, .mode = Mode::Kill}), End::Killed);
        if (!seen.insert(g_world->fingerprint()).second) {
            continue;
        }
        const SimWorld::State left = g_world->save();
        End end = End::Killed;
        for (int second = 1; end == End::Killed; ++second) {
            g_world->restore(left);
            end = g_world->run({.failAt = second, .mode = Mode::Kill, .startUpOnly = true});
            report.add("killed at " + std::to_string(first) + " and in the start-up at " +
                           std::to_string(second),
                       end == End::Failed ? "start-up failed" : recover());
        }
    }
}

TEST_F(Sweep, PowerLoss) {
    constexpr int outcomes = 4; // of what may be lost, of each point
    Report report(*g_world);
    for (int point = firstOf(); point <= changes() * outcomes; point += stepOf()) {
        const int change = 1 + (point - 1) % changes();
        g_world->restore(g_fresh);
        g_world->disk.beginLosing();
        ASSERT_EQ(g_world->run({.failAt = change, .mode = Mode::Kill}), End::Killed);
        g_world->disk.losePower(static_cast<uint64_t>(point));
        report.add("before change " + std::to_string(change) + ", seed " + std::to_string(point),
                   recover(true));
    }
}

TEST_F(Sweep, FailOnce) {
    sweep({.error = EIO});
    sweep({.error = EACCES});
    sweep({.error = ENOSPC});
}

TEST_F(Sweep, FailFromThenOn) {
    sweep({.mode = Mode::FromThenOn, .error = EIO});
    sweep({.mode = Mode::FromThenOn, .error = EACCES});
}

TEST_F(Sweep, ShortWrite) {
    sweep({.mode = Mode::ShortWrite, .error = ENOSPC});
}

TEST_F(Sweep, VolumesFill) {
    sweep({.mode = Mode::Full, .error = ENOSPC});
}

// What finds no room on the memory disk goes to disk; and a kill when some spill files lie here and
// others there.
TEST_F(Sweep, MemoryDiskSmallerThanItsSetting) {
    const auto startOver = [](std::optional<uint64_t> room) {
        g_world->restore(g_fresh);
        g_world->configure("memoryDiskSize", "512000");
        g_world->disk.smallDirectory = SimWorld::g_memoryDisk;
        g_world->disk.smallRoom = room;
    };
    uint64_t peak = 0;
    int last = 0;
    startOver({});
    ASSERT_EQ(g_world->run({.onCall =
                                [&](int number, const char*) {
                                    peak = std::max(
                                        peak, g_world->disk.bytesBelow(SimWorld::g_memoryDisk));
                                    last = number;
                                }}),
              End::Normal);
    Report report(*g_world);
    for (uint64_t room = 0; room < peak; room = room * 5 / 4 + 100) {
        startOver(room);
        report.add("room for " + std::to_string(room) + " of " + std::to_string(peak) + " bytes",
                   g_world->run() == End::Normal ? g_world->wrong() : "did not end in order");
    }
    for (int change = firstOf(); change <= last; change += 3 * stepOf()) {
        const auto room = static_cast<uint64_t>(850 + 50 * (change % 8)); // about one file's
        startOver(room);
        (void)g_world->run({.failAt = change, .mode = Mode::Kill});
        report.add("room for " + std::to_string(room) + " bytes, killed at " +
                       std::to_string(change),
                   recover());
    }
}

TEST_F(Sweep, ReadFailsOnce) {
    sweep({.calls = Calls::Reading, .error = EIO});
    sweep({.calls = Calls::Reading, .error = EACCES});
}

TEST_F(Sweep, ReadsFailFromThenOn) {
    sweep({.mode = Mode::FromThenOn, .calls = Calls::Reading, .error = EIO});
    sweep({.mode = Mode::FromThenOn, .calls = Calls::Reading, .error = EMFILE});
}

} // namespace
} // namespace kestrine::test
