#include "worldgen/calendar.h"

#include <chrono>
#include <stdexcept>
#include <string>

namespace worldgen {

namespace {

constexpr int firstAccepted = 20000001;
constexpr int lastAccepted = 21111110;

std::chrono::year_month_day split(int date) {
    return std::chrono::year(date / 10000) /
           std::chrono::month(static_cast<unsigned>(date % 10000 / 100)) /
           std::chrono::day(static_cast<unsigned>(date % 100));
}

} // namespace

bool isCalendarDate(int date) {
    return date >= firstAccepted && date <= lastAccepted && split(date).ok();
}

int addDays(int date, int days) {
    if (!isCalendarDate(date)) {
        throw std::invalid_argument("no date: " + std::to_string(date));
    }
    std::chrono::year_month_day moved =
        std::chrono::sys_days(split(date)) + std::chrono::days(days);
    int result = int(moved.year()) * 10000 + static_cast<int>(unsigned(moved.month())) * 100 +
                 static_cast<int>(unsigned(moved.day()));
    if (!isCalendarDate(result)) {
        throw std::invalid_argument("date out of range: " + std::to_string(result));
    }
    return result;
}

} // namespace worldgen
