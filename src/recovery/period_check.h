// What the files of one account say of each other, by their status records.
//
// Of every date: waiting new-day files that are damaged go to quarantine, and what waits beyond a
// gap is settled (merge/date_ledger.h). Week and month files that know a date better than its day
// file are reported; whether they fit is the matter of the week and month stages, which compare
// every one of them in their first run (cycle/period_stage.h).
#pragma once

#include <set>
#include <string>

namespace kestrine {

class PeriodCheck {
public:
    // The account's directory in the statistics tree.
    explicit PeriodCheck(const std::string& accountDir) : m_accountDir(accountDir) {}

    // 0 or -1. The same after a kill anywhere.
    [[nodiscard]] int check();
    // The same for the waiting files of one date.
    [[nodiscard]] int checkDate(const std::string& date);
    // Directories in which a day, week or month file may have given way to its backup, or to
    // nothing: it has no top lists now.
    [[nodiscard]] const std::set<std::string>& fellBack() const { return m_fellBack; }

private:
    [[nodiscard]] int collectDates(std::set<std::string>& dates, std::set<std::string>& periods);
    [[nodiscard]] int checkWaiting(const std::string& date);
    [[nodiscard]] int checkPeriod(const std::string& directory);

    std::string m_accountDir;
    std::set<std::string> m_fellBack;
};

} // namespace kestrine
