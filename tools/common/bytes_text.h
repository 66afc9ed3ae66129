// Hosts and paths are bytes of any value; what is printed of them is text from which the bytes can
// be had again.
//
//   "\\"    one backslash
//   "\xNN"  the byte NN (two lower-case hexadecimal digits)
//   others  themselves
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrine {

// In printable ASCII, as tables have it: every other byte is escaped.
[[nodiscard]] std::string asciiText(std::string_view bytes);
// In UTF-8, as CSV and JSON have it: escaped are control characters and what is no UTF-8.
[[nodiscard]] std::string utf8Text(std::string_view bytes);
// The bytes of either; nothing when a backslash begins neither form.
[[nodiscard]] std::optional<std::string> bytesOfText(std::string_view text);

} // namespace kestrine
