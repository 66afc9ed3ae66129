// Two periods side by side: which hosts rose and fell most, which are new, which are gone.
#include "changes.h"
#include "failure.h"
#include "merged_files.h"
#include "period_argument.h"
#include "selection.h"

#include <algorithm>
#include <array>
#include <limits>

namespace kestrine::viewer {

namespace {

constexpr std::array<const char*, 4> g_kinds = {"rose", "fell", "new", "gone"};
enum KindIndex : size_t { Rose, Fell, New, Gone };

struct CompareOptions {
    std::string before;
    std::string after;
    uint32_t number = 10;
    uint64_t minVisits = 0;
    std::string kind;
};

// One of the two periods.
class CompareSide {
public:
    CompareSide(Session& session, const std::string& option, const std::string& text)
        : m_selection(select(session, parsePeriod(option, text))), m_files(m_selection.periods) {
        if (m_files.files() == 0) {
            throw Failure(session.place().root + ": has no file of " + m_selection.name +
                          " yet; \"urlstat periods\" lists what there is");
        }
        next();
    }

    // At the end it is behind every key.
    [[nodiscard]] bool isBefore(const CompareSide& other) const {
        return m_more && (!other.m_more || m_record.key < other.m_record.key);
    }
    [[nodiscard]] bool more() const { return m_more; }
    [[nodiscard]] const UrlRecordView& record() const { return m_record; }
    void next() {
        m_more = m_files.next(m_record);
        m_hosts += m_more ? 1 : 0;
    }
    void say(RowSink& sink, const char* which) const {
        sink.note(std::string(which) + " " + m_selection.name + ": " +
                  std::to_string(m_files.total()) + " visits, " + std::to_string(m_hosts) +
                  " hosts");
        for (const std::string& missing : m_selection.missing) {
            sink.note("nothing of " + missing);
        }
    }

private:
    Selection m_selection;
    MergedFiles m_files;
    UrlRecordView m_record;
    bool m_more = false;
    uint64_t m_hosts = 0;
};

class Compare {
public:
    Compare(Session& session, const CompareOptions& options)
        : m_session(session), m_options(options), m_before(session, "PERIOD", options.before),
          m_after(session, "PERIOD", options.after),
          m_rankings(g_kinds.size(), ChangeRanking(options.number)) {}
    int run();

private:
    void take();
    void show(size_t kind);
    void say() const;

    Session& m_session;
    const CompareOptions& m_options;
    CompareSide m_before;
    CompareSide m_after;
    std::vector<ChangeRanking> m_rankings;
    uint64_t m_unchanged = 0;
};

int Compare::run() {
    while (m_before.more() || m_after.more()) {
        take();
    }
    m_session.sink().begin({{"change", Kind::Text},
                            {"before", Kind::Count},
                            {"after", Kind::Count},
                            {"difference", Kind::Signed},
                            {"ratio", Kind::Share},
                            {"type", Kind::Count},
                            {"host", Kind::Bytes}});
    for (size_t kind = 0; kind < g_kinds.size(); ++kind) {
        if (m_options.kind.empty() || m_options.kind == g_kinds[kind]) {
            show(kind);
        }
    }
    say();
    m_session.sink().end();
    return 0;
}

// The next host of both.
void Compare::take() {
    const bool onlyBefore = m_before.isBefore(m_after);
    const bool onlyAfter = m_after.isBefore(m_before);
    const uint64_t before = onlyAfter ? 0 : m_before.record().count;
    const uint64_t after = onlyBefore ? 0 : m_after.record().count;
    if (std::max(before, after) >= m_options.minVisits) {
        if (before == after) {
            ++m_unchanged;
        } else {
            const size_t kind = onlyAfter ? New : onlyBefore ? Gone : after > before ? Rose : Fell;
            const UrlRecordView& record = onlyBefore ? m_before.record() : m_after.record();
            m_rankings[kind].offer(record, before, after);
        }
    }
    if (!onlyAfter) {
        m_before.next();
    }
    if (!onlyBefore) {
        m_after.next();
    }
}

void Compare::show(size_t kind) {
    for (const Change& change : m_rankings[kind].take()) {
        const Value ratio =
            change.before == 0
                ? Value()
                : Value(static_cast<double>(change.after) / static_cast<double>(change.before));
        m_session.sink().add(
            {std::string_view(g_kinds[kind]), change.before, change.after,
             static_cast<int64_t>(change.after) - static_cast<int64_t>(change.before), ratio,
             uint64_t{change.type}, Bytes{change.host}});
    }
}

void Compare::say() const {
    RowSink& sink = m_session.sink();
    m_before.say(sink, "before");
    m_after.say(sink, "after");
    std::string line;
    for (size_t kind = 0; kind < g_kinds.size(); ++kind) {
        line +=
            std::string(g_kinds[kind]) + " " + std::to_string(m_rankings[kind].offered()) + ", ";
    }
    line += "the same " + std::to_string(m_unchanged);
    if (m_options.minVisits > 0) {
        line +=
            "; hosts below " + std::to_string(m_options.minVisits) + " visits in both are left out";
    }
    sink.note("hosts: " + line);
}

} // namespace

void addCompare(Session& session) {
    const auto options = std::make_shared<CompareOptions>();
    const char* const forms = "2024-03-05, 2024-03, or day:DATE, week:DATE, month:DATE";
    session
        .addCommand("compare", "Hosts that rose, fell, are new or gone between two periods",
                    "compare 2024-02 2024-03 --account alice --min-visits 100\n"
                    "  urlstat compare week:2024-03-04 week:2024-03-11 --kind new",
                    [&session, options] { return Compare(session, *options).run(); })
        .requiredText("BEFORE", options->before, forms)
        .requiredText("AFTER", options->after, forms)
        .number("-n", options->number, "Hosts of each kind to show", 1)
        .number("--min-visits", options->minVisits,
                "Leave out hosts with fewer visits in both periods")
        .choice("--kind", options->kind, {g_kinds.begin(), g_kinds.end()},
                "Only hosts that \"rose\", \"fell\", are \"new\" or \"gone\"");
}

} // namespace kestrine::viewer
