// Two trees compared record by record. Lists are left out: they follow from the files.
#include "failure.h"
#include "session.h"
#include "stat_file.h"
#include "storage/verify.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace kestrine::viewer {

namespace {

struct DiffOptions {
    std::string left;
    std::string right;
    uint64_t number = 100;
};

// The records of a file that may not be there.
class DiffSide {
public:
    explicit DiffSide(std::unique_ptr<UrlFile> file) : m_file(std::move(file)) {
        if (m_file) {
            m_reader.emplace(*m_file);
            next();
        }
    }
    [[nodiscard]] bool isThere() const { return m_file != nullptr; }
    [[nodiscard]] uint64_t total() const { return m_file->statusTotal(); }
    // Null at the end.
    [[nodiscard]] const UrlRecordView* record() const { return m_record ? &*m_record : nullptr; }
    void next() {
        const int result = m_reader->readOneRecord(m_record.emplace());
        if (result < 0) {
            throw readFailure(*m_file);
        }
        if (result == 1) {
            m_record.reset();
        }
    }

private:
    std::unique_ptr<UrlFile> m_file;
    std::optional<VerifyingReader> m_reader;
    std::optional<UrlRecordView> m_record;
};

class Diff {
public:
    Diff(Session& session, const DiffOptions& options)
        : m_session(session), m_options(options), m_left(findTree(options.left, "").root),
          m_right(findTree(options.right, "").root) {}
    int run();

private:
    struct Pair {
        std::optional<PeriodEntry> left;
        std::optional<PeriodEntry> right;
    };
    using Place = std::tuple<std::string, Period, std::string>; // account, kind, first date

    [[nodiscard]] std::map<Place, Pair> pairs() const;
    void compare(DiffSide left, DiffSide right);
    void compareRecords(const UrlRecordView& left, const UrlRecordView& right);
    void row(std::string_view what, const Value& left, const Value& right,
             const UrlRecordView* record);

    Session& m_session;
    const DiffOptions& m_options;
    StatTree m_left;
    StatTree m_right;
    const PeriodEntry* m_period = nullptr; // whose rows are told
    uint64_t m_files = 0;
    uint64_t m_differences = 0;
};

DiffSide openSide(const std::optional<PeriodEntry>& period) {
    return DiffSide(period ? openPeriod(period->files, period->dir.period) : nullptr);
}

int Diff::run() {
    RowSink& sink = m_session.sink();
    sink.begin({{"account", Kind::Bytes},
                {"kind", Kind::Text},
                {"begin", Kind::Text},
                {"difference", Kind::Text},
                {"left_visits", Kind::Count},
                {"right_visits", Kind::Count},
                {"key", Kind::Key},
                {"host", Kind::Bytes}});
    for (const auto& [place, pair] : pairs()) {
        m_period = pair.left ? &*pair.left : &*pair.right;
        try {
            compare(openSide(pair.left), openSide(pair.right));
        } catch (const Failure& failure) {
            row("cannot be read", {}, {}, nullptr);
            sink.note(failure.what());
        }
    }
    std::string note = "differences: " + std::to_string(m_differences) + ", in " +
                       std::to_string(m_files) + " files";
    if (m_options.number != 0 && m_differences > m_options.number) {
        note += "; the first " + std::to_string(m_options.number) + " are shown, -n 0 shows all";
    }
    sink.note(note);
    sink.end();
    return m_differences == 0 ? 0 : g_dataWrong;
}

std::map<Diff::Place, Diff::Pair> Diff::pairs() const {
    std::map<Place, Pair> pairs;
    const std::vector<std::string>& named = m_session.namedAccounts();
    std::set<std::string> unknown(named.begin(), named.end());
    const auto collect = [&](const StatTree& tree, std::optional<PeriodEntry> Pair::*side) {
        for (const std::string& account : tree.accounts()) {
            unknown.erase(account);
            if (!named.empty() && std::ranges::find(named, account) == named.end()) {
                continue;
            }
            for (const PeriodEntry& entry : tree.periods(account)) {
                pairs[{account, entry.dir.period, entry.dir.begin}].*side = entry;
            }
        }
    };
    collect(m_left, &Pair::left);
    collect(m_right, &Pair::right);
    if (!unknown.empty()) {
        throw Failure(m_left.root() + ": neither it nor the other tree has an account " +
                      *unknown.begin());
    }
    return pairs;
}

void Diff::compare(DiffSide left, DiffSide right) {
    m_files += left.isThere() || right.isThere() ? 1U : 0U;
    if (!left.isThere() || !right.isThere()) {
        if (left.isThere()) {
            row("only left has the file", left.total(), {}, nullptr);
        } else if (right.isThere()) {
            row("only right has the file", {}, right.total(), nullptr);
        }
        return;
    }
    while (left.record() != nullptr || right.record() != nullptr) {
        const UrlRecordView* const a = left.record();
        const UrlRecordView* const b = right.record();
        if (b == nullptr || (a != nullptr && a->key < b->key)) {
            row("only left", a->count, {}, a);
            left.next();
        } else if (a == nullptr || b->key < a->key) {
            row("only right", {}, b->count, b);
            right.next();
        } else {
            compareRecords(*a, *b);
            left.next();
            right.next();
        }
    }
}

// Records of one key.
void Diff::compareRecords(const UrlRecordView& left, const UrlRecordView& right) {
    const auto add = [&](const std::string& what) { row(what, left.count, right.count, &left); };
    if (left.count != right.count) {
        add("visits");
    }
    if (left.type != right.type) {
        add("type " + std::to_string(left.type) + ", " + std::to_string(right.type));
    }
    if (left.url != right.url) {
        add("text of the host");
    }
}

void Diff::row(std::string_view what, const Value& left, const Value& right,
               const UrlRecordView* record) {
    if (++m_differences > m_options.number && m_options.number != 0) {
        return;
    }
    const std::string begin = dateName(m_period->dir.begin);
    m_session.sink().add({Bytes{m_period->account},
                          std::string_view(periodKindName(m_period->dir.period)),
                          std::string_view(begin), what, left, right,
                          record != nullptr ? Value(record->key) : Value(),
                          record != nullptr ? Value(Bytes{record->url}) : Value()});
}

} // namespace

void addDiff(Session& session) {
    const auto options = std::make_shared<DiffOptions>();
    session
        .addCommand("diff", "What two trees hold differently",
                    "diff /var/backup/_urlstat log_data/_urlstat --account alice",
                    [&session, options] { return Diff(session, *options).run(); })
        .requiredText("LEFT", options->left, "Root of one tree")
        .requiredText("RIGHT", options->right, "Root of the other")
        .number("-n", options->number, "Differences to show, 0 for all");
}

} // namespace kestrine::viewer
