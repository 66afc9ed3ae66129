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

#include "storage/status_record.h"

#include "tree/period.h"
#include <unordered_map>

namespace kestrine {

// The highest number that a new-day file may have: one more must still be a number.
constexpr int32_t g_lastNewDayNumber = INT32_MAX - 1;

// Progress in one node of the log data: DATA/ACCOUNT/devid_N/DATE.
struct NodeEntry {
    static constexpr size_t g_size = g_statusPathSize + 12;

    std::string path;
    int32_t fileNumber = -1; // last file reached, -1: none yet
    uint64_t offset = 0;     // position reached in it, informative

    void store(uint8_t* bytes) const {
        storeLittle(bytes, fileNumber);
        storeLittle(bytes + sizeof fileNumber, offset);
    }
    void load(const uint8_t* bytes) {
        fileNumber = loadLittle<int32_t>(bytes);
        offset = loadLittle<uint64_t>(bytes + sizeof fileNumber);
    }
};

class DayStatus : public StatusRecord<DayStatus, NodeEntry> {
public:
    void print() const;

    [[nodiscard]] int32_t newCounter() const { return m_newCounter; }
    void setNewCounter(int32_t counter);
    void setTotalCount(uint64_t count) { m_totalCount = count; }

    // Both look the path up in an index: entries may be added, reordered and brought forward
    // otherwise, too, but none is taken away.
    [[nodiscard]] const NodeEntry* findEntry(const std::string& path) const;
    // Adds the entry, or brings the one of the same path forward: the higher file number wins, a
    // lower one is reported and ignored.
    void updateIfNewer(const NodeEntry& entry);
    // The date of the first entry's path, 0 without entries. It identifies the day.
    [[nodiscard]] int32_t date() const;

private:
    friend StatusRecord<DayStatus, NodeEntry>;
    static constexpr size_t g_headSize = 4;
    static constexpr bool g_checked = true;
    static constexpr const char* g_noFile = "param invalid, null";
    [[nodiscard]] int storeHead(uint8_t* head) const;
    [[nodiscard]] int loadHead(const uint8_t* head);
    [[nodiscard]] int checkCounter() const;

    [[nodiscard]] size_t placeOf(const std::string& path) const;

    int32_t m_newCounter = -1;
    // The first `m_indexed` entries by path: the place that each had when it was taken in.
    mutable std::unordered_map<std::string, size_t> m_places;
    mutable size_t m_indexed = 0;
};

// What a week or month file holds of one date.
struct DateEntry {
    static constexpr size_t g_size = g_statusPathSize + 4;

    std::string path;     // the date's directory in the "new" tree
    int32_t counter = -1; // highest new-day number folded in

    void store(uint8_t* bytes) const { storeLittle(bytes, counter); }
    void load(const uint8_t* bytes) { counter = loadLittle<int32_t>(bytes); }
};

class WeekMonStatus : public StatusRecord<WeekMonStatus, DateEntry> {
public:
    void setTotalCount(uint64_t count); // at most INT64_MAX

    // Cursor over the entries.
    void moveFirst() { m_index = 0; }
    [[nodiscard]] bool atEnd() const;
    [[nodiscard]] std::string getNewPath() const;
    [[nodiscard]] int32_t getNewCounter() const;
    void moveNextAfter();

    // Counter recorded for the date of the path (the last component decides), -1 when there is
    // none.
    [[nodiscard]] int32_t counterOfDate(const std::string& path) const;

private:
    friend StatusRecord<WeekMonStatus, DateEntry>;
    static constexpr size_t g_headSize = 0;
    static constexpr bool g_checked = false; // left to who asks `checksumFits`
    static constexpr const char* g_noFile = "param invalid";
    [[nodiscard]] static int storeHead(uint8_t*) { return 0; }
    [[nodiscard]] static int loadHead(const uint8_t*) { return 0; }
    // The entry at the cursor; null, reported, when there is none.
    [[nodiscard]] const DateEntry* current() const;

    int32_t m_index = 0;
};

} // namespace kestrine
