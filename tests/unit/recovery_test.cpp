#include "recovery/exception_check.h"
#include "recovery/file_check.h"
#include "recovery/period_check.h"
#include "storage/formal_file.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kestrine {
namespace {

using namespace test;
using Bytes = MemoryDisk::Bytes;

constexpr const char* g_date = "20120303";

class RecoveryTest : public StatTree {
protected:
    // A day, week or month file, backup or temporary with what the new-day files up to a number
    // hold; week and month also hold a date that was removed whole.
    void putHeld(const std::string& path, int32_t held) {
        if (path.find("/daycrcsort") != std::string::npos) {
            put(path, upTo(held, g_date), dayStatusOf({{node(g_date), held, 28}}, held));
        } else {
            put(path, upTo(held, g_date),
                weekMonStatusOf({{"D:/moved/acc/new/20120302", 0}, {newDir(g_date), held}}));
        }
    }
    // The same for a number in digits; "bad": a file that cannot be read; "other": one of
    // another date or account; ".", "gone": none.
    void putState(const std::string& path, const std::string& state) {
        if (state == "bad") {
            m_disk.files[path] = {1, 2, 3};
        } else if (state == "other" && path.find("/daycrcsort") != std::string::npos) {
            put(path, upTo(1, g_date), dayStatusOf({{node("20120302"), 1, 28}}, 1));
        } else if (state == "other") {
            put(path, upTo(1, g_date), weekMonStatusOf({{"/t/stat/bob/new/20120303", 1}}));
        } else if (state != "gone" && state != ".") {
            putHeld(path, std::stoi(state));
        }
    }
    void check() { ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0); }
};

// Every set of formal file, backup, temporary and list directories, beside names not touched.
TEST_F(RecoveryTest, EveryStateIsSettled) {
    const std::string account = g_accountDir + std::string("/");
    Choices choices;
    do {
        m_disk.files.clear();
        m_disk.directories.clear();
        for (int32_t number = 0; number <= 2; ++number) {
            putNew(g_date, number);
        }
        static constexpr const char* formals[] = {"/20120303/daycrcsort",
                                                  "/week20120226_20120303/weekcrcsort",
                                                  "/mon20120301_20120331/moncrcsort"};
        const size_t period = choices.choose(3);
        const std::string formal = g_accountDir + std::string(formals[period]);
        const std::string directory(names::parentOf(formal));
        const bool hasFormal = choices.flip();
        const bool hasBackup = choices.flip();
        const bool hasTemp = choices.flip();
        bool hasList[3]; // current, complete, incomplete
        if (hasFormal) {
            putHeld(formal, 1);
        }
        if (hasBackup) {
            putHeld(formal + "_backup", 0);
        }
        if (hasTemp) {
            putHeld(formal + ".temp", 2);
            m_disk.files[formal + ".temp.temp"] = {1, 2};
            m_disk.files[directory + "/other.temp.temp/file"] = {1};
        }
        for (const size_t i : {0U, 1U, 2U}) {
            hasList[i] = choices.flip();
            if (hasList[i]) {
                static constexpr const char* endings[] = {"", ".temp", ".temp.temp"};
                const std::string lists = directory + "/topn" + endings[i];
                m_disk.files[lists + "/all.top"] = {static_cast<uint8_t>(i)};
                m_disk.files[lists + "/.dot"] = {};
            }
        }
        const std::string kept[] = {"file",
                                    "20120303x/daycrcsort.temp",
                                    "19991231/daycrcsort.temp",
                                    "diskTemp/20120303/1.temp",
                                    "new/20120304/x",
                                    ".x/daycrcsort.temp"};
        for (const std::string& name : kept) {
            m_disk.files[account + name] = {};
        }
        m_disk.files[account + "new/20120304/7.daycrcsortnew.temp"] = {};
        SCOPED_TRACE(testing::PrintToString(m_disk.names(directory)));
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        for (const std::string& name : kept) {
            ASSERT_TRUE(m_disk.files.contains(account + name));
        }
        ASSERT_EQ(m_disk.names(account + "new/20120304").size(), 1U);
        const bool restored = !hasFormal && hasBackup;
        ASSERT_EQ(m_disk.files.contains(formal), hasFormal || hasBackup);
        ASSERT_EQ(m_disk.files.contains(formal + "_backup"), hasBackup && !restored);
        for (const std::string& path : {formal, directory + "/topn", directory + "/other"}) {
            ASSERT_FALSE(m_disk.exists(path + ".temp") || m_disk.exists(path + ".temp.temp"));
        }
        const auto list = m_disk.files.find(directory + "/topn/all.top");
        if (!hasFormal && !hasBackup) {
            ASSERT_FALSE(m_disk.exists(directory + "/topn"));
        } else if (hasList[1] && !restored) { // a complete set takes its place
            ASSERT_EQ(list->second, Bytes{1});
        } else if (hasList[0] && !restored) {
            ASSERT_EQ(list->second, Bytes{0});
        } else {
            expectPeriodFile(formal, period == 0 ? g_dayStatusType : g_weekMonStatusType,
                             upTo(hasFormal ? 1 : 0, g_date));
        }
        const auto settled = m_disk.files;
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        ASSERT_EQ(difference(m_disk.files, settled), "");
    } while (choices.next() && !HasFailure());
}

TEST_F(RecoveryTest, FilesInThePlaceOfDirectoriesAreSetAside) {
    for (const char* const name : {"", "/diskTemp", "/new", "/new/20120304", "/20120303"}) {
        SCOPED_TRACE(name);
        m_disk.files = {{g_accountDir + std::string(name), {1}}};
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        EXPECT_TRUE(m_disk.files.size() == 1 && !m_disk.exists(g_accountDir + std::string(name)));
    }
}

TEST_F(RecoveryTest, FilesThatContradictEachOther) {
    const std::string weekDir = std::string(g_accountDir) + "/week20120226_20120303";
    const std::string weekFile = weekDir + "/weekcrcsort";
    // Day file and its backup, new-day files that wait, week file and its backup, whether the logs
    // are there (L); then what waits and what the week file holds.
    const char* const cases[] = {
        // What kills can leave, from nothing to a deletion that is half done: nothing is touched.
        "gone . . . . . . .", "gone . 0 . . L 0 .", "0 . 0 0 . L 0 0", "0 . 1 0 . L 1 0",
        "0 . 012 0 . L 012 0", "2 1 12 0 . L 12 0", "2 1 2 2 1 L 2 2", "1 . 01 -1 . L 01 -1",
        // What waits beyond a gap is read again, if that can be; otherwise it stays.
        "1 . 34 1 . L . 1", "1 . 2357 1 . L 23 1", ". . 12 . . L . .", "1 . 34 1 . . 34 1",
        "1 . 2357 1 . . 2357 1",
        // Day file lost or broken: a thousand numbers (a: 1000) left out above what the week file
        // knows are no gap.
        ". . . 2 1 . . 2", ". . 12 2 1 L . 2", ". . 12 2 1 . 12 2", ". . c 2 1 L c 2",
        ". . 4 2 1 L . 2", ". . d 2 1 L . 2", "bad 1 . 2 1 L . 2", "bad 1 23 2 1 L 23 2",
        "bad 0 23 2 1 L . 2", "bad 0 23 2 1 . 23 2", "bad bad 3 2 1 L . 2", "bad 1 e 2 1 L e 2",
        // ... if what it stands on is still there.
        "bad 1 c 2 1 L . 2", ". . e 2 1 L . 2",
        // A week file gives way to its backup only when it is damaged or belongs elsewhere.
        "1 . . 2 1 L . 2", "1 . 2 3 1 L 2 3", "2 1 . 1 0 L . 1", "2 1 . bad 1 L . 1",
        "2 1 2 bad bad L 2 .", "2 1 . other 1 . . 1", "other 1 . 1 . . . 1",
        // A date that was removed whole.
        "gone . . 5 4 L . 5"};
    for (const char* const row : cases) {
        SCOPED_TRACE(row);
        std::string day, dayBackup, waiting, week, weekBackup, logs, waitingAfter, weekAfter;
        std::istringstream(row) >> day >> dayBackup >> waiting >> week >> weekBackup >> logs >>
            waitingAfter >> weekAfter;
        m_disk.files.clear();
        m_disk.directories.clear();
        putState(dayFile(g_date), day);
        putState(dayFile(g_date) + "_backup", dayBackup);
        if (day != "gone") {
            m_disk.directories.insert(names::dayDir(g_accountDir, g_date));
        }
        for (const char digit : waiting) {
            if (digit != '.') {
                putNew(g_date, digit >= 'a' ? 1000 + digit - 'a' : digit - '0');
            }
        }
        for (int32_t number = 0; number < 1010 && logs == "L"; ++number) {
            m_disk.files[names::datFile(names::typeDir(node(g_date)), number)] = {};
        }
        putState(weekFile, week);
        putState(weekFile + "_backup", weekBackup);
        m_disk.files[weekDir + "/topn/all.top"] = {1};
        const auto before = m_disk.files;
        ASSERT_EQ(PeriodCheck(g_accountDir).check(), 0);
        // A second time, as after a kill, and to see that damage nobody asked for is found.
        std::unique_ptr<UrlFile> file;
        const PeriodFiles files = periodFiles(names::dayDir(g_accountDir, g_date), Period::Day);
        ASSERT_GE(openFormal(files, Period::Day, file), 0);
        file.reset();
        std::string left;
        for (const std::string& name : m_disk.names(newDir(g_date))) {
            const int32_t number = names::newDayNumber(name);
            left += static_cast<char>(number >= 1000 ? 'a' + number - 1000 : '0' + number);
        }
        EXPECT_EQ(left.empty() ? "." : left, waitingAfter);
        if (weekAfter != ".") {
            const auto status = readUrlFile(weekFile, g_weekMonStatusType).weekMonStatus;
            EXPECT_TRUE(status && status->counterOfDate(g_date) == std::stoi(weekAfter));
        } else if (week != ".") {
            EXPECT_EQ(m_disk.names(weekDir).size(), 0U); // with backup and lists
        }
        if (week == weekAfter && waiting == waitingAfter && day != "bad" && day != "other") {
            EXPECT_EQ(difference(m_disk.files, before), "");
        }
        const auto settled = m_disk.files;
        ASSERT_EQ(PeriodCheck(g_accountDir).check(), 0);
        EXPECT_EQ(difference(m_disk.files, settled), "");
    }
}

// A disk whose files have times, by the ends of their paths.
struct DatedDisk : ForwardingPlatform {
    int64_t boot = 0;
    std::vector<std::pair<std::string, int64_t>> times;
    int64_t bootTime() override { return boot; }
    int info(const std::string& path, FileInfo& info) override {
        for (const auto& [ending, time] : times) {
            info.modified = path.ends_with(ending) ? time : info.modified;
        }
        return ForwardingPlatform::info(path, info);
    }
};

// Seconds before now of the start, the file, a list and the set, the list of all, and the result.
TEST_F(RecoveryTest, WhatIsSurelyWholeIsNotRead) {
    constexpr int64_t month = int64_t{35} * 86400;
    const std::tuple<int64_t, int64_t, int64_t, int64_t, const char*, int> cases[] = {
        {10000, 6400, 6300, 6240, "all", 2},
        {9999, 6400, 6300, 6240, "all", 0},  // soon after the start
        {10000, 6400, 6300, 6239, "all", 0}, // the set was changed later
        {10000, 6400, 6300, 6301, "all", 0}, // the list was
        {10000, 6400, 6401, 6390, "all", 0}, // a list of another file
        {10000, 6400, 6300, 6240, "2", 0},
        {10000, 600, 600, 600, "all", 2},
        {10000, 599, 599, 599, "all", 0}, // a moment ago
        {10000, month, 600, 600, "all", 2},
        {10000, month - 1, 600, 600, "all", 0}};
    for (const auto& [boot, file, list, set, all, result] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::tuple(boot, file, list, set)));
        m_disk.files.clear();
        putHeld(dayFile(g_date), 1);
        const std::string lists = names::topDir(names::dayDir(g_accountDir, g_date));
        m_disk.files[lists + "/1.top"] = m_disk.files[lists + "/" + all + ".top"] = {};
        const int64_t now = *m_clock.seconds;
        DatedDisk disk;
        const ScopedPlatform scope(disk);
        disk.boot = now - boot;
        disk.times = {{"daycrcsort", now - file},
                      {"/topn", now - set},
                      {".top", now - file},
                      {"1.top", now - list}};
        EXPECT_EQ(checkFile(dayFile(g_date), g_dayStatusType), result);
        EXPECT_EQ(checkFile(dayFile(g_date), g_dayStatusType, Reading::Always), 0);
    }
}

} // namespace
} // namespace kestrine
