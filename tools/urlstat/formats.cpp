#include "formats.h"

#include "bytes_text.h"
#include "failure.h"

#include <cinttypes>
#include <cstdio>

namespace kestrine::viewer {

namespace {

struct Format {
    const char* name;
    std::unique_ptr<RowSink> (*make)(Output& output);
};

constexpr Format g_formats[] = {
    {"table", makeTableSink},
    {"csv", makeCsvSink},
    {"json", makeJsonSink},
    {"ndjson", makeNdjsonSink},
};

template <typename Number>
std::string formatted(const char* format, Number number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

} // namespace

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    for (const Format& format : g_formats) {
        names.emplace_back(format.name);
    }
    return names;
}

std::unique_ptr<RowSink> makeSink(const std::string& format, Output& output) {
    for (const Format& known : g_formats) {
        if (format == known.name) {
            return known.make(output);
        }
    }
    throw usage("--format: " + format + " is not supported here");
}

std::string plainText(const Column& column, const Value& value) {
    switch (column.kind) {
    case Kind::Count:
        return std::to_string(std::get<uint64_t>(value));
    case Kind::Signed:
        return std::to_string(std::get<int64_t>(value));
    case Kind::Share:
    case Kind::Bar:
        return formatted("%.9g", std::get<double>(value));
    case Kind::Key:
        return formatted("%016" PRIx64, std::get<uint64_t>(value));
    case Kind::Text:
        return std::string(std::get<std::string_view>(value));
    case Kind::Bytes:
        break;
    }
    return utf8Text(std::get<Bytes>(value).bytes);
}

} // namespace kestrine::viewer
