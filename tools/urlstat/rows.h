// What a view shows, before it has a form: columns, and rows of values. Views produce them, formats
// (formats.h) print them; neither knows the other.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kestrine::viewer {

enum class Kind {
    Count,  // uint64_t
    Signed, // int64_t
    Share,  // double, 1 is the whole
    Text,   // std::string_view of the program's own words or numbers: printable ASCII
    Bytes,  // Bytes: a host or path, any bytes
    Key,    // uint64_t, in hexadecimal
    Bar,    // double, 0 to 1 of the longest bar; a picture of its neighbour, in tables only
};

struct Column {
    std::string name; // letters and '_', as programs read it
    Kind kind;
};

// Bytes that come from the logs or the file system.
struct Bytes {
    std::string_view bytes;
};

// The monostate is "nothing known": empty in tables and CSV, null in JSON. What a value refers to
// need only live as long as the call that takes it.
using Value = std::variant<std::monostate, uint64_t, int64_t, double, std::string_view, Bytes>;

// Takes one table: `begin`, its rows in order, `end`. A view may hand over one after another.
class RowSink {
public:
    virtual ~RowSink() = default;
    virtual void begin(std::vector<Column> columns) = 0;
    // As many values as columns, each of its column's kind or nothing.
    virtual void row(std::span<const Value> values) = 0;
    virtual void end() = 0;
    // A line beside the table, for people; formats that programs read drop it.
    virtual void note(const std::string& text) = 0;

    void add(std::initializer_list<Value> values) { row({values.begin(), values.size()}); }
};

} // namespace kestrine::viewer
