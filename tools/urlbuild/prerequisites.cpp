#include "prerequisites.h"

#include "date_text.h"
#include "not_now.h"
#include "storage/formal_file.h"
#include "tree/calendar.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace kestrine::build {

namespace {

Failure toBeChecked(const Account& account, const std::string& path) {
    return notNow(path + ": is damaged or not in its place; run \"urlbuild check " + account.text +
                  "\" first");
}

// Open, or null when there is none.
std::unique_ptr<UrlFile> openWhole(const Account& account, const PeriodFiles& files,
                                   Period period) {
    std::unique_ptr<UrlFile> file;
    const int ret = lookAtFormal(files, period, file);
    if (ret == 2) {
        throw toBeChecked(account, files.formal);
    }
    if (ret < 0) {
        throw Failure(files.formal + ": cannot be read; see the lines above it");
    }
    return file;
}

// The dates with a directory of new-day files.
std::vector<std::string> datesWithNew(const Account& account, const std::string& begin,
                                      const std::string& end) {
    std::vector<std::string> directories;
    if (Util::getDateInNewDirectory(account.directory, directories) != 0) {
        throw Failure(names::newTree(account.directory) +
                      ": cannot be listed; see the lines above");
    }
    std::vector<std::string> dates;
    for (const std::string& directory : directories) {
        const std::string date(names::lastComponent(directory));
        if (begin <= date && date <= end) {
            dates.push_back(date);
        }
    }
    return dates;
}

// The highest number of a date's new-day files, -1 without any.
int32_t highestWaiting(const Account& account, const std::string& date) {
    std::vector<std::string> files;
    const std::string directory = names::newDayDir(account.directory, date);
    if (Util::getDaycrcsortNews(directory, files) != 0) {
        throw Failure(directory + ": cannot be listed; see the lines above");
    }
    return files.empty() ? -1 : names::newDayNumber(files.back());
}

} // namespace

void requireReadablePeriods(const Account& account, const std::string& date) {
    std::vector<PeriodOfDate> periods;
    if (periodsOfDate(account.directory, date, periods) != 0) {
        throw Failure(date + ": belongs to no week; see the lines above");
    }
    for (const auto& [period, files] : periods) {
        if (period != Period::Day) {
            (void)openWhole(account, files, period);
        }
    }
}

void requireDays(const Account& account, const std::string& begin, const std::string& end) {
    for (const std::string& date : datesWithNew(account, begin, end)) {
        const PeriodFiles files = periodFiles(names::dayDir(account.directory, date), Period::Day);
        const std::unique_ptr<UrlFile> day = openWhole(account, files, Period::Day);
        const int32_t held = day ? day->dayStatus()->newCounter() : -1;
        if (names::isCalendarDate(date) && highestWaiting(account, date) > held) {
            throw notNow("day " + account.text + " " + dateName(date) +
                         ": is due itself; run \"urlbuild day " + account.text + " " +
                         dateName(date) + "\" first");
        }
    }
}

void requireWeeks(const Account& account, const std::string& begin, const std::string& end) {
    for (const std::string& date : datesWithNew(account, begin, end)) {
        std::string first;
        std::string last;
        // What is no date of the calendar is in no week and no month.
        if (!names::isCalendarDate(date) || getDateOfCurrentWeek(date, first, last) != 0) {
            continue;
        }
        const PeriodFiles files = periodFiles(
            names::periodDir(account.directory, Period::Week, first, last), Period::Week);
        const std::unique_ptr<UrlFile> week = openWhole(account, files, Period::Week);
        const int32_t held = week ? week->weekMonStatus()->counterOfDate(date) : -1;
        if (highestWaiting(account, date) > held) {
            throw notNow("week " + account.text + " " + dateName(first) +
                         ": is due itself; run \"urlbuild week " + account.text + " " +
                         dateName(first) + "\" first");
        }
    }
}

} // namespace kestrine::build
