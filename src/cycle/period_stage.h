// The week stage and the month stage of one account: new-day files into one file per period.
//
// For each period that has waiting new-day files, or day files but no file of its own:
//
//  1. A file that agrees with the day files of its dates (merge/period_fit.h) is brought forward
//     with the new-day files that it does not hold yet.
//  2. One that is not there is built from the day files, which hold everything by now.
//  3. One that does not agree, because new-day files were lost, or a day file was lost or rolled
//     back and its logs were read again, is counted anew from the day files beside the old one. The
//     result takes its place if it holds at least as much of every host. Otherwise visits are in
//     the old file that no day file has any more (their logs were deleted): then the one of the two
//     that ends with more visits stays, the old one being brought forward over the gap.
//  4. The output replaces the formal file. The month stage, which runs last, then deletes the
//     period's new-day files, and the top lists are made (publish.h).
//
// So a file gives way only to one that holds at least as much.
#pragma once

#include "frame/configuration.h"
#include "merge/period_fit.h"
#include "tree/period.h"

#include <string>
#include <vector>

namespace kestrine {

class PeriodStage {
public:
    // `account` is for messages; `accountDir` is its directory in the statistics tree.
    PeriodStage(const PeriodKind& kind, const std::string& account, const std::string& accountDir)
        : m_kind(kind), m_account(account), m_accountDir(accountDir) {}

    // Every period that has something due; `all`: every period is compared with its day files.
    // 0, also after a stop, or -1. A kill leaves what `publish` and a merge leave.
    [[nodiscard]] int run(bool all);

private:
    struct Group {
        std::string begin; // first and last date of the period
        std::string end;
        std::vector<std::string> dates; // ascending
        bool waiting = false;           // new-day files may wait
    };

    [[nodiscard]] int listDates(std::vector<std::string>& waiting, std::vector<std::string>& all);
    [[nodiscard]] int mergeOnePeriod(const Group& group, bool all);
    [[nodiscard]] int bringForward(const PeriodFiles& files, const PeriodState& state);
    [[nodiscard]] int build(const PeriodFiles& files, const PeriodState& state);
    [[nodiscard]] int countAnew(const PeriodFiles& files, const PeriodState& state,
                                const WeekMonStatus& status);
    [[nodiscard]] int publishOutput(const PeriodFiles& files, const PeriodState& state,
                                    const std::vector<std::string>& inputs);

    const PeriodKind& m_kind;
    std::string m_account;
    std::string m_accountDir;
};

} // namespace kestrine
