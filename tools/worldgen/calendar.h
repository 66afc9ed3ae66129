// Dates as eight-digit numbers, year * 10000 + month * 100 + day.
#pragma once

namespace worldgen {

bool isCalendarDate(int date);

// The date `days` after `date`, across month and year ends. Throws std::invalid_argument when
// `date` is no calendar date or the result is no longer accepted as the name of a date directory.
int addDays(int date, int days);

} // namespace worldgen
