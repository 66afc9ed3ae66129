// How far the log data is counted, and what of it waits.
#pragma once

#include "platform/platform.h"
#include "session.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrine::viewer {

// A node of the log data. Its log files wait whose numbers are above the last counted one; what is
// appended to that one is not read any more, so it does not wait. Or, without a device, a date's
// new-day files: all that are there, since they go when day, week and month file hold them.
struct BacklogRow {
    std::string account;
    std::string device; // the directory's name
    std::string date;   // "20240305"
    std::optional<int32_t> countedUpTo;
    uint64_t waitingFiles = 0;
    uint64_t waitingBytes = 0;
    std::optional<int64_t> oldestSeconds; // since the oldest that waits was changed
    uint64_t newDayFiles = 0;
    // Which do not wait yet: a node's newest one, while it has not rested for the `settleTime`.
    uint64_t settlingFiles = 0;

    [[nodiscard]] bool waits() const {
        return waitingFiles > 0 || newDayFiles > 0 || settlingFiles > 0;
    }
};

struct Backlog {
    // HeldByAnother: a service runs on these statistics. Locked: none does. Others: not known.
    LockResult service = LockResult::Failed;
    std::vector<BacklogRow> rows;           // by account, date, device, the date's own one last
    std::map<std::string, uint64_t> visits; // in each account's month files
    std::vector<std::string> problems;      // statistics that could not be read
};

// Accounts are the directories of the log data that hold devices, and those of the statistics;
// those that the command line names, or all. Rows of dates without log data are wanted `all`, or
// only where new-day files wait. Throws Failure when log data cannot be listed or is not known.
[[nodiscard]] Backlog readBacklog(Session& session, bool all);

// In the text format that monitoring takes up from a file: sums over dates, so that series do not
// grow in number.
[[nodiscard]] std::string prometheusText(const Backlog& backlog);

} // namespace kestrine::viewer
