// New-day files into day files. For each date that has a directory of new-day files:
//
//  1. What waits beyond a gap is settled (merge/date_ledger.h).
//  2. The new-day files that the day file does not hold yet are merged with it into
//     "daycrcsort.temp" (merge_periods.cpp).
//  3. That replaces the day file, and the top lists are made (publish.h).
// The new-day files stay for the week and month stages.
#include "cycle/url_stat.h"

#include "cycle/publish.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/date_ledger.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/replace.h"

#include <cerrno>

namespace kestrine {

namespace {

constexpr int g_dirStatTries = 5;
constexpr uint32_t g_dirStatPause = 1000; // ms

} // namespace

int UrlStat::new2Daycrcsort(const std::string& account) {
    m_account = account;
    std::vector<std::string> dates;
    if (Util::getDateInNewDirectory(accountDirectory(), dates) != 0) {
        return LOG_FAIL("getDateInNewDirectory for %s fail", account.c_str());
    }
    for (const std::string& date : dates) {
        if (mergeOneDate(date) != 0) {
            return -1;
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return 0;
}

int UrlStat::mergeOneDate(const std::string& newDayDirectory) {
    DateLedger ledger;
    const std::string date(names::lastComponent(newDayDirectory));
    if (ledger.read(accountDirectory(), date) != 0 || ledger.settleGap() != 0) {
        return LOG_FAIL("getDaycrcsortNews from %s fail", newDayDirectory.c_str());
    }
    const std::vector<std::string> files = ledger.dueFiles();
    if (files.empty()) {
        return 0;
    }
    const PeriodFiles day = periodFiles(names::dayDir(accountDirectory(), date), Period::Day);
    if (Util::createDir(day.directory + "/") != 0) {
        return LOG_FAIL("create dir %s fail, errno %d", day.directory.c_str(), errno);
    }
    LOG_DEBUG("daycrcsort %s", day.temp.c_str());
    MergeFileList merge;
    const int ret = merge.mergeNew2Day(files, day.temp);
    if (ret < 0) {
        return LOG_FAIL("mergeNew2Day fail");
    }
    return ret == 1 ? 0 : publish(day, Period::Day, files, {});
}

int UrlStat::deleteDirStat(const std::string& directory) {
    const std::string path = names::dirStatFile(directory);
    if (!platform().exists(path)) {
        return 0;
    }
    for (int i = 0; i < g_dirStatTries; ++i) {
        if (platform().removeFile(path) == 0 || !platform().exists(path)) {
            return 0;
        }
        platform().sleep(g_dirStatPause);
    }
    return LOG_FAIL("unlink %s fail, errno %d", path.c_str(), errno);
}

} // namespace kestrine
