#include "aggregate/priority_queue.h"
#include "aggregate/url_hash_map.h"
#include "support/choices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <unordered_map>

namespace kestrine {
namespace {

// Every stream of up to six counts out of four, one of them negative as a signed number, with keys
// 0, 1, ... Of equal counts the lower key stays; by count alone it is left open which one. One that
// does not exceed the smallest in a full queue is handed back.
TEST(PriorityQueue, HoldsTheLargestOfEveryStream) {
    const uint64_t values[] = {1, 2, 3, ~uint64_t{0}};
    const auto rankOf = [](const UrlRecord& record) {
        return std::pair(static_cast<int64_t>(record.count), -static_cast<int64_t>(record.key));
    };
    CPriorityQueue<UrlRecord*> queue;
    UrlRecord* dropped = nullptr;
    test::Choices choices;
    do {
        const auto capacity = static_cast<uint32_t>(1 + choices.choose(4));
        std::vector<UrlRecord> records(choices.choose(7));
        for (size_t i = 0; i < records.size(); ++i) {
            records[i] = {i, values[choices.choose(4)], 0, 1};
        }
        std::vector<UrlRecord> sorted = records;
        std::ranges::sort(sorted, {}, rankOf);
        const size_t refused = sorted.size() - std::min<size_t>(capacity, sorted.size());
        sorted.erase(sorted.begin(), sorted.begin() + static_cast<ptrdiff_t>(refused));
        for (const auto less : {lessByCountAndKey, lessByCount}) {
            ASSERT_EQ(queue.init(capacity, less), 0);
            for (size_t i = 0; i < records.size(); ++i) {
                UrlRecord* const smallest = i < capacity ? nullptr : queue.top();
                const bool kept = smallest == nullptr || lessByCount(smallest, &records[i]) != 0;
                ASSERT_EQ(queue.push(&records[i], dropped), i < capacity ? 0 : 1);
                ASSERT_EQ(dropped, kept ? smallest : &records[i]);
            }
            ASSERT_EQ(queue.size(), sorted.size());
            for (const UrlRecord& wanted : sorted) { // the smallest first
                ASSERT_EQ(queue.top()->count, wanted.count);
                ASSERT_TRUE(less == lessByCount || queue.top()->key == wanted.key);
                queue.pop();
            }
        }
    } while (choices.next());
    EXPECT_EQ(queue.init(0), -1);
    EXPECT_TRUE(queue.init(1) == 0 && queue.push(nullptr, dropped) == -1);
}

TEST(UrlHashMap, BehavesAsAMap) {
    std::mt19937_64 random(1);
    UrlHashMap map;
    for (int round = 0; round < 4; ++round) {
        std::unordered_map<uint64_t, uint64_t> reference;
        uint64_t memory = 0;
        for (int i = 0; i < 6000; ++i) {
            // Dense keys, keys alike in their low bits, squares so that no factor spreads them
            // evenly, and keys spread over all values.
            const uint64_t small = random() % 3000;
            const uint64_t key = round == 0   ? small
                                 : round == 1 ? (small * small) << 40
                                              : random() >> (random() % 64);
            UrlRecord* const record = map.find(key);
            EXPECT_EQ(record == nullptr, ++reference[key] == 1);
            if (record != nullptr) {
                ++record->count;
            } else {
                map.insert(makeUrlRecord({key, 1, 0, std::string(key % 99, 'u')}));
                memory += 25 + key % 99;
            }
        }
        EXPECT_TRUE(map.size() == reference.size() && map.usedMemory() == memory);
        if (round == 1) {
            map.clear();
            reference.clear();
        }
        std::vector<KeyedRecord> records;
        ASSERT_EQ(map.takeAll(records), 0);
        for (const auto& [key, record] : records) {
            EXPECT_TRUE(record->key == key && reference[key] == record->count);
            reference.erase(key);
        }
        EXPECT_TRUE(reference.empty() && map.empty() && map.usedMemory() == 0 && !map.find(0));
    }
}

} // namespace
} // namespace kestrine
