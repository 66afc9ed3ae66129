#include "merge/period_fit.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "storage/formal_file.h"
#include "storage/verify.h"
#include "tree/listing.h"
#include "tree/names.h"
#include "tree/quarantine.h"

namespace kestrine {

int PeriodState::read(const std::string& accountDir, const std::vector<std::string>& dates) {
    m_dates.clear();
    for (const std::string& date : dates) {
        Date& state = m_dates[date];
        const PeriodFiles day = periodFiles(names::dayDir(accountDir, date), Period::Day);
        std::unique_ptr<UrlFile> file;
        // A date without a day file keeps counter -1: nothing of it can be missing.
        const int ret = openFormal(day, Period::Day, file);
        if (ret < 0) {
            return LOG_FAIL("read status of %s fail", day.formal.c_str());
        }
        if (ret == 0) {
            state.dayFile = day.formal;
            state.counter = file->dayStatus()->newCounter();
            state.total = file->dayStatus()->totalCount();
        }
        if (const int waiting = readWaiting(names::newDayDir(accountDir, date), state);
            waiting != 0) {
            return waiting;
        }
    }
    return 0;
}

int PeriodState::readWaiting(const std::string& newDayDirectory, Date& state) {
    std::vector<std::string> files;
    if (Util::getDaycrcsortNews(newDayDirectory, files) != 0) {
        return LOG_FAIL("getDaycrcsortNews from %s fail", newDayDirectory.c_str());
    }
    for (const std::string& path : files) {
        UrlFile file;
        if (file.open(path, OpenMode::Read) != 0 || file.readStatus(g_dayStatusType) != 0) {
            LOG_ERROR("read status from %s fail", path.c_str());
            // Closed before it is moved; an error moves nothing.
            if (!file.broken() || file.close() != 0) {
                return -1;
            }
            return Util::dumpBrokenFile(path) == 0 ? 1 : -1;
        }
        state.waiting[names::newDayNumber(path)] = {path, file.statusTotal()};
    }
    return 0;
}

bool PeriodState::fits(const WeekMonStatus& status) const {
    uint64_t total = 0;
    for (const auto& [name, date] : m_dates) {
        // A date that was removed asks for nothing: what the file holds of it stays.
        const int32_t held = status.counterOfDate(name);
        if (!date.dayFile.empty()) {
            if (!allWait(date, held)) {
                return false;
            }
            total += totalUpTo(date, held);
        }
    }
    return static_cast<uint64_t>(status.totalCount()) >= total;
}

bool PeriodState::allWait(const Date& date, int32_t held) {
    for (int32_t number = held + 1; number <= date.counter; ++number) {
        if (!date.waiting.contains(number)) {
            return false;
        }
    }
    return true;
}

// Visits of a date in its new-day files up to a number, by the day file and those that wait.
uint64_t PeriodState::totalUpTo(const Date& date, int32_t held) {
    // Totals that contradict each other wrap to a number that no file reaches: it is counted anew.
    uint64_t total = date.total;
    for (const auto& [number, file] : date.waiting) {
        if (number > date.counter && number <= held) {
            total += file.total;
        } else if (number <= date.counter && number > held) {
            total -= file.total;
        }
    }
    return total;
}

uint64_t PeriodState::waitingTotal(const WeekMonStatus& status) const {
    uint64_t total = 0;
    for (const auto& [name, date] : m_dates) {
        for (auto file = date.waiting.upper_bound(status.counterOfDate(name));
             file != date.waiting.end(); ++file) {
            total += file->second.total;
        }
    }
    return total;
}

std::string PeriodState::datesKnownBetter(const WeekMonStatus& status) const {
    std::string list;
    for (const DateEntry& entry : status.entries()) {
        const std::string name(names::lastComponent(entry.path));
        const auto date = m_dates.find(name);
        int32_t reached = -1;
        if (date != m_dates.end()) {
            const auto& waiting = date->second.waiting;
            // What waits may lie below the day file's counter, since only the month stage deletes
            // it.
            reached = waiting.empty() ? date->second.counter
                                      : std::max(date->second.counter, waiting.rbegin()->first);
        }
        if (entry.counter > reached) {
            list += (list.empty() ? "" : ", ") + name;
        }
    }
    return list;
}

std::vector<std::string> PeriodState::dayFiles() const {
    std::vector<std::string> files;
    for (const auto& [name, date] : m_dates) {
        if (!date.dayFile.empty()) {
            files.push_back(date.dayFile);
        }
    }
    return files;
}

std::vector<std::string> PeriodState::waitingFiles() const {
    std::vector<std::string> files;
    for (const auto& [name, date] : m_dates) {
        for (const auto& [number, file] : date.waiting) {
            files.push_back(file.path);
        }
    }
    return files;
}

std::vector<std::string> PeriodState::waitingFiles(const WeekMonStatus& status) const {
    std::vector<std::string> files;
    for (const auto& [name, date] : m_dates) {
        for (auto file = date.waiting.upper_bound(status.counterOfDate(name));
             file != date.waiting.end(); ++file) {
            files.push_back(file->second.path);
        }
    }
    return files;
}

namespace {

// A file read record by record.
struct RecordStream {
    explicit RecordStream(const std::string& path)
        : m_opened(m_file.open(path, OpenMode::Read) == 0 &&
                   m_file.readStatus(g_weekMonStatusType) == 0) {}

    // 0, 1 at the end, 2 damaged, -1.
    [[nodiscard]] int next() {
        const int ret = m_opened ? m_reader.readOneRecord(m_record) : -1;
        return ret < 0 && m_file.broken() ? 2 : ret;
    }
    [[nodiscard]] const UrlRecordView& record() const { return m_record; }

private:
    UrlFile m_file;
    bool m_opened;
    VerifyingReader m_reader{m_file};
    UrlRecordView m_record;
};

} // namespace

int holdsAtLeast(const std::string& candidate, const std::string& current) {
    // Keys ascend in both, which the streams verify, so that one walk is enough.
    RecordStream mine(candidate);
    RecordStream theirs(current);
    int ret = 0;
    while ((ret = theirs.next()) == 0) {
        if (stopRequested()) {
            return 3;
        }
        int found = mine.next();
        while (found == 0 && mine.record().key < theirs.record().key) {
            found = mine.next();
        }
        // The candidate was just written: damage in it is a failure of this pass, and nothing is
        // replaced.
        if (found < 0 || found == 2) {
            return LOG_FAIL("read %s fail", candidate.c_str());
        }
        if (found == 1 || mine.record().key != theirs.record().key ||
            mine.record().count < theirs.record().count) {
            return 0;
        }
    }
    if (ret < 0) {
        return LOG_FAIL("read %s fail", current.c_str());
    }
    return ret == 2 ? 2 : 1;
}

} // namespace kestrine
