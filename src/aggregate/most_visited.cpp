#include "aggregate/most_visited.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kestrine {

int MostVisited::keep(const UrlRecordView& record) {
    try {
        if (m_candidates.size() > m_number + m_number / 2) {
            cut();
        }
        // The text first: without memory for the candidate nobody asks for it.
        const size_t text = m_texts.size();
        m_texts.insert(m_texts.end(), record.url.begin(), record.url.end());
        m_candidates.push_back({record.count, record.key, record.type,
                                static_cast<uint32_t>(record.url.size()), text});
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

// Leaves the wanted number, of which there are more.
void MostVisited::cut() {
    const auto last = m_candidates.begin() + static_cast<ptrdiff_t>(m_number) - 1;
    std::nth_element(m_candidates.begin(), last, m_candidates.end(), IsAbove());
    m_bound = *last;
    m_candidates.erase(last + 1, m_candidates.end());
    packTexts();
}

void MostVisited::packTexts() {
    std::vector<char> packed;
    packed.reserve(m_texts.size()); // as much as before: there will be as many again
    for (Candidate& candidate : m_candidates) {
        const auto text = m_texts.begin() + static_cast<ptrdiff_t>(candidate.text);
        candidate.text = packed.size();
        packed.insert(packed.end(), text, text + candidate.length);
    }
    m_texts = std::move(packed);
}

int MostVisited::rank(std::vector<UrlRecordView>& records) {
    records.clear();
    try {
        if (m_candidates.size() > m_number) {
            cut();
        }
        records.reserve(m_candidates.size());
    } catch (const std::bad_alloc&) {
        return -1;
    }
    std::ranges::sort(m_candidates, IsAbove());
    for (const Candidate& candidate : m_candidates) {
        records.push_back({candidate.key, candidate.count, candidate.type,
                           std::string_view(m_texts.data() + candidate.text, candidate.length)});
    }
    return 0;
}

} // namespace kestrine
