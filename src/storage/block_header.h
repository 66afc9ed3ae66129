// Header of a block of URL records, as it stands on disk before the block's data.
//
//   offset size field
//        0    8 minKey      smallest key in the block
//        8    8 maxKey      largest key in the block
//       16    8 totalCount  sum of the records' counts, signed, above 0
//       24    4 blockSize   bytes of data that follow the header
//       28    4 rawSize     bytes of the records uncompressed
//       32    4 flag        1 zlib, 0 raw
//       36    4 count       records in the block, signed, above 0
#pragma once

#include "storage/url_record.h"

#include <algorithm>

namespace kestrine {

struct BlockHeader {
    static constexpr size_t g_size = 40;

    uint64_t minKey = ~uint64_t{0};
    uint64_t maxKey = 0;
    int64_t totalCount = 0;
    int32_t blockSize = 0;
    int32_t rawSize = 0;
    uint32_t flag = 0;
    int32_t count = 0;

    void store(std::span<uint8_t, g_size> bytes) const;
    void load(std::span<const uint8_t, g_size> bytes);

    // Takes a record into what the header says of all: keys, total, number. A total that is too
    // large wraps.
    void add(const UrlRecordView& record) {
        minKey = std::min(minKey, record.key);
        maxKey = std::max(maxKey, record.key);
        // Added without a sign: the counts of a damaged file may sum up to anything, and a signed
        // overflow would be undefined.
        totalCount = static_cast<int64_t>(static_cast<uint64_t>(totalCount) + record.count);
        ++count;
    }
    // Whether the other header says the same of its records.
    [[nodiscard]] bool agrees(const BlockHeader& other) const;
};

namespace Util {

// Sanity of a block header, before its data is read and before it is written: flag 0 or 1, count
// and total above 0, sizes that fit the flag. 0 or -1.
[[nodiscard]] int validateBlockHeader(const BlockHeader* header);

} // namespace Util
} // namespace kestrine
