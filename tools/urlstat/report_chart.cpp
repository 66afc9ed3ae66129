#include "report_chart.h"

#include "report_words.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine::viewer {

namespace {

constexpr uint64_t g_mostMarks = 4; // of an axis, 0 not counted

// The least of 1, 2, 5, 10, 20, 50 ... that reaches `most` in a few steps.
uint64_t axisStep(uint64_t most) {
    uint64_t step = 1;
    for (int i = 0; step * g_mostMarks < most; ++i) {
        step = i % 3 == 1 ? step / 2 * 5 : step * 2;
    }
    return step;
}

std::string dayTitle(const DayFigures& day, FigureOf which, const char* unit) {
    return weekdayWords(day.date) + ", " + dayWords(day.date) + ": " +
           (day.figures ? thousands(figure(day, which)) + " " + unit : "no statistics");
}

// What the chart says to who does not see it.
std::string chartWords(const MonthReport& report, FigureOf which, const char* unit) {
    const DayFigures* least = nullptr;
    const DayFigures* most = nullptr;
    for (const DayFigures& day : report.days) {
        if (!day.figures) {
            continue;
        }
        if (least == nullptr || figure(day, which) < figure(*least, which)) {
            least = &day;
        }
        if (most == nullptr || figure(day, which) > figure(*most, which)) {
            most = &day;
        }
    }
    if (most == nullptr) {
        return "No day has statistics.";
    }
    return "A column for each day of " + monthWords(report.month.begin) + ". Most " + unit + ": " +
           thousands(figure(*most, which)) + " on " + dayWords(most->date) +
           "; fewest: " + thousands(figure(*least, which)) + " on " + dayWords(least->date) + ".";
}

} // namespace

uint64_t figure(const DayFigures& day, FigureOf which) {
    return day.figures ? (*day.figures).*which : 0;
}

uint64_t highest(const std::vector<DayFigures>& days, FigureOf which) {
    uint64_t most = 0;
    for (const DayFigures& day : days) {
        most = std::max(most, figure(day, which));
    }
    return most;
}

Data columns(const std::vector<DayFigures>& days, FigureOf which, const char* unit, uint64_t top) {
    size_t x = 0;
    return listOf(days, [&](const DayFigures& day) {
        const uint64_t value = figure(day, which);
        return Object{{"x", std::to_string(x++) + ".14"},
                      {"y", percentOf(top - value, top)},
                      {"height", percentOf(value, top)},
                      {"weekend", Data(isWeekend(day.date))},
                      {"title", dayTitle(day, which, unit)}};
    });
}

Data chart(const MonthReport& report, FigureOf which, const ChartText& text) {
    const uint64_t step = axisStep(highest(report.days, which));
    const uint64_t top = std::max(step, (highest(report.days, which) + step - 1) / step * step);
    Data marks(Data::type::list);
    for (uint64_t mark = 0; mark <= top; mark += step) {
        marks << Object{{"at", percentOf(mark, top)}, {"text", shortNumber(mark)}};
    }
    const Data dates = listOf(report.days, [](const DayFigures& day) {
        const int32_t number = names::getDateOfPath(day.date) % 100;
        return Object{{"day", std::to_string(number)}, {"always", Data(number % 7 == 1)}};
    });
    return Object{{"id", text.id},
                  {"title", text.title},
                  {"words", chartWords(report, which, text.unit)},
                  {"width", std::to_string(report.days.size())},
                  {"columns", columns(report.days, which, text.unit, top)},
                  {"marks", marks},
                  {"dates", dates}};
}

} // namespace kestrine::viewer
