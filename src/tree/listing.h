// Listing of directories with the messages that all stages share.
#pragma once

#include "frame/log.h"
#include "platform/platform.h"

#include <functional>
#include <string>
#include <vector>

namespace kestrine::Util {

// Fills `entries` with what matches the pattern, in the file system's order. A pattern that matches
// nothing and a directory that is not there give no entries and are no failure; nor is a listing
// that cannot be closed. Failures are reported under the name of the function at `where`. 0 or -1.
[[nodiscard]] int listEntries(const std::string& pattern, std::vector<FindEntry>& entries,
                              const CodePlace& where);

[[nodiscard]] inline bool isDirectory(const FindEntry& entry) {
    return (entry.attributes & g_attributeDirectory) != 0;
}

// Called with an entry's full path and attributes; non-zero stops the walk.
using Visitor = std::function<int(const std::string& path, uint32_t attributes)>;
// Visits every entry of a directory but those beginning with '.', in listing order. A directory
// that is not there counts as empty.
[[nodiscard]] int tranverse(const std::string& directory, const Visitor& visitor);

// Appends the date directories below ACCOUNTDIR/new, full paths, ascending. None is not an error.
[[nodiscard]] int getDateInNewDirectory(const std::string& accountDir,
                                        std::vector<std::string>& dates);
// Appends the new-day files of a ACCOUNTDIR/new/DATE directory, full paths, ascending by number.
[[nodiscard]] int getDaycrcsortNews(const std::string& directory, std::vector<std::string>& files);

} // namespace kestrine::Util
