#include "recovery/exception_check.h"
#include "recovery/period_check.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";
constexpr int32_t g_none = -2;    // no file
constexpr int32_t g_removed = -3; // not even the day's directory
constexpr int32_t g_broken = -4;  // a file that cannot be read

class PeriodCheckTest : public StatTree {
protected:
    int check() {
        PeriodCheck periods(g_accountDir);
        const int result = periods.check();
        EXPECT_EQ(m_disk.openNow(), 0U);
        return result;
    }
    void putDayState(int32_t counter, const std::string& path) {
        if (counter == g_broken) {
            m_disk.files[path] = {1, 2, 3};
        } else if (counter > g_none) {
            put(path, upTo(counter, g_date), dayStatusOf({{node(g_date), counter, 28}}, counter));
        }
        if (counter != g_removed) {
            m_disk.directories.insert(std::string(names::parentOf(path)));
        }
    }
    // A week file that holds the date up to `held`, and another date that is always as it should
    // be.
    void putWeek(const std::string& path, int32_t held) {
        if (held == g_broken) {
            m_disk.files[path] = {1, 2, 3};
        } else if (held != g_none) {
            put(path, upTo(held, g_date),
                weekMonStatusOf({{"D:/moved/20120302", 0}, {newDir(g_date), held}}));
        }
    }
    std::map<std::string, MemoryDisk::Bytes> outsideDebug() {
        auto files = m_disk.files;
        std::erase_if(files, [](const auto& file) {
            return file.first.starts_with(g_root + std::string("/debug/"));
        });
        return files;
    }
    std::vector<int32_t> waiting() {
        std::vector<int32_t> numbers;
        for (const std::string& name : m_disk.names(newDir(g_date))) {
            numbers.push_back(names::newDayNumber(name));
        }
        return numbers;
    }

    const std::string m_weekDir = std::string(g_accountDir) + "/week20120226_20120303";
    const std::string m_week = m_weekDir + "/weekcrcsort";
};

TEST_F(PeriodCheckTest, Table) {
    using Numbers = std::vector<int32_t>;
    const struct {
        const char* what;
        int32_t day;
        int32_t dayBackup;
        Numbers waiting;
        int32_t week;
        int32_t weekBackup;
        Numbers waitingAfter;
        int32_t weekAfter; // what the week file holds, or g_none
    } cases[] = {
        // What kills can leave: nothing is touched.
        {"nothing yet", g_removed, g_none, {}, g_none, g_none, {}, g_none},
        {"first new-day file", g_removed, g_none, {0}, g_none, g_none, {0}, g_none},
        {"day merged", 0, g_none, {0}, g_none, g_none, {0}, g_none},
        {"week merged", 0, g_none, {0}, 0, g_none, {0}, 0},
        {"month done", 0, g_none, {}, 0, g_none, {}, 0},
        {"next one waits", 0, g_none, {1}, 0, g_none, {1}, 0},
        {"several wait", 0, g_none, {0, 1, 2}, 0, g_none, {0, 1, 2}, 0},
        {"day ahead of week", 2, 1, {1, 2}, 0, g_none, {1, 2}, 0},
        {"deletion half done", 2, 1, {2}, 2, 1, {2}, 2},
        {"week never had the date", 1, g_none, {0, 1}, -1, g_none, {0, 1}, -1},
        // What a lost or damaged file leaves.
        {"gap", 1, g_none, {3, 4}, 1, g_none, {}, 1},
        {"gap behind a run", 1, g_none, {2, 3, 5, 7}, 1, g_none, {2, 3}, 1},
        {"gap without day file", g_none, g_none, {1, 2}, g_none, g_none, {}, g_none},
        {"day file lost", g_none, g_none, {}, 2, 1, {}, g_none},
        {"day file lost, all waits", g_none, g_none, {0, 1, 2}, 2, 1, {0, 1, 2}, 2},
        {"day file lost, some wait", g_none, g_none, {1, 2}, 2, 1, {}, g_none},
        {"day broken, backup good", g_broken, 1, {}, 2, 1, {}, g_none},
        {"day broken, backup near", g_broken, 1, {2}, 2, 1, {2}, 2},
        {"day broken, backup near, next waits", g_broken, 1, {2, 3}, 2, 1, {2, 3}, 2},
        {"day broken, backup far", g_broken, 0, {2, 3}, 2, 1, {}, g_none},
        {"day and backup broken", g_broken, g_broken, {3}, 2, 1, {}, g_none},
        {"week ahead", 1, g_none, {}, 2, 1, {}, g_none},
        {"week ahead of what waits", 1, g_none, {2}, 3, 1, {2}, g_none},
        {"week fell back, deleted", 2, 1, {}, g_broken, 1, {}, g_none},
        {"week fell back, waits", 2, 1, {2}, g_broken, 1, {2}, 1},
        {"week fell back, some deleted", 2, 1, {2}, g_broken, 0, {2}, g_none},
        {"week and backup broken", 2, 1, {}, g_broken, g_broken, {}, g_none},
        {"week behind without files", 2, 1, {}, 1, 0, {}, g_none},
        {"date removed whole", g_removed, g_none, {}, 5, 4, {}, 5},
        {"date removed, logs read again", g_removed, g_none, {0}, 5, 4, {0}, g_none},
    };
    for (const auto& [what, day, dayBackup, waitingBefore, week, weekBackup, waitingAfter,
                      weekAfter] : cases) {
        SCOPED_TRACE(what);
        const auto build = [&] {
            m_disk.files.clear();
            m_disk.directories.clear();
            putDayState(day, dayFile(g_date));
            if (dayBackup != g_none) {
                putDayState(dayBackup, dayFile(g_date) + "_backup");
            }
            for (const int32_t number : waitingBefore) {
                putNew(g_date, number);
            }
            putWeek(m_week, week);
            putWeek(m_week + "_backup", weekBackup);
            m_disk.files[m_weekDir + "/topn/all.top"] = {1};
        };
        build();
        const auto before = m_disk.files;
        EXPECT_EQ(check(), 0);
        EXPECT_EQ(waiting(), waitingAfter);
        const UrlFileContent content = m_disk.files.contains(m_week)
                                           ? readUrlFile(m_week, g_weekMonStatusType)
                                           : UrlFileContent();
        EXPECT_EQ(content.weekMonStatus ? content.weekMonStatus->counterOfDate(g_date) : g_none,
                  weekAfter);
        const bool untouched =
            week == weekAfter && waitingBefore == waitingAfter && day >= g_none && day != g_broken;
        if (untouched) {
            EXPECT_EQ(difference(m_disk.files, before), "");
        } else if (weekAfter == g_none && week != g_none) {
            EXPECT_EQ(m_disk.names(m_weekDir).size(), 0U); // with backup and lists
        }
        // Every byte is still somewhere: set aside, or as it was; but for backups and lists.
        for (const auto& [path, bytes] : before) {
            bool found = path.find("_backup") != std::string::npos || path.ends_with(".top");
            for (const auto& [now, content2] : m_disk.files) {
                found = found || content2 == bytes;
            }
            EXPECT_TRUE(found) << path;
        }
        const auto settled = m_disk.files;
        EXPECT_EQ(check(), 0);
        EXPECT_EQ(difference(m_disk.files, settled), "");
        // The whole start-up check, killed anywhere and done again, comes to the same end.
        ExceptionCheck whole;
        build();
        EXPECT_EQ(whole.check(g_account), 0);
        const auto wanted = outsideDebug();
        for (int n = 1;; ++n) {
            build();
            FailingPlatform failing(n, FailingPlatform::Mode::FromThenOn, m_disk);
            {
                const ScopedPlatform scope(failing);
                EXPECT_TRUE(whole.check(g_account) == 0 || failing.failed());
            }
            if (!failing.failed()) {
                break;
            }
            EXPECT_EQ(whole.check(g_account), 0);
            EXPECT_EQ(difference(outsideDebug(), wanted), "") << n;
        }
    }
}

// Each period has its own dates, and a date that is none of the calendar belongs to no period.
TEST_F(PeriodCheckTest, EachPeriodIsJudgedByItsDates) {
    const auto putPeriod = [this](const std::string& name, const std::string& file,
                                  const std::vector<DateEntry>& entries) {
        std::vector<TestRecords> parts;
        for (const DateEntry& entry : entries) {
            parts.push_back(upTo(entry.counter, std::string(names::lastComponent(entry.path))));
        }
        return put(g_accountDir + ("/" + name + "/" + file), summed(parts),
                   weekMonStatusOf(entries));
    };
    putDay("20120229", 3);
    putDay("20120301", 0);
    putDay("20120399", 9);
    const std::string week = putPeriod("week20120226_20120303", "weekcrcsort",
                                       {{newDir("20120229"), 3}, {newDir("20120301"), 0}});
    const std::string february =
        putPeriod("mon20120201_20120229", "moncrcsort", {{newDir("20120229"), 2}});
    const std::string march =
        putPeriod("mon20120301_20120331", "moncrcsort", {{newDir("20120301"), 0}});
    const std::string january =
        putPeriod("mon20120101_20120131", "moncrcsort", {{newDir("20120105"), 8}});
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(m_disk.exists(week));
    EXPECT_FALSE(m_disk.exists(february)); // number 3 is gone
    EXPECT_TRUE(m_disk.exists(march));
    EXPECT_TRUE(m_disk.exists(january)); // its day was removed whole
    EXPECT_EQ(m_disk.names(g_root + std::string("/debug/mon20120201_20120229")).size(), 1U);
}

} // namespace
} // namespace kestrine
