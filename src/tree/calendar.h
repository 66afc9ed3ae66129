// Weeks (Sunday to Saturday) and months by calendar arithmetic, independent of clocks and time
// zones.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

// First and last date of the week or month that holds the date at the end of the path. -1 when that
// is no date of the calendar.
[[nodiscard]] int getDateOfCurrentWeek(std::string_view path, std::string& begin, std::string& end);
[[nodiscard]] int getDateOfCurrentMon(std::string_view path, std::string& begin, std::string& end);

namespace Util {

// Moves the first path's whole week (or month) from the front of `paths` to `group`, whose content
// is replaced. `paths` holds date-directory paths of real calendar dates in ascending order and is
// not empty. `begin` and `end` are the period's first and last date.
[[nodiscard]] int getNextWeekFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                                   std::string& begin, std::string& end);
[[nodiscard]] int getNexMonFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                                 std::string& begin, std::string& end);

} // namespace Util
} // namespace kestrine
