// Which records a spill leaves in the map: the most visited; of equal ones those of lower keys.
#pragma once

#include "storage/url_record.h"

#include <cstdint>
#include <span>

namespace kestrine {

// An entry of the sorted list that a spill works on.
struct KeyedRecord {
    uint64_t key;
    uint32_t place;  // in the map's arena
    uint32_t visits; // the record's count, or the largest value for all counts above it
};

// Those with more visits than the bound, and those with as many up to a key. By default none.
class Spared {
public:
    // Chooses `keep` records of a list that is sorted by key; takes the time of three walks.
    [[nodiscard]] static Spared choose(std::span<const KeyedRecord> records, size_t keep);

    [[nodiscard]] static uint32_t visitsOf(const UrlRecordView& record) {
        return record.count < UINT32_MAX ? static_cast<uint32_t>(record.count) : UINT32_MAX;
    }
    [[nodiscard]] bool holds(uint64_t key, uint32_t visits) const {
        return m_any && (visits > m_visits || (visits == m_visits && key <= m_lastKey));
    }

private:
    bool m_any = false;
    uint32_t m_visits = 0;
    uint64_t m_lastKey = 0; // of those with just as many visits
};

} // namespace kestrine
