// A small world that exercises every stage, and runs of the service over it in child processes.
#pragma once

#include "fault_platform.h"
#include "support/temp_dir.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrine::test {

// Every finished file of a statistics tree by its name: a line per record, a line per node
// position. Cuts into blocks and new-day counters are left out.
using Snapshot = std::map<std::string, std::vector<std::string>>;
[[nodiscard]] Snapshot snapshotOf(const std::string& urlStatRoot);
// The first difference in words, empty when there is none.
[[nodiscard]] std::string difference(const Snapshot& wanted, const Snapshot& got);

class SweepWorld {
public:
    // Two rounds of logs of two dates, between which a week and a month end. `visits` a round.
    explicit SweepWorld(uint64_t visits);

    // How a run of the service ended.
    enum class End { Normal, Failed, Killed, Crashed };

    struct Run {
        FaultPlan plan;
        bool secondRound = true; // visible from the start; otherwise after the first pass
        std::string callsFile;   // where to write the name of every change, if anywhere
    };
    // Runs two passes of the service in a child process over the tree of directory `place`, which
    // has a statistics tree and a memory disk of its own. Each number of `place` is independent.
    [[nodiscard]] End run(int place, const Run& run) const;

    void clear(int place) const; // the statistics tree of a place is gone
    [[nodiscard]] std::string urlStatRoot(int place) const;
    [[nodiscard]] std::string directory(int place) const;
    // Visits of both rounds.
    [[nodiscard]] uint64_t visits() const { return m_visits; }

private:
    [[nodiscard]] int serve(int place, const Run& run) const;

    TempDir m_directory;
    uint64_t m_visits = 0;
    std::map<std::string, int> m_lastOfFirstRound; // file number by node directory
};

} // namespace kestrine::test
