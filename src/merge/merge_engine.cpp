// The k-way merge of sorted URL files.
//
//  1. Every input's first block header goes onto a min-heap by its first key.
//  2. The input with the smallest current key is taken.
//     a. Its block is decompressed already: one record is consumed (step 3).
//     b. Its block's last key is below the current key of every other input: the block is copied to
//        the output as it is stored. A pending record of the block's first key is folded into it
//        (unless the block's sum would overflow), a pending record of a smaller key is written
//        first.
//     c. Otherwise the block is decompressed and one record is consumed.
//  3. A consumed record is added to the pending one if the keys are equal; otherwise the pending
//     record is written and the consumed one becomes pending.
//  4. The input goes back onto the heap with its next record's or block's key.
//  5. At the end the pending record is written and the output flushed.
//
// Keys of an input must ascend; one that does not marks its file broken, so that damage can never
// lead to a key that stands twice in an output.
#include "frame/buffer.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/ticks.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "storage/compress.h"
#include "tree/free_space.h"
#include "tree/names.h"

#include <algorithm>
#include <cinttypes>

namespace kestrine {

namespace {

constexpr uint32_t g_checkInterval = 60000; // ms between two tests of free space and run flag
constexpr int32_t g_pendingRecordSize = static_cast<int32_t>(g_maxRecordSize);

// Stops at the largest count: only damage makes counts that large, and it must not make a merge
// fail for ever that has no broken input.
uint64_t sumOfCounts(uint64_t a, uint64_t b) {
    return std::min(a + b, g_maxCount);
}

} // namespace

int MergeFileList::commonMergeProcess(UrlFile* output, const std::vector<UrlFile*>& inputs) {
    if (output == nullptr || inputs.empty()) {
        return LOG_FAIL("param invalid");
    }
    if (tryAllocMemory(inputs.size()) != 0) {
        return LOG_FAIL("tryAllocMemory fail %s", output->path().c_str());
    }
    MergeHeap heap;
    if (initMergeMinHeap(inputs, heap) != 0) {
        return LOG_FAIL("initMergeMinHeap fail out %s", output->path().c_str());
    }
    m_checkedBefore = false;
    while (!heap.empty()) {
        MergeEntry* const entry = heap.pop();
        bool stop = false;
        if (checkSpaceAndStop(output->path(), stop) != 0) {
            return -1;
        }
        if (stop) {
            return 0;
        }
        if (mergeStep(entry, *output, heap) != 0) {
            return -1;
        }
    }
    if (!m_pending) {
        return 0; // the last action was a block copy, which flushed
    }
    if (writePending(*output) != 0) {
        return LOG_FAIL("write once record %s fail", output->path().c_str());
    }
    if (output->flush() != 0) {
        return LOG_FAIL("flush %s fail", output->path().c_str());
    }
    return 0;
}

int MergeFileList::tryAllocMemory(size_t count) {
    if (count == 0) {
        return LOG_FAIL("param invalid");
    }
    m_pending = false;
    if (Util::assureNotEmpty(g_pendingRecordSize, &m_pendingRecord) != 0) {
        return LOG_FAIL("assureNotEmpty fail");
    }
    if (m_entries.size() < count) {
        m_entries.resize(count);
    }
    return 0;
}

int MergeFileList::initMergeMinHeap(const std::vector<UrlFile*>& inputs, MergeHeap& heap) {
    m_entryCount = 0;
    for (UrlFile* const file : inputs) {
        MergeEntry& entry = m_entries[m_entryCount];
        const int ret = file->readBlockHeader(entry.header);
        if (ret < 0) {
            return LOG_FAIL("read block header from %s fail", file->path().c_str());
        }
        if (ret == 1) {
            continue; // no block at all: takes no part
        }
        if (entry.header.minKey > entry.header.maxKey) {
            file->setBroken();
            return LOG_FAIL("block keys of %s invalid, set broken flag", file->path().c_str());
        }
        entry.file = file;
        entry.currentKey = entry.header.minKey;
        entry.index = m_entryCount;
        entry.active = true;
        entry.decompressed = false;
        heap.push(&entry);
        ++m_entryCount;
    }
    return 0;
}

// An equal key blocks the copy too: the two records must be summed.
int MergeFileList::isSmallerThanOthers(const MergeEntry* top) const {
    if (top == nullptr) {
        return LOG_FAIL("param invalid");
    }
    for (uint32_t i = 0; i < m_entryCount; ++i) {
        const MergeEntry& other = m_entries[i];
        if (other.active && other.index != top->index && top->header.maxKey >= other.currentKey) {
            return 0;
        }
    }
    return 1;
}

int MergeFileList::checkSpaceAndStop(const std::string& output, bool& stop) {
    const uint32_t now = platform().tickCount();
    if (m_checkedBefore && elapsedTicks(m_lastCheck, now) < g_checkInterval) {
        return 0;
    }
    m_checkedBefore = true;
    m_lastCheck = now;
    const std::string directory(names::parentOf(output)); // on the volume that is written to
    if (Util::sleepWhileNoSpace(directory) != 0) {
        return LOG_FAIL("sleepWhileNoSpace fail %s", directory.c_str());
    }
    if (stopRequested()) {
        LOG_DEBUG("find g_isRunning 0, stop");
        stop = true;
    }
    return 0;
}

int MergeFileList::mergeStep(MergeEntry* entry, UrlFile& output, MergeHeap& heap) {
    const char* const out = output.path().c_str();
    const char* const in = entry->file->path().c_str();
    if (entry->decompressed) {
        if (dealUnCompress(entry, output, heap) != 0) {
            return LOG_FAIL("deal with uncompress data fail %s %s", out, in);
        }
        return 0;
    }
    if (isSmallerThanOthers(entry) == 1 && foldFits(*entry)) {
        return copyBlock(entry, output, heap);
    }
    if (decompressBlock(entry) != 0) {
        return -1;
    }
    entry->decompressed = true;
    if (dealUnCompress(entry, output, heap) != 0) {
        return LOG_FAIL("deal with uncompress data fail %s ", out);
    }
    return 0;
}

// False when the pending record is to be folded into the block, but the sum in its header, which
// damage can make as large as any, has no room for it.
bool MergeFileList::foldFits(const MergeEntry& entry) const {
    return !m_pending || pendingRecord().key != entry.currentKey ||
           pendingRecord().count <= g_maxCount - static_cast<uint64_t>(entry.header.totalCount);
}

// The entry's block goes to the output whole.
int MergeFileList::copyBlock(MergeEntry* entry, UrlFile& output, MergeHeap& heap) {
    const char* const out = output.path().c_str();
    const char* const in = entry->file->path().c_str();
    if (m_pending && pendingRecord().key == entry->currentKey) {
        if (mergeMinKeyAndWriteOutBlock(entry, output, heap) != 0) {
            return LOG_FAIL("mergeMinKeyAndWriteOutBlock fail %s %s", out, in);
        }
        return 0;
    }
    if (m_pending) {
        const UrlRecordView pending = pendingRecord();
        LOG_DEBUG("key not match, write one record %" PRIu64 " %" PRId64, pending.key,
                  static_cast<int64_t>(pending.count));
        if (writePending(output) != 0) {
            return LOG_FAIL("write one record %s fail", out);
        }
    }
    if (writeCompressData(entry, output, heap) != 0) {
        return LOG_FAIL("writeCompressData fail %s %s", out, in);
    }
    return 0;
}

int MergeFileList::decompressBlock(MergeEntry* entry) {
    const char* const in = entry->file->path().c_str();
    ByteView data;
    if (entry->file->readBlockData(data) != 0) {
        return LOG_FAIL("read block data from %s fail", in);
    }
    if (entry->file->unCompress() != 0) {
        return LOG_FAIL("unCompress block data from %s fail", in);
    }
    return 0;
}

int MergeFileList::dealUnCompress(MergeEntry* entry, UrlFile& output, MergeHeap& heap) {
    UrlRecordBlock& block = entry->file->block();
    UrlRecordView record;
    if (!block.hasCurrent() || block.getCurrentUrlRecord(record) != 0) {
        entry->file->setBroken();
        return LOG_FAIL("getTopRecord2 fail, no more record, should not");
    }
    if (record.key != entry->currentKey) {
        entry->file->setBroken();
        return LOG_FAIL("keys of %s not ascending or not as in the header, set broken flag",
                        entry->file->path().c_str());
    }
    if (m_pending && pendingRecord().key == record.key) {
        storeLittle(m_pendingRecord.data() + recordAt::g_count,
                    sumOfCounts(pendingRecord().count, record.count));
    } else {
        if (m_pending && writePending(output) != 0) {
            return LOG_FAIL("write one record fail %s", output.path().c_str());
        }
        setPending(record);
    }
    block.advance(record);
    if (pushNextKey(entry, heap) != 0) {
        return LOG_FAIL("pushNextKey from %s fail", entry->file->path().c_str());
    }
    return 0;
}

int MergeFileList::pushNextKey(MergeEntry* entry, MergeHeap& heap) {
    UrlRecordBlock& block = entry->file->block();
    if (!block.hasCurrent()) {
        if (pushNextkeyFromHeader(entry, heap) != 0) {
            return LOG_FAIL("push next key from header fail %s", entry->file->path().c_str());
        }
        return 0;
    }
    UrlRecordView next;
    if (block.getCurrentUrlRecord(next) != 0 || next.key <= entry->currentKey ||
        next.key > entry->header.maxKey) {
        entry->file->setBroken();
        return LOG_FAIL("keys of %s not ascending or not as in the header, set broken flag",
                        entry->file->path().c_str());
    }
    entry->currentKey = next.key;
    heap.push(entry);
    return 0;
}

int MergeFileList::pushNextkeyFromHeader(MergeEntry* entry, MergeHeap& heap) {
    const uint64_t lastKey = entry->header.maxKey;
    const int ret = entry->file->readBlockHeader(entry->header);
    if (ret < 0) {
        return LOG_FAIL("read block header from %s fail", entry->file->path().c_str());
    }
    if (ret == 1) {
        entry->active = false;
        return 0;
    }
    if (entry->header.minKey <= lastKey || entry->header.minKey > entry->header.maxKey) {
        entry->file->setBroken();
        return LOG_FAIL("blocks of %s not ascending, set broken flag", entry->file->path().c_str());
    }
    entry->currentKey = entry->header.minKey;
    entry->decompressed = false;
    heap.push(entry);
    return 0;
}

int MergeFileList::writeCompressData(MergeEntry* entry, UrlFile& output, MergeHeap& heap) {
    const char* const out = output.path().c_str();
    const char* const in = entry->file->path().c_str();
    if (output.flush() != 0) {
        return LOG_FAIL("flush %s fail", out);
    }
    ByteView data;
    if (entry->file->readBlockData(data) != 0) {
        return LOG_FAIL("read block data from %s fail", in);
    }
    if (output.writeBlockHeader(entry->header) != 0) {
        return LOG_FAIL("write block header to %s fail", out);
    }
    if (output.writeBlockData(data) != 0) {
        return LOG_FAIL("write block data fail %s", out);
    }
    entry->file->block().reset();
    if (pushNextkeyFromHeader(entry, heap) != 0) {
        return LOG_FAIL("pushNextkeyFromHeader %s fail", in);
    }
    return 0;
}

int MergeFileList::mergeMinKeyAndWriteOutBlock(MergeEntry* entry, UrlFile& output,
                                               MergeHeap& heap) {
    const char* const out = output.path().c_str();
    if (output.flush() != 0) {
        return LOG_FAIL("flush fail %s", out);
    }
    if (decompressBlock(entry) != 0) {
        return -1;
    }
    UrlRecordBlock& block = entry->file->block();
    UrlRecordView first;
    if (!block.hasCurrent() || block.getCurrentUrlRecord(first) != 0 ||
        first.key != entry->currentKey) {
        entry->file->setBroken();
        return LOG_FAIL("first key of %s not as in the header, set broken flag",
                        entry->file->path().c_str());
    }
    block.addToFirst(pendingRecord().count);
    entry->header = block.header();
    m_pending = false;

    Compress* compress = nullptr;
    if (Compress::getInstance(&compress) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    const ByteView raw = block.rawData();
    ByteView data = raw;
    entry->header.flag = 0;
    if (compress->compress(raw.data(), static_cast<int32_t>(raw.size()), &data) == 0) {
        entry->header.flag = 1;
    } else {
        LOG_INFO("comress fail, write raw data");
        data = raw;
    }
    entry->header.blockSize = static_cast<int32_t>(data.size());
    if (output.writeBlockHeader(entry->header) != 0) {
        return LOG_FAIL("writeBlockHeader fail %s", out);
    }
    if (output.writeBlockData(data) != 0) {
        return LOG_FAIL("writeBlockData fail %s", out);
    }
    block.reset();
    if (pushNextkeyFromHeader(entry, heap) != 0) {
        return LOG_FAIL("pushNextkeyFromHeader fail %s", out);
    }
    return 0;
}

int MergeFileList::writePending(UrlFile& output) {
    m_pending = false;
    return output.writeOneRecord(pendingRecord());
}

void MergeFileList::setPending(const UrlRecordView& record) {
    record.store(m_pendingRecord.data());
    m_pendingSize = record.size();
    m_pending = true;
}

UrlRecordView MergeFileList::pendingRecord() const {
    const uint8_t* const bytes = m_pendingRecord.data();
    return {loadLittle<uint64_t>(bytes), loadLittle<uint64_t>(bytes + 8),
            loadLittle<uint32_t>(bytes + 16),
            asText({bytes + g_recordHeadSize, m_pendingSize - g_recordHeadSize - 1})};
}

} // namespace kestrine
