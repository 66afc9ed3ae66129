// Directories: making and deleting them. What a kill can leave is said with each function; what a
// power failure can leave is the same, because the functions sync what their promise rests on.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Whether what a call changes must be on stable storage when it returns. Temporary files and their
// directories are rebuilt from the logs and need no syncing.
enum class Durable { No, Yes };

namespace Util {

// Creates every missing directory that ends before a '/' of the path: "a/b/" creates both, "a/b"
// only "a". A kill leaves a prefix of them. With Durable::Yes the last one is synced into its
// parent even if it is there already, since a kill may have come between its making and its sync;
// for those above it this is up to who made them (`makeDurable`).
[[nodiscard]] int createDir(const std::string& path, Durable durable = Durable::Yes);
// Syncs the directory into its parent, if it is there. 0, also when the parent may not be read, as
// above a directory that somebody else made; or -1.
[[nodiscard]] int makeDurable(const std::string& directory);
// Returns when a creation, renaming or removal of the path is on stable storage.
[[nodiscard]] int syncParent(const std::string& path);

// The visitor that deletes: a file is removed, a directory emptied and removed, dot-files included.
[[nodiscard]] int deleteFiles(const std::string& path, uint32_t attributes);
// Deletes a directory with all it holds. A kill leaves any part of it.
[[nodiscard]] int deleteDir(const std::string& path);

} // namespace Util
} // namespace kestrine
