#include "aggregate/url_hash_map.h"

#include <bit>
#include <new>
#include <random>
#include <utility>

namespace kestrine {

namespace {

constexpr size_t g_firstSlots = 1024;

} // namespace

UrlHashMap::UrlHashMap() {
    std::random_device random;
    m_multiplier = (uint64_t{random()} << 32) | random() | 1;
}

// The slot that holds the key, or the free one where it belongs.
size_t UrlHashMap::slotOf(uint64_t key) const {
    const size_t mask = m_slots.size() - 1;
    auto slot = static_cast<size_t>((key * m_multiplier) >> std::countl_zero(uint64_t{mask}));
    while (m_slots[slot].record && m_slots[slot].key != key) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

UrlRecord* UrlHashMap::find(uint64_t key) {
    return m_slots.empty() ? nullptr : m_slots[slotOf(key)].record.get();
}

void UrlHashMap::insert(UrlRecordPtr record) {
    if (m_size * 2 >= m_slots.size()) {
        grow();
    }
    m_usedMemory += record->size();
    ++m_size;
    const uint64_t key = record->key;
    m_slots[slotOf(key)] = {key, std::move(record)};
}

int UrlHashMap::takeAll(std::vector<KeyedRecord>& records) {
    records.clear();
    try {
        records.reserve(m_size);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    for (KeyedRecord& slot : m_slots) {
        if (slot.record) {
            records.push_back(std::move(slot));
        }
    }
    m_size = 0;
    m_usedMemory = 0;
    return 0;
}

void UrlHashMap::clear() {
    m_slots = std::vector<KeyedRecord>(); // gives the table's memory back
    m_size = 0;
    m_usedMemory = 0;
}

void UrlHashMap::grow() {
    std::vector<KeyedRecord> old(m_slots.empty() ? g_firstSlots : m_slots.size() * 2);
    old.swap(m_slots);
    for (KeyedRecord& entry : old) {
        if (entry.record) {
            m_slots[slotOf(entry.key)] = std::move(entry);
        }
    }
}

} // namespace kestrine
