// Visits on their way into the map, a few at a time, so that the memory that each will need is
// loaded while the others are dealt with: in a large map nearly every one waits for memory twice.
#pragma once

#include "aggregate/url_hash_map.h"
#include "storage/url_key.h"

#include <array>
#include <cassert>
#include <cstdint>
#include <span>
#include <string_view>

namespace kestrine {

struct Visit {
    uint64_t key = 0; // of the whole text
    std::string_view host;
    uint32_t type = 0;
};

class VisitBatch {
public:
    // Adds a visit to a batch that is not full. The text stays where it is.
    void add(const UrlHashMap& map, std::string_view host, uint32_t type) {
        assert(!full());
        m_visits[m_size] = {urlKey(asBytes(host)), host, type};
        map.prefetchSlot(m_visits[m_size].key);
        ++m_size;
    }
    // After the last one, before they are counted.
    void loadRecords(const UrlHashMap& map) const {
        for (const Visit& visit : all()) {
            map.prefetchRecord(visit.key);
        }
    }
    [[nodiscard]] bool full() const { return m_size == m_visits.size(); }
    [[nodiscard]] std::span<const Visit> all() const { return std::span(m_visits).first(m_size); }
    void clear() { m_size = 0; }

private:
    std::array<Visit, 16> m_visits;
    size_t m_size = 0;
};

} // namespace kestrine
