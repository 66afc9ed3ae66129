#include "tree/period.h"

#include "frame/log.h"
#include "tree/calendar.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

namespace {

// In the order of Period, by which `kindOf` looks up, and of the stages; the last one deletes.
constexpr PeriodKind g_kinds[] = {
    {Period::Day, "", "daycrcsort", g_dayStatusType, nullptr, nullptr, "", false},
    {Period::Week, "week", "weekcrcsort", g_weekMonStatusType, getDateOfCurrentWeek,
     Util::getNextWeekFiles, "getNextWeekFiles", false},
    {Period::Month, "mon", "moncrcsort", g_weekMonStatusType, getDateOfCurrentMon,
     Util::getNexMonFiles, "getNexMonFiles", true},
};

// Cuts "BEGIN_END" into its dates.
bool parseRange(std::string_view range, std::string_view& begin, std::string_view& end) {
    constexpr size_t dateLength = 8;
    begin = range.substr(0, dateLength);
    end = range.substr(std::min(range.size(), dateLength + 1));
    return range.size() == 2 * dateLength + 1 && range[dateLength] == '_' &&
           names::isEightDigits(begin) && names::isEightDigits(end) &&
           // One of the two is enough: a week may reach beyond the range of dates.
           (names::isDateDirName(begin) || names::isDateDirName(end));
}

} // namespace

std::span<const PeriodKind> periodKinds() {
    return g_kinds;
}

const PeriodKind& kindOf(Period period) {
    return g_kinds[static_cast<size_t>(period)];
}

PeriodFiles periodFiles(std::string_view directory, Period period) {
    const std::string formal = names::formalFile(directory, period);
    return {std::string(directory), formal, names::backupOf(formal), names::tempOf(formal),
            names::topDir(directory)};
}

int periodsOfDate(std::string_view accountDir, const std::string& date,
                  std::vector<PeriodOfDate>& periods) {
    periods = {{Period::Day, periodFiles(names::dayDir(accountDir, date), Period::Day)}};
    for (const PeriodKind& kind : periodKinds()) {
        // A day that is none of the calendar has a day file, but belongs to no week and no month.
        if (kind.range == nullptr || !names::isCalendarDate(date)) {
            continue;
        }
        std::string begin;
        std::string end;
        if (kind.range(date, begin, end) != 0) {
            return LOG_FAIL("period of %s fail", date.c_str());
        }
        const std::string directory = names::periodDir(accountDir, kind.period, begin, end);
        periods.push_back({kind.period, periodFiles(directory, kind.period)});
    }
    return 0;
}

bool names::parsePeriodDir(std::string_view name, PeriodDir& dir) {
    if (isDateDirName(name)) {
        dir = {Period::Day, std::string(name), std::string(name)};
        return true;
    }
    for (const PeriodKind& kind : periodKinds()) {
        std::string_view begin;
        std::string_view end;
        if (!kind.prefix.empty() && name.starts_with(kind.prefix) &&
            parseRange(name.substr(kind.prefix.size()), begin, end)) {
            dir = {kind.period, std::string(begin), std::string(end)};
            return true;
        }
    }
    return false;
}

bool names::parsePeriodDir(std::string_view name, Period& period) {
    PeriodDir dir;
    const bool found = parsePeriodDir(name, dir);
    period = dir.period;
    return found;
}

std::string names::periodDir(std::string_view accountDir, Period period, std::string_view begin,
                             std::string_view end) {
    return join(accountDir, kindOf(period).prefix).append(begin).append("_").append(end);
}

} // namespace kestrine
