#include "frame/run_flag.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"
#include "tree/directories.h"
#include "tree/free_space.h"
#include "tree/quarantine.h"
#include "tree/replace.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

using test::FailingPlatform;
using test::ScopedPlatform;
using test::TempDir;
using Mode = FailingPlatform::Mode;
using Paths = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;

// A machine on which nothing exists but what is made.
class BareMachine : public test::ForwardingPlatform {
public:
    Paths calls;
    bool exists(const std::string& path) override {
        return std::find(calls.begin(), calls.end(), "make " + path) != calls.end();
    }
    int makeDirectory(const std::string& path) override { return keep("make " + path); }
    int syncDirectory(const std::string& path) override { return keep("sync " + path); }

private:
    int keep(const std::string& call) {
        calls.push_back(call);
        return 0;
    }
};

TEST(CreateDir, MakesWhatEndsBeforeASlash) {
    const std::string longest(258, 'l');
    const std::pair<std::string, Paths> cases[] = {
        {"/a/b/c", {"make /a", "sync /", "make /a/b", "sync /a"}},
        {"x//y/", {"make x", "sync .", "make x//y", "sync x"}},
        {"D:/x/", {"make D:/x", "sync D:"}}, // drives are not made, nor are servers
        {"//server/share/", {"make //server/share", "sync //server"}},
        {longest + "/m/", {"make " + longest, "sync ."}}}; // 259 characters are taken
    for (const auto& [path, calls] : cases) {
        for (size_t n = 1; n <= calls.size() + 1; ++n) { // the last round fails nowhere
            BareMachine machine;
            FailingPlatform failing(static_cast<int>(n), Mode::Once, machine);
            const ScopedPlatform scope(failing);
            EXPECT_EQ(Util::createDir(path), n <= calls.size() ? -1 : 0);
            EXPECT_EQ(machine.calls, Paths(calls.begin(), calls.begin() + std::ptrdiff_t(n) - 1));
            EXPECT_EQ(Util::createDir(path, Durable::No), 0); // over what is there
            const ScopedPlatform next(machine);
            const size_t before = machine.calls.size();
            EXPECT_EQ(Util::createDir(path), 0); // a kill may have come before the last one's sync
            EXPECT_EQ(machine.calls.size(), before + 1);
            EXPECT_EQ(machine.calls.back(), calls.back());
        }
    }
}

// Another process makes the same ones at the same moment, and may not have synced them yet.
TEST(CreateDir, GoesOnWhereAnotherWasFaster) {
    struct Rival : BareMachine {
        int makeDirectory(const std::string& path) override {
            (void)BareMachine::makeDirectory(path);
            errno = EEXIST;
            return -1;
        }
    } rival;
    const Paths all = {"make /a", "sync /", "make /a/b", "sync /a"};
    {
        const ScopedPlatform scope(rival);
        EXPECT_EQ(Util::createDir("/a/b/c"), 0);
        EXPECT_EQ(rival.calls, all);
    }
    BareMachine machine;
    const ScopedPlatform scope(machine);
    EXPECT_EQ(Util::createDir("/a/", Durable::No), 0);
    EXPECT_EQ(Util::createDir("/a/b/c"), 0);
    EXPECT_EQ(machine.calls, all);
}

TEST(DeleteDir, RemovesEverythingBelowAndFollowsNoLink) {
    const TempDir dir;
    for (const char* name : {"top/a", "top/.d/x", "top/d/y", "kept/file"}) {
        dir.write(name);
    }
    std::error_code noLinks;
    std::filesystem::create_directory_symlink(dir / "kept", dir / "top/link", noLinks);
    std::filesystem::create_directory_symlink(dir / "kept", dir / "link", noLinks);
    EXPECT_TRUE(noLinks || Util::deleteDir(dir / "link/") == 0);
    EXPECT_EQ(Util::deleteDir(dir / "top/"), 0);
    EXPECT_EQ(dir.tree(), (Tree{{"kept/", ""}, {"kept/file", ""}}));
    EXPECT_EQ(Util::deleteDir(dir / "kept/file"), -1);
    EXPECT_EQ(Util::deleteDir(dir / "missing"), -1);
}

// What the start-up check makes of a directory after a kill: half-written names go, and a backup
// without its file is brought back.
std::string contentAfterCheck(const Tree& tree) {
    const auto formal = tree.find("d");
    const auto backup = tree.find("d_backup");
    return formal != tree.end() ? formal->second : backup != tree.end() ? backup->second : "none";
}

TEST(ReplaceFile, KeepsABackupAndEveryStopLeavesAStateThatHeals) {
    const Tree befores[] = {
        {}, {{"d_backup", "older"}}, {{"d", "old"}}, {{"d", "old"}, {"d_backup", "older"}}};
    for (const Tree& before : befores) {
        for (int n = 1; n <= 12; ++n) { // the longest case makes five changes
            const TempDir dir;
            dir.write("d.temp", "new");
            for (const auto& [name, content] : before) {
                dir.write(name, content);
            }
            FailingPlatform failing((n + 1) / 2, n % 2 == 0 ? Mode::Once : Mode::FromThenOn);
            const ScopedPlatform scope(failing);
            const int result = Util::replaceFile(dir / "d.temp", dir / "d");
            EXPECT_EQ(result, failing.failed() ? -1 : 0);
            Tree tree = dir.tree();
            const std::string content = contentAfterCheck(tree);
            if (failing.failed()) {
                EXPECT_TRUE(content == "new" || content == contentAfterCheck(before)) << n;
                // Backup and source never meet without the file.
                EXPECT_TRUE(n <= 2 || tree.contains("d") || !tree.contains("d_backup") ||
                            !tree.contains("d.temp"));
            } else {
                EXPECT_TRUE(content == "new" && tree.size() == (before.contains("d") ? 2 : 1));
                EXPECT_TRUE(!before.contains("d") || tree["d_backup"] == "old");
                EXPECT_GE(failing.calls(), 3); // two renames and a sync at least
            }
        }
    }
}

TEST(DumpBrokenFile, NeverCollides) {
    const TempDir dir;
    test::FakeClockPlatform clock;
    const ScopedPlatform scope(clock);
    clock.seconds = 1331600000;
    const std::string cases[][2] = {
        {"stat/a/20120313/daycrcsort", "stat/debug/20120313/1331600000_daycrcsort"},
        {"stat/b/20120313/daycrcsort", "stat/debug/20120313/1331600001_daycrcsort"},
        {"stat/a/20120313_kept/daycrcsort", "stat/debug/20120313/1331600002_daycrcsort"},
        {"stat/c/20120313/daycrcsort", "stat/debug/20120313/1331600004_daycrcsort"},
        {"mem/a/20120313/7.temp", "mem/debug/20120313/1331600000_7.temp"}};
    // Another process is about to use that one.
    dir.makeDirs("stat/debug/20120313/1331600003_daycrcsort.temp");
    for (const auto& [name, dump] : cases) {
        EXPECT_EQ(Util::dumpBrokenFile(dir.write(name), dir / "stat", dir / "mem"), 0);
        EXPECT_TRUE(dir.has(dump) && !dir.has(name)) << dump;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "stat/debug/20120313"), {}),
              5);
    EXPECT_EQ(Util::dumpBrokenFile(dir.write("x/1.temp"), dir / "stat", dir / "mem"), -1);
}

TEST(Space, IsCountedInWholeMebibytesAndAwaited) {
    constexpr uint64_t mebibyte = 1048576;
    test::FakeClockPlatform machine;
    const ScopedPlatform scope(machine);
    g_isRunning = 1;
    machine.freeBytes = 5121 * mebibyte - 1; // the minimum is too little
    machine.onSleep = [&] { machine.freeBytes = 5121 * mebibyte; };
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(machine.slept, 1200000U); // until the next look
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(machine.slept, 1200000U);
    machine.freeBytes = 0;
    machine.onSleep = [] { g_isRunning = 0; }; // a stop ends the wait
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(machine.slept, 1200500U);
    g_isRunning = 1;
}

} // namespace
} // namespace kestrine
