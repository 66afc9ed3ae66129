// A small world that exercises every stage, and runs of the service over it in child processes.
#pragma once

#include "fault_platform.h"
#include "support/temp_dir.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrine::test {

// Every finished file of a statistics tree by its name: a line per record, then lines that begin
// with '/', the total and the node positions of its status. Cuts into blocks and new-day counters
// are left out.
using Snapshot = std::map<std::string, std::vector<std::string>>;
[[nodiscard]] Snapshot snapshotOf(const std::string& urlStatRoot);
// The first difference in words, empty when there is none.
[[nodiscard]] std::string difference(const Snapshot& wanted, const Snapshot& got);

// Calls `attempt` for 0 to `number` - 1, shared among worker processes, each of which knows its own
// number, from 0. Returns what they say is wrong.
[[nodiscard]] std::vector<std::string>
tryAll(uint64_t number, const std::function<std::string(int worker, uint64_t n)>& attempt);

class SweepWorld {
public:
    // Two rounds of logs, `visits` each. A week and a month end between the first two dates.
    explicit SweepWorld(uint64_t visits, int dates = 2);

    // How a run of the service ended.
    enum class End { Normal, Failed, Killed, StartUpOver, Crashed };

    struct Run {
        FaultPlan plan = {};
        bool secondRound = true;    // visible from the start; otherwise after the first pass
        std::string callsFile = {}; // where to write the name of every change, if anywhere
        bool onePass = false;       // the second one does not come
        // Called in the child: before all, where false counts as a crash; between the passes; and
        // at every change with its number.
        std::function<bool()> prepare = {};
        std::function<void()> inPause = {};
        std::function<void(uint64_t)> atChange = {};
        std::optional<uint64_t> memoryDiskRoom = {}; // bytes
    };
    struct Settings {
        int dayInterval = 1;
        int weekMonthInterval = 1;
        int memoryDiskSize = 1025;
    };
    // Runs two passes of the service in a child process over the tree of directory `place`, which
    // has a statistics tree and a memory disk of its own. Each number of `place` is independent.
    [[nodiscard]] End run(int place, const Run& run) const;

    void clear(int place) const; // an empty place
    void copy(int from, int to) const;
    void writeSettings(int place, const Settings& settings) const;
    [[nodiscard]] std::string urlStatRoot(int place) const;
    [[nodiscard]] std::string directory(int place) const;
    // Visits of both rounds.
    [[nodiscard]] uint64_t visits() const { return m_visits; }

private:
    [[nodiscard]] int serve(int place, const Run& run) const noexcept; // what throws is a crash

    TempDir m_directory;
    uint64_t m_visits = 0;
    std::map<std::string, int> m_lastOfFirstRound; // file number by node directory
};

} // namespace kestrine::test
