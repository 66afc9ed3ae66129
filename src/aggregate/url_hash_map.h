// The visits counted in memory: one record per key, and what the records cost in bytes.
//
// An open-addressing table with linear probing over an arena of records. A slot takes 8 bytes: the
// record's place and 32 bits of its key. Keys are hashes already, but by a public function:
// multiplied with a secret odd number, their high bits choose the slot, so that nobody can pick
// hosts that share one. There is no removal of single records: a spill takes a sorted list of all,
// and then drops those that it wrote.
#pragma once

#include "aggregate/record_arena.h"
#include "aggregate/spared.h"
#include "platform/pages.h"

#include <cstdint>

namespace kestrine {

class UrlHashMap {
public:
    UrlHashMap();

    // Counts a visit of the key. False when there is no record of it.
    [[nodiscard]] bool addVisit(uint64_t key) {
        const uint64_t slot = m_slots.empty() ? 0 : m_slots[slotOf(key)];
        if (slot == 0) {
            return false;
        }
        m_arena.addVisit(refOf(slot));
        return true;
    }
    // Load what `addVisit` will look at: the key's slot, and then, through it, its record.
    void prefetchSlot(uint64_t key) const {
        if (!m_slots.empty()) {
            __builtin_prefetch(&m_slots[firstSlotOf(key)]);
        }
    }
    void prefetchRecord(uint64_t key) const {
        const uint64_t slot = m_slots.empty() ? 0 : m_slots[firstSlotOf(key)];
        if (slot != 0) {
            __builtin_prefetch(m_arena.at(refOf(slot)));
        }
    }
    // Adds a record whose key is not in the map. 0, or -1 without memory for it.
    [[nodiscard]] int insert(const UrlRecordView& record);
    [[nodiscard]] UrlRecordView recordAt(RecordArena::Ref ref) const { return m_arena.viewAt(ref); }
    void prefetchAt(RecordArena::Ref ref) const { __builtin_prefetch(m_arena.at(ref)); }

    // Lists all records in ascending order of their keys. The table's memory goes back to the
    // system first, so that the list takes its place: until `retain` or `clear` there are records,
    // but nothing can be counted. 0, or -1 without memory for the list.
    [[nodiscard]] int list(PageArray<KeyedRecord>& records);
    // After `list`: drops all records but those that are spared, whose places change. 0, or -1
    // without memory for the table.
    [[nodiscard]] int retain(const Spared& spared);
    // Empties the map and gives all its memory back.
    void clear();

    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    // Bytes of the records held (24 + urlLen each), without the table itself.
    [[nodiscard]] uint64_t usedMemory() const { return m_usedMemory; }

private:
    [[nodiscard]] static RecordArena::Ref refOf(uint64_t slot) {
        return static_cast<RecordArena::Ref>(slot) - 1;
    }
    [[nodiscard]] size_t firstSlotOf(uint64_t key) const {
        return static_cast<size_t>((key * m_multiplier) >> m_shift);
    }
    // The slot that holds the key, or the free one where it belongs.
    [[nodiscard]] size_t slotOf(uint64_t key) const {
        const size_t mask = m_slots.size() - 1;
        size_t slot = firstSlotOf(key);
        while (m_slots[slot] != 0 && !holds(m_slots[slot], key)) {
            slot = (slot + 1) & mask;
        }
        return slot;
    }
    [[nodiscard]] bool holds(uint64_t slot, uint64_t key) const {
        return static_cast<uint32_t>(slot >> 32) == static_cast<uint32_t>(key) &&
               m_arena.keyAt(refOf(slot)) == key;
    }
    [[nodiscard]] int fill(size_t slots);
    void place(uint64_t key, RecordArena::Ref ref);

    RecordArena m_arena;
    PageArray<uint64_t> m_slots; // 2^n; low half: place + 1, or 0 when free; high half: key's low
    int m_shift = 0;             // 64 - n
    size_t m_listedSlots = 0;    // of the table that the list took the place of
    uint64_t m_multiplier;       // of this map, odd
    size_t m_size = 0;
    uint64_t m_usedMemory = 0;
};

} // namespace kestrine
