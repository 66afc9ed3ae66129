// Single hosts, or domains, over time: a row per period that has a file.
#include "bytes_text.h"
#include "domain_sums.h"
#include "failure.h"
#include "key_search.h"
#include "period_argument.h"
#include "session.h"
#include "stat_file.h"
#include "storage/url_key.h"

#include <algorithm>
#include <numeric>
#include <optional>

namespace kestrine::viewer {

namespace {

struct HostOptions {
    std::vector<std::string> names;
    std::vector<std::string> suffixes;
    std::string by = "day";
    std::string from;
    std::string to;
};

constexpr size_t g_notRead = ~size_t{0};

// A file with what it holds of each name; nothing where it cannot be read.
struct Point {
    PeriodEntry period;
    uint64_t total = 0;
    size_t file = g_notRead; // its number in the search
    std::vector<Found> found;
};

class Host {
public:
    Host(Session& session, const HostOptions& options);
    int run();

private:
    [[nodiscard]] bool isWanted(const PeriodDir& dir) const;
    void readAccount(const StatTree& tree, const std::string& account);
    void readFile(UrlFile& file, Point& point);
    void collect(Point& point);
    void fail(const Failure& failure);
    void show() const;
    void showRows(const std::string& account, size_t name, uint64_t largest) const;
    void sayTotals() const;
    void sayHow() const;

    Session& m_session;
    const HostOptions& m_options;
    const bool m_domains;
    std::string m_from;
    std::string m_to;
    std::vector<std::string> m_names; // bytes, in the order of the command line
    std::vector<size_t> m_byKey;      // the names in the order of their keys
    std::optional<KeySearch> m_search;
    std::vector<std::string> m_accounts;
    std::vector<Point> m_points;
    uint64_t m_unknown = 0; // visits of hosts whose ending is not stored
    uint64_t m_unread = 0;  // files
    std::optional<Failure> m_failure;
};

std::string parseName(const std::string& text) {
    std::optional<std::string> bytes = bytesOfText(text);
    if (!bytes) {
        throw usage(text + ": a backslash begins \\\\ or \\xNN, as tables print them");
    }
    return *std::move(bytes);
}

Host::Host(Session& session, const HostOptions& options)
    : m_session(session), m_options(options), m_domains(!options.suffixes.empty()) {
    if (m_domains != options.names.empty()) {
        throw usage("host: name hosts, or a domain with --suffix");
    }
    m_from = options.from.empty() ? "" : parseDate("--from", options.from);
    m_to = options.to.empty() ? "" : parseDate("--to", options.to);
    if (!m_to.empty() && m_from > m_to) {
        throw usage("--from: " + options.from + " is after --to " + options.to);
    }
    for (const std::string& text : m_domains ? options.suffixes : options.names) {
        m_names.push_back(parseName(text));
        if (m_domains && m_names.back().starts_with('.')) {
            m_names.back().erase(0, 1);
        }
        if (m_domains && m_names.back().empty()) {
            throw usage("--suffix: " + text + " is no domain; write it as example.com");
        }
    }
    m_byKey.resize(m_names.size());
    std::iota(m_byKey.begin(), m_byKey.end(), size_t{0});
    const auto key = [this](size_t name) { return urlKey(asBytes(m_names[name])); };
    std::ranges::sort(m_byKey, {}, key);
    std::vector<uint64_t> keys;
    std::ranges::transform(m_byKey, std::back_inserter(keys), key);
    m_search.emplace(std::move(keys));
}

int Host::run() {
    const StatTree tree = m_session.tree();
    m_accounts = m_session.accounts(tree);
    for (const std::string& account : m_accounts) {
        readAccount(tree, account);
    }
    m_search->finish();
    for (Point& point : m_points) {
        collect(point);
    }
    if (m_points.empty()) {
        throw Failure(tree.root() + ": has no " + m_options.by +
                      " file there; \"urlstat periods\" lists what there is");
    }
    show();
    // The rows that there are help more than none.
    if (m_failure && m_unread > 1) {
        throw Failure(std::string(m_failure->what()) + "; and so with " +
                      std::to_string(m_unread - 1) + " other files");
    }
    if (m_failure) {
        throw *m_failure;
    }
    return 0;
}

// A week or month when one of its days is.
bool Host::isWanted(const PeriodDir& dir) const {
    return periodKindName(dir.period) == m_options.by && (m_from.empty() || dir.end >= m_from) &&
           (m_to.empty() || dir.begin <= m_to);
}

void Host::readAccount(const StatTree& tree, const std::string& account) {
    for (PeriodEntry& period : tree.periods(account)) {
        if (!isWanted(period.dir)) {
            continue;
        }
        Point point{std::move(period), 0, g_notRead, {}};
        try {
            const auto file = openPeriod(point.period.files, point.period.dir.period);
            if (!file) {
                continue;
            }
            point.total = file->statusTotal();
            readFile(*file, point);
        } catch (const Failure& failure) {
            fail(failure);
        }
        m_points.push_back(std::move(point));
    }
}

void Host::readFile(UrlFile& file, Point& point) {
    if (m_domains) {
        DomainSums sums = sumDomains(file, m_names);
        m_unknown += sums.unknown;
        point.found = std::move(sums.domains);
        return;
    }
    point.file = m_search->add(file);
}

// Once the search is through.
void Host::collect(Point& point) {
    if (m_domains || point.file == g_notRead) {
        return;
    }
    try {
        const std::vector<Found>& found = m_search->found(point.file);
        point.found.resize(found.size());
        for (size_t i = 0; i < found.size(); ++i) {
            point.found[m_byKey[i]] = found[i];
        }
    } catch (const Failure& failure) {
        fail(failure);
    }
}

// The first one is told in the end.
void Host::fail(const Failure& failure) {
    ++m_unread;
    m_failure = m_failure ? m_failure : failure;
}

void Host::show() const {
    std::vector<Column> columns = {{"account", Kind::Bytes}, {"begin", Kind::Text}};
    if (m_options.by != "day") {
        columns.push_back({"end", Kind::Text});
    }
    columns.push_back({m_domains ? "domain" : "host", Kind::Bytes});
    if (m_domains) {
        columns.push_back({"hosts", Kind::Count});
    }
    columns.push_back({"visits", Kind::Count});
    columns.push_back({"share", Kind::Share});
    columns.push_back({"bar", Kind::Bar});
    m_session.sink().begin(std::move(columns));
    uint64_t largest = 1;
    for (const Point& point : m_points) {
        for (const Found& found : point.found) {
            largest = std::max(largest, found.visits);
        }
    }
    for (const std::string& account : m_accounts) {
        for (size_t name = 0; name < m_names.size(); ++name) {
            showRows(account, name, largest);
        }
    }
    sayTotals();
    sayHow();
    m_session.sink().end();
}

void Host::showRows(const std::string& account, size_t name, uint64_t largest) const {
    for (const Point& point : m_points) {
        if (point.period.account != account) {
            continue;
        }
        const std::string begin = dateName(point.period.dir.begin);
        const std::string end = dateName(point.period.dir.end);
        std::vector<Value> row = {Bytes{account}, std::string_view(begin)};
        if (m_options.by != "day") {
            row.emplace_back(std::string_view(end));
        }
        row.emplace_back(Bytes{m_names[name]});
        const bool known = !point.found.empty();
        const Found found = known ? point.found[name] : Found{};
        const auto visits = static_cast<double>(found.visits);
        if (m_domains) {
            row.push_back(known ? Value(found.hosts) : Value());
        }
        row.push_back(known ? Value(found.visits) : Value());
        row.push_back(known && point.total > 0 ? Value(visits / static_cast<double>(point.total))
                                               : Value());
        row.emplace_back(visits / static_cast<double>(largest));
        m_session.sink().row(row);
    }
}

void Host::sayTotals() const {
    for (size_t name = 0; name < m_names.size(); ++name) {
        uint64_t visits = 0;
        uint64_t periods = 0;
        for (const Point& point : m_points) {
            const Found found = point.found.empty() ? Found{} : point.found[name];
            visits += found.visits;
            periods += found.visits > 0 ? 1 : 0;
        }
        RowSink& sink = m_session.sink();
        sink.note(asciiText(m_names[name]) + ": " + std::to_string(visits) + " visits in " +
                  std::to_string(periods) + " of " + std::to_string(m_points.size()) + " " +
                  m_options.by + " files");
        // What is copied from a table is all that is stored of a longer one.
        if (!m_domains && visits == 0 && m_names[name].size() == g_maxHostText) {
            sink.note("a host of more than " + std::to_string(g_maxHostText) +
                      " bytes is found by its whole name only");
        }
    }
}

void Host::sayHow() const {
    RowSink& sink = m_session.sink();
    if (m_unknown > 0) {
        sink.note("not known of " + std::to_string(m_unknown) + " visits: of hosts longer than " +
                  std::to_string(g_maxHostText) + " bytes the ending is not stored");
    }
    if (m_session.verbose() && !m_domains) {
        sink.note("decoded " + std::to_string(m_search->decoded()) + " of " +
                  std::to_string(m_search->blocks()) + " blocks whose headers were read");
    }
}

} // namespace

void addHost(Session& session) {
    const auto options = std::make_shared<HostOptions>();
    session
        .addCommand("host", "Visits of hosts, or of domains, per day, week or month",
                    "host example.com www.example.com --by week --account alice\n"
                    "  urlstat host --suffix example.com --from 2024-03-01 --to 2024-03-31",
                    [&session, options] { return Host(session, *options).run(); })
        .texts("NAME", options->names,
               "Hosts, as tables print them: \\xNN is a byte, \\\\ a backslash")
        .texts("--suffix", options->suffixes,
               "A domain with all below it, in these letter cases; may be given again")
        .choice("--by", options->by, {"day", "week", "month"}, "Rows per day, week or month")
        .text("--from", options->from, "Periods from that of this date")
        .text("--to", options->to, "... to that of this one");
}

} // namespace kestrine::viewer
