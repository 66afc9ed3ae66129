// Every file completely: what its bytes say, whether its lists are those of its records, and
// whether weeks and months agree with their days. Each fault is told with what the service makes of
// it.
#include "failure.h"
#include "period_sums.h"
#include "progress.h"
#include "session.h"
#include "stat_file.h"
#include "storage/ownership.h"
#include "top_lists.h"
#include "tree/names.h"
#include "verify_targets.h"

namespace kestrine::viewer {

namespace {

constexpr uint64_t g_faultsTold = 5;          // of one file
constexpr int g_looksAtFile = 5;              // at a file that is replaced while it is read
constexpr uint32_t g_pauseBetweenLooks = 100; // ms between two looks

std::string meaningOfDamage(const VerifyTarget& target) {
    if (target.kind == FileKind::TopList) {
        return "made again when the file changes or a start finds it; to be sure, remove topn "
               "before a start";
    }
    if (names::newDayNumber(target.path) >= 0) {
        return "set aside at the next start; its logs are read again where they are still there";
    }
    if (!names::isOfFormalFile(names::lastComponent(target.path)) ||
        names::formalOf(target.path) != target.path) {
        return "none of the files that count; a backup is read only when its file is given up";
    }
    const std::string found = "set aside when a start or a merge finds it, and ";
    if (platform().exists(names::backupOf(target.path))) {
        return found + "restored from its backup; what that lacks is merged again, or read again "
                       "from the logs, where these are there";
    }
    return target.kind == FileKind::Day
               ? found + "without a backup counted again from the logs that are still there"
               : found + "without a backup counted anew from the day files";
}

constexpr const char* g_meaningOfCall =
    "nothing is known of its bytes, the service tries again; check the disk and the permissions";

// What a file was at the moment at which it was opened: every replacement changes it.
std::string stampOf(CheckedFile& file) {
    std::string stamp;
    const auto add = [&stamp](const auto number) { stamp += std::to_string(number) + " "; };
    if (const DayStatus* const day = file.dayStatus()) {
        add(day->totalCount());
        add(day->newCounter());
        for (const NodeEntry& entry : day->entries()) {
            add(entry.fileNumber);
        }
    } else if (const WeekMonStatus* const weekMonth = file.weekMonStatus()) {
        add(weekMonth->totalCount());
        for (const DateEntry& entry : weekMonth->entries()) {
            stamp += entry.path + " ";
            add(entry.counter);
        }
    }
    return stamp;
}

bool belongs(CheckedFile& file, const FilePlace& place) {
    if (const DayStatus* const day = file.dayStatus()) {
        return belongsToDay(*day, place.account, place.dir.begin);
    }
    const WeekMonStatus* const weekMonth = file.weekMonStatus();
    // A status that cannot be read is told of as such.
    return weekMonth == nullptr ||
           belongsToPeriod(*weekMonth, place.account, place.dir.begin, place.dir.end);
}

class Verify {
public:
    Verify(Session& session, std::vector<VerifyTarget> targets, std::string prefix)
        : m_session(session), m_targets(std::move(targets)), m_prefix(std::move(prefix)),
          m_progress(sumOf(m_targets)) {}

    int run();

private:
    struct Reading {
        bool isThere = false;
        bool isGood = false;
        std::string stamp;
        uint64_t hosts = 0;
    };
    using OnRecord = CheckedFile::OnRecord;

    [[nodiscard]] static uint64_t sumOf(const std::vector<VerifyTarget>& targets);
    [[nodiscard]] Reading read(const VerifyTarget& target, const OnRecord& onRecord);
    [[nodiscard]] bool isReplaced(const VerifyTarget& target, const std::string& stamp) const;
    void checkTarget(const VerifyTarget& target);
    void count(const Reading& reading);
    void recountLists(const VerifyTarget& target);
    void checkMissing(const PeriodEntry& period);
    void tell(const std::string& path, const std::string& text, const std::string& meaning);

    Session& m_session;
    std::vector<VerifyTarget> m_targets;
    std::string m_prefix; // left out where a path begins with it
    Progress m_progress;
    uint64_t m_files = 0;
    uint64_t m_hosts = 0;
    uint64_t m_withoutLists = 0;
    uint64_t m_faults = 0;
};

uint64_t Verify::sumOf(const std::vector<VerifyTarget>& targets) {
    uint64_t sum = 0;
    for (const VerifyTarget& target : targets) {
        sum += target.bytes;
    }
    return sum;
}

int Verify::run() {
    RowSink& sink = m_session.sink();
    sink.begin({{"file", Kind::Bytes}, {"fault", Kind::Text}, {"meaning", Kind::Text}});
    uint64_t done = 0;
    for (const VerifyTarget& target : m_targets) {
        checkTarget(target);
        m_progress.reach(done += target.bytes);
    }
    m_progress.erase();
    const std::string sum =
        std::to_string(m_files) + " files, " + std::to_string(m_hosts) + " hosts, ";
    sink.note(sum + (m_faults == 0 ? "nothing is wrong" : "faults: " + std::to_string(m_faults)));
    if (m_withoutLists > 0) {
        sink.note("without top lists: " + std::to_string(m_withoutLists) +
                  " files; the service makes them, at the latest at its next start");
    }
    sink.end();
    return m_faults == 0 ? 0 : g_dataWrong;
}

void Verify::checkTarget(const VerifyTarget& target) {
    if (!target.period) {
        count(read(target, [](const UrlRecordView&) {}));
        return;
    }
    // Lists go before their file is replaced: it is at least as new as they are.
    ListsInPlace lists(target.period->files.lists);
    const Reading reading =
        read(target, [&lists](const UrlRecordView& record) { lists.check(record); });
    count(reading);
    if (!reading.isThere) {
        checkMissing(*target.period);
        return;
    }
    // What a damaged file says of others is worth nothing.
    if (!reading.isGood) {
        return;
    }
    if (!lists.fit()) {
        recountLists(target);
    }
    m_withoutLists += platform().exists(target.period->files.lists) ? 0U : 1U;
    if (target.period->dir.period != Period::Day) {
        const std::string accountDir(names::parentOf(target.period->files.directory));
        for (const SumFault& fault : comparePeriod(accountDir, *target.period)) {
            tell(target.path, fault.text, fault.meaning);
        }
    }
}

void Verify::count(const Reading& reading) {
    m_files += reading.isThere ? 1U : 0U;
    m_hosts += reading.hosts;
}

Verify::Reading Verify::read(const VerifyTarget& target, const OnRecord& onRecord) {
    Reading reading;
    std::vector<std::string> faults;
    uint64_t more = 0;
    CheckedFile file([&](const std::string& text) {
        faults.size() < g_faultsTold ? faults.push_back(text) : void(++more);
    });
    for (int looks = 1; file.open(target.path, target.kind) != 0; ++looks) {
        // Waiting files go for good once they are merged.
        if (target.period ? !isThere(target.path) : !platform().exists(target.path)) {
            return reading;
        }
        if (looks == g_looksAtFile) {
            tell(target.path, "cannot be opened", g_meaningOfCall);
            return reading;
        }
    }
    reading.isThere = true;
    reading.stamp = stampOf(file);
    if (target.place && !belongs(file, *target.place)) {
        faults.emplace_back("is of another account or date");
    }
    file.readAll(
        [this](uint64_t, const BlockHeader& header) {
            m_progress.advance(BlockHeader::g_size + static_cast<uint64_t>(header.blockSize));
        },
        onRecord);
    for (const std::string& text : faults) {
        tell(target.path, text, file.callFailed() ? g_meaningOfCall : meaningOfDamage(target));
    }
    if (more > 0) {
        m_faults += more - 1;
        tell(target.path, "further faults: " + std::to_string(more), meaningOfDamage(target));
    }
    reading.isGood = faults.empty();
    reading.hosts = file.records();
    return reading;
}

// What looks wrong is looked at twice; when the file is another one by then, that one is read.
void Verify::recountLists(const VerifyTarget& target) {
    const std::string& directory = target.period->files.lists;
    for (int looks = 0; looks < g_looksAtFile; ++looks) {
        ListRecount recount;
        const Reading reading =
            read(target, [&recount](const UrlRecordView& record) { recount.push(record); });
        if (!reading.isGood) {
            return;
        }
        const Lists lists = recount.take();
        std::vector<ListFault> faults = compareLists(directory, lists);
        if (!faults.empty()) {
            platform().sleep(g_pauseBetweenLooks);
            faults = compareLists(directory, lists);
        }
        if (faults.empty() || !isReplaced(target, reading.stamp)) {
            for (const ListFault& fault : faults) {
                tell(fault.path, fault.text,
                     meaningOfDamage({fault.path, FileKind::TopList, {}, {}, 0}));
            }
            return;
        }
    }
}

bool Verify::isReplaced(const VerifyTarget& target, const std::string& stamp) const {
    CheckedFile file([](const std::string&) {});
    return !isThere(target.path) || file.open(target.path, target.kind) != 0 ||
           stampOf(file) != stamp;
}

void Verify::checkMissing(const PeriodEntry& period) {
    if (platform().exists(period.files.formal)) {
        return;
    }
    if (platform().exists(period.files.backup)) {
        tell(period.files.formal, "is missing, its backup is there",
             "the service renames the backup to it; what that lacks is merged or read again");
    } else if (platform().exists(names::topAllFile(period.files.lists))) {
        tell(period.files.lists, "lists of a file that is missing",
             "removed at the next start; the file is counted again from what is there");
    }
}

void Verify::tell(const std::string& path, const std::string& text, const std::string& meaning) {
    ++m_faults;
    m_progress.erase();
    const bool below = !m_prefix.empty() && path.starts_with(m_prefix);
    m_session.sink().add({Bytes{std::string_view(path).substr(below ? m_prefix.size() : 0)},
                          std::string_view(text), std::string_view(meaning)});
}

int verify(Session& session, const std::vector<std::string>& paths) {
    std::vector<VerifyTarget> targets;
    std::string prefix;
    if (paths.empty()) {
        const StatTree tree = session.tree();
        prefix = names::join(tree.root(), "");
        for (const std::string& account : chosenAccounts(tree, session.namedAccounts(), true)) {
            addAccountTargets(tree, account, targets);
        }
    }
    for (const std::string& path : paths) {
        addPathTargets(path, targets);
    }
    return Verify(session, std::move(targets), prefix).run();
}

} // namespace

void addVerify(Session& session) {
    const auto paths = std::make_shared<std::vector<std::string>>();
    session
        .addCommand("verify", "Whether every file is good, and what the service does if not",
                    "verify --account alice", [&session, paths] { return verify(session, *paths); })
        .texts("PATH", *paths, "Files, or directories of the tree; without them the whole tree");
}

} // namespace kestrine::viewer
