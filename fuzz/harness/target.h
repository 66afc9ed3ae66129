// What every fuzz target is made of: a translation from arbitrary bytes to files, the run of the
// code under test over them, and good inputs to begin with.
#pragma once

#include "frame/bytes.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine::fuzz {

// ---- defined by each target
// Runs one input. Whatever the bytes, it returns; a broken promise of the code under test ends the
// process through `require` or a sanitizer.
void runInput(ByteView input);
// Good inputs, made by the project's own writers.
[[nodiscard]] std::vector<std::string> makeSeeds();

// Ends the process with a message when a promise is broken.
void require(bool kept, const char* promise, int line = __builtin_LINE());

// Takes an input apart from its front; behind its end there are zeros.
class InputReader {
public:
    explicit InputReader(ByteView input) : m_rest(input) {}

    [[nodiscard]] bool empty() const { return m_rest.empty(); }
    ByteView take(size_t length) { // at most
        const ByteView taken = m_rest.first(std::min(length, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }
    ByteView takeAll() { return take(m_rest.size()); }
    uint8_t byte() { return empty() ? uint8_t{0} : take(1)[0]; }
    uint16_t word() {
        const auto low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }

private:
    ByteView m_rest;
};

// The other direction, for seeds: a word and the text.
inline std::string withLength(std::string_view text) {
    return std::string{static_cast<char>(text.size()), static_cast<char>(text.size() >> 8)} +
           std::string(text);
}

} // namespace kestrine::fuzz
