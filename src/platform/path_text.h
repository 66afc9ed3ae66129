// What the systems' implementations share about the text of paths.
#pragma once

#include <string>
#include <string_view>

namespace kestrine {

// True when the whole name matches the pattern: '*' stands for any run of characters, '?' for any
// one. `ignoreCase` folds ASCII letters.
[[nodiscard]] bool matchesWildcard(std::string_view name, std::string_view pattern,
                                   bool ignoreCase);

// "a/b" -> "a", "/a" -> "/", "a" -> "."; false, and no change, when there is nothing above: "/",
// "." and a drive ("C:").
[[nodiscard]] bool cutToParent(std::string& path);

} // namespace kestrine
