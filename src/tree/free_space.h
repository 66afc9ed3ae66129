// Free space on a volume, and waiting for it.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// MiB that must be free before a spill or a merge writes (strictly more than this).
constexpr uint32_t g_minFreeSpaceMiB = 5120;

namespace Util {

// Whole MiB free on the volume of the path.
[[nodiscard]] int getAvailableSpace(const std::string& path, uint32_t& mebibytes);
// Waits until more than 5,120 MiB are free on the volume of the path, testing every 20 minutes.
// Returns 0 at once when a stop is requested; the caller looks at the run flag itself.
[[nodiscard]] int sleepWhileNoSpace(const std::string& path);

} // namespace Util
} // namespace kestrine
