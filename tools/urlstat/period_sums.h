// Whether a week or month file and the day files of its dates hold the same visits, by their status
// records. It moves nothing and mends nothing, unlike merge/period_fit.h, whose questions these
// are.
#pragma once

#include "stat_tree.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrine::viewer {

// What is there of one date.
struct DateSums {
    enum class Day { None, Good, Damaged };

    Day day = Day::None;
    int32_t counter = -1;                // of the day file: the highest new-day number in it
    uint64_t visits = 0;                 // in the day file
    std::map<int32_t, uint64_t> waiting; // visits of the new-day files, by number

    bool operator==(const DateSums&) const = default;
};

struct PeriodSums {
    uint64_t visits = 0;                 // in the week or month file
    std::map<std::string, int32_t> held; // highest new-day number in it, by date
    std::map<std::string, DateSums> dates;

    bool operator==(const PeriodSums&) const = default;
};

struct SumFault {
    std::string text;
    std::string meaning;
};

// What the numbers say against the file.
[[nodiscard]] std::vector<SumFault> faultsOf(const PeriodSums& sums);

// The same of a week or month on disk, at a moment at which no service changes it. Nothing without
// a file, or with one that cannot be read, which is told elsewhere.
[[nodiscard]] std::vector<SumFault> comparePeriod(const std::string& accountDir,
                                                  const PeriodEntry& period);

} // namespace kestrine::viewer
