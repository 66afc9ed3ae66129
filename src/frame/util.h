// File-system helpers of every stage. Each returns 0 or -1 and reports every failure itself.
//
// What a kill can leave is said with each function that changes the disk; what a power failure can
// leave is the same, because the functions sync what their promise rests on.
#pragma once

#include "frame/buffer.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine {

// MiB that must be free before a spill or a merge writes (strictly more than this).
constexpr uint32_t g_minFreeSpaceMiB = 5120;

// Whether what a call changes must be on stable storage when it returns. Temporary files and their
// directories are rebuilt from the logs and need no syncing.
enum class Durable { No, Yes };

namespace Util {

// Creates every missing directory that ends before a '/' of the path: "a/b/" creates both, "a/b"
// only "a". A kill leaves a prefix of them.
[[nodiscard]] int createDir(const std::string& path, Durable durable = Durable::Yes);
// Returns when a creation, renaming or removal of the path is on stable storage.
[[nodiscard]] int syncParent(const std::string& path);

// Called with an entry's full path and attributes; non-zero stops the walk.
using Visitor = std::function<int(const std::string& path, uint32_t attributes)>;
// Visits every entry of a directory but those beginning with '.', in listing order. A directory
// that is not there counts as empty.
[[nodiscard]] int tranverse(const std::string& directory, const Visitor& visitor);
// The visitor that deletes: a file is removed, a directory emptied and removed, dot-files included.
[[nodiscard]] int deleteFiles(const std::string& path, uint32_t attributes);
// Deletes a directory with all it holds. A kill leaves any part of it.
[[nodiscard]] int deleteDir(const std::string& path);

// Deletes the top lists of a statistics file that they no longer match. A kill leaves the whole set
// or none, perhaps with a directory of the name of an incomplete set.
[[nodiscard]] int deleteTopLists(const std::string& directory);
// Deletes one directory of lists, or a file in its place; a missing one is a success.
[[nodiscard]] int deleteListDirectory(const std::string& path);

// Allocates `size` bytes into `*buffer`.
[[nodiscard]] int assureNotEmpty(int32_t size, Buffer* buffer);

void replaceChar(std::string& text, char from, char to);

// Whole MiB free on the volume of the path.
[[nodiscard]] int getAvailableSpace(const std::string& path, uint32_t& mebibytes);
// Waits until more than 5,120 MiB are free on the volume of the path, testing every 20 minutes.
// Returns 0 at once when a stop is requested; the caller looks at the run flag itself.
[[nodiscard]] int sleepWhileNoSpace(const std::string& path);

// Moves `source` (content already synced) to `destination`, keeping what was there as
// destination + "_backup". After a kill the destination is the old or the new file, or only the
// backup is there (the start-up check brings it back); never backup and source without destination.
// On the way the source is called source + ".temp", which a kill or a failure can leave.
[[nodiscard]] int replaceFile(const std::string& source, const std::string& destination);

// Removes a damaged file, if it is there, and brings its "_backup" back, if there is one. The top
// lists of what was there before are deleted then. A kill can leave the backup alone.
[[nodiscard]] int removeBrokenFile(const std::string& path);
// Moves a damaged file to ROOT/debug/DIRECTORY/SECONDS_NAME, ROOT being the one of the two roots
// below which it lies. SECONDS is the time, or the next number for which the name is free.
[[nodiscard]] int dumpBrokenFile(const std::string& path, const std::string& root1,
                                 const std::string& root2);
// The same with the configured statistics root and memory-disk directory.
[[nodiscard]] int dumpBrokenFile(const std::string& path);

// Appends the date directories below ACCOUNTDIR/new, full paths, ascending. None is not an error.
[[nodiscard]] int getDateInNewDirectory(const std::string& accountDir,
                                        std::vector<std::string>& dates);
// Appends the new-day files of a ACCOUNTDIR/new/DATE directory, full paths, ascending by number.
[[nodiscard]] int getDaycrcsortNews(const std::string& directory, std::vector<std::string>& files);

// Moves the first path's whole week (or month) from the front of `paths` to `group`, whose content
// is replaced. `paths` holds date-directory paths of real calendar dates in ascending order and is
// not empty. `begin` and `end` are the period's first and last date.
[[nodiscard]] int getNextWeekFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                                   std::string& begin, std::string& end);
[[nodiscard]] int getNexMonFiles(std::vector<std::string>& paths, std::vector<std::string>& group,
                                 std::string& begin, std::string& end);

} // namespace Util

// First and last date of the week (Sunday to Saturday) or month that holds the date at the end of
// the path. Calendar arithmetic, independent of clocks and time zones. -1 when that is no date of
// the calendar.
[[nodiscard]] int getDateOfCurrentWeek(std::string_view path, std::string& begin, std::string& end);
[[nodiscard]] int getDateOfCurrentMon(std::string_view path, std::string& begin, std::string& end);

// Milliseconds between two tick counts, less 1 when the counter has wrapped in between. The lost
// millisecond is part of the schedule's definition.
[[nodiscard]] uint32_t elapsedTicks(uint32_t then, uint32_t now);

} // namespace kestrine
