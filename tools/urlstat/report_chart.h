// Charts with a column for each day.
#pragma once

#include "report_data.h"
#include "report_html.h"

namespace kestrine::viewer {

// Which of the two.
using FigureOf = uint64_t Figures::*;

[[nodiscard]] uint64_t figure(const DayFigures& day, FigureOf which); // 0 where nothing is known
[[nodiscard]] uint64_t highest(const std::vector<DayFigures>& days, FigureOf which);

struct ChartText {
    const char* id;
    const char* title;
    const char* unit; // "visits"
};
// A chart with its axis.
[[nodiscard]] Data chart(const MonthReport& report, FigureOf which, const ChartText& text);
// The columns of an SVG that is as wide as there are days and 100 high; `top` (above 0) is its
// upper edge.
[[nodiscard]] Data columns(const std::vector<DayFigures>& days, FigureOf which, const char* unit,
                           uint64_t top);

} // namespace kestrine::viewer
