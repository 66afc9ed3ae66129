// The standard output, and the terminal that it may be.
#pragma once

#include <string_view>

namespace kestrine::viewer {

class Output {
public:
    Output();
    // Throws OutputClosed when nobody reads any more, Failure when the text cannot be written.
    void write(std::string_view text);
    void flush();

    // Columns of the terminal, 0 when the output is none.
    [[nodiscard]] int width() const { return m_width; }
    // A terminal, and the user did not set NO_COLOR.
    [[nodiscard]] bool coloured() const { return m_coloured; }

private:
    int m_width;
    bool m_coloured;
};

} // namespace kestrine::viewer
