// The number of the next new-day file of a date.
//
// After a power failure any of the files that the month stage deleted may be back, so neither the
// waiting files nor the day file alone tell the highest number that was ever used: both are asked.
#include "frame/log.h"
#include "merge/disk_temp_file_list.h"
#include "platform/platform.h"
#include "storage/url_file.h"
#include "tree/directories.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/top_list_dirs.h"

#include <algorithm>
#include <cerrno>

namespace kestrine {

namespace {

// An unreadable day file gives way to its backup; the number comes from that on a later run.
int recoverDayFile(UrlFile& file, const std::string& path) {
    LOG_INFO("read status fail %s, try to recover from backup", path.c_str());
    if (file.close() != 0) {
        LOG_INFO("close %s fail", path.c_str());
    }
    if (Util::setAside(path) != 0) {
        return -1;
    }
    LOG_INFO("rename from %s to %s success", names::backupOf(path).c_str(), path.c_str());
    return -1;
}

} // namespace

// Highest number among the waiting files, -1 when there is none.
int DiskTempFileList::getMaxNewCounterFromNew(const std::string& directory, int32_t& max) {
    max = -1;
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(directory, files) != 0) {
        return -1;
    }
    for (const std::string& path : files) {
        max = std::max(max, names::newDayNumber(path));
    }
    return 0;
}

int DiskTempFileList::getNextNewCounterFromDaycrcsort(const std::string& path, int32_t& counter) {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    if (file.readStatus(g_dayStatusType) != 0) {
        return recoverDayFile(file, path);
    }
    counter = file.dayStatus()->newCounter() + 1;
    return file.close();
}

int DiskTempFileList::getNextNewCounter(const std::string& directory, int32_t& counter) {
    int32_t max = -1;
    if (getMaxNewCounterFromNew(directory, max) != 0) {
        return LOG_FAIL("getNextNewCounterFromNew from %s fail", directory.c_str());
    }
    if (max != -1) {
        LOG_DEBUG("from daycrcsort.new, max %d", max);
    }
    counter = max + 1;
    const std::string dayFile = names::formalFile(names::dayDirOfNewDayDir(directory), Period::Day);
    if (!platform().exists(dayFile)) {
        return 0;
    }
    int32_t fromDay = 0;
    if (getNextNewCounterFromDaycrcsort(dayFile, fromDay) != 0) {
        return LOG_FAIL("getNextNewCounterFromDaycrcsort %s fail", dayFile.c_str());
    }
    counter = std::max(counter, fromDay);
    return 0;
}

} // namespace kestrine
