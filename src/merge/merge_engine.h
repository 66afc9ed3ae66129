// The k-way merge of sorted URL files into one in which every key stands once.
#pragma once

#include "merge/merge_heap.h"
#include "merge/pending_record.h"
#include "storage/url_file.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kestrine {

// One merge.
class MergeEngine {
public:
    // The output is open for writing and outlives the engine.
    explicit MergeEngine(UrlFile& output) : m_output(output) {}
    MergeEngine(const MergeEngine&) = delete;
    MergeEngine& operator=(const MergeEngine&) = delete;

    // Merges open inputs, positioned before their first block; called once. 0 when all is written,
    // and also when it stopped because a stop was requested: the output is then incomplete and the
    // caller drops it. -1 on failure; an input that is to blame is broken then.
    [[nodiscard]] int commonMergeProcess(const std::vector<UrlFile*>& inputs);

private:
    [[nodiscard]] int initMergeMinHeap(const std::vector<UrlFile*>& inputs);
    [[nodiscard]] int checkSpaceAndStop();
    [[nodiscard]] int mergeStep(MergeEntry& entry);

    [[nodiscard]] bool isSmallerThanOthers(const MergeEntry& top) const;
    [[nodiscard]] bool foldFits(const MergeEntry& entry) const;
    [[nodiscard]] int copyBlock(MergeEntry& entry);
    [[nodiscard]] int writeCompressData(MergeEntry& entry);
    [[nodiscard]] int mergeMinKeyAndWriteOutBlock(MergeEntry& entry);
    void foldPending(MergeEntry& entry);
    [[nodiscard]] int compressAgain(MergeEntry& entry, ByteView& data);

    [[nodiscard]] int readBlockData(MergeEntry& entry, ByteView& data);
    [[nodiscard]] int decompressBlock(MergeEntry& entry);
    [[nodiscard]] static int readRecord(MergeEntry& entry);
    [[nodiscard]] int dealUnCompress(MergeEntry& entry);
    [[nodiscard]] int pushNextKey(MergeEntry& entry);
    [[nodiscard]] int pushNextkeyFromHeader(MergeEntry& entry);
    [[nodiscard]] int writePending();
    void noteWritten(uint64_t firstKey, uint64_t lastKey);

    UrlFile& m_output;
    std::vector<MergeEntry> m_entries; // of the inputs that have a block; stay where they are
    MergeHeap m_heap;
    PendingRecord m_pending;
    uint32_t m_stepsToLook = 0;          // before the clock is looked at
    std::optional<uint32_t> m_lastCheck; // tick of the last test of free space and run flag
    std::optional<uint64_t> m_lastKey;   // of the output so far
};

} // namespace kestrine
