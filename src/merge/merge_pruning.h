// Which new-day files a merge leaves out because its target holds them already.
//
// New-day files stay on disk until the month stage deletes them, and after a kill any of them may
// still be there. What a day, week or month file holds of a date is recorded in its status as one
// number, the highest new-day number folded in; files up to that number never take part again.
#pragma once

#include "storage/status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

// Drops the new-day files whose number is not above the day status' new counter.
void removeOldPathForDaycrcsort(const DayStatus& status, std::vector<std::string>& newFiles);
// Drops those whose number is not above the counter recorded for their date.
void removeOldPathForWeekMon(WeekMonStatus& status, std::vector<std::string>& newFiles);
// The highest number of the files becomes the status' new counter. 0, or -1 for a path that is none
// of a new-day file.
[[nodiscard]] int updateDayNewCounter(const std::vector<std::string>& newFiles, DayStatus& status);
// The same for week and month: every file is recorded by its date and number.
[[nodiscard]] int updateWeekMonStatus(const std::vector<std::string>& newFiles,
                                      WeekMonStatus& status);
// Records that the file of this number, of the date whose "new" directory is given, was folded in.
void updateWeekMonStatusIFNewer(WeekMonStatus& status, const std::string& datePath, int32_t number);

} // namespace kestrine
