#include "support/url_file_helper.h"

#include "storage/url_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <set>

namespace kestrine::test {
namespace {

template <typename Status>
void writeFile(const std::string& path, const std::vector<TestRecords>& blocks, Status status,
               int32_t capacity) {
    UrlFile file(capacity);
    ASSERT_EQ(file.open(path, OpenMode::Truncate), 0) << path;
    for (const TestRecords& block : blocks) {
        for (const TestRecord& record : block) {
            ASSERT_EQ(file.writeOneRecord(record.view()), 0) << path;
        }
        ASSERT_EQ(file.writeUrlRecordBlocks(), 0) << path;
    }
    status.setTotalCount(file.totalCount());
    ASSERT_EQ(file.writeStatus(status), 0) << path;
    ASSERT_EQ(file.close(), 0) << path;
}

} // namespace

void PrintTo(const TestRecord& record, std::ostream* stream) {
    *stream << "{" << std::hex << record.key << std::dec << " " << record.count << " type "
            << record.type << " " << record.url << "}";
}

TestRecord recordOf(const std::string& host, uint64_t count, uint32_t type) {
    return {urlKey(asBytes(host)), count, type, host.substr(0, g_maxHostText)};
}

TestRecords sortedByKey(TestRecords records) {
    std::ranges::sort(records, {}, &TestRecord::key);
    return records;
}

TestRecords randomRecords(std::mt19937_64& random, size_t number, size_t shortest, size_t longest) {
    static constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789-.";
    std::uniform_int_distribution<size_t> length(shortest, longest);
    std::uniform_int_distribution<size_t> letter(0, letters.size() - 1);
    std::set<std::string> hosts;
    while (hosts.size() < number) {
        std::string host(length(random), ' ');
        std::ranges::generate(host, [&] { return letters[letter(random)]; });
        hosts.insert(std::move(host));
    }
    TestRecords records;
    for (const std::string& host : hosts) {
        records.push_back(recordOf(host, 1 + random() % 1000, static_cast<uint32_t>(random())));
    }
    return sortedByKey(std::move(records));
}

DayStatus dayStatusOf(std::vector<NodeEntry> entries, int32_t newCounter) {
    DayStatus status;
    status.entries() = std::move(entries);
    status.setNewCounter(newCounter);
    return status;
}

WeekMonStatus weekMonStatusOf(std::vector<DateEntry> entries) {
    WeekMonStatus status;
    status.entries() = std::move(entries);
    return status;
}

void writeUrlFile(const std::string& path, const std::vector<TestRecords>& blocks, DayStatus status,
                  int32_t capacity) {
    writeFile(path, blocks, std::move(status), capacity);
}

void writeUrlFile(const std::string& path, const std::vector<TestRecords>& blocks,
                  WeekMonStatus status) {
    writeFile(path, blocks, std::move(status), g_blockCapacity);
}

UrlFileContent readUrlFile(const std::string& path, uint32_t type) {
    UrlFile file;
    UrlFileContent content;
    int result = file.openToRead(path, type);
    if (result == 0 && type == g_dayStatusType) {
        content.dayStatus = *file.dayStatus();
    } else if (result == 0) {
        content.weekMonStatus = *file.weekMonStatus();
    }
    UrlRecordView record;
    while (result == 0 && (result = file.readOneRecord(record)) == 0) {
        content.records.push_back({record.key, record.count, record.type, std::string(record.url)});
    }
    content.broken = file.broken();
    content.whole = result == 1 && !content.broken;
    return content;
}

std::vector<uint8_t> readBytes(const std::string& path) {
    const std::unique_ptr<File> file = platform().open(path, OpenMode::Read);
    if (file == nullptr) {
        ADD_FAILURE() << "cannot open " << path;
        return {};
    }
    std::vector<uint8_t> bytes(static_cast<size_t>(std::max<int64_t>(file->size(), 0)));
    EXPECT_EQ(file->read(bytes), static_cast<int64_t>(bytes.size())) << path;
    return bytes;
}

void writeBytes(const std::string& path, ByteView bytes) {
    // Some file systems write a file out at once when it is emptied and filled again.
    (void)platform().removeFile(path);
    const std::unique_ptr<File> file = platform().open(path, OpenMode::Truncate);
    ASSERT_NE(file, nullptr) << path;
    EXPECT_EQ(file->write(bytes), static_cast<int64_t>(bytes.size())) << path;
}

} // namespace kestrine::test
