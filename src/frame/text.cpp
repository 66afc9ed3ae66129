#include "frame/text.h"

#include <algorithm>
#include <limits>

namespace kestrine {

int32_t leadingInteger(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\v\f\r\n"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    // One above the largest, so that the smallest can be reached; digits beyond it change nothing,
    // and ten times as much still fits.
    constexpr int64_t limit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
    int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            break;
        }
        value = std::min(value * 10 + (c - '0'), limit);
    }
    return static_cast<int32_t>(negative ? -value : std::min(value, limit - 1));
}

void Util::replaceChar(std::string& text, char from, char to) {
    std::replace(text.begin(), text.end(), from, to);
}

} // namespace kestrine
