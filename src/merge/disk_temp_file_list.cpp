#include "merge/disk_temp_file_list.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/date_ledger.h"
#include "merge/merge_file_list.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cerrno>

namespace kestrine {

void DiskTempFileList::add(const std::string& path, const DayStatus& status) {
    auto found = std::ranges::find_if(
        m_items, [&status](const Item& item) { return item.status.date() == status.date(); });
    if (found == m_items.end()) {
        found = m_items.emplace(m_items.end());
        found->status.setNewCounter(-1);
        // Of the first status: those that follow in a pass are the same one, moved forward.
        found->used = status.newCounter();
    }
    Item& item = *found;
    for (const NodeEntry& entry : status.entries()) {
        item.status.updateIfNewer(entry);
    }
    item.paths.push_back(path);
}

int DiskTempFileList::mergeDiskTempFile() {
    while (!m_items.empty()) {
        const int ret = mergeItem(m_items.front());
        if (ret != 0) {
            return ret;
        }
        m_items.erase(m_items.begin());
    }
    return 0;
}

int DiskTempFileList::mergeItem(Item& item) {
    std::string directory;
    if (getCrcsortPath(&item, directory) != 0) {
        return LOG_FAIL("getCrcsortPath fail");
    }
    if (Util::createDir(directory + "/") != 0) {
        return LOG_FAIL("create dir %s fail", directory.c_str());
    }
    LOG_DEBUG("directory of daycrcsort %s", directory.c_str());
    int32_t counter = -1;
    const int numbered = getNextNewCounter(directory, item.used, counter);
    if (numbered < 0) {
        return LOG_FAIL("getNextNewCounter fail");
    }
    // A position from before the change may lie behind logs that must be read again.
    if (numbered > 0) {
        LOG_ERROR("files of %s have changed while its logs were read, they are read again",
                  directory.c_str());
        return removeAllDiskTempFIles(item);
    }
    // In its own trailer, too, so that a merge which combines trailers finds it there.
    item.status.setNewCounter(counter);
    LOG_DEBUG("next new counter is %d", counter);
    const std::string newFile = names::newDayFile(directory, counter);
    if (newFile.size() > g_maxPath) {
        return LOG_FAIL("sprintf_n fail errno %d", errno);
    }
    std::vector<std::string> inputs = item.paths;
    // Statuses that came without a file have given their positions already.
    std::erase(inputs, std::string());
    MergeFileList merge;
    const int ret = merge.mergeTemp2New(inputs, item.status, newFile);
    if (ret != 0) {
        return ret < 0 ? LOG_FAIL("merge temp to new fail") : ret;
    }
    // The visits count by now. Files that stay are removed at the next start and never merged
    // again.
    return removeAllDiskTempFIles(item) == 0 ? 0 : LOG_FAIL("removeAllDiskTempFIles fail");
}

int DiskTempFileList::getNextNewCounter(const std::string& directory, int32_t used,
                                        int32_t& counter) {
    DateLedger ledger;
    if (ledger.read(names::accountDirOfNewDayDir(directory),
                    std::string(names::lastComponent(directory))) != 0) {
        return LOG_FAIL("getNextNewCounterFromNew from %s fail", directory.c_str());
    }
    if (ledger.reached() != used) {
        return 1;
    }
    const int64_t next = ledger.next();
    // None is used twice: merges would take the second content for the first.
    if (next > g_lastNewDayNumber) {
        return LOG_FAIL("no new-day number is left for %s", directory.c_str());
    }
    counter = static_cast<int32_t>(next);
    return 0;
}

// ROOT/ACCOUNT/new/DATE of the item's nodes.
int DiskTempFileList::getCrcsortPath(const Item* item, std::string& directory) const {
    if (item == nullptr || item->status.entries().empty()) {
        return LOG_FAIL("param null");
    }
    const std::string account = names::accountOfNode(item->status.entries().front().path);
    directory = names::newDayDir(names::accountDir(m_configuration.urlStatRoot(), account),
                                 names::dateText(item->status.date()));
    return 0;
}

int DiskTempFileList::removeAllDiskTempFIles(const Item& item) {
    std::string directory;
    for (const std::string& path : item.paths) {
        if (path.empty()) {
            LOG_INFO("this date have no dat files having url, continue");
            continue;
        }
        if (platform().removeFile(path) != 0) {
            return LOG_FAIL("remove %s fail errno %d", path.c_str(), errno);
        }
        directory = names::parentOf(path);
    }
    if (directory.empty()) {
        LOG_INFO("this date have no dat files having url, return");
    } else if (platform().removeDirectory(directory) != 0) {
        LOG_INFO("rmdir %s fail errno %d, but ignore it", directory.c_str(), errno);
    }
    return 0;
}

void DiskTempFileList::dropDate(int32_t date) {
    // Positions go with the files: neither may be handed on without the other.
    std::erase_if(m_items, [date](const Item& item) {
        if (item.status.date() != date) {
            return false;
        }
        if (removeAllDiskTempFIles(item) != 0) {
            LOG_ERROR("removeAllDiskTempFIles fail");
        }
        return true;
    });
}

} // namespace kestrine
