// The one text in which Windows hands a program its arguments.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kestrine {

// From which the C runtime of the program gets exactly these back, the program's name first. A name
// holds no quotation mark.
[[nodiscard]] std::string commandLine(std::string_view program,
                                      std::span<const std::string> arguments);

} // namespace kestrine
