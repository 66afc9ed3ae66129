#include "merge/merge_pruning.h"

#include "frame/log.h"
#include "tree/names.h"

#include <algorithm>

namespace kestrine {

void removeOldPathForDaycrcsort(const DayStatus& status, std::vector<std::string>& newFiles) {
    std::erase_if(newFiles, [&status](const std::string& path) {
        return names::newDayNumber(path) <= status.newCounter();
    });
}

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

int updateDayNewCounter(const std::vector<std::string>& newFiles, DayStatus& status) {
    for (const std::string& path : newFiles) {
        const int32_t number = names::newDayNumber(path);
        if (number < 0 || path.find('/') == std::string::npos) {
            return LOG_FAIL("path %s invalid", path.c_str());
        }
        if (number > status.newCounter()) {
            status.setNewCounter(number);
        }
    }
    return 0;
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
        entry->path = datePath;
        entry->counter = number;
    }
}

} // namespace kestrine
