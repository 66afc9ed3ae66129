#include "cycle/day_stage.h"

#include "cycle/publish.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/date_ledger.h"
#include "merge/merge_file_list.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <cerrno>
#include <vector>

namespace kestrine {

int DayStage::settleGaps() const {
    std::vector<std::string> dates;
    if (Util::getDateInNewDirectory(m_accountDir, dates) != 0) {
        return -1;
    }
    for (const std::string& directory : dates) {
        if (settleGap(std::string(names::lastComponent(directory))) != 0) {
            return -1;
        }
    }
    return 0;
}

int DayStage::settleGap(const std::string& date) const {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(names::newDayDir(m_accountDir, date), files) != 0) {
        return -1;
    }
    // Where nothing waits there is no gap, and three trailers need not be read.
    if (files.empty()) {
        return 0;
    }
    DateLedger ledger;
    return ledger.read(m_accountDir, date) == 0 ? ledger.settleGap() : -1;
}

int DayStage::run() const {
    std::vector<std::string> dates;
    if (Util::getDateInNewDirectory(m_accountDir, dates) != 0) {
        return LOG_FAIL("getDateInNewDirectory for %s fail", m_account.c_str());
    }
    for (const std::string& directory : dates) {
        if (runDate(std::string(names::lastComponent(directory))) != 0) {
            return -1;
        }
        if (stopRequested()) {
            LOG_DEBUG("find g_isRunning 0, stop");
            return 0;
        }
    }
    return 0;
}

int DayStage::runDate(const std::string& date) const {
    DateLedger ledger;
    // Again, although settleGaps ran before: a damaged file may have been set aside since.
    if (ledger.read(m_accountDir, date) != 0 || ledger.settleGap() != 0) {
        return LOG_FAIL("getDaycrcsortNews of %s fail", date.c_str());
    }
    const std::vector<std::string> files = ledger.dueFiles();
    if (files.empty()) {
        return 0;
    }
    const PeriodFiles day = periodFiles(names::dayDir(m_accountDir, date), Period::Day);
    if (Util::createDir(day.directory + "/") != 0) {
        return LOG_FAIL("create dir %s fail, errno %d", day.directory.c_str(), errno);
    }
    LOG_DEBUG("daycrcsort %s", day.temp.c_str());
    MergeFileList merge;
    const int ret = merge.mergeNew2Day(files, day.temp);
    if (ret < 0) {
        return LOG_FAIL("mergeNew2Day fail");
    }
    // 1: a stop, or the day file holds all of them. There is no output then.
    return ret == 1 ? 0 : publish(day, Period::Day, files, {});
}

} // namespace kestrine
