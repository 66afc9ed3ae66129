// The last 8 bytes of a URL file: the position where its blocks end and its status begins.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <string>

namespace kestrine {

constexpr int64_t g_endPositionSize = 8;

// Writes it at the file's position. 0 or -1.
[[nodiscard]] int writeEndPosition(File& file, int64_t endPos);
// Reads it from a file of `size` bytes and seeks there. 0; g_damaged (reading.h), when no status
// could follow; -1. `path` is for reports.
[[nodiscard]] int seekEndPosition(File& file, const std::string& path, int64_t size,
                                  int64_t& endPos);

} // namespace kestrine
