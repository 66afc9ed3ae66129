// New-day files into day files. For each date that has a directory of new-day files:
//
//  1. Its new-day files that the day file does not hold yet, which follow its counter without a
//     gap, are merged with it into "daycrcsort.temp" (merge_periods.cpp).
//  2. The cached "dirstat" is removed, so that it never describes a directory whose file changed.
//  3. "daycrcsort.temp" replaces "daycrcsort", which is kept as "daycrcsort_backup".
//  4. The top lists are built anew.
// The new-day files stay for the week and month stages.
#include "cycle/url_stat.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "topn/top_url_record.h"
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

// A day file that was lost, or gave way to its backup, after the positions were read from it must
// not be built from the new-day files that are left: the start-up check puts that right. One that
// cannot be read is left to the merge.
int UrlStat::checkNumbers(const std::string& formal, std::vector<std::string> newFiles) {
    UrlFile file;
    const bool there = platform().exists(formal);
    if (there &&
        (file.open(formal, OpenMode::Read) != 0 || file.readStatus(g_dayStatusType) != 0)) {
        return 0;
    }
    DayStatus none;
    const DayStatus& status = there ? *file.dayStatus() : none;
    removeOldPathForDaycrcsort(status, newFiles);
    if (!followWithoutGap(status.newCounter(), newFiles)) {
        return LOG_FAIL("new-day files between %s and those that wait are missing", formal.c_str());
    }
    return 0;
}

int UrlStat::mergeOneDate(const std::string& newDayDirectory) {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(newDayDirectory, files) != 0) {
        return LOG_FAIL("getDaycrcsortNews from %s fail", newDayDirectory.c_str());
    }
    if (files.empty()) {
        return 0;
    }
    const std::string dayDirectory = names::dayDirOfNewDayDir(newDayDirectory);
    if (Util::createDir(dayDirectory + "/") != 0) {
        return LOG_FAIL("create dir %s fail, errno %d", dayDirectory.c_str(), errno);
    }
    const std::string formal = names::formalFile(dayDirectory, Period::Day);
    if (checkNumbers(formal, files) != 0) {
        return -1;
    }
    const std::string output = names::tempOf(formal);
    LOG_DEBUG("daycrcsort %s", output.c_str());
    MergeFileList merge;
    const int ret = merge.mergeNew2Day(files, output);
    if (ret < 0) {
        return LOG_FAIL("mergeNew2Day fail");
    }
    return ret == 1 ? 0 : replaceAndMakeTop(output, g_dayStatusType, files, {});
}

// Steps 2 to 4, for day, week and month files. The new-day files in `deleted` go as soon as the
// replacement is durable. A stop in between leaves a work file that the next start removes, or a
// file without top lists that it gives new ones.
int UrlStat::replaceAndMakeTop(const std::string& output, uint32_t statusType,
                               const std::vector<std::string>& inputs,
                               const std::vector<std::string>& deleted) {
    if (stopRequested()) {
        return 0;
    }
    const std::string directory(names::parentOf(output));
    if (deleteDirStat(directory) != 0) {
        return LOG_FAIL("deleteDirStat %s fail", directory.c_str());
    }
    const std::string target = names::withoutTemp(output);
    if (Util::replaceFile(output, target) != 0) {
        return LOG_FAIL("replace %s with %s fail", target.c_str(), output.c_str());
    }
    if (stopRequested()) {
        return 0;
    }
    if (deleteNewDayFiles(deleted) != 0) {
        return -1;
    }
    TopUrlRecord top;
    if (top.createTop(statusType, directory, target) != 0) {
        LOG_ERROR("create top for %s fail", target.c_str());
        setAsideDamaged(target, statusType, inputs);
        return -1;
    }
    return 0;
}

// A merge copies whole blocks unread, so that damage in an input shows only when the output is
// read. Its sources are then read through and the damaged ones set aside; otherwise every later
// merge would bring the damage back.
void UrlStat::setAsideDamaged(const std::string& formal, uint32_t statusType,
                              const std::vector<std::string>& inputs) {
    const auto check = [](const std::string& path, uint32_t type) {
        if (platform().exists(path) && verifyTwice(path, type) == 1 && Util::setAside(path) != 0) {
            LOG_ERROR("remove broken file %s fail", path.c_str());
        }
    };
    check(formal, statusType);
    for (const std::string& path : inputs) {
        check(path, g_dayStatusType);
    }
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
