// Figures and dates as people read them in a report. Dates are "YYYYMMDD" and of the calendar.
#pragma once

#include "tree/period.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine::viewer {

[[nodiscard]] std::string thousands(uint64_t number); // "1,234,567"
// "12.3%", "<0.1%"; of nothing "0.0%".
[[nodiscard]] std::string percentage(uint64_t part, uint64_t whole);
[[nodiscard]] std::string difference(uint64_t before, uint64_t after); // "+1,234", "−1,234"
// "+4.2%", "−3.0%", from the tenfold on "×12"; "new" and "gone" when one of them is 0.
[[nodiscard]] std::string change(uint64_t before, uint64_t after);
// For an axis: "2,500", "20 k", "1.5 M".
[[nodiscard]] std::string shortNumber(uint64_t number);
// A part of the whole in percent, for widths and heights: "43.21".
[[nodiscard]] std::string percentOf(uint64_t part, uint64_t whole);

[[nodiscard]] std::string dayWords(const std::string& date);     // "5 March"
[[nodiscard]] std::string dateWords(const std::string& date);    // "5 March 2024"
[[nodiscard]] std::string monthWords(const std::string& date);   // "March 2024"
[[nodiscard]] std::string weekdayWords(const std::string& date); // "Tuesday"
// "3–9 Mar", "25 Feb – 2 Mar"; a day or month as above.
[[nodiscard]] std::string periodWords(const PeriodDir& dir);
[[nodiscard]] bool isWeekend(const std::string& date);

[[nodiscard]] std::string dayBefore(const std::string& date);
[[nodiscard]] std::string dayAfter(const std::string& date);
// Every date of a period.
[[nodiscard]] std::vector<std::string> datesOf(const PeriodDir& dir);

} // namespace kestrine::viewer
