// What the files of one date know of its new-day files, and the number of the next one.
//
// A date's visits lie in its day file up to new-day number c (the counter of its status) and in the
// new-day files that wait above it. The week and the month file hold the date up to numbers of
// their own. In quiet times none of these is above c, and c and the waiting numbers have no gap.
//
// When a day file was lost or rolled back, week or month file know more than the date itself, and
// nobody can tell from the numbers whether the logs that are read next are among what they hold.
// Therefore about a thousand numbers are left out then: across that gap no file can be brought
// forward, so that week and month are counted anew from the day files and give way only to a result
// that holds at least as much (cycle/period_stage.h).
#pragma once

#include "storage/status.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrine {

class DateLedger {
public:
    // Reads the trailers of the date's day, week and month file and lists what waits. Damaged files
    // give way to their backups; `fellBack`, if given, is set then. 0 or -1.
    [[nodiscard]] int read(const std::string& accountDir, const std::string& date,
                           bool* fellBack = nullptr);

    // Waiting new-day files by number, those that the day file holds already among them.
    [[nodiscard]] const std::map<int32_t, std::string>& waiting() const { return m_waiting; }
    // Paths of the waiting files that the day file does not hold, ascending.
    [[nodiscard]] std::vector<std::string> dueFiles() const;
    // The highest number that the day file or a waiting file has, -1 for none.
    [[nodiscard]] int32_t reached() const;
    // The number of the next new-day file: above every number that any file knows, so that a number
    // never stands for two contents.
    [[nodiscard]] int64_t next() const;

    // Looks for numbers missing below a waiting one, as after the loss of a new-day file. What
    // waits beyond such a gap goes to quarantine if the logs of everything from the gap on are
    // still there, to be read again; otherwise it stays, since visits that can be read must not be
    // given up for others that cannot. 0 or -1. A kill leaves the gap for the next time.
    [[nodiscard]] int settleGap();

private:
    // What waits above the day file's counter.
    [[nodiscard]] std::map<int32_t, std::string> due() const {
        return {m_waiting.upper_bound(m_dayStatus.newCounter()), m_waiting.end()};
    }
    [[nodiscard]] int64_t numberAcross(int32_t last) const;
    [[nodiscard]] int32_t lastBeforeGap() const;
    [[nodiscard]] int logsRemain(int32_t before, bool& remain) const;
    [[nodiscard]] int addStatus(const std::string& path, DayStatus& status) const;

    DayStatus m_dayStatus;                    // its counter is -1 without a day file
    int32_t m_known = -1;                     // highest number in week and month file
    std::map<int32_t, std::string> m_waiting; // paths by number
};

} // namespace kestrine
