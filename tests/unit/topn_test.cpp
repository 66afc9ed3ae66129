#include "recovery/exception_check.h"
#include "support/failing_platform.h"
#include "support/stat_tree.h"
#include "topn/top_url_record.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

using namespace test;

class TopUrlRecordTest : public StatTree {
protected:
    int createTop(uint32_t type = g_dayStatusType) {
        TopUrlRecord top;
        return top.createTop(type, m_directory, type == g_dayStatusType ? m_day : m_week);
    }
    const std::string m_directory = std::string(g_accountDir) + "/20120303";
    const std::string m_day = m_directory + "/daycrcsort";
    const std::string m_week = m_directory + "/weekcrcsort";
    const DayStatus m_status = dayStatusOf({{node("20120303"), 1, 1}}, 1);
};

// Few counts, so that most records tie, at the end of a list too; types of one record and of many.
TEST_F(TopUrlRecordTest, ListsAreARecountOfTheFile) {
    const uint64_t seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (const size_t number : {0U, 1U, 500U, 12000U}) {
        TestRecords records = randomRecords(random, number, 3, 12);
        for (TestRecord& record : records) {
            record.count = number == 500 ? random() : 1 + random() % 3; // signed order
            record.type = random() % 50 == 0 ? static_cast<uint32_t>(random()) : 7;
        }
        if (number == 500) {
            for (TestRecord& record : records) {
                record.count >>= 12; // the total stays positive
            }
        }
        put(m_day, records, m_status);
        EXPECT_EQ(createTop(), 0);
        expectTopLists(m_directory, records);
        put(m_week, records, weekMonStatusOf({{newDir("20120303"), 1}}));
        EXPECT_EQ(createTop(g_weekMonStatusType), 0);
        expectTopLists(m_directory, records);
        EXPECT_EQ(m_disk.openNow(), 0U);
    }
}

TEST_F(TopUrlRecordTest, LeftOverDirectoriesPromoteNothing) {
    put(m_day, recordsOf(1, "d"), m_status);
    for (const char* const left : {"topn/5.top", "topn.temp/6.top", "topn.temp.temp/7.top",
                                   "topn.temp.temp/.hidden", "topn.temp.temp/all.top"}) {
        m_disk.files[m_directory + "/" + left] = {1};
    }
    EXPECT_EQ(createTop(), 0);
    expectTopLists(m_directory, recordsOf(1, "d"));
}

TEST_F(TopUrlRecordTest, AStopMakesNoLists) {
    put(m_day, recordsOf(1, "d"), m_status);
    const auto before = m_disk.files;
    g_isRunning = 0;
    EXPECT_EQ(createTop(), 0);
    EXPECT_EQ(difference(m_disk.files, before), "");
}

// After each failing call, and after a kill there, the start-up check brings complete lists.
TEST_F(TopUrlRecordTest, EveryInterruptionIsSettled) {
    using Mode = FailingPlatform::Mode;
    put(m_day, recordsOf(2, "d"), m_status);
    const auto before = m_disk.files;
    for (const Mode mode : {Mode::Once, Mode::FromThenOn}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(n);
            m_disk.files = before;
            m_disk.directories.clear();
            FailingPlatform failing(n, mode, m_disk);
            {
                const ScopedPlatform scope(failing);
                const int result = createTop();
                EXPECT_EQ(result, failing.failed() ? -1 : 0);
            }
            EXPECT_EQ(m_disk.openNow(), 0U);
            if (!failing.failed()) {
                EXPECT_GT(n, 15);
                break;
            }
            ExceptionCheck check;
            EXPECT_EQ(check.crcsort(m_directory, Period::Day), 0);
            expectTopLists(m_directory, recordsOf(2, "d"));
        }
    }
}

TEST_F(TopUrlRecordTest, DamagedFileGivesWayToItsBackup) {
    put(m_day, recordsOf(1, "d"), m_status);
    const MemoryDisk::Bytes good = m_disk.files[m_day];
    for (const size_t offset : {size_t{39}, good.size() - 30, good.size() - 2}) {
        m_disk.files = {{m_day, good}, {m_day + "_backup", {1}}, {m_directory + "/topn/x", {}}};
        m_disk.files[m_day][offset] ^= 0x80;
        EXPECT_EQ(createTop(), -1);
        EXPECT_EQ(m_disk.files.size(), 2U);
        EXPECT_EQ(m_disk.files[m_day], MemoryDisk::Bytes{1});
        EXPECT_TRUE(m_disk.files.rbegin()->first.starts_with("/t/stat/debug/20120303/"));
    }
    EXPECT_EQ(createTop(g_weekMonStatusType), -1); // not there
    TopUrlRecord top;
    EXPECT_EQ(top.createTop(g_dayStatusType, "", ""), -1);
}

} // namespace
} // namespace kestrine
