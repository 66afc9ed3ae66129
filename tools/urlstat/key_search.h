// Single hosts in many statistics files: only the blocks that may hold one are decoded, by as many
// threads as the machine has processors.
//
//   1. `add` walks the headers of one file after another, and reads the blocks that may hold a key
//   2. these are decoded and searched by all threads, while the walk goes on
//   3. after `finish`, `found` tells what each file holds
#pragma once

#include "frame/buffer.h"
#include "storage/url_file.h"
#include "work_places.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

namespace kestrine::viewer {

// What a file holds of what was asked for.
struct Found {
    uint64_t visits = 0;
    uint64_t hosts = 0;
};

class KeySearch {
public:
    // For keys in ascending order, some may be equal.
    explicit KeySearch(std::vector<uint64_t> keys);

    // Takes an open file that is before its first block; none is looked at behind the last key.
    // Returns the file's number. Throws Failure.
    [[nodiscard]] size_t add(UrlFile& file);
    void finish();
    // Of each key in the file of that number. Throws Failure when a block of it is damaged.
    [[nodiscard]] const std::vector<Found>& found(size_t file) const;

    [[nodiscard]] uint64_t blocks() const { return m_blocks; } // whose headers were read
    [[nodiscard]] uint64_t decoded() const { return m_decoded; }

private:
    struct Answer {
        std::string path;
        std::vector<Found> found;
        std::atomic<int> result = 0; // of its blocks: 0, or that of one that is not
    };
    // A block that may hold some of the keys.
    struct Job {
        Answer* answer = nullptr;
        size_t firstKey = 0;
        size_t endKey = 0;
        BlockHeader header;
        Buffer memory;
        ByteView stored; // in it
    };

    [[nodiscard]] bool nextHeader(UrlFile& file, BlockHeader& header);
    void keepBlock(UrlFile& file, const BlockHeader& header, size_t firstKey, size_t endKey);
    [[nodiscard]] int searchBlock(const Job& job, Buffer& buffer) const;
    [[nodiscard]] int searchRecords(const Job& job, ByteView records) const;

    std::vector<uint64_t> m_keys;
    std::deque<Answer> m_answers; // which stay where they are when one is added
    uint64_t m_blocks = 0;
    uint64_t m_decoded = 0;
    std::vector<Buffer> m_buffers; // one for each thread
    std::vector<Job> m_jobs;       // one for each place
    WorkPlaces m_places;           // last, so that its threads end before what they use
};

} // namespace kestrine::viewer
