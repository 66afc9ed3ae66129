// Which files of one account contradict each other, by their status records alone.
//
// A date's visits lie in its day file up to new-day number c (the day status' counter) and in the
// waiting new-day files c+1, c+2, ... r without a gap. A week or month file that holds the date up
// to number w fits if w <= r and all numbers from w+1 to c are still waiting, so that it can be
// brought forward. After a file was lost or fell back to its backup these rules can be violated:
//
//   waiting files beyond a gap    hold positions beyond what day file and waiting files have; they
//                                 are set aside and their logs read again
//   w > r                         the week file holds visits whose logs will be read again, under
//                                 numbers that it takes for known; it is set aside
//   a number of w+1 to c missing  the week file cannot be brought forward; it is set aside
//   another total                 w is not what the week file holds; it is set aside
//   a date's directory is gone    removed on purpose, and what the week file holds of it stays;
//                                 but if there are logs of the date, which are counted anew, the
//                                 week file is set aside
//
// A week or month file that was set aside is built anew from the day files of its period.
#pragma once

#include "storage/status.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kestrine {

class PeriodCheck {
public:
    // The account's directories in the statistics tree and in the log data.
    explicit PeriodCheck(const std::string& accountDir, const std::string& accountPath = {})
        : m_accountDir(accountDir), m_accountPath(accountPath) {}

    // Sets aside what does not fit. 0 or -1. The same after a kill anywhere.
    [[nodiscard]] int check();
    // A day, week or month file gave way to its backup, or to nothing: it has no top lists now.
    [[nodiscard]] bool fellBack() const { return m_fellBack; }

private:
    struct NewDay {
        std::string path;
        uint64_t total = 0;
    };
    struct Date {
        bool hasDirectory = false;         // of a day
        int32_t counter = -1;              // of the day file
        int32_t reach = -1;                // last waiting number without a gap, at least `counter`
        uint64_t total = 0;                // visits in the day file
        std::map<int32_t, NewDay> waiting; // good new-day files by number
    };

    [[nodiscard]] int collectDates();
    [[nodiscard]] int readDay(const std::string& date, Date& state);
    [[nodiscard]] int readWaiting(const std::string& date, Date& state);
    [[nodiscard]] static int giveUpBeyondGap(Date& state);
    [[nodiscard]] int checkPeriods();
    [[nodiscard]] int checkPeriod(const std::string& directory, Period period);
    [[nodiscard]] bool fits(const WeekMonStatus& status, const std::string& begin,
                            const std::string& end) const;
    [[nodiscard]] static bool canBeBroughtForward(const Date& date, int32_t held);
    [[nodiscard]] bool countedAnew(std::string_view date) const;
    [[nodiscard]] bool totalFits(const WeekMonStatus& status) const;
    [[nodiscard]] static uint64_t totalUpTo(const Date& date, int32_t held);

    std::string m_accountDir;
    std::string m_accountPath;
    std::map<std::string, Date> m_dates;
    bool m_fellBack = false;
};

} // namespace kestrine
