#include "support/url_file_helper.h"

#include "storage/url_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <set>

namespace kestrine::test {
void PrintTo(const TestRecord& record, std::ostream* stream) {
    *stream << "{" << std::hex << record.key << std::dec << " " << record.count << " type "
            << record.type << " " << record.url << "}";
}

TestRecord recordOf(const std::string& host, uint64_t count, uint32_t type) {
    return {urlKey(asBytes(host)), count, type, host.substr(0, g_maxHostText)};
}

TestRecords summed(const std::vector<TestRecords>& parts) {
    std::map<uint64_t, TestRecord> sums;
    for (const TestRecords& part : parts) {
        for (const TestRecord& record : part) {
            const auto [sum, added] = sums.try_emplace(record.key, record);
            sum->second.count += added ? 0 : record.count;
        }
    }
    TestRecords records;
    for (const auto& [key, record] : sums) {
        records.push_back(record);
    }
    return records;
}

uint64_t totalOf(const TestRecords& records) {
    uint64_t total = 0;
    for (const TestRecord& record : records) {
        total += record.count;
    }
    return total;
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
    return summed({records});
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

template <typename Status>
void writeUrlFile(const std::string& path, const std::vector<TestRecords>& blocks, Status status,
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
template void writeUrlFile(const std::string&, const std::vector<TestRecords>&, DayStatus, int32_t);
template void writeUrlFile(const std::string&, const std::vector<TestRecords>&, WeekMonStatus,
                           int32_t);

uint32_t statusTypeOf(const std::string& path) {
    const bool weekMonth = path.find("weekcrcsort") != std::string::npos ||
                           path.find("moncrcsort") != std::string::npos;
    return weekMonth ? g_weekMonStatusType : g_dayStatusType;
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
    content.total = file.statusTotal();
    content.broken = file.broken();
    content.whole = result == 1 && !content.broken;
    return content;
}

} // namespace kestrine::test
