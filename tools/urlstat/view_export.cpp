// Every record of a file, or of periods read as one, in the order of their keys.
#include "checked_file.h"
#include "failure.h"
#include "merged_files.h"
#include "selection.h"

#include <cinttypes>
#include <cstdio>

namespace kestrine::viewer {

namespace {

struct ExportOptions {
    std::string file;
    PeriodOptions period;
    bool blocks = false;
};

void begin(RowSink& sink) {
    sink.begin({{"key", Kind::Key},
                {"visits", Kind::Count},
                {"type", Kind::Count},
                {"host", Kind::Bytes}});
}

void add(RowSink& sink, const UrlRecordView& record) {
    sink.add({record.key, record.count, uint64_t{record.type}, Bytes{record.url}});
}

void showBlock(RowSink& sink, uint64_t number, const BlockHeader& header) {
    sink.add({number, static_cast<uint64_t>(header.count), static_cast<uint64_t>(header.totalCount),
              header.minKey, header.maxKey, static_cast<uint64_t>(header.blockSize),
              static_cast<uint64_t>(header.rawSize)});
}

int exportFile(Session& session, const ExportOptions& options) {
    CheckedFile file;
    if (file.open(options.file, kindOf(options.file)) != 0) {
        throw Failure(options.file + ": cannot be opened");
    }
    RowSink& sink = session.sink();
    if (options.blocks) {
        sink.begin({{"block", Kind::Count},
                    {"hosts", Kind::Count},
                    {"visits", Kind::Count},
                    {"first_key", Kind::Key},
                    {"last_key", Kind::Key},
                    {"bytes", Kind::Count},
                    {"raw_bytes", Kind::Count}});
    } else {
        begin(sink);
    }
    file.readAll(
        [&](uint64_t number, const BlockHeader& header) {
            if (options.blocks) {
                showBlock(sink, number, header);
            }
        },
        [&](const UrlRecordView& record) {
            if (!options.blocks) {
                add(sink, record);
            }
        });
    sink.end();
    return file.verdict();
}

int exportRecords(Session& session, const ExportOptions& options) {
    if (!options.file.empty()) {
        return exportFile(session, options);
    }
    if (options.blocks) {
        throw usage("--blocks needs a FILE");
    }
    const Selection selection = select(session, options.period);
    MergedFiles files(selection.periods);
    RowSink& sink = session.sink();
    begin(sink);
    UrlRecordView record;
    while (files.next(record)) {
        add(sink, record);
    }
    sink.end();
    return 0;
}

} // namespace

void addExport(Session& session) {
    const auto options = std::make_shared<ExportOptions>();
    Command command =
        session.addCommand("export", "Every record of a file or of periods",
                           "export --month 2024-03 --account alice --format csv",
                           [&session, options] { return exportRecords(session, *options); });
    command.text("FILE", options->file, "Statistics file or top list");
    addPeriodOptions(command, options->period);
    command.flag("--blocks", options->blocks, "The headers of the file's blocks instead");
}

} // namespace kestrine::viewer
