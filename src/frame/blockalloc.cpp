#include "frame/blockalloc.h"

#include <cstdio>
#include <new>
#include <utility>

namespace kestrine {

namespace {

// Two line numbers that name the place of the failure, whatever this file's lines are.
constexpr int g_firstChunkLine = 32;
constexpr int g_nextChunkLine = 46;

void reportFailure(int line) {
    std::printf("file:%s, line:%d, assert bug !!!!!\n", "blockalloc", line);
    std::fflush(stdout);
}

} // namespace

bool BlockPool::addChunk() {
    std::unique_ptr<Chunk> chunk(new (std::nothrow) Chunk); // its bytes stay untouched
    if (!chunk) {
        return false;
    }
    chunk->previous = std::move(m_current);
    m_current = std::move(chunk);
    m_used = 0;
    return true;
}

uint8_t* BlockPool::allocate(size_t size) {
    if (!m_current && !addChunk()) {
        reportFailure(g_firstChunkLine);
        return nullptr;
    }
    if (g_chunkSize - m_used < size && (size > g_chunkSize || !addChunk())) {
        reportFailure(g_nextChunkLine);
        return nullptr;
    }
    uint8_t* piece = m_current->payload + m_used;
    m_used += size;
    return piece;
}

void BlockPool::release() {
    while (m_current) { // one by one: a chain of destructors would nest as deep as it is long
        m_current = std::move(m_current->previous);
    }
    m_used = 0;
}

} // namespace kestrine
