#include "frame/configuration.h"
#include "frame/util.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using Tree = std::map<std::string, std::string>;

// What the start-up check makes of a directory after a kill: half-written names go, and a backup
// without its file is brought back.
std::string contentAfterCheck(const Tree& tree) {
    const auto formal = tree.find("d");
    const auto backup = tree.find("d_backup");
    return formal != tree.end() ? formal->second : backup != tree.end() ? backup->second : "none";
}

struct Before {
    bool destination;
    bool backup;
};

void make(const test::TempDir& dir, const Before& before) {
    dir.write("d.temp", "new");
    if (before.destination) {
        dir.write("d", "old");
    }
    if (before.backup) {
        dir.write("d_backup", "older");
    }
}

constexpr Before g_everyBefore[] = {{false, false}, {false, true}, {true, false}, {true, true}};

TEST(ReplaceFile, KeepsTheReplacedFileAsBackup) {
    for (const Before& before : g_everyBefore) {
        const test::TempDir dir;
        make(dir, before);
        EXPECT_EQ(Util::replaceFile(dir / "d.temp", dir / "d"), 0);
        const Tree replaced = {{"d", "new"}, {"d_backup", "old"}};
        EXPECT_EQ(dir.tree(), before.destination ? replaced : (Tree{{"d", "new"}}));
    }
    EXPECT_EQ(Util::replaceFile("", "d"), -1);
    EXPECT_EQ(Util::replaceFile("d.temp", ""), -1);
}

TEST(ReplaceFile, EveryStopLeavesAStateThatHeals) {
    using Mode = test::FailingPlatform::Mode;
    for (const Before& before : g_everyBefore) {
        const std::string old = before.destination ? "old" : before.backup ? "older" : "none";
        for (int n = 1;; ++n) {
            bool reached = false;
            for (const Mode mode : {Mode::Once, Mode::FromThenOn}) {
                const test::TempDir dir;
                make(dir, before);
                test::FailingPlatform failing(n, mode);
                const test::ScopedPlatform scope(failing);
                const int result = Util::replaceFile(dir / "d.temp", dir / "d");
                reached = failing.failed();
                EXPECT_EQ(result, reached ? -1 : 0);
                const Tree tree = dir.tree();
                EXPECT_TRUE(tree.contains("d") || !tree.contains("d_backup") ||
                            !tree.contains("d.temp") || n == 1)
                    << n;
                const std::string content = contentAfterCheck(tree);
                EXPECT_TRUE(content == "new" || content == old) << n << content;
            }
            if (!reached) {
                EXPECT_GE(n, 4); // three changes at least
                break;
            }
        }
    }
}

TEST(ReplaceFile, ReportsTheStepThatFailed) {
    const char* const messages[] = {"E:Util::replaceFile ", " remove fail, errno 5\n", " to ",
                                    " to ", " sync directory "};
    for (int n = 1; n <= 5; ++n) {
        const test::TempDir dir;
        make(dir, {true, true});
        test::FailingPlatform failing(n, test::FailingPlatform::Mode::Once);
        const test::ScopedPlatform scope(failing);
        testing::internal::CaptureStdout();
        EXPECT_EQ(Util::replaceFile(dir / "d.temp", dir / "d"), -1);
        const std::string console = testing::internal::GetCapturedStdout();
        EXPECT_NE(console.find(messages[n - 1]), std::string::npos) << console;
        EXPECT_NE(console.find(", errno 5\n"), std::string::npos) << console;
    }
}

TEST(RemoveBrokenFile, BringsTheBackupBack) {
    const test::TempDir dir;
    dir.write("d", "broken");
    EXPECT_EQ(Util::removeBrokenFile(dir / "d"), 0);
    EXPECT_TRUE(dir.tree().empty());
    for (const bool stillThere : {true, false}) { // it may have been set aside before
        dir.write("d_backup", "good");
        if (stillThere) {
            dir.write("d", "broken");
        }
        EXPECT_EQ(Util::removeBrokenFile(dir / "d"), 0);
        EXPECT_EQ(dir.tree(), (Tree{{"d", "good"}}));
    }
    for (int n = 1; n <= 3; ++n) {
        dir.write("d", "broken");
        dir.write("d_backup", "good");
        test::FailingPlatform failing(n, test::FailingPlatform::Mode::Once);
        const test::ScopedPlatform scope(failing);
        EXPECT_EQ(Util::removeBrokenFile(dir / "d"), -1);
        EXPECT_EQ(contentAfterCheck(dir.tree()), n == 1 ? "broken" : "good");
    }
}

TEST(DeleteTopLists, LeavesTheWholeSetOrNone) {
    bool stopped = true;
    for (int n = 1; stopped; ++n) {
        const test::TempDir dir;
        for (const char* name : {"topn/all.top", "topn/1.top", "topn.temp.temp/1.top"}) {
            dir.write(name);
        }
        test::FailingPlatform failing(n, test::FailingPlatform::Mode::FromThenOn);
        const test::ScopedPlatform scope(failing);
        const int result = Util::deleteTopLists(dir.path());
        stopped = failing.failed();
        EXPECT_EQ(result, stopped ? -1 : 0);
        EXPECT_EQ(dir.has("topn/all.top"), dir.has("topn"));
        EXPECT_EQ(dir.has("topn/1.top"), dir.has("topn"));
        EXPECT_EQ(dir.tree().empty(), !stopped);
    }
    const test::TempDir dir; // and goes with the file that the lists were of
    dir.write("d_backup", "good");
    dir.write("topn/all.top");
    EXPECT_EQ(Util::removeBrokenFile(dir / "d"), 0);
    EXPECT_EQ(dir.tree(), (Tree{{"d", "good"}}));
}

TEST(DumpBrokenFile, NeverCollides) {
    const test::TempDir dir;
    test::FakeClockPlatform clock;
    clock.seconds = 1331600000;
    const test::ScopedPlatform scope(clock);
    const std::string root = dir.makeDirs("stat");
    const std::string memory = dir.makeDirs("mem");
    const auto dump = [&](const std::string& name, const std::string& content) {
        return Util::dumpBrokenFile(dir.write(name, content), root, memory);
    };
    EXPECT_EQ(dump("stat/a/20120313/daycrcsort", "one"), 0);
    EXPECT_EQ(dump("stat/a/20120313/daycrcsort", "two"), 0);
    EXPECT_EQ(dump("stat/b/20120313/daycrcsort", "three"), 0);
    EXPECT_EQ(dump("stat/a/week20120226_20120303/weekcrcsort", "week"), 0);
    EXPECT_EQ(dump("mem/a/20120313/7.temp", "spill"), 0);
    Tree files = dir.tree();
    std::erase_if(files, [](const auto& entry) { return entry.first.ends_with('/'); });
    EXPECT_EQ(files, (Tree{{"stat/debug/20120313/1331600000_daycrcsort", "one"},
                           {"stat/debug/20120313/1331600001_daycrcsort", "two"},
                           {"stat/debug/20120313/1331600002_daycrcsort", "three"},
                           {"stat/debug/week20120226_20120303/1331600000_weekcrcsort", "week"},
                           {"mem/debug/20120313/1331600000_7.temp", "spill"}}));

    EXPECT_EQ(dump("elsewhere/20120313/x", ""), -1);
    EXPECT_EQ(dump("statistics/20120313/x", ""), -1);
    EXPECT_EQ(Util::dumpBrokenFile(dir / "stat/a/20120313/missing", root, memory), -1);
    EXPECT_EQ(Util::dumpBrokenFile(dir / "stat/a/x", "", ""), -1);
}

class RefusingMove : public test::FakeClockPlatform {
public:
    int move(const std::string& given, const std::string&, const std::string&) override {
        command = given;
        errno = EACCES;
        return 1;
    }
    std::string command;
};

TEST(DumpBrokenFile, CommandTextAndItsFailure) {
    const test::TempDir dir;
    RefusingMove machine;
    machine.seconds = 7;
    const test::ScopedPlatform scope(machine);
    const std::string path = dir.write("a/20120313/daycrcsort", "x");
    testing::internal::CaptureStdout();
    EXPECT_EQ(Util::dumpBrokenFile(path, dir.path(), ""), -1);
    const std::string console = testing::internal::GetCapturedStdout();
    std::string command = "move \"" + path + "\" \"" + (dir / "debug/20120313/7_daycrcsort\"");
    Util::replaceChar(command, '/', '\\');
    EXPECT_EQ(machine.command, command);
    EXPECT_NE(console.find(" command " + command + "\n"), std::string::npos) << console;
    EXPECT_NE(console.find(" system " + command + " fail, errno 13\n"), std::string::npos);
    EXPECT_TRUE(dir.has("a/20120313/daycrcsort"));
}

TEST(DumpBrokenFile, UsesTheConfiguredRoots) {
    const test::TempDir dir;
    Configuration::resetInstance();
    Configuration* configuration = nullptr;
    ASSERT_EQ(Configuration::getInstance(&configuration), 0);
    configuration->setUrlStatRoot(dir / "stat");
    configuration->setMemoryDiskPath(dir / "mem");
    EXPECT_EQ(Util::dumpBrokenFile(dir.write("mem/a/20120313/1.temp")), 0);
    EXPECT_TRUE(dir.has("mem/debug/20120313/"));
    EXPECT_EQ(Util::dumpBrokenFile(dir.write("x/1.temp")), -1);
    Configuration::resetInstance();
}

} // namespace
} // namespace kestrine
