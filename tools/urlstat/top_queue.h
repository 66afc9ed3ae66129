// The most visited of the records pushed, in memory for these alone, however many there are.
#pragma once

#include "aggregate/priority_queue.h"
#include "storage/url_record.h"

#include <cstdint>
#include <vector>

namespace kestrine::viewer {

class TopQueue {
public:
    explicit TopQueue(uint32_t length);
    void push(const UrlRecordView& record);
    // Empties the queue, the most visited record first; of equal ones the lower key.
    [[nodiscard]] std::vector<UrlRecordPtr> take();

private:
    RecordQueue m_queue;
};

} // namespace kestrine::viewer
