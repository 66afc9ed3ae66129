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
using Queue = CPriorityQueue<UrlRecord*>;

// Pushes records with these counts and keys 0, 1, ... and returns what is held, smallest first. One
// that does not exceed the smallest in a full queue is handed back.
Ranks heldOf(const std::vector<uint64_t>& counts, uint32_t capacity, Queue& queue) {
    std::vector<UrlRecord> records;
    for (size_t i = 0; i < counts.size(); ++i) {
        records.push_back({i, counts[i], 0, 1});
    }
    for (size_t i = 0; i < counts.size(); ++i) {
        UrlRecord* const smallest = i < capacity ? nullptr : queue.top();
        const bool refused = smallest != nullptr && lessByCount(smallest, &records[i]) == 0;
        UrlRecord* dropped = nullptr;
        EXPECT_EQ(queue.push(&records[i], dropped), i < capacity ? 0 : 1);
        EXPECT_EQ(dropped, refused ? &records[i] : smallest);
    }
    Ranks held;
    for (; queue.size() > 0; queue.pop()) {
        held.emplace_back(queue.top()->count, -static_cast<int64_t>(queue.top()->key));
    }
    return held;
}

// Every stream of up to six counts out of four, one of them negative as a signed number. By count
// alone, which of equal ones leaves for a larger one is left open.
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
        Queue queue;
        ASSERT_EQ(queue.init(capacity, lessByCountAndKey), 0);
        ASSERT_EQ(heldOf(counts, capacity, queue), sorted);
        ASSERT_EQ(queue.init(capacity), 0);
        const Ranks byCount = heldOf(counts, capacity, queue);
        ASSERT_TRUE(std::ranges::equal(byCount, sorted, {}, &Ranks::value_type::first,
                                       &Ranks::value_type::first));
    } while (choices.next());
    Queue queue;
    UrlRecord* dropped = nullptr;
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
