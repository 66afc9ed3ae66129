// Putting a merged day, week or month file in place, with new top lists.
#pragma once

#include "tree/period.h"

#include <string>
#include <vector>

namespace kestrine {

// Removes the cached statistics file of a directory, trying five times. 0 or -1.
[[nodiscard]] int deleteDirStat(const std::string& directory);

// Replaces the formal file of the directory by the finished output beside it:
//
//  1. The cached "dirstat" is removed, so that it never describes a directory whose file changed.
//  2. The output replaces the formal file, which is kept as its backup.
//  3. The new-day files in `deleted` go: day, week and month file are durable and hold them.
//  4. The top lists are built anew. If the output shows damage then, it and those of the `inputs`
//     that are damaged go to quarantine: a merge copies whole blocks unread, so that damage in an
//     input shows only when the output is read, and every later merge would bring it back.
//
// 0, also after a stop, which leaves a work file that the next start removes, or a file without
// lists that it gives new ones; -1.
[[nodiscard]] int publish(const PeriodFiles& files, Period period,
                          const std::vector<std::string>& inputs,
                          const std::vector<std::string>& deleted);

} // namespace kestrine
