#include "key_search.h"

#include "failure.h"
#include "stat_file.h"
#include "storage/codec.h"
#include "storage/reading.h"
#include "storage/verify.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>
#include <zlib.h>

namespace kestrine::viewer {

namespace {

constexpr size_t g_batch = 16;      // blocks of at most 2 MiB, which wait in memory
constexpr size_t g_mostThreads = 8; // each with a buffer of 2 MiB

size_t threadCount() {
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, g_mostThreads);
}

// Calls work(i, thread) for every i below `count`, by so many threads. It must not throw, and must
// not call what the modules keep for their one thread: the log, UrlFile.
template <typename Work>
void forEach(size_t count, size_t threads, const Work& work) {
    std::atomic<size_t> next = 0;
    const auto run = [&](size_t thread) {
        for (size_t i = next++; i < count; i = next++) {
            work(i, thread);
        }
    };
    std::vector<std::jthread> others;
    for (size_t thread = 1; thread < std::min(count, threads); ++thread) {
        others.emplace_back(run, thread);
    }
    run(0);
}

} // namespace

KeySearch::KeySearch(std::vector<uint64_t> keys) : m_keys(std::move(keys)) {}

size_t KeySearch::add(UrlFile& file) {
    const size_t number = m_answers.size();
    m_answers.push_back({file.path(), std::vector<Found>(m_keys.size()), 0});
    BlockHeader header;
    // Keys before `next` are settled, as far as headers settle them.
    auto next = m_keys.cbegin();
    while (next != m_keys.cend() && nextHeader(file, header)) {
        next = std::lower_bound(next, m_keys.cend(), header.minKey);
        const auto end = std::upper_bound(next, m_keys.cend(), header.maxKey);
        if (next != end) {
            keepBlock(file, header, static_cast<size_t>(next - m_keys.cbegin()),
                      static_cast<size_t>(end - m_keys.cbegin()));
        } else if (file.skipBlockData() != 0) {
            throw readFailure(file);
        }
        next = end;
    }
    return number;
}

// False behind the last block.
bool KeySearch::nextHeader(UrlFile& file, BlockHeader& header) {
    const BlockHeader before = header;
    const int result = file.readBlockHeader(header);
    if (result < 0) {
        throw readFailure(file);
    }
    // Out of order, a host that is there would be passed over.
    const bool ascends = before.count == 0 || header.minKey > before.maxKey;
    if (result == 0 && (header.minKey > header.maxKey || !ascends)) {
        throw damageFailure(file.path());
    }
    m_blocks += result == 0 ? 1 : 0;
    return result == 0;
}

// Of the file added last.
void KeySearch::keepBlock(UrlFile& file, const BlockHeader& header, size_t firstKey,
                          size_t endKey) {
    ByteView stored;
    if (file.readBlockData(stored) != 0) {
        throw readFailure(file);
    }
    if (m_waiting == m_jobs.size()) {
        m_jobs.emplace_back();
    }
    Job& job = m_jobs[m_waiting++];
    job.answer = m_answers.size() - 1;
    job.firstKey = firstKey;
    job.endKey = endKey;
    job.header = header;
    job.stored.assign(stored.begin(), stored.end());
    file.block().reset(); // decoded elsewhere
    if (m_waiting == g_batch) {
        searchWaiting();
    }
}

void KeySearch::finish() {
    searchWaiting();
}

void KeySearch::searchWaiting() {
    m_buffers.resize(threadCount());
    for (size_t i = 0; i < std::min(m_buffers.size(), m_waiting); ++i) {
        m_buffers[i].resize(size_t{g_blockCapacity});
    }
    // Each job writes places of its own: its result, and what was found of its keys.
    forEach(m_waiting, m_buffers.size(), [this](size_t job, size_t thread) {
        m_jobs[job].result = searchBlock(m_jobs[job], m_buffers[thread]);
    });
    for (const Job& job : std::span(m_jobs).first(m_waiting)) {
        int& result = m_answers[job.answer].result;
        result = result != 0 ? result : job.result;
    }
    m_decoded += m_waiting;
    m_waiting = 0;
}

// 0, g_damaged or -1.
int KeySearch::searchBlock(const Job& job, std::span<uint8_t> buffer) {
    ByteView records = job.stored;
    if (job.header.flag == 1) {
        size_t length = 0;
        const int result = codec::decode(job.stored, buffer, length);
        if (result != Z_OK) {
            return result == Z_MEM_ERROR ? -1 : g_damaged;
        }
        records = ByteView(buffer).first(length);
    }
    const bool whole = records.size() == static_cast<size_t>(job.header.rawSize);
    return whole ? searchRecords(job, records) : g_damaged;
}

// All records, not only those up to the keys: a raw block has no other checksum than its header.
int KeySearch::searchRecords(const Job& job, ByteView records) {
    std::vector<Found>& found = m_answers[job.answer].found;
    OrderCheck order(RecordOrder::Key);
    BlockHeader seen;
    UrlRecordView record;
    size_t next = job.firstKey;
    for (; !records.empty(); records = records.subspan(record.size())) {
        if (parseRecord(records, record) != 0 || !isCount(record.count) || !order.next(record)) {
            return g_damaged;
        }
        seen.add(record);
        for (; next < job.endKey && m_keys[next] <= record.key; ++next) {
            if (m_keys[next] == record.key) {
                found[next] = {record.count, 1};
            }
        }
    }
    return seen.agrees(job.header) ? 0 : g_damaged;
}

const std::vector<Found>& KeySearch::found(size_t file) const {
    const Answer& answer = m_answers[file];
    if (answer.result < 0) {
        throw std::bad_alloc();
    }
    if (answer.result != 0) {
        throw damageFailure(answer.path);
    }
    return answer.found;
}

} // namespace kestrine::viewer
