// The units of the service's work, each carried out by its own classes. Any number of processes may
// each carry out one at the same time, on one machine or on several.
//
// A unit holds, from before its first change to its end: the locks of the statistics root and of
// the memory disk, shared, which keep the service out, and the locks of the dates that it touches.
// First it settles what a killed unit has left of its own part of the tree, so that a unit that was
// killed, and one that is repeated, do no harm.
//
// Each function returns the line that says what was done. It throws `notNow` when a lock is held,
// another unit comes first or a stop was requested, and Failure; what was done until then counts.
#pragma once

#include "installation.h"
#include "tree/period.h"

#include <string>

namespace kestrine::build {

// The start-up check of an account, without which the other units may be refused. Has the whole
// account for itself.
[[nodiscard]] std::string runCheck(Installation& installation, const std::string& account);
// The new logs of a date (eight digits) into one new-day file, and its new-day files into its day
// file, with its lists.
[[nodiscard]] std::string runDay(Installation& installation, const std::string& account,
                                 const std::string& date);
// The week or month that holds a date of the calendar: new-day files into its file, with its lists.
// Day files, and for a month week files, come first.
[[nodiscard]] std::string runPeriod(Installation& installation, Period period,
                                    const std::string& account, const std::string& date);

} // namespace kestrine::build
