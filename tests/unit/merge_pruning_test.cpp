// What keeps a visit from being counted twice: the new-day files stay on disk, so every merge must
// leave out what its target holds.
#include "merge/merge_file_list.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_dates[] = {"20120229", "20120301"};
constexpr int32_t g_absent = -2; // no file, or no entry

class MergePruningTest : public StatTree {
protected:
    // Puts a subset of the numbers, and returns the chosen ones.
    std::vector<int32_t> putSome(Choices& choices, const std::string& date,
                                 const std::vector<int32_t>& numbers) {
        std::vector<int32_t> chosen;
        for (const int32_t number : numbers) {
            if (choices.flip()) {
                putNew(date, number);
                chosen.push_back(number);
            }
        }
        return chosen;
    }
    std::vector<std::string> paths(const std::string& date, const std::vector<int32_t>& numbers) {
        std::vector<std::string> files;
        for (const int32_t number : numbers) {
            files.push_back(newFile(date, number));
        }
        return files;
    }
    static std::vector<int32_t> above(const std::vector<int32_t>& numbers, int32_t counter) {
        std::vector<int32_t> result;
        std::ranges::copy_if(numbers, std::back_inserter(result),
                             [counter](int32_t number) { return number > counter; });
        return result;
    }
    static void append(std::vector<TestRecords>& parts, const std::string& date,
                       const std::vector<int32_t>& numbers) {
        for (const int32_t number : numbers) {
            parts.push_back(recordsOf(number, date));
        }
    }

    // Runs a merge; where it wrote, the output replaces the target. Returns its result. A merge
    // that has nothing to do must leave every byte as it was.
    template <typename Merge>
    int run(const std::string& target, const Merge& merge) {
        const auto before = m_disk.files;
        MergeFileList list;
        const int result = merge(list, target + ".temp");
        EXPECT_EQ(m_disk.openNow(), 0U);
        if (result == 1) {
            EXPECT_EQ(difference(m_disk.files, before), "");
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(m_disk.rename(target + ".temp", target), 0);
        }
        return result;
    }
};

// Every counter against every set of waiting numbers.
TEST_F(MergePruningTest, DayFileTakesOnlyNumbersAboveItsCounter) {
    Choices choices;
    do {
        m_disk.files.clear();
        const int32_t counter = static_cast<int32_t>(choices.choose(6)) - 2;
        const std::vector<int32_t> waiting = putSome(choices, g_dates[0], {0, 1, 2, 3, 10});
        if (waiting.empty()) {
            continue;
        }
        if (counter != g_absent) {
            putDay(g_dates[0], counter);
        }
        const std::vector<int32_t> taken = above(waiting, counter);
        const auto merge = [&](MergeFileList& list, const std::string& output) {
            return list.mergeNew2Day(paths(g_dates[0], waiting), output);
        };
        SCOPED_TRACE(testing::PrintToString(waiting) + " over " + std::to_string(counter));
        ASSERT_EQ(run(dayFile(g_dates[0]), merge), taken.empty() ? 1 : 0);
        std::vector<TestRecords> parts = {upTo(counter, g_dates[0])};
        append(parts, g_dates[0], taken);
        const UrlFileContent day = readUrlFile(dayFile(g_dates[0]));
        ASSERT_EQ(day.records, summed(parts));
        ASSERT_EQ(day.dayStatus->newCounter(), std::max(counter, waiting.back()));
        ASSERT_EQ(day.dayStatus->entries()[0].fileNumber, std::max(counter, waiting.back()));
        ASSERT_EQ(run(dayFile(g_dates[0]), merge), 1); // once is enough
    } while (choices.next());
}

// Two dates, each with every recorded counter and every set of waiting numbers. The second date is
// recorded under the path that it had before the tree was moved.
TEST_F(MergePruningTest, WeekFileTakesOnlyNumbersAboveItsCounters) {
    const std::string week = std::string(g_accountDir) + "/week20120226_20120303/weekcrcsort";
    const std::string recordedPaths[] = {newDir(g_dates[0]), "D:/old/acc/new/20120301"};
    Choices choices;
    do {
        m_disk.files.clear();
        std::vector<DateEntry> entries;
        std::vector<TestRecords> parts;
        std::vector<std::string> waiting;
        std::map<std::string, int32_t> counters;
        bool taken = false;
        for (size_t i = 0; i < 2; ++i) {
            const std::string date = g_dates[i];
            const int32_t counter = static_cast<int32_t>(choices.choose(4)) - 2;
            if (counter != g_absent) {
                entries.push_back({recordedPaths[i], counter});
                counters[date] = counter;
            }
            parts.push_back(upTo(counter, date));
            const std::vector<int32_t> numbers =
                putSome(choices, date, i == 0 ? std::vector{0, 1, 2} : std::vector{0, 1});
            const std::vector<std::string> files = paths(date, numbers);
            waiting.insert(waiting.end(), files.begin(), files.end());
            const std::vector<int32_t> merged = above(numbers, counter);
            append(parts, date, merged);
            if (!merged.empty()) {
                taken = true;
                counters[date] = merged.back();
            }
        }
        if (entries.empty()) {
            continue; // a status has entries
        }
        std::vector<TestRecords> held;
        for (const DateEntry& entry : entries) {
            held.push_back(upTo(entry.counter, std::string(names::lastComponent(entry.path))));
        }
        put(week, summed(held), weekMonStatusOf(entries));
        const auto merge = [&](MergeFileList& list, const std::string& output) {
            return list.mergeNew2WeekMon(waiting, {}, output);
        };
        SCOPED_TRACE(testing::PrintToString(waiting) + testing::PrintToString(counters));
        ASSERT_EQ(run(week, merge), taken ? 0 : 1);
        const UrlFileContent content = readUrlFile(week, g_weekMonStatusType);
        ASSERT_EQ(content.records, summed(parts));
        std::map<std::string, int32_t> found;
        for (const DateEntry& entry : content.weekMonStatus->entries()) {
            found[std::string(names::lastComponent(entry.path))] = entry.counter;
        }
        ASSERT_EQ(found, counters);
        ASSERT_EQ(run(week, merge), 1);
    } while (choices.next());
}

// A month file that is lost holds what the day files hold; from there it goes on.
TEST_F(MergePruningTest, LostFileIsBuiltFromDayFilesAndBroughtForward) {
    const std::string month = std::string(g_accountDir) + "/mon20120201_20120331/moncrcsort";
    Choices choices;
    do {
        m_disk.files.clear();
        std::vector<std::string> days;
        std::vector<std::string> waiting;
        std::vector<TestRecords> parts;
        std::vector<TestRecords> all;
        std::map<std::string, int32_t> counters;
        for (const std::string date : g_dates) {
            const int32_t counter = static_cast<int32_t>(choices.choose(4)) - 2;
            if (counter != g_absent) {
                days.push_back(putDay(date, counter));
                counters[date] = counter;
                parts.push_back(upTo(counter, date));
            }
            for (int32_t number = 0; number < 3; ++number) {
                waiting.push_back(putNew(date, number));
            }
            all.push_back(upTo(2, date));
        }
        if (days.empty()) {
            continue;
        }
        ASSERT_EQ(run(month,
                      [&](MergeFileList& list, const std::string& output) {
                          return list.mergeNew2WeekMon(waiting, days, output);
                      }),
                  0);
        const UrlFileContent content = readUrlFile(month, g_weekMonStatusType);
        ASSERT_EQ(content.records, summed(parts));
        for (const DateEntry& entry : content.weekMonStatus->entries()) {
            EXPECT_EQ(entry.path, newDir(std::string(names::lastComponent(entry.path))));
            EXPECT_EQ(entry.counter, counters[std::string(names::lastComponent(entry.path))]);
        }
        EXPECT_EQ(content.weekMonStatus->entries().size(), counters.size());
        for (const int wanted : {0, 1}) {
            ASSERT_EQ(run(month,
                          [&](MergeFileList& list, const std::string& output) {
                              return list.mergeNew2WeekMon(waiting, days, output);
                          }),
                      wanted);
            ASSERT_EQ(readUrlFile(month, g_weekMonStatusType).records, summed(all));
        }
    } while (choices.next());
}

// Names decide, not the order in which they are listed; what is no new-day file is refused.
TEST(MergeCounters, FollowNumbers) {
    DayStatus day;
    EXPECT_EQ(
        updateDayNewCounter({"n/9.daycrcsortnew", "n/12.daycrcsortnew", "n/3.daycrcsortnew"}, day),
        0);
    EXPECT_EQ(day.newCounter(), 12);
    EXPECT_EQ(updateDayNewCounter({"n/4.daycrcsortnew"}, day), 0);
    EXPECT_EQ(day.newCounter(), 12);
    for (const char* const path :
         {"n/daycrcsort", "13.daycrcsortnew", "n/x.daycrcsortnew", "n/13"}) {
        EXPECT_EQ(updateDayNewCounter({path}, day), -1) << path;
        EXPECT_EQ(day.newCounter(), 12);
    }
    WeekMonStatus week;
    for (const int32_t number : {3, 12, 9}) {
        updateWeekMonStatusIFNewer(week, "n/20120303", number);
    }
    updateWeekMonStatusIFNewer(week, "n/20120304", -1);
    ASSERT_EQ(week.entries().size(), 2U);
    EXPECT_EQ(week.counterOfDate("x/20120303"), 12);
    EXPECT_EQ(week.counterOfDate("x/20120304"), -1);
}

} // namespace
} // namespace kestrine
