// The date of a node of the log data.
#pragma once

#include <cstdint>
#include <string>

namespace kestrine {

// Date of a node path (DATA/ACCOUNT/devid_N/DATE), from 20000000 to 29999999. 0, or -1 when the
// path has no '/' or its last component is no such number.
[[nodiscard]] int getAccountPathAndDate(const std::string& nodePath, int32_t& date);

} // namespace kestrine
