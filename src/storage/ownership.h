// Whose file is it: a status names the account and the dates of what its file holds, so that a file
// that was put in another's place (a restore gone wrong) shows.
#pragma once

#include "storage/status.h"

#include <string_view>

namespace kestrine {

// Every entry of a day status is a node DATA/ACCOUNT/devid_N/DATE of this account and date. The
// data path itself may have moved. False for a status without entries.
[[nodiscard]] bool belongsToDay(const DayStatus& status, std::string_view account,
                                std::string_view date);
// Every entry of a week or month status is a directory ROOT/ACCOUNT/new/DATE of this account with a
// calendar date from `begin` to `end`, held up to a number that a new-day file can have.
[[nodiscard]] bool belongsToPeriod(const WeekMonStatus& status, std::string_view account,
                                   std::string_view begin, std::string_view end);

} // namespace kestrine
