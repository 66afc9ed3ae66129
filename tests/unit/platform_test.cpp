// The same tests on every system; where systems must differ, the test asks which one it runs on.
#include "frame/bytes.h"
#include "platform/platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <numeric>
#include <set>
#include <thread>

namespace kestrine {
namespace {

namespace fs = std::filesystem;
using Tree = std::map<std::string, std::string>;

constexpr bool g_isWindows = fs::path::preferred_separator == '\\';

std::string readUpTo(File& file, size_t size) {
    std::vector<uint8_t> buffer(size);
    const int64_t got = file.read(buffer);
    return got < 0 ? "failed" : std::string(buffer.begin(), buffer.begin() + got);
}

class PlatformTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return m_dir / name; }
    std::string make(const std::string& name, const std::string& content = "x") const {
        return m_dir.write(name, content);
    }
    int move(const std::string& from, const std::string& to) {
        std::string command = "move \"" + from + "\" \"" + to + "\"";
        std::replace(command.begin(), command.end(), '/', '\\');
        return p.move(command, from, to);
    }
    int removeTree(const std::string& top) {
        return p.removeTree("rmdir /S /Q \"" + top + "\"", top);
    }
    // Sorted names, a directory with '/', a link with '@' behind; "step:lastError" on failure.
    std::string found(const std::string& pattern) {
        std::vector<FindEntry> entries;
        FindStep step = FindStep::Close;
        if (p.find(path(pattern), entries, step) != 0) {
            return std::to_string(static_cast<int>(step)) + ":" + std::to_string(p.lastError());
        }
        std::set<std::string> names;
        for (const auto& [name, attributes] : entries) {
            names.insert(name + ((attributes & g_attributeDirectory) != 0 ? "/" : "") +
                         ((attributes & g_attributeLink) != 0 ? "@ " : " "));
        }
        return std::accumulate(names.begin(), names.end(), std::string());
    }

    Platform& p = systemPlatform();
    test::TempDir m_dir;
};

TEST_F(PlatformTest, EachModeOpensWhatItMay) {
    // Whether it makes a file, and what writing "ab" makes of "12345".
    const std::tuple<OpenMode, bool, std::string> cases[] = {
        {OpenMode::Read, false, "12345"},
        {OpenMode::ReadExisting, false, "ab345"},
        {OpenMode::Truncate, true, "ab"},
        {OpenMode::Append, true, "12345ab"}};
    for (const auto& [mode, makes, after] : cases) {
        EXPECT_EQ(p.open(path("missing"), mode) != nullptr, makes);
        EXPECT_EQ(fs::remove(path("missing")), makes);
        const auto file = p.open(make("file", "12345"), mode);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->tell(), 0);
        EXPECT_EQ(file->write(asBytes("ab")), mode == OpenMode::Read ? -1 : 2);
        EXPECT_EQ(m_dir.read("file"), after) << "unbuffered";
        EXPECT_EQ(file->size(), static_cast<int64_t>(after.size()));
        ASSERT_EQ(file->seek(1), 0);
        EXPECT_EQ(readUpTo(*file, 100), after.substr(1));
        EXPECT_EQ(readUpTo(*file, 1), "") << "at the end";
        EXPECT_EQ(file->seek(int64_t{5} << 30), 0);
        EXPECT_EQ(file->tell(), int64_t{5} << 30);
        EXPECT_EQ(file->seek(-1), -1);
        if (mode == OpenMode::Append) { // to the end, wherever the others are
            EXPECT_EQ(p.open(path("file"), mode)->write(asBytes("cd")), 2);
            EXPECT_EQ(file->seek(0), 0);
            EXPECT_EQ(file->write(asBytes("ef")), 2);
            EXPECT_EQ(m_dir.read("file"), "12345abcdef");
        }
        EXPECT_EQ(file->close() + file->close(), 0);
        EXPECT_EQ(file->seek(0), -1);
    }
    const auto full = p.open("/dev/full", OpenMode::ReadExisting);
    EXPECT_TRUE(!full || full->write(asBytes("x")) == -1);
}

TEST_F(PlatformTest, FailuresLeaveErrnoAndTheSystemsCode) {
    const std::string file = make("file");
    const std::string dir = m_dir.makeDirs("dir");
    const std::string full = m_dir.makeDirs("full/x").substr(0, dir.size() + 1);
    const std::string no = path("no");
    // What fails, the errno of Linux and of Windows, and the code of Windows.
    const std::tuple<std::function<int()>, int, int, uint32_t> cases[] = {
        {[&] { return p.open(no, OpenMode::Read) ? 0 : -1; }, ENOENT, ENOENT, 2},
        {[&] { return p.open(dir, OpenMode::Read) ? 0 : -1; }, EISDIR, EACCES, 5},
        {[&] { return p.removeFile(dir); }, EISDIR, EACCES, 5},
        {[&] { return p.removeDirectory(full); }, ENOTEMPTY, ENOTEMPTY, 145},
        {[&] { return p.makeDirectory(dir); }, EEXIST, EEXIST, 183},
        {[&] { return p.makeDirectory(no + "/x"); }, ENOENT, ENOENT, 3},
        {[&] { return p.rename(no, path("new")); }, ENOENT, ENOENT, 2},
        {[&] { return p.rename(file, dir); }, EISDIR, EACCES, 5},
        {[&] { return p.rename(full, dir); }, EEXIST, EEXIST, 183}, // though it is empty
        {[&] { return p.syncDirectory(file); }, ENOTDIR, ENOTDIR, 267},
        {[&] { return removeTree(file) == 0 ? 0 : -1; }, ENOTDIR, ENOTDIR, 267}};
    for (const auto& [call, onLinux, onWindows, code] : cases) {
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(errno, g_isWindows ? onWindows : onLinux) << code;
        EXPECT_EQ(p.lastError(), g_isWindows ? code : static_cast<uint32_t>(onLinux));
    }
    EXPECT_EQ(m_dir.tree().size(), 4U);
}

TEST_F(PlatformTest, InfoExistsAndFind) {
    EXPECT_EQ(found("*") + found("no/*"), "0:20:3"); // an empty directory, and none
    for (const char* name : {"7.day", "12.day", "12.day.temp", ".hidden", "20120313/x"}) {
        make(name, name);
    }
    const std::string day = "12.day 7.day ";
    const std::string cases[][2] = {{"*", ".hidden 12.day 12.day.temp 20120313/ 7.day "},
                                    {"*day", day},
                                    {"_delete_*", "0:2"},
                                    {"*DAY", g_isWindows ? day : "0:2"},
                                    {"7.day/*", "0:3"}};
    for (const auto& [pattern, names] : cases) {
        EXPECT_EQ(found(pattern), names) << pattern;
    }
    EXPECT_EQ(p.sameFileName("Konto", "kONTO"), g_isWindows);
    FileInfo info;
    EXPECT_EQ(p.info(path("no"), info), -1);
    ASSERT_EQ(p.info(path("7.day"), info), 0);
    EXPECT_TRUE(!info.isDirectory && info.size == 5 && std::abs(info.modified - p.now()) < 60);
    ASSERT_EQ(p.info(m_dir.path() + "/", info), 0);
    EXPECT_TRUE(info.isDirectory && p.exists(m_dir.path()) && p.exists(path("7.day")));
    EXPECT_FALSE(p.exists(path("7.day/no")) || p.exists(path(std::string(300, 'n'))));
    std::error_code noLinks;
    fs::create_symlink(path("b"), path("a"), noLinks);
    fs::create_symlink(path("a"), path("b"), noLinks);
    EXPECT_TRUE(noLinks || g_isWindows || p.exists(path("a"))) << "a circle gives no answer";
    for (const std::string& name : {path("a"), std::string("/dev/full")}) {
        EXPECT_TRUE(noLinks || g_isWindows || (p.info(name, info) == 0 && info.isOther)) << name;
    }
    uint64_t bytes = 0;
    for (const char* name : {"", "no/such//place/", "7.day/below"}) { // the nearest parent
        EXPECT_EQ(p.freeSpace(path(name), bytes), 0) << name;
        EXPECT_LT(std::abs(static_cast<double>(bytes) -
                           static_cast<double>(fs::space(m_dir.path()).available)),
                  1e9);
    }
}

// On Windows the stream shares neither deletion nor renaming; elsewhere nothing waits.
TEST_F(PlatformTest, WaitsForAFileThatSomebodyHoldsForAMoment) {
    for (const bool renames : {false, true}) {
        std::ifstream holder(make("held"));
        std::thread release([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            holder.close();
        });
        EXPECT_EQ(renames ? p.rename(path("held"), path("x")) : p.removeFile(path("held")), 0);
        release.join();
    }
    const std::ifstream holder(make("held"));
    EXPECT_EQ(p.removeFile(path("held")), g_isWindows ? -1 : 0);
}

TEST_F(PlatformTest, RemovingTreesAndMoving) {
    make("tree/deep/er/7.temp");
    make("outside/kept");
    std::error_code noLinks;
    fs::create_directory_symlink(path("outside"), path("tree/link"), noLinks);
    EXPECT_EQ(removeTree(path("tree/")), 0);
    EXPECT_EQ(removeTree(path("tree/")), 0) << "not there any more";
    if (!noLinks) {
        fs::create_directory_symlink(path("outside"), path("tree"));
        EXPECT_EQ(found("t*"), "tree/@ ") << "a link counts as what it points to";
        EXPECT_EQ(removeTree(path("tree/")), 0);
    }
    EXPECT_EQ(move(make("one", "1"), path("target")), 0);
    EXPECT_EQ(move(make("two", "2"), path("target")), 0);
    EXPECT_TRUE(move(path("target"), path("outside")) != 0 &&
                move(path("target"), path("no/directory")) != 0 &&
                move(path("missing"), path("x")) != 0);
    const auto open = p.open(make("three", "3"), OpenMode::ReadExisting); // by whomever
    EXPECT_EQ(p.rename(path("three"), path("target")), 0);
    EXPECT_EQ(p.rename(path("outside"), path("moved")), 0);
    EXPECT_EQ(p.syncDirectory(m_dir.path()), 0);
    EXPECT_EQ(m_dir.tree(), (Tree{{"moved/", ""}, {"moved/kept", "x"}, {"target", "3"}}));
    EXPECT_EQ(p.removeFile(path("target")), 0);
    EXPECT_EQ(readUpTo(*open, 2), "3");
    if (!g_isWindows && fs::exists("/dev/shm")) { // perhaps another file system
        const test::TempDir other("/dev/shm");
        const std::string content = std::string(600'000, 'a') + std::string(400'000, 'b');
        EXPECT_EQ(move(make("file", content), other / "file"), 0);
        EXPECT_TRUE(!m_dir.has("file") && other.read("file") == content);
    }
}

TEST_F(PlatformTest, LocksAndNamesHaveOneHolder) {
    std::unique_ptr<NamedEvent> first;
    std::unique_ptr<NamedEvent> second;
    EXPECT_EQ(p.probeLock(path("lock")), LockResult::Locked);
    EXPECT_FALSE(m_dir.has("lock"));
    ASSERT_EQ(p.lockFile(path("lock"), first), LockResult::Locked);
    EXPECT_EQ(p.lockFile(path("lock"), second), LockResult::HeldByAnother);
    EXPECT_EQ(p.probeLock(path("lock")), LockResult::HeldByAnother);
    EXPECT_EQ(first->close(), 0);
    EXPECT_EQ(p.probeLock(path("lock")), LockResult::Locked);
    ASSERT_EQ(p.lockFile(path("lock"), first), LockResult::Locked);
    std::thread holder([&first] { // as long as nobody who only looks would
        systemPlatform().sleep(30);
        first.reset();
    });
    EXPECT_EQ(p.lockFile(path("lock"), second), LockResult::Locked);
    holder.join();
    const std::string name = "Global\\KestrineTest" + std::to_string(p.tickCount());
    ASSERT_EQ(p.createNamedEvent(name, first), NamedEventResult::Created);
    ASSERT_EQ(p.createNamedEvent(name, second), NamedEventResult::AlreadyExists);
    EXPECT_EQ(second->close() + first->close() + first->close(), 0);
    EXPECT_EQ(p.createNamedEvent(name, first), NamedEventResult::Created);
}

TEST_F(PlatformTest, LocksAreSharedAndHaveParts) {
    std::unique_ptr<NamedEvent> first;
    std::unique_ptr<NamedEvent> second;
    std::unique_ptr<NamedEvent> third;
    ASSERT_EQ(p.lockFileShared(path("lock"), first), LockResult::Locked);
    ASSERT_EQ(p.lockFileShared(path("lock"), second), LockResult::Locked);
    EXPECT_EQ(p.probeLock(path("lock")), LockResult::Locked);
    EXPECT_EQ(p.probeSharedLock(path("lock")), LockResult::HeldByAnother);
    EXPECT_EQ(p.lockFile(path("lock"), third), LockResult::HeldByAnother);
    EXPECT_EQ(first->close() + second->close(), 0);
    EXPECT_EQ(p.probeSharedLock(path("lock")), LockResult::Locked);
    ASSERT_EQ(p.lockFile(path("lock"), third), LockResult::Locked);
    EXPECT_EQ(p.lockFileShared(path("lock"), first), LockResult::HeldByAnother);
    // Bytes, of which none is there: each has one holder.
    constexpr uint64_t all = INT64_MAX;
    ASSERT_EQ(p.lockFileBytes(path("bytes"), 19000, 7, first), LockResult::Locked);
    EXPECT_EQ(p.lockFileBytes(path("bytes"), 18990, 11, second), LockResult::HeldByAnother);
    EXPECT_EQ(p.lockFileBytes(path("bytes"), 19006, 1, second), LockResult::HeldByAnother);
    EXPECT_EQ(p.lockFileBytes(path("bytes"), 0, all, second), LockResult::HeldByAnother);
    ASSERT_EQ(p.lockFileBytes(path("bytes"), 19007, 1, second), LockResult::Locked);
    EXPECT_EQ(first->close() + second->close(), 0);
    EXPECT_EQ(p.lockFileBytes(path("bytes"), 0, all, second), LockResult::Locked);
}

} // namespace
} // namespace kestrine
