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
#include "merge/merge_engine.h"

#include "frame/log.h"
#include "frame/run_flag.h"
#include "frame/ticks.h"
#include "platform/platform.h"
#include "storage/compress.h"
#include "tree/free_space.h"
#include "tree/names.h"

#include <algorithm>
#include <cinttypes>

namespace kestrine {

namespace {

constexpr uint32_t g_checkInterval = 60000; // ms between two tests of free space and run flag
constexpr uint32_t g_stepsUnlooked = 1024;  // records between two looks at the clock
constexpr const char* g_keysFault = "not ascending or not as in the header";

// Marks an input broken whose keys are not what its headers and its order promise. Returns -1.
int breakInput(UrlFile& file, const char* what, const char* fault) {
    file.setBroken();
    return LOG_FAIL("%s of %s %s, set broken flag", what, file.path().c_str(), fault);
}

} // namespace

int MergeEngine::commonMergeProcess(const std::vector<UrlFile*>& inputs) {
    // The heap points into it, so it must never grow.
    m_entries.reserve(inputs.size());
    if (initMergeMinHeap(inputs) != 0) {
        return LOG_FAIL("initMergeMinHeap fail out %s", m_output.path().c_str());
    }
    while (!m_heap.empty()) {
        if (const int ret = checkSpaceAndStop(); ret != 0) {
            // After a stop the output is incomplete: the caller looks at the flag and removes it.
            return ret > 0 ? 0 : -1;
        }
        if (mergeStep(m_heap.top()) != 0) {
            return -1;
        }
    }
    if (!m_pending.held()) {
        return 0; // the last action was a block copy, which flushed
    }
    if (writePending() != 0) {
        return LOG_FAIL("write once record %s fail", m_output.path().c_str());
    }
    return m_output.flush() == 0 ? 0 : LOG_FAIL("flush %s fail", m_output.path().c_str());
}

int MergeEngine::initMergeMinHeap(const std::vector<UrlFile*>& inputs) {
    for (UrlFile* const file : inputs) {
        MergeEntry entry;
        const int ret = file->readBlockHeader(entry.header);
        if (ret < 0) {
            return LOG_FAIL("read block header from %s fail", file->path().c_str());
        }
        if (ret == 1) {
            continue; // no block at all: takes no part
        }
        if (entry.header.minKey > entry.header.maxKey) {
            return breakInput(*file, "block keys", "invalid");
        }
        entry.file = file;
        assert(m_entries.size() < m_entries.capacity()); // the heap points into the array
        m_entries.push_back(entry);
        m_heap.push(entry.header.minKey, &m_entries.back());
    }
    return 0;
}

// Once a minute; the clock is looked at now and then only. 0; 1 when a stop was requested; -1.
int MergeEngine::checkSpaceAndStop() {
    if (m_stepsToLook > 0) {
        --m_stepsToLook;
        return 0;
    }
    m_stepsToLook = g_stepsUnlooked;
    noteProgress(); // the run flag is looked at far less often than a supervisor may ask
    const uint32_t now = platform().tickCount();
    if (m_lastCheck && elapsedTicks(*m_lastCheck, now) < g_checkInterval) {
        return 0;
    }
    m_lastCheck = now;
    const std::string directory(
        names::parentOf(m_output.path())); // on the volume that is written to
    if (Util::sleepWhileNoSpace(directory) != 0) {
        return LOG_FAIL("sleepWhileNoSpace fail %s", directory.c_str());
    }
    if (!stopRequested()) {
        return 0;
    }
    LOG_DEBUG("find g_isRunning 0, stop");
    return 1;
}

int MergeEngine::mergeStep(MergeEntry& entry) {
    if (entry.decompressed) {
        return dealUnCompress(entry) == 0
                   ? 0
                   : LOG_FAIL("deal with uncompress data fail %s %s", m_output.path().c_str(),
                              entry.file->path().c_str());
    }
    m_stepsToLook = 0; // a block takes long
    if (isSmallerThanOthers(entry) && foldFits(entry)) {
        return copyBlock(entry);
    }
    if (decompressBlock(entry) != 0) {
        return -1;
    }
    return dealUnCompress(entry) == 0
               ? 0
               : LOG_FAIL("deal with uncompress data fail %s ", m_output.path().c_str());
}

// An equal key blocks the copy too: the two records must be summed.
bool MergeEngine::isSmallerThanOthers(const MergeEntry& top) const {
    return m_heap.isBelowOthers(top.header.maxKey);
}

// False when the pending record is to be folded into the block, but the sum in its header, which
// damage can make as large as any, has no room for it.
bool MergeEngine::foldFits(const MergeEntry& entry) const {
    return !m_pending.holds(m_heap.topKey()) ||
           m_pending.record().count <= g_maxCount - static_cast<uint64_t>(entry.header.totalCount);
}

// The entry's block goes to the output whole.
int MergeEngine::copyBlock(MergeEntry& entry) {
    const char* const out = m_output.path().c_str();
    const char* const in = entry.file->path().c_str();
    if (m_pending.holds(m_heap.topKey())) {
        return mergeMinKeyAndWriteOutBlock(entry) == 0
                   ? 0
                   : LOG_FAIL("mergeMinKeyAndWriteOutBlock fail %s %s", out, in);
    }
    if (m_pending.held()) {
        LOG_DEBUG("key not match, write one record %" PRIu64 " %" PRId64, m_pending.record().key,
                  static_cast<int64_t>(m_pending.record().count));
        if (writePending() != 0) {
            return LOG_FAIL("write one record %s fail", out);
        }
    }
    return writeCompressData(entry) == 0 ? 0 : LOG_FAIL("writeCompressData fail %s %s", out, in);
}

int MergeEngine::writeCompressData(MergeEntry& entry) {
    const char* const out = m_output.path().c_str();
    const char* const in = entry.file->path().c_str();
    if (m_output.flush() != 0) { // what was built record by record comes before the block
        return LOG_FAIL("flush %s fail", out);
    }
    ByteView data;
    if (readBlockData(entry, data) != 0) {
        return -1;
    }
    if (m_output.writeBlockHeader(entry.header) != 0) {
        return LOG_FAIL("write block header to %s fail", out);
    }
    if (m_output.writeBlockData(data) != 0) {
        return LOG_FAIL("write block data fail %s", out);
    }
    noteWritten(entry.header.minKey, entry.header.maxKey);
    entry.file->block().reset();
    return pushNextkeyFromHeader(entry) == 0 ? 0 : LOG_FAIL("pushNextkeyFromHeader %s fail", in);
}

int MergeEngine::mergeMinKeyAndWriteOutBlock(MergeEntry& entry) {
    const char* const out = m_output.path().c_str();
    if (m_output.flush() != 0) {
        return LOG_FAIL("flush fail %s", out);
    }
    ByteView data;
    if (decompressBlock(entry) != 0) {
        return -1;
    }
    foldPending(entry);
    if (compressAgain(entry, data) != 0) {
        return -1;
    }
    if (m_output.writeBlockHeader(entry.header) != 0) {
        return LOG_FAIL("writeBlockHeader fail %s", out);
    }
    if (m_output.writeBlockData(data) != 0) {
        return LOG_FAIL("writeBlockData fail %s", out);
    }
    noteWritten(entry.header.minKey, entry.header.maxKey);
    // All its records are written, though the cursor has passed none: they would keep the next
    // header from being read.
    entry.file->block().reset();
    return pushNextkeyFromHeader(entry) == 0 ? 0 : LOG_FAIL("pushNextkeyFromHeader fail %s", out);
}

// The pending record's count goes into the block's first record and into the header's sum.
void MergeEngine::foldPending(MergeEntry& entry) {
    assert(m_pending.holds(entry.record.key) && foldFits(entry));
    UrlRecordBlock& block = entry.file->block();
    block.addToFirst(m_pending.release().count);
    entry.header = block.header();
}

// The folded block as it will be stored, the header to match. A block that does not shrink is
// stored raw.
int MergeEngine::compressAgain(MergeEntry& entry, ByteView& data) {
    Compress* compress = nullptr;
    if (Compress::getInstance(&compress) != 0) {
        return LOG_FAIL("Compress::getInstance fail");
    }
    const ByteView raw = entry.file->block().rawData();
    entry.header.flag = 1;
    if (compress->compress(raw, &data) != 0) {
        LOG_INFO("comress fail, write raw data");
        entry.header.flag = 0;
        data = raw;
    }
    entry.header.blockSize = static_cast<int32_t>(data.size());
    return 0;
}

// The block's data as stored, which takes the place of other contents that records may lie in.
int MergeEngine::readBlockData(MergeEntry& entry, ByteView& data) {
    m_pending.keepText();
    return entry.file->readBlockData(data) == 0
               ? 0
               : LOG_FAIL("read block data from %s fail", entry.file->path().c_str());
}

// Leaves the first record in the entry.
int MergeEngine::decompressBlock(MergeEntry& entry) {
    assert(!entry.decompressed);
    ByteView data;
    if (readBlockData(entry, data) != 0) {
        return -1;
    }
    if (entry.file->unCompress() != 0) {
        return LOG_FAIL("unCompress block data from %s fail", entry.file->path().c_str());
    }
    entry.decompressed = true;
    if (readRecord(entry) != 0) {
        return LOG_FAIL("getTopRecord2 fail, no more record, should not");
    }
    return entry.record.key == m_heap.topKey() ? 0 : breakInput(*entry.file, "keys", g_keysFault);
}

int MergeEngine::readRecord(MergeEntry& entry) {
    const UrlRecordBlock& block = entry.file->block();
    if (!block.hasCurrent() || block.getCurrentUrlRecord(entry.record) != 0) {
        entry.file->setBroken();
        return -1;
    }
    return 0;
}

int MergeEngine::dealUnCompress(MergeEntry& entry) {
    if (m_pending.holds(entry.record.key)) {
        m_pending.add(entry.record.count);
    } else {
        if (m_pending.held() && writePending() != 0) {
            return LOG_FAIL("write one record fail %s", m_output.path().c_str());
        }
        m_pending.hold(entry.record);
    }
    entry.file->block().advance(entry.record);
    return pushNextKey(entry) == 0
               ? 0
               : LOG_FAIL("pushNextKey from %s fail", entry.file->path().c_str());
}

int MergeEngine::pushNextKey(MergeEntry& entry) {
    if (!entry.file->block().hasCurrent()) {
        return pushNextkeyFromHeader(entry) == 0
                   ? 0
                   : LOG_FAIL("push next key from header fail %s", entry.file->path().c_str());
    }
    const uint64_t lastKey = entry.record.key;
    // A record beyond the header's last key may lie behind the first one of the next block.
    if (readRecord(entry) != 0 || entry.record.key <= lastKey ||
        entry.record.key > entry.header.maxKey) {
        return breakInput(*entry.file, "keys", g_keysFault);
    }
    m_heap.replaceTopKey(entry.record.key);
    return 0;
}

int MergeEngine::pushNextkeyFromHeader(MergeEntry& entry) {
    const uint64_t lastKey = entry.header.maxKey;
    const int ret = entry.file->readBlockHeader(entry.header);
    if (ret < 0) {
        return LOG_FAIL("read block header from %s fail", entry.file->path().c_str());
    }
    if (ret == 1) {
        m_heap.removeTop();
        return 0;
    }
    // Only with ascending blocks does a copied block need no look at its records.
    if (entry.header.minKey <= lastKey || entry.header.minKey > entry.header.maxKey) {
        return breakInput(*entry.file, "blocks", "not ascending");
    }
    entry.decompressed = false;
    m_heap.replaceTopKey(entry.header.minKey);
    return 0;
}

int MergeEngine::writePending() {
    const UrlRecordView& record = m_pending.release();
    noteWritten(record.key, record.key);
    return m_output.writeOneRecord(record);
}

// What the tests of the inputs' keys are for: the output's keys ascend, whatever the inputs hold.
void MergeEngine::noteWritten(uint64_t firstKey, uint64_t lastKey) {
    assert((!m_lastKey || firstKey > *m_lastKey) && firstKey <= lastKey);
    m_lastKey = lastKey;
}

} // namespace kestrine
