// Every name of the log-data tree and of the statistics tree, built and parsed; those of periods in
// period.h. Nothing else in the program concatenates a path of either tree.
//
//   log data (read only)
//     DATA/ACCOUNT/devid_N/DATE/A/DIR/FILE.dat   DATA ends in "log_data"; DIR = FILE / 100
//
//   statistics tree (ROOT), by default DATA/_urlstat
//     ROOT/.kestrine.lock                        locked while a service runs on the tree
//     ROOT/ACCOUNT/.urlbuild.lock                locked in part while a unit works on the account
//     ROOT/ACCOUNT/new/DATE/N.daycrcsortnew      new-day files, numbered from 0; + ".temp"
//     ROOT/ACCOUNT/diskTemp/DATE/N.temp          disk temporary files
//     ROOT/ACCOUNT/DATE/daycrcsort               day file; + "_backup", ".temp", ".temp.temp"
//     ROOT/ACCOUNT/weekBEGIN_END/weekcrcsort     week file; the same endings
//     ROOT/ACCOUNT/monBEGIN_END/moncrcsort       month file; the same endings
//     .../topn/all.top, .../topn/TYPE.top        top lists; topn.temp complete, topn.temp.temp not
//     .../dirstat                                cached statistics of a directory
//     ROOT/debug/NAME/SECONDS_FILE               damaged files set aside
//     ROOT/_delete_*, ROOT/ACCOUNT/_delete_*     swept by the work thread
//
//   memory disk (MEM), by default DATA/_memdisk
//     MEM/ACCOUNT/DATE/N.temp                    spill files
//
// ACCOUNT is the last component of the account's path below DATA, DATE is "YYYYMMDD".
#pragma once

#include "tree/paths.h"
#include "tree/period.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrine {

namespace names {

// ---- log data
// Begins the name of every device's directory.
constexpr std::string_view g_devicePrefix = "devid_";
// The account's directory name: the last component of the account path. Empty when that would not
// do as a directory of the statistics tree ("", ".", "..", "debug", "_delete_...").
[[nodiscard]] std::string accountOf(std::string_view accountPath);
// A node is named by its date directory, DATA/ACCOUNT/devid_N/DATE.
[[nodiscard]] std::string accountOfNode(std::string_view nodePath);
// DATE of a path's last component as a number, its leading digits; 0 when there are none.
[[nodiscard]] int32_t getDateOfPath(std::string_view path);
// A node's type directory: NODE/A.
[[nodiscard]] std::string typeDir(std::string_view nodePath, char type = 'A');
// "%s/%d/%d.dat" of the type directory (NODE + "/A"), number / 100 and number.
[[nodiscard]] std::string datFile(std::string_view typeDirectory, int32_t number);

// ---- accounts and dates of the statistics tree
[[nodiscard]] std::string defaultStatRoot(std::string_view dataPath);
[[nodiscard]] std::string defaultMemoryDisk(std::string_view dataPath);
[[nodiscard]] std::string lockFile(std::string_view root);
// Its bytes are locked by who works on a part of the account beside others.
[[nodiscard]] std::string unitLockFile(std::string_view accountDir);
[[nodiscard]] std::string accountDir(std::string_view root, std::string_view account);
[[nodiscard]] std::string dateText(int32_t date); // eight digits
[[nodiscard]] bool isEightDigits(std::string_view text);
// A real day of the calendar, written in eight digits.
[[nodiscard]] bool isCalendarDate(std::string_view date);
// A name that passes as a date's directory: eight digits from 20000001 to 29999998, calendar date
// or not.
[[nodiscard]] bool isDateDirName(std::string_view name);
[[nodiscard]] std::string dayDir(std::string_view accountDir, std::string_view date);

// ---- finished files. "daycrcsort", "weekcrcsort", "moncrcsort".
[[nodiscard]] std::string_view formalName(Period period);
[[nodiscard]] std::string formalFile(std::string_view directory, Period period);
[[nodiscard]] std::string backupOf(std::string_view formalPath); // + "_backup"
[[nodiscard]] std::string tempOf(std::string_view path);         // + ".temp"
[[nodiscard]] std::string withoutTemp(std::string_view path);    // - one ".temp" ending, if any
// Whether a name is that of a half-written file or directory, which counts for nothing.
[[nodiscard]] bool isHalfWritten(std::string_view name);
// Whether a name is that of a formal file, or is made of it.
[[nodiscard]] bool isOfFormalFile(std::string_view name);
// The formal path behind a path with any run of ".temp" or a "_backup" ending.
[[nodiscard]] std::string formalOf(std::string_view path);

// ---- new-day files
[[nodiscard]] std::string newTree(std::string_view accountDir); // + "/new"
[[nodiscard]] std::string newDayDir(std::string_view accountDir, std::string_view date);
[[nodiscard]] std::string newDayFile(std::string_view newDayDirectory, int32_t number);
// Whether a name is that of a new-day file being written.
[[nodiscard]] bool isNewDayTemp(std::string_view name);
// Number of a new-day file "N.daycrcsortnew" by its path or name; -1 when it is none.
[[nodiscard]] int32_t newDayNumber(std::string_view path);
[[nodiscard]] std::string accountDirOfNewDayDir(std::string_view newDayDirectory);

// ---- temporary files
[[nodiscard]] std::string memoryDiskFile(std::string_view memoryDisk, std::string_view account,
                                         int32_t date, int32_t counter);
// "N.temp", also of a merge in rounds or one being written, or set aside, as `dumpFile` names it.
[[nodiscard]] bool isTempFile(std::string_view name);
[[nodiscard]] std::string diskTempTree(std::string_view accountDir); // + "/diskTemp/"
[[nodiscard]] std::string diskTempFile(std::string_view root, std::string_view account,
                                       int32_t date, int32_t counter);
// A temporary of a merge in rounds, in the same directory: "N.merge.temp".
[[nodiscard]] std::string mergeRoundFile(std::string_view diskTempDirectory, int32_t counter);
[[nodiscard]] std::string diskTempDir(std::string_view accountDir, std::string_view date);

// ---- top lists
[[nodiscard]] std::string topDir(std::string_view directory);         // + "/topn"
[[nodiscard]] std::string topTempDir(std::string_view directory);     // + "/topn.temp"
[[nodiscard]] std::string topTempTempDir(std::string_view directory); // + "/topn.temp.temp"
[[nodiscard]] std::string topFile(std::string_view listDirectory, uint32_t type); // "%u.top"
[[nodiscard]] std::string topAllFile(std::string_view listDirectory);             // "all.top"
[[nodiscard]] bool isTopFile(std::string_view path);                              // "*.top"

// ---- others
// Matches what is to be deleted in a directory: + "/_delete_*".
[[nodiscard]] std::string deletedPattern(std::string_view directory);
[[nodiscard]] std::string dirStatFile(std::string_view directory); // + "/dirstat"
// Directory under `root` into which a damaged file goes: the whole name of a week or month
// directory, otherwise the first eight characters of the file's directory name. Ends in '/'.
[[nodiscard]] std::string dumpDir(std::string_view root, std::string_view path);
// The name of a damaged file there: + "SECONDS_NAME".
[[nodiscard]] std::string dumpFile(std::string_view dumpDirectory, int64_t seconds,
                                   std::string_view name);

} // namespace names
} // namespace kestrine
