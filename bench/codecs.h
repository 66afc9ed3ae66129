// The libraries behind the service's blocks, alone: what they cost is the least that reading and
// writing these blocks can cost.
#pragma once

#include "frame/bytes.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace kestrine::bench {

// A block's data in memory.
struct Block {
    std::vector<uint8_t> bytes;
    bool compressed = false;
};

struct Codec {
    std::string decoder; // names of libraries
    std::string encoder;
    int (*decode)(ByteView stored, std::span<uint8_t> raw, size_t& length);
    int (*encode)(ByteView raw, std::span<uint8_t> stored, size_t& length);

    // Both into a buffer that the next call of any codec fills. Decoding leaves a block that is not
    // compressed where it is.
    [[nodiscard]] ByteView decoded(ByteView stored, bool compressed) const;
    [[nodiscard]] ByteView encoded(ByteView raw) const;
};

// The service's as it was built, and zlib alone where that is another one.
[[nodiscard]] const std::vector<Codec>& codecs();

void decodeAll(const Codec& codec, const std::vector<Block>& blocks);

// Reads a URL file block by block.
using UseBlock = std::function<void(ByteView stored, bool compressed)>;
void forEachBlock(const std::string& urlFile, const UseBlock& use);
// All its blocks, and what they decode to.
[[nodiscard]] std::vector<Block> blocksOf(const std::string& urlFile);
[[nodiscard]] std::vector<Block> recordsOf(const std::vector<Block>& blocks);
// All blocks of the log files below a directory.
[[nodiscard]] std::vector<Block> logBlocksBelow(const std::string& directory);

} // namespace kestrine::bench
