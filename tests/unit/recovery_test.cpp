#include "recovery/exception_check.h"
#include "support/choices.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";

class RecoveryTest : public StatTree {
protected:
    int check() {
        ExceptionCheck exceptionCheck;
        const int result = exceptionCheck.check(g_account);
        EXPECT_EQ(m_disk.openNow(), 0U);
        return result;
    }
    static constexpr Period g_periods[] = {Period::Day, Period::Week, Period::Month};
    static std::string directoryOf(Period period) {
        return g_accountDir + std::string(period == Period::Day    ? "/20120303"
                                          : period == Period::Week ? "/week20120226_20120303"
                                                                   : "/mon20120301_20120331");
    }
    // A formal file, backup or temporary of content number `content`, all consistent with each
    // other and with the waiting files 0 to 2.
    void putPeriod(const std::string& path, Period period, int32_t content) {
        if (period == Period::Day) {
            put(path, upTo(content, g_date), dayStatusOf({{node(g_date), content, 28}}, content));
        } else {
            put(path, upTo(content, g_date), weekMonStatusOf({{newDir(g_date), content}}));
        }
    }
    void putWaiting() {
        for (int32_t number = 0; number <= 2; ++number) {
            putNew(g_date, number);
        }
    }
    static uint32_t typeOf(Period period) {
        return period == Period::Day ? g_dayStatusType : g_weekMonStatusType;
    }
};

// Every set of formal file, backup and temporary, and every set of list directories.
TEST_F(RecoveryTest, EveryStateIsSettled) {
    Choices choices;
    do {
        m_disk.files.clear();
        m_disk.directories.clear();
        putWaiting();
        const Period period = g_periods[choices.choose(3)];
        const std::string directory = directoryOf(period);
        const std::string formal = names::formalFile(directory, period);
        const bool hasFormal = choices.flip();
        const bool hasBackup = choices.flip();
        const bool hasTemp = choices.flip();
        const bool hasHalf = choices.flip();
        const size_t lists = choices.choose(8);
        if (hasFormal) {
            putPeriod(formal, period, 1);
        }
        if (hasBackup) {
            putPeriod(formal + "_backup", period, 0);
        }
        if (hasTemp) {
            putPeriod(formal + ".temp", period, 2);
        }
        if (hasHalf) {
            m_disk.files[formal + ".temp.temp"] = {1, 2};
            m_disk.files[directory + "/other.temp.temp/file"] = {1};
        }
        for (const size_t bit : {0U, 1U, 2U}) { // current, complete, incomplete
            const char* const ending[] = {"", ".temp", ".temp.temp"};
            if ((lists & (1U << bit)) != 0) {
                m_disk.files[directory + "/topn" + ending[bit] + "/all.top"] = {
                    static_cast<uint8_t>(bit)};
                m_disk.files[directory + "/topn" + ending[bit] + "/.dot"] = {};
            }
        }
        SCOPED_TRACE(directory + " formal " + std::to_string(hasFormal) + " backup " +
                     std::to_string(hasBackup) + " temp " + std::to_string(hasTemp) + " lists " +
                     std::to_string(lists));
        ASSERT_EQ(check(), 0);
        const bool restored = !hasFormal && hasBackup;
        ASSERT_EQ(m_disk.files.contains(formal), hasFormal || hasBackup);
        ASSERT_EQ(m_disk.files.contains(formal + "_backup"), hasBackup && !restored);
        ASSERT_FALSE(m_disk.files.contains(formal + ".temp"));
        ASSERT_FALSE(m_disk.files.contains(formal + ".temp.temp"));
        ASSERT_FALSE(m_disk.exists(directory + "/other.temp.temp"));
        ASSERT_FALSE(m_disk.exists(directory + "/topn.temp"));
        ASSERT_FALSE(m_disk.exists(directory + "/topn.temp.temp"));
        const auto list = m_disk.files.find(directory + "/topn/all.top");
        if (!hasFormal && !hasBackup) {
            ASSERT_FALSE(m_disk.exists(directory + "/topn"));
        } else if ((lists & 2) != 0 && !restored) { // a complete set takes its place
            ASSERT_EQ(list->second, MemoryDisk::Bytes{1});
        } else if ((lists & 1) != 0 && !restored) {
            ASSERT_EQ(list->second, MemoryDisk::Bytes{0});
        } else {
            expectPeriodFile(formal, typeOf(period), upTo(hasFormal ? 1 : 0, g_date));
        }
        const auto settled = m_disk.files;
        ASSERT_EQ(check(), 0);
        ASSERT_EQ(difference(m_disk.files, settled), "");
    } while (choices.next());
}

TEST_F(RecoveryTest, NamesDecideWhatIsTouched) {
    const std::string account = std::string(g_accountDir) + "/";
    const std::string kept[] = {"file",
                                "20120303x/daycrcsort.temp",
                                "2012030/daycrcsort.temp",
                                "19991231/daycrcsort.temp",
                                "week20120226/weekcrcsort.temp",
                                "diskTemp/20120303/1.temp",
                                "month20120301_20120331/moncrcsort.temp",
                                "20120303/dirstat",
                                "20120303/other.temp",
                                "20120303/sub/daycrcsort.temp",
                                "new/file.daycrcsortnew.temp",
                                "new/20120304/x",
                                "new/20120304/sub.daycrcsortnew.temp/x",
                                "new/x/y",
                                ".hidden/daycrcsort.temp"};
    const std::string removed[] = {"20120303/daycrcsort.temp",
                                   "20121399/daycrcsort.temp",
                                   "20120303/x.temp.temp",
                                   "20120303/daycrcsort.temp.temp",
                                   "20120303/weekcrcsort.temp",
                                   "week19991226_20000101/weekcrcsort.temp",
                                   "mon20120301_20120331/moncrcsort.temp",
                                   "new/20120304/7.daycrcsortnew.temp",
                                   "new/x/8.daycrcsortnew.temp"};
    for (const std::string& name : kept) {
        m_disk.files[account + name] = {};
    }
    const auto wanted = m_disk.files;
    for (const std::string& name : removed) {
        m_disk.files[account + name] = {};
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(check(), 0);
    const std::string console = testing::internal::GetCapturedStdout();
    EXPECT_EQ(difference(m_disk.files, wanted), "");
    for (const char* const line :
         {"I:ExceptionCheck::checkDayWeekMon ",
          "/t/stat/acc/20120303x 20120303x is not valid, skip\n",
          "/t/stat/acc/file is not a directory, skip\n",
          "find broken file /t/stat/acc/20120303/x.temp.temp, remove\n",
          "/t/stat/acc/20120303/dirstat invalid, skip\n",
          "formal 0, backup 0, temp 1, delete /t/stat/acc/20120303/daycrcsort.temp and return\n",
          "broken file /t/stat/acc/new/20120304/7.daycrcsortnew.temp\n",
          "/t/stat/acc/new/file.daycrcsortnew.temp is not directory\n"}) {
        EXPECT_NE(console.find(line), std::string::npos) << line;
    }
    m_disk.files.clear();
    EXPECT_EQ(check(), 0); // nothing there at all
}

// A formal file that cannot be read gives way to its backup, also when that shows only with the
// status, and the backup gets its lists; when the backup is no better, nothing is left.
TEST_F(RecoveryTest, DamagedFilesGiveWayToTheirBackups) {
    Choices choices;
    do {
        m_disk.files.clear();
        m_disk.directories.clear();
        putWaiting();
        const Period period = g_periods[choices.choose(3)];
        const std::string formal = names::formalFile(directoryOf(period), period);
        const bool hasLists = choices.flip();
        const size_t damage = choices.choose(2); // a block, which shows with the lists; the trailer
        const size_t backup = choices.choose(4); // none, good, damaged likewise, damaged otherwise
        const auto putDamaged = [&](const std::string& path, int32_t content, size_t how) {
            putPeriod(path, period, content);
            MemoryDisk::Bytes& bytes = m_disk.files[path];
            bytes[how == 0 ? 39 : bytes.size() - 1] ^= 0x80;
        };
        putDamaged(formal, 1, damage);
        if (hasLists) {
            m_disk.files[directoryOf(period) + "/topn/all.top"] = {1};
        }
        if (backup == 1) {
            putPeriod(formal + "_backup", period, 0);
        } else if (backup > 1) {
            putDamaged(formal + "_backup", 0, backup == 2 ? damage : 1 - damage);
        }
        SCOPED_TRACE(formal + " lists " + std::to_string(hasLists) + " damage " +
                     std::to_string(damage) + " backup " + std::to_string(backup));
        ASSERT_EQ(check(), 0);
        if (hasLists && damage == 0) {
            continue; // it shows when it is merged
        }
        ASSERT_EQ(m_disk.names(g_root + std::string("/debug")).empty(), false);
        if (backup == 1) {
            expectPeriodFile(formal, typeOf(period), upTo(0, g_date));
        } else {
            ASSERT_FALSE(m_disk.exists(formal));
        }
        ASSERT_FALSE(m_disk.exists(formal + "_backup"));
        const auto settled = m_disk.files;
        ASSERT_EQ(check(), 0);
        if (backup == 1 || !m_disk.exists(directoryOf(period) + "/topn")) {
            ASSERT_EQ(difference(m_disk.files, settled), "");
        }
    } while (choices.next());
}

// The check is killed, or a call fails, at every change; the next one comes to the same end.
TEST_F(RecoveryTest, MayBeInterruptedAnywhere) {
    for (const Period period : g_periods) {
        const std::string formal = names::formalFile(directoryOf(period), period);
        putPeriod(formal + "_backup", period, 0);
        putPeriod(formal + ".temp", period, 2);
        m_disk.files[directoryOf(period) + "/topn/all.top"] = {1};
        m_disk.files[directoryOf(period) + "/topn.temp.temp/all.top"] = {1};
    }
    putWaiting();
    m_disk.files[newDir(g_date) + "/3.daycrcsortnew.temp"] = {1};
    putNew(g_date, 9); // beyond a gap
    const auto before = m_disk.files;
    ASSERT_EQ(check(), 0);
    const auto settled = m_disk.files;
    for (const Period period : g_periods) {
        expectPeriodFile(names::formalFile(directoryOf(period), period), typeOf(period),
                         upTo(0, g_date));
    }
    using Mode = FailingPlatform::Mode;
    for (const Mode mode : {Mode::Once, Mode::FromThenOn}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            m_disk.files = before;
            m_disk.directories.clear();
            FailingPlatform failing(n, mode, m_disk);
            {
                const ScopedPlatform scope(failing);
                const int result = check();
                EXPECT_TRUE(result == 0 || failing.failed());
            }
            if (!failing.failed()) {
                EXPECT_GT(n, 40);
                break;
            }
            ASSERT_EQ(check(), 0);
            ASSERT_EQ(difference(m_disk.files, settled), "");
        }
    }
}

} // namespace
} // namespace kestrine
