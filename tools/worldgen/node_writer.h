// Writes the log files of planned nodes, on several threads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "worldgen/totals.h"
#include "worldgen/world.h"

namespace worldgen {

struct NodePlan {
    std::string account;
    int device = 0;
    int date = 0;
    int firstFile = 0;                 // number of the first file to write
    std::vector<std::uint64_t> visits; // of each file
};

// A number that depends on all of these; gives each node and file random numbers of its own.
std::uint64_t nodeSeed(std::uint64_t seed, const NodePlan& node);

Totals writeNodes(const std::filesystem::path& root, const WorldSettings& settings,
                  const std::vector<NodePlan>& nodes);

} // namespace worldgen
