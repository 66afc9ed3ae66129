#include "commands.h"

#include <cinttypes>
#include <cstdio>

namespace kestrine::viewer {

namespace {

void printDay(const DayStatus& status) {
    std::printf("new counter  %" PRId32 "\n", status.newCounter());
    std::printf("total count  %" PRIu64 "\n", status.totalCount());
    std::printf("entries      %zu\n", status.entries().size());
    std::printf("%11s %12s  node\n", "last file", "read up to");
    for (const NodeEntry& entry : status.entries()) {
        std::printf("%11" PRId32 " %12" PRIu64 "  %s\n", entry.fileNumber, entry.offset,
                    printable(entry.path).c_str());
    }
}

void printWeekMonth(const WeekMonStatus& status) {
    std::printf("total count  %" PRIu64 "\n", status.totalCount());
    std::printf("entries      %zu\n", status.entries().size());
    std::printf("%11s  new-day files of\n", "counter");
    for (const DateEntry& entry : status.entries()) {
        std::printf("%11" PRId32 "  %s\n", entry.counter, printable(entry.path).c_str());
    }
}

const char* nameOf(FileKind kind) {
    switch (kind) {
    case FileKind::TopList:
        return "top list";
    case FileKind::WeekMonth:
        return "week or month file";
    case FileKind::Day:
        break;
    }
    return "day, new-day or temporary file";
}

} // namespace

void printStatus(CheckedFile& file) {
    std::printf("kind         %s\n", nameOf(file.kind()));
    file.readAll([](uint64_t, const BlockHeader&) {}, [](const UrlRecordView&) {});
    std::printf("blocks       %" PRIu64 "\n", file.blocks());
    std::printf("records      %" PRIu64 "\n", file.records());
    std::printf("visits       %" PRIu64 "\n", file.visits());
    if (const DayStatus* const day = file.dayStatus()) {
        printDay(*day);
    } else if (const WeekMonStatus* const weekMonth = file.weekMonStatus()) {
        printWeekMonth(*weekMonth);
    } else {
        std::printf("no status\n");
    }
}

} // namespace kestrine::viewer
