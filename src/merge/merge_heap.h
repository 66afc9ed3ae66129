// The inputs of a merge, by the key that each will deliver next.
#pragma once

#include "storage/url_file.h"

#include <cstdint>
#include <vector>

namespace kestrine {

// One input.
struct MergeEntry {
    BlockHeader header;        // of the current block
    UrlFile* file = nullptr;   // open, owned by the caller of the merge
    UrlRecordView record;      // next one of a decompressed block
    bool decompressed = false; // the block's records can be walked
};

// Array-based min-heap by key: that of the entry's next record, or, while its block is not
// decompressed, the block's first key. Of equal keys the one pushed first comes first, so that a
// host keeps the text and type of the earliest input. The top entry stays in its place while it is
// worked on.
class MergeHeap {
public:
    [[nodiscard]] bool empty() const { return m_nodes.empty(); }
    void push(uint64_t key, MergeEntry* entry);
    // Of the entry with the smallest key; the heap is not empty.
    [[nodiscard]] MergeEntry& top() const { return *m_nodes.front().entry; }
    [[nodiscard]] uint64_t topKey() const { return m_nodes.front().key; }
    // True when every entry but the top one has a key above this one.
    [[nodiscard]] bool isBelowOthers(uint64_t key) const {
        return (m_nodes.size() < 2 || key < m_nodes[1].key) &&
               (m_nodes.size() < 3 || key < m_nodes[2].key);
    }
    // The top entry goes on with this key, which is not smaller, or has nothing left.
    void replaceTopKey(uint64_t key) { sink({key, m_nodes.front().rank, m_nodes.front().entry}); }
    void removeTop();

private:
    struct Node {
        uint64_t key;
        size_t rank; // as pushed
        MergeEntry* entry;

        [[nodiscard]] bool operator<(const Node& other) const {
            return key < other.key || (key == other.key && rank < other.rank);
        }
    };

    void sink(Node node);

    std::vector<Node> m_nodes; // root at 0, children of i at 2i + 1 and 2i + 2
};

} // namespace kestrine
