// What a start would find, told without a start.
#pragma once

#include <string>

namespace kestrine {

// Describes the settings, what the paths resolve to and the accounts, and lists what is wrong: all
// that would keep the service from starting or working, also that it is running already. No file,
// directory or log line is written; the machine-wide name and the lock of the statistics root are
// taken for the moment that it takes to see whether they are free.
//
// Returns 0 when nothing is wrong, 1 otherwise. Errors no longer go to the log file after this.
[[nodiscard]] int checkSetup(std::string& report);

} // namespace kestrine
