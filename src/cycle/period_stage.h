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

#include <optional>
#include <string>
#include <vector>

namespace kestrine {

// A week or month that has something due.
struct DuePeriod {
    std::string begin; // first and last date
    std::string end;
    PeriodFiles files;
    // What would be merged: with the file as it is, or without it, as it is not there or does not
    // agree with the day files.
    std::vector<std::string> inputs;
    bool anew = false;
};

class PeriodStage {
public:
    // `account` is for messages; `accountDir` is its directory in the statistics tree.
    PeriodStage(const PeriodKind& kind, const std::string& account, const std::string& accountDir)
        : m_kind(kind), m_account(account), m_accountDir(accountDir) {}

    // Every period that has something due; `all`: every period is compared with its day files.
    // 0, also after a stop, or -1. A kill leaves what `publish` and a merge leave.
    [[nodiscard]] int run(bool all);
    // The period that holds the date (eight digits, of the calendar), compared with its day files.
    // As above; `due` is what there was to do, none without anything.
    [[nodiscard]] int runPeriod(const std::string& date, std::optional<DuePeriod>& due);
    // The periods on which `run`, comparing, would set to work; one with a damaged waiting file has
    // no inputs yet. 0 or -1. Sets damaged files aside, unless the platform is one on which nothing
    // changes: there a damaged day, week or month file makes it fail.
    [[nodiscard]] int findDue(std::vector<DuePeriod>& due);

private:
    struct Group {
        std::string begin; // first and last date of the period
        std::string end;
        std::vector<std::string> dates; // ascending
        bool waiting = false;           // new-day files may wait
    };

    // What is there of a period.
    struct Found {
        PeriodFiles files;
        bool current = false; // its file is there, with the status
        WeekMonStatus status;
        PeriodState state;
    };

    [[nodiscard]] int listGroups(std::vector<Group>& groups);
    [[nodiscard]] int listDates(std::vector<std::string>& waiting, std::vector<std::string>& all);
    [[nodiscard]] int runGroup(const Group& group, bool all);
    [[nodiscard]] int mergeOnePeriod(const Group& group, bool all);
    [[nodiscard]] int look(const Group& group, Found& found) const;
    [[nodiscard]] static bool isDue(const Found& found);
    [[nodiscard]] int findDue(const Group& group, std::optional<DuePeriod>& due) const;
    [[nodiscard]] PeriodFiles filesOf(const Group& group) const;
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
