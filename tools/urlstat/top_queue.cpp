#include "top_queue.h"

#include <new>

namespace kestrine::viewer {

namespace {

// Most records of a large file are no larger than the smallest held: they are refused uncopied.
bool isAbove(const UrlRecordView& record, const RankedRecord& smallest) {
    return record.count > smallest.count ||
           (record.count == smallest.count && record.key < smallest.key);
}

} // namespace

TopQueue::TopQueue(uint32_t length) {
    if (m_queue.init(length) != 0) {
        throw std::bad_alloc();
    }
    m_queue.ownElements([](RankedRecord ranked) { FreeUrlRecord()(ranked.record); });
}

void TopQueue::push(const UrlRecordView& record) {
    if (m_queue.full() && !isAbove(record, m_queue.top())) {
        return;
    }
    UrlRecordPtr copy = makeUrlRecord(record);
    if (!copy) {
        throw std::bad_alloc();
    }
    RankedRecord dropped;
    if (m_queue.push(RankedRecord(copy.get()), dropped) < 0) {
        throw std::bad_alloc();
    }
    (void)copy.release(); // the queue's, which may have freed it already
}

std::vector<UrlRecordPtr> TopQueue::take() {
    std::vector<UrlRecordPtr> records(m_queue.size());
    for (size_t i = records.size(); i-- > 0;) {
        records[i].reset(m_queue.top().record);
        m_queue.pop();
    }
    return records;
}

} // namespace kestrine::viewer
