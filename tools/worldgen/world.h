// Complete sample worlds: an install tree and the log data that its service reads.
//
//  ROOT/install/mysql_path.ini
//  ROOT/install/ml/                     for the executable
//  ROOT/install/ml/config/urlstat.ini
//  ROOT/install/ml/config/syncaccount.dat
//  ROOT/data/log_data/ACCOUNT/devid_N/YYYYMMDD/A/DIR/FILE.dat
//
// A world is determined by its settings, on every platform and with any number of threads; only the
// bytes of compressed blocks depend on the version of zlib.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "worldgen/install.h"
#include "worldgen/totals.h"

namespace worldgen {

struct WorldSettings {
    std::uint64_t seed = 1;
    std::uint64_t visits = 100000; // written by this call, over all its files

    // Hosts. Whoever appends keeps `types` and `longHosts`: they fix the hosts' types and names.
    std::uint32_t hosts = 5000;
    std::uint32_t types = 4;
    std::uint32_t longHosts = 0; // hosts that a statistics record cannot hold whole
    double zipfExponent = 1.0;

    // Files.
    int filesPerNode = 3;
    std::uint32_t blocksPerFile = 3;    // at least so many, when there are visits enough
    std::uint32_t blockBytes = 1048576; // no block's records exceed this; 8192 to 2097152
    std::uint32_t rawPercent = 25;      // share of the blocks that are stored uncompressed
    std::uint32_t skipPerMille = 30;    // skipped records for 1000 visits; up to 900

    // For generate() alone.
    int accounts = 2;
    std::vector<std::string> accountNames; // used instead of `accounts` when not empty
    int devices = 2;                       // of each account; their numbers are distinct everywhere
    int firstDate = 20121228;              // a week, a month and a year end within five days
    int days = 10;
    int longNodeFiles = 103; // small files of the first node; 0: as many as the others have
    InstallSettings install;

    // For append() alone: dates after the last one, and further devices of each account.
    int newDays = 0;
    int newDevices = 0;

    // Fills DayTotals::hosts; without them a world of any size needs little memory.
    bool hostMaps = true;
    unsigned threads = 0; // 0: as many as the processor has
};

class World {
public:
    explicit World(std::filesystem::path root) : m_root(std::move(root)) {}

    // Writes a world where none is yet. Returns what it holds. Throws std::invalid_argument for
    // settings out of range and std::runtime_error when a file cannot be written.
    Totals generate(const WorldSettings& settings);

    // Adds numbered files behind the newest one of every node that the tree holds (numbers are
    // found by scanning it), and the nodes of the new dates and devices. Existing files are never
    // changed: a reader takes a node up again when the file after the last one that it has read
    // appears. Each file appears complete, so the reader may be running. Returns what this call
    // wrote.
    Totals append(const WorldSettings& settings);

    const std::filesystem::path& root() const { return m_root; }

private:
    std::filesystem::path m_root;
};

// "alice", "bob", ... and then "user11", "user12", ...
std::vector<std::string> defaultAccountNames(int count);

} // namespace worldgen
