#include "bytes_text.h"

#include <charconv>
#include <cstdint>

namespace kestrine {

namespace {

void appendEscaped(std::string& text, char c) {
    constexpr char digits[] = "0123456789abcdef";
    const auto byte = static_cast<uint8_t>(c);
    text += "\\x";
    text += digits[byte >> 4];
    text += digits[byte & 15];
}

void appendAscii(std::string& text, char c) {
    if (c == '\\') {
        text += "\\\\";
    } else if (c >= ' ' && c <= '~') {
        text += c;
    } else {
        appendEscaped(text, c);
    }
}

// Length of the character of two to four bytes that begins the text; 0 when none does, when it
// could be written shorter, or is a surrogate or a control character (U+0080 to U+009F).
size_t longCharacter(std::string_view text) {
    const auto at = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const size_t length = at(0) < 0xC2   ? 0
                          : at(0) < 0xE0 ? 2
                          : at(0) < 0xF0 ? 3
                          : at(0) < 0xF5 ? 4
                                         : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    uint32_t code = at(0) & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (at(i) & 0x3FU);
    }
    const uint32_t smallest = length == 2 ? 0xA0 : length == 3 ? 0x800 : 0x10000;
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < smallest || code > 0x10FFFF || surrogate ? 0 : length;
}

} // namespace

std::string asciiText(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        appendAscii(text, c);
    }
    return text;
}

std::string utf8Text(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const size_t length = longCharacter(bytes);
        if (length == 0) {
            appendAscii(text, bytes.front());
        } else {
            text += bytes.substr(0, length);
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return text;
}

std::optional<std::string> bytesOfText(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        size_t length = 1;
        auto byte = static_cast<uint8_t>(text.front());
        if (text.starts_with("\\\\")) {
            length = 2;
        } else if (text.starts_with("\\x") && text.size() >= 4) {
            length = 4;
            const char* const end = text.data() + length;
            if (std::from_chars(text.data() + 2, end, byte, 16).ptr != end) {
                return std::nullopt;
            }
        } else if (text.starts_with('\\')) {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
        text.remove_prefix(length);
    }
    return bytes;
}

} // namespace kestrine
