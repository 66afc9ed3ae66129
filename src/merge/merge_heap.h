// The inputs of one merge, ordered by their current key.
#pragma once

#include "storage/block_header.h"
#include "storage/url_file.h"

#include <cstdint>
#include <vector>

namespace kestrine {

// One input file of a merge.
struct MergeEntry {
    // First key of the current block while it is not decompressed, then the key of its next record.
    uint64_t currentKey = 0;
    BlockHeader header;        // of the current block
    UrlFile* file = nullptr;   // open, owned by the caller of the merge
    bool decompressed = false; // the block's records can be walked
    uint32_t index = 0;        // own position in the array of entries
    bool active = false;       // the input still has blocks
};

// Array-based min-heap by current key. Entries of equal keys are in no defined order.
class MergeHeap {
public:
    [[nodiscard]] bool empty() const { return m_entries.empty(); }
    void push(MergeEntry* entry);
    // Removes and returns the entry with the smallest key; the heap is not empty.
    [[nodiscard]] MergeEntry* pop();

private:
    std::vector<MergeEntry*> m_entries; // root at 0, children of i at 2i + 1 and 2i + 2
};

} // namespace kestrine
