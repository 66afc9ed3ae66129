// The most visited of the records pushed, in memory for little more than these, however many pass.
#pragma once

#include "aggregate/most_visited.h"
#include "storage/url_record.h"

#include <cstdint>
#include <vector>

namespace kestrine::viewer {

class TopQueue {
public:
    explicit TopQueue(uint32_t length) : m_records(length) {}
    void push(const UrlRecordView& record);
    // What it holds, the most visited record first; of equal ones the lower key.
    [[nodiscard]] std::vector<UrlRecordPtr> take();

private:
    MostVisited m_records;
};

} // namespace kestrine::viewer
