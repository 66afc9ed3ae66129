#include "formats.h"

namespace kestrine::viewer {

namespace {

std::string field(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c;
        if (c == '"') {
            quoted += c;
        }
    }
    return quoted + '"';
}

class CsvSink final : public RowSink {
public:
    explicit CsvSink(Output& output) : m_output(output) {}

    void begin(std::vector<Column> columns) override {
        m_columns = std::move(columns);
        m_line.clear();
        for (const Column& column : m_columns) {
            if (column.kind != Kind::Bar) {
                add(column.name);
            }
        }
        endLine();
    }

    void row(std::span<const Value> values) override {
        m_line.clear();
        for (size_t i = 0; i < m_columns.size(); ++i) {
            if (m_columns[i].kind != Kind::Bar) {
                const bool known = !std::holds_alternative<std::monostate>(values[i]);
                add(known ? field(plainText(m_columns[i], values[i])) : "");
            }
        }
        endLine();
    }

    void end() override { m_output.flush(); }
    void note(const std::string&) override {}

private:
    void add(const std::string& text) { m_line.append(text).append(","); }
    void endLine() {
        m_line.back() = '\n';
        m_output.write(m_line);
    }

    Output& m_output;
    std::vector<Column> m_columns;
    std::string m_line;
};

} // namespace

std::unique_ptr<RowSink> makeCsvSink(Output& output) {
    return std::make_unique<CsvSink>(output);
}

} // namespace kestrine::viewer
