// Several sorted URL files read as one: every key once, in ascending order, with the sum of its
// counts, and text and type of the earliest file.
#pragma once

#include "merge/merge_heap.h"
#include "merge/pending_record.h"
#include "storage/url_file.h"

#include <cstdint>
#include <vector>

namespace kestrine {

class MergingReader {
public:
    MergingReader() = default;
    MergingReader(const MergingReader&) = delete;
    MergingReader& operator=(const MergingReader&) = delete;

    // Takes open files, positioned before their first block, that outlive the reader. 0, or -1: an
    // input cannot be read, or is broken.
    [[nodiscard]] int init(const std::vector<UrlFile*>& inputs);
    // The next record, valid until the next call. 0; 1 at the end; -1 as above.
    [[nodiscard]] int readOneRecord(UrlRecordView& record);
    // The input that made a call fail.
    [[nodiscard]] const UrlFile* failed() const { return m_failed; }

private:
    [[nodiscard]] int advance(MergeEntry& entry);

    std::vector<MergeEntry> m_entries; // stay where they are
    MergeHeap m_heap;
    PendingRecord m_pending;
    const UrlFile* m_failed = nullptr;
};

} // namespace kestrine
