// Domains with everything that lies below them, in one statistics file.
#pragma once

#include "key_search.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kestrine::viewer {

struct DomainSums {
    std::vector<Found> domains;
    // Visits of hosts too long to be stored whole, whose ending nobody knows; in no domain's sum.
    uint64_t unknown = 0;
};

// Of each domain: hosts that are it, or end in "." and it. Reads the whole file once, with all
// checks; it is open and before its first block. Throws Failure.
[[nodiscard]] DomainSums sumDomains(UrlFile& file, std::span<const std::string> domains);

} // namespace kestrine::viewer
