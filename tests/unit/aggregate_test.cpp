#include "aggregate/priority_queue.h"
#include "aggregate/url_hash_map.h"
#include "support/choices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <unordered_map>

namespace kestrine {
namespace {

// Pushes records with these counts and keys 0, 1, ... and returns what is held, smallest first.
// Every record must leave the queue once, dropped or held.
std::vector<UrlRecord> heldOf(const std::vector<uint64_t>& counts, uint32_t capacity,
                              CPriorityQueue<UrlRecord*>::Less less) {
    std::vector<UrlRecord> records;
    for (size_t i = 0; i < counts.size(); ++i) {
        records.push_back({i, counts[i], 0, 1});
    }
    CPriorityQueue<UrlRecord*> queue;
    EXPECT_EQ(queue.init(capacity, less), 0);
    std::vector<int> left(counts.size());
    for (size_t i = 0; i < counts.size(); ++i) {
        UrlRecord* dropped = nullptr;
        EXPECT_EQ(queue.push(&records[i], dropped), i < capacity ? 0 : 1);
        EXPECT_EQ(dropped != nullptr, i >= capacity);
        if (dropped != nullptr) {
            ++left[dropped->key];
        }
    }
    std::vector<UrlRecord> held;
    for (; queue.size() > 0; queue.pop()) {
        held.push_back(*queue.top());
        ++left[queue.top()->key];
    }
    EXPECT_EQ(left, std::vector<int>(counts.size(), 1));
    return held;
}

// Every stream of up to six counts out of four, one of them negative as a signed number.
TEST(PriorityQueue, HoldsTheLargestOfEveryStream) {
    const uint64_t values[] = {1, 2, 3, ~uint64_t{0}};
    test::Choices choices;
    do {
        const auto capacity = static_cast<uint32_t>(1 + choices.choose(4));
        std::vector<uint64_t> counts(choices.choose(7));
        for (uint64_t& count : counts) {
            count = values[choices.choose(4)];
        }
        std::vector<std::pair<int64_t, int64_t>> sorted; // count, negative key
        for (size_t i = 0; i < counts.size(); ++i) {
            sorted.emplace_back(static_cast<int64_t>(counts[i]), -static_cast<int64_t>(i));
        }
        std::ranges::sort(sorted);
        if (sorted.size() > capacity) {
            sorted.erase(sorted.begin(), sorted.end() - capacity);
        }
        const auto byCount = heldOf(counts, capacity, lessByCount);
        const auto byKeyToo = heldOf(counts, capacity, lessByCountAndKey);
        ASSERT_EQ(byCount.size(), sorted.size());
        ASSERT_EQ(byKeyToo.size(), sorted.size());
        for (size_t i = 0; i < sorted.size(); ++i) {
            ASSERT_EQ(static_cast<int64_t>(byCount[i].count), sorted[i].first);
            ASSERT_EQ(static_cast<int64_t>(byKeyToo[i].count), sorted[i].first);
            ASSERT_EQ(-static_cast<int64_t>(byKeyToo[i].key), sorted[i].second);
        }
    } while (choices.next());
}

TEST(PriorityQueue, FreesWhatItOwnsAndRefusesWrongArguments) {
    static int freed = 0;
    freed = 0;
    UrlRecord records[3] = {{1, 5, 0, 1}, {2, 7, 0, 1}, {3, 6, 0, 1}};
    for (const bool owns : {false, true}) {
        CPriorityQueue<UrlRecord*> queue;
        UrlRecord* dropped = nullptr;
        EXPECT_EQ(queue.push(&records[0], dropped), -1); // without capacity
        EXPECT_EQ(queue.init(0), -1);
        ASSERT_EQ(queue.init(2), 0);
        if (owns) {
            queue.ownElements([](UrlRecord*) { ++freed; });
        }
        EXPECT_EQ(queue.push(nullptr, dropped), -1);
        for (UrlRecord& record : records) {
            EXPECT_GE(queue.push(&record, dropped), 0);
        }
        EXPECT_EQ(dropped, &records[0]);
        EXPECT_EQ(queue.push(&records[2], dropped), 1); // equal to the smallest held: refused
        EXPECT_EQ(dropped, &records[2]);
        EXPECT_EQ(freed, owns ? 2 : 0);
    }
    EXPECT_EQ(freed, 4);
}

TEST(UrlHashMap, BehavesAsAMap) {
    const uint64_t seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    UrlHashMap map;
    for (int round = 0; round < 4; ++round) {
        std::unordered_map<uint64_t, uint64_t> reference;
        uint64_t memory = 0;
        for (int i = 0; i < 6000; ++i) {
            // Dense keys, keys that collide in their low bits, and keys spread over all values.
            const uint64_t key = round == 0   ? random() % 3000
                                 : round == 1 ? (random() % 3000) << 40
                                              : random() >> (random() % 64);
            const auto [place, added] = reference.try_emplace(key, 0);
            ++place->second;
            if (UrlRecord* const record = map.find(key)) {
                ++record->count;
                EXPECT_FALSE(added);
            } else {
                EXPECT_TRUE(added);
                const std::string url(key % (g_maxHostText + 50), 'u');
                map.insert(makeUrlRecord({key, 1, 0, url}));
                memory += 25 + std::min(url.size(), g_maxHostText);
            }
        }
        EXPECT_EQ(map.size(), reference.size());
        EXPECT_EQ(map.usedMemory(), memory);
        if (round == 1) {
            map.clear();
        } else {
            std::unordered_map<uint64_t, uint64_t> taken;
            std::vector<KeyedRecord> records;
            ASSERT_EQ(map.takeAll(records), 0);
            for (const KeyedRecord& entry : records) {
                EXPECT_EQ(entry.key, entry.record->key);
                taken[entry.key] = entry.record->count;
            }
            EXPECT_EQ(taken, reference);
        }
        EXPECT_TRUE(map.empty());
        EXPECT_EQ(map.usedMemory(), 0U);
        EXPECT_EQ(map.find(reference.begin()->first), nullptr);
    }
}

} // namespace
} // namespace kestrine
