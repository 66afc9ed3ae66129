#include "support/stat_tree.h"
#include "topn/top_url_record.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

using TopUrlRecordTest = StatTree;

// Several times as many records as a list takes, and few counts, so that most tie, at the end of
// the list too; a type of very many records and types of one. Lists that were left over are not
// promoted.
TEST_F(TopUrlRecordTest, ListsAreARecountOfTheFile) {
    std::mt19937_64 random(1);
    const std::string directory = g_accountDir + std::string("/20120303");
    TestRecords records = randomRecords(random, 40000, 3, 12);
    for (TestRecord& record : records) {
        record.count = 1 + random() % 3;
        record.type = random() % 50 == 0 ? static_cast<uint32_t>(random()) : 7;
    }
    for (const char* const left : {"/topn/5.top", "/topn.temp/6.top", "/topn.temp.temp/8.top"}) {
        m_disk.files[directory + left] = {1};
    }
    put(directory + "/daycrcsort", records, dayStatusOf({{node("20120303"), 1, 1}}, 1));
    EXPECT_EQ(TopUrlRecord().createTop(g_dayStatusType, directory, directory + "/daycrcsort"), 0);
    expectTopLists(directory, records);
}

} // namespace
} // namespace kestrine
