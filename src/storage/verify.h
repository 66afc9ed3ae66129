// Reading a whole URL file to see whether it is good.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Reads the status and every record. 0 when the file is good, 1 when it is damaged, -1 when it
// cannot be opened.
[[nodiscard]] int verifyUrlFile(const std::string& path, uint32_t statusType);

} // namespace kestrine
