// Enumerates every sequence of choices that a loop body can make:
//
//   Choices choices;
//   do {
//       const size_t number = choices.choose(3);
//       const bool flag = choices.choose(2) == 1;
//       ...
//   } while (choices.next());
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace kestrine::test {

class Choices {
public:
    // 0 to `limit` - 1.
    size_t choose(size_t limit) {
        if (m_at == m_taken.size()) {
            m_taken.emplace_back(0, limit);
        }
        return m_taken[m_at++].first;
    }
    bool flip() { return choose(2) == 1; }

    // On to the next sequence; false after the last.
    bool next() {
        m_at = 0;
        while (!m_taken.empty() && ++m_taken.back().first == m_taken.back().second) {
            m_taken.pop_back();
        }
        return !m_taken.empty();
    }

private:
    std::vector<std::pair<size_t, size_t>> m_taken; // choice and its limit
    size_t m_at = 0;
};

} // namespace kestrine::test
