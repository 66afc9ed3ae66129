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
// only "a". A kill leaves a prefix of them.
[[nodiscard]] int createDir(const std::string& path, Durable durable = Durable::Yes);
// Returns when a creation, renaming or removal of the path is on stable storage.
[[nodiscard]] int syncParent(const std::string& path);

// The visitor that deletes: a file is removed, a directory emptied and removed, dot-files included.
[[nodiscard]] int deleteFiles(const std::string& path, uint32_t attributes);
// Deletes a directory with all it holds. A kill leaves any part of it.
[[nodiscard]] int deleteDir(const std::string& path);

} // namespace Util
} // namespace kestrine
