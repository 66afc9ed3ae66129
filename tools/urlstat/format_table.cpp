#include "bytes_text.h"
#include "formats.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kestrine::viewer {

namespace {

constexpr size_t g_rowsToMeasure = 1000; // the widths of columns follow the first so many
constexpr size_t g_longestBar = 30;
constexpr size_t g_narrowest = 20; // the last column goes below the others before it has less
constexpr size_t g_indent = 4;     // there

constexpr const char* g_bold = "\x1b[1m";
constexpr const char* g_cyan = "\x1b[36m";
constexpr const char* g_plain = "\x1b[0m";

std::string cellText(const Column& column, const Value& value) {
    if (std::holds_alternative<std::monostate>(value)) {
        return "";
    }
    char text[32];
    switch (column.kind) {
    case Kind::Share:
        std::snprintf(text, sizeof text, "%.3f%%", 100 * std::get<double>(value));
        return text;
    case Kind::Bar: {
        const double length = std::round(g_longestBar * std::get<double>(value));
        return std::string(static_cast<size_t>(std::clamp<double>(length, 0, g_longestBar)), '#');
    }
    case Kind::Bytes:
        return asciiText(std::get<Bytes>(value).bytes);
    default:
        return plainText(column, value);
    }
}

bool isRight(Kind kind) {
    return kind == Kind::Count || kind == Kind::Signed || kind == Kind::Share;
}

class TableSink final : public RowSink {
public:
    explicit TableSink(Output& output) : m_output(output) {}

    void begin(std::vector<Column> columns) override {
        m_columns = std::move(columns);
        m_widths.clear();
        for (const Column& column : m_columns) {
            m_widths.push_back(heading(column).size());
        }
        m_measuring = true;
    }

    void row(std::span<const Value> values) override {
        std::vector<std::string> cells;
        cells.reserve(m_columns.size());
        for (size_t i = 0; i < m_columns.size(); ++i) {
            cells.push_back(cellText(m_columns[i], values[i]));
        }
        if (!m_measuring) {
            print(cells);
            return;
        }
        for (size_t i = 0; i < cells.size(); ++i) {
            m_widths[i] = std::max(m_widths[i], cells[i].size());
        }
        m_waiting.push_back(std::move(cells));
        if (m_waiting.size() == g_rowsToMeasure) {
            printWaiting();
        }
    }

    void end() override {
        printWaiting();
        for (const std::string& note : m_notes) {
            m_output.write(note + "\n");
        }
        m_notes.clear();
        m_output.flush();
    }

    // Below the table.
    void note(const std::string& text) override { m_notes.push_back(text); }

private:
    static std::string heading(const Column& column) {
        std::string name = column.kind == Kind::Bar ? "" : column.name;
        std::ranges::replace(name, '_', ' ');
        return name;
    }

    void printWaiting() {
        if (!m_measuring) {
            return;
        }
        m_measuring = false;
        std::vector<std::string> headings;
        headings.reserve(m_columns.size());
        for (const Column& column : m_columns) {
            headings.push_back(heading(column));
        }
        printLine(headings, g_bold);
        for (const std::vector<std::string>& cells : m_waiting) {
            print(cells);
        }
        m_waiting.clear();
    }

    void print(const std::vector<std::string>& cells) { printLine(cells, nullptr); }

    // In one colour, or each cell in its own.
    void printLine(const std::vector<std::string>& cells, const char* colour) {
        std::string line;
        size_t used = 0;
        for (size_t i = 0; i < cells.size(); ++i) {
            const std::string gap = i == 0 ? "" : "  ";
            const std::string cell = padded(i, cells[i], used + gap.size());
            used += gap.size() + cell.size();
            const char* const own = colour != nullptr                ? colour
                                    : m_columns[i].kind == Kind::Bar ? g_cyan
                                                                     : nullptr;
            const bool inColour = m_output.coloured() && own != nullptr;
            line.append(gap).append(inColour ? own : "");
            line.append(cell).append(inColour ? g_plain : "");
        }
        m_output.write(line + "\n");
    }

    // As wide as its column; the last one goes on below where the terminal ends.
    [[nodiscard]] std::string padded(size_t column, const std::string& cell, size_t used) const {
        const bool last = column + 1 == m_columns.size();
        const size_t padding = m_widths[column] - std::min(m_widths[column], cell.size());
        if (isRight(m_columns[column].kind)) {
            return std::string(padding, ' ') + cell;
        }
        if (!last) {
            return cell + std::string(padding, ' ');
        }
        const auto width = static_cast<size_t>(m_output.width());
        if (width == 0) {
            return cell;
        }
        if (m_columns[column].kind == Kind::Bar) {
            return cell.substr(0, width - std::min(width, used));
        }
        // Without room beside the other columns, below them.
        const size_t place = used + g_narrowest <= width ? used : std::min(g_indent, width / 2);
        const std::string text = wrapped(cell, place, std::max<size_t>(width - place, 1));
        return place == used || cell.empty() ? text : "\n" + std::string(place, ' ') + text;
    }

    // In lines of at most `room` columns, each but the first behind `place` spaces. Words stay
    // whole where they fit.
    static std::string wrapped(std::string_view cell, size_t place, size_t room) {
        std::string text;
        while (cell.size() > room) {
            const size_t space = cell.rfind(' ', room);
            const bool whole = space != std::string_view::npos && space > 0;
            text.append(cell.substr(0, whole ? space : room)).append("\n").append(place, ' ');
            cell.remove_prefix(whole ? space + 1 : room);
        }
        return text.append(cell);
    }

    Output& m_output;
    std::vector<Column> m_columns;
    std::vector<size_t> m_widths;
    std::vector<std::vector<std::string>> m_waiting; // until the widths are known
    std::vector<std::string> m_notes;
    bool m_measuring = false;
};

} // namespace

std::unique_ptr<RowSink> makeTableSink(Output& output) {
    return std::make_unique<TableSink>(output);
}

} // namespace kestrine::viewer
