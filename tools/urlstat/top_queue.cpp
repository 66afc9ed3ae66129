#include "top_queue.h"

#include <new>

namespace kestrine::viewer {

void TopQueue::push(const UrlRecordView& record) {
    if (m_records.add(record) != 0) {
        throw std::bad_alloc();
    }
}

std::vector<UrlRecordPtr> TopQueue::take() {
    std::vector<UrlRecordView> ranked;
    if (m_records.rank(ranked) != 0) {
        throw std::bad_alloc();
    }
    std::vector<UrlRecordPtr> records;
    records.reserve(ranked.size());
    for (const UrlRecordView& record : ranked) {
        records.push_back(makeUrlRecord(record));
        if (!records.back()) {
            throw std::bad_alloc();
        }
    }
    return records;
}

} // namespace kestrine::viewer
