// URL files for tests: written from lists of records, read back, and taken apart as bytes.
#pragma once

#include "storage/url_file.h"

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace kestrine::test {

// A record with a text of its own.
struct TestRecord {
    uint64_t key = 0;
    uint64_t count = 1;
    uint32_t type = 0;
    std::string url;

    [[nodiscard]] UrlRecordView view() const { return {key, count, type, url}; }
    bool operator==(const TestRecord&) const = default;
};
void PrintTo(const TestRecord& record, std::ostream* stream);

using TestRecords = std::vector<TestRecord>;

// The record that the service would make of visits to a host.
[[nodiscard]] TestRecord recordOf(const std::string& host, uint64_t count = 1, uint32_t type = 0);
// Distinct hosts of `shortest` to `longest` characters, in key order.
[[nodiscard]] TestRecords randomRecords(std::mt19937_64& random, size_t number, size_t shortest = 1,
                                        size_t longest = g_maxHostText);
// The records of all parts in key order, equal keys summed; type and text are those of the first.
[[nodiscard]] TestRecords summed(const std::vector<TestRecords>& parts);
[[nodiscard]] uint64_t totalOf(const TestRecords& records); // visits

[[nodiscard]] DayStatus dayStatusOf(std::vector<NodeEntry> entries, int32_t newCounter = -1);
[[nodiscard]] WeekMonStatus weekMonStatusOf(std::vector<DateEntry> entries);

// Writes a finished file. The records, in key order, stand in the given blocks; an empty list of
// blocks gives a file with a status alone. The status' total is set to the sum of the counts.
// Blocks are split where they exceed the capacity. Reports a failure to the test.
template <typename Status>
void writeUrlFile(const std::string& path, const std::vector<TestRecords>& blocks, Status status,
                  int32_t capacity = g_blockCapacity);

struct UrlFileContent {
    bool whole = false;  // status and all records could be read
    bool broken = false; // the file's broken flag
    TestRecords records; // those read before a failure
    uint64_t total = 0;  // that the status names
    std::optional<DayStatus> dayStatus;
    std::optional<WeekMonStatus> weekMonStatus;
};
// The kind of status that a file of this name has.
[[nodiscard]] uint32_t statusTypeOf(const std::string& path);
// Reads everything, as far as possible.
[[nodiscard]] UrlFileContent readUrlFile(const std::string& path, uint32_t type = g_dayStatusType);

} // namespace kestrine::test
