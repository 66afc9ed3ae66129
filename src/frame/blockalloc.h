// A pool of bytes that are given back all at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrine {

// Hands out pieces of a chain of chunks. The tail of a chunk that is too short for a request is
// abandoned. Pieces live until `release` or the pool's end.
class BlockPool {
public:
    static constexpr size_t g_chunkSize = 1048576; // bytes of payload; the largest piece

    BlockPool() = default;
    ~BlockPool() { release(); }
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    // `size` bytes, unaligned and not cleared. Null, after a line on the console, when the memory
    // is not to be had or the piece is larger than a chunk.
    [[nodiscard]] uint8_t* allocate(size_t size);
    void release();

private:
    struct Chunk {
        uint8_t payload[g_chunkSize];
        std::unique_ptr<Chunk> previous;
    };

    [[nodiscard]] bool addChunk();

    std::unique_ptr<Chunk> m_current;
    size_t m_used = 0; // bytes handed out from the current chunk
};

} // namespace kestrine
