#include "merge/date_ledger.h"

#include "frame/log.h"
#include "platform/platform.h"
#include "storage/formal_file.h"
#include "storage/url_file.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

#include <algorithm>

namespace kestrine {

int DateLedger::read(const std::string& accountDir, const std::string& date, bool* fellBack) {
    *this = DateLedger();
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(names::newDayDir(accountDir, date), files) != 0) {
        return -1;
    }
    for (const std::string& path : files) {
        m_waiting.emplace(names::newDayNumber(path), path);
    }
    const PeriodFiles day = periodFiles(names::dayDir(accountDir, date), Period::Day);
    std::unique_ptr<UrlFile> file;
    const int ret = openFormal(day, Period::Day, file, fellBack);
    if (ret < 0) {
        return LOG_FAIL("read status of %s fail", day.formal.c_str());
    }
    if (ret == 0) {
        m_dayStatus = *file->dayStatus();
    }
    // After the day file: one that fell back shows what week and month file know better.
    return highestNumberKnown(accountDir, date, m_known, fellBack);
}

std::vector<std::string> DateLedger::dueFiles() const {
    std::vector<std::string> files;
    for (const auto& [number, path] : due()) {
        files.push_back(path);
    }
    return files;
}

int32_t DateLedger::reached() const {
    const int32_t highest = m_waiting.empty() ? -1 : m_waiting.rbegin()->first;
    return std::max(highest, m_dayStatus.newCounter());
}

int64_t DateLedger::next() const {
    return m_known > reached() ? numberAcross(reached()) : int64_t{reached()} + 1;
}

// The number that follows `last` across what week and month file know. So many are left out that no
// number given in order is taken for it, and the distance says what the new one stands on, so that
// a later loss of `last` shows.
int64_t DateLedger::numberAcross(int32_t last) const {
    constexpr int64_t leftOut = 1000;
    return m_known + leftOut + (int64_t{last} + 1);
}

// The last number, of the day file or waiting, before the first gap; `reached` without one. What
// was left out on purpose is no gap.
int32_t DateLedger::lastBeforeGap() const {
    int32_t last = m_dayStatus.newCounter();
    for (const auto& [number, path] : due()) {
        const bool follows = number == last + 1;
        const bool leftOut = last < m_known && number == numberAcross(last);
        if (!follows && !leftOut) {
            return last;
        }
        last = number;
    }
    return last;
}

// 0; 1 when the file is damaged, which shows when it is merged; -1.
int DateLedger::addStatus(const std::string& path, DayStatus& status) const {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0 || file.readStatus(g_dayStatusType) != 0) {
        LOG_ERROR("read status from %s fail", path.c_str());
        return file.broken() ? 1 : -1;
    }
    for (const NodeEntry& entry : file.dayStatus()->entries()) {
        status.updateIfNewer(entry);
    }
    return 0;
}

// Whether every log file between the positions of the number `before` and those of the highest
// waiting one is still there. False, too, when they cannot be told.
int DateLedger::logsRemain(int32_t before, bool& remain) const {
    remain = false;
    DayStatus from = m_dayStatus;
    DayStatus to;
    for (const auto& [number, path] : due()) {
        // A damaged one leaves `remain` false: where logs cannot be told, nothing that can be read
        // is given up.
        if (const int ret = addStatus(path, number <= before ? from : to); ret != 0) {
            return ret < 0 ? -1 : 0;
        }
    }
    for (const NodeEntry& node : to.entries()) {
        const NodeEntry* const known = from.findEntry(node.path);
        const std::string type = names::typeDir(node.path);
        // All of them, the last included: positions name files that were read to their end.
        for (int32_t number = known == nullptr ? 0 : known->fileNumber + 1;
             number <= node.fileNumber; ++number) {
            if (!platform().exists(names::datFile(type, number))) {
                return 0;
            }
        }
    }
    remain = true;
    return 0;
}

int DateLedger::settleGap() {
    const int32_t last = lastBeforeGap();
    if (last == reached()) {
        return 0;
    }
    bool remain = false;
    if (logsRemain(last, remain) != 0) {
        return -1;
    }
    // Setting aside would lose visits that can be read, and nothing would replace them.
    if (!remain) {
        LOG_ERROR("new-day files between number %d and %s are missing, and not all of their logs "
                  "are there; what waits is merged without them",
                  last, m_waiting.upper_bound(last)->second.c_str());
        return 0;
    }
    // The highest goes first: after a kill the gap is still there.
    while (!m_waiting.empty() && m_waiting.rbegin()->first > last) {
        const std::string path = m_waiting.rbegin()->second;
        LOG_ERROR("%s waits beyond a gap, set aside, its logs are read again", path.c_str());
        if (Util::dumpBrokenFile(path) != 0) {
            return LOG_FAIL("dumpBrokenFile %s fail", path.c_str());
        }
        m_waiting.erase(std::prev(m_waiting.end()));
    }
    return 0;
}

} // namespace kestrine
