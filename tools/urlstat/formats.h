// The forms in which a view's rows are printed. A further one is one file and a row of the table in
// formats.cpp.
#pragma once

#include "output.h"
#include "rows.h"

#include <memory>
#include <string>
#include <vector>

namespace kestrine::viewer {

// Columns aligned; on a terminal as wide as it, with colours. Notes are printed.
[[nodiscard]] std::unique_ptr<RowSink> makeTableSink(Output& output);
// As RFC 4180 has it: a line of names, then one per row, fields in quotes where they need them.
[[nodiscard]] std::unique_ptr<RowSink> makeCsvSink(Output& output);
// One array of objects, or one object a line. Numbers are numbers, keys are strings.
[[nodiscard]] std::unique_ptr<RowSink> makeJsonSink(Output& output);
[[nodiscard]] std::unique_ptr<RowSink> makeNdjsonSink(Output& output);

[[nodiscard]] std::vector<std::string> formatNames();
// Of a name among them.
[[nodiscard]] std::unique_ptr<RowSink> makeSink(const std::string& format, Output& output);

// A value as programs read it, without quotes: shares as fractions, bytes as utf8Text.
[[nodiscard]] std::string plainText(const Column& column, const Value& value);

} // namespace kestrine::viewer
