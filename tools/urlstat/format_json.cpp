#include "formats.h"

#include <nlohmann/json.hpp>

namespace kestrine::viewer {

namespace {

// What stands around the objects.
struct Frame {
    const char* before;  // the first object
    const char* between; // two of them
    const char* after;   // the last one
};
constexpr Frame g_array = {"[\n", ",\n", "\n]\n"};
constexpr Frame g_lines = {"", "\n", "\n"};

class JsonSink final : public RowSink {
public:
    JsonSink(Output& output, const Frame& frame) : m_output(output), m_frame(frame) {}

    void begin(std::vector<Column> columns) override {
        m_columns = std::move(columns);
        m_any = false;
    }

    void row(std::span<const Value> values) override {
        nlohmann::ordered_json object;
        for (size_t i = 0; i < m_columns.size(); ++i) {
            if (m_columns[i].kind != Kind::Bar) {
                object[m_columns[i].name] = member(m_columns[i], values[i]);
            }
        }
        m_output.write(m_any ? m_frame.between : m_frame.before);
        m_output.write(object.dump());
        m_any = true;
    }

    void end() override {
        if (m_any) {
            m_output.write(m_frame.after);
        } else if (&m_frame == &g_array) {
            m_output.write("[]\n");
        }
        m_output.flush();
    }
    void note(const std::string&) override {}

private:
    // Keys are text: programs that keep numbers as doubles would round them.
    static nlohmann::ordered_json member(const Column& column, const Value& value) {
        if (std::holds_alternative<std::monostate>(value)) {
            return nullptr;
        }
        switch (column.kind) {
        case Kind::Count:
            return std::get<uint64_t>(value);
        case Kind::Signed:
            return std::get<int64_t>(value);
        case Kind::Share:
            return std::get<double>(value);
        default:
            return plainText(column, value);
        }
    }

    Output& m_output;
    const Frame& m_frame;
    std::vector<Column> m_columns;
    bool m_any = false;
};

} // namespace

std::unique_ptr<RowSink> makeJsonSink(Output& output) {
    return std::make_unique<JsonSink>(output, g_array);
}

std::unique_ptr<RowSink> makeNdjsonSink(Output& output) {
    return std::make_unique<JsonSink>(output, g_lines);
}

} // namespace kestrine::viewer
