#include "aggregate/url_hash_map.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <numeric>
#include <random>
#include <utility>

namespace kestrine {

namespace {

constexpr size_t g_firstSlots = 8192;

// At most three slots of four are taken.
bool isCrowded(size_t records, size_t slots) {
    return records >= slots / 4 * 3;
}

// Of buckets for so many records, some eight in each. No more than 65,536, whose ends stay in the
// processor's cache while records are dealt out.
int bucketBits(size_t records) {
    return std::clamp(static_cast<int>(std::bit_width(records)) - 3, 1, 16);
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

// Keys are hashes, whose high bits deal the records out evenly over buckets that are quick to sort.
// Where somebody chose hosts whose keys share a bucket, that one is larger and takes longer.
int UrlHashMap::list(PageArray<KeyedRecord>& records) {
    // For `retain`: the table goes, so that list and table are never there at once.
    m_listedSlots = m_slots.size();
    m_slots.release();
    const int bits = bucketBits(m_size);
    const auto bucketOf = [bits](uint64_t key) { return static_cast<size_t>(key >> (64 - bits)); };
    PageArray<uint32_t> ends; // of the buckets, in the list
    if (records.allocate(m_size) != 0 || ends.allocate(size_t{1} << bits) != 0) {
        return -1;
    }
    m_arena.forEach(
        [&](RecordArena::Ref, const UrlRecordView& record) { ++ends[bucketOf(record.key)]; });
    // First where each begins: filling it moves that to its end.
    std::exclusive_scan(ends.data(), ends.data() + ends.size(), ends.data(), uint32_t{0});
    m_arena.forEach([&](RecordArena::Ref ref, const UrlRecordView& record) {
        records[ends[bucketOf(record.key)]++] = {record.key, ref, Spared::visitsOf(record)};
    });
    KeyedRecord* begin = records.data();
    for (const uint32_t end : ends.span()) {
        std::sort(begin, records.data() + end,
                  [](const KeyedRecord& a, const KeyedRecord& b) { return a.key < b.key; });
        begin = records.data() + end;
    }
    assert(begin == records.data() + m_size);
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
