// Quarantine: a file that is given up is kept in ROOT/debug, never deleted, and its predecessor is
// restored.
//
// Only wrong bytes, or bytes that belong elsewhere, bring a file here; a call that failed does not.
#pragma once

#include <string>

namespace kestrine::Util {

// Moves a file or a directory to ROOT/debug/DIRECTORY/SECONDS_NAME, ROOT being the one of the two
// roots below which it lies. SECONDS is the time, or one of the next numbers for which the name is
// free. What stands where ROOT/debug or its directory must be, and is none, first moves to
// SECONDS_NAME beside its place. 0 or -1; a kill leaves the file in the old or in the new place.
[[nodiscard]] int dumpBrokenFile(const std::string& path, const std::string& root1,
                                 const std::string& root2);
// The same with the configured statistics root and memory-disk directory.
[[nodiscard]] int dumpBrokenFile(const std::string& path);
// Removes a damaged file, if it is there, and restores its backup.
[[nodiscard]] int removeBrokenFile(const std::string& path);

// Brings the "_backup" of a formal file back under its name, which is free. The top lists of what
// was there before are deleted first, so that they never stand beside another file. 0, also when
// there is no backup; -1. A kill leaves the backup, perhaps without lists, or the restored file.
[[nodiscard]] int restoreBackup(const std::string& formal);
// A formal file to quarantine, its backup in its place. 0 or -1. A kill in between leaves the
// backup alone, which every reader restores.
[[nodiscard]] int setAside(const std::string& formal);

} // namespace kestrine::Util
