// One account:
//  1. The walk of the service over the log data names its devices and dates.
//  2. Of each date the new-day files are listed, then the day file is read, then those of the
//     listed ones that it does not hold: what is merged meanwhile is in the day file.
//  3. Of each device the log files above its position are looked at.
// Positions are known by device and date, not by the whole path, since the log data may be seen
// from another machine here.
#include "backlog.h"

#include "failure.h"
#include "frame/text.h"
#include "input/abstract_new_data.h"
#include "input/log_file_due.h"
#include "stat_file.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <limits>
#include <set>

namespace kestrine::viewer {

namespace {

using Paths = std::map<std::string, std::string>; // by name

Failure notListed(const std::string& directory) {
    return Failure(directory + ": cannot be listed; check the permissions");
}

// Accounts of the log data; a name may stand for several directories, one in the other.
void findAccounts(const TreePlace& place, const std::string& directory, int depth,
                  Paths& accounts) {
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::join(directory, "*"), entries, KESTRINE_HERE) != 0) {
        throw notListed(directory);
    }
    const auto isDevice = [](const FindEntry& entry) {
        return Util::isDirectory(entry) && entry.name.starts_with(names::g_devicePrefix);
    };
    if (directory != place.logData && std::ranges::any_of(entries, isDevice)) {
        accounts.emplace(names::accountOf(directory), directory);
        return;
    }
    for (const FindEntry& entry : entries) {
        const std::string path = names::join(directory, entry.name);
        const bool ours = path == place.root || path == names::defaultStatRoot(place.logData) ||
                          path == names::defaultMemoryDisk(place.logData);
        if (depth > 0 && Util::isDirectory(entry) && !ours) {
            findAccounts(place, path, depth - 1, accounts);
        }
    }
}

// Every node, counted or not.
class AllNodes final : public AbstractNewData {
public:
    [[nodiscard]] int haveNewData(const std::string&) override { return 1; }
};

// Type directories by date and device.
std::map<std::string, Paths> nodesOf(const std::string& accountPath) {
    AllNodes walk;
    if (walk.getAllNews(accountPath) != 0) {
        throw notListed(accountPath);
    }
    std::map<std::string, Paths> nodes;
    for (const std::string& type : walk.newNodes()) { // .../DEVICE/DATE/A
        const std::string_view date = names::parentOf(type);
        const std::string_view device = names::lastComponent(names::parentOf(date));
        nodes[std::string(names::lastComponent(date))].emplace(device, type);
    }
    return nodes;
}

struct DateProgress {
    std::map<std::string, int32_t> reached; // last counted log file by device
    uint64_t newDayFiles = 0;
};

void bringForward(const DayStatus& status, DateProgress& progress) {
    for (const NodeEntry& node : status.entries()) {
        const std::string device(names::lastComponent(names::parentOf(node.path)));
        int32_t& reached = progress.reached.emplace(device, -1).first->second;
        reached = std::max(reached, node.fileNumber);
    }
}

// False when a new-day file was merged between the looks.
bool tryProgress(const std::string& accountDir, const std::string& date, DateProgress& progress) {
    progress = DateProgress();
    std::vector<std::string> files;
    const std::string directory = names::newDayDir(accountDir, date);
    if (Util::getDaycrcsortNews(directory, files) != 0) {
        throw notListed(directory);
    }
    progress.newDayFiles = files.size();
    int32_t held = -1;
    const PeriodFiles day = periodFiles(names::dayDir(accountDir, date), Period::Day);
    if (const std::unique_ptr<UrlFile> file = openPeriod(day, Period::Day)) {
        held = file->dayStatus()->newCounter();
        bringForward(*file->dayStatus(), progress);
    }
    for (const std::string& path : files) {
        if (names::newDayNumber(path) <= held) {
            continue;
        }
        const std::unique_ptr<UrlFile> file = openStatFile(path, g_dayStatusType);
        if (!file) {
            return false;
        }
        bringForward(*file->dayStatus(), progress);
    }
    return true;
}

void addWaiting(const std::string& typeDirectory, int32_t reached, int32_t settleTime,
                BacklogRow& row) {
    if (reached == std::numeric_limits<int32_t>::max()) {
        return;
    }
    const auto numberOf = [](std::string_view path) {
        return leadingInteger(names::lastComponent(path));
    };
    const int64_t now = platform().now();
    const auto takeFile = [&](const std::string& path, uint32_t) {
        const int32_t number = numberOf(path);
        FileInfo info;
        // Only what the service would find under this name; one that is gone does not wait.
        if (number <= reached || path != names::datFile(typeDirectory, number) ||
            platform().info(path, info) != 0 || info.isDirectory) {
            return 0;
        }
        if (settleTime > 0 && isLogFileDue(typeDirectory, number, settleTime) == 0) {
            ++row.settlingFiles;
        } else {
            ++row.waitingFiles;
            row.waitingBytes += static_cast<uint64_t>(info.size);
            row.oldestSeconds =
                std::max({int64_t{0}, row.oldestSeconds.value_or(0), now - info.modified});
        }
        return 0;
    };
    const int32_t first = numberOf(names::parentOf(names::datFile(typeDirectory, reached + 1)));
    const auto takeDirectory = [&](const std::string& path, uint32_t attributes) {
        const bool wanted = (attributes & g_attributeDirectory) != 0 && numberOf(path) >= first;
        return wanted ? Util::tranverse(path, takeFile) : 0;
    };
    if (Util::tranverse(typeDirectory, takeDirectory) != 0) {
        throw notListed(typeDirectory);
    }
}

class Reader {
public:
    Reader(const StatTree& tree, bool all, int32_t settleTime, Backlog& backlog)
        : m_tree(tree), m_all(all), m_settleTime(settleTime), m_backlog(backlog) {}

    void readAccount(const std::string& account, const std::string& logs);

private:
    void readDate(const std::string& account, const std::string& date, const Paths& devices);
    void readVisits(const std::string& account);
    [[nodiscard]] DateProgress progressOf(const std::string& account, const std::string& date);

    const StatTree& m_tree;
    bool m_all;
    int32_t m_settleTime; // in seconds
    Backlog& m_backlog;
};

void Reader::readAccount(const std::string& account, const std::string& logs) {
    std::map<std::string, Paths> nodes;
    if (!logs.empty()) {
        nodes = nodesOf(logs);
    }
    std::vector<std::string> newDays;
    if (Util::getDateInNewDirectory(m_tree.accountDir(account), newDays) != 0) {
        throw notListed(names::newTree(m_tree.accountDir(account)));
    }
    for (const std::string& directory : newDays) {
        nodes.try_emplace(std::string(names::lastComponent(directory)));
    }
    for (const PeriodEntry& entry : m_tree.periods(account)) {
        if (m_all && entry.dir.period == Period::Day) {
            nodes.try_emplace(entry.dir.begin);
        }
    }
    for (const auto& [date, devices] : nodes) {
        readDate(account, date, devices);
    }
    readVisits(account);
}

DateProgress Reader::progressOf(const std::string& account, const std::string& date) {
    constexpr int tries = 5; // merges of a date are minutes apart
    DateProgress progress;
    for (int i = 0; i < tries; ++i) {
        if (tryProgress(m_tree.accountDir(account), date, progress)) {
            break;
        }
    }
    return progress;
}

void Reader::readDate(const std::string& account, const std::string& date, const Paths& devices) {
    DateProgress progress;
    bool known = true;
    try {
        progress = progressOf(account, date);
    } catch (const Failure& failure) {
        m_backlog.problems.emplace_back(failure.what());
        known = false;
    }
    for (const auto& [device, type] : devices) {
        progress.reached.emplace(device, -1);
    }
    for (const auto& [device, reached] : progress.reached) {
        BacklogRow row{account, device, date, {}, 0, 0, {}, 0, 0};
        const auto node = devices.find(device);
        // Where the position cannot be read nobody can tell what waits.
        if (known) {
            row.countedUpTo = reached;
        }
        if (known && node != devices.end()) {
            addWaiting(node->second, reached, m_settleTime, row);
        }
        m_backlog.rows.push_back(std::move(row));
    }
    if (progress.newDayFiles > 0) {
        m_backlog.rows.push_back({account, "", date, {}, 0, 0, {}, progress.newDayFiles, 0});
    }
}

void Reader::readVisits(const std::string& account) {
    uint64_t& visits = m_backlog.visits[account];
    for (const PeriodEntry& entry : m_tree.periods(account)) {
        try {
            if (entry.dir.period == Period::Month) {
                const std::unique_ptr<UrlFile> file = openPeriod(entry.files, Period::Month);
                visits += file ? file->statusTotal() : 0;
            }
        } catch (const Failure& failure) {
            m_backlog.problems.emplace_back(failure.what());
        }
    }
}

// Log data by account, empty where there is none.
Paths chosenAccounts(Session& session, const TreePlace& place, const StatTree& tree) {
    constexpr int depth = 3;
    Paths accounts;
    findAccounts(place, place.logData, depth, accounts);
    for (const std::string& account : tree.accounts()) {
        accounts.try_emplace(account);
    }
    const std::vector<std::string>& named = session.namedAccounts();
    for (const std::string& name : named) {
        if (!accounts.contains(name)) {
            throw Failure(place.logData + ": has no account " + name +
                          "; \"urlstat backlog --all\" lists them");
        }
    }
    std::erase_if(accounts, [&named](const auto& account) {
        return !named.empty() && std::ranges::find(named, account.first) == named.end();
    });
    return accounts;
}

} // namespace

Backlog readBacklog(Session& session, bool all) {
    const TreePlace& place = session.place();
    FileInfo info;
    if (place.logData.empty()) {
        throw Failure(place.root + ": lies in no log data; name the service's settings with "
                                   "--config FILE");
    }
    if (platform().info(place.logData, info) != 0 || !info.isDirectory) {
        throw Failure(place.logData + ": is no directory; mysql_path.ini names the log data");
    }
    Backlog backlog;
    backlog.service = platform().probeLock(names::lockFile(place.root));
    const StatTree tree(place.root);
    Reader reader(tree, all, place.settleTime, backlog);
    for (const auto& [account, logs] : chosenAccounts(session, place, tree)) {
        reader.readAccount(account, logs);
    }
    return backlog;
}

} // namespace kestrine::viewer
