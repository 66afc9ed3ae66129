#include "aggregate/url_hash_map.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <random>
#include <utility>

namespace kestrine {

namespace {

constexpr size_t g_firstSlots = 8192;

// At most three slots of four are taken.
bool isCrowded(size_t records, size_t slots) {
    return records >= slots / 4 * 3;
}

} // namespace

UrlHashMap::UrlHashMap() {
    std::random_device random;
    // Odd, so that no two keys are multiplied into one.
    m_multiplier = (uint64_t{random()} << 32) | random() | 1;
}

int UrlHashMap::insert(const UrlRecordView& record) {
    // The table grows before the record is stored: when either fails the map is as it was.
    if (isCrowded(m_size, m_slots.size()) &&
        fill(std::max(g_firstSlots, 2 * m_slots.size())) != 0) {
        return -1;
    }
    RecordArena::Ref ref = 0;
    if (m_arena.add(record, ref) != 0) {
        return -1;
    }
    place(record.key, ref);
    m_usedMemory += m_arena.viewAt(ref).size();
    ++m_size;
    return 0;
}

void UrlHashMap::place(uint64_t key, RecordArena::Ref ref) {
    // Plus one, since 0 says that a slot is free.
    m_slots[slotOf(key)] = (key << 32) | (ref + 1);
}

// Replaces the table by one of so many slots. The new one takes no room before it is filled, and
// that is done from the records, so that the old one is gone by then.
int UrlHashMap::fill(size_t slots) {
    PageArray<uint64_t> table;
    if (table.allocate(slots) != 0) {
        return -1;
    }
    m_slots = std::move(table);
    m_shift = 64 - std::countr_zero(slots);
    m_arena.forEach(
        [this](RecordArena::Ref ref, const UrlRecordView& record) { place(record.key, ref); });
    return 0;
}

int UrlHashMap::list(PageArray<KeyedRecord>& records) {
    // For `retain`: the table goes, so that list and table are never there at once.
    m_listedSlots = m_slots.size();
    m_slots.release();
    if (records.allocate(m_size) != 0) {
        return -1;
    }
    size_t i = 0;
    m_arena.forEach([&](RecordArena::Ref ref, const UrlRecordView& record) {
        records[i++] = {record.key, ref, Spared::visitsOf(record)};
    });
    assert(i == m_size);
    std::sort(records.data(), records.data() + i,
              [](const KeyedRecord& a, const KeyedRecord& b) { return a.key < b.key; });
    return 0;
}

int UrlHashMap::retain(const Spared& spared) {
    m_size = 0;
    m_usedMemory = 0;
    m_arena.compact([this, &spared](const UrlRecordView& record) {
        const bool kept = spared.holds(record.key, Spared::visitsOf(record));
        m_size += kept ? 1 : 0;
        m_usedMemory += kept ? record.size() : 0;
        return kept;
    });
    // All memory back, as between dates nothing is counted.
    if (m_size == 0) {
        clear();
        return 0;
    }
    return fill(m_listedSlots); // what was enough before will be needed again
}

void UrlHashMap::clear() {
    m_slots.release();
    m_arena.clear();
    m_size = 0;
    m_usedMemory = 0;
}

} // namespace kestrine
