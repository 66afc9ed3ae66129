// Disks that are full: a memory disk smaller than its setting says, and a statistics volume that
// fills. What is counted does not change.
#include "sweep_world.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;
using End = SweepWorld::End;

constexpr int g_reference = 1000;

class FullDisk : public testing::Test {
protected:
    static void SetUpTestSuite() {
        g_world = new SweepWorld(150);
        SweepWorld::Run run;
        run.secondRound = false;
        // With a large memory disk: the most that ever lies on it, and the number of changes.
        const std::string peak = g_world->directory(g_reference) + ".peak";
        uint64_t most = 0;
        run.atChange = [&](uint64_t number) {
            most = std::max(most, bytesBelow(g_world->directory(g_reference) + "/mem"));
            std::ofstream(peak) << most << " " << number;
        };
        clear(g_reference);
        ASSERT_EQ(g_world->run(g_reference, run), End::Normal);
        g_wanted = snapshotOf(g_world->urlStatRoot(g_reference));
        std::ifstream(peak) >> g_peak >> g_changes;
    }
    static void TearDownTestSuite() { delete g_world; }

    static uint64_t bytesBelow(const std::string& directory) {
        uint64_t bytes = 0;
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(directory, none)) {
            bytes += entry.is_regular_file() ? entry.file_size() : 0;
        }
        return bytes;
    }
    static void clear(int place) {
        g_world->clear(place);
        g_world->writeSettings(place, {1, 1, 512000});
    }
    // Nothing, or what is wrong with a run that must not mind.
    static std::string runAndCompare(int place, const SweepWorld::Run& run) {
        clear(place);
        if (g_world->run(place, run) != End::Normal) {
            return "did not end in order";
        }
        return difference(g_wanted, snapshotOf(g_world->urlStatRoot(place)));
    }

    // Nothing, or what is wrong after a run that may fail and a start with room for everything.
    static std::string runAndRecover(int place, const SweepWorld::Run& run) {
        clear(place);
        if (g_world->run(place, run) == End::Crashed) {
            return "crashed";
        }
        if (g_world->run(place, {}) != End::Normal) {
            return "the next start failed";
        }
        return difference(g_wanted, snapshotOf(g_world->urlStatRoot(place)));
    }
    static void tryAndReport(uint64_t number,
                             const std::function<std::string(int, uint64_t)>& attempt) {
        for (const std::string& wrong : tryAll(number, [&attempt](int place, uint64_t n) {
                 const std::string result = attempt(place, n);
                 return result.empty() ? result : "case " + std::to_string(n) + ": " + result;
             })) {
            ADD_FAILURE() << wrong;
        }
        std::cout << "tried " << number << " cases\n";
    }

    static SweepWorld* g_world;
    static Snapshot g_wanted;
    static uint64_t g_peak; // bytes on the memory disk
    static uint64_t g_changes;
};

SweepWorld* FullDisk::g_world = nullptr;
Snapshot FullDisk::g_wanted;
uint64_t FullDisk::g_peak = 0;
uint64_t FullDisk::g_changes = 0;

TEST_F(FullDisk, MemoryDiskSmallerThanItsSetting) {
    for (uint64_t room = 0; room < g_peak; room = room * 5 / 4 + 100) {
        SweepWorld::Run run;
        run.secondRound = false;
        run.memoryDiskRoom = room;
        EXPECT_EQ(runAndCompare(0, run), "") << room << " of " << g_peak << " bytes";
    }
}

// A real one, of one page, which a name space of the service's own hides from everybody else.
TEST_F(FullDisk, TmpfsOfOnePage) {
    const auto mountIt = [](const std::string& directory) {
        fs::create_directories(directory);
        return unshare(CLONE_NEWNS) == 0 &&
               mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("memory", directory.c_str(), "tmpfs", 0, "size=4096") == 0;
    };
    const std::string directory = g_world->directory(0) + "/mem";
    const pid_t probe = fork();
    if (probe == 0) {
        std::_Exit(mountIt(g_world->directory(1)) ? 0 : errno);
    }
    int status = 0;
    waitpid(probe, &status, 0);
    if (status != 0) {
        GTEST_SKIP() << "no file system can be mounted here: " << strerror(WEXITSTATUS(status));
    }
    SweepWorld::Run run;
    run.secondRound = false;
    run.prepare = [&] { return mountIt(directory); };
    EXPECT_EQ(runAndCompare(0, run), "");
    EXPECT_TRUE(fs::is_empty(directory)); // it was written to the file system over it
}

// Killed when some spill files find room and larger ones go to disk: what a date has on disk in
// parts must not get a final name in parts.
TEST_F(FullDisk, KilledWithRoomForOneSpillFile) {
    constexpr uint64_t rooms = 8; // from less than a usual file on, in bytes
    constexpr uint64_t step = 6;  // changes between two kills
    tryAndReport(g_changes / step * rooms, [](int place, uint64_t n) -> std::string {
        SweepWorld::Run run;
        run.plan = {Fault::Kill, 1 + n / rooms * step};
        run.secondRound = false;
        run.memoryDiskRoom = 850 + 50 * (n % rooms);
        return runAndRecover(place, run);
    });
}

// From any change on nothing finds room any more, on either disk. The service may end; with room
// again, the next start makes it good.
TEST_F(FullDisk, StatisticsVolumeFills) {
    tryAndReport(g_changes, [](int place, uint64_t n) {
        return runAndRecover(place, {{Fault::Full, n + 1, ENOSPC}, false});
    });
}

} // namespace
} // namespace kestrine::test
