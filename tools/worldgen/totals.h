// What was written into a world, to be compared with what its reader counts.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace worldgen {

struct Sums {
    std::uint64_t visits = 0;
    std::uint64_t skipped = 0;     // records that are no visit
    std::uint64_t rawBytes = 0;    // of records before compression
    std::uint64_t storedBytes = 0; // of whole files
    std::uint64_t files = 0;

    Sums& operator+=(const Sums& other);
};

struct HostTotal {
    std::uint64_t visits = 0;
    std::uint32_t type = 0; // the same in every record of the host
};

struct DayTotals {
    Sums sums;
    // The hosts by their whole names, longer ones than a statistics record can hold included. Empty
    // when the world was written without host maps.
    std::map<std::string, HostTotal, std::less<>> hosts;
    // Unknown after totals without host maps were added up.
    std::optional<std::uint64_t> distinctHosts = 0;
};

// The newest log file of a node.
struct NodeEnd {
    int file = -1;
    std::uint64_t fileBytes = 0;
};

struct Totals {
    // By account name and date.
    std::map<std::string, std::map<int, DayTotals>> accounts;
    // By date directory below log_data: "alice/devid_9/20120303".
    std::map<std::string, NodeEnd> nodes;

    // Takes in what a later call wrote into the same world.
    Totals& operator+=(const Totals& later);

    Sums sum() const;
};

} // namespace worldgen
