// Periods as a command line names them.
//
//   2024-03-05, 20240305     a day
//   2024-03, 202403          a month
//   day:D, week:D, month:D   the period that holds the date D; month:2024-03, too
#pragma once

#include "tree/period.h"

#include <string>

namespace kestrine::viewer {

// "2024-03-05" or "20240305" -> "20240305". `option` is named when it is no date of the calendar:
// throws Failure.
[[nodiscard]] std::string parseDate(const std::string& option, const std::string& text);
// The period of the date `text`; a month also without its day. Throws Failure.
[[nodiscard]] PeriodDir parsePeriod(Period period, const std::string& option,
                                    const std::string& text);
// Any of the forms above. Throws Failure.
[[nodiscard]] PeriodDir parsePeriod(const std::string& option, const std::string& text);

// The directory of the period in an account's directory.
[[nodiscard]] std::string periodPath(const std::string& accountDir, const PeriodDir& dir);

} // namespace kestrine::viewer
