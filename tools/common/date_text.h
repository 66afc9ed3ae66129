// Dates as people write them.
#pragma once

#include <string>
#include <string_view>

namespace kestrine {

// "20240305" -> "2024-03-05"
[[nodiscard]] std::string dateName(std::string_view date);
// "2024-03-05" -> "20240305", "2024-03" -> "202403"; anything else as it is.
[[nodiscard]] std::string dateDigits(const std::string& text);

} // namespace kestrine
