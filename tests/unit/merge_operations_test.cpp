#include "merge/disk_temp_file_list.h"
#include "merge/mem_file_list.h"
#include "merge/merge_file_list.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_date = "20120303";

using Counters = std::map<std::string, int32_t>; // by date

class MergeOperationsTest : public StatTree {
protected:
    int merge(const std::string& target, const std::vector<std::string>& newFiles) {
        return target == dayFile(g_date)
                   ? MergeFileList().mergeNew2Day(newFiles, target + ".temp")
                   : MergeFileList().mergeNew2WeekMon(newFiles, {}, target + ".temp");
    }
    // Merges and puts the output in place, unless there is nothing to do: then every byte stays as
    // it was. Otherwise the top lists, which no longer fit, go. In the end the target must hold
    // what it should, and say so.
    void run(const std::string& target, const std::vector<std::string>& newFiles,
             const TestRecords& records, const Counters& wanted, bool nothing) {
        const std::string lists = std::string(names::parentOf(target)) + "/topn/all.top";
        m_disk.files[lists] = {1};
        const auto before = m_disk.files;
        ASSERT_EQ(merge(target, newFiles), nothing ? 1 : 0);
        if (nothing) {
            ASSERT_EQ(difference(m_disk.files, before), "");
        } else {
            ASSERT_EQ(difference(m_disk.files, before), target + ".temp\n" + lists + "\n");
            ASSERT_EQ(m_disk.rename(target + ".temp", target), 0);
        }
        const bool daily = target == dayFile(g_date);
        const auto content = readUrlFile(target, daily ? g_dayStatusType : g_weekMonStatusType);
        ASSERT_EQ(content.records, records);
        if (daily) {
            ASSERT_EQ(content.dayStatus->newCounter(), wanted.at(g_date));
            ASSERT_EQ(content.dayStatus->entries()[0].fileNumber, wanted.at(g_date));
            return;
        }
        Counters counters;
        for (const DateEntry& entry : content.weekMonStatus->entries()) {
            counters[std::string(names::lastComponent(entry.path))] += entry.counter; // each once
        }
        ASSERT_EQ(counters, wanted);
    }

    const std::string m_month = std::string(g_accountDir) + "/mon20120301_20120331/moncrcsort";
};

// What keeps a visit from being counted twice: the new-day files stay on disk, so every merge must
// leave out what its target holds. Every counter against every set of waiting numbers: of one date
// for a day file, of two for a month file, where the second date may be recorded under the path
// that it had before the tree was moved.
TEST_F(MergeOperationsTest, OnlyNumbersAboveTheCountersAreTaken) {
    const std::string dates[] = {g_date, "20120304"};
    const std::string recordedPaths[] = {newDir(g_date), "D:/old/acc/new/20120304"};
    for (const size_t number : {1U, 2U}) {
        const std::vector<int32_t> numbers =
            number == 1 ? std::vector{0, 1, 2, 3, 10} : std::vector{0, 1, 2};
        const std::string target = number == 1 ? dayFile(g_date) : m_month;
        const size_t states = number == 1 ? 6 * 32 : 4 * 8 * 4 * 8;
        for (size_t state = 0; state < states && !HasFailure(); ++state) {
            size_t rest = state;
            const auto choose = [&rest](size_t of) { return std::exchange(rest, rest / of) % of; };
            m_disk.files.clear();
            std::vector<std::string> waiting;
            std::vector<DateEntry> entries;
            std::vector<TestRecords> held;
            std::vector<TestRecords> above;
            Counters before;
            Counters after;
            for (size_t i = 0; i < number; ++i) {
                const auto counter = static_cast<int32_t>(choose(numbers.size() + 1)) - 2;
                if (counter != -2) { // no file, or no entry
                    entries.push_back({recordedPaths[i], counter});
                    before[dates[i]] = after[dates[i]] = counter;
                    held.push_back(upTo(counter, dates[i]));
                }
                for (const int32_t n : numbers) {
                    if (choose(2) == 1) {
                        waiting.push_back(putNew(dates[i], n));
                        above.push_back(n > counter ? recordsOf(n, dates[i]) : TestRecords());
                        after[dates[i]] = std::max(n, counter);
                    }
                }
            }
            if (number == 1 ? waiting.empty() : entries.empty()) {
                continue;
            }
            if (number == 2) {
                put(m_month, summed(held), weekMonStatusOf(entries));
            } else if (!entries.empty()) {
                putDay(g_date, entries[0].counter);
            }
            above.insert(above.begin(), held.begin(), held.end());
            run(target, waiting, summed(above), after, after == before);
            run(target, waiting, summed(above), after, true); // once is enough
        }
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

TEST_F(MergeOperationsTest, ADroppedDateFreesItsPartOfTheBudget) {
    MemFileList spills;
    spills.openGroup();
    ASSERT_EQ(spills.addUrlFile(putNew(g_date, 1)), 0);
    EXPECT_GT(spills.totalSize(), 0U);
    spills.dropLastGroup();
    EXPECT_EQ(spills.totalSize(), 0U);
}

// A thousand numbers are left out, and one for each number that the new one stands on, when the
// month file knows more than day and waiting files.
TEST_F(MergeOperationsTest, NextNumberIsAboveAllThatAnyFileKnows) {
    // Of the highest waiting file, the day file and the month file; -1: there is none.
    for (const auto& [waiting, day, known, next] : {std::tuple(-1, -1, -1, 0),
                                                    {12, -1, -1, 13},
                                                    {3, 7, 5, 8},
                                                    {8, 7, 8, 9},
                                                    {-1, -1, 5, 1005},
                                                    {8, 7, 9, 1018}}) {
        m_disk.files.clear();
        if (waiting >= 0) {
            m_disk.files[newFile(g_date, waiting)];
        }
        if (day >= 0) {
            putDay(g_date, day);
        }
        if (known >= 0) {
            put(m_month, {}, weekMonStatusOf({{newDir(g_date), known}}));
        }
        int32_t counter = -5;
        const int32_t reached = std::max(waiting, day);
        EXPECT_EQ(DiskTempFileList::getNextNewCounter(newDir(g_date), reached, counter), 0);
        EXPECT_EQ(counter, next) << waiting << day << known;
    }
}

} // namespace
} // namespace kestrine
