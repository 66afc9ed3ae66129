#include "merge/merge_heap.h"

namespace kestrine {

void MergeHeap::push(MergeEntry* entry) {
    m_entries.push_back(entry);
    size_t slot = m_entries.size() - 1;
    while (slot > 0) {
        const size_t parent = (slot - 1) / 2;
        if (m_entries[parent]->currentKey <= entry->currentKey) {
            break;
        }
        m_entries[slot] = m_entries[parent];
        slot = parent;
    }
    m_entries[slot] = entry;
}

MergeEntry* MergeHeap::pop() {
    MergeEntry* const top = m_entries.front();
    MergeEntry* const last = m_entries.back();
    m_entries.pop_back();
    const size_t size = m_entries.size();
    if (size == 0) {
        return top;
    }
    size_t slot = 0;
    for (size_t child = 1; child < size; child = 2 * slot + 1) {
        if (child + 1 < size && m_entries[child + 1]->currentKey <= m_entries[child]->currentKey) {
            ++child;
        }
        if (last->currentKey <= m_entries[child]->currentKey) {
            break;
        }
        m_entries[slot] = m_entries[child];
        slot = child;
    }
    m_entries[slot] = last;
    return top;
}

} // namespace kestrine
