// New-day files into week and month files.
//
//  1. The dates that have a directory of new-day files are listed and grouped by week (or month).
//  2. For each group the new-day files that the week file does not hold yet are merged with it into
//     "weekcrcsort.temp"; a week file that is not there is built from the day files of its week,
//     which hold everything by now.
//  3. "dirstat" goes, the output replaces the week file.
//  4. The month stage, which runs last, then deletes the group's new-day files: day, week and month
//     file are durable and hold them.
//  5. The top lists are built anew.
#include "cycle/url_stat.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "tree/calendar.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>

namespace kestrine {

namespace {

// With a file of this name in the working directory the new-day files are kept.
constexpr const char* g_keepMarker = "do_not_delete_daycrcsortnew";

} // namespace

int UrlStat::weekcrcsort(const std::string& account) {
    m_account = account;
    return periodStage(kindOf(Period::Week));
}

int UrlStat::moncrcsort(const std::string& account) {
    m_account = account;
    return periodStage(kindOf(Period::Month));
}

int UrlStat::periodStage(const PeriodKind& stage) {
    std::vector<std::string> dates;
    if (listPeriodDates(dates) != 0) {
        return -1;
    }
    while (!dates.empty() && !stopRequested()) {
        std::vector<std::string> group;
        std::string begin;
        std::string end;
        if (stage.nextGroup(dates, group, begin, end) != 0) {
            return LOG_FAIL("%s fail", stage.nextGroupName.data());
        }
        if (mergeOnePeriod(stage, group, begin, end) != 0) {
            return -1;
        }
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
    }
    return 0;
}

// Date directories of the "new" tree, ascending. A directory that passes for a date by its digits
// but is none of the calendar belongs to no week and no month; its visits count in its day file.
int UrlStat::listPeriodDates(std::vector<std::string>& dates) {
    std::vector<std::string> listed;
    if (Util::getDateInNewDirectory(accountDirectory(), listed) != 0) {
        return LOG_FAIL("getDatesWithDaycrcsortnew for %s fail", m_account.c_str());
    }
    for (const std::string& path : listed) {
        if (names::isCalendarDate(names::lastComponent(path))) {
            dates.push_back(path);
        } else {
            LOG_INFO("%s is no date of the calendar, left out of week and month", path.c_str());
        }
    }
    return 0;
}

int UrlStat::mergeOnePeriod(const PeriodKind& stage, const std::vector<std::string>& group,
                            const std::string& begin, const std::string& end) {
    std::vector<std::string> newFiles;
    for (const std::string& date : group) {
        if (Util::getDaycrcsortNews(date, newFiles) != 0) {
            return LOG_FAIL("getDaycrcsortNews from %s fail", date.c_str());
        }
    }
    const std::string directory = names::periodDir(accountDirectory(), stage.period, begin, end);
    const std::string formal = names::formalFile(directory, stage.period);
    std::vector<std::string> dayFiles;
    if (platform().exists(formal)) {
        if (newFiles.empty()) {
            return 0;
        }
    } else if (listDayFiles(begin, end, dayFiles) != 0) {
        return LOG_FAIL("list day files of %s fail", directory.c_str());
    } else if (dayFiles.empty()) {
        return 0;
    }
    LOG_DEBUG("all daycrcsortnew:");
    for (const std::string& path : newFiles) {
        LOG_DEBUG("week files %s", path.c_str());
    }
    if (Util::createDir(directory + "/") != 0) {
        return LOG_FAIL("create dir %s fail", directory.c_str());
    }
    const std::string output = names::tempOf(formal);
    LOG_DEBUG("%s path %s", stage.fileName.data(), output.c_str());
    MergeFileList merge;
    const int ret = merge.mergeNew2WeekMon(newFiles, dayFiles, output);
    if (ret < 0) {
        return LOG_FAIL("mergeNew2Week fail");
    }
    if (ret == 1) {
        return 0;
    }
    const bool keep = !stage.deletesNewDayFiles || platform().exists(g_keepMarker);
    return replaceAndMakeTop(output, g_weekMonStatusType, dayFiles.empty() ? newFiles : dayFiles,
                             keep ? std::vector<std::string>() : newFiles);
}

// The day files of a period, ascending by date.
int UrlStat::listDayFiles(const std::string& begin, const std::string& end,
                          std::vector<std::string>& files) {
    std::vector<std::string> dates;
    const int ret =
        Util::tranverse(accountDirectory(), [&](const std::string& path, uint32_t attributes) {
            const std::string date(names::lastComponent(path));
            if ((attributes & g_attributeDirectory) != 0 && names::isCalendarDate(date) &&
                date >= begin && date <= end) {
                dates.push_back(path);
            }
            return 0;
        });
    if (ret != 0) {
        return -1;
    }
    std::sort(dates.begin(), dates.end());
    for (const std::string& date : dates) {
        const std::string file = names::formalFile(date, Period::Day);
        if (platform().exists(file)) {
            files.push_back(file);
        }
    }
    return 0;
}

int UrlStat::deleteNewDayFiles(const std::vector<std::string>& files) {
    for (const std::string& path : files) {
        if (platform().removeFile(path) != 0) {
            return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
        }
    }
    return 0;
}

} // namespace kestrine
