#include "aggregate/url_hash_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

namespace kestrine {
namespace {

// The `keep` keys with the most visits, of equal ones the lower ones.
std::map<uint64_t, uint64_t> mostVisited(const std::map<uint64_t, uint64_t>& visits, size_t keep) {
    std::vector<std::pair<uint64_t, uint64_t>> records(visits.begin(), visits.end());
    std::ranges::stable_sort(records, std::greater(),
                             [](const auto& record) { return record.second; });
    return {records.begin(), records.begin() + static_cast<ptrdiff_t>(keep)};
}

// Counts, lists in the order of keys, and goes on with what a spill spares, again and again. More
// than fits into one chunk.
TEST(UrlHashMap, CountsOnWithWhatASpillSpares) {
    std::mt19937_64 random(1);
    UrlHashMap map;
    std::map<uint64_t, uint64_t> visits;
    const auto textOf = [](uint64_t key) { return std::string(key % 259, 'u'); };
    for (int round = 0; round < 12; ++round) {
        for (int i = 0; i < 20000; ++i) {
            // Dense keys, such as are alike in their low bits, and ones spread over all values.
            const uint64_t small = random() % 9000;
            const uint64_t key = round % 3 == 0   ? small
                                 : round % 3 == 1 ? small << 40
                                                  : random() >> (random() % 64);
            const bool known = ++visits[key] > 1;
            ASSERT_EQ(map.addVisit(key), known);
            ASSERT_TRUE(known || map.insert({key, 1, 7, textOf(key)}) == 0);
        }
        PageArray<KeyedRecord> list;
        ASSERT_EQ(map.list(list), 0);
        ASSERT_EQ(list.size(), visits.size());
        auto expected = visits.begin();
        for (const KeyedRecord& record : list.span()) {
            const UrlRecordView view = map.recordAt(record.place);
            ASSERT_TRUE(record.key == expected->first && view.key == record.key);
            ASSERT_TRUE(view.count == expected->second && view.url == textOf(view.key));
            ++expected;
        }
        const size_t keep = round == 5 ? 0 : random() % (visits.size() + 1);
        ASSERT_EQ(map.retain(Spared::choose(list.span(), keep)), 0);
        visits = mostVisited(visits, keep);
        uint64_t memory = 0;
        for (const auto& [key, count] : visits) {
            memory += 25 + key % 259;
        }
        ASSERT_TRUE(map.size() == keep && map.usedMemory() == memory) << round;
    }
}

// Counts of all sizes; those that a list cannot hold are alike.
TEST(Spared, AreTheMostVisited) {
    std::mt19937_64 random(1);
    for (int round = 0; round < 300; ++round) {
        std::vector<KeyedRecord> records(1 + random() % 50);
        std::map<uint64_t, uint64_t> visits;
        const int shift = static_cast<int>(random() % 33);
        for (uint32_t i = 0; i < records.size(); ++i) {
            const uint64_t count = 1 + (uint64_t{random() % 4} << shift) + random() % 2;
            records[i] = {i, 0, Spared::visitsOf({i, count, 0, {}})};
            visits[i] = std::min<uint64_t>(count, UINT32_MAX);
        }
        const size_t keep = random() % (records.size() + 1);
        const Spared spared = Spared::choose(records, keep);
        const auto expected = mostVisited(visits, keep);
        for (const KeyedRecord& record : records) {
            ASSERT_EQ(spared.holds(record.key, record.visits), expected.contains(record.key))
                << round;
        }
    }
}

} // namespace
} // namespace kestrine
