// The report of a month as a page to be read in a browser, or one for each month of the tree.
#include "failure.h"
#include "period_argument.h"
#include "platform/platform.h"
#include "report_data.h"
#include "report_page.h"
#include "session.h"
#include "tree/directories.h"
#include "tree/names.h"

#include "frame/bytes.h"

#include <algorithm>
#include <cstdio>

namespace kestrine::viewer {

namespace {

constexpr const char* g_overviewName = "index.html";

struct ReportOptions {
    std::string month;
    std::string output;
    std::string index;
};

// A page is there as a whole or not at all: under another name until then.
void writePage(const std::string& path, const std::string& text) {
    const std::string temp = names::tempOf(path);
    const std::unique_ptr<File> file = platform().open(temp, OpenMode::Truncate);
    const ByteView bytes = asBytes(text);
    const bool written = file && file->write(bytes) == static_cast<int64_t>(bytes.size());
    const bool closed = file && file->close() == 0;
    if (!written || !closed || platform().rename(temp, path) != 0) {
        if (file) {
            (void)platform().removeFile(temp);
        }
        throw Failure(path + ": cannot be written; check that its directory is there, with room");
    }
}

// The page has room for what it means, not for paths.
int tell(const MonthReport& report) {
    for (const ReportFault& fault : report.faults) {
        std::fprintf(stderr, "urlstat: %s\n", fault.text.c_str());
    }
    return report.faults.empty() ? 0 : g_dataWrong;
}

int writeOne(Session& session, const ReportOptions& options) {
    if (options.month.empty()) {
        throw usage("choose a month with --month, or --index DIR for all of them");
    }
    const PeriodDir month = parsePeriod(Period::Month, "--month", options.month);
    const StatTree tree = session.tree();
    const std::vector<std::string> accounts = session.accounts(tree);
    if (accounts.size() != 1) {
        throw usage("a report is of one account; --index DIR writes one for each");
    }
    const MonthReport report = collectMonth(tree, accounts.front(), month);
    const std::string page = monthPage(report, "");
    if (options.output.empty()) {
        session.output().write(page);
    } else {
        writePage(options.output, page);
    }
    return tell(report);
}

class Index {
public:
    Index(Session& session, const ReportOptions& options)
        : m_session(session), m_options(options), m_tree(session.tree()) {}
    int run();

private:
    void write(const std::string& account, const PeriodDir& month);
    [[nodiscard]] std::optional<MonthReport> collect(const std::string& account,
                                                     const PeriodDir& month);
    void show(const OverviewRow& row);

    Session& m_session;
    const ReportOptions& m_options;
    const StatTree m_tree;
    std::vector<OverviewRow> m_rows;
    int m_result = 0;
};

int Index::run() {
    if (Util::createDir(m_options.index + "/", Durable::No) != 0) {
        throw Failure(m_options.index + ": cannot be made; check the permissions");
    }
    m_session.sink().begin({{"account", Kind::Bytes},
                            {"month", Kind::Text},
                            {"visits", Kind::Count},
                            {"hosts", Kind::Count},
                            {"page", Kind::Text}});
    PeriodDir chosen;
    if (!m_options.month.empty()) {
        chosen = parsePeriod(Period::Month, "--month", m_options.month);
    }
    for (const std::string& account : m_session.accounts(m_tree, true)) {
        std::vector<PeriodDir> months = monthsOf(m_tree, account);
        std::reverse(months.begin(), months.end()); // the newest is what is asked for most
        for (const PeriodDir& month : months) {
            if (m_options.month.empty() || month.begin == chosen.begin) {
                write(account, month);
            }
        }
    }
    // Last, so that what it links to is there.
    writePage(names::join(m_options.index, g_overviewName), overviewPage(m_rows));
    m_session.sink().end();
    return m_result;
}

void Index::write(const std::string& account, const PeriodDir& month) {
    OverviewRow row{account, month, "", {}, {}};
    if (std::optional<MonthReport> report = collect(account, month)) {
        row.page = pageName(account, month);
        writePage(names::join(m_options.index, row.page), monthPage(*report, g_overviewName));
        m_result = std::max(m_result, tell(*report));
        row.total = report->total;
        row.days = std::move(report->days);
    }
    show(row);
    m_rows.push_back(std::move(row));
}

// One month that cannot be read does not keep the others from their pages.
std::optional<MonthReport> Index::collect(const std::string& account, const PeriodDir& month) {
    try {
        return collectMonth(m_tree, account, month);
    } catch (const Failure& failure) {
        std::fprintf(stderr, "urlstat: %s\n", failure.what());
        m_result = g_dataWrong;
        return std::nullopt;
    }
}

void Index::show(const OverviewRow& row) {
    const std::string month = dateName(row.month.begin).substr(0, 7);
    const bool known = !row.page.empty();
    m_session.sink().add({Bytes{row.account}, std::string_view(month),
                          known ? Value(row.total.visits) : Value(),
                          known ? Value(row.total.hosts) : Value(), std::string_view(row.page)});
}

} // namespace

void addReport(Session& session) {
    const auto options = std::make_shared<ReportOptions>();
    session
        .addCommand("report", "The report of a month as a page for browsers, or of every month",
                    "report --account alice --month 2024-03 -o report.html\n"
                    "  urlstat report --index reports",
                    [&session, options] {
                        return options->index.empty() ? writeOne(session, *options)
                                                      : Index(session, *options).run();
                    })
        .text("--month", options->month, "A month (2024-03), or that of a date")
        .text("-o", options->output, "File of the page; else the standard output")
        .text("--index", options->index,
              "Directory for a page of each account and month, and an overview of them")
        .either("--index", "-o");
}

} // namespace kestrine::viewer
