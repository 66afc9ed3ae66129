#include "tree/calendar.h"

#include "frame/log.h"
#include "tree/names.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace kestrine {

namespace {

using namespace std::chrono;

int dateOfPath(std::string_view path, year_month_day& date) {
    if (!names::isCalendarDate(names::lastComponent(path))) {
        return -1;
    }
    const int32_t number = names::getDateOfPath(path);
    date = year(number / 10000) / (number % 10000 / 100) / (number % 100);
    return 0;
}

std::string textOf(const year_month_day& date) {
    return names::dateText(
        int{date.year()} * 10000 +
        static_cast<int32_t>(unsigned{date.month()} * 100 + unsigned{date.day()}));
}

// Moves the paths whose date is not after `end` from the front of `paths` to `group`.
void moveGroup(std::vector<std::string>& paths, std::vector<std::string>& group,
               std::string_view end) {
    // Paths come in ascending order, so that a group lies at the front.
    const auto rest = std::find_if(paths.begin(), paths.end(), [end](const std::string& path) {
        return names::lastComponent(path) > end;
    });
    group.assign(std::make_move_iterator(paths.begin()), std::make_move_iterator(rest));
    paths.erase(paths.begin(), rest);
}

} // namespace

int getDateOfCurrentWeek(std::string_view path, std::string& begin, std::string& end) {
    year_month_day date;
    if (dateOfPath(path, date) != 0) {
        return LOG_FAIL("date invalid %s", std::string(path).c_str());
    }
    const sys_days day(date);
    // The difference of weekdays is 0 to 6, never negative.
    const sys_days sunday = day - (weekday(day) - Sunday);
    begin = textOf(sunday);
    end = textOf(sunday + days(6));
    return 0;
}

int getDateOfCurrentMon(std::string_view path, std::string& begin, std::string& end) {
    year_month_day date;
    if (dateOfPath(path, date) != 0) {
        return LOG_FAIL("date invalid %s", std::string(path).c_str());
    }
    begin = textOf(date.year() / date.month() / 1);
    end = textOf(date.year() / date.month() / last);
    return 0;
}

int Util::getNextWeekFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                           std::string& begin, std::string& end) {
    if (paths.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (getDateOfCurrentWeek(paths.front(), begin, end) != 0) {
        return LOG_FAIL("getDateOfCurrentWeek %s fail", paths.front().c_str());
    }
    moveGroup(paths, group, end);
    return 0;
}

int Util::getNexMonFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                         std::string& begin, std::string& end) {
    if (paths.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (getDateOfCurrentMon(paths.front(), begin, end) != 0) {
        return LOG_FAIL("getDateOfCurrentWeek %s fail",
                        paths.front().c_str()); // the words for a month too
    }
    moveGroup(paths, group, end);
    return 0;
}

} // namespace kestrine
