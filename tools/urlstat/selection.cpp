#include "selection.h"

#include "failure.h"
#include "period_argument.h"
#include "platform/platform.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine::viewer {

namespace {

void addPeriod(Selection& selection, const StatTree& tree, const std::string& account,
               const PeriodDir& dir) {
    const std::string directory = periodPath(tree.accountDir(account), dir);
    if (platform().exists(directory)) {
        selection.periods.push_back({account, dir, periodFiles(directory, dir.period)});
    } else {
        selection.missing.push_back(account + " " + periodName(dir));
    }
}

Selection found(Session& session, Selection selection) {
    if (selection.periods.empty()) {
        throw Failure(session.place().root + ": has nothing of " + selection.name +
                      "; \"urlstat periods\" lists what there is");
    }
    return selection;
}

Selection selectRange(Session& session, const PeriodOptions& options) {
    if (options.from.empty() || options.to.empty()) {
        throw usage("--from and --to belong together");
    }
    const std::string from = parseDate("--from", options.from);
    const std::string to = parseDate("--to", options.to);
    if (from > to) {
        throw usage("--from: " + options.from + " is after --to " + options.to);
    }
    const StatTree tree = session.tree();
    Selection selection{dateName(from) + ".." + dateName(to), {}, {}};
    for (const std::string& account : session.accounts(tree)) {
        for (PeriodEntry& entry : tree.periods(account)) {
            if (entry.dir.period == Period::Day && entry.dir.begin >= from &&
                entry.dir.begin <= to) {
                selection.periods.push_back(std::move(entry));
            }
        }
    }
    return found(session, std::move(selection));
}

} // namespace

void addPeriodOptions(Command command, PeriodOptions& options) {
    command.text("--day", options.day, "A date");
    command.text("--week", options.week, "The week of a date");
    command.text("--month", options.month, "A month (2024-03), or that of a date");
    command.text("--from", options.from, "The days from this date");
    command.text("--to", options.to, "... to this one");
}

Selection select(Session& session, const PeriodOptions& options) {
    const bool range = !options.from.empty() || !options.to.empty();
    if (!options.day.empty() + !options.week.empty() + !options.month.empty() + range != 1) {
        throw usage("choose one of --day, --week, --month, or --from with --to");
    }
    if (range) {
        return selectRange(session, options);
    }
    return select(session, !options.day.empty() ? parsePeriod(Period::Day, "--day", options.day)
                           : !options.week.empty()
                               ? parsePeriod(Period::Week, "--week", options.week)
                               : parsePeriod(Period::Month, "--month", options.month));
}

Selection select(Session& session, const PeriodDir& dir) {
    const StatTree tree = session.tree();
    Selection selection{periodName(dir), {}, {}};
    for (const std::string& account : session.accounts(tree)) {
        addPeriod(selection, tree, account, dir);
    }
    return found(session, std::move(selection));
}

} // namespace kestrine::viewer
