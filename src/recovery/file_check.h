// Looking for damage in the files of the statistics tree before anything is built on them.
//
// What was written within the last weeks is read through: a power failure damages what was written
// shortly before, and the next merges build on the days, weeks and months that are still growing.
// Older files are many and lie still, and what was written since the machine was started was torn
// by nothing; damage in them is found when they are read for a merge.
#pragma once

#include "storage/verify.h"

#include <cstdint>
#include <string>

namespace kestrine {

enum class Reading { IfMayBeTorn, Always };

// Reads a day, week, month or new-day file through. 0: good; 1: damaged; 2: not looked at, because
// it cannot be torn or a stop was requested; -1: a call failed. `sums`, if given, is what a good
// file holds.
[[nodiscard]] int checkFile(const std::string& path, uint32_t statusType,
                            Reading reading = Reading::IfMayBeTorn, FileSums* sums = nullptr);

// Whether the top lists of a directory are those of its formal file, as far as can be told without
// counting anew: none is older than the file, there is one of every type, each is good, and the
// sums fit. Damaged lists are moved to "debug". `sums` is what the formal file holds; null: it was
// not looked at, and then lists that are there count as good. 0: they are; 1: they are to be made
// anew; -1.
[[nodiscard]] int checkTopLists(const std::string& directory, const std::string& formal,
                                const FileSums* sums);

} // namespace kestrine
