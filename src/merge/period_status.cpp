#include "merge/period_status.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

namespace {

// Drops the new-day files whose number is not above the day status' new counter.
void removeOldPathForDaycrcsort(const DayStatus& status, std::vector<std::string>& newFiles) {
    std::erase_if(newFiles, [&status](const std::string& path) {
        return names::newDayNumber(path) <= status.newCounter();
    });
}

// Drops those whose number is not above the counter recorded for their date.
void removeOldPathForWeekMon(WeekMonStatus& status, std::vector<std::string>& newFiles) {
    for (status.moveFirst(); !status.atEnd(); status.moveNextAfter()) {
        const std::string datePath = status.getNewPath();
        const int32_t counter = status.getNewCounter();
        LOG_DEBUG("week month new path %s", datePath.c_str());
        const std::string_view date = names::lastComponent(datePath);
        std::erase_if(newFiles, [date, counter](const std::string& path) {
            return names::lastComponent(names::parentOf(path)) == date &&
                   names::newDayNumber(path) <= counter;
        });
    }
}

// The highest number of the files becomes the status' new counter.
int updateDayNewCounter(const std::vector<std::string>& newFiles, DayStatus& status) {
    for (const std::string& path : newFiles) {
        const int32_t number = names::newDayNumber(path);
        if (number < 0 || path.find('/') == std::string::npos) {
            return LOG_FAIL("path %s invalid", path.c_str());
        }
        status.setNewCounter(std::max(status.newCounter(), number));
    }
    return 0;
}

// The file of this number, of the date whose "new" directory is given, was folded in.
void updateWeekMonStatusIFNewer(WeekMonStatus& status, const std::string& datePath,
                                int32_t number) {
    LOG_DEBUG("datePath %s num %d", datePath.c_str(), number);
    std::vector<DateEntry>& entries = status.entries();
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const DateEntry& e) {
        return names::lastComponent(e.path) == names::lastComponent(datePath);
    });
    if (entry == entries.end()) {
        entries.push_back({datePath, number});
    } else if (number > entry->counter) {
        LOG_DEBUG("%s update", datePath.c_str());
        // The path as well, which may have been written before the tree was moved.
        *entry = {datePath, number};
    }
}

int updateWeekMonStatus(const std::vector<std::string>& newFiles, WeekMonStatus& status) {
    for (const std::string& path : newFiles) {
        const int32_t number = names::newDayNumber(path);
        if (number < 0) {
            return LOG_FAIL("path %s invalid", path.c_str());
        }
        updateWeekMonStatusIFNewer(status, std::string(names::parentOf(path)), number);
    }
    return 0;
}

} // namespace

int openSource(MergeFiles& files, const std::string& source, std::vector<std::string>& paths,
               DayStatus&) {
    if (!platform().exists(source)) {
        return 0;
    }
    if (files.openSource(source, g_dayStatusType) != 0) {
        return -1;
    }
    const DayStatus& current = *files.inputs().front()->dayStatus(); // combined with the others
    LOG_DEBUG("src daycrcsort %s exist, status:", source.c_str());
    current.print();
    removeOldPathForDaycrcsort(current, paths);
    return 0;
}

int openSource(MergeFiles& files, const std::string& source, std::vector<std::string>& paths,
               WeekMonStatus& status) {
    if (paths.empty()) {
        return 0;
    }
    if (files.openSource(source, g_weekMonStatusType) != 0) {
        return -1;
    }
    status = *files.inputs().front()->weekMonStatus();
    removeOldPathForWeekMon(status, paths);
    return 0;
}

int combine(MergeFiles& files, const std::vector<std::string>& paths, const std::string& finalPath,
            DayStatus& status) {
    if (getNewDayStatus(files.inputs(), status) != 0) {
        return LOG_FAIL("getNewDayStatus fail %s", finalPath.c_str());
    }
    return updateDayNewCounter(paths, status) == 0
               ? 0
               : LOG_FAIL("updateDayNewCounter fail %s", finalPath.c_str());
}

int combine(MergeFiles&, const std::vector<std::string>& paths, const std::string& finalPath,
            WeekMonStatus& status) {
    return updateWeekMonStatus(paths, status) == 0
               ? 0
               : LOG_FAIL("updateNewCounter fail %s", finalPath.c_str());
}

int getNewDayStatus(const std::vector<UrlFile*>& inputs, DayStatus& status) {
    for (UrlFile* const file : inputs) {
        const DayStatus* const input = file->dayStatus();
        if (input == nullptr) {
            return LOG_FAIL("param null");
        }
        for (const NodeEntry& entry : input->entries()) {
            status.updateIfNewer(entry);
        }
        status.setNewCounter(std::max(status.newCounter(), input->newCounter()));
    }
    return 0;
}

int takeDayCounters(const std::vector<std::string>& dayFiles, int32_t& openFiles,
                    WeekMonStatus& status) {
    for (const std::string& path : dayFiles) {
        // One at a time, closed before the next: they are opened again, as inputs, in as many as
        // may be.
        MergeFiles day(openFiles);
        if (day.openSource(path, g_dayStatusType) != 0) {
            return -1;
        }
        const std::string_view directory = names::parentOf(path);
        updateWeekMonStatusIFNewer(
            status, names::newDayDir(names::parentOf(directory), names::lastComponent(directory)),
            day.inputs().front()->dayStatus()->newCounter());
    }
    return 0;
}

} // namespace kestrine
