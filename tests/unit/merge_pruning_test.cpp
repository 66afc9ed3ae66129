// What keeps a visit from being counted twice: the new-day files stay on disk, so every merge must
// leave out what its target holds.
#include "merge/merge_file_list.h"
#include "support/choices.h"
#include "support/stat_tree.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

using namespace test;

constexpr const char* g_dates[] = {"20120229", "20120301"};
constexpr int32_t g_absent = -2; // no file, or no entry

struct Held {
    std::vector<TestRecords> parts;
    std::map<std::string, int32_t> counters; // by date
};

class MergePruningTest : public StatTree {
protected:
    // Merges with the wanted result; where the merge wrote, the output replaces the target. A merge
    // that has nothing to do must leave every byte as it was. Then the target must hold what it
    // should, and say so.
    void run(const std::string& target, const std::vector<std::string>& newFiles,
             const std::vector<std::string>& days, int wanted, const Held& held) {
        const auto before = m_disk.files;
        const std::string output = target + ".temp";
        const bool daily = target == dayFile(g_dates[0]);
        MergeFileList list;
        ASSERT_EQ(daily ? list.mergeNew2Day(newFiles, output)
                        : list.mergeNew2WeekMon(newFiles, days, output),
                  wanted);
        ASSERT_EQ(m_disk.openNow(), 0U);
        if (wanted == 1) {
            ASSERT_EQ(difference(m_disk.files, before), "");
        } else {
            ASSERT_EQ(m_disk.rename(output, target), 0);
        }
        const auto content = readUrlFile(target, daily ? g_dayStatusType : g_weekMonStatusType);
        ASSERT_EQ(content.records, summed(held.parts));
        std::map<std::string, int32_t> counters;
        if (daily) {
            counters[g_dates[0]] = content.dayStatus->newCounter();
            ASSERT_EQ(content.dayStatus->entries()[0].fileNumber, counters[g_dates[0]]);
        } else {
            for (const DateEntry& entry : content.weekMonStatus->entries()) {
                counters[std::string(names::lastComponent(entry.path))] = entry.counter;
            }
            ASSERT_EQ(counters.size(), content.weekMonStatus->entries().size());
        }
        ASSERT_EQ(counters, held.counters);
    }
};

// Every counter against every set of waiting numbers: of one date for a day file, of two for a
// month file. The latter is there, the second date recorded under the path that it had before the
// tree was moved, or it is lost, built from the day files and brought forward from there.
TEST_F(MergePruningTest, OnlyNumbersAboveTheCountersAreTaken) {
    const std::string month = std::string(g_accountDir) + "/mon20120201_20120331/moncrcsort";
    const std::string recordedPaths[] = {newDir(g_dates[0]), "D:/old/acc/new/20120301"};
    for (const size_t dates : {1U, 2U}) {
        const std::vector<int32_t> numbers =
            dates == 1 ? std::vector{0, 1, 2, 3, 10} : std::vector{0, 1, 2};
        const std::string target = dates == 1 ? dayFile(g_dates[0]) : month;
        Choices choices;
        do {
            m_disk.files.clear();
            std::vector<std::string> waiting;
            std::vector<std::string> days;
            std::vector<DateEntry> entries;
            Held held;
            Held after;
            const bool built = dates == 1 || choices.flip();
            for (size_t i = 0; i < dates; ++i) {
                const std::string date = g_dates[i];
                const auto counter = static_cast<int32_t>(choices.choose(numbers.size() + 1)) - 2;
                after.parts.push_back(upTo(counter, date));
                if (counter != g_absent) {
                    entries.push_back({recordedPaths[i], counter});
                    held.parts.push_back(upTo(counter, date));
                    held.counters[date] = after.counters[date] = counter;
                    days.push_back(built ? putDay(date, counter) : "");
                }
                for (const int32_t number : numbers) {
                    if (choices.flip()) {
                        waiting.push_back(putNew(date, number));
                        if (number > counter) {
                            after.parts.push_back(recordsOf(number, date));
                            after.counters[date] = number;
                        }
                    }
                }
            }
            if (dates == 1 ? waiting.empty() : entries.empty()) {
                continue;
            }
            if (dates == 2 && built) {
                run(month, waiting, days, 0, held);
            } else if (dates == 2) {
                put(month, summed(held.parts), weekMonStatusOf(entries));
            }
            run(target, waiting, {}, after.counters == held.counters ? 1 : 0, after);
            run(target, waiting, {}, 1, after); // once is enough
        } while (choices.next() && !HasFailure());
    }
}

} // namespace
} // namespace kestrine
