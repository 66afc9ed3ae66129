#include "merge/merging_reader.h"

#include "frame/log.h"

namespace kestrine {

int MergingReader::init(const std::vector<UrlFile*>& inputs) {
    m_entries.reserve(inputs.size());
    for (UrlFile* const file : inputs) {
        MergeEntry entry;
        entry.file = file;
        const int result = file->readOneRecord(entry.record);
        if (result < 0) {
            m_failed = file;
            return LOG_FAIL("readOneRecord %s fail", file->path().c_str());
        }
        if (result == 0) {
            m_entries.push_back(entry);
        }
    }
    for (MergeEntry& entry : m_entries) {
        m_heap.push(entry.record.key, &entry);
    }
    return 0;
}

int MergingReader::readOneRecord(UrlRecordView& record) {
    if (m_heap.empty()) {
        return 1;
    }
    m_pending.hold(m_heap.top().record);
    int result = advance(m_heap.top());
    while (result == 0 && !m_heap.empty() && m_pending.holds(m_heap.topKey())) {
        m_pending.add(m_heap.top().record.count);
        result = advance(m_heap.top());
    }
    record = m_pending.release();
    return result;
}

// Replaces the record of the top entry by its next one.
int MergingReader::advance(MergeEntry& entry) {
    // The next block takes the place of the one in which the text lies.
    if (!entry.file->block().hasCurrent()) {
        m_pending.keepText();
    }
    const uint64_t key = entry.record.key;
    const int result = entry.file->readOneRecord(entry.record);
    if (result == 1) {
        m_heap.removeTop();
        return 0;
    }
    if (result == 0 && entry.record.key > key) {
        m_heap.replaceTopKey(entry.record.key);
        return 0;
    }
    if (result == 0) {
        LOG_ERROR("keys of %s do not ascend", entry.file->path().c_str());
        entry.file->setBroken();
    }
    m_failed = entry.file;
    return LOG_FAIL("readOneRecord %s fail", entry.file->path().c_str());
}

} // namespace kestrine
