// How a command gives up. Exceptions do not leave the program's own folder: main prints them.
#pragma once

#include <stdexcept>
#include <string>

namespace kestrine {

// Exit codes of the programs, besides 0.
constexpr int g_dataWrong = 1; // something is wrong with the data, or cannot be read or written
constexpr int g_usageWrong = 2;

// "FILE: what is wrong; what to do".
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, int code = g_dataWrong)
        : std::runtime_error(text), m_code(code) {}
    [[nodiscard]] int code() const { return m_code; }

private:
    int m_code;
};

// A command line that can be parsed and yet means nothing.
[[nodiscard]] inline Failure usage(const std::string& text) {
    return Failure(text, g_usageWrong);
}

// The reader of the output is gone: nothing more to do, and nothing wrong.
class OutputClosed : public std::exception {};

} // namespace kestrine
