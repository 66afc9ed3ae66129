// The directories of top lists.
#pragma once

#include <string>

namespace kestrine::Util {

// Deletes the top lists of a statistics file that they no longer match. A kill leaves the whole set
// or none, perhaps with a directory of the name of an incomplete set.
[[nodiscard]] int deleteTopLists(const std::string& directory);
// Deletes one directory of lists, or a file in its place; a missing one is a success.
[[nodiscard]] int deleteListDirectory(const std::string& path);

} // namespace kestrine::Util
