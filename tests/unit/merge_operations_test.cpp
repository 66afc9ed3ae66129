#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "merge/merge_file_list.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <functional>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";

class MergeOperationsTest : public StatTree {};

// A stop changes nothing, and neither does a system with too few handles for two inputs. Otherwise
// the output comes, and the top lists beside it, which no longer fit, go; with few handles it comes
// in rounds.
TEST_F(MergeOperationsTest, WriteTheirOutputAlone) {
    const std::string account = g_accountDir;
    const std::string day = putDay(g_date, 0);
    const std::vector<std::string> files = {putNew(g_date, 1), putNew(g_date, 2),
                                            putNew(g_date, 3)};
    const std::string week = put(account + "/week20120226_20120303/weekcrcsort", upTo(0, g_date),
                                 weekMonStatusOf({{newDir(g_date), 0}}));
    const std::string month = account + "/mon20120301_20120331/moncrcsort";
    const DayStatus status = dayStatusOf({{node(g_date), 4, 28}}, 4);
    std::vector<std::string> temps;
    std::vector<std::string> days = {day};
    std::vector<TestRecords> ofTemps;
    std::vector<TestRecords> ofDays = {upTo(0, g_date)};
    for (const int32_t i : {5, 6, 7, 8}) {
        const std::string other = "2012030" + std::to_string(i);
        temps.push_back(put(m_dir / other, recordsOf(i, g_date), status));
        ofTemps.push_back(recordsOf(i, g_date));
        days.push_back(putDay(other, i));
        ofDays.push_back(upTo(i, other));
    }
    const std::string fresh = newFile(g_date, 4);
    using Merge = std::function<int(MergeFileList &&)>;
    // With one date and its counter.
    const std::tuple<std::string, TestRecords, std::string, int32_t, Merge> cases[] = {
        {fresh, summed(ofTemps), g_date, 4,
         [&](auto&& list) { return list.mergeTemp2New(temps, status, fresh); }},
        {fresh, TestRecords(), g_date, 4,
         [&](auto&& list) { return list.mergeTemp2New({}, status, fresh); }},
        {day + ".temp", upTo(3, g_date), g_date, 3,
         [&](auto&& list) { return list.mergeNew2Day(files, day + ".temp"); }},
        {week + ".temp", upTo(3, g_date), g_date, 3,
         [&](auto&& list) { return list.mergeNew2WeekMon(files, {}, week + ".temp"); }},
        {month + ".temp", summed(ofDays), "20120306", 6,
         [&](auto&& list) { return list.mergeNew2WeekMon(files, days, month + ".temp"); }}};
    const auto tree = m_disk.files;
    for (const auto& [output, records, date, counter, merge] : cases) {
        SCOPED_TRACE(output);
        const std::string lists = std::string(names::parentOf(output)) + "/topn/all.top";
        m_disk.files = tree;
        m_disk.files[lists] = {1};
        const auto before = m_disk.files;
        g_isRunning = 0;
        EXPECT_EQ(merge(MergeFileList()), 1);
        EXPECT_EQ(difference(m_disk.files, before), "");
        g_isRunning = 1;
        m_disk.handles = records.empty() ? 0 : 2;
        EXPECT_EQ(merge(MergeFileList()), -1);
        EXPECT_EQ(difference(m_disk.files, before), "");
        for (const size_t handles : {100U, 4U}) {
            m_disk.handles = handles;
            m_disk.files[lists] = {1};
            m_disk.files[output + ".temp"] = {1, 2, 3}; // left over
            ASSERT_EQ(merge(MergeFileList()), 0);
            EXPECT_EQ(m_disk.openNow(), 0U);
            const bool daily = output.find("day") != std::string::npos;
            const UrlFileContent content =
                readUrlFile(output, daily ? g_dayStatusType : g_weekMonStatusType);
            EXPECT_TRUE(content.whole);
            EXPECT_EQ(content.records, records);
            EXPECT_EQ(counter, daily ? content.dayStatus->newCounter()
                                     : content.weekMonStatus->counterOfDate(date));
            EXPECT_EQ(m_disk.files.erase(lists), output == fresh ? 1U : 0U);
            m_disk.files.erase(output);
            EXPECT_EQ(difference(m_disk.files, tree), "");
        }
    }
}

// A damaged day file is set aside; its backup comes back without the lists of the file before.
TEST_F(MergeOperationsTest, DamagedDayFileGivesWayToItsBackup) {
    const std::string day = putDay(g_date, 0);
    m_disk.files[day].pop_back();
    m_disk.files[day + "_backup"] = {9};
    m_disk.files[std::string(names::parentOf(day)) + "/topn/all.top"] = {1};
    MergeFileList list;
    EXPECT_EQ(list.mergeNew2Day({putNew(g_date, 1)}, day + ".temp"), -1);
    EXPECT_EQ(m_disk.files[day], MemoryDisk::Bytes{9});
    EXPECT_EQ(m_disk.names(names::dayDir(g_accountDir, g_date)),
              std::set<std::string>{"daycrcsort"});
    EXPECT_FALSE(m_disk.names(g_root + std::string("/debug")).empty());
}

// From the memory disk, whose budget is free again then, over disk temporary files; groups with
// files and without side by side. A date that comes back after another one stays one file: a part
// of it would not hold what its positions say.
TEST_F(MergeOperationsTest, SpillsBecomeOneNewDayFileForEachDate) {
    MemFileList spills;
    DiskTempFileList list(settings());
    const auto add = [&](const std::string& date, int32_t file, int32_t records) {
        const DayStatus status = dayStatusOf({{node(date), file, 28}});
        spills.openGroup();
        spills.setLastStatus(status);
        if (records != 0) {
            const std::string number = std::to_string(records);
            const std::string spill = put(m_dir / number, recordsOf(records, date), status);
            ASSERT_EQ(spills.addUrlFile(spill), 0);
            spills.setLastOutput(names::diskTempFile(g_root, "acc", 20120303, records));
        }
    };
    add(g_date, 1, 1);
    add(g_date, 2, 0);
    add("20120304", 8, 0);
    add(g_date, 1, 3); // behind: the position stays
    const uint64_t size = spills.totalSize();
    add(g_date, 9, 5);
    spills.dropLastGroup();
    EXPECT_EQ(spills.totalSize(), size);
    EXPECT_EQ(spills.mergeFileList(&list), 0);
    EXPECT_EQ(spills.totalSize(), 0U);
    EXPECT_TRUE(m_disk.names(g_memoryDisk).empty());
    EXPECT_EQ(list.mergeDiskTempFile(), 0);
    const UrlFileContent content = readUrlFile(newFile(g_date, 0));
    EXPECT_EQ(content.records, summed({recordsOf(1, g_date), recordsOf(3, g_date)}));
    EXPECT_EQ(content.dayStatus->entries()[0].fileNumber, 2);
    EXPECT_TRUE(readUrlFile(newFile("20120304", 0)).whole);
    EXPECT_EQ(m_disk.names(newDir(g_date)).size(), 1U);
}

// What the day file and two new-day files say of the nodes; the higher file number wins, and of two
// positions in one file the first.
TEST_F(MergeOperationsTest, DayMergeCombinesPositions) {
    const std::string output = dayFile(g_date) + ".temp";
    put(dayFile(g_date), {}, dayStatusOf({{"a", 5, 5}, {"c", 9, 9}, {"d", 1, 1}}, 10));
    put(newFile(g_date, 12), recordsOf(1, g_date), dayStatusOf({{"a", 7, 7}, {"b", -1, 9}}, 12));
    put(newFile(g_date, 13), {}, dayStatusOf({{"a", 6, 6}, {"b", 0, 10}, {"d", 1, 2}}, 13));
    MergeFileList list;
    ASSERT_EQ(list.mergeNew2Day({newFile(g_date, 12), newFile(g_date, 13)}, output), 0);
    const auto status = readUrlFile(output).dayStatus;
    ASSERT_TRUE(status);
    EXPECT_EQ(status->newCounter(), 13);
    EXPECT_EQ(status->totalCount(), 4U);
    std::string positions;
    for (const NodeEntry& entry : status->entries()) {
        positions += entry.path + std::to_string(entry.fileNumber) + "/" +
                     std::to_string(entry.offset) + " ";
    }
    EXPECT_EQ(positions, "a7/7 c9/9 d1/1 b0/10 ");
}

TEST_F(MergeOperationsTest, NextNumberIsAboveAllThatAnyFileKnows) {
    const std::string week = std::string(g_accountDir) + "/week20120226_20120303/weekcrcsort";
    // Entries of the "new" directory; counter of the day file, and what the week file knows (-2:
    // there is none); highest number and next one.
    using Names = std::vector<std::string>;
    for (const auto& [waiting, day, known, reached, next] :
         {std::tuple(Names(), -2, -2, -1, 0),
          {{"0"}, -2, -2, 0, 1},
          {{"3", "12"}, -2, -2, 12, 13},
          {{}, 7, -2, 7, 8},
          {{}, -1, -2, -1, 0},
          {{"3"}, 7, 5, 7, 8},
          {{"8", "9"}, 7, 9, 9, 10},
          // One is left out when the week file knows more than day and waiting files.
          {{}, -2, 5, -1, 7},
          {{"8"}, 7, 9, 8, 11},
          {{"x", "", "3x", "-4", "0x20", "2147483648"}, -2, -2, -1, 0}}) {
        m_disk.files.clear();
        for (const std::string& name : waiting) {
            m_disk.files[newDir(g_date) + "/" + name + ".daycrcsortnew"] = {};
        }
        if (day != -2) {
            putDay(g_date, day);
        }
        if (known != -2) {
            put(week, upTo(known, g_date), weekMonStatusOf({{newDir(g_date), known}}));
        }
        int32_t counter = -5;
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), reached, counter), 0);
        EXPECT_EQ(counter, next) << testing::PrintToString(waiting) << day << known;
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), reached + 1, counter), 1);
    }
}

} // namespace
} // namespace kestrine
