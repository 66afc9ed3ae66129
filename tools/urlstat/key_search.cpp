#include "key_search.h"

#include "block_walk.h"
#include "failure.h"
#include "stat_file.h"
#include "storage/codec.h"
#include "storage/reading.h"
#include "storage/verify.h"

#include <algorithm>
#include <new>
#include <zlib.h>

namespace kestrine::viewer {

namespace {

// Pages come with their first use, and are kept. False without memory.
bool hasRoom(Buffer& buffer) {
    return !buffer.empty() || buffer.allocate(size_t{g_blockCapacity}) == 0;
}

} // namespace

KeySearch::KeySearch(std::vector<uint64_t> keys)
    : m_keys(std::move(keys)), m_places([this](size_t place, size_t thread) {
          // Each job writes places of its own: what was found of its keys.
          const Job& job = m_jobs[place];
          if (const int result = searchBlock(job, m_buffers[thread]); result != 0) {
              job.answer->result = result;
          }
      }) {
    m_buffers.resize(m_places.threads());
    m_jobs.resize(m_places.places());
}

size_t KeySearch::add(UrlFile& file) {
    const size_t number = m_answers.size();
    Answer& answer = m_answers.emplace_back();
    answer.path = file.path();
    answer.found.resize(m_keys.size());
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
    Job& job = m_jobs[m_places.take()];
    if (!hasRoom(job.memory)) {
        throw std::bad_alloc();
    }
    if (file.takeBlockData(job.memory.span(), job.stored) != 0) {
        throw readFailure(file);
    }
    job.answer = &m_answers.back();
    job.firstKey = firstKey;
    job.endKey = endKey;
    job.header = header;
    m_places.handOver();
    ++m_decoded;
}

void KeySearch::finish() {
    m_places.finish();
}

// 0, g_damaged or -1: no memory.
int KeySearch::searchBlock(const Job& job, Buffer& buffer) const {
    ByteView records = job.stored;
    if (job.header.flag == 1) {
        if (!hasRoom(buffer)) {
            return -1;
        }
        size_t length = 0;
        const int result = codec::decode(job.stored, buffer.span(), length);
        if (result != Z_OK) {
            return result == Z_MEM_ERROR ? -1 : g_damaged;
        }
        records = ByteView(buffer.span()).first(length);
    }
    const bool whole = records.size() == static_cast<size_t>(job.header.rawSize);
    return whole ? searchRecords(job, records) : g_damaged;
}

// All records, not only those up to the keys: a raw block has no other checksum than its header.
int KeySearch::searchRecords(const Job& job, ByteView records) const {
    OrderCheck order(RecordOrder::Key);
    bool inOrder = true;
    BlockHeader seen;
    size_t next = job.firstKey;
    const auto search = [&](const UrlRecordView& record, size_t) {
        inOrder = order.next(record) && inOrder;
        for (; next < job.endKey && m_keys[next] <= record.key; ++next) {
            if (m_keys[next] == record.key) {
                job.answer->found[next] = {record.count, 1};
            }
        }
    };
    const bool whole = walkBlock(records, job.header.count, seen, search);
    return whole && inOrder && seen.agrees(job.header) ? 0 : g_damaged;
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
