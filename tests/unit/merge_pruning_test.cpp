// What keeps a visit from being counted twice: the new-day files stay on disk, so every merge must
// leave out what its target holds.
#include "merge/merge_file_list.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;
using Counters = std::map<std::string, int32_t>; // by date

constexpr const char* g_dates[] = {"20120229", "20120301"};
constexpr int32_t g_absent = -2; // no file, or no entry

class MergePruningTest : public StatTree {
protected:
    // Puts a subset of the numbers; `waiting` takes the paths, `parts` and `counter` what the files
    // above the counter hold.
    void putSome(Choices& choices, const std::string& date, const std::vector<int32_t>& numbers,
                 int32_t& counter) {
        const int32_t held = counter;
        for (const int32_t number : numbers) {
            if (choices.flip()) {
                m_waiting.push_back(putNew(date, number));
                if (number > held) {
                    m_parts.push_back(recordsOf(number, date));
                    counter = number;
                }
            }
        }
    }
    void startOver() {
        m_disk.files.clear();
        m_waiting.clear();
        m_parts.clear();
    }
    // Merges; where the merge wrote, the output replaces the target. Returns its result. A merge
    // that has nothing to do must leave every byte as it was.
    int run(const std::string& target, const std::vector<std::string>& days = {}) {
        const auto before = m_disk.files;
        const std::string output = target + ".temp";
        MergeFileList list;
        const bool day = target.ends_with("/daycrcsort");
        const int result = day ? list.mergeNew2Day(m_waiting, output)
                               : list.mergeNew2WeekMon(m_waiting, days, output);
        EXPECT_EQ(m_disk.openNow(), 0U);
        if (result == 1) {
            EXPECT_EQ(difference(m_disk.files, before), "");
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(m_disk.rename(output, target), 0);
        }
        return result;
    }
    static Counters countersOf(const UrlFileContent& content) {
        Counters counters;
        for (const DateEntry& entry : content.weekMonStatus->entries()) {
            counters[std::string(names::lastComponent(entry.path))] = entry.counter;
        }
        EXPECT_EQ(counters.size(), content.weekMonStatus->entries().size());
        return counters;
    }

    std::vector<std::string> m_waiting;
    std::vector<TestRecords> m_parts; // what the target must hold after the merge
};

// Every counter against every set of waiting numbers.
TEST_F(MergePruningTest, DayFileTakesOnlyNumbersAboveItsCounter) {
    Choices choices;
    const std::string target = dayFile(g_dates[0]);
    do {
        startOver();
        const int32_t before = static_cast<int32_t>(choices.choose(6)) - 2;
        int32_t counter = before;
        m_parts = {upTo(counter, g_dates[0])};
        putSome(choices, g_dates[0], {0, 1, 2, 3, 10}, counter);
        if (m_waiting.empty()) {
            continue;
        }
        if (before != g_absent) {
            putDay(g_dates[0], before);
        }
        ASSERT_EQ(run(target), counter == before ? 1 : 0);
        const UrlFileContent day = readUrlFile(target);
        ASSERT_EQ(day.records, summed(m_parts));
        ASSERT_EQ(day.dayStatus->newCounter(), counter);
        ASSERT_EQ(day.dayStatus->entries()[0].fileNumber, counter);
        ASSERT_EQ(run(target), 1); // once is enough
    } while (choices.next());
}

// Two dates, each with every recorded counter and every set of waiting numbers. The second date is
// recorded under the path that it had before the tree was moved.
TEST_F(MergePruningTest, WeekFileTakesOnlyNumbersAboveItsCounters) {
    const std::string week = std::string(g_accountDir) + "/week20120226_20120303/weekcrcsort";
    const std::string recordedPaths[] = {newDir(g_dates[0]), "D:/old/acc/new/20120301"};
    Choices choices;
    do {
        startOver();
        std::vector<DateEntry> entries;
        std::vector<TestRecords> held;
        Counters counters;
        bool taken = false;
        for (size_t i = 0; i < 2; ++i) {
            const int32_t before = static_cast<int32_t>(choices.choose(4)) - 2;
            int32_t counter = before;
            if (before != g_absent) {
                entries.push_back({recordedPaths[i], before});
            }
            held.push_back(upTo(before, g_dates[i]));
            m_parts.push_back(held.back());
            putSome(choices, g_dates[i], i == 0 ? std::vector{0, 1, 2} : std::vector{0, 1},
                    counter);
            taken = taken || counter != before;
            if (counter != g_absent) {
                counters[g_dates[i]] = counter;
            }
        }
        if (entries.empty()) {
            continue; // a status has entries
        }
        put(week, summed(held), weekMonStatusOf(entries));
        ASSERT_EQ(run(week), taken ? 0 : 1);
        const UrlFileContent content = readUrlFile(week, g_weekMonStatusType);
        ASSERT_EQ(content.records, summed(m_parts));
        ASSERT_EQ(countersOf(content), counters);
        ASSERT_EQ(run(week), 1);
    } while (choices.next());
}

// A month file that is lost holds what the day files hold; from there it goes on.
TEST_F(MergePruningTest, LostFileIsBuiltFromDayFilesAndBroughtForward) {
    const std::string month = std::string(g_accountDir) + "/mon20120201_20120331/moncrcsort";
    Choices choices;
    do {
        startOver();
        std::vector<std::string> days;
        std::vector<TestRecords> all;
        Counters counters;
        for (const std::string date : g_dates) {
            const int32_t counter = static_cast<int32_t>(choices.choose(4)) - 2;
            if (counter != g_absent) {
                days.push_back(putDay(date, counter));
                counters[date] = counter;
                m_parts.push_back(upTo(counter, date));
            }
            for (int32_t number = 0; number < 3; ++number) {
                m_waiting.push_back(putNew(date, number));
            }
            all.push_back(upTo(2, date));
        }
        if (days.empty()) {
            continue;
        }
        ASSERT_EQ(run(month, days), 0);
        const UrlFileContent content = readUrlFile(month, g_weekMonStatusType);
        ASSERT_EQ(content.records, summed(m_parts));
        ASSERT_EQ(countersOf(content), counters);
        for (const int wanted : {0, 1}) {
            ASSERT_EQ(run(month), wanted);
            ASSERT_EQ(readUrlFile(month, g_weekMonStatusType).records, summed(all));
        }
    } while (choices.next());
}

} // namespace
} // namespace kestrine
