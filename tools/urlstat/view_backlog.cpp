// What the service has not counted or merged yet.
#include "backlog.h"
#include "failure.h"

#include <algorithm>
#include <cstdio>

namespace kestrine::viewer {

namespace {

std::string summary(const Backlog& backlog) {
    BacklogRow sum;
    for (const BacklogRow& row : backlog.rows) {
        sum.waitingFiles += row.waitingFiles;
        sum.waitingBytes += row.waitingBytes;
        sum.newDayFiles += row.newDayFiles;
        sum.settlingFiles += row.settlingFiles;
        sum.oldestSeconds = std::max(sum.oldestSeconds, row.oldestSeconds);
    }
    std::string text = backlog.service == LockResult::HeldByAnother ? "service running"
                       : backlog.service == LockResult::Locked      ? "service not running"
                                                                    : "service not known to run";
    text += "; " + std::to_string(sum.waitingFiles) + " log files (" +
            std::to_string(sum.waitingBytes) + " bytes) wait";
    if (sum.oldestSeconds) {
        text += ", oldest " + std::to_string(*sum.oldestSeconds) + " s";
    }
    text += "; " + std::to_string(sum.newDayFiles) + " new-day files wait";
    if (sum.settlingFiles > 0) {
        text += "; " + std::to_string(sum.settlingFiles) + " log files settle";
    }
    return text;
}

void showRow(RowSink& sink, const BacklogRow& row) {
    const std::string date = dateName(row.date);
    if (row.device.empty()) {
        sink.add(
            {Bytes{row.account}, {}, std::string_view(date), {}, {}, {}, {}, row.newDayFiles, {}});
        return;
    }
    Value counted;
    Value files;
    Value bytes;
    Value settling;
    if (row.countedUpTo) {
        counted = int64_t{*row.countedUpTo};
        files = row.waitingFiles;
        bytes = row.waitingBytes;
        settling = row.settlingFiles;
    }
    const Value oldest = row.oldestSeconds ? Value(*row.oldestSeconds) : Value();
    sink.add({Bytes{row.account},
              Bytes{row.device},
              std::string_view(date),
              counted,
              files,
              bytes,
              oldest,
              {},
              settling});
}

void showRows(RowSink& sink, const Backlog& backlog, bool all) {
    sink.begin({{"account", Kind::Bytes},
                {"device", Kind::Bytes},
                {"date", Kind::Text},
                {"counted_up_to", Kind::Signed},
                {"waiting_files", Kind::Count},
                {"waiting_bytes", Kind::Count},
                {"oldest_seconds", Kind::Signed},
                {"new_day_files", Kind::Count},
                {"settling_files", Kind::Count}});
    for (const BacklogRow& row : backlog.rows) {
        const bool unknown = !row.device.empty() && !row.countedUpTo;
        if (all || row.waits() || unknown) {
            showRow(sink, row);
        }
    }
    sink.note(summary(backlog));
    sink.end();
}

int showBacklog(Session& session, bool all) {
    const bool metrics = session.format() == "prometheus";
    // Before the reading: a format that nobody knows is the first thing to say.
    RowSink* const sink = metrics ? nullptr : &session.sink();
    const Backlog backlog = readBacklog(session, all);
    if (metrics) {
        session.output().write(prometheusText(backlog));
    } else {
        showRows(*sink, backlog, all);
    }
    session.output().flush();
    for (const std::string& problem : backlog.problems) {
        std::fprintf(stderr, "urlstat: %s\n", problem.c_str());
    }
    return backlog.problems.empty() ? 0 : g_dataWrong;
}

} // namespace

void addBacklog(Session& session) {
    const auto all = std::make_shared<bool>(false);
    session
        .addCommand("backlog", "What of the log data is not counted or merged yet",
                    "backlog --config /opt/logging/ml/config/urlstat.ini\n"
                    "  urlstat backlog --format prometheus > /var/lib/node_exporter/kestrine.tmp",
                    [&session, all] { return showBacklog(session, *all); })
        .flag("--all", *all, "Rows where nothing waits, too");
}

} // namespace kestrine::viewer
