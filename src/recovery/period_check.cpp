#include "recovery/period_check.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "recovery/file_check.h"
#include "storage/url_file.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/top_list_dirs.h"

#include <algorithm>
#include <cerrno>
#include <vector>

namespace kestrine {

namespace {

// Reads the status of a formal file. 0; 1 when it cannot be read; -1 when the file cannot be
// opened.
int readStatusOf(const std::string& path, uint32_t statusType, std::unique_ptr<UrlFile>& file) {
    file = std::make_unique<UrlFile>();
    if (file->open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    const int ret = file->readStatus(statusType) == 0 ? 0 : 1;
    if (file->close() != 0) {
        LOG_ERROR("close %s fail", path.c_str());
    }
    return ret;
}

// The same; a file whose status cannot be read twice gives way to its backup. 0; 1 when it did; -1.
int readFormal(const std::string& path, uint32_t statusType, std::unique_ptr<UrlFile>& file) {
    int ret = readStatusOf(path, statusType, file);
    if (ret == 1) {
        ret = readStatusOf(path, statusType, file);
    }
    if (ret != 1) {
        return ret;
    }
    return Util::setAside(path) == 0 ? 1 : -1;
}

// The same, going on with the backup that came back; `fellBack` is set then.
template <typename Use>
int withReadableFormal(const std::string& path, uint32_t statusType, bool& fellBack,
                       const Use& use) {
    for (int tries = 0; tries < 2 && platform().exists(path); ++tries) {
        std::unique_ptr<UrlFile> file;
        const int ret = readFormal(path, statusType, file);
        if (ret == 0) {
            return use(*file);
        }
        if (ret < 0) {
            return -1;
        }
        fellBack = true;
    }
    return 0;
}

// Removes a week or month file with its backup and lists; the week and month stages build it anew.
int setAsidePeriod(const std::string& formal) {
    LOG_INFO("%s does not fit the day files, set aside to be built anew", formal.c_str());
    const std::string directory(names::parentOf(formal));
    const std::string backup = names::backupOf(formal);
    if (Util::deleteTopLists(directory) != 0) {
        return LOG_FAIL("delete top lists of %s fail", formal.c_str());
    }
    if (platform().exists(backup) && platform().removeFile(backup) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", backup.c_str(), errno);
    }
    return Util::dumpBrokenFile(formal) == 0 ? Util::syncParent(formal) : -1;
}

} // namespace

int PeriodCheck::check() {
    if (collectDates() != 0) {
        return LOG_FAIL("collect dates of %s fail", m_accountDir.c_str());
    }
    for (auto& [date, state] : m_dates) {
        if (readDay(date, state) != 0 || readWaiting(date, state) != 0 ||
            giveUpBeyondGap(state) != 0) {
            return LOG_FAIL("check date %s of %s fail", date.c_str(), m_accountDir.c_str());
        }
    }
    return checkPeriods();
}

int PeriodCheck::collectDates() {
    std::vector<std::string> newDates;
    if (Util::getDateInNewDirectory(m_accountDir, newDates) != 0) {
        return -1;
    }
    for (const std::string& path : newDates) {
        m_dates.try_emplace(std::string(names::lastComponent(path)));
    }
    return Util::tranverse(m_accountDir, [this](const std::string& path, uint32_t attributes) {
        Period period = Period::Day;
        const std::string name(names::lastComponent(path));
        if ((attributes & g_attributeDirectory) != 0 && names::parsePeriodDir(name, period) &&
            period == Period::Day) {
            m_dates[name].hasDirectory = true;
        }
        return 0;
    });
}

int PeriodCheck::readDay(const std::string& date, Date& state) {
    const std::string path = names::formalFile(names::dayDir(m_accountDir, date), Period::Day);
    return withReadableFormal(path, g_dayStatusType, m_fellBack, [&state](UrlFile& file) {
        state.counter = file.dayStatus()->newCounter();
        state.total = file.dayStatus()->totalCount();
        return 0;
    });
}

int PeriodCheck::readWaiting(const std::string& date, Date& state) {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(names::newDayDir(m_accountDir, date), files) != 0) {
        return -1;
    }
    for (const std::string& path : files) {
        const int damaged = checkFile(path, g_dayStatusType);
        UrlFile file;
        if (damaged < 0 || file.open(path, OpenMode::Read) != 0) {
            return LOG_FAIL("open %s fail", path.c_str());
        }
        const bool good = damaged == 0 && file.readStatus(g_dayStatusType) == 0;
        if (file.close() != 0) {
            LOG_ERROR("close %s fail", path.c_str());
        }
        if (good) {
            state.waiting[names::newDayNumber(path)] = {path, file.dayStatus()->totalCount()};
        } else if (Util::dumpBrokenFile(path) != 0) {
            return -1;
        }
    }
    return 0;
}

int PeriodCheck::giveUpBeyondGap(Date& state) {
    state.reach = state.counter;
    while (state.waiting.contains(state.reach + 1)) {
        ++state.reach;
    }
    // The highest goes first: after a kill a gap is still there.
    while (!state.waiting.empty() && state.waiting.rbegin()->first > state.reach) {
        const std::string path = state.waiting.rbegin()->second.path;
        LOG_INFO("%s waits beyond a gap, set aside", path.c_str());
        if (Util::dumpBrokenFile(path) != 0) {
            return -1;
        }
        state.waiting.erase(std::prev(state.waiting.end()));
    }
    return 0;
}

int PeriodCheck::checkPeriods() {
    std::vector<std::pair<std::string, Period>> directories;
    const int ret = Util::tranverse(m_accountDir, [&directories](const std::string& path,
                                                                 uint32_t attributes) {
        Period period = Period::Day;
        if ((attributes & g_attributeDirectory) != 0 &&
            names::parsePeriodDir(names::lastComponent(path), period) && period != Period::Day) {
            directories.emplace_back(path, period);
        }
        return 0;
    });
    if (ret != 0) {
        return -1;
    }
    for (const auto& [directory, period] : directories) {
        if (checkPeriod(directory, period) != 0) {
            return LOG_FAIL("check period %s fail", directory.c_str());
        }
    }
    return 0;
}

int PeriodCheck::checkPeriod(const std::string& directory, Period period) {
    const std::string formal = names::formalFile(directory, period);
    PeriodDir range;
    if (!names::parsePeriodDir(names::lastComponent(directory), range)) {
        return 0;
    }
    bool fitting = true;
    const int ret = withReadableFormal(formal, g_weekMonStatusType, m_fellBack, [&](UrlFile& file) {
        fitting = fits(*file.weekMonStatus(), range.begin, range.end);
        return 0;
    });
    if (ret != 0) {
        return -1;
    }
    return fitting ? 0 : setAsidePeriod(formal);
}

bool PeriodCheck::fits(const WeekMonStatus& status, const std::string& begin,
                       const std::string& end) const {
    for (auto date = m_dates.lower_bound(begin); date != m_dates.end() && date->first <= end;
         ++date) {
        if (names::isCalendarDate(date->first) &&
            !canBeBroughtForward(date->second, status.counterOfDate(date->first))) {
            return false;
        }
    }
    const auto acceptable = [&](const DateEntry& entry) {
        const std::string_view date = names::lastComponent(entry.path);
        return names::isCalendarDate(date) && date >= begin && date <= end && !countedAnew(date);
    };
    return std::all_of(status.entries().begin(), status.entries().end(), acceptable) &&
           totalFits(status);
}

// A date of which nothing is left but its logs.
bool PeriodCheck::countedAnew(std::string_view date) const {
    const auto known = m_dates.find(std::string(date));
    if (m_accountPath.empty() || (known != m_dates.end() && known->second.hasDirectory)) {
        return false;
    }
    bool logs = false;
    if (Util::tranverse(m_accountPath, [&](const std::string& path, uint32_t attributes) {
            logs = logs || ((attributes & g_attributeDirectory) != 0 &&
                            platform().exists(names::join(path, date)));
            return 0;
        }) != 0) {
        LOG_ERROR("tranverse %s fail", m_accountPath.c_str());
    }
    return logs;
}

bool PeriodCheck::canBeBroughtForward(const Date& date, int32_t held) {
    if (!date.hasDirectory && date.waiting.empty()) {
        return true;
    }
    if (held > date.reach || held < -1) {
        return false;
    }
    for (int32_t number = held + 1; number <= date.counter; ++number) {
        if (!date.waiting.contains(number)) {
            return false;
        }
    }
    return true;
}

// What a date held whose directory was removed is not known any more.
bool PeriodCheck::totalFits(const WeekMonStatus& status) const {
    uint64_t total = 0;
    for (const DateEntry& entry : status.entries()) {
        const auto date = m_dates.find(std::string(names::lastComponent(entry.path)));
        if (date == m_dates.end() || !date->second.hasDirectory) {
            return true;
        }
        total += totalUpTo(date->second, entry.counter);
    }
    return total == static_cast<uint64_t>(status.totalCount());
}

// Visits of a date in its new-day files up to a number, by the day file and those that wait.
uint64_t PeriodCheck::totalUpTo(const Date& date, int32_t held) {
    uint64_t total = date.total;
    for (const auto& [number, file] : date.waiting) {
        if (number > date.counter && number <= held) {
            total += file.total;
        } else if (number <= date.counter && number > held) {
            total -= file.total;
        }
    }
    return total;
}

} // namespace kestrine
