#include "period_sums.h"

#include "failure.h"
#include "stat_file.h"
#include "storage/ownership.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace kestrine::viewer {

namespace {

constexpr int g_periodLooks = 20;
constexpr uint32_t g_periodPause = 100; // ms

constexpr const char* g_countedAnew =
    "counted anew from the day files in the first pass after a start; the new file takes its place "
    "unless the old one holds more";
constexpr const char* g_keepsWhatItHolds =
    "what a day file has lost may be left here alone, so the service keeps it";

class Comparison {
public:
    explicit Comparison(const PeriodSums& sums) : m_sums(sums) {}

    std::vector<SumFault> compare() {
        for (const auto& [date, number] : m_sums.held) {
            const auto found = m_sums.dates.find(date);
            // A date that was removed: what the file holds of it stays.
            m_exact =
                m_exact && found != m_sums.dates.end() && found->second.day != DateSums::Day::None;
        }
        for (const auto& [date, state] : m_sums.dates) {
            if (state.day == DateSums::Day::Good) {
                addDate(date, state);
            }
            m_exact = m_exact && state.day != DateSums::Day::Damaged;
        }
        if (m_sums.visits < m_expected) {
            add(totals(), g_countedAnew);
        } else if (m_exact && m_sums.visits > m_expected) {
            add(totals(), g_keepsWhatItHolds);
        }
        return std::move(m_faults);
    }

private:
    void addDate(const std::string& date, const DateSums& state) {
        const auto entry = m_sums.held.find(date);
        const int32_t held = entry == m_sums.held.end() ? -1 : entry->second;
        uint64_t between = 0;
        const bool allWait = visitsBetween(state, held, between);
        if (held <= state.counter) {
            if (allWait) {
                // Totals that contradict each other wrap to a number that no file reaches.
                m_expected += state.visits - between;
            } else {
                m_exact = false;
                add("lacks visits of " + dateName(date) + ": it holds new-day files up to number " +
                        std::to_string(held) + ", the day file up to " +
                        std::to_string(state.counter) + ", and not all between wait",
                    g_countedAnew);
            }
            return;
        }
        m_expected += state.visits + between;
        m_exact = m_exact && allWait;
        if (state.waiting.empty() || held > state.waiting.rbegin()->first) {
            add("knows " + dateName(date) + " better than its day file: up to new-day number " +
                    std::to_string(held) + ", the day file up to " + std::to_string(state.counter),
                g_keepsWhatItHolds);
        }
    }

    // Visits of the waiting files above the lower of the two numbers, up to the higher one; whether
    // these are all.
    static bool visitsBetween(const DateSums& state, int32_t held, uint64_t& visits) {
        const auto [low, high] = std::minmax(held, state.counter);
        const auto begin = state.waiting.upper_bound(low);
        const auto end = state.waiting.upper_bound(high);
        for (auto file = begin; file != end; ++file) {
            visits += file->second;
        }
        return std::distance(begin, end) == int64_t{high} - low;
    }

    [[nodiscard]] std::string totals() const {
        return "holds visits " + std::to_string(m_sums.visits) + ", its dates make " +
               std::to_string(m_expected);
    }
    void add(const std::string& text, const char* meaning) { m_faults.push_back({text, meaning}); }

    const PeriodSums& m_sums;
    uint64_t m_expected = 0;
    bool m_exact = true; // m_expected is all, not just the least, that the file must hold
    std::vector<SumFault> m_faults;
};

void checkOwner(UrlFile& file, const std::string& accountDir, const std::string& date) {
    if (!belongsToDay(*file.dayStatus(), names::lastComponent(accountDir), date)) {
        throw Failure(file.path() + ": is of another account or date");
    }
}

void readDay(const std::string& accountDir, const std::string& date, DateSums& sums) {
    const PeriodFiles files = periodFiles(names::dayDir(accountDir, date), Period::Day);
    if (const std::unique_ptr<UrlFile> day = openPeriod(files, Period::Day)) {
        checkOwner(*day, accountDir, date);
        sums.day = DateSums::Day::Good;
        sums.counter = day->dayStatus()->newCounter();
        sums.visits = day->statusTotal();
    }
}

void readWaiting(const std::string& accountDir, const std::string& date, DateSums& sums) {
    const std::string directory = names::newDayDir(accountDir, date);
    std::vector<std::string> paths;
    if (Util::getDaycrcsortNews(directory, paths) != 0) {
        throw Failure(directory + ": cannot be listed; check the permissions");
    }
    for (const std::string& path : paths) {
        if (const std::unique_ptr<UrlFile> file = openStatFile(path, g_dayStatusType)) {
            checkOwner(*file, accountDir, date);
            sums.waiting[names::newDayNumber(path)] = file->statusTotal();
        }
    }
}

DateSums readDate(const std::string& accountDir, const std::string& date) {
    DateSums sums;
    try {
        readDay(accountDir, date, sums);
        readWaiting(accountDir, date, sums);
    } catch (const Failure&) {
        sums.day = DateSums::Day::Damaged; // told of the file itself
    }
    return sums;
}

// The period's file first: new-day files go only after it holds them, so that none is missed that
// it lacks.
std::optional<PeriodSums> readSums(const std::string& accountDir, const PeriodEntry& period,
                                   const std::vector<std::string>& days) {
    PeriodSums sums;
    try {
        const std::unique_ptr<UrlFile> file = openPeriod(period.files, period.dir.period);
        if (!file) {
            return std::nullopt;
        }
        sums.visits = file->statusTotal();
        for (const DateEntry& entry : file->weekMonStatus()->entries()) {
            sums.held[std::string(names::lastComponent(entry.path))] = entry.counter;
        }
    } catch (const Failure&) {
        return std::nullopt;
    }
    for (const std::string& date : days) {
        sums.dates[date] = readDate(accountDir, date);
    }
    return sums;
}

std::vector<std::string> daysOf(const StatTree& tree, const PeriodEntry& period) {
    std::vector<std::string> days;
    for (const PeriodEntry& entry : tree.periods(period.account)) {
        if (entry.dir.period == Period::Day && names::isCalendarDate(entry.dir.begin) &&
            entry.dir.begin >= period.dir.begin && entry.dir.begin <= period.dir.end) {
            days.push_back(entry.dir.begin);
        }
    }
    return days;
}

} // namespace

std::vector<SumFault> faultsOf(const PeriodSums& sums) {
    return Comparison(sums).compare();
}

// The files are read one after another, and a pass may replace them meanwhile. Whatever looks wrong
// is looked at again, until two looks see the same: then the file of the second one was there,
// unchanged, before everything that the first one saw missing went.
std::vector<SumFault> comparePeriod(const std::string& accountDir, const PeriodEntry& period) {
    const StatTree tree{std::string(names::parentOf(accountDir))};
    std::optional<PeriodSums> before;
    for (int looks = 0; looks < g_periodLooks; ++looks) {
        std::optional<PeriodSums> sums = readSums(accountDir, period, daysOf(tree, period));
        std::vector<SumFault> faults = sums ? faultsOf(*sums) : std::vector<SumFault>();
        if (faults.empty() || sums == before) {
            return faults;
        }
        before = std::move(sums);
        platform().sleep(g_periodPause);
    }
    return {}; // it changes all the time: nothing can be told
}

} // namespace kestrine::viewer
