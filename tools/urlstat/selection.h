// Which files a command is about: one that is named, or periods of accounts.
#pragma once

#include "session.h"

#include <string>
#include <vector>

namespace kestrine::viewer {

// The options --day, --week, --month, --from and --to.
struct PeriodOptions {
    std::string day;
    std::string week;
    std::string month;
    std::string from;
    std::string to;
};
void addPeriodOptions(Command command, PeriodOptions& options);

// What was chosen.
struct Selection {
    std::string name;                 // of it all, for people
    std::vector<PeriodEntry> periods; // those that have a directory
    std::vector<std::string> missing; // names of those that have none
};
// Of a range of dates the days. Throws Failure when not exactly one was chosen, or when nothing is
// there.
[[nodiscard]] Selection select(Session& session, const PeriodOptions& options);
// One period of the accounts that the command line chooses.
[[nodiscard]] Selection select(Session& session, const PeriodDir& dir);

} // namespace kestrine::viewer
