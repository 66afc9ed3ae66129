// The record of a merge whose count is still being summed over the inputs.
#pragma once

#include "frame/buffer.h"
#include "storage/url_record.h"

#include <algorithm>
#include <cassert>
#include <cstdint>

namespace kestrine {

// Stops at the largest count: only damage makes counts that large, and it must not make a merge
// fail for ever that has no broken input.
[[nodiscard]] inline uint64_t sumOfCounts(uint64_t a, uint64_t b) {
    return std::min(a + b, g_maxCount);
}

class PendingRecord {
public:
    // Makes the room for one record; called before anything else. 0 or -1.
    [[nodiscard]] int allocate() {
        return Util::assureNotEmpty(static_cast<int32_t>(g_maxRecordSize), &m_text);
    }

    [[nodiscard]] bool held() const { return m_held; }
    [[nodiscard]] bool holds(uint64_t key) const { return m_held && m_record.key == key; }
    [[nodiscard]] const UrlRecordView& record() const {
        assert(m_held);
        return m_record;
    }
    // Copies the record, whose block may go away.
    void hold(const UrlRecordView& record) {
        assert(!m_held && record.url.size() < m_text.size());
        std::ranges::copy(asBytes(record.url), m_text.data());
        m_record = record;
        m_record.url = asText(ByteView(m_text.data(), record.url.size()));
        m_held = true;
    }
    void add(uint64_t count) {
        assert(m_held);
        m_record.count = sumOfCounts(m_record.count, count);
    }
    // Gives the record up. What is returned is valid until the next `hold`.
    [[nodiscard]] const UrlRecordView& release() {
        assert(m_held);
        m_held = false;
        return m_record;
    }

private:
    Buffer m_text;
    UrlRecordView m_record; // its text lies in m_text
    bool m_held = false;
};

} // namespace kestrine
