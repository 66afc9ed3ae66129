// The most visited records of a stream, in memory for little more than these, however many pass.
//
// Of equal counts the lower key is the more visited, so that what is kept does not depend on the
// order of the stream. A record that is not above all that can still be refused costs one
// comparison. The others gather; when there are half as many again as are wanted, the least visited
// go at once, and the last one that stays is what later records must be above.
#pragma once

#include "storage/url_record.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrine {

class MostVisited {
public:
    // Keeps `number` records, which is above 0.
    explicit MostVisited(size_t number) : m_number(number) {}

    // The record's count is above 0, and it stands once in the stream. 0, or -1 without memory.
    [[nodiscard]] int add(const UrlRecordView& record) {
        const bool refused = record.count < m_bound.count ||
                             (record.count == m_bound.count && record.key >= m_bound.key);
        return refused ? 0 : keep(record);
    }
    // All that is kept, the most visited first; the texts lie in this object until it changes. 0,
    // or -1 without memory.
    [[nodiscard]] int rank(std::vector<UrlRecordView>& records);

private:
    // What orders a record lies beside that of the next one, its text apart.
    struct Candidate {
        uint64_t count;
        uint64_t key;
        uint32_t type;
        uint32_t length;
        size_t text; // where it begins in m_texts
    };

    struct IsAbove { // a type, so that sorting has it inlined
        bool operator()(const Candidate& a, const Candidate& b) const {
            return a.count != b.count ? a.count > b.count : a.key < b.key;
        }
    };
    [[nodiscard]] int keep(const UrlRecordView& record);
    void cut();
    void packTexts();

    size_t m_number;
    Candidate m_bound{0, UINT64_MAX, 0, 0, 0}; // what is no more visited is refused
    std::vector<Candidate> m_candidates;
    std::vector<char> m_texts;
};

} // namespace kestrine
