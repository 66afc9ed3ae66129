#include "all_watcher.h"
#include "failure.h"
#include "installation.h"
#include "planning.h"
#include "progress.h"
#include "rounds.h"
#include "session.h"

#include <memory>
#include <optional>

namespace kestrine::build {

namespace {

// Holds the shared locks all the time, so that the service does not begin between two units.
int carryOutAll(const Session& session, std::optional<uint32_t> processes) {
    if (processes == 0) {
        throw usage("-j 0: carries out nothing; give 1 or more");
    }
    Installation installation;
    installation.enter();
    AllWatcher watcher(session.verbose());
    UnitPool pool(platform().executablePath(), session.commonArguments(),
                  processes.value_or(platform().processorCount()), watcher);
    const auto plan = [&] {
        Plan made = makePlan(installation.configuration());
        for (size_t i = 0; session.verbose() && i < made.reports.size(); ++i) {
            platform().writeConsole(made.reports[i], true);
        }
        return made;
    };
    const RoundsResult result = carryOutRounds(plan, [&](std::span<const PlannedUnit> units) {
        watcher.beginRound(units);
        std::vector<UnitResult> results = pool.run(units);
        watcher.endRound();
        return results;
    });
    const bool nothing = result.code == 0 && watcher.unitsDone() == 0;
    platform().writeConsole(nothing ? "nothing is due\n" : watcher.summary() + "\n", false);
    for (const std::string& error : result.errors) {
        platform().writeConsole("urlbuild: " + error + "\n", true);
    }
    return result.code;
}

} // namespace

void addAll(Session& session) {
    const auto processes = std::make_shared<std::optional<uint32_t>>();
    session
        .addCommand("all", "All that is due, many units at once", "all -j 4",
                    [&session, processes] { return carryOutAll(session, *processes); })
        .number("-j", *processes, "Units at once; one for each processor if not given");
}

} // namespace kestrine::build
