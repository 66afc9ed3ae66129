// The record of a merge whose count is still being summed over the inputs.
#pragma once

#include "storage/url_record.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <cstring>

namespace kestrine {

// Stops at the largest count: only damage makes counts that large, and it must not make a merge
// fail for ever that has no broken input.
[[nodiscard]] inline uint64_t sumOfCounts(uint64_t a, uint64_t b) {
    return std::min(a + b, g_maxCount);
}

class PendingRecord {
public:
    [[nodiscard]] bool held() const { return m_held; }
    [[nodiscard]] bool holds(uint64_t key) const { return m_held && m_record.key == key; }
    [[nodiscard]] const UrlRecordView& record() const {
        assert(m_held);
        return m_record;
    }
    // Takes a record whose text lies in a block.
    void hold(const UrlRecordView& record) {
        assert(!m_held);
        m_record = record;
        m_held = true;
    }
    // Copies the text: the contents of a block are about to go away.
    void keepText() {
        if (!m_held || m_record.url.data() == asText(m_text).data()) {
            return;
        }
        assert(m_record.url.size() < m_text.size());
        std::memcpy(m_text.data(), m_record.url.data(), m_record.url.size());
        m_record.url = asText(ByteView(m_text).first(m_record.url.size()));
    }
    void add(uint64_t count) {
        assert(m_held);
        m_record.count = sumOfCounts(m_record.count, count);
    }
    // Gives the record up. What is returned is valid until the next `hold`, or until its block
    // goes.
    [[nodiscard]] const UrlRecordView& release() {
        assert(m_held);
        m_held = false;
        return m_record;
    }

private:
    std::array<uint8_t, g_maxHostText + 1> m_text;
    UrlRecordView m_record; // its text lies in a block or in m_text
    bool m_held = false;
};

} // namespace kestrine
