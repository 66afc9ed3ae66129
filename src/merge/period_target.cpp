#include "merge/period_target.h"

#include "frame/log.h"
#include "merge/merge_pruning.h"
#include "platform/platform.h"
#include "tree/names.h"

namespace kestrine {

int getNewDayStatus(const std::vector<UrlFile*>& inputs, DayStatus& status) {
    for (UrlFile* const file : inputs) {
        const DayStatus* const input = file->dayStatus();
        if (input == nullptr) {
            return LOG_FAIL("param null");
        }
        for (const NodeEntry& entry : input->entries()) {
            status.updateIfNewer(entry);
        }
        if (input->newCounter() > status.newCounter()) {
            status.setNewCounter(input->newCounter());
        }
    }
    return 0;
}

int DayTarget::openSource(MergeFiles& files, const std::string& source,
                          std::vector<std::string>& paths) {
    if (!platform().exists(source)) {
        return 0;
    }
    if (files.openSource(source, g_dayStatusType) != 0) {
        return -1;
    }
    const DayStatus& current = *files.inputs().front()->dayStatus();
    LOG_DEBUG("src daycrcsort %s exist, status:", source.c_str());
    current.print();
    removeOldPathForDaycrcsort(current, paths);
    return 0;
}

int DayTarget::combine(const std::vector<UrlFile*>& inputs, const std::vector<std::string>& paths,
                       const std::string& finalPath) {
    if (getNewDayStatus(inputs, m_status) != 0) {
        return LOG_FAIL("getNewDayStatus fail %s", finalPath.c_str());
    }
    if (updateDayNewCounter(paths, m_status) != 0) {
        return LOG_FAIL("updateDayNewCounter fail %s", finalPath.c_str());
    }
    return 0;
}

int DayTarget::writeStatus(UrlFile& output) {
    m_status.setTotalCount(output.totalCount());
    return output.writeStatus(m_status);
}

int WeekMonTarget::openSource(MergeFiles& files, const std::string& source,
                              std::vector<std::string>& paths) {
    if (paths.empty()) {
        return 0; // nothing to bring it forward with
    }
    if (files.openSource(source, g_weekMonStatusType) != 0) {
        return -1;
    }
    m_status = *files.inputs().front()->weekMonStatus();
    removeOldPathForWeekMon(m_status, paths);
    return 0;
}

int WeekMonTarget::combine(const std::vector<UrlFile*>&, const std::vector<std::string>& paths,
                           const std::string& finalPath) {
    if (updateWeekMonStatus(paths, m_status) != 0) {
        return LOG_FAIL("updateNewCounter fail %s", finalPath.c_str());
    }
    return 0;
}

int WeekMonTarget::writeStatus(UrlFile& output) {
    m_status.setTotalCount(static_cast<int64_t>(output.totalCount()));
    return output.writeStatus(m_status);
}

int RebuiltTarget::openSource(MergeFiles&, const std::string& source,
                              std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        MergeFiles day(m_openFiles);
        if (day.openSource(path, g_dayStatusType) != 0) {
            return LOG_FAIL("updateNewCounter fail %s", source.c_str());
        }
        const std::string_view directory = names::parentOf(path);
        updateWeekMonStatusIFNewer(
            m_status, names::newDayDir(names::parentOf(directory), names::lastComponent(directory)),
            day.inputs().front()->dayStatus()->newCounter());
    }
    return 0;
}

} // namespace kestrine
