#include "report_words.h"

#include "tree/names.h"

#include <array>
#include <chrono>
#include <cstdio>

namespace kestrine::viewer {

namespace {

using std::chrono::sys_days;

constexpr std::array<const char*, 12> g_months = {"January",   "February", "March",    "April",
                                                  "May",       "June",     "July",     "August",
                                                  "September", "October",  "November", "December"};
constexpr std::array<const char*, 7> g_weekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                   "Thursday", "Friday", "Saturday"};

constexpr const char* g_minus = "\u2212";
constexpr const char* g_narrowSpace = "\u202f";

std::chrono::year_month_day fieldsOf(const std::string& date) {
    const int32_t number = names::getDateOfPath(date);
    return std::chrono::year(number / 10000) /
           std::chrono::month(static_cast<unsigned>(number) % 10000 / 100) /
           std::chrono::day(static_cast<unsigned>(number) % 100);
}

unsigned weekdayOf(const std::string& date) {
    return std::chrono::weekday(sys_days(fieldsOf(date))).c_encoding();
}

std::string textOf(sys_days day) {
    const std::chrono::year_month_day fields(day);
    return names::dateText(
        int{fields.year()} * 10000 +
        static_cast<int32_t>(unsigned{fields.month()} * 100 + unsigned{fields.day()}));
}

std::string decimals(double number, int places) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", places, number);
    return text.data();
}

double ratio(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

const char* monthName(const std::string& date) {
    return g_months[unsigned{fieldsOf(date).month()} - 1];
}

std::string dayNumber(const std::string& date) {
    return std::to_string(unsigned{fieldsOf(date).day()});
}

// For tables, which have little room.
std::string shortDayWords(const std::string& date) {
    return dayNumber(date) + " " + std::string(monthName(date)).substr(0, 3);
}

std::string yearOf(const std::string& date) {
    return std::to_string(int{fieldsOf(date).year()});
}

} // namespace

std::string thousands(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string percentage(uint64_t part, uint64_t whole) {
    const double percent = ratio(part, whole) * 100;
    return part != 0 && percent < 0.1 ? "<0.1%" : decimals(percent, 1) + "%";
}

std::string difference(uint64_t before, uint64_t after) {
    return after >= before ? "+" + thousands(after - before) : g_minus + thousands(before - after);
}

std::string change(uint64_t before, uint64_t after) {
    if (before == 0 || after == 0) {
        return before == after ? "" : before == 0 ? "new" : "gone";
    }
    const double times = ratio(after, before);
    if (times >= 10) {
        return "\u00d7" + thousands(static_cast<uint64_t>(times));
    }
    return times >= 1 ? "+" + decimals((times - 1) * 100, 1) + "%"
                      : g_minus + decimals((1 - times) * 100, 1) + "%";
}

std::string shortNumber(uint64_t number) {
    struct Unit {
        uint64_t size;
        const char* name;
    };
    constexpr std::array<Unit, 3> units = {{{1'000'000'000, "bn"}, {1'000'000, "M"}, {1000, "k"}}};
    for (const Unit& unit : units) {
        if (number >= unit.size && number >= 10'000) {
            const int places = number % unit.size == 0 ? 0 : 1;
            return decimals(ratio(number, unit.size), places) + g_narrowSpace + unit.name;
        }
    }
    return thousands(number);
}

std::string percentOf(uint64_t part, uint64_t whole) {
    return decimals(ratio(part, whole) * 100, 2);
}

std::string dayWords(const std::string& date) {
    return dayNumber(date) + " " + monthName(date);
}

std::string dateWords(const std::string& date) {
    return dayWords(date) + " " + yearOf(date);
}

std::string monthWords(const std::string& date) {
    return std::string(monthName(date)) + " " + yearOf(date);
}

std::string weekdayWords(const std::string& date) {
    return g_weekdays[weekdayOf(date)];
}

std::string periodWords(const PeriodDir& dir) {
    if (dir.period == Period::Day) {
        return dateWords(dir.begin);
    }
    if (dir.period == Period::Month) {
        return monthWords(dir.begin);
    }
    const bool oneMonth = dir.begin.substr(0, 6) == dir.end.substr(0, 6);
    return (oneMonth ? dayNumber(dir.begin) + "\u2013" : shortDayWords(dir.begin) + " \u2013 ") +
           shortDayWords(dir.end);
}

bool isWeekend(const std::string& date) {
    return weekdayOf(date) % 6 == 0;
}

std::string dayBefore(const std::string& date) {
    return textOf(sys_days(fieldsOf(date)) - std::chrono::days(1));
}

std::string dayAfter(const std::string& date) {
    return textOf(sys_days(fieldsOf(date)) + std::chrono::days(1));
}

std::vector<std::string> datesOf(const PeriodDir& dir) {
    std::vector<std::string> dates;
    for (std::string date = dir.begin; date <= dir.end; date = dayAfter(date)) {
        dates.push_back(date);
    }
    return dates;
}

} // namespace kestrine::viewer
