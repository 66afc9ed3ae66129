// Looking for damage in the files of the statistics tree before anything is built on them.
//
// What was written within the last weeks is read through: a crash damages what was written shortly
// before, and the next merges build on the days, weeks and months that are still growing. Older
// files are many and lie still; damage in them is found when they are read for a merge.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

enum class Reading { IfRecent, Always };

// Reads a day, week, month or new-day file through. 0: good, or not looked at because it is old or
// a stop was requested; 1: damaged; -1.
[[nodiscard]] int checkFile(const std::string& path, uint32_t statusType,
                            Reading reading = Reading::IfRecent);

// Whether the top lists of a directory are those of its formal file, as far as can be told without
// counting anew: there are all of them, each is good, and the sums fit. Damaged lists are moved to
// "debug". 0: they are; 1: they are to be made anew; -1.
[[nodiscard]] int checkTopLists(const std::string& directory, const std::string& formal,
                                uint32_t statusType);

} // namespace kestrine
