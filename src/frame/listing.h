// Listing of a directory with the messages that all stages share.
#pragma once

#include "frame/log.h"
#include "platform/platform.h"

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

} // namespace kestrine::Util
