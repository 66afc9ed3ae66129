#include "recovery/exception_check.h"
#include "recovery/file_check.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_checkedDate = "20120303";

class RecoveryTest : public StatTree {
protected:
    // A day, week or month file, backup or temporary with what the new-day files up to a number
    // hold; week and month also hold a date that was removed whole.
    void putHeld(const std::string& path, int32_t held) {
        if (path.find("/daycrcsort") != std::string::npos) {
            put(path, upTo(held, g_checkedDate),
                dayStatusOf({{node(g_checkedDate), held, 28}}, held));
        } else {
            put(path, upTo(held, g_checkedDate),
                weekMonStatusOf({{"D:/moved/acc/new/20120302", 0}, {newDir(g_checkedDate), held}}));
        }
    }
};

// Every set of formal file, backup, temporary and list directories, beside names not touched.
TEST_F(RecoveryTest, EveryStateIsSettled) {
    const std::string account = g_accountDir + std::string("/");
    const std::string formals[] = {account + "20120303/daycrcsort",
                                   account + "week20120226_20120303/weekcrcsort",
                                   account + "mon20120301_20120331/moncrcsort"};
    const std::string kept[] = {account + "file", account + "20120303x/daycrcsort.temp",
                                account + "19991231/daycrcsort.temp", account + "new/20120304/x"};
    for (size_t state = 0; state < 192 && !HasFailure(); ++state) {
        size_t rest = state;
        const auto choose = [&rest](size_t of) { return std::exchange(rest, rest / of) % of; };
        m_disk.files.clear();
        m_disk.directories.clear();
        for (int32_t number = 0; number <= 2; ++number) {
            putNew(g_checkedDate, number);
        }
        const size_t period = choose(3);
        const std::string& formal = formals[period];
        const std::string directory(names::parentOf(formal));
        const bool hasFormal = choose(2) == 1;
        const bool hasBackup = choose(2) == 1;
        if (hasFormal) {
            putHeld(formal, 1);
        }
        if (hasBackup) {
            putHeld(formal + "_backup", 0);
        }
        if (choose(2) == 1) {
            putHeld(formal + ".temp", 2);
            m_disk.files[formal + ".temp.temp"] = {1, 2};
            m_disk.files[directory + "/other.temp.temp/file"] = {1};
        }
        bool hasList[3]; // current, complete, incomplete
        for (const size_t i : {0U, 1U, 2U}) {
            hasList[i] = choose(2) == 1;
            if (hasList[i]) {
                static constexpr const char* endings[] = {"", ".temp", ".temp.temp"};
                const std::string lists = directory + "/topn" + endings[i];
                m_disk.files[lists + "/all.top"] = {static_cast<uint8_t>(i)};
                m_disk.files[lists + "/.dot"] = {};
            }
        }
        for (const std::string& path : kept) {
            m_disk.files[path] = {};
        }
        m_disk.files[account + "new/20120304/7.daycrcsortnew.temp"] = {};
        SCOPED_TRACE(testing::PrintToString(m_disk.names(directory)));
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        for (const std::string& path : kept) {
            ASSERT_TRUE(m_disk.files.contains(path));
        }
        ASSERT_EQ(m_disk.names(account + "new/20120304").size(), 1U);
        const bool restored = !hasFormal && hasBackup;
        ASSERT_EQ(m_disk.files.contains(formal), hasFormal || hasBackup);
        ASSERT_EQ(m_disk.files.contains(formal + "_backup"), hasFormal && hasBackup);
        for (const std::string& path : {formal, directory + "/topn", directory + "/other"}) {
            ASSERT_FALSE(m_disk.exists(path + ".temp") || m_disk.exists(path + ".temp.temp"));
        }
        const auto list = m_disk.files.find(directory + "/topn/all.top");
        if (!hasFormal && !hasBackup) {
            ASSERT_FALSE(m_disk.exists(directory + "/topn"));
        } else if ((hasList[0] || hasList[1]) && !restored) { // a complete set takes its place
            ASSERT_EQ(list->second, MemoryDisk::Bytes{static_cast<uint8_t>(hasList[1] ? 1 : 0)});
        } else {
            expectPeriodFile(formal, period == 0 ? g_dayStatusType : g_weekMonStatusType,
                             upTo(hasFormal ? 1 : 0, g_checkedDate));
        }
        const auto settled = m_disk.files;
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        ASSERT_EQ(difference(m_disk.files, settled), "");
    }
}

// A disk on which files that hold one '|' are pipes or links to nothing.
struct PipeDisk : ForwardingPlatform {
    int info(const std::string& path, FileInfo& info) override {
        const int result = ForwardingPlatform::info(path, info);
        info.isOther = result == 0 && !info.isDirectory && info.size == 1;
        return result;
    }
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override {
        FileInfo entry;
        const bool pipe = info(path, entry) == 0 && entry.isOther;
        errno = ESPIPE;
        return pipe ? nullptr : ForwardingPlatform::open(path, mode);
    }
};

TEST_F(RecoveryTest, EntriesOfTheWrongKindAreSetAside) {
    PipeDisk disk;
    const ScopedPlatform scope(disk);
    for (const char* const name :
         {"", "/diskTemp", "/new", "/new/20120303", "/new/20120303/0.daycrcsortnew", "/20120303",
          "/20120303/daycrcsort", "/20120303/daycrcsort_backup", "/20120303/dirstat",
          "/20120303/daycrcsort.temp", "/20120303/topn", "/20120303/topn.temp",
          "/20120303/topn/all.top", "/20120303/topn/1.top", "/week20120226_20120303/weekcrcsort"}) {
        SCOPED_TRACE(name);
        const std::string path = g_accountDir + std::string(name);
        const std::string debug = g_root + std::string("/debug");
        m_disk.files.clear();
        m_disk.directories.clear();
        putHeld(dayFile(g_checkedDate), 1);
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0); // makes its lists
        (void)m_disk.removeTree({}, path);
        m_disk.files[path] = {'|'};
        m_disk.files[debug] = {1}; // moves out of the way
        ASSERT_EQ(ExceptionCheck(settings()).check(g_account), 0);
        std::vector<std::string> kept;
        for (const auto& [file, bytes] : m_disk.files) {
            if (bytes.size() == 1) {
                kept.push_back(file.substr(0, file.rfind('/')));
            }
        }
        EXPECT_TRUE(kept.size() == 2 && kept[0] == g_root && kept[1].starts_with(debug))
            << testing::PrintToString(kept);
    }
}

// Seconds before now of the start, the file, a list and the set, and whether the file is read.
TEST_F(RecoveryTest, WhatIsSurelyWholeIsNotRead) {
    struct : ForwardingPlatform {
        int64_t boot = 0;
        int64_t bootTime() override { return boot; }
    } disk;
    const ScopedPlatform scope(disk);
    constexpr int64_t month = int64_t{35} * 86400;
    const std::string path = dayFile(g_checkedDate);
    const std::string lists = names::topDir(names::parentOf(path));
    for (const auto& [boot, file, list, set, read] :
         {std::tuple(int64_t{10000}, int64_t{6400}, 6300, 6240, false),
          {9999, 6400, 6300, 6240, true},  // soon after the start
          {0, 6400, 6300, 6240, true},     // which is not known
          {10000, 6400, 6300, 6239, true}, // the set was changed later
          {10000, 6400, 6300, 6301, true}, // the list was
          {10000, 6400, 6401, 6390, true}, // a list of another file
          {10000, 600, 600, 600, false},
          {10000, 599, 599, 599, true}, // a moment ago
          {10000, month, 600, 600, false},
          {10000, month - 1, 600, 600, true}}) {
        putHeld(path, 1);
        m_disk.files[lists + "/1.top"] = m_disk.files[lists + "/all.top"] = {};
        const int64_t now = *m_clock.seconds;
        disk.boot = boot == 0 ? INT64_MAX : now - boot;
        m_disk.times = {{path, now - file},
                        {lists, now - set},
                        {lists + "/1.top", now - list},
                        {lists + "/all.top", now - file}};
        EXPECT_EQ(checkFile(path, g_dayStatusType), read ? 0 : 2) << boot << file << list << set;
    }
}

} // namespace
} // namespace kestrine
