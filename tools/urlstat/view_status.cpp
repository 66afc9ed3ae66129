// What one file says of itself: how far each node, or each date, is in it.
#include "checked_file.h"
#include "failure.h"
#include "session.h"

namespace kestrine::viewer {

namespace {

void showDay(RowSink& sink, const DayStatus& status) {
    sink.begin({{"last_file", Kind::Signed}, {"read_up_to", Kind::Count}, {"node", Kind::Bytes}});
    for (const NodeEntry& entry : status.entries()) {
        sink.add({int64_t{entry.fileNumber}, entry.offset, Bytes{entry.path}});
    }
    sink.note("new-day files up to number " + std::to_string(status.newCounter()));
}

void showWeekMonth(RowSink& sink, const WeekMonStatus& status) {
    sink.begin({{"last_new_day_file", Kind::Signed}, {"of", Kind::Bytes}});
    for (const DateEntry& entry : status.entries()) {
        sink.add({int64_t{entry.counter}, Bytes{entry.path}});
    }
}

int showStatus(Session& session, const std::string& path) {
    CheckedFile file;
    if (file.open(path, kindOf(path)) != 0) {
        throw Failure(path + ": cannot be opened");
    }
    file.readAll([](uint64_t, const BlockHeader&) {}, [](const UrlRecordView&) {});
    RowSink& sink = session.sink();
    if (const DayStatus* const day = file.dayStatus()) {
        showDay(sink, *day);
    } else if (const WeekMonStatus* const weekMonth = file.weekMonStatus()) {
        showWeekMonth(sink, *weekMonth);
    } else {
        sink.begin({{"last_file", Kind::Signed}});
    }
    sink.note("blocks " + std::to_string(file.blocks()) + ", hosts " +
              std::to_string(file.records()) + ", visits " + std::to_string(file.visits()));
    sink.end();
    return file.verdict();
}

} // namespace

void addStatus(Session& session) {
    const auto file = std::make_shared<std::string>();
    session
        .addCommand("status", "How far the logs are counted in a file",
                    "status 20240305/daycrcsort",
                    [&session, file] { return showStatus(session, *file); })
        .requiredText("FILE", *file, "Statistics file or top list");
}

} // namespace kestrine::viewer
