#include "merge/merge_heap.h"

namespace kestrine {

// All pushes come before the first removal, so that the number of nodes is a rank.
void MergeHeap::push(uint64_t key, MergeEntry* entry) {
    size_t slot = m_nodes.size();
    const Node node{key, slot, entry};
    m_nodes.push_back(node);
    while (slot > 0 && node < m_nodes[(slot - 1) / 2]) {
        m_nodes[slot] = m_nodes[(slot - 1) / 2];
        slot = (slot - 1) / 2;
    }
    m_nodes[slot] = node;
}

void MergeHeap::removeTop() {
    const Node last = m_nodes.back();
    m_nodes.pop_back();
    if (!m_nodes.empty()) {
        sink(last);
    }
}

// Puts the node into the root's place and lets it sink.
void MergeHeap::sink(Node node) {
    const size_t size = m_nodes.size();
    size_t slot = 0;
    for (size_t child = 1; child < size; child = 2 * slot + 1) {
        if (child + 1 < size && m_nodes[child + 1] < m_nodes[child]) {
            ++child;
        }
        if (node < m_nodes[child]) {
            break;
        }
        m_nodes[slot] = m_nodes[child];
        slot = child;
    }
    m_nodes[slot] = node;
}

} // namespace kestrine
