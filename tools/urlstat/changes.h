// Hosts whose visits changed most between two periods, in memory for these alone.
#pragma once

#include "storage/url_record.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine::viewer {

struct Change {
    uint64_t key = 0;
    uint64_t before = 0; // visits; 0: the host is new
    uint64_t after = 0;  // 0: it is gone
    uint32_t type = 0;
    std::string host;

    [[nodiscard]] uint64_t size() const { return before > after ? before - after : after - before; }
};

// The largest of the changes offered.
class ChangeRanking {
public:
    explicit ChangeRanking(size_t length) : m_length(length) {}

    void offer(const UrlRecordView& record, uint64_t before, uint64_t after);
    // Empties the ranking, the largest first; of equal ones the lower key.
    [[nodiscard]] std::vector<Change> take();
    [[nodiscard]] uint64_t offered() const { return m_offered; }

private:
    size_t m_length;
    uint64_t m_offered = 0;
    std::vector<Change> m_changes; // a heap, the one that goes next in front
};

} // namespace kestrine::viewer
