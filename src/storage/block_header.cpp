#include "storage/block_header.h"

#include "frame/log.h"

namespace kestrine {

void BlockHeader::store(std::span<uint8_t, g_size> bytes) const {
    storeLittle(bytes.data(), minKey);
    storeLittle(bytes.data() + 8, maxKey);
    storeLittle(bytes.data() + 16, totalCount);
    storeLittle(bytes.data() + 24, blockSize);
    storeLittle(bytes.data() + 28, rawSize);
    storeLittle(bytes.data() + 32, flag);
    storeLittle(bytes.data() + 36, count);
}

void BlockHeader::load(std::span<const uint8_t, g_size> bytes) {
    minKey = loadLittle<uint64_t>(bytes.data());
    maxKey = loadLittle<uint64_t>(bytes.data() + 8);
    totalCount = loadLittle<int64_t>(bytes.data() + 16);
    blockSize = loadLittle<int32_t>(bytes.data() + 24);
    rawSize = loadLittle<int32_t>(bytes.data() + 28);
    flag = loadLittle<uint32_t>(bytes.data() + 32);
    count = loadLittle<int32_t>(bytes.data() + 36);
}

// Sizes and flag are left out: they tell how the block was stored, not what its records are.
bool BlockHeader::agrees(const BlockHeader& other) const {
    return minKey == other.minKey && maxKey == other.maxKey && totalCount == other.totalCount &&
           count == other.count;
}

int Util::validateBlockHeader(const BlockHeader* header) {
    if (header == nullptr) {
        return LOG_FAIL("param null");
    }
    if (header->flag > 1) {
        return LOG_FAIL("flag invalid %d", static_cast<int32_t>(header->flag));
    }
    // No writer leaves an empty block; who decodes one relies on its first record.
    if (header->count <= 0) {
        return LOG_FAIL("count invalid %d", header->count);
    }
    if (header->totalCount <= 0) {
        return LOG_FAIL("count invalid %d", static_cast<int32_t>(header->totalCount));
    }
    // A block is stored compressed only when that makes it no longer, so a longer stream is damage.
    const bool fits = header->flag == 1 ? header->blockSize <= header->rawSize
                                        : header->blockSize == header->rawSize;
    if (header->blockSize <= 0 || !fits) {
        return LOG_FAIL("blockSize invalid %d rawSize %d", header->blockSize, header->rawSize);
    }
    return 0;
}

} // namespace kestrine
