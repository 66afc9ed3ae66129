// What the report of a month tells, as figures; what they look like is the page's.
#pragma once

#include "changes.h"
#include "stat_tree.h"
#include "storage/url_record.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrine::viewer {

constexpr size_t g_reportHosts = 200;
constexpr size_t g_reportChanges = 10; // risen, and fallen

struct Figures {
    uint64_t visits = 0;
    uint64_t hosts = 0; // each once
};

struct DayFigures {
    std::string date;
    std::optional<Figures> figures; // nothing: no file, or none that can be read
};

// A whole week, also where it begins before the month or ends after it.
struct WeekFigures {
    PeriodDir week;
    size_t days = 0; // of which there is a file
    Figures figures;
    std::optional<Figures> before; // of the week before
};

struct TypeFigures {
    uint32_t type = 0;
    Figures figures;
};

struct MonthBefore {
    PeriodDir month;
    size_t days = 0; // of which there is a file
    Figures total;
    std::vector<Change> risen; // the largest first, new hosts among them
    std::vector<Change> fallen;
};

// A period whose file cannot be read. Its figures are missing.
struct ReportFault {
    PeriodDir period;
    std::string text; // as a Failure tells it
};

struct MonthReport {
    std::string account;
    PeriodDir month;
    bool ofDays = false; // counted from the day files: there is no month file yet
    Figures total;
    std::vector<DayFigures> days; // every day of the month
    std::vector<WeekFigures> weeks;
    std::vector<TypeFigures> types;    // the most visited first
    std::vector<UrlRecordPtr> busiest; // likewise
    std::optional<MonthBefore> before; // if there is one
    std::vector<ReportFault> faults;
};

// Reads the month's file and that of the month before once, side by side; of days and weeks the
// headers. Throws Failure when the month itself is not there or cannot be read.
[[nodiscard]] MonthReport collectMonth(const StatTree& tree, const std::string& account,
                                       const PeriodDir& month);
// Months of which the account has a file, or days, in ascending order.
[[nodiscard]] std::vector<PeriodDir> monthsOf(const StatTree& tree, const std::string& account);

} // namespace kestrine::viewer
