#include "date_text.h"

namespace kestrine {

std::string dateName(std::string_view date) {
    std::string text(date.substr(0, 4));
    return text.append("-").append(date.substr(4, 2)).append("-").append(date.substr(6));
}

std::string dateDigits(const std::string& text) {
    std::string digits = text;
    const bool hyphens = (text.size() == 10 || text.size() == 7) && text[4] == '-' &&
                         (text.size() == 7 || text[7] == '-');
    if (hyphens) {
        std::erase(digits, '-');
    }
    return digits;
}

} // namespace kestrine
