// The visits counted in memory: one record per key, and what the records cost in bytes.
//
// An open-addressing table of (key, record) pairs with linear probing. Keys are hashes already, but
// by a public function: multiplied with a secret odd number, their high bits choose the slot, so
// that nobody can pick hosts that share one. There is no removal of single records: a spill takes
// all out and puts back what it keeps.
#pragma once

#include "storage/url_record.h"

#include <cstdint>
#include <vector>

namespace kestrine {

struct KeyedRecord {
    uint64_t key = 0;
    UrlRecordPtr record;
};

class UrlHashMap {
public:
    UrlHashMap();

    // The record of a key, null when there is none.
    [[nodiscard]] UrlRecord* find(uint64_t key);
    // Adds a record whose key is not in the map.
    void insert(UrlRecordPtr record);
    // Moves all records out, in no order, and leaves the map empty with its table. 0, or -1 when
    // there is no memory for the list; the records stay then.
    [[nodiscard]] int takeAll(std::vector<KeyedRecord>& records);
    // Empties the map and gives the memory of its table back.
    void clear();

    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    // Bytes of the records held (24 + urlLen each), without the table itself.
    [[nodiscard]] uint64_t usedMemory() const { return m_usedMemory; }

private:
    [[nodiscard]] size_t slotOf(uint64_t key) const;
    void grow();

    std::vector<KeyedRecord> m_slots; // size 0 or 2^n, n > 0; an empty slot has no record
    uint64_t m_multiplier;            // of this map, odd
    size_t m_size = 0;
    uint64_t m_usedMemory = 0;
};

} // namespace kestrine
