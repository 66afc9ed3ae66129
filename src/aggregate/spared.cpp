#include "aggregate/spared.h"

#include <vector>

namespace kestrine {

namespace {

// Counting twice over 65,536 buckets takes no sorting and little memory, whatever the list's
// length.
constexpr uint32_t g_halfBits = 16;
constexpr size_t g_buckets = size_t{1} << g_halfBits;

// The bucket in which the `keep`-th largest lies, of those that `bucketOf` puts into one. `keep`
// becomes its rank there.
template <typename BucketOf>
uint32_t bucketOfRank(std::span<const KeyedRecord> records, BucketOf bucketOf, size_t& keep) {
    std::vector<size_t> sizes(g_buckets + 1); // the last one for those that are out of the question
    for (const KeyedRecord& record : records) {
        ++sizes[bucketOf(record.visits)];
    }
    size_t bucket = g_buckets - 1;
    for (; bucket > 0 && sizes[bucket] < keep; --bucket) {
        keep -= sizes[bucket];
    }
    return static_cast<uint32_t>(bucket);
}

} // namespace

Spared Spared::choose(std::span<const KeyedRecord> records, size_t keep) {
    Spared spared;
    if (keep == 0) {
        return spared;
    }
    // The visits of the last one spared: first the upper half of the number, then the lower.
    const uint32_t high = bucketOfRank(
        records, [](uint32_t visits) { return visits >> g_halfBits; }, keep);
    const uint32_t low = bucketOfRank(
        records,
        [high](uint32_t visits) {
            return visits >> g_halfBits == high ? visits % g_buckets : g_buckets;
        },
        keep);
    spared.m_any = true;
    spared.m_visits = (high << g_halfBits) | low;
    // Of those at the bound, as many as are still wanted; the list is sorted by key.
    for (auto record = records.begin(); keep > 0 && record != records.end(); ++record) {
        if (record->visits == spared.m_visits) {
            spared.m_lastKey = record->key;
            --keep;
        }
    }
    return spared;
}

} // namespace kestrine
