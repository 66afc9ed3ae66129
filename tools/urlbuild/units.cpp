#include "units.h"

#include "cycle/day_stage.h"
#include "cycle/period_stage.h"
#include "cycle/url_stat.h"
#include "date_locks.h"
#include "date_text.h"
#include "frame/run_flag.h"
#include "merge/date_ledger.h"
#include "not_now.h"
#include "prerequisites.h"
#include "recovery/exception_check.h"
#include "storage/url_file.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace kestrine::build {

namespace {

Failure failed(const std::string& what) {
    return Failure(what +
                   ": failed; see the lines above, nothing is lost, and it can be run again");
}

void require(int result, const std::string& what) {
    if (stopRequested()) {
        throw notNow(what + ": stopped; what is left waits for the next time");
    }
    if (result != 0) {
        throw failed(what);
    }
}

void removeDirectory(const std::string& directory) {
    if (platform().exists(directory) && Util::deleteDir(directory) != 0) {
        throw Failure(directory + ": cannot be removed; check the permissions");
    }
}

// The temporary files of a unit: its own directories on the memory disk and among the disk
// temporary files. Gone when it begins and when it ends, however it does.
class Temporaries {
public:
    explicit Temporaries(std::vector<std::string> directories)
        : m_directories(std::move(directories)) {
        std::ranges::for_each(m_directories, removeDirectory);
    }
    ~Temporaries() {
        for (const std::string& directory : m_directories) {
            if (platform().exists(directory)) {
                (void)Util::deleteDir(directory); // the next unit tries again
            }
        }
    }
    Temporaries(const Temporaries&) = delete;
    Temporaries& operator=(const Temporaries&) = delete;

private:
    std::vector<std::string> m_directories;
};

std::string counted(size_t number, const char* one) {
    return std::to_string(number) + " " + one + (number == 1 ? "" : "s");
}

// ---- a day

class Day {
public:
    Day(Installation& installation, Account account, std::string date)
        : m_installation(installation), m_account(std::move(account)), m_date(std::move(date)),
          m_name("day " + m_account.text + " " + dateName(m_date)) {}

    [[nodiscard]] std::string run();

private:
    [[nodiscard]] DateLedger ledger() const;
    [[nodiscard]] uint64_t visitsAbove(int32_t number) const;
    void read();

    Installation& m_installation;
    Account m_account;
    std::string m_date;
    std::string m_name;
    bool m_logsLeft = false;
};

std::string Day::run() {
    const DateLock lock = lockDates(m_account, m_date, m_date);
    requireReadablePeriods(m_account, m_date);
    const Temporaries temporaries(
        {names::join(m_account.spills, m_date), names::diskTempDir(m_account.directory, m_date)});
    ExceptionCheck check(m_installation.configuration());
    require(check.checkDate(m_account.directory, m_date), m_name);
    const int32_t before = ledger().reached();
    read();
    const uint64_t visits = visitsAbove(before);
    const size_t due = ledger().dueFiles().size();
    require(DayStage(m_account.path, m_account.directory).runDate(m_date), m_name);
    if (m_logsLeft) {
        throw Failure(m_name + ": some logs could not be read and wait; see the lines above");
    }
    return m_name + ": " +
           (due == 0 ? "nothing due"
                     : counted(visits, "visit") + " read, " + counted(due, "file") + " merged");
}

DateLedger Day::ledger() const {
    DateLedger ledger;
    require(ledger.read(m_account.directory, m_date), m_name);
    return ledger;
}

// Of its own, so that what it has in memory is gone before anything is merged.
void Day::read() {
    UrlStat urlStat(m_installation.configuration());
    require(urlStat.init(), m_name);
    const int ret = urlStat.readDate(m_account.path, m_date);
    require(ret < 0 ? ret : 0, m_name);
    m_logsLeft = ret == 1;
}

uint64_t Day::visitsAbove(int32_t number) const {
    uint64_t visits = 0;
    const DateLedger now = ledger();
    for (auto file = now.waiting().upper_bound(number); file != now.waiting().end(); ++file) {
        UrlFile read;
        require(read.open(file->second, OpenMode::Read) == 0 ? read.readStatus(g_dayStatusType)
                                                             : -1,
                m_name);
        visits += read.statusTotal();
    }
    return visits;
}

} // namespace

std::string runCheck(Installation& installation, const std::string& account) {
    installation.enter();
    const Account own = installation.account(account);
    const DateLock lock = lockAccount(own);
    const Temporaries temporaries({own.spills, own.temporary});
    const std::string name = "check " + own.text;
    require(ExceptionCheck(installation.configuration()).check(own.path), name);
    return name + ": done";
}

std::string runDay(Installation& installation, const std::string& account,
                   const std::string& date) {
    installation.enter();
    return Day(installation, installation.account(account), date).run();
}

std::string runPeriod(Installation& installation, Period period, const std::string& account,
                      const std::string& date) {
    installation.enter();
    const Account own = installation.account(account);
    const PeriodKind& kind = kindOf(period);
    std::string begin;
    std::string end;
    if (kind.range(date, begin, end) != 0) {
        throw usage(date + ": is no date of the calendar");
    }
    const std::string name = std::string(period == Period::Week ? "week " : "month ") + own.text +
                             " " + dateName(begin) + ".." + dateName(end);
    const DateLock lock = lockDates(own, begin, end);
    requireDays(own, begin, end);
    if (kind.deletesNewDayFiles) {
        requireWeeks(own, begin, end);
    }
    const std::string directory = names::periodDir(own.directory, period, begin, end);
    const Temporaries temporaries(
        {names::diskTempDir(own.directory, names::lastComponent(directory))});
    require(ExceptionCheck(installation.configuration()).checkPeriod(directory), name);
    std::optional<DuePeriod> due;
    require(PeriodStage(kind, own.path, own.directory).runPeriod(date, due), name);
    return name + ": " + (due ? counted(due->inputs.size(), "file") + " merged" : "nothing due");
}

} // namespace kestrine::build
