// Reading URL files with all the checks that the format allows.
#pragma once

#include "storage/url_file.h"

#include <cstdint>
#include <set>
#include <string>

namespace kestrine {

// How the records of a file follow each other: by ascending key, or, in a top list, by descending
// count and of equal counts by ascending key.
enum class RecordOrder { Key, Count };

// Looks at the records of a file one after another.
class OrderCheck {
public:
    explicit OrderCheck(RecordOrder order) : m_order(order) {}
    // Whether the record may follow the one before.
    [[nodiscard]] bool next(const UrlRecordView& record) {
        const bool byCount = m_order == RecordOrder::Count && record.count != m_lastCount;
        // Equal keys do not follow each other: a key stands once, and in a list it breaks ties.
        const bool follows =
            m_first || (byCount ? record.count < m_lastCount : record.key > m_lastKey);
        m_first = false;
        m_lastKey = record.key;
        m_lastCount = record.count;
        return follows;
    }

private:
    RecordOrder m_order;
    bool m_first = true;
    uint64_t m_lastKey = 0;
    uint64_t m_lastCount = 0;
};

// Reads the records of an open file whose status was read, and compares what no record shows alone:
// their order, each block with its header, and the sum of the counts with the status' total.
class VerifyingReader {
public:
    explicit VerifyingReader(UrlFile& file, RecordOrder order = RecordOrder::Key)
        : m_file(file), m_order(order) {}

    // As UrlFile::readOneRecord: 0, 1 (end of file) or -1, the file being marked broken then.
    [[nodiscard]] int readOneRecord(UrlRecordView& record);
    [[nodiscard]] uint64_t records() const { return m_records; }
    [[nodiscard]] uint64_t total() const { return m_total; } // of the counts read

private:
    int breakFile(const char* what);

    UrlFile& m_file;
    OrderCheck m_order;
    BlockHeader m_block; // of the block's records so far
    uint64_t m_records = 0;
    uint64_t m_total = 0; // wraps, as the writer's does
};

// What a file holds.
struct FileSums {
    uint64_t records = 0;
    uint64_t total = 0;       // sum of the counts
    std::set<uint32_t> types; // record types
};

// Reads the status and every record. 0 when the file is good, 1 when it is damaged, 2 when a stop
// was requested before its end, -1 when a call failed, which says nothing about the file.
[[nodiscard]] int verifyUrlFile(const std::string& path, uint32_t statusType,
                                RecordOrder order = RecordOrder::Key, FileSums* sums = nullptr);
// The same for who gives the file up then: 1 when it was found damaged twice, since a disk may fail
// to read it once.
[[nodiscard]] int verifyTwice(const std::string& path, uint32_t statusType,
                              RecordOrder order = RecordOrder::Key, FileSums* sums = nullptr);

// The total that the status of a file names. 0; 1 when the status is damaged; -1.
[[nodiscard]] int readTotal(const std::string& path, uint32_t statusType, uint64_t& total);

} // namespace kestrine
