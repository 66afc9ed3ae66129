#include "support/stat_tree.h"
#include "topn/top_url_record.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

class TopUrlRecordTest : public StatTree {
protected:
    const std::string m_directory = std::string(g_accountDir) + "/20120303";
    const std::string m_day = m_directory + "/daycrcsort";
    const std::string m_week = m_directory + "/weekcrcsort";
    const DayStatus m_status = dayStatusOf({{node("20120303"), 1, 1}}, 1);
};

// Few counts, so that most records tie, at the end of a list too; types of one record and of many.
// Whatever lists were left over, they are not promoted.
TEST_F(TopUrlRecordTest, ListsAreARecountOfTheFile) {
    std::mt19937_64 random(1);
    for (const size_t number : {0U, 1U, 500U, 12000U}) {
        TestRecords records = randomRecords(random, number, 3, 12);
        for (TestRecord& record : records) {
            record.count = number == 500 ? 1 + (random() >> 12) : 1 + random() % 3;
            record.type = random() % 50 == 0 ? static_cast<uint32_t>(random()) : 7;
        }
        for (const char* const left : {"topn/5.top", "topn.temp/6.top", "topn.temp.temp/7.top",
                                       "topn.temp.temp/.hidden", "topn.temp.temp/all.top"}) {
            m_disk.files[m_directory + "/" + left] = {1};
        }
        put(m_day, records, m_status);
        EXPECT_EQ(TopUrlRecord().createTop(g_dayStatusType, m_directory, m_day), 0);
        expectTopLists(m_directory, records);
        put(m_week, records, weekMonStatusOf({{newDir("20120303"), 1}}));
        EXPECT_EQ(TopUrlRecord().createTop(g_weekMonStatusType, m_directory, m_week), 0);
        expectTopLists(m_directory, records);
    }
}

// A number of records, a sum of counts and a total that are not those of the records.
TEST_F(TopUrlRecordTest, DamagedFileGivesWayToItsBackup) {
    put(m_day, recordsOf(1, "d"), m_status);
    const MemoryDisk::Bytes good = m_disk.files[m_day];
    for (const size_t offset : {size_t{39}, size_t{16}, good.size() - 2}) {
        m_disk.files = {{m_day, good}, {m_day + "_backup", {1}}};
        m_disk.files[m_day][offset] ^= 0x40;
        EXPECT_EQ(TopUrlRecord().createTop(g_dayStatusType, m_directory, m_day), -1);
        EXPECT_EQ(m_disk.files[m_day], MemoryDisk::Bytes{1});
        EXPECT_TRUE(m_disk.files.rbegin()->first.starts_with("/t/stat/debug/20120303/"));
    }
}

} // namespace
} // namespace kestrine
