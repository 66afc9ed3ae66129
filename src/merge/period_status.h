// The status of a merge into a day, week or month file: which inputs its current file holds already
// and which it will hold.
//
// New-day files stay on disk until the month stage deletes them, and after a kill any of them may
// still be there. What a day, week or month file holds of a date is recorded in its status as one
// number, the highest new-day number folded in; files up to that number never take part again.
#pragma once

#include "merge/merge_files.h"
#include "storage/status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

// Opens `source`, the current file, as the first input, and drops from `paths` the new-day files
// that it holds already. There need not be a day file; week and month files are opened only if
// there is something to bring them forward with. 0 or -1.
[[nodiscard]] int openSource(MergeFiles& files, const std::string& source,
                             std::vector<std::string>& paths, DayStatus& status);
[[nodiscard]] int openSource(MergeFiles& files, const std::string& source,
                             std::vector<std::string>& paths, WeekMonStatus& status);
// Takes in the new-day files of the given paths, which are the open inputs or were merged into
// them. 0 or -1.
[[nodiscard]] int combine(MergeFiles& files, const std::vector<std::string>& paths,
                          const std::string& finalPath, DayStatus& status);
[[nodiscard]] int combine(MergeFiles& files, const std::vector<std::string>& paths,
                          const std::string& finalPath, WeekMonStatus& status);

// For every node the highest file number seen in the inputs, for the counter the highest. 0 or -1.
[[nodiscard]] int getNewDayStatus(const std::vector<UrlFile*>& inputs, DayStatus& status);
// A file built from day files holds what these hold: each date's counter comes from its day file's
// trailer. `openFiles` as in merge_files.h. 0 or -1, a damaged day file given up for its backup.
[[nodiscard]] int takeDayCounters(const std::vector<std::string>& dayFiles, int32_t& openFiles,
                                  WeekMonStatus& status);

} // namespace kestrine
