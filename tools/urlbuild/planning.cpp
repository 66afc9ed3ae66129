// One account:
//
//  1. The walk of the service over the log data tells the dates with new logs, and their nodes.
//  2. Of each date with a directory of new-day files those that its day file does not hold.
//  3. The week and month files that a first run of the service would set to work on, and besides
//     those of every date that 1 or 2 have found.
//  4. Files without top lists.
//  5. The check, if anything is due.
#include "planning.h"

#include "bytes_text.h"
#include "cycle/period_stage.h"
#include "failure.h"
#include "frame/install_root.h"
#include "input/abstract_new_data.h"
#include "input/log_file_due.h"
#include "input/url_file_new_data.h"
#include "merge/date_ledger.h"
#include "service/dry_run_platform.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/period.h"

#include <map>
#include <tuple>
#include <utility>

namespace kestrine::build {

namespace {

UnitKind unitKindOf(Period period) {
    return period == Period::Day    ? UnitKind::Day
           : period == Period::Week ? UnitKind::Week
                                    : UnitKind::Month;
}

class AccountPlanner {
public:
    AccountPlanner(const Configuration& configuration, const std::string& account)
        : m_configuration(configuration), m_account(account),
          m_directory(names::accountDir(configuration.urlStatRoot(), names::accountOf(account))) {}

    // 0, or -1 when not all can be told.
    [[nodiscard]] int look();
    [[nodiscard]] bool anythingDue() const { return !m_units.empty(); }
    // Puts the check and the units of what is due behind those that are there.
    void addTo(std::vector<PlannedUnit>& units) const;

private:
    using Key = std::pair<Period, std::string>; // and the first date

    PlannedUnit& unitOf(const PeriodDir& dir);
    static void takeFile(const std::string& path, PlannedUnit& unit);
    void takeLogs(const NodeEntry& node, PlannedUnit& unit) const;
    [[nodiscard]] int lookForLogs();
    [[nodiscard]] int lookForNewDayFiles();
    [[nodiscard]] int lookForPeriods(Period period);
    [[nodiscard]] int followDays(Period period);
    [[nodiscard]] int lookForLists();

    const Configuration& m_configuration;
    std::string m_account;
    std::string m_directory;
    std::map<Key, PlannedUnit> m_units;
};

PlannedUnit& AccountPlanner::unitOf(const PeriodDir& dir) {
    PlannedUnit& unit = m_units[{dir.period, dir.begin}];
    unit.kind = unitKindOf(dir.period);
    unit.account = names::accountOf(m_account);
    unit.begin = dir.begin;
    unit.end = dir.end;
    return unit;
}

void AccountPlanner::takeFile(const std::string& path, PlannedUnit& unit) {
    FileInfo info;
    if (platform().info(path, info) == 0) {
        ++unit.files;
        unit.bytes += static_cast<uint64_t>(info.size);
    }
}

// As the reader goes: from the next number on, up to one that is missing or not to be read yet.
void AccountPlanner::takeLogs(const NodeEntry& node, PlannedUnit& unit) const {
    const std::string type = names::typeDir(node.path);
    for (int32_t number = node.fileNumber + 1;
         isLogFileDue(type, number, m_configuration.settleTime()) == 1; ++number) {
        takeFile(names::datFile(type, number), unit);
        if (number == INT32_MAX) {
            return;
        }
    }
}

int AccountPlanner::lookForLogs() {
    UrlFileNewData newData(m_configuration);
    std::vector<DayStatus> days;
    if (newData.getDayStatusHaveNewData(m_account, days) != 0) {
        return -1;
    }
    for (const DayStatus& status : days) {
        const std::string date = names::dateText(status.date());
        PlannedUnit& unit = unitOf({Period::Day, date, date});
        unit.steps.read = true;
        for (const NodeEntry& node : status.entries()) {
            takeLogs(node, unit);
        }
    }
    return 0;
}

int AccountPlanner::lookForNewDayFiles() {
    std::vector<std::string> directories;
    if (Util::getDateInNewDirectory(m_directory, directories) != 0) {
        return -1;
    }
    for (const std::string& directory : directories) {
        const std::string date(names::lastComponent(directory));
        DateLedger ledger;
        if (ledger.read(m_directory, date) != 0) {
            return -1;
        }
        const std::vector<std::string> files = ledger.dueFiles();
        for (const std::string& path : files) {
            takeFile(path, unitOf({Period::Day, date, date}));
        }
    }
    // What is read is merged, too, into the day file that may be there.
    for (auto& [key, unit] : m_units) {
        unit.steps.merge = unit.steps.lists = true;
        takeFile(names::formalFile(names::dayDir(m_directory, unit.begin), Period::Day), unit);
    }
    return 0;
}

int AccountPlanner::lookForPeriods(Period period) {
    const PeriodKind& kind = kindOf(period);
    std::vector<DuePeriod> due;
    if (PeriodStage(kind, m_account, m_directory).findDue(due) != 0) {
        return -1;
    }
    for (const DuePeriod& found : due) {
        PlannedUnit& unit = unitOf({period, found.begin, found.end});
        unit.steps.merge = unit.steps.lists = true;
        for (const std::string& path : found.inputs) {
            takeFile(path, unit);
        }
        takeFile(found.files.formal, unit);
    }
    return followDays(period);
}

// The periods of the days that are due.
int AccountPlanner::followDays(Period period) {
    std::vector<std::string> dates;
    for (const auto& [key, unit] : m_units) {
        if (unit.kind == UnitKind::Day && names::isCalendarDate(unit.begin)) {
            dates.push_back(unit.begin);
        }
    }
    for (const std::string& date : dates) {
        PeriodDir dir{period, {}, {}};
        if (kindOf(period).range(date, dir.begin, dir.end) != 0) {
            return -1;
        }
        PlannedUnit& unit = unitOf(dir);
        if (!unit.steps.merge) {
            unit.steps.merge = unit.steps.lists = true;
            const std::string directory = names::periodDir(m_directory, period, dir.begin, dir.end);
            takeFile(names::formalFile(directory, period), unit);
        }
    }
    return 0;
}

int AccountPlanner::lookForLists() {
    return Util::tranverse(m_directory, [this](const std::string& path, uint32_t) {
        PeriodDir dir;
        if (!names::parsePeriodDir(names::lastComponent(path), dir)) {
            return 0;
        }
        const std::string formal = names::formalFile(path, dir.period);
        if (!platform().exists(formal) ||
            platform().exists(names::topAllFile(names::topDir(path)))) {
            return 0;
        }
        PlannedUnit& unit = unitOf(dir);
        if (!unit.steps.any()) {
            takeFile(formal, unit);
        }
        unit.steps.lists = true;
        return 0;
    });
}

int AccountPlanner::look() {
    const bool all = lookForLogs() == 0 && lookForNewDayFiles() == 0 &&
                     lookForPeriods(Period::Week) == 0 && lookForPeriods(Period::Month) == 0 &&
                     lookForLists() == 0;
    return all ? 0 : -1;
}

// In the order of the stages, so that each unit stands behind what it needs.
void AccountPlanner::addTo(std::vector<PlannedUnit>& units) const {
    const size_t first = units.size();
    units.push_back({UnitKind::Check, names::accountOf(m_account), {}, {}, {}, {}, 0, 0});
    for (const auto& [key, found] : m_units) {
        PlannedUnit unit = found;
        unit.needs = {first};
        // An account has some thousand units at most.
        for (size_t i = first + 1; i < units.size() && units[i].kind < unit.kind; ++i) {
            if (units[i].begin <= unit.end && unit.begin <= units[i].end) {
                unit.needs.push_back(i);
            }
        }
        units.push_back(std::move(unit));
    }
}

} // namespace

Plan makePlan(const Configuration& configuration) {
    const DryRunPlatform unchanged;
    std::vector<std::string> accounts;
    if (AbstractNewData::getAllAccounts(accounts) != 0) {
        throw Failure("accounts: cannot be read; \"kestrine --check\" tells more");
    }
    // The service waits for a first one; here it is rather the wrong installation.
    if (accounts.empty()) {
        throw Failure(install::accountFile() +
                      ": names no account, or is not there; is it the right installation?");
    }
    Plan plan;
    std::vector<PlannedUnit> units;
    for (const std::string& account : accounts) {
        AccountPlanner planner(configuration, account);
        if (planner.look() != 0) {
            plan.unclear.push_back(utf8Text(names::accountOf(account)));
            AccountPlanner(configuration, account).addTo(units);
        } else if (planner.anythingDue()) {
            planner.addTo(units);
        }
    }
    plan.units = ordered(units);
    plan.reports = unchanged.errors();
    return plan;
}

} // namespace kestrine::build
