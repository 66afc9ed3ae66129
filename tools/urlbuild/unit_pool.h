// Units of a plan, many at once, each in a process of its own.
//
//  1. As many as may run at once are started, those first that the graph names first.
//  2. One that ends with 0 lets those go on that need it.
//  3. One that is refused for now (exit code 3: somebody holds a lock, say) is started again after
//     a pause, a few times, and meanwhile others run.
//  4. One that fails, is killed, or is refused for good leaves out those that need it; the others
//     go on.
//  5. When a stop is requested all that run are asked to stop and waited for.
#pragma once

#include "plan.h"
#include "platform/child_process.h"
#include "unit_graph.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine::build {

// Begins each line of a unit that tells of an error.
constexpr std::string_view g_errorPrefix = "urlbuild: ";

enum class Outcome {
    NotDone, // since a stop was requested
    Done,
    Failed,  // or killed
    Refused, // for now
    LeftOut, // what it needs was not done
};

struct UnitResult {
    Outcome outcome = Outcome::NotDone;
    uint64_t visits = 0; // read by a unit that is done
    std::string reason;  // of one that failed or was refused
};

// Is told what goes on.
class PoolWatcher {
public:
    virtual ~PoolWatcher() = default;
    // A line of a unit's: an error, a report, or at its end what it has done.
    virtual void unitSays(const PlannedUnit& unit, const std::string& line) = 0;
    virtual void unitEnded(const PlannedUnit& unit, const UnitResult& result) = 0;
    // Many times a second, with the number of those that run.
    virtual void goesOn(size_t running) = 0;
};

class UnitPool {
public:
    // `commonArguments` stand behind those of each unit. `processes`: how many may run at once.
    UnitPool(std::string program, std::vector<std::string> commonArguments, uint32_t processes,
             PoolWatcher& watcher);

    // The results, in the order of the units; each stands behind all that it needs.
    [[nodiscard]] std::vector<UnitResult> run(std::span<const PlannedUnit> units);

private:
    struct Running {
        size_t unit;
        std::unique_ptr<ChildProcess> child;
        std::string output; // the line that is not complete yet
        std::string last;   // line, but for errors
        std::string error;  // the last one
    };
    struct Waiting {
        size_t unit;
        uint32_t since; // ticks
        uint32_t pause; // ms
    };
    struct Round;

    void startNext(Round& round);
    void start(Round& round, size_t unit);
    // Whether it has ended.
    [[nodiscard]] bool look(Round& round, Running& running);
    void takeLines(const Round& round, Running& running, bool all);
    void handleEnd(Round& round, const Running& running, const ChildEnd& end);
    void settle(Round& round, size_t unit, UnitResult result);

    std::string m_program;
    std::vector<std::string> m_commonArguments;
    size_t m_processes;
    PoolWatcher& m_watcher;
};

} // namespace kestrine::build
