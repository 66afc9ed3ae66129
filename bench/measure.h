// Works measured in turn. A machine that others share knows no absolute times: what counts is the
// CPU time of one work over that of another one beside it.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace kestrine::bench {

// CPU seconds of this process for the work.
template <typename Work>
[[nodiscard]] double cpuOf(const Work& work) {
    const std::clock_t begin = std::clock();
    work();
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

// Does a work once and returns the CPU seconds of the part of it that counts.
using Measured = std::function<double()>;

struct Reference {
    std::string name;
    Measured measured;
};

// Measures `what` and each reference once in every round, after one round that does not count, and
// prints a line for each reference: what, against what, and the ratio of every round, with tabs
// between them.
void printRatios(int rounds, const std::string& what, const Measured& measured,
                 const std::vector<Reference>& references);

// Ends the program: a measurement of something that fails would say nothing.
void require(bool good, const char* what);

} // namespace kestrine::bench
