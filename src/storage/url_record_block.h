// The one-block buffer through which a URL file is written and read.
//
// On disk a block is a header (block_header.h) and its data: records (url_record.h) packed one
// after another, compressed when that makes them no longer.
#pragma once

#include "frame/buffer.h"
#include "platform/platform.h"
#include "storage/block_header.h"
#include "storage/url_record.h"

#include <cstdint>

namespace kestrine {

class UrlRecordBlock {
public:
    [[nodiscard]] int init();
    // Back to the empty state, the buffer is kept.
    void reset();

    // ---- writing
    // True when the record fits, at least one byte stays free and the sum of the counts does not
    // overflow.
    [[nodiscard]] bool hasRoomFor(const UrlRecordView& record) const;
    // Appends; the caller has made sure of the room and of the ascending order.
    void append(const UrlRecordView& record);
    // Writes header and data; nothing when the block is empty. 0 or -1.
    [[nodiscard]] int writeOneBlock(File& file);
    // Bytes of records in the buffer.
    [[nodiscard]] size_t used() const { return m_used; }

    // ---- reading; `endPos` is where the blocks of the file end.
    // Next block, decoded. 0; 1: no further block before `endPos`; g_damaged (reading.h): its bytes
    // are wrong; -1: a call failed.
    [[nodiscard]] int readOneBlock(File& file, int64_t endPos);
    // The steps of it, for readers that copy blocks undecoded; only the header can be the last.
    [[nodiscard]] int readBlockHeader(File& file, int64_t endPos);
    [[nodiscard]] int readBlockData(File& file, int64_t endPos);
    [[nodiscard]] int unCompress();
    // The data as stored, between readBlockData and unCompress.
    [[nodiscard]] ByteView storedData() const;
    // The records' bytes of a decoded block; writable, so that a count can be folded in.
    [[nodiscard]] std::span<uint8_t> rawData();

    [[nodiscard]] const BlockHeader& header() const { return m_header; }
    // True while a decoded block has a record at the cursor.
    [[nodiscard]] bool hasCurrent() const;
    // The record at the cursor. 0, or -1 when it does not lie inside the decoded data or its count
    // is none that is ever written.
    [[nodiscard]] int getCurrentUrlRecord(UrlRecordView& record) const;
    // Moves past `record`, which is the one at the cursor.
    void advance(const UrlRecordView& record);

private:
    // Stands in m_used, m_recordIndex and m_offset while a header has been read and its data not
    // been decoded.
    static constexpr int32_t g_notDecoded = 0x0FFFFFFF;

    [[nodiscard]] int checkBlockData(int64_t cur, int64_t endPos) const;
    [[nodiscard]] bool rawDataFits() const;
    [[nodiscard]] int decode();

    BlockHeader m_header;
    int32_t m_capacity = 0;
    int32_t m_used = 0;
    Buffer m_buffer;
    int32_t m_recordIndex = 0;
    int32_t m_offset = 0;
};

} // namespace kestrine
