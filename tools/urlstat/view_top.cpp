// The busiest hosts: of a file, of a period or of several. A period's own lists answer where they
// are there and long enough; everything else is read through.
#include "checked_file.h"
#include "failure.h"
#include "merged_files.h"
#include "selection.h"
#include "stat_file.h"
#include "top_queue.h"
#include "topn/top_url_record.h"
#include "tree/names.h"

#include <limits>
#include <optional>

namespace kestrine::viewer {

namespace {

struct TopOptions {
    std::string file;
    PeriodOptions period;
    std::optional<uint32_t> type;
    uint32_t number = 10;
};

struct Answer {
    std::vector<UrlRecordPtr> records;
    uint64_t visits = 0; // of everything that was chosen
    std::string source;
};

class Top {
public:
    Top(Session& session, const TopOptions& options) : m_session(session), m_options(options) {}
    int run();

private:
    [[nodiscard]] bool isWanted(const UrlRecordView& record) const {
        return !m_options.type || record.type == *m_options.type;
    }
    [[nodiscard]] int ofFile();
    [[nodiscard]] bool ofList(const PeriodEntry& period, Answer& answer) const;
    void ofPeriods(const std::vector<PeriodEntry>& periods, Answer& answer) const;
    void show(const Answer& answer, const std::string& name) const;

    Session& m_session;
    const TopOptions& m_options;
};

int Top::run() {
    if (!m_options.file.empty()) {
        return ofFile();
    }
    const Selection selection = select(m_session, m_options.period);
    Answer answer;
    if (selection.periods.size() > 1 || !ofList(selection.periods.front(), answer)) {
        ofPeriods(selection.periods, answer);
    }
    for (const std::string& missing : selection.missing) {
        m_session.sink().note("nothing of " + missing);
    }
    show(answer, selection.name);
    return 0;
}

int Top::ofFile() {
    CheckedFile file;
    if (file.open(m_options.file, kindOf(m_options.file)) != 0) {
        throw Failure(m_options.file + ": cannot be opened");
    }
    TopQueue queue(m_options.number);
    file.readAll([](uint64_t, const BlockHeader&) {},
                 [&](const UrlRecordView& record) {
                     if (isWanted(record)) {
                         queue.push(record);
                     }
                 });
    show({queue.take(), file.visits(), "all its records"}, m_options.file);
    return file.verdict();
}

// False when the lists cannot tell: none there, too short, or not of this file any more.
bool Top::ofList(const PeriodEntry& period, Answer& answer) const {
    if (m_options.number > TopUrlRecord::g_listLength) {
        return false;
    }
    const std::string path = m_options.type ? names::topFile(period.files.lists, *m_options.type)
                                            : names::topAllFile(period.files.lists);
    // The lists go before the file is replaced: with the list open first, the file is at least as
    // new, and a list that is still there then is the file's.
    if (!platform().exists(path)) {
        return false;
    }
    const std::unique_ptr<UrlFile> list = openStatFile(path, g_dayStatusType);
    const std::unique_ptr<UrlFile> file = openPeriod(period.files, period.dir.period);
    if (!list || !file || !platform().exists(path)) {
        return false;
    }
    answer.visits = file->statusTotal();
    UrlRecordView record;
    int result = 0;
    while (answer.records.size() < m_options.number &&
           (result = list->readOneRecord(record)) == 0) {
        answer.records.push_back(makeUrlRecord(record));
    }
    if (result < 0) {
        throw readFailure(*list);
    }
    answer.source = path;
    return true;
}

void Top::ofPeriods(const std::vector<PeriodEntry>& periods, Answer& answer) const {
    MergedFiles files(periods);
    TopQueue queue(m_options.number);
    UrlRecordView record;
    while (files.next(record)) {
        if (isWanted(record)) {
            queue.push(record);
        }
    }
    answer.records = queue.take();
    answer.visits = files.total();
    answer.source = std::to_string(files.files()) + " files, read through";
}

void Top::show(const Answer& answer, const std::string& name) const {
    RowSink& sink = m_session.sink();
    sink.begin({{"rank", Kind::Count},
                {"visits", Kind::Count},
                {"share", Kind::Share},
                {"cumulative", Kind::Share},
                {"type", Kind::Count},
                {"host", Kind::Bytes}});
    const auto whole = static_cast<double>(answer.visits);
    uint64_t rank = 0;
    uint64_t sum = 0;
    for (const UrlRecordPtr& record : answer.records) {
        sum += record->count;
        sink.add({++rank, record->count, static_cast<double>(record->count) / whole,
                  static_cast<double>(sum) / whole, uint64_t{record->type}, Bytes{record->url()}});
    }
    sink.note("shares are of the " + std::to_string(answer.visits) + " visits of " + name);
    if (m_session.verbose()) {
        sink.note("from " + answer.source);
    }
    sink.end();
}

} // namespace

void addTop(Session& session) {
    const auto options = std::make_shared<TopOptions>();
    Command command =
        session.addCommand("top", "The busiest hosts of a file or of periods",
                           "top --month 2024-03 --account alice -n 20",
                           [&session, options] { return Top(session, *options).run(); });
    command.text("FILE", options->file, "Statistics file or top list");
    addPeriodOptions(command, options->period);
    command.number("--type", options->type, "Only hosts of this record type")
        .number("-n", options->number, "Hosts to show", 1);
}

} // namespace kestrine::viewer
