#include "report_data.h"

#include "failure.h"
#include "merged_files.h"
#include "period_argument.h"
#include "report_words.h"
#include "stat_file.h"
#include "top_queue.h"
#include "tree/names.h"

#include <algorithm>
#include <map>
#include <memory>

namespace kestrine::viewer {

namespace {

PeriodDir periodOf(Period period, const std::string& date) {
    PeriodDir dir{period, date, date};
    const PeriodKind& kind = kindOf(period);
    if (kind.range != nullptr && kind.range(date, dir.begin, dir.end) != 0) {
        throw Failure(date + ": is no date of the calendar");
    }
    return dir;
}

class Collector {
public:
    Collector(const StatTree& tree, std::string account, const PeriodDir& month) : m_tree(tree) {
        m_report.account = std::move(account);
        m_report.month = month;
    }
    MonthReport collect();

private:
    [[nodiscard]] PeriodEntry entryOf(const PeriodDir& dir) const;
    [[nodiscard]] std::optional<Figures> figuresOf(const PeriodDir& dir);
    [[nodiscard]] size_t daysThere(const PeriodDir& dir) const;
    [[nodiscard]] std::unique_ptr<MergedFiles> openMonth(const PeriodDir& month,
                                                         bool& ofDays) const;
    void openBefore();
    void nextBefore();
    void readHosts(MergedFiles& files);
    void compare(const UrlRecordView& record);
    void passOver();
    void takeTypes();
    void readDays();
    void readWeeks();

    const StatTree& m_tree;
    MonthReport m_report;
    std::map<uint32_t, Figures> m_types;
    // The month before, read along with the month.
    std::unique_ptr<MergedFiles> m_before;
    UrlRecordView m_beforeRecord;
    bool m_beforeMore = false;
    ChangeRanking m_risen{g_reportChanges};
    ChangeRanking m_fallen{g_reportChanges};
};

MonthReport Collector::collect() {
    const std::unique_ptr<MergedFiles> files = openMonth(m_report.month, m_report.ofDays);
    if (files->files() == 0) {
        throw Failure(m_tree.root() + ": has nothing of " + m_report.account + " in " +
                      monthWords(m_report.month.begin) +
                      "; \"urlstat periods\" lists what there is");
    }
    openBefore();
    readHosts(*files);
    takeTypes();
    readDays();
    readWeeks();
    return std::move(m_report);
}

PeriodEntry Collector::entryOf(const PeriodDir& dir) const {
    const std::string path = periodPath(m_tree.accountDir(m_report.account), dir);
    return {m_report.account, dir, periodFiles(path, dir.period)};
}

std::optional<Figures> Collector::figuresOf(const PeriodDir& dir) {
    try {
        const std::unique_ptr<UrlFile> file = openPeriod(entryOf(dir).files, dir.period);
        if (!file) {
            return std::nullopt;
        }
        return Figures{file->statusTotal(), sumHeaders(*file).records};
    } catch (const Failure& failure) {
        m_report.faults.push_back({dir, failure.what()});
        return std::nullopt;
    }
}

size_t Collector::daysThere(const PeriodDir& dir) const {
    const std::vector<std::string> dates = datesOf(dir);
    return static_cast<size_t>(std::ranges::count_if(dates, [this](const std::string& date) {
        return platform().exists(entryOf({Period::Day, date, date}).files.formal);
    }));
}

std::unique_ptr<MergedFiles> Collector::openMonth(const PeriodDir& month, bool& ofDays) const {
    const PeriodEntry entry = entryOf(month);
    auto files = std::make_unique<MergedFiles>(std::span(&entry, 1));
    ofDays = files->files() == 0;
    if (ofDays) {
        std::vector<PeriodEntry> days;
        for (const std::string& date : datesOf(month)) {
            days.push_back(entryOf({Period::Day, date, date}));
        }
        files = std::make_unique<MergedFiles>(days);
    }
    return files;
}

void Collector::openBefore() {
    const PeriodDir month = periodOf(Period::Month, dayBefore(m_report.month.begin));
    try {
        bool ofDays = false;
        m_before = openMonth(month, ofDays);
    } catch (const Failure& failure) {
        m_report.faults.push_back({month, failure.what()});
        return;
    }
    if (m_before->files() != 0) {
        m_report.before = MonthBefore{month, daysThere(month), {}, {}, {}};
        nextBefore();
    }
}

void Collector::nextBefore() {
    try {
        m_beforeMore = m_before->next(m_beforeRecord);
    } catch (const Failure& failure) {
        m_report.faults.push_back({m_report.before->month, failure.what()});
        m_report.before.reset(); // a part of it compares with nothing
        m_beforeMore = false;
    }
    if (m_beforeMore) {
        m_report.before->total.visits += m_beforeRecord.count;
        ++m_report.before->total.hosts;
    }
}

void Collector::readHosts(MergedFiles& files) {
    TopQueue busiest(g_reportHosts);
    UrlRecordView record;
    while (files.next(record)) {
        m_report.total.visits += record.count;
        ++m_report.total.hosts;
        Figures& type = m_types[record.type];
        type.visits += record.count;
        ++type.hosts;
        busiest.push(record);
        compare(record);
    }
    while (m_beforeMore) {
        passOver();
    }
    m_report.busiest = busiest.take();
    if (m_report.before) {
        m_report.before->risen = m_risen.take();
        m_report.before->fallen = m_fallen.take();
    }
}

// Both come in the order of their keys.
void Collector::compare(const UrlRecordView& record) {
    while (m_beforeMore && m_beforeRecord.key < record.key) {
        passOver();
    }
    uint64_t before = 0;
    if (m_beforeMore && m_beforeRecord.key == record.key) {
        before = m_beforeRecord.count;
        nextBefore();
    }
    if (record.count != before) {
        (record.count > before ? m_risen : m_fallen).offer(record, before, record.count);
    }
}

// A host that is gone.
void Collector::passOver() {
    m_fallen.offer(m_beforeRecord, m_beforeRecord.count, 0);
    nextBefore();
}

void Collector::takeTypes() {
    for (const auto& [type, figures] : m_types) {
        m_report.types.push_back({type, figures});
    }
    std::ranges::stable_sort(m_report.types, std::ranges::greater(),
                             [](const TypeFigures& type) { return type.figures.visits; });
}

void Collector::readDays() {
    for (const std::string& date : datesOf(m_report.month)) {
        m_report.days.push_back({date, figuresOf({Period::Day, date, date})});
    }
}

void Collector::readWeeks() {
    PeriodDir week = periodOf(Period::Week, m_report.month.begin);
    std::optional<Figures> before = figuresOf(periodOf(Period::Week, dayBefore(week.begin)));
    while (week.begin <= m_report.month.end) {
        const std::optional<Figures> figures = figuresOf(week);
        if (figures) {
            m_report.weeks.push_back({week, daysThere(week), *figures, before});
        }
        before = figures;
        week = periodOf(Period::Week, dayAfter(week.end));
    }
}

} // namespace

MonthReport collectMonth(const StatTree& tree, const std::string& account, const PeriodDir& month) {
    return Collector(tree, account, month).collect();
}

std::vector<PeriodDir> monthsOf(const StatTree& tree, const std::string& account) {
    std::map<std::string, PeriodDir> months;
    for (const PeriodEntry& entry : tree.periods(account)) {
        // A date that is none of the calendar is in no month.
        const bool ofMonth =
            entry.dir.period != Period::Week && names::isCalendarDate(entry.dir.begin);
        // Without the file while it is replaced.
        if (ofMonth &&
            (platform().exists(entry.files.formal) || platform().exists(entry.files.backup))) {
            const PeriodDir month = periodOf(Period::Month, entry.dir.begin);
            months.emplace(month.begin, month);
        }
    }
    std::vector<PeriodDir> list;
    list.reserve(months.size());
    for (const auto& [begin, month] : months) {
        list.push_back(month);
    }
    return list;
}

} // namespace kestrine::viewer
