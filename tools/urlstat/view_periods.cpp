// What there is: a row per day, week and month of the accounts.
#include "failure.h"
#include "session.h"
#include "stat_file.h"
#include "tree/listing.h"
#include "tree/names.h"

namespace kestrine::viewer {

namespace {

size_t waitingFiles(const StatTree& tree, const PeriodEntry& period) {
    std::vector<std::string> files;
    const std::string directory =
        names::newDayDir(tree.accountDir(period.account), period.dir.begin);
    if (period.dir.period == Period::Day && Util::getDaycrcsortNews(directory, files) != 0) {
        throw Failure(directory + ": cannot be listed; check the permissions");
    }
    return files.size();
}

// What a row says besides names.
struct PeriodFigures {
    Value visits;
    Value hosts;
    Value bytes;
    std::string state;
};

PeriodFigures figuresOf(const StatTree& tree, const PeriodEntry& period) {
    PeriodFigures figures;
    const auto say = [&figures](const std::string& text) {
        figures.state += (figures.state.empty() ? "" : ", ") + text;
    };
    try {
        const std::unique_ptr<UrlFile> file = openPeriod(period.files, period.dir.period);
        FileInfo info;
        if (!file) {
            say("no file yet");
        } else {
            figures.visits = file->statusTotal();
            figures.hosts = sumHeaders(*file).records;
        }
        if (file && platform().info(period.files.formal, info) == 0) {
            figures.bytes = static_cast<uint64_t>(info.size);
        }
        if (file && !platform().exists(names::topAllFile(period.files.lists))) {
            say("no lists");
        }
    } catch (const Failure&) {
        say("damaged or unreadable");
    }
    if (const size_t waiting = waitingFiles(tree, period); waiting > 0) {
        say("new-day files: " + std::to_string(waiting));
    }
    if (figures.state.empty()) {
        say("good");
    }
    return figures;
}

int showPeriods(Session& session) {
    const StatTree tree = session.tree();
    RowSink& sink = session.sink();
    sink.begin({{"account", Kind::Bytes},
                {"kind", Kind::Text},
                {"begin", Kind::Text},
                {"end", Kind::Text},
                {"visits", Kind::Count},
                {"hosts", Kind::Count},
                {"bytes", Kind::Count},
                {"state", Kind::Text}});
    int result = 0;
    for (const std::string& account : session.accounts(tree)) {
        for (const PeriodEntry& period : tree.periods(account)) {
            const PeriodFigures figures = figuresOf(tree, period);
            const std::string begin = dateName(period.dir.begin);
            const std::string end = dateName(period.dir.end);
            sink.add({Bytes{account}, std::string_view(periodKindName(period.dir.period)),
                      std::string_view(begin), std::string_view(end), figures.visits, figures.hosts,
                      figures.bytes, std::string_view(figures.state)});
            if (figures.state.starts_with("damaged")) {
                result = g_dataWrong;
            }
        }
    }
    sink.end();
    return result;
}

} // namespace

void addPeriods(Session& session) {
    session.addCommand("periods", "Accounts and their days, weeks and months",
                       "periods --all-accounts", [&session] { return showPeriods(session); });
}

} // namespace kestrine::viewer
