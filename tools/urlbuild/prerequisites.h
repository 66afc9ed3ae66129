// What must be settled or done before a unit may begin. Units of the same account work side by
// side, each on files of its own, and read those of others; so what another unit would have to
// repair or to do first is only looked at here, and left to it. All of these throw `notNow`, and
// Failure when something cannot be read.
#pragma once

#include "installation.h"

#include <string>

namespace kestrine::build {

// The week and the month file of a date can be read, so that nobody who works on a date of them
// finds anything to repair.
void requireReadablePeriods(const Account& account, const std::string& date);
// Of every date from `begin` to `end` the day file holds all new-day files.
void requireDays(const Account& account, const std::string& begin, const std::string& end);
// The week files hold all new-day files of these dates, which may go then.
void requireWeeks(const Account& account, const std::string& begin, const std::string& end);

} // namespace kestrine::build
