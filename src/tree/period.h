// The periods of which there is a finished statistics file: day, week and month. What they differ
// in stands in one table; a further period is a further row.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

enum class Period { Day, Week, Month };

// Tags by which callers tell the kind of a file's status record; the kind follows from the kind of
// file and is not stored.
constexpr uint32_t g_dayStatusType = 0xFF;
constexpr uint32_t g_weekMonStatusType = 0xFFFF;

struct PeriodKind {
    Period period;
    std::string_view prefix;   // of its directory's name, followed by BEGIN_END; a day: just DATE
    std::string_view fileName; // the formal file
    uint32_t statusType;
    // The dates of the period of a date; moves the first period's paths from a list to a group. A
    // day has neither.
    int (*range)(std::string_view path, std::string& begin, std::string& end);
    int (*nextGroup)(std::vector<std::string>& paths, std::vector<std::string>& group,
                     std::string& begin, std::string& end);
    std::string_view nextGroupName; // in messages
    // The period whose stage runs last deletes the new-day files that every file holds by then.
    bool deletesNewDayFiles;
};

// In the order of the stages.
[[nodiscard]] std::span<const PeriodKind> periodKinds();
[[nodiscard]] const PeriodKind& kindOf(Period period);

// A directory of the statistics tree that belongs to a period.
struct PeriodDir {
    Period period = Period::Day;
    std::string begin; // first and last date; of a day both are the day
    std::string end;
};

// The files of one period, all in its directory.
struct PeriodFiles {
    std::string directory;
    std::string formal;
    std::string backup;
    std::string temp;  // a complete output that is about to replace the formal file
    std::string lists; // directory of the top lists
};
[[nodiscard]] PeriodFiles periodFiles(std::string_view directory, Period period);

// The files of a date's day, week and month, in the order of the stages; of a date that is none of
// the calendar only those of its day. 0 or -1.
struct PeriodOfDate {
    Period period = Period::Day;
    PeriodFiles files;
};
[[nodiscard]] int periodsOfDate(std::string_view accountDir, const std::string& date,
                                std::vector<PeriodOfDate>& periods);

namespace names {

// What a directory's name says: a date (eight digits from 20000001 to 29999998, calendar date or
// not), or a prefix with two dates, of which one may lie outside that range (the week of 20000101
// begins in 1999). False: it belongs to no period.
[[nodiscard]] bool parsePeriodDir(std::string_view name, PeriodDir& dir);
[[nodiscard]] bool parsePeriodDir(std::string_view name, Period& period);
// Of a week or month: ACCOUNTDIR/PREFIXBEGIN_END.
[[nodiscard]] std::string periodDir(std::string_view accountDir, Period period,
                                    std::string_view begin, std::string_view end);

} // namespace names
} // namespace kestrine
