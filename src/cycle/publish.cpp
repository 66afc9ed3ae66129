#include "cycle/publish.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "platform/platform.h"
#include "storage/verify.h"
#include "topn/top_url_record.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/replace.h"

#include <cerrno>

namespace kestrine {

namespace {

// Its owner may hold it open for a moment.
constexpr int g_dirStatTries = 5;
constexpr uint32_t g_dirStatPause = 1000; // ms

int deleteNewDayFiles(const std::vector<std::string>& files) {
    for (const std::string& path : files) {
        // Gone already is as good: what it held is in three files.
        if (platform().removeFile(path) != 0 && errno != ENOENT) {
            return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
        }
    }
    return 0;
}

void setAsideDamaged(const std::string& path, uint32_t statusType) {
    // An input may be deleted by now. An error or a stop while it is read leaves it alone.
    if (!platform().exists(path) || verifyTwice(path, statusType) != 1) {
        return;
    }
    // New-day files have no backup that could come back.
    const bool formal = names::newDayNumber(path) < 0;
    if ((formal ? Util::setAside(path) : Util::dumpBrokenFile(path)) != 0) {
        LOG_ERROR("remove broken file %s fail", path.c_str());
    }
}

} // namespace

int deleteDirStat(const std::string& directory) {
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

int publish(const PeriodFiles& files, Period period, const std::vector<std::string>& inputs,
            const std::vector<std::string>& deleted) {
    // The output is not put in place: start-up removes it, and its inputs still wait.
    if (stopRequested()) {
        return 0;
    }
    if (deleteDirStat(files.directory) != 0) {
        return LOG_FAIL("deleteDirStat %s fail", files.directory.c_str());
    }
    if (Util::replaceFile(files.temp, files.formal) != 0) {
        return LOG_FAIL("replace %s with %s fail", files.formal.c_str(), files.temp.c_str());
    }
    if (stopRequested()) {
        return 0;
    }
    // Behind the replacement, which was synced. Removals are not: what comes back is left out by
    // its number.
    if (deleteNewDayFiles(deleted) != 0) {
        return -1;
    }
    // Last, since lists can be made again at any time; a kill before this leaves the file without.
    TopUrlRecord top;
    const uint32_t type = kindOf(period).statusType;
    if (top.createTop(type, files.directory, files.formal) != 0) {
        // The visits are in place all the same. Reading for the lists is the first time that copied
        // blocks are looked into.
        LOG_ERROR("create top for %s fail", files.formal.c_str());
        setAsideDamaged(files.formal, type);
        for (const std::string& path : inputs) {
            setAsideDamaged(path, g_dayStatusType);
        }
        return -1;
    }
    return 0;
}

} // namespace kestrine
