#include "frame/run_flag.h"
#include "frame/util.h"
#include "support/failing_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

// Records what is made and synced below one directory, by relative names.
class RecordingPlatform : public test::ForwardingPlatform {
public:
    explicit RecordingPlatform(std::string root) : m_root(std::move(root)) {}
    std::vector<std::string> calls;

    int makeDirectory(const std::string& path) override {
        calls.push_back("make " + path.substr(m_root.size()));
        return ForwardingPlatform::makeDirectory(path);
    }
    int syncDirectory(const std::string& path) override {
        calls.push_back("sync " + path.substr(m_root.size()));
        return ForwardingPlatform::syncDirectory(path);
    }

private:
    std::string m_root;
};

TEST(CreateDir, MakesWhatEndsBeforeASlash) {
    const test::TempDir dir;
    RecordingPlatform recording(dir.path());
    const test::ScopedPlatform scope(recording);
    using Calls = std::vector<std::string>;

    EXPECT_EQ(Util::createDir(dir / "a/b/c"), 0);
    EXPECT_EQ(recording.calls, (Calls{"make /a", "sync ", "make /a/b", "sync /a"}));
    recording.calls.clear();
    EXPECT_EQ(Util::createDir(dir / "a/b/c/"), 0);
    EXPECT_EQ(recording.calls, (Calls{"make /a/b/c", "sync /a/b"}));
    recording.calls.clear();
    EXPECT_EQ(Util::createDir(dir / "a//t//u/", Durable::No), 0);
    EXPECT_EQ(recording.calls, (Calls{"make /a//t", "make /a//t//u"}));
    recording.calls.clear();
    EXPECT_EQ(Util::createDir(dir / "a/t/u/"), 0);
    EXPECT_EQ(recording.calls, Calls{});

    dir.write("file");
    EXPECT_EQ(Util::createDir(dir / "file/x/"), -1);
    EXPECT_EQ(Util::createDir(""), -1);
}

// A machine on which nothing exists but what is made.
class BareMachine : public test::ForwardingPlatform {
public:
    std::vector<std::string> made;
    bool exists(const std::string& path) override {
        return std::find(made.begin(), made.end(), path) != made.end();
    }
    int makeDirectory(const std::string& path) override {
        made.push_back(path);
        return 0;
    }
    int syncDirectory(const std::string& path) override {
        synced.push_back(path);
        return 0;
    }
    std::vector<std::string> synced;
};

TEST(CreateDir, DrivesAndServersAreNotMade) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"D:/x/y/", {"D:/x", "D:/x/y"}},
        {"D:/", {}},
        {"//server/share/x/", {"//server/share", "//server/share/x"}},
        {"/x/", {"/x"}},
        {"x/y", {"x"}},
        {std::string(258, 'l') + "/m/", {std::string(258, 'l')}}, // 259 characters are taken
    };
    for (const auto& [path, made] : cases) {
        BareMachine machine;
        const test::ScopedPlatform scope(machine);
        EXPECT_EQ(Util::createDir(path), 0);
        EXPECT_EQ(machine.made, made) << path;
        EXPECT_EQ(machine.synced.size(), made.size());
    }
}

TEST(CreateDir, FailureLeavesAPrefix) {
    for (int n = 1; n <= 4; ++n) {
        const test::TempDir dir;
        test::FailingPlatform failing(n, test::FailingPlatform::Mode::Once);
        const test::ScopedPlatform scope(failing);
        EXPECT_EQ(Util::createDir(dir / "a/b/"), -1);
        EXPECT_EQ(dir.has("a"), n > 1);
        EXPECT_EQ(dir.has("a/b"), n > 3);
    }
}

TEST(Tranverse, PassesOverDotEntries) {
    const test::TempDir dir;
    for (const char* name : {"b", "a", "d/inner", ".hidden", ".dir/x"}) {
        dir.write(name);
    }
    std::vector<std::string> seen;
    const auto visitor = [&seen](const std::string& path, uint32_t attributes) {
        seen.push_back(path + ((attributes & g_attributeDirectory) != 0 ? "/" : ""));
        return 0;
    };
    EXPECT_EQ(Util::tranverse(dir.path(), visitor), 0);
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{dir / "a", dir / "b", dir / "d/"}));

    EXPECT_EQ(Util::tranverse(dir / "missing", visitor), 0);
    EXPECT_EQ(Util::tranverse(dir / "missing/too", visitor), 0);
    EXPECT_EQ(seen.size(), 3U);

    int calls = 0;
    EXPECT_EQ(Util::tranverse(dir.path(), [&](const std::string&, uint32_t) { return ++calls; }),
              -1);
    EXPECT_EQ(calls, 1);
}

TEST(DeleteDir, RemovesEverythingBelow) {
    const test::TempDir dir;
    for (const char* name : {"top/a", "top/.hidden", "top/.d/x", "top/d/e/f", "beside"}) {
        dir.write(name);
    }
    EXPECT_EQ(Util::deleteDir(dir / "beside"), -1);
    EXPECT_EQ(Util::deleteDir(dir / "missing"), -1);
    EXPECT_EQ(Util::deleteDir(dir / "top/"), 0);
    EXPECT_EQ(dir.tree().size(), 1U);

    dir.write("other/x/y");
    EXPECT_EQ(Util::deleteFiles(dir / "other", g_attributeDirectory), 0);
    EXPECT_EQ(Util::deleteFiles(dir / "beside", 0), 0);
    EXPECT_TRUE(dir.tree().empty());
    EXPECT_EQ(Util::deleteFiles(dir / "beside", 0), -1);
}

TEST(DeleteDir, DoesNotFollowLinks) {
    const test::TempDir dir;
    dir.write("kept/file");
    dir.makeDirs("top");
    std::error_code error;
    std::filesystem::create_directory_symlink(dir / "kept", dir / "top/link", error);
    if (error) {
        GTEST_SKIP() << "no links here: " << error.message();
    }
    EXPECT_EQ(Util::deleteDir(dir / "top"), 0);
    EXPECT_FALSE(dir.has("top"));
    EXPECT_TRUE(dir.has("kept/file"));
}

TEST(DeleteDir, EveryFailureIsReported) {
    for (int n = 1;; ++n) {
        const test::TempDir dir;
        dir.write("top/d/x");
        dir.write("top/y");
        test::FailingPlatform failing(n, test::FailingPlatform::Mode::Once);
        const test::ScopedPlatform scope(failing);
        const int result = Util::deleteDir(dir / "top");
        EXPECT_EQ(result, failing.failed() ? -1 : 0);
        EXPECT_EQ(dir.has("top"), failing.failed());
        if (!failing.failed()) {
            EXPECT_EQ(n, 5); // two files and two directories
            break;
        }
    }
}

// ---- listings

class FailingFind : public test::ForwardingPlatform {
public:
    FailingFind(FindStep step, uint32_t error) : m_step(step), m_error(error) {}
    int find(const std::string& pattern, std::vector<FindEntry>& entries, FindStep& step) override {
        (void)ForwardingPlatform::find(pattern, entries, step);
        step = m_step;
        return -1;
    }
    uint32_t lastError() const override { return m_error; }

private:
    FindStep m_step;
    uint32_t m_error;
};

TEST(Listing, DatesAndNewDayFilesAscend) {
    const test::TempDir dir;
    const char* const names[] = {"20120313/12.daycrcsortnew",
                                 "20120313/3.daycrcsortnew",
                                 "20120313/100.daycrcsortnew",
                                 "20120313/5.daycrcsortnew.temp",
                                 "20120313/xdaycrcsortnew",
                                 "20120313/4.daycrcsortnew/dir",
                                 "20111231/1.daycrcsortnew",
                                 "20000000/x",
                                 "29999999/x",
                                 "2012031a/x",
                                 "201203/x",
                                 "20121399/x"};
    for (const char* name : names) {
        dir.write(std::string("new/") + name);
    }
    dir.write("new/20120314"); // a file
    std::vector<std::string> dates;
    EXPECT_EQ(Util::getDateInNewDirectory(dir.path(), dates), 0);
    EXPECT_EQ(dates, (std::vector<std::string>{dir / "new/20111231", dir / "new/20120313",
                                               dir / "new/20121399"}));
    std::vector<std::string> files;
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "new/20120313", files), 0);
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "new/20111231", files), 0); // appended
    EXPECT_EQ(files, (std::vector<std::string>{dir / "new/20120313/3.daycrcsortnew",
                                               dir / "new/20120313/12.daycrcsortnew",
                                               dir / "new/20120313/100.daycrcsortnew",
                                               dir / "new/20111231/1.daycrcsortnew"}));
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "new/20000000", files), 0);
    EXPECT_EQ(Util::getDaycrcsortNews(dir / "missing", files), 0);
    EXPECT_EQ(Util::getDateInNewDirectory(dir / "missing", dates), 0);
    EXPECT_EQ(files.size() + dates.size(), 7U);
}

TEST(Listing, OnlyRealFailuresFail) {
    struct Case {
        FindStep step;
        uint32_t error;
        int result;
        size_t found;
        const char* message;
    };
    const Case cases[] = {
        {FindStep::First, 2, 0, 0, ""},
        {FindStep::First, 3, 0, 0, ""},
        {FindStep::First, 5, -1, 0, "FindFirstFile for "},
        {FindStep::Next, 5, -1, 0, "FindNextFile fail, errcode 5\n"},
        {FindStep::Close, 6, 0, 1, "E:Util::getDateInNewDirectory "},
        {FindStep::Close, 6, 0, 1, "FindClose fail, errcode 6\n"},
    };
    const test::TempDir dir;
    dir.makeDirs("new/20120313");
    for (const Case& one : cases) {
        FailingFind failing(one.step, one.error);
        const test::ScopedPlatform scope(failing);
        std::vector<std::string> dates;
        testing::internal::CaptureStdout();
        EXPECT_EQ(Util::getDateInNewDirectory(dir.path(), dates), one.result);
        const std::string console = testing::internal::GetCapturedStdout();
        EXPECT_EQ(dates.size(), one.found);
        EXPECT_NE(console.find(one.message), std::string::npos) << console;
        EXPECT_EQ(console.empty(), std::string(one.message).empty());
    }
}

// ---- free space

class Space : public testing::Test {
protected:
    Space() { g_isRunning = 1; }
    ~Space() override { g_isRunning = 0; }

    static constexpr uint64_t g_mebibyte = 1048576;
    test::FakeClockPlatform m_machine;
    test::ScopedPlatform m_scope{m_machine};
};

TEST_F(Space, IsCountedInWholeMebibytes) {
    uint32_t mebibytes = 0;
    for (const auto& [bytes, expected] : {std::pair<uint64_t, uint32_t>{g_mebibyte - 1, 0},
                                          {5121 * g_mebibyte - 1, 5120},
                                          {uint64_t{1} << 50, 1 << 30},
                                          {uint64_t{1} << 62, 0xFFFFFFFFU}}) {
        m_machine.freeBytes = bytes;
        EXPECT_EQ(Util::getAvailableSpace("x", mebibytes), 0);
        EXPECT_EQ(mebibytes, expected);
    }
}

TEST_F(Space, ExactlyTheMinimumIsTooLittle) {
    m_machine.freeBytes = 5121 * g_mebibyte;
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(m_machine.slept, 0U);

    m_machine.freeBytes = 5120 * g_mebibyte;
    int steps = 0;
    m_machine.onSleep = [&] {
        if (++steps == 3) {
            m_machine.freeBytes = 5121 * g_mebibyte; // seen at the next test only
        }
    };
    testing::internal::CaptureStdout();
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    const std::string console = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(console.ends_with(" space not enough min 5120M, available 5120M\n")) << console;
    EXPECT_EQ(std::count(console.begin(), console.end(), '\n'), 1);
    EXPECT_EQ(m_machine.slept, 1200000U);
    EXPECT_EQ(steps, 2400);
}

TEST_F(Space, AStopEndsTheWait) {
    m_machine.freeBytes = 0;
    m_machine.onSleep = [] { g_isRunning = 0; };
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0);
    EXPECT_EQ(m_machine.slept, 500U);
    EXPECT_EQ(Util::sleepWhileNoSpace("x"), 0); // already stopped: not even a look
    EXPECT_EQ(m_machine.slept, 500U);
}

TEST(AssureNotEmpty, Allocates) {
    Buffer buffer;
    EXPECT_EQ(Util::assureNotEmpty(10, &buffer), 0);
    EXPECT_EQ(buffer.size(), 10U);
    EXPECT_EQ(Util::assureNotEmpty(0, &buffer), -1);
    EXPECT_EQ(Util::assureNotEmpty(-1, &buffer), -1);
    EXPECT_EQ(Util::assureNotEmpty(1, nullptr), -1);
}

} // namespace
} // namespace kestrine
