// Paths in general. Components are separated by '/'; a trailing '/' is not part of a component.
#pragma once

#include <string>
#include <string_view>

namespace kestrine::names {

[[nodiscard]] std::string_view lastComponent(std::string_view path); // "a/b/c" -> "c"; "c" -> "c"
// "a/b/c" -> "a/b"; "c" -> ""; "/c" -> "/"
[[nodiscard]] std::string_view parentOf(std::string_view path);
// True when `path` is `directory` itself or lies below it, by the platform's rules for equal names.
// Nothing lies below an empty path; ".." is not resolved.
[[nodiscard]] bool liesBelow(std::string_view path, std::string_view directory);
// "x/y" and "z" give "x/y/z", and so do "x/y/" and "z".
[[nodiscard]] std::string join(std::string_view directory, std::string_view name);

} // namespace kestrine::names
