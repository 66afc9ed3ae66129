#include "support/stat_tree.h"

#include "storage/verify.h"

#include <algorithm>
#include <map>
#include <set>

namespace kestrine::test {

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

TestRecords recordsOf(int32_t number, const std::string& date) {
    return sortedByKey({recordOf("shared", 1, 7), recordOf(date + "-" + std::to_string(number),
                                                           2 + static_cast<uint64_t>(number), 8)});
}

std::string difference(const std::map<std::string, MemoryDisk::Bytes>& a,
                       const std::map<std::string, MemoryDisk::Bytes>& b) {
    std::string names;
    for (const auto& [one, other] : {std::pair(&a, &b), {&b, &a}}) {
        for (const auto& [path, bytes] : *one) {
            const auto place = other->find(path);
            names += place != other->end() && place->second == bytes ? "" : path + "\n";
        }
    }
    return names;
}

void expectTopLists(const std::string& directory, const TestRecords& records) {
    constexpr size_t length = 10000;
    std::map<std::string, TestRecords> lists;
    lists["all.top"] = records;
    for (const TestRecord& record : records) {
        lists[std::to_string(record.type) + ".top"].push_back(record);
    }
    std::vector<FindEntry> entries;
    FindStep step{};
    EXPECT_EQ(platform().find(names::topDir(directory) + "/*", entries, step), 0) << directory;
    std::set<std::string> found;
    for (const FindEntry& entry : entries) {
        found.insert(entry.name);
    }
    for (auto& [name, list] : lists) {
        EXPECT_EQ(found.erase(name), 1U) << directory << " lacks " << name;
        std::ranges::sort(list, [](const TestRecord& a, const TestRecord& b) {
            return a.count != b.count ? a.count > b.count : a.key < b.key;
        });
        list.resize(std::min(list.size(), length));
        const UrlFileContent content = readUrlFile(names::topDir(directory) + "/" + name);
        EXPECT_TRUE(content.whole) << directory << name;
        EXPECT_EQ(content.records, list) << directory << name;
        ASSERT_TRUE(content.dayStatus);
        ASSERT_EQ(content.dayStatus->entries().size(), 1U);
        EXPECT_EQ(content.dayStatus->entries()[0].path, "just for test");
    }
    EXPECT_TRUE(found.empty()) << directory << " has also " << *found.begin();
    for (const std::string& other :
         {names::topTempDir(directory), names::topTempTempDir(directory)}) {
        EXPECT_FALSE(platform().exists(other)) << other;
    }
}

void expectPeriodFile(const std::string& path, uint32_t type, const TestRecords& records) {
    EXPECT_EQ(verifyUrlFile(path, type), 0) << path;
    const UrlFileContent content = readUrlFile(path, type);
    EXPECT_EQ(content.records, records) << path;
    uint64_t total = 0;
    for (const TestRecord& record : records) {
        total += record.count;
    }
    if (content.dayStatus) {
        EXPECT_EQ(content.dayStatus->totalCount(), total) << path;
    } else if (content.weekMonStatus) {
        EXPECT_EQ(content.weekMonStatus->totalCount(), total) << path;
    }
    expectTopLists(std::string(names::parentOf(path)), records);
}

StatTree::StatTree() {
    settings().setUrlStatRoot(g_root);
    settings().setMemoryDiskPath(g_memoryDisk);
    m_clock.freeBytes = uint64_t{1} << 40;
    m_clock.seconds = 1330732800;
    g_isRunning = 1;
}

Configuration& StatTree::settings() {
    Configuration* configuration = nullptr;
    EXPECT_EQ(Configuration::getInstance(&configuration), 0);
    return *configuration;
}

StatTree::~StatTree() {
    g_isRunning = 0;
    Configuration::resetInstance();
}

std::string StatTree::putNew(const std::string& date, int32_t number) {
    return put(newFile(date, number), recordsOf(number, date),
               dayStatusOf({{node(date), number, 28}}, number));
}

std::string StatTree::putDay(const std::string& date, int32_t counter) {
    return put(dayFile(date), upTo(counter, date),
               dayStatusOf({{node(date), counter, 28}}, counter));
}

std::string StatTree::put(const std::string& path, const TestRecords& records, DayStatus status) {
    writeUrlFile(path, {records}, std::move(status));
    return path;
}

std::string StatTree::put(const std::string& path, const TestRecords& records,
                          WeekMonStatus status) {
    writeUrlFile(path, {records}, std::move(status));
    return path;
}

TestRecords StatTree::upTo(int32_t counter, const std::string& date) {
    std::vector<TestRecords> parts;
    for (int32_t number = 0; number <= counter; ++number) {
        parts.push_back(recordsOf(number, date));
    }
    return summed(parts);
}

} // namespace kestrine::test
