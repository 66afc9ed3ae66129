// The day stage of one account: new-day files into day files. For each date that has a directory of
// new-day files:
//
//  1. What waits beyond a gap is settled (merge/date_ledger.h).
//  2. The new-day files that the day file does not hold yet are merged with it into
//     "daycrcsort.temp" (merge_periods.cpp).
//  3. That replaces the day file, and the top lists are made (publish.h).
// The new-day files stay for the week and month stages.
#pragma once

#include <string>

namespace kestrine {

class DayStage {
public:
    // `account` is for messages; `accountDir` is its directory in the statistics tree.
    DayStage(const std::string& account, const std::string& accountDir)
        : m_account(account), m_accountDir(accountDir) {}

    // Step 1 for every date. Before positions are read: those of new-day files beyond a gap would
    // pass over the logs of what is missing. 0 or -1.
    [[nodiscard]] int settleGaps() const;
    // Step 1 for one date, in eight digits.
    [[nodiscard]] int settleGap(const std::string& date) const;
    // Every date. 0, also after a stop, or -1. A kill leaves what `publish` and a merge leave.
    [[nodiscard]] int run() const;
    // One date. As above.
    [[nodiscard]] int runDate(const std::string& date) const;

private:
    std::string m_account;
    std::string m_accountDir;
};

} // namespace kestrine
