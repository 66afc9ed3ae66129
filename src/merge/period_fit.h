// Whether a week or month file agrees with the day files of its period, by status records alone.
#pragma once

#include "storage/status.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrine {

// What is on disk of the dates of one period.
class PeriodState {
public:
    // Reads the trailers of the day files and of the waiting new-day files of the given dates.
    // 0; 1 when a waiting file is damaged (it went to quarantine); -1.
    [[nodiscard]] int read(const std::string& accountDir, const std::vector<std::string>& dates);

    // Whether the file that carries this status can be brought forward with the new-day files that
    // wait: of every date that has a day file with counter c, it holds a number w, and all of w + 1
    // to c wait; and its total is at least that of what its numbers stand for. It may hold more:
    // dates that were removed, and what a day file has lost.
    [[nodiscard]] bool fits(const WeekMonStatus& status) const;

    // Visits in waiting files that the status does not know.
    [[nodiscard]] uint64_t waitingTotal(const WeekMonStatus& status) const;
    // The dates of which the status holds numbers that neither day file nor waiting files have.
    [[nodiscard]] std::string datesKnownBetter(const WeekMonStatus& status) const;

    // Paths, ascending by date.
    [[nodiscard]] std::vector<std::string> dayFiles() const;
    [[nodiscard]] std::vector<std::string> waitingFiles() const;
    // Those of them that the status does not know.
    [[nodiscard]] std::vector<std::string> waitingFiles(const WeekMonStatus& status) const;

private:
    struct NewDay {
        std::string path;
        uint64_t total = 0;
    };
    struct Date {
        std::string dayFile;               // empty: there is none
        int32_t counter = -1;              // of the day file
        uint64_t total = 0;                // visits in the day file
        std::map<int32_t, NewDay> waiting; // by number
    };

    [[nodiscard]] static int readWaiting(const std::string& newDayDirectory, Date& state);
    [[nodiscard]] static bool allWait(const Date& date, int32_t held);
    [[nodiscard]] static uint64_t totalUpTo(const Date& date, int32_t held);

    std::map<std::string, Date> m_dates;
};

// Whether every record of `current` has its like, with at least its count, in `candidate`: 1 it
// has, 0 it has not, 2 `current` is damaged, 3 a stop was requested, -1 (also when `candidate` is
// damaged).
[[nodiscard]] int holdsAtLeast(const std::string& candidate, const std::string& current);

} // namespace kestrine
