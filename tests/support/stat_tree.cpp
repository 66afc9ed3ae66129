#include "support/stat_tree.h"

#include "storage/verify.h"
#include "support/expected_world.h"

#include <map>
#include <set>

namespace kestrine::test {

TestRecords recordsOf(int32_t number, const std::string& date) {
    return summed({{recordOf("shared", 1, 7), recordOf(date + "-" + std::to_string(number),
                                                       2 + static_cast<uint64_t>(number), 8)}});
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
    std::vector<FindEntry> entries;
    FindStep step{};
    EXPECT_EQ(platform().find(names::topDir(directory) + "/*", entries, step), 0) << directory;
    std::set<std::string> found;
    for (const FindEntry& entry : entries) {
        found.insert("topn/" + entry.name);
    }
    EXPECT_EQ(differences(topListsOf(records), readTree(directory, found, "")), "") << directory;
    for (const std::string& other :
         {names::topTempDir(directory), names::topTempTempDir(directory)}) {
        EXPECT_FALSE(platform().exists(other)) << other;
    }
}

void expectPeriodFile(const std::string& path, uint32_t type, const TestRecords& records) {
    EXPECT_EQ(verifyUrlFile(path, type), 0) << path;
    const UrlFileContent content = readUrlFile(path, type);
    EXPECT_EQ(content.records, records) << path;
    EXPECT_EQ(content.total, totalOf(records)) << path;
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

TestRecords StatTree::upTo(int32_t counter, const std::string& date) {
    std::vector<TestRecords> parts;
    for (int32_t number = 0; number <= counter; ++number) {
        parts.push_back(recordsOf(number, date));
    }
    return summed(parts);
}

} // namespace kestrine::test
