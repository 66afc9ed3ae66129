#include "commands.h"

#include "aggregate/priority_queue.h"

#include <cinttypes>
#include <cstdio>
#include <new>
#include <vector>

namespace kestrine::viewer {

namespace {

// The most visited of the records pushed; memory for these alone, however many there are.
class TopQueue {
public:
    explicit TopQueue(uint32_t length) {
        if (m_queue.init(length) != 0) {
            throw std::bad_alloc();
        }
        m_queue.ownElements([](RankedRecord ranked) { FreeUrlRecord()(ranked.record); });
    }

    void push(const UrlRecordView& record) {
        if (m_queue.full() && record.count < m_queue.top().count) {
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

    // Empties the queue, the most visited record first.
    std::vector<UrlRecordPtr> take() {
        std::vector<UrlRecordPtr> records(m_queue.size());
        for (size_t i = records.size(); i-- > 0;) {
            records[i].reset(m_queue.top().record);
            m_queue.pop();
        }
        return records;
    }

private:
    RecordQueue m_queue;
};

} // namespace

void printTop(CheckedFile& file, uint32_t number) {
    TopQueue queue(number);
    file.readAll([](uint64_t, const BlockHeader&) {},
                 [&queue](const UrlRecordView& record) { queue.push(record); });
    std::printf("%6s %12s %8s %10s  host   (share: of the %" PRIu64 " visits of all records in "
                "this %s)\n",
                "rank", "count", "share", "type", file.visits(),
                file.kind() == FileKind::TopList ? "list" : "file");
    const auto whole = static_cast<double>(file.visits());
    size_t rank = 0;
    for (const UrlRecordPtr& record : queue.take()) {
        const double share = whole > 0 ? 100.0 * static_cast<double>(record->count) / whole : 0;
        std::printf("%6zu %12" PRIu64 " %7.3f%% %10" PRIu32 "  %s\n", ++rank, record->count, share,
                    record->type, printable(record->url()).c_str());
    }
}

} // namespace kestrine::viewer
