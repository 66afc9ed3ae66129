// What is measured inside this process; each prints its lines (measure.h).
#pragma once

#include "frame/configuration.h"

#include <cstdint>
#include <string>

namespace kestrine::bench {

struct Run {
    std::string directory; // for its files; the working directory
    int rounds = 0;
    uint32_t hosts = 0; // of the largest file
    const Configuration& settings;
};

void mergeRows(const Run& run);
void spillRows(const Run& run);
void topRows(const Run& run);

// Prints the CPU seconds that each codec takes for the blocks of all log files below a directory.
void printDecoding(const std::string& logData);

// Makes a statistics root with the day files of one account and month, each of so many hosts;
// prints the CPU seconds that merging them and decoding them takes.
void makeMonth(const std::string& root, uint32_t hosts);
void printMonth(const std::string& root);

} // namespace kestrine::bench
