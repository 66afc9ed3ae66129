// The same tests on every system; where systems must differ, the test asks which one it runs on.
#include "platform/path_text.h"
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace kestrine {
namespace {

namespace fs = std::filesystem;

constexpr bool g_isWindows = fs::path::preferred_separator == '\\';

std::span<const uint8_t> bytesOf(std::string_view text) {
    return {static_cast<const uint8_t*>(static_cast<const void*>(text.data())), text.size()};
}

std::string readUpTo(File& file, size_t size) {
    std::vector<uint8_t> buffer(size);
    const int64_t got = file.read(buffer);
    return got < 0 ? "failed" : std::string(buffer.begin(), buffer.begin() + got);
}

// What the file holds, "missing" without one. Reads past the platform.
std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return stream ? text.str() : fs::exists(path) ? "" : "missing";
}

int64_t millisecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
}

class PlatformTest : public testing::Test {
protected:
    void SetUp() override {
        std::string root = fs::temp_directory_path().generic_string();
        root += root.back() == '/' ? "" : "/";
        do {
            m_dir = root + "kestrine platform " + std::to_string(std::rand());
        } while (!fs::create_directory(m_dir));
    }
    void TearDown() override { fs::remove_all(m_dir); }

    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    std::string make(const std::string& name, std::string_view content = "x") const {
        fs::create_directories(fs::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    std::string makeDir(const std::string& name) const {
        fs::create_directories(path(name));
        return path(name);
    }
    int move(const std::string& from, const std::string& to) {
        std::string command = "move \"" + from + "\" \"" + to + "\"";
        std::replace(command.begin(), command.end(), '/', '\\');
        return m_platform.move(command, from, to);
    }
    // Sorted names, a directory with a '/' behind; or "step:lastError" on failure.
    std::string found(const std::string& pattern) {
        std::vector<FindEntry> entries;
        FindStep step = FindStep::Close;
        if (m_platform.find(path(pattern), entries, step) != 0) {
            return std::to_string(static_cast<int>(step)) + ":" +
                   std::to_string(m_platform.lastError());
        }
        std::vector<std::string> names;
        for (const FindEntry& entry : entries) {
            const bool isDirectory = (entry.attributes & g_attributeDirectory) != 0;
            names.push_back(entry.name + (isDirectory ? "/ " : " "));
        }
        std::sort(names.begin(), names.end());
        std::string all;
        for (const std::string& name : names) {
            all += name;
        }
        return all;
    }

    Platform& m_platform = systemPlatform();
    std::string m_dir;
};

TEST_F(PlatformTest, EachModeOpensWhatItMay) {
    const struct {
        OpenMode mode;
        bool opensMissing;
        std::string afterWriting; // "ab" into a file that held "12345"
    } cases[] = {
        {OpenMode::Read, false, "12345"},
        {OpenMode::ReadExisting, false, "ab345"},
        {OpenMode::Truncate, true, "ab"},
        {OpenMode::Append, true, "12345ab"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        const bool mayWrite = c.mode != OpenMode::Read;
        const std::string missing = path("missing" + std::to_string(static_cast<int>(c.mode)));
        EXPECT_EQ(m_platform.open(missing, c.mode) != nullptr, c.opensMissing);
        EXPECT_EQ(fs::exists(missing), c.opensMissing);

        const std::string name = make("file", "12345");
        const auto file = m_platform.open(name, c.mode);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->tell(), 0);
        EXPECT_EQ(file->write(bytesOf("ab")), mayWrite ? 2 : -1);
        EXPECT_EQ(contentOf(name), c.afterWriting) << "unbuffered";
        EXPECT_EQ(file->size(), static_cast<int64_t>(c.afterWriting.size()));
        if (mayWrite) {
            EXPECT_EQ(file->sync(), 0);
        }
        ASSERT_EQ(file->seek(1), 0);
        EXPECT_EQ(readUpTo(*file, 100), c.afterWriting.substr(1));
        EXPECT_EQ(file->tell(), static_cast<int64_t>(c.afterWriting.size()));
        EXPECT_EQ(readUpTo(*file, 1), "") << "at the end";
        EXPECT_EQ(file->close(), 0);
        EXPECT_EQ(file->close(), 0);
        EXPECT_EQ(file->seek(0), -1);
        EXPECT_EQ(errno, EBADF);
    }
}

TEST_F(PlatformTest, AppendGoesToTheEndWhereverTheOthersAre) {
    const std::string name = path("log");
    const auto first = m_platform.open(name, OpenMode::Append);
    const auto second = m_platform.open(name, OpenMode::Append);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->write(bytesOf("one ")), 4);
    EXPECT_EQ(second->write(bytesOf("two ")), 4);
    ASSERT_EQ(first->seek(0), 0);
    EXPECT_EQ(first->write(bytesOf("three")), 5);
    EXPECT_EQ(first->tell(), 13);
    EXPECT_EQ(contentOf(name), "one two three");
}

TEST_F(PlatformTest, OffsetsHave64Bits) {
    const int64_t far = int64_t{5} << 30;
    const auto file = m_platform.open(path("large"), OpenMode::Truncate);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->seek(far), 0);
    EXPECT_EQ(file->tell(), far);
    EXPECT_EQ(file->seek(-1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(file->tell(), far) << "a seek that fails changes nothing";
    if (g_isWindows || file->write(bytesOf("end")) != 3) {
        GTEST_SKIP() << "the gap would be filled with zeros, or does not fit";
    }
    EXPECT_EQ(file->size(), far + 3);
    ASSERT_EQ(file->seek(far), 0);
    EXPECT_EQ(readUpTo(*file, 9), "end");
    FileInfo info;
    EXPECT_EQ(m_platform.info(path("large"), info), 0);
    EXPECT_EQ(info.size, far + 3);
}

TEST_F(PlatformTest, AnOpenFileMayBeRenamedAndRemovedByOthers) {
    const auto file = m_platform.open(make("a", "content"), OpenMode::ReadExisting);
    ASSERT_TRUE(file);
    EXPECT_EQ(m_platform.rename(path("a"), path("b")), 0);
    EXPECT_EQ(m_platform.removeFile(path("b")), 0);
    EXPECT_EQ(readUpTo(*file, 7), "content");
}

TEST_F(PlatformTest, FailuresLeaveErrnoAndTheSystemsCode) {
    const std::string file = make("file");
    const std::string dir = makeDir("dir");
    make("full/file");
    const struct {
        const char* what;
        std::function<int()> call;
        int linuxErrno;
        int windowsErrno;
        uint32_t windowsCode;
    } cases[] = {
        {"open missing", [&] { return m_platform.open(path("no"), OpenMode::Read) ? 0 : -1; },
         ENOENT, ENOENT, 2},
        {"open below missing",
         [&] { return m_platform.open(path("no/file"), OpenMode::Truncate) ? 0 : -1; }, ENOENT,
         ENOENT, 3},
        {"open directory", [&] { return m_platform.open(dir, OpenMode::Read) ? 0 : -1; }, EISDIR,
         EACCES, 5},
        {"remove missing", [&] { return m_platform.removeFile(path("no")); }, ENOENT, ENOENT, 2},
        {"remove directory as file", [&] { return m_platform.removeFile(dir); }, EISDIR, EACCES, 5},
        {"remove file as directory", [&] { return m_platform.removeDirectory(file); }, ENOTDIR,
         ENOTDIR, 267},
        {"remove missing directory", [&] { return m_platform.removeDirectory(path("no")); }, ENOENT,
         ENOENT, 2},
        {"remove full directory", [&] { return m_platform.removeDirectory(path("full")); },
         ENOTEMPTY, ENOTEMPTY, 145},
        {"make what exists", [&] { return m_platform.makeDirectory(dir); }, EEXIST, EEXIST, 183},
        {"make below missing", [&] { return m_platform.makeDirectory(path("no/dir")); }, ENOENT,
         ENOENT, 3},
        {"rename missing", [&] { return m_platform.rename(path("no"), path("new")); }, ENOENT,
         ENOENT, 2},
        {"rename file to directory", [&] { return m_platform.rename(file, dir); }, EISDIR, EACCES,
         5},
        {"rename directory to file", [&] { return m_platform.rename(dir, file); }, EEXIST, EEXIST,
         183},
        {"rename directory to empty one",
         [&] { return m_platform.rename(path("full"), makeDir("dir")); }, EEXIST, EEXIST, 183},
        {"sync missing directory", [&] { return m_platform.syncDirectory(path("no")); }, ENOENT,
         ENOENT, 2},
        {"sync file as directory", [&] { return m_platform.syncDirectory(file); }, ENOTDIR, ENOTDIR,
         267},
        {"removeTree of a file",
         [&] { return m_platform.removeTree("rmdir /S /Q \"" + file + "\"", file) == 0 ? 0 : -1; },
         ENOTDIR, ENOTDIR, 267},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        errno = 0;
        int result = 0;
        const int64_t elapsed = millisecondsOf([&] { result = c.call(); });
        const int error = errno;
        EXPECT_EQ(result, -1);
        EXPECT_EQ(error, g_isWindows ? c.windowsErrno : c.linuxErrno) << std::strerror(error);
        EXPECT_EQ(m_platform.lastError(),
                  g_isWindows ? c.windowsCode : static_cast<uint32_t>(c.linuxErrno));
        EXPECT_LT(elapsed, 500) << "waited, though nobody holds the file";
    }
    EXPECT_EQ(contentOf(file), "x");
    EXPECT_TRUE(fs::is_directory(dir));
}

TEST_F(PlatformTest, WritingToAFullDeviceFails) {
    const auto file = m_platform.open("/dev/full", OpenMode::ReadExisting);
    if (!file) {
        GTEST_SKIP() << "no such device here";
    }
    EXPECT_EQ(file->write(bytesOf("x")), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(PlatformTest, RenameReplacesFilesAndMovesDirectories) {
    EXPECT_EQ(m_platform.rename(make("new", "new"), make("old", "old")), 0);
    EXPECT_EQ(contentOf(path("old")), "new");
    EXPECT_FALSE(m_platform.exists(path("new")));
    make("dir/sub/file", "deep");
    EXPECT_EQ(m_platform.rename(path("dir"), path("moved")), 0);
    EXPECT_EQ(contentOf(path("moved/sub/file")), "deep");
    EXPECT_FALSE(m_platform.exists(path("dir")));
    EXPECT_EQ(m_platform.syncDirectory(m_dir), 0);
}

// On Windows the stream shares neither deletion nor renaming; elsewhere nothing waits.
TEST_F(PlatformTest, WaitsForAFileThatSomebodyHoldsForAMoment) {
    const struct {
        const char* what;
        std::function<int()> call;
    } cases[] = {
        {"remove", [&] { return m_platform.removeFile(path("held")); }},
        {"rename from", [&] { return m_platform.rename(path("held"), path("free")); }},
        {"rename to", [&] { return m_platform.rename(make("source"), path("held")); }},
        {"removeTree",
         [&] { return m_platform.removeTree("rmdir /S /Q \"" + m_dir + "/\"", m_dir); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::ifstream holder(make("held"));
        std::thread release([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            holder.close();
        });
        int result = -1;
        const int64_t elapsed = millisecondsOf([&] { result = c.call(); });
        release.join();
        EXPECT_EQ(result, 0) << std::strerror(errno);
        EXPECT_EQ(elapsed >= 150, g_isWindows) << elapsed;
    }
    if (g_isWindows) {
        const std::ifstream holder(make("held"));
        int result = 0;
        EXPECT_GT(millisecondsOf([&] { result = m_platform.removeFile(path("held")); }), 1300);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(m_platform.lastError(), 32u);
    }
}

TEST_F(PlatformTest, InfoAndExists) {
    FileInfo info;
    ASSERT_EQ(m_platform.info(make("file", "12345"), info), 0);
    EXPECT_FALSE(info.isDirectory);
    EXPECT_EQ(info.size, 5);
    EXPECT_NEAR(static_cast<double>(info.modified), static_cast<double>(m_platform.now()), 60);
    ASSERT_EQ(m_platform.info(m_dir + "/", info), 0);
    EXPECT_TRUE(info.isDirectory);
    EXPECT_EQ(m_platform.info(path("no"), info), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(m_platform.exists(m_dir) && m_platform.exists(path("file")));
    EXPECT_FALSE(m_platform.exists(path("no")) || m_platform.exists(path("file/no")) ||
                 m_platform.exists(""));
}

TEST_F(PlatformTest, FindListsWhatMatches) {
    EXPECT_EQ(found("*"), "0:2") << "an empty directory";
    EXPECT_EQ(found("no/*"), "0:3");
    make("7.daycrcsortnew");
    make("12.daycrcsortnew");
    make("12.daycrcsortnew.temp");
    make(".hidden");
    makeDir("20120313");
    EXPECT_EQ(found("*"),
              ".hidden 12.daycrcsortnew 12.daycrcsortnew.temp 20120313/ 7.daycrcsortnew ");
    EXPECT_EQ(found("*daycrcsortnew"), "12.daycrcsortnew 7.daycrcsortnew ");
    EXPECT_EQ(found("2012031?"), "20120313/ ");
    EXPECT_EQ(found("20120313"), "20120313/ ");
    EXPECT_EQ(found("_delete_*"), "0:2");
    EXPECT_EQ(found("*DAYCRCSORTNEW"), g_isWindows ? "12.daycrcsortnew 7.daycrcsortnew " : "0:2");
    EXPECT_EQ(found("7.daycrcsortnew/*"), "0:3") << "a file stands in the directory's place";
    EXPECT_EQ(found("20120313/*"), "0:2");
}

TEST(PathText, Wildcards) {
    const struct {
        const char* name;
        const char* pattern;
        bool matches;
    } cases[] = {
        {"", "", true},          {"a", "", false},         {"", "*", true},
        {"", "?", false},        {"abc", "abc", true},     {"abc", "ab", false},
        {"abc", "a?c", true},    {"abc", "a?", false},     {"abc", "*c", true},
        {"abcbc", "a*bc", true}, {"abcbd", "a*bc", false}, {"abc", "***", true},
        {"abc", "*b*", true},    {"aXbXc", "a*X?", true},  {"abc", "abc*?", false},
        {"Abc", "aBC", false},   {"a.b", "*.*", true},     {"ab", "*.*", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matchesWildcard(c.name, c.pattern, false), c.matches)
            << c.name << " " << c.pattern;
    }
    EXPECT_TRUE(matchesWildcard("AbZ9", "aB?9", true));
    EXPECT_FALSE(matchesWildcard("[", "{", true)) << "only letters are folded";
}

TEST(PathText, Parents) {
    const char* const chains[][4] = {{"/a//b/", "/a", "/", nullptr},
                                     {"a/b", "a", ".", nullptr},
                                     {"C:/a", "C:", nullptr},
                                     {"", nullptr}};
    for (const auto& chain : chains) {
        std::string path = chain[0];
        for (size_t i = 1; i < 4 && chain[i] != nullptr; ++i) {
            EXPECT_TRUE(cutToParent(path));
            EXPECT_EQ(path, chain[i]);
        }
        EXPECT_FALSE(cutToParent(path)) << path;
    }
}

TEST_F(PlatformTest, FreeSpaceIsThatOfTheNearestParent) {
    const auto expected = static_cast<double>(fs::space(m_dir).available);
    const std::string paths[] = {m_dir, m_dir + "/", make("file"), path("no/such/place/"),
                                 path("file/below")};
    for (const std::string& place : paths) {
        uint64_t bytes = 0;
        EXPECT_EQ(m_platform.freeSpace(place, bytes), 0) << place;
        EXPECT_NEAR(static_cast<double>(bytes), expected, 1e9) << place;
    }
    uint64_t bytes = 0;
    EXPECT_EQ(m_platform.freeSpace("no/such/relative", bytes), 0);
    EXPECT_EQ(m_platform.freeSpace("", bytes), 0);
    if (g_isWindows) {
        EXPECT_EQ(m_platform.freeSpace("Q:/no/drive", bytes), -1);
    }
}

TEST_F(PlatformTest, RemoveTreeTakesAllAndFollowsNoLink) {
    for (int i = 0; i < 300; ++i) {
        make("tree/deep/er/" + std::to_string(i) + ".temp");
    }
    make("tree/.hidden");
    makeDir("tree/empty");
    make("outside/kept");
    std::error_code noLinks;
    fs::create_directory_symlink(path("outside"), path("tree/link"), noLinks);
    fs::create_symlink(path("outside/kept"), path("tree/deep/link"), noLinks);
    const std::string tree = path("tree/");
    const std::string command = "rmdir /S /Q \"" + tree + "\"";
    EXPECT_EQ(m_platform.removeTree(command, tree), 0);
    EXPECT_FALSE(fs::exists(path("tree")));
    EXPECT_EQ(contentOf(path("outside/kept")), "x");
    EXPECT_EQ(m_platform.removeTree(command, tree), 0) << "not there any more";

    if (!noLinks) {
        fs::create_directory_symlink(path("outside"), path("tree"));
        EXPECT_EQ(found("t*"), "tree/ ") << "a link counts as what it points to";
        std::vector<FindEntry> entries;
        FindStep step = FindStep::First;
        ASSERT_EQ(m_platform.find(path("tree"), entries, step), 0);
        EXPECT_EQ(entries[0].attributes, g_attributeDirectory | g_attributeLink);
        EXPECT_EQ(m_platform.removeTree(command, tree), 0);
        EXPECT_FALSE(fs::is_symlink(path("tree")));
        EXPECT_EQ(contentOf(path("outside/kept")), "x");
    }
}

TEST_F(PlatformTest, MoveReplacesAFileButNoDirectory) {
    EXPECT_EQ(move(make("one", "1"), path("target")), 0);
    EXPECT_EQ(contentOf(path("target")), "1");
    EXPECT_FALSE(fs::exists(path("one")));
    EXPECT_EQ(move(make("two", "2"), path("target")), 0);
    EXPECT_EQ(contentOf(path("target")), "2");
    EXPECT_NE(move(path("target"), makeDir("dir")), 0);
    EXPECT_NE(move(path("target"), path("no/directory")), 0);
    EXPECT_EQ(contentOf(path("target")), "2");
    EXPECT_NE(move(path("missing"), path("x")), 0);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PlatformTest, MoveBetweenFileSystemsCopies) {
    if (g_isWindows || !fs::exists("/dev/shm")) {
        GTEST_SKIP() << "left to the command interpreter, or no second file system here";
    }
    const std::string other = "/dev/shm/" + fs::path(m_dir).filename().string();
    std::string content(1'000'000, 'a');
    content[600'000] = 'b';
    const std::string from = make("file", content);
    if (m_platform.rename(from, other) == 0 || errno != EXDEV) {
        fs::remove(other);
        GTEST_SKIP() << "one file system";
    }
    EXPECT_EQ(move(from, other), 0);
    EXPECT_FALSE(fs::exists(from));
    EXPECT_TRUE(contentOf(other) == content);
    fs::remove(other);
}

TEST_F(PlatformTest, NamesOfFilesInOneDirectory) {
    EXPECT_TRUE(m_platform.sameFileName("Konto", "Konto"));
    EXPECT_EQ(m_platform.sameFileName("Konto", "kONTO"), g_isWindows);
    EXPECT_FALSE(m_platform.sameFileName("Konto", "Kont"));
}

TEST_F(PlatformTest, ClocksAgreeWithTheStandardLibrary) {
    const std::time_t before = std::time(nullptr);
    const LocalTime time = m_platform.localTime();
    std::tm fields{};
    fields.tm_year = time.year - 1900;
    fields.tm_mon = time.month - 1;
    fields.tm_mday = time.day;
    fields.tm_hour = time.hour;
    fields.tm_min = time.minute;
    fields.tm_sec = time.second;
    fields.tm_isdst = std::localtime(&before)->tm_isdst;
    EXPECT_NEAR(static_cast<double>(std::mktime(&fields)), static_cast<double>(before), 2);
    EXPECT_NEAR(static_cast<double>(m_platform.now()), static_cast<double>(before), 2);

    const uint32_t tick = m_platform.tickCount();
    m_platform.sleep(60);
    const uint32_t elapsed = m_platform.tickCount() - tick;
    EXPECT_GE(elapsed, 40u);
    EXPECT_LT(elapsed, 5000u);
}

TEST_F(PlatformTest, ExecutablePath) {
    const std::string executable = m_platform.executablePath();
    EXPECT_TRUE(fs::is_regular_file(executable)) << executable;
    EXPECT_TRUE(fs::path(executable).is_absolute()) << executable;
    EXPECT_EQ(executable.find('\\'), std::string::npos) << executable;
}

TEST_F(PlatformTest, ANamedEventExistsOnceUntilItIsClosed) {
    const std::string name = "Global\\KestrineTest" + std::to_string(m_platform.tickCount());
    std::unique_ptr<NamedEvent> first;
    std::unique_ptr<NamedEvent> second;
    ASSERT_EQ(m_platform.createNamedEvent(name, first), NamedEventResult::Created);
    ASSERT_TRUE(first);
    ASSERT_EQ(m_platform.createNamedEvent(name, second), NamedEventResult::AlreadyExists);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->close(), 0);
    EXPECT_EQ(first->close(), 0);
    EXPECT_EQ(first->close(), 0);
    EXPECT_EQ(m_platform.createNamedEvent(name, first), NamedEventResult::Created);
    first.reset();
    EXPECT_EQ(m_platform.createNamedEvent(name, second), NamedEventResult::Created);
    EXPECT_EQ(m_platform.createNamedEvent(std::string(70000, 'n'), first),
              NamedEventResult::CreateFailed);
}

TEST_F(PlatformTest, ReplacementIsUsedUntilTakenBack) {
    Platform* const before = setPlatform(nullptr);
    EXPECT_EQ(&platform(), &systemPlatform());
    Platform* const other = &systemPlatform(); // stands for any
    EXPECT_EQ(setPlatform(other), nullptr);
    EXPECT_EQ(setPlatform(before), other);
}

std::atomic<int> g_handled{0};

void countSignal(int number) {
    std::fprintf(stderr, "handled %d.", number);
    g_handled += number;
}

// `std::raise` would reach the calling thread alone where signals are per thread. The kill comes
// after `std::system` is done, since that ignores SIGINT for its time.
void signalSelf(int number) {
    if (g_isWindows) {
        std::raise(number);
        return;
    }
    const std::string command = "(sleep 0.2; kill -" + std::to_string(number) + " $PPID)&";
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "not sent");
    }
}

void awaitHandled(int sum) {
    while (g_handled != sum) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(PlatformDeathTest, EachSignalWorksOnceThenEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto run = [](int again) {
        const int signals[] = {SIGTERM, SIGINT};
        if (systemPlatform().installSignalHandler(signals, countSignal) != 0) {
            std::_Exit(0);
        }
        signalSelf(SIGINT);
        awaitHandled(SIGINT);
        signalSelf(SIGTERM);
        awaitHandled(SIGINT + SIGTERM);
        signalSelf(again);
        std::this_thread::sleep_for(std::chrono::seconds(10));
        std::_Exit(0);
    };
    const auto ended = [](int status) { return status != 0; };
    EXPECT_EXIT(run(SIGINT), ended, "handled 2.handled 15.$");
    EXPECT_EXIT(run(SIGTERM), ended, "handled 2.handled 15.$");
}

} // namespace
} // namespace kestrine
