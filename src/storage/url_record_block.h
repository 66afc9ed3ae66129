// The one-block buffer through which a URL file is written and read.
//
// On disk a block is a header (block_header.h) and its data: records (url_record.h) packed one
// after another, compressed when that makes them no longer.
#pragma once

#include "frame/buffer.h"
#include "platform/platform.h"
#include "storage/block_header.h"
#include "storage/url_record.h"

#include <cassert>
#include <cstdint>

namespace kestrine {

// Room for a block's records, in bytes. Nothing larger is written, nothing larger is read.
constexpr int32_t g_blockCapacity = 2048 * 1024;

class UrlRecordBlock {
public:
    UrlRecordBlock() = default;
    ~UrlRecordBlock();
    UrlRecordBlock(const UrlRecordBlock&) = delete;
    UrlRecordBlock& operator=(const UrlRecordBlock&) = delete;

    // Allocates the buffer, of g_blockCapacity bytes at most. 0 or -1.
    [[nodiscard]] int init(int32_t capacity);
    [[nodiscard]] bool isInitialised() const { return !m_buffer.empty(); }
    // Back to the empty state, the buffer is kept.
    void reset();

    // ---- writing
    // True when the record fits, at least one byte stays free and the sum of the counts does not
    // overflow.
    [[nodiscard]] bool hasRoomFor(const UrlRecordView& record) const;
    // Appends a record for which there is room.
    void append(const UrlRecordView& record);
    // Writes header and data; nothing when the block is empty. 0 or -1.
    [[nodiscard]] int writeOneBlock(File& file);
    // Bytes of records in the buffer.
    [[nodiscard]] size_t used() const {
        return m_state == State::Records ? static_cast<size_t>(m_header.rawSize) : 0;
    }

    // ---- reading; `endPos` is where the blocks of the file end.
    // Next block, decoded. 0; 1: no further block before `endPos`; g_damaged (reading.h): its bytes
    // are wrong; -1: a call failed.
    [[nodiscard]] int readOneBlock(File& file, int64_t endPos);
    // The steps of it, for readers that copy blocks undecoded; only the header can be the last.
    [[nodiscard]] int readBlockHeader(File& file, int64_t endPos);
    [[nodiscard]] int readBlockData(File& file, int64_t endPos);
    [[nodiscard]] int unCompress();
    // Instead, into `memory` of the caller's, at least as large as the block's own. 0, g_damaged or
    // -1.
    [[nodiscard]] int takeBlockData(File& file, int64_t endPos, std::span<uint8_t> memory,
                                    ByteView& data);
    // Instead of reading the data: leaves the file behind it. 0, g_damaged or -1.
    [[nodiscard]] int skipBlockData(File& file, int64_t endPos);
    // A header was read, its data not yet.
    [[nodiscard]] bool awaitsData() const { return m_state == State::Header; }
    // The data as stored, between readBlockData and unCompress; all blocks share its place, so that
    // it is lost when the next one reads or writes.
    [[nodiscard]] ByteView storedData() const;
    // The records' bytes of a decoded block.
    [[nodiscard]] ByteView rawData() const { return m_buffer.span().first(used()); }

    [[nodiscard]] const BlockHeader& header() const { return m_header; }
    // True while a decoded block has a record at the cursor.
    [[nodiscard]] bool hasCurrent() const {
        return m_state == State::Records && m_recordIndex < m_header.count;
    }
    // The record at the cursor. 0, or -1 when it does not lie inside the decoded data or its count
    // is none that is ever written.
    [[nodiscard]] int getCurrentUrlRecord(UrlRecordView& record) const {
        return isPlain(record) ? 0 : examineCurrent(record);
    }
    // Moves past `record`, which is the one at the cursor.
    void advance(const UrlRecordView& record) {
        assert(hasCurrent() && record.size() <= used() - m_offset);
        ++m_recordIndex;
        m_offset += record.size();
    }
    // Adds visits to the first record, which is at the cursor and was read, and to the header's
    // total, which has room for them. The record's count stops at the largest.
    void addToFirst(uint64_t count);

private:
    enum class State {
        Records, // the buffer holds records
        Header,  // a header was read
        Stored,  // and its data, not decoded
    };

    // Whether nothing needs to be said about the record at the cursor: it is whole, and not the
    // block's last one, which has to end where the block does.
    [[nodiscard]] bool isPlain(UrlRecordView& record) const {
        return hasCurrent() && m_recordIndex + 1 < m_header.count &&
               parseRecord(rawData().subspan(m_offset), record) == 0 &&
               record.url.size() < g_maxHostText && isCount(record.count);
    }
    [[nodiscard]] int examineCurrent(UrlRecordView& record) const;
    [[nodiscard]] int findData(File& file, int64_t endPos, int64_t& cur) const;
    [[nodiscard]] int checkBlockData(int64_t cur, int64_t endPos) const;
    [[nodiscard]] int readStored(File& file, int64_t cur);
    [[nodiscard]] int decode();

    // While records are appended, `rawSize` counts their bytes.
    BlockHeader m_header;
    Buffer m_buffer;   // records
    ByteView m_stored; // valid in State::Stored
    State m_state = State::Records;
    int32_t m_recordIndex = 0;
    size_t m_offset = 0; // of the record at the cursor
};

} // namespace kestrine
