#include "support/stat_tree.h"
#include "topn/top_url_record.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

using TopUrlRecordTest = StatTree;

// Few counts, so that most records tie, at the end of a list too; types of one record and of many.
// Whatever lists were left over, they are not promoted. Where a number of records, a sum of counts
// or the total is not that of the records, the file gives way to its backup.
TEST_F(TopUrlRecordTest, ListsAreARecountOfTheFile) {
    std::mt19937_64 random(1);
    const std::string directory = g_accountDir + std::string("/20120303");
    const std::string day = directory + "/daycrcsort";
    for (const size_t number : {0U, 500U, 12000U, 1U}) {
        TestRecords records = randomRecords(random, number, 3, 12);
        for (TestRecord& record : records) {
            record.count = number == 500 ? 1 + (random() >> 12) : 1 + random() % 3;
            record.type = random() % 50 == 0 ? static_cast<uint32_t>(random()) : 7;
        }
        for (const char* const left : {"topn/5.top", "topn.temp/6.top", "topn.temp.temp/7.top",
                                       "topn.temp.temp/.hidden", "topn.temp.temp/all.top"}) {
            m_disk.files[directory + "/" + left] = {1};
        }
        put(day, records, weekMonStatusOf({{newDir("20120303"), 1}}));
        EXPECT_EQ(TopUrlRecord().createTop(g_weekMonStatusType, directory, day), 0);
        expectTopLists(directory, records);
        put(day, records, dayStatusOf({{node("20120303"), 1, 1}}, 1));
        EXPECT_EQ(TopUrlRecord().createTop(g_dayStatusType, directory, day), 0);
        expectTopLists(directory, records);
    }
    const MemoryDisk::Bytes good = m_disk.files[day];
    for (const size_t offset : {size_t{39}, size_t{16}, good.size() - 2}) {
        m_disk.files = {{day, good}, {day + "_backup", {1}}};
        m_disk.files[day][offset] ^= 0x40;
        EXPECT_EQ(TopUrlRecord().createTop(g_dayStatusType, directory, day), -1);
        EXPECT_EQ(m_disk.files[day], MemoryDisk::Bytes{1});
        EXPECT_TRUE(m_disk.files.rbegin()->first.starts_with("/t/stat/debug/20120303/"));
    }
}

} // namespace
} // namespace kestrine
