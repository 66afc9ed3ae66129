// Text: numbers at its beginning, and characters replaced.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrine {

// Value of the leading decimal digits of a text (blanks and a sign in front allowed), 0 when there
// are none; values out of range stop at the 32-bit limits.
[[nodiscard]] int32_t leadingInteger(std::string_view text);

namespace Util {

void replaceChar(std::string& text, char from, char to);

} // namespace Util
} // namespace kestrine
