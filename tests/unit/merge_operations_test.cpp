#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "merge/merge_file_list.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";

using Counters = std::map<std::string, int32_t>; // by date

class MergeOperationsTest : public StatTree {
protected:
    int merge(const std::string& target, const std::vector<std::string>& newFiles,
              const std::vector<std::string>& days = {}) {
        return target == dayFile(g_date)
                   ? MergeFileList().mergeNew2Day(newFiles, target + ".temp")
                   : MergeFileList().mergeNew2WeekMon(newFiles, days, target + ".temp");
    }
    // Merges, at once and in rounds, and puts the output in place, unless there is nothing to do:
    // then every byte stays as it was, as on a stop. Otherwise the top lists, which no longer fit,
    // go. In the end the target must hold what it should, and say so.
    void run(const std::string& target, const std::vector<std::string>& newFiles,
             const std::vector<std::string>& days, const TestRecords& records,
             const Counters& wanted, bool nothing) {
        const std::string output = target + ".temp";
        const auto before = m_disk.files;
        const std::string lists = std::string(names::parentOf(target)) + "/topn/all.top";
        for (const size_t handles : {0U, 4U, 100U}) { // none: a stop
            m_disk.files = before;
            m_disk.files[lists] = {1};
            const auto tree = m_disk.files;
            m_disk.handles = handles == 0 ? 100 : handles;
            g_isRunning = handles == 0 ? 0 : 1;
            ASSERT_EQ(merge(target, newFiles, days), nothing || handles == 0 ? 1 : 0);
            ASSERT_EQ(m_disk.openNow(), 0U);
            g_isRunning = 1;
            m_disk.handles = 100;
            if (nothing || handles == 0) {
                ASSERT_EQ(difference(m_disk.files, tree), "");
                m_disk.files.erase(lists);
                continue;
            }
            ASSERT_EQ(difference(m_disk.files, before), output + "\n");
            ASSERT_EQ(m_disk.rename(output, target), 0);
        }
        const bool daily = target == dayFile(g_date);
        const auto content = readUrlFile(target, daily ? g_dayStatusType : g_weekMonStatusType);
        ASSERT_EQ(content.records, records);
        Counters counters;
        if (daily) {
            counters[g_date] = content.dayStatus->newCounter();
            ASSERT_EQ(content.dayStatus->entries()[0].fileNumber, counters[g_date]);
        } else {
            for (const DateEntry& entry : content.weekMonStatus->entries()) {
                counters[std::string(names::lastComponent(entry.path))] = entry.counter;
            }
            ASSERT_EQ(counters.size(), content.weekMonStatus->entries().size());
        }
        ASSERT_EQ(counters, wanted);
    }

    const std::string m_month = std::string(g_accountDir) + "/mon20120301_20120331/moncrcsort";
};

// What keeps a visit from being counted twice: the new-day files stay on disk, so every merge must
// leave out what its target holds. Every counter against every set of waiting numbers: of one date
// for a day file, of two for a month file. The latter is there, the second date recorded under the
// path that it had before the tree was moved, or it is lost, built from the day files and brought
// forward from there.
TEST_F(MergeOperationsTest, OnlyNumbersAboveTheCountersAreTaken) {
    const std::string dates[] = {g_date, "20120304"};
    const std::string recordedPaths[] = {newDir(g_date), "D:/old/acc/new/20120304"};
    for (const size_t number : {1U, 2U}) {
        const std::vector<int32_t> numbers =
            number == 1 ? std::vector{0, 1, 2, 3, 10} : std::vector{0, 1, 2};
        const std::string target = number == 1 ? dayFile(g_date) : m_month;
        Choices choices;
        do {
            m_disk.files.clear();
            std::vector<std::string> waiting;
            std::vector<std::string> days;
            std::vector<DateEntry> entries;
            std::vector<TestRecords> held;
            std::vector<TestRecords> all;
            Counters counters;
            const bool built = number == 1 || choices.flip();
            for (size_t i = 0; i < number; ++i) {
                const auto counter = static_cast<int32_t>(choices.choose(numbers.size() + 1)) - 2;
                held.push_back(upTo(counter, dates[i]));
                if (counter != -2) { // no file, or no entry
                    entries.push_back({recordedPaths[i], counter});
                    counters[dates[i]] = counter;
                    days.push_back(built ? putDay(dates[i], counter) : "");
                }
                for (const int32_t n : numbers) {
                    if (choices.flip()) {
                        waiting.push_back(putNew(dates[i], n));
                        all.push_back(n > counter ? recordsOf(n, dates[i]) : TestRecords());
                    }
                }
            }
            if (number == 1 ? waiting.empty() : entries.empty()) {
                continue;
            }
            for (const char* const date : {"20120305", "20120306"}) { // so that there are rounds
                if (number == 2 && built) {
                    days.push_back(putDay(date, counters[date] = 1));
                    held.push_back(upTo(1, date));
                }
            }
            if (number == 2 && built) {
                run(m_month, waiting, days, summed(held), counters, false);
            } else if (number == 2) {
                put(m_month, summed(held), weekMonStatusOf(entries));
            }
            all.insert(all.end(), held.begin(), held.end());
            const Counters before = counters;
            for (const std::string& path : waiting) {
                const std::string date(names::lastComponent(names::parentOf(path)));
                int32_t& counter = counters.try_emplace(date, -2).first->second;
                counter = std::max(counter, names::newDayNumber(path));
            }
            run(target, waiting, {}, summed(all), counters, counters == before);
            run(target, waiting, {}, summed(all), counters, true); // once is enough
        } while (choices.next() && !HasFailure());
    }
}

// A damaged day file is set aside; its backup comes back without the lists of the file before.
TEST_F(MergeOperationsTest, DamagedDayFileGivesWayToItsBackup) {
    const std::string day = putDay(g_date, 0);
    m_disk.files[day].pop_back();
    m_disk.files[day + "_backup"] = {9};
    m_disk.files[std::string(names::parentOf(day)) + "/topn/all.top"] = {1};
    EXPECT_EQ(merge(day, {putNew(g_date, 1)}), -1);
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
            ASSERT_EQ(spills.addUrlFile(
                          put(m_dir / std::to_string(records), recordsOf(records, date), status)),
                      0);
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
    put(dayFile(g_date), {}, dayStatusOf({{"a", 5, 5}, {"c", 9, 9}, {"d", 1, 1}}, 10));
    put(newFile(g_date, 12), recordsOf(1, g_date), dayStatusOf({{"a", 7, 7}, {"b", -1, 9}}, 12));
    put(newFile(g_date, 13), {}, dayStatusOf({{"a", 6, 6}, {"b", 0, 10}, {"d", 1, 2}}, 13));
    ASSERT_EQ(merge(dayFile(g_date), {newFile(g_date, 12), newFile(g_date, 13)}), 0);
    const auto status = readUrlFile(dayFile(g_date) + ".temp").dayStatus;
    ASSERT_TRUE(status);
    EXPECT_EQ(status->newCounter(), 13);
    EXPECT_EQ(status->totalCount(), 4U);
    std::string positions;
    for (const auto& [path, file, offset] : status->entries()) {
        positions += path + std::to_string(file) + "/" + std::to_string(offset) + " ";
    }
    EXPECT_EQ(positions, "a7/7 c9/9 d1/1 b0/10 ");
}

TEST_F(MergeOperationsTest, NextNumberIsAboveAllThatAnyFileKnows) {
    // Entries of the "new" directory; counter of the day file, and what the month file knows (-2:
    // there is none); highest number and next one.
    using Names = std::vector<std::string>;
    for (const auto& [waiting, day, known, reached, next] :
         {std::tuple(Names(), -2, -2, -1, 0),
          {{"0"}, -2, -2, 0, 1},
          {{"3", "12"}, -2, -2, 12, 13},
          {{}, 7, -2, 7, 8},
          {{"3"}, 7, 5, 7, 8},
          {{"8", "9"}, 7, 9, 9, 10},
          // A thousand are left out, and one for each number that the new one stands on, when the
          // month file knows more than day and waiting files.
          {{}, -2, 5, -1, 1005},
          {{"8"}, 7, 9, 8, 1018},
          {{"x", "", "3x", "-4", "0x20", "2147483648"}, -2, -2, -1, 0}}) {
        m_disk.files.clear();
        for (const std::string& name : waiting) {
            m_disk.files[newDir(g_date) + "/" + name + ".daycrcsortnew"] = {};
        }
        if (day != -2) {
            putDay(g_date, day);
        }
        if (known != -2) {
            put(m_month, upTo(known, g_date), weekMonStatusOf({{newDir(g_date), known}}));
        }
        int32_t counter = -5;
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), reached, counter), 0);
        EXPECT_EQ(counter, next) << testing::PrintToString(waiting) << day << known;
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), reached + 1, counter), 1);
    }
}

} // namespace
} // namespace kestrine
