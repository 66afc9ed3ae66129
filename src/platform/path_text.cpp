#include "platform/path_text.h"

namespace kestrine {

namespace {

char fold(char letter, bool ignoreCase) {
    return ignoreCase && letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a')
                                                        : letter;
}

} // namespace

bool matchesWildcard(std::string_view name, std::string_view pattern, bool ignoreCase) {
    // On a mismatch only the latest '*' needs to take one character more: what stood before it has
    // matched already, and a longer run there could only leave less for the rest.
    size_t n = 0;
    size_t p = 0;
    size_t star = std::string_view::npos;
    size_t starEnd = 0; // end of the characters that the latest '*' has taken
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            starEnd = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || fold(pattern[p], ignoreCase) ==
                                                                   fold(name[n], ignoreCase))) {
            ++n;
            ++p;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++starEnd;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool cutToParent(std::string& path) {
    const auto withoutEndSlashes = [](std::string text) {
        while (text.size() > 1 && text.back() == '/') {
            text.pop_back();
        }
        return text;
    };
    const std::string self = withoutEndSlashes(path);
    if (self.empty() || self == "/" || self == "." || self.back() == ':') {
        return false;
    }
    const size_t slash = self.rfind('/');
    path = slash == std::string::npos ? "." : withoutEndSlashes(self.substr(0, slash + 1));
    return true;
}

} // namespace kestrine
