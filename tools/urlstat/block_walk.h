// The records of a decoded block, all in one loop without a call: every record that the viewer
// checks comes by here.
#pragma once

#include "storage/block_header.h"

namespace kestrine::viewer {

// Hands each of `count` records to `each`, with the number of the block's bytes behind it, and adds
// it to `seen`, which begins empty. False when the bytes do not hold so many good records and
// nothing else; those before the wrong one have been handed out.
template <typename Each>
[[nodiscard]] bool walkBlock(ByteView bytes, int32_t count, BlockHeader& seen, const Each& each) {
    UrlRecordView record;
    while (seen.count < count) {
        if (parseRecord(bytes, record) != 0 || !isCount(record.count)) {
            return false;
        }
        bytes = bytes.subspan(record.size());
        each(record, bytes.size());
        seen.add(record);
    }
    return bytes.empty(); // a count that is too low would hide records
}

} // namespace kestrine::viewer
