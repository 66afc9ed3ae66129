// A file of URL records sorted by key, closed by a status record.
//
//   part          size      contents
//   blocks        any       blocks of records (url_record_block.h), keys ascending over the file
//   status        12 + len  DayStatus or WeekMonStatus (status.h)
//   end position  8         signed offset of the first status byte
//
// The status is found through the last 8 bytes, never by scanning; a file without a trailer is not
// valid. Nothing read from a file is trusted: what violates a bound marks the file broken. A call
// that fails does not.
#pragma once

#include "platform/platform.h"
#include "storage/status.h"
#include "storage/url_record_block.h"

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

namespace kestrine {

class UrlFile {
public:
    // Blocks of a file that is written grow to `blockCapacity` bytes of records; the default, which
    // is the most, holds every block that is read.
    explicit UrlFile(int32_t blockCapacity = g_blockCapacity) : m_blockCapacity(blockCapacity) {}
    ~UrlFile();
    UrlFile(const UrlFile&) = delete;
    UrlFile& operator=(const UrlFile&) = delete;

    [[nodiscard]] int init(); // allocates the block; `open` does where it was not done
    [[nodiscard]] int open(const std::string& path, OpenMode mode);
    // Closes the handle. Closing a closed file returns 0.
    [[nodiscard]] int close();
    // Returns when everything written is on stable storage. Call between writeStatus and close of a
    // file that is to be renamed to a final name.
    [[nodiscard]] int sync();

    // ---- writing, in ascending key order
    [[nodiscard]] int writeOneRecord(const UrlRecordView& record);
    // Writes the current block out.
    [[nodiscard]] int writeUrlRecordBlocks();
    [[nodiscard]] int flush();
    // Flushes, writes the status, whose total is `totalCount()`, and the end position.
    [[nodiscard]] int writeStatus(const DayStatus& status);
    [[nodiscard]] int writeStatus(const WeekMonStatus& status);
    // Whole blocks as they are.
    [[nodiscard]] int writeBlockHeader(const BlockHeader& header);
    [[nodiscard]] int writeBlockData(ByteView data);
    // Bytes that the file would have if it were flushed now without compressing, trailer not
    // included.
    [[nodiscard]] int64_t pendingSize() const;

    // ---- reading
    // Reads the trailer (type 0xFF or 0xFFFF) and leaves the file before its first block; until
    // then blocks are taken to end where the file ends. 0 or -1. A status that was read before
    // stays as the owner has left it. Bytes between status and end position are tolerated.
    [[nodiscard]] int readStatus(uint32_t type);
    // Opens the file for reading and reads its status. 0; 1 when its bytes are wrong; -1.
    [[nodiscard]] int openToRead(const std::string& path, uint32_t type);
    // The current record, not consumed. 0, 1 (end of file) or -1. Valid until the next read.
    [[nodiscard]] int getTopRecord(UrlRecordView& record);
    // The same, and moves past it.
    [[nodiscard]] int readOneRecord(UrlRecordView& record);
    [[nodiscard]] int readUrlRecordBlocks(); // next block decoded: 0, 1 or -1
    // Block by block, for the merge engine: the next header (again and again until its data is
    // read), 0, 1 (no further block) or -1; then the data as stored; then, if wanted, decoded.
    [[nodiscard]] int readBlockHeader(BlockHeader& header);
    [[nodiscard]] int readBlockData(ByteView& data);
    [[nodiscard]] int unCompress();
    // Instead, into `memory` of the caller's, of g_blockCapacity bytes, to be decoded there. Goes
    // on behind it. 0 or -1.
    [[nodiscard]] int takeBlockData(std::span<uint8_t> memory, ByteView& data);
    // Instead of reading the data: goes on behind it. 0 or -1.
    [[nodiscard]] int skipBlockData();

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] bool isOpen() const { return m_file != nullptr; }
    // Its bytes were found wrong.
    [[nodiscard]] bool broken() const { return m_broken; }
    void setBroken() { m_broken = true; }
    // Sum of the counts of everything written.
    [[nodiscard]] uint64_t totalCount() const { return m_totalCount; }
    // Read by readStatus; null before, or of the other kind.
    [[nodiscard]] DayStatus* dayStatus() { return std::get_if<DayStatus>(&m_status); }
    [[nodiscard]] WeekMonStatus* weekMonStatus() { return std::get_if<WeekMonStatus>(&m_status); }
    // The total that the status read names; 0 without one.
    [[nodiscard]] uint64_t statusTotal() const;
    [[nodiscard]] UrlRecordBlock& block() { return m_block; }

private:
    void startOver(const std::string& path);
    [[nodiscard]] int findSize();
    [[nodiscard]] int append(ByteView data);
    template <typename Status>
    [[nodiscard]] int writeTrailer(const Status& status, const char* failure);
    [[nodiscard]] int readNextHeader();
    [[nodiscard]] int readStatusRecord(int64_t end, uint32_t type);
    template <typename Status>
    [[nodiscard]] int readInto(int64_t end, const char* failure);
    int failedRead(int result, const char* what);

    const int32_t m_blockCapacity;
    std::string m_path;
    std::unique_ptr<File> m_file;
    uint64_t m_totalCount = 0;
    int64_t m_endPos = 0;
    UrlRecordBlock m_block;
    std::variant<std::monostate, DayStatus, WeekMonStatus> m_status;
    bool m_broken = false;
    bool m_eof = false;
};

} // namespace kestrine
