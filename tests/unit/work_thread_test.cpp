#include "frame/install_root.h"
#include "service/directory_guard.h"
#include "service/work_thread.h"
#include "support/stat_tree.h"
#include "support/temp_dir.h"
#include "worldgen/dat_file.h"
#include "worldgen/install.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

// It is deleted with all it holds, however it is written.
TEST(DirectoryGuard, MemoryDiskHoldsNothingElse) {
    const test::TempDir dir;
    const std::string data = dir.makeDirs("data/log_data");
    const std::string stat = dir.makeDirs("stat");
    dir.write("install/ml/kestrine");
    dir.write("data/log_data/alice/devid_1/20120303/A/0/0.dat");
    dir.write("stat/alice/20120303/daycrcsort");
    for (const char* const name :
         {"", "data/", "data/log_data", "stat", "stat/x/..", "mem/../data//log_data", "install",
          "data/log_data/alice/devid_1", "stat/alice/20120303", "install/ml"}) {
        EXPECT_FALSE(mayBeMemoryDisk(dir / name, data, stat)) << name;
    }
    EXPECT_FALSE(mayBeMemoryDisk("", data, stat) || mayBeMemoryDisk("/.", data, stat));
    for (const char* const name : {"mem", "data/log_data/_memdisk", "statx", "stat/x"}) {
        EXPECT_TRUE(mayBeMemoryDisk(dir / name, data, stat)) << name;
    }
    // What a killed service left, and what is found there besides.
    dir.makeDirs("mem/alice");
    dir.write("mem/bob/20121231/0.temp");
    dir.write("mem/debug/20121231/1330732800_7.temp"); // set aside
    dir.write(std::string("mem/") + g_memoryDiskMarker);
    EXPECT_TRUE(mayBeMemoryDisk(dir / "mem", data, stat) && holdsOnlySpillFiles(dir / "mem"));
    for (const char* const other :
         {"mem/file", "mem/bob/file", "mem/bob/20121231/x", "mem/bob/20121231/1.temp/x",
          "mem/bob/20121231/1 list.temp", "mem/bob/2012/file", "mem/.x/y"}) {
        dir.write(other);
        EXPECT_FALSE(mayBeMemoryDisk(dir / "mem", data, stat) || holdsOnlySpillFiles(dir / "mem"))
            << other;
        std::filesystem::remove(dir / other);
        std::error_code notEmpty;
        std::filesystem::remove(std::filesystem::path(dir / other).parent_path(), notEmpty);
    }
    std::error_code none;
    std::filesystem::create_directory_symlink(dir / "install", dir / "link", none);
    std::filesystem::create_directory_symlink(dir / "stat", dir / "mem/bob/20130101", none);
    for (const char* const name : {"link", "link/ml", "mem"}) {
        EXPECT_TRUE(none || !mayBeMemoryDisk(dir / name, data, stat)) << name;
    }
}

TEST(DirectoryGuard, RootAndLengths) {
    const test::TempDir dir;
    const std::string data = dir.makeDirs("data/log_data");
    test::FakeClockPlatform clock;
    clock.executable = dir / "install/ml/kestrine";
    const test::ScopedPlatform scope(clock);
    for (const std::string& root : {dir.path(), dir / "install", dir / "install/ml",
                                    data + "/alice/devid_1", data + "/alice/devid_1/20120303/x"}) {
        EXPECT_FALSE(mayBeUrlStatRoot(root, data)) << root;
    }
    for (const std::string& root : {dir / "stat", data, data + "/_urlstat", data + "/alice"}) {
        EXPECT_TRUE(mayBeUrlStatRoot(root, data)) << root;
    }
    install::nameRoot(dir / "stat/inside");
    EXPECT_FALSE(mayBeUrlStatRoot(dir / "stat", data));
    EXPECT_TRUE(mayBeUrlStatRoot(dir / "stat/inside/x", data));
    install::nameRoot("");
    const auto path = [](size_t length) { return "/" + std::string(length - 1, 'p'); };
    EXPECT_TRUE(leavesRoomForNames(path(190), path(140)));
    EXPECT_FALSE(leavesRoomForNames(path(239), path(140)));
    EXPECT_FALSE(leavesRoomForNames(path(100), path(209)));
}

// Keeps when which lines about the loop were said; its paths are what they seem.
struct Listener : test::ForwardingPlatform {
    explicit Listener(const uint64_t& slept) : m_slept(slept) {}
    std::string said; // seconds and first word
    void writeConsole(std::string_view line, bool) override {
        const std::string text(line.substr(line.find(' ', line.find(' ') + 1) + 1));
        if (text.starts_with("account ") || text.starts_with("deal with account ") ||
            text.find("s elapsed, wait") < 6 || text.find("s elasped, check") < 6) {
            said += std::to_string(m_slept / 1000) + ":" + text.substr(0, text.find(' ')) + " ";
        }
    }
    std::string resolvedPath(const std::string& path) override { return path; }
    std::string held; // the lock file of another instance
    LockResult lockFile(const std::string& path, std::unique_ptr<NamedEvent>&) override {
        return path == held ? LockResult::HeldByAnother : LockResult::Locked;
    }

private:
    const uint64_t& m_slept;
};

using WorkThreadTest = test::StatTree;

// It waits for a first account, and looks once more after more than an hour: what is to be deleted
// goes, and a new account is checked and counted.
TEST_F(WorkThreadTest, LoopsByTheClock) {
    Listener listener(m_clock.slept);
    const test::ScopedPlatform scope(listener);
    const auto put = [&](const std::string& path, const std::string& text) {
        m_disk.files[path] = {text.begin(), text.end()};
    };
    put("config/urlstat.ini", "[urlstat]\nsleepTime=3000\nurlStatRoot=/t/stat\n"
                              "memoryDiskPath=/t/mem\n");
    Configuration::resetInstance();
    m_clock.executable = "/t/ml/kestrine";
    m_clock.ticks = 5;
    put("/t/mysql_path.ini", "[mysql]\nlogdatapath=/t\n");
    const std::string accounts = "/t/ml/config/syncaccount.dat";
    put(accounts, worldgen::accountFileBytes({}, false));
    const std::string marker = "/t/mem/.kestrine-memory-disk";
    const std::string deleted[] = {"/t/stat/_delete_a/x", "/t/stat/acc/_delete_20120101/x"};
    const std::string half = "/t/stat/other/new/20120304/5.daycrcsortnew.temp";
    std::string there; // of these three, in the pause after each pass
    m_clock.onSleep = [&] {
        const uint64_t at = m_clock.slept;
        if (at == 3630000 || at == 4000000) {
            put(accounts, worldgen::accountFileBytes(
                              at < 4000000 ? std::vector<std::string>{"\\acc"}
                                           : std::vector<std::string>{"\\acc", "\\other"},
                              false));
            put(deleted[0], "");
            put(deleted[1], "");
        } else if (at == 3661000 || at == 7000000 || at == 9662000) {
            for (const std::string& path : {deleted[0], deleted[1], half}) {
                there += m_disk.files.contains(path) ? '1' : '0';
            }
            EXPECT_TRUE(m_disk.files.contains(marker) && !m_disk.exists("/t/mem/acc/20120303"));
            put(half, "");
            // The second pass comes after an hour, the third a millisecond later.
            *m_clock.ticks += at == 3661000 ? 599500U : 0U - 3000499U;
            g_isRunning = at == 9662000 ? 0 : 1;
        }
    };
    worldgen::DatFile log;
    put("/t/log_data/other/devid_1/20120303/A/0/0.dat",
        log.add(worldgen::Block().visit("host", 1, 1)).bytes());
    put(marker, "");
    put("/t/mem/acc/20120303/0.temp", "");
    for (const std::string& lock : {std::string("/t/stat/.kestrine.lock"), marker}) {
        listener.held = lock;
        EXPECT_EQ(WorkThread(settings()).init(), -1);
    }
    listener.held.clear();
    WorkThread thread(settings());
    ASSERT_EQ(thread.init(), 0);
    ASSERT_EQ(thread.run(), 0);
    EXPECT_EQ(listener.said,
              "0:account 3600:account 3660:account 3660:3600s 3660:deal 3660:0s 4660:1000s "
              "5660:2000s 6660:3000s 6660:deal 6660:0s 7660:1000s 8660:2000s 9660:3000s 9661:3600s "
              "9661:account 9661:deal 9661:deal 9661:0s ");
    EXPECT_EQ(there, "000111000");
    EXPECT_FALSE(m_disk.exists("/t/mem"));
    EXPECT_TRUE(m_disk.exists("/t/stat/other/20120303/daycrcsort"));
}

} // namespace
} // namespace kestrine
