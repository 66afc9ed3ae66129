#include "aggregate/record_arena.h"

#include <cassert>
#include <cstring>
#include <new>
#include <utility>

namespace kestrine {

int RecordArena::add(const UrlRecordView& record, Ref& ref) {
    UrlRecordView stored = record;
    stored.url = record.url.substr(0, g_maxHostText);
    const size_t size = stored.size();
    if ((m_chunks.empty() || m_used.back() + size > g_chunkSize) && addChunk() != 0) {
        return -1;
    }
    ref = refOf(m_chunks.size() - 1, m_used.back());
    stored.store(m_chunks.back().data() + m_used.back());
    m_used.back() += size;
    return 0;
}

int RecordArena::addChunk() {
    PageArray<uint8_t> chunk;
    // More chunks could not be told apart in a Ref.
    if (m_chunks.size() == g_mostChunks || chunk.allocate(g_chunkSize) != 0) {
        return -1;
    }
    try {
        // First, so that the last step cannot fail: both vectors always have the same length.
        m_used.reserve(m_chunks.size() + 1);
        m_chunks.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    m_used.push_back(0);
    return 0;
}

void RecordArena::move(size_t chunk, size_t offset, size_t toChunk, size_t to, size_t size) {
    assert(toChunk < chunk || (toChunk == chunk && to <= offset));
    std::memmove(m_chunks[toChunk].data() + to, m_chunks[chunk].data() + offset, size);
}

// The chunk is the last one, with so many bytes in it; one without any goes too.
void RecordArena::cutTo(size_t chunk, size_t used) {
    const size_t chunks = used == 0 ? chunk : chunk + 1;
    m_chunks.resize(chunks);
    m_used.resize(chunks);
    if (used != 0) {
        m_used.back() = used;
    }
}

} // namespace kestrine
