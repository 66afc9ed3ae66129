#include "frame/run_flag.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"
#include "tree/directories.h"
#include "tree/free_space.h"
#include "tree/listing.h"
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

TEST(DeleteDir, RemovesEverythingBelowAndFollowsNoLink) {
    bool failed = true;
    for (int n = 1; failed; ++n) {
        const TempDir dir;
        for (const char* name : {"top/a", "top/.d/x", "top/d/y", "kept/file"}) {
            dir.write(name);
        }
        std::error_code noLinks;
        std::filesystem::create_directory_symlink(dir / "kept", dir / "top/link", noLinks);
        if (!noLinks) { // also when it is itself what is to be deleted
            std::filesystem::create_directory_symlink(dir / "kept", dir / "link");
            EXPECT_TRUE(Util::deleteDir(dir / "link/") == 0 && !dir.has("link"));
        }
        int seen = 0; // a walk passes over what a deletion must see
        EXPECT_EQ(Util::tranverse(dir / "top", [&](auto&, uint32_t) { return ++seen * 0; }), 0);
        EXPECT_EQ(seen, noLinks ? 2 : 3);
        EXPECT_EQ(Util::tranverse(dir / "top", [&](auto&, uint32_t) { return 1; }), -1);
        FailingPlatform failing(n, Mode::Once);
        const ScopedPlatform scope(failing);
        EXPECT_EQ(Util::deleteDir(dir / "kept/file"), -1);
        EXPECT_EQ(Util::deleteDir(dir / "missing"), -1);
        const int result = Util::deleteDir(dir / "top/");
        failed = failing.failed();
        EXPECT_EQ(result, dir.has("top") ? -1 : 0);
        EXPECT_TRUE(dir.has("kept/file") && (failed || (dir.tree().size() == 2 && n >= 6)));
    }
}

TEST(Listing, DatesAndNewDayFilesAscend) {
    const TempDir dir;
    for (const char* name :
         {"20120313/12.daycrcsortnew", "20120313/3.daycrcsortnew", "20120313/5.daycrcsortnew.temp",
          "20120313/xdaycrcsortnew", "20120313/4.daycrcsortnew/directory",
          "20111231/1.daycrcsortnew", "20000000/x", "2012031a/x", "20121399/x", "20120314"}) {
        dir.write(std::string("new/") + name);
    }
    Paths paths;
    EXPECT_EQ(Util::getDateInNewDirectory(dir.path(), paths), 0);
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "new/20120313", paths), 0); // appended
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "missing", paths), 0);
    EXPECT_EQ(paths,
              (Paths{dir / "new/20111231", dir / "new/20120313", dir / "new/20121399",
                     dir / "new/20120313/3.daycrcsortnew", dir / "new/20120313/12.daycrcsortnew"}));
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

TEST(RemoveBrokenFile, BringsTheBackupBackWithoutTopLists) {
    for (int n = 1; n <= 16; ++n) {
        const TempDir dir;
        dir.write("d", "broken");
        dir.write("d_backup", "good");
        dir.write("topn/all.top");
        dir.write("topn/1.top");
        FailingPlatform failing((n + 1) / 2, n % 2 == 0 ? Mode::Once : Mode::FromThenOn);
        const ScopedPlatform scope(failing);
        const int result = Util::removeBrokenFile(dir / "d");
        EXPECT_EQ(result, failing.failed() ? -1 : 0);
        const Tree tree = dir.tree();
        EXPECT_EQ(contentAfterCheck(tree), n <= 2 ? "broken" : "good");
        EXPECT_EQ(tree.contains("topn/all.top"), dir.has("topn/1.top")); // the whole set or none
        EXPECT_TRUE(failing.failed() || tree == (Tree{{"d", "good"}}));
    }
    const TempDir dir; // set aside before, and no backup
    EXPECT_EQ(Util::removeBrokenFile(dir / "d"), 0);
}

TEST(DumpBrokenFile, NeverCollides) {
    const TempDir dir;
    test::FakeClockPlatform clock;
    clock.seconds = 1331600000;
    const std::string cases[][2] = {
        {"stat/a/20120313/daycrcsort", "stat/debug/20120313/1331600000_daycrcsort"},
        {"stat/b/20120313/daycrcsort", "stat/debug/20120313/1331600001_daycrcsort"},
        {"stat/a/20120313_kept/daycrcsort", "stat/debug/20120313/1331600002_daycrcsort"},
        {"stat/a/week20120226_20120303/weekcrcsort",
         "stat/debug/week20120226_20120303/1331600000_weekcrcsort"},
        {"mem/a/20120313/7.temp", "mem/debug/20120313/1331600000_7.temp"}};
    for (const auto& [name, dump] : cases) {
        const std::string path = dir.write(name, name);
        for (int n = 1; dir.has(name); ++n) { // a refused one leaves the file
            FailingPlatform failing(n, Mode::Once, clock);
            const ScopedPlatform scope(failing);
            const int result = Util::dumpBrokenFile(path, dir / "stat", dir / "mem");
            EXPECT_EQ(result, failing.failed() ? -1 : 0);
            EXPECT_EQ(dir.has(name), failing.failed());
        }
    }
    for (const auto& [name, dump] : cases) {
        EXPECT_EQ(dir.read(dump), name); // all of them are kept
    }
    EXPECT_EQ(Util::dumpBrokenFile(dir.write("x/1.temp"), dir / "stat", dir / "mem"), -1);
    struct Unseen : test::ForwardingPlatform { // as where a directory may not be looked into
        bool exists(const std::string&) override { return true; }
    } unseen;
    const ScopedPlatform scope(unseen);
    EXPECT_EQ(Util::dumpBrokenFile(dir.write("stat/a/20120313/x"), dir / "stat", dir / "mem"), -1);
}

TEST(Space, IsCountedInWholeMebibytesAndAwaited) {
    constexpr uint64_t mebibyte = 1048576;
    test::FakeClockPlatform machine;
    const ScopedPlatform scope(machine);
    g_isRunning = 1;
    // Free at first and after a wait, and how long that takes.
    for (const auto& [before, after, slept] :
         {std::tuple(uint64_t{1} << 62, uint64_t{0}, 0U),
          {5121 * mebibyte - 1, 5121 * mebibyte, 1200000U}}) { // the minimum is too little
        machine.slept = 0;
        machine.freeBytes = before;
        machine.onSleep = [&, then = after] { machine.freeBytes = then; };
        EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
        EXPECT_EQ(machine.slept, slept); // at the next look only
    }
    machine.freeBytes = 0;
    machine.onSleep = [] { g_isRunning = 0; }; // a stop ends the wait
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(machine.slept, 1200500U);
    g_isRunning = 1;
}

} // namespace
} // namespace kestrine
