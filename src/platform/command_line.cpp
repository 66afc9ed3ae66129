#include "platform/command_line.h"

#include <algorithm>

namespace kestrine {

namespace {

// Backslashes stand for themselves, but before a quotation mark two of them stand for one.
void appendQuoted(std::string& line, std::string_view argument) {
    size_t backslashes = 0;
    line += '"';
    for (const char c : argument) {
        if (c == '"') {
            line.append(backslashes + 1, '\\');
        }
        backslashes = c == '\\' ? backslashes + 1 : 0;
        line += c;
    }
    line.append(backslashes, '\\');
    line += '"';
}

} // namespace

std::string commandLine(std::string_view program, std::span<const std::string> arguments) {
    std::string line = "\"" + std::string(program) + "\"";
    for (const std::string& argument : arguments) {
        line += ' ';
        // An argument of these alone needs no quotation marks.
        const bool plain = !argument.empty() && std::ranges::all_of(argument, [](char c) {
            return c > ' ' && c <= '~' && c != '"';
        });
        if (plain) {
            line += argument;
        } else {
            appendQuoted(line, argument);
        }
    }
    return line;
}

} // namespace kestrine
