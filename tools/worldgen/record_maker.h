// The fast road from a host to the bytes of a log record, for large worlds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "worldgen/hosts.h"
#include "worldgen/random.h"
#include "worldgen/record.h"

namespace worldgen {

// Prebuilt pieces of content text that stand before and after the host, in both forms. They hold
// what misleads a careless search: empty fields, fields whose names begin like the host's, a second
// host behind the first, capital letters in the XML start. Built once, then shared by all threads.
class ContentPool {
public:
    ContentPool();

    struct Tail {
        std::string text;
        std::size_t idOffset; // place of 8 letters that differ from record to record
    };
    static constexpr std::size_t idBytes = 8;

    const std::string& head(ContentForm form, std::uint32_t choice) const;
    const Tail& tail(ContentForm form, std::uint32_t choice) const;

private:
    std::vector<std::string> m_heads[2];
    std::vector<Tail> m_tails[2];
};

// Makes the records of one file. The bytes are determined by the arguments alone.
class RecordMaker {
public:
    RecordMaker(const HostCatalog& hosts, const ContentPool& pool, std::string_view account,
                int device, std::uint64_t seed);

    // Appends a record that counts as one visit of that host.
    void visit(std::string& raw, std::uint32_t host);

    // Appends a record that must be skipped; the kinds follow each other in turn.
    void skipped(std::string& raw, std::uint32_t host);

private:
    void beginPayload(std::string& raw, std::uint32_t host);
    void appendContent(std::string& raw, std::uint32_t host, std::uint32_t choices);

    const HostCatalog& m_hosts;
    const ContentPool& m_pool;
    Random m_random;
    std::string m_front; // record head and payload up to the content, without what varies
    std::uint32_t m_serial = 0;
    std::uint32_t m_firstTail; // one user's requests resemble each other: a file uses a few tails
    std::uint32_t m_skipTurn;
};

} // namespace worldgen
