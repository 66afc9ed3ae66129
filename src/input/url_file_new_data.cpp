// One account:
//  1. The walk over devices and dates takes each date into the day list once.
//  2. A date's progress is that of its day file, brought forward by the new-day files that the day
//     file does not hold yet; devices that neither knows are added as new nodes.
//  3. The nodes whose next file exists are the answer.
#include "input/url_file_new_data.h"

#include "frame/log.h"
#include "input/log_file_due.h"
#include "platform/platform.h"
#include "storage/formal_file.h"
#include "storage/url_file.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace kestrine {

namespace {

// Path of a node's log file; false when it is too long for the system.
bool formDatPath(const std::string& nodePath, int32_t number, std::string& path) {
    path = names::datFile(names::join(nodePath, "A"), number);
    if (path.size() > g_maxPath) {
        LOG_ERROR("sprintf_n fail errno %d", errno);
        return false;
    }
    return true;
}

// A file that cannot be kept for inspection stays where it is.
void setAsideBroken(const std::string& path) {
    if (Util::dumpBrokenFile(path) != 0) {
        LOG_ERROR("dumpBrokenFile %s fail", path.c_str());
        return;
    }
    if (Util::removeBrokenFile(path) != 0) {
        LOG_ERROR("remove broken file %s fail", path.c_str());
    }
}

} // namespace

int UrlFileNewData::getDayStatusHaveNewData(const std::string& accountPath,
                                            std::vector<DayStatus>& out,
                                            const std::string& onlyDate) {
    out.clear();
    m_dayList.clear();
    m_datesInList.clear();
    if (getAllNews(accountPath, onlyDate) != 0) {
        return LOG_FAIL("getAllNews fail");
    }
    for (const DayStatus& status : m_dayList) {
        DayStatus due;
        if (selectDueNodes(status, due) != 0) {
            // All or none: what is due must not depend on which date failed.
            LOG_ERROR("have new data fail");
            out.clear();
            return -1;
        }
        if (!due.entries().empty()) {
            out.push_back(std::move(due));
        }
    }
    std::sort(out.begin(), out.end(),
              [](const DayStatus& a, const DayStatus& b) { return a.date() < b.date(); });
    return 0;
}

int UrlFileNewData::selectDueNodes(const DayStatus& status, DayStatus& due) const {
    // It goes with the positions: if the highest number is another when they are written, they are
    // not used.
    due.setNewCounter(status.newCounter());
    for (const NodeEntry& node : status.entries()) {
        const int result = haveNewData(node.path, node.fileNumber);
        if (result < 0) {
            return -1;
        }
        if (result == 1) {
            due.entries().push_back(node);
        }
    }
    std::sort(due.entries().begin(), due.entries().end(),
              [](const NodeEntry& a, const NodeEntry& b) { return a.path < b.path; });
    return 0;
}

int UrlFileNewData::haveNewData(const std::string& nodePath) {
    if (nodePath.empty()) {
        return LOG_FAIL("param null");
    }
    const std::string datePath(names::parentOf(nodePath));
    // A date without any node is not looked at again for the next device either.
    if (!m_datesInList.insert(names::getDateOfPath(datePath)).second) {
        return 0;
    }
    if (addNewNode(datePath) != 0) {
        return LOG_FAIL("addNewNode fail");
    }
    return 0;
}

int UrlFileNewData::haveNewData(const std::string& nodePath, int32_t fileNumber) const {
    if (fileNumber == std::numeric_limits<int32_t>::max()) {
        return 0;
    }
    return isLogFileDue(names::typeDir(nodePath), fileNumber + 1, m_configuration.settleTime());
}

int UrlFileNewData::addNewNode(const std::string& datePath) {
    std::string path;
    if (getDaycrcsortPath(datePath, path) != 0) {
        return LOG_FAIL("getDaycrcsortPath from %s fail", datePath.c_str());
    }
    const std::string dayDir(names::parentOf(path));
    DayStatus status;
    std::unique_ptr<UrlFile> day;
    bool fellBack = false;
    if (openFormal(periodFiles(dayDir, Period::Day), Period::Day, day, &fellBack) < 0) {
        return LOG_FAIL("updateDayStatusIfHaveNewData %s fail", path.c_str());
    }
    if (day) {
        status = *day->dayStatus();
    }
    // Closed: the day file may be set aside or replaced later in the pass.
    day.reset();
    const int32_t held = status.newCounter();
    const std::string newDir =
        names::newDayDir(names::parentOf(dayDir), names::lastComponent(dayDir));
    if (updateDayStatusFromNew(newDir, status) != 0) {
        return LOG_FAIL("updateDayStatusFromNew %s fail", newDir.c_str());
    }
    if (fellBack && status.newCounter() != held) {
        // What waits may follow what the day file held before: that must be settled first.
        return LOG_FAIL("day file of %s fell back", datePath.c_str());
    }
    if (updateFromDatFile(datePath, status) != 0) {
        return LOG_FAIL("updateFromDatFile %s fail", datePath.c_str());
    }
    if (resumeBehindLoss(datePath, newDir, status) != 0) {
        return LOG_FAIL("resumeBehindLoss %s fail", datePath.c_str());
    }
    if (status.entries().empty()) {
        LOG_INFO("cannot find any dat file for date %s", datePath.c_str());
        return 0;
    }
    // Found here, not after all the logs were read: such a status is refused when it is written.
    if (status.writtenSize() > g_statusFrameSize + g_maxStatusLength) {
        LOG_ERROR("%d devices of date %s do not fit into a status, it is left out",
                  static_cast<int>(status.entries().size()), datePath.c_str());
        return 0;
    }
    m_dayList.push_back(std::move(status));
    return 0;
}

int UrlFileNewData::getDaycrcsortPath(const std::string& datePath, std::string& path) const {
    const std::string account = names::accountOfNode(datePath);
    const std::string_view date = names::lastComponent(datePath);
    if (account.empty() || date.empty()) {
        return LOG_FAIL("%s invalid", datePath.c_str());
    }
    const std::string accountDir = names::accountDir(m_configuration.urlStatRoot(), account);
    path = names::formalFile(names::dayDir(accountDir, date), Period::Day);
    return 0;
}

// Brings `status` forward by what a new-day file's trailer says.
int UrlFileNewData::updateDayStatus(const std::string& path, DayStatus& status) const {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    const int result = file.readStatus(g_dayStatusType);
    // Closed before a damaged file is moved.
    if (file.close() != 0) {
        LOG_ERROR("close %s fail", path.c_str());
    }
    // Its logs are read again, if they are there. The call fails all the same: what waits behind it
    // must be settled first.
    if (file.broken()) {
        setAsideBroken(path);
    }
    const DayStatus* stored = file.dayStatus();
    if (result != 0 || stored == nullptr) {
        return LOG_FAIL("read status from %s fail", path.c_str());
    }
    status.setNewCounter(std::max(status.newCounter(), names::newDayNumber(path)));
    for (const NodeEntry& entry : stored->entries()) {
        status.updateIfNewer(entry);
    }
    return 0;
}

int UrlFileNewData::updateDayStatusFromNew(const std::string& newDayDirectory,
                                           DayStatus& status) const {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(newDayDirectory, files) != 0) {
        return LOG_FAIL("getDaycrcsortNews %s fail", newDayDirectory.c_str());
    }
    // The day file holds all up to its counter; those files stay until the month is complete.
    const int32_t held = status.newCounter();
    for (const std::string& file : files) {
        if (names::newDayNumber(file) > held && updateDayStatus(file, status) != 0) {
            return LOG_FAIL("updateDayStatusIfHaveNewData %s fail", file.c_str());
        }
    }
    return 0;
}

int UrlFileNewData::updateFromDatFile(const std::string& datePath, DayStatus& status) const {
    const std::string account(names::parentOf(names::parentOf(datePath)));
    const std::string date(names::lastComponent(datePath));
    const auto visitor = [&](const std::string& path, uint32_t attributes) {
        return devicePathCallBack(path, attributes, date, status);
    };
    if (Util::tranverse(account, visitor) != 0) {
        return LOG_FAIL("tranverse %s to get device fail", account.c_str());
    }
    return 0;
}

// When week or month file know more of the date than its own files do, these have lost positions,
// and the logs up to them may be gone: they were counted. Then no file would ever follow the
// position that is left; the node goes on with the first file that is there.
int UrlFileNewData::resumeBehindLoss(const std::string& datePath,
                                     const std::string& newDayDirectory, DayStatus& status) const {
    const std::string date(names::lastComponent(datePath));
    int32_t known = -1;
    if (highestNumberKnown(names::accountDirOfNewDayDir(newDayDirectory), date, known) != 0) {
        return -1;
    }
    // Nothing is lost. A hole in the numbers of the logs is then waited out: a file may be late.
    if (known <= status.newCounter()) {
        return 0;
    }
    const std::string account(names::parentOf(names::parentOf(datePath)));
    return Util::tranverse(account, [&](const std::string& path, uint32_t attributes) {
        const bool device =
            (attributes & g_attributeDirectory) != 0 &&
            names::lastComponent(path).find(names::g_devicePrefix) != std::string_view::npos;
        return device ? resumeNode(names::join(path, date), status) : 0;
    });
}

int UrlFileNewData::resumeNode(const std::string& nodePath, DayStatus& status) const {
    const NodeEntry* const entry = status.findEntry(nodePath);
    const int32_t reached = entry == nullptr ? -1 : entry->fileNumber;
    const std::string typeDirectory = names::typeDir(nodePath);
    int32_t first = -1;
    if (firstLogFileAbove(typeDirectory, reached, first) != 0) {
        return -1;
    }
    if (first >= 0 && first - 1 > reached) {
        LOG_INFO("files %d to %d of %s are gone, go on with the next", reached + 1, first - 1,
                 nodePath.c_str());
        // As if the last of the missing ones had been read.
        status.updateIfNewer({nodePath, first - 1, 0});
    }
    return 0;
}

int UrlFileNewData::devicePathCallBack(const std::string& path, uint32_t attributes,
                                       const std::string& date, DayStatus& status) const {
    const bool isDirectory = (attributes & g_attributeDirectory) != 0;
    if (!isDirectory ||
        names::lastComponent(path).find(names::g_devicePrefix) == std::string_view::npos) {
        return 0;
    }
    const std::string nodePath = names::join(path, date);
    if (status.findEntry(nodePath) != nullptr) {
        return 0;
    }
    std::string datPath;
    // A node whose files cannot be named cannot be counted; it does not stop the others.
    if (formDatPath(nodePath, 0, datPath) && platform().exists(datPath)) {
        status.entries().push_back(NodeEntry{nodePath, -1, 0});
    }
    return 0;
}

} // namespace kestrine
