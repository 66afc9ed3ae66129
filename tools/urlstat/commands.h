// What the program can do with a file. Everything is printed to the standard output; a damaged file
// gives what can be read of it.
#pragma once

#include "checked_file.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrine::viewer {

// The `number` most visited hosts, of equal ones those with the lower key first.
void printTop(CheckedFile& file, uint32_t number);
// What the status tells, and what the records sum up to.
void printStatus(CheckedFile& file);
// Every record on a line: key, count, type, host. With `blocks` a line "# ..." before each block.
void printRecords(CheckedFile& file, bool blocks);

// The text in printable ASCII: a backslash doubled, any other byte as \xNN.
[[nodiscard]] std::string printable(std::string_view text);

} // namespace kestrine::viewer
