// Status records: what a URL file holds already. One closes every finished URL file.
//
//   frame   offset size field
//                0    8 checksum  urlKey of the body
//                8    4 len       bytes of the body, at most 4,194,304
//               12  len body
//
//   body of a DayStatus               body of a WeekMonStatus
//     0   4 newCounter (signed)         0   8 totalCount
//     4   8 totalCount                  8   4 n
//    12   4 n                          12 264 per entry: path (260 bytes, zero-padded),
//    16 272 per entry: path (260           counter (signed 32)
//           bytes, zero-padded), file
//           number (signed 32), offset (64)
#pragma once

#include "frame/bytes.h"
#include "platform/platform.h"
#include "tree/period.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrine {

constexpr uint32_t g_maxStatusLength = 4194304;
constexpr size_t g_statusFrameSize = 12;

// The highest number that a new-day file may have: one more must still be a number.
constexpr int32_t g_lastNewDayNumber = INT32_MAX - 1;

// Progress in one node of the log data: DATA/ACCOUNT/devid_N/DATE.
struct NodeEntry {
    std::string path;
    int32_t fileNumber = -1; // last file reached, -1: none yet
    uint64_t offset = 0;     // position reached in it, informative
};

class DayStatus {
public:
    // Writes checksum, length and body at the file's position. 0 or -1; a status without entries or
    // longer than the bound is refused.
    [[nodiscard]] int writeStatus(File* file) const;
    // Reads a record at the file's position; `length` bytes at most belong to it. Entries are
    // appended. 0; g_damaged (reading.h), also on a wrong checksum; -1.
    [[nodiscard]] static int readStatus(File* file, int64_t length, DayStatus& status);
    // Fills the fields from a body; a trailing partial entry is reported and left out.
    [[nodiscard]] int parse(ByteView body);
    void print() const;

    [[nodiscard]] int32_t newCounter() const { return m_newCounter; }
    void setNewCounter(int32_t counter);
    [[nodiscard]] uint64_t totalCount() const { return m_totalCount; }
    void setTotalCount(uint64_t count) { m_totalCount = count; }

    [[nodiscard]] const std::vector<NodeEntry>& entries() const { return m_entries; }
    [[nodiscard]] std::vector<NodeEntry>& entries() { return m_entries; }
    [[nodiscard]] const NodeEntry* findEntry(const std::string& path) const;
    // Adds the entry, or brings the one of the same path forward: the higher file number wins, a
    // lower one is reported and ignored.
    void updateIfNewer(const NodeEntry& entry);
    // The date of the first entry's path, 0 without entries. It identifies the day.
    [[nodiscard]] int32_t date() const;
    // Bytes that the written record takes.
    [[nodiscard]] size_t writtenSize() const;

private:
    int32_t m_newCounter = -1;
    uint64_t m_totalCount = 0;
    std::vector<NodeEntry> m_entries;
};

// What a week or month file holds of one date.
struct DateEntry {
    std::string path;     // the date's directory in the "new" tree
    int32_t counter = -1; // highest new-day number folded in
};

class WeekMonStatus {
public:
    [[nodiscard]] int writeStatus(File* file) const;
    // As DayStatus, but a status with a wrong checksum is accepted; `checksumFits` tells.
    [[nodiscard]] static int readStatus(File* file, int64_t length, WeekMonStatus& status);
    [[nodiscard]] int parse(ByteView body);

    [[nodiscard]] bool checksumFits() const { return m_checksumFits; }

    void setTotalCount(int64_t count);
    [[nodiscard]] int64_t totalCount() const { return m_totalCount; }

    // Cursor over the entries.
    void moveFirst() { m_index = 0; }
    [[nodiscard]] bool atEnd() const;
    [[nodiscard]] std::string getNewPath() const;
    [[nodiscard]] int32_t getNewCounter() const;
    void moveNextAfter();

    [[nodiscard]] const std::vector<DateEntry>& entries() const { return m_entries; }
    [[nodiscard]] std::vector<DateEntry>& entries() { return m_entries; }
    // Counter recorded for the date of the path (the last component decides), -1 when there is
    // none.
    [[nodiscard]] int32_t counterOfDate(const std::string& path) const;

private:
    bool m_checksumFits = true;
    int64_t m_totalCount = 0;
    std::vector<DateEntry> m_entries;
    int32_t m_index = 0;
};

} // namespace kestrine
