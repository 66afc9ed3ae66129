#include "report_page.h"

#include "bytes_text.h"
#include "report_chart.h"
#include "report_words.h"

#include <algorithm>
#include <span>
#include <utility>

namespace kestrine::viewer {

namespace {

constexpr size_t g_hostsWithBars = 20;
constexpr size_t g_typesShown = 12;

Data dayRow(const DayFigures& day) {
    return Object{{"date", dayWords(day.date)},
                  {"weekday", weekdayWords(day.date)},
                  {"visits", day.figures ? thousands(day.figures->visits) : "\u2013"},
                  {"hosts", day.figures ? thousands(day.figures->hosts) : "\u2013"}};
}

// ---- tables

class Hosts {
public:
    explicit Hosts(const MonthReport& report) : m_report(report) {}
    Data operator()(const UrlRecordPtr& record) {
        return Object{{"rank", std::to_string(++m_rank)},
                      {"host", utf8Text(record->url())},
                      {"type", std::to_string(record->type)},
                      {"visits", thousands(record->count)},
                      {"share", percentage(record->count, m_report.total.visits)},
                      {"width", percentOf(record->count, m_report.busiest.front()->count)}};
    }

private:
    const MonthReport& m_report;
    size_t m_rank = 0;
};

Data typeRow(const std::string& name, const Figures& figures, const MonthReport& report) {
    return Object{{"type", name},
                  {"visits", thousands(figures.visits)},
                  {"hosts", thousands(figures.hosts)},
                  {"share", percentage(figures.visits, report.total.visits)},
                  {"width", percentOf(figures.visits, report.total.visits)}};
}

Data typeRows(const MonthReport& report) {
    Data rows(Data::type::list);
    Figures others;
    for (size_t i = 0; i < report.types.size(); ++i) {
        const TypeFigures& type = report.types[i];
        if (i < g_typesShown || report.types.size() == g_typesShown + 1) {
            rows << typeRow(std::to_string(type.type), type.figures, report);
        } else {
            others.visits += type.figures.visits;
            others.hosts += type.figures.hosts;
        }
    }
    if (others.visits > 0) {
        rows << typeRow("others", others, report);
    }
    return rows;
}

const char* direction(uint64_t before, uint64_t after) {
    return after > before ? "up" : after < before ? "down" : "";
}

// Of a figure that a week or month has, and one before it may have.
Object changed(const std::optional<Figures>& before, const Figures& after, FigureOf which) {
    const bool known = before && (*before).*which > 0;
    return Object{{"value", thousands(after.*which)},
                  {"change", known ? change((*before).*which, after.*which) : "\u2013"},
                  {"direction", known ? direction((*before).*which, after.*which) : ""}};
}

Data weekRow(const WeekFigures& week) {
    return Object{{"week", periodWords(week.week)},
                  {"days", std::to_string(week.days)},
                  {"visits", changed(week.before, week.figures, &Figures::visits)},
                  {"hosts", changed(week.before, week.figures, &Figures::hosts)}};
}

Data changeRow(const Change& item) {
    return Object{{"host", utf8Text(item.host)},
                  {"visits", thousands(item.after)},
                  {"difference", difference(item.before, item.after)},
                  {"change", change(item.before, item.after)}};
}

// Of the days that have a file.
struct DaySums {
    size_t days = 0;
    uint64_t visits = 0;
};

DaySums sumsOf(const std::vector<DayFigures>& days) {
    DaySums sums;
    for (const DayFigures& day : days) {
        sums.days += day.figures ? 1U : 0U;
        sums.visits += figure(day, &Figures::visits);
    }
    return sums;
}

std::string daysWords(size_t days) {
    return std::to_string(days) + (days == 1 ? " day" : " days");
}

Data againstBefore(const MonthReport& report) {
    const MonthBefore& before = *report.before;
    return Object{
        {"month", monthWords(before.month.begin)},   {"days", daysWords(sumsOf(report.days).days)},
        {"daysBefore", daysWords(before.days)},      {"risen", listOf(before.risen, changeRow)},
        {"anyRisen", Data(!before.risen.empty())},   {"fallen", listOf(before.fallen, changeRow)},
        {"anyFallen", Data(!before.fallen.empty())},
    };
}

// ---- the head of the page

Object keyFigure(const MonthReport& report, const char* name, FigureOf which) {
    Object entry{{"name", name}, {"value", thousands(report.total.*which)}};
    if (report.before && report.before->total.*which > 0) {
        const uint64_t before = report.before->total.*which;
        entry["note"] = change(before, report.total.*which) + " against " +
                        monthWords(report.before->month.begin) +
                        (sumsOf(report.days).days == report.before->days
                             ? ""
                             : ", " + daysWords(report.before->days));
    }
    return entry;
}

Data keyFigures(const MonthReport& report) {
    Data entries(Data::type::list);
    entries << keyFigure(report, "Visits", &Figures::visits)
            << keyFigure(report, "Distinct hosts", &Figures::hosts);
    const DaySums sums = sumsOf(report.days);
    if (sums.days > 0) {
        const auto most = std::ranges::max_element(
            report.days, {}, [](const DayFigures& day) { return figure(day, &Figures::visits); });
        entries << Object{{"name", "Visits a day"},
                          {"value", thousands(sums.visits / sums.days)},
                          {"note", "mean of " + daysWords(sums.days)}}
                << Object{{"name", "Busiest day"},
                          {"value", dayWords(most->date)},
                          {"note", thousands(figure(*most, &Figures::visits)) + " visits"}};
    }
    return entries;
}

// What the reader should know before the figures.
Data remarks(const MonthReport& report) {
    Data all(Data::type::list);
    for (const ReportFault& fault : report.faults) {
        all << Object{{"text", "The statistics of " + periodWords(fault.period) +
                                   " cannot be read; their figures are missing here."}};
    }
    const uint64_t sum = sumsOf(report.days).visits;
    if (report.ofDays) {
        all << Object{{"text", "The month has no file of its own yet; its figures are counted from "
                               "its days."}};
    } else if (sum > report.total.visits) {
        all << Object{{"text", "The days hold " + thousands(sum - report.total.visits) +
                                   " visits that are not yet merged into the month."}};
    }
    return all;
}

} // namespace

std::string monthPage(const MonthReport& report, const std::string& overview) {
    Data data = pageData();
    const auto bars = std::min(g_hostsWithBars, report.busiest.size());
    data["script"] = std::string(texts::g_script);
    data["account"] = utf8Text(report.account);
    data["month"] = monthWords(report.month.begin);
    data["overview"] = overview.empty() ? Data(false) : Data(overview);
    data["figures"] = keyFigures(report);
    data["remarks"] = remarks(report);
    Data charts(Data::type::list);
    charts << chart(report, &Figures::visits, {"visits", "Visits per day", "visits"})
           << chart(report, &Figures::hosts, {"hosts", "Distinct hosts per day", "hosts"});
    data["charts"] = std::move(charts);
    data["days"] = listOf(report.days, dayRow);
    data["barCount"] = std::to_string(bars);
    data["bars"] = listOf(std::span(report.busiest).first(bars), Hosts(report));
    data["types"] = typeRows(report);
    data["weeks"] = listOf(report.weeks, weekRow);
    data["anyWeek"] = Data(!report.weeks.empty());
    data["before"] = report.before ? againstBefore(report) : Data(false);
    data["hostCount"] = std::to_string(report.busiest.size());
    data["hosts"] = listOf(report.busiest, Hosts(report));
    return renderPage(texts::g_page, data);
}

} // namespace kestrine::viewer
