#include "recovery/period_check.h"

#include "frame/log.h"
#include "merge/date_ledger.h"
#include "merge/period_fit.h"
#include "platform/platform.h"
#include "recovery/file_check.h"
#include "storage/formal_file.h"
#include "storage/ownership.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <cerrno>
#include <vector>

namespace kestrine {

int PeriodCheck::check() {
    std::set<std::string> dates;
    std::set<std::string> periods;
    if (collectDates(dates, periods) != 0) {
        return LOG_FAIL("collect dates of %s fail", m_accountDir.c_str());
    }
    for (const std::string& date : dates) {
        if (checkDate(date) != 0) {
            return LOG_FAIL("check date %s of %s fail", date.c_str(), m_accountDir.c_str());
        }
    }
    for (const std::string& directory : periods) {
        if (checkPeriod(directory) != 0) {
            return LOG_FAIL("check period %s fail", directory.c_str());
        }
    }
    return 0;
}

// Dates with waiting files; directories of weeks and months.
int PeriodCheck::collectDates(std::set<std::string>& dates, std::set<std::string>& periods) {
    std::vector<std::string> newDates;
    if (Util::getDateInNewDirectory(m_accountDir, newDates) != 0) {
        return -1;
    }
    for (const std::string& path : newDates) {
        dates.emplace(names::lastComponent(path));
    }
    return Util::tranverse(m_accountDir, [&](const std::string& path, uint32_t attributes) {
        Period period = Period::Day;
        if ((attributes & g_attributeDirectory) != 0 &&
            names::parsePeriodDir(names::lastComponent(path), period) && period != Period::Day) {
            periods.insert(path);
        }
        return 0;
    });
}

int PeriodCheck::checkDate(const std::string& date) {
    // First: a damaged file that is set aside makes the gap which is settled below.
    if (checkWaiting(date) != 0) {
        return -1;
    }
    DateLedger ledger;
    bool fellBack = false;
    if (ledger.read(m_accountDir, date, &fellBack) != 0) {
        return -1;
    }
    std::vector<PeriodOfDate> periods;
    if (fellBack && periodsOfDate(m_accountDir, date, periods) != 0) {
        return -1;
    }
    // Which of them fell back is not told, so all three are checked once more.
    for (const PeriodOfDate& period : periods) {
        m_fellBack.insert(period.files.directory);
    }
    return ledger.settleGap();
}

int PeriodCheck::checkWaiting(const std::string& date) {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(names::newDayDir(m_accountDir, date), files) != 0) {
        return -1;
    }
    const std::string account(names::lastComponent(m_accountDir));
    for (const std::string& path : files) {
        int damaged = checkFile(path, g_dayStatusType);
        // Read through or not: where it belongs is asked of every file, and takes its trailer only.
        if (damaged == 0 || damaged == 2) {
            UrlFile file;
            if (file.open(path, OpenMode::Read) != 0) {
                return LOG_FAIL("open %s fail", path.c_str());
            }
            damaged = file.readStatus(g_dayStatusType) == 0
                          ? (belongsToDay(*file.dayStatus(), account, date) ? 0 : 1)
                          : (file.broken() ? 1 : -1);
        }
        if (damaged < 0 || (damaged == 1 && Util::dumpBrokenFile(path) != 0)) {
            return LOG_FAIL("check %s fail", path.c_str());
        }
    }
    return 0;
}

int PeriodCheck::checkPeriod(const std::string& directory) {
    PeriodDir dir;
    if (!names::parsePeriodDir(names::lastComponent(directory), dir)) {
        return 0;
    }
    const PeriodFiles files = periodFiles(directory, dir.period);
    std::unique_ptr<UrlFile> file;
    bool fellBack = false;
    // Its own damage first: what it knows of its dates is asked of the file that is left.
    const int ret = openFormal(files, dir.period, file, &fellBack);
    if (fellBack) {
        m_fellBack.insert(directory);
    }
    if (ret != 0) {
        return ret < 0 ? -1 : 0;
    }
    std::vector<std::string> dates;
    for (const DateEntry& entry : file->weekMonStatus()->entries()) {
        dates.emplace_back(names::lastComponent(entry.path));
    }
    PeriodState state;
    // 1, a waiting file that became damaged since it was checked, is no failure: it was set aside.
    if (state.read(m_accountDir, dates) < 0) {
        return -1;
    }
    if (const std::string better = state.datesKnownBetter(*file->weekMonStatus());
        !better.empty()) {
        LOG_ERROR("%s knows dates better than their day files, it keeps what it holds: %s",
                  files.formal.c_str(), better.c_str());
    }
    return 0;
}

} // namespace kestrine
