#include "aggregate/priority_queue.h"
#include "aggregate/url_hash_map.h"
#include "support/choices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <unordered_map>

namespace kestrine {
namespace {

using Ranks = std::vector<std::pair<int64_t, int64_t>>; // count and negative key

// Pushes records with these counts and keys 0, 1, ... and returns what is held, smallest first.
Ranks heldOf(const std::vector<uint64_t>& counts, uint32_t capacity) {
    std::vector<UrlRecord> records;
    for (size_t i = 0; i < counts.size(); ++i) {
        records.push_back({i, counts[i], 0, 1});
    }
    CPriorityQueue<UrlRecord*> queue;
    EXPECT_EQ(queue.init(capacity, lessByCountAndKey), 0);
    for (size_t i = 0; i < counts.size(); ++i) {
        UrlRecord* dropped = nullptr;
        EXPECT_EQ(queue.push(&records[i], dropped), i < capacity ? 0 : 1);
        EXPECT_EQ(dropped != nullptr, i >= capacity);
    }
    Ranks held;
    for (; queue.size() > 0; queue.pop()) {
        held.emplace_back(queue.top()->count, -static_cast<int64_t>(queue.top()->key));
    }
    return held;
}

// Of equal counts the one pushed first stays; the new one is handed back.
TEST(PriorityQueue, ByCountAloneATieIsRefused) {
    UrlRecord records[] = {{9, 2, 0, 1}, {8, 3, 0, 1}, {7, 2, 0, 1}, {6, 3, 0, 1}};
    CPriorityQueue<UrlRecord*> queue;
    UrlRecord* dropped = nullptr;
    EXPECT_EQ(queue.init(0), -1);
    EXPECT_EQ(queue.push(&records[0], dropped), -1);
    ASSERT_EQ(queue.init(2), 0);
    EXPECT_EQ(queue.push(nullptr, dropped), -1);
    for (const auto& [index, result, left, smallest] :
         {std::tuple(0, 0, -1, 0), {1, 0, -1, 0}, {2, 1, 2, 0}, {3, 1, 0, 1}, {2, 1, 2, 1}}) {
        EXPECT_EQ(queue.push(&records[index], dropped), result);
        EXPECT_EQ(dropped, left < 0 ? nullptr : &records[left]);
        EXPECT_EQ(queue.top()->count, records[smallest].count);
    }
}

// Every stream of up to six counts out of four, one of them negative as a signed number.
TEST(PriorityQueue, HoldsTheLargestOfEveryStream) {
    const uint64_t values[] = {1, 2, 3, ~uint64_t{0}};
    test::Choices choices;
    do {
        const auto capacity = static_cast<uint32_t>(1 + choices.choose(4));
        std::vector<uint64_t> counts(choices.choose(7));
        Ranks sorted;
        for (size_t i = 0; i < counts.size(); ++i) {
            counts[i] = values[choices.choose(4)];
            sorted.emplace_back(counts[i], -static_cast<int64_t>(i));
        }
        std::ranges::sort(sorted);
        sorted.erase(sorted.begin(),
                     sorted.end() - std::min<ptrdiff_t>(capacity, std::ssize(sorted)));
        ASSERT_EQ(heldOf(counts, capacity), sorted);
    } while (choices.next());
}

TEST(UrlHashMap, BehavesAsAMap) {
    std::mt19937_64 random(1);
    UrlHashMap map;
    for (int round = 0; round < 4; ++round) {
        std::unordered_map<uint64_t, uint64_t> reference;
        uint64_t memory = 0;
        for (int i = 0; i < 6000; ++i) {
            // Dense keys, keys that collide in their low bits, and keys spread over all values.
            const uint64_t key = round == 0   ? random() % 3000
                                 : round == 1 ? (random() % 3000) << 40
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
        EXPECT_EQ(map.size(), reference.size());
        EXPECT_EQ(map.usedMemory(), memory);
        if (round == 1) {
            map.clear();
            EXPECT_TRUE(map.empty() && map.usedMemory() == 0);
        }
        std::vector<KeyedRecord> records;
        ASSERT_EQ(map.takeAll(records), 0);
        for (const KeyedRecord& entry : records) {
            EXPECT_EQ(entry.key, entry.record->key);
            EXPECT_EQ(entry.record->count, reference[entry.key]);
            reference.erase(entry.key);
        }
        EXPECT_EQ(reference.empty(), round != 1);
        EXPECT_TRUE(map.empty() && map.usedMemory() == 0 && map.find(0) == nullptr);
    }
}

} // namespace
} // namespace kestrine
