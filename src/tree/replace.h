// Putting a finished file in the place of its predecessor.
#pragma once

#include <string>

namespace kestrine::Util {

// Moves `source` (content already synced) to `destination`, keeping what was there as
// destination + "_backup". After a kill the destination is the old or the new file, or only the
// backup is there (the start-up check brings it back); never backup and source without destination.
// On the way the source is called source + ".temp", which a kill or a failure can leave.
[[nodiscard]] int replaceFile(const std::string& source, const std::string& destination);

} // namespace kestrine::Util
