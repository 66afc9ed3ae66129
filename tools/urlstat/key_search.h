// Single hosts in many statistics files: only the blocks that may hold one are decoded, by as many
// threads as the machine has processors.
//
//   1. `add` walks the headers of one file after another, and copies the blocks that may hold a key
//   2. each batch of copies is decoded and searched, by all threads
//   3. after `finish`, `found` tells what each file holds
#pragma once

#include "storage/url_file.h"

#include <cstdint>
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
        int result = 0; // of its blocks
    };
    // A block that may hold some of the keys.
    struct Job {
        size_t answer = 0;
        size_t firstKey = 0;
        size_t endKey = 0;
        BlockHeader header;
        std::vector<uint8_t> stored;
        int result = 0; // g_damaged; -1: no memory
    };

    [[nodiscard]] bool nextHeader(UrlFile& file, BlockHeader& header);
    void keepBlock(UrlFile& file, const BlockHeader& header, size_t firstKey, size_t endKey);
    void searchWaiting();
    [[nodiscard]] int searchBlock(const Job& job, std::span<uint8_t> buffer);
    [[nodiscard]] int searchRecords(const Job& job, ByteView records);

    std::vector<uint64_t> m_keys;
    std::vector<Answer> m_answers;
    std::vector<Job> m_jobs; // used again, with their memory, for one batch after another
    size_t m_waiting = 0;    // of the jobs
    std::vector<std::vector<uint8_t>> m_buffers; // one for each thread
    uint64_t m_blocks = 0;
    uint64_t m_decoded = 0;
};

} // namespace kestrine::viewer
