#include "changes.h"

#include <algorithm>
#include <utility>

namespace kestrine::viewer {

namespace {

bool comesFirst(const Change& a, const Change& b) {
    return a.size() != b.size() ? a.size() > b.size() : a.key < b.key;
}

} // namespace

void ChangeRanking::offer(const UrlRecordView& record, uint64_t before, uint64_t after) {
    ++m_offered;
    Change change{record.key, before, after, record.type, {}};
    if (m_changes.size() == m_length) {
        if (!comesFirst(change, m_changes.front())) {
            return;
        }
        std::ranges::pop_heap(m_changes, comesFirst);
        m_changes.pop_back();
    }
    change.host = record.url;
    m_changes.push_back(std::move(change));
    std::ranges::push_heap(m_changes, comesFirst);
}

std::vector<Change> ChangeRanking::take() {
    std::ranges::sort(m_changes, comesFirst);
    return std::exchange(m_changes, {});
}

} // namespace kestrine::viewer
