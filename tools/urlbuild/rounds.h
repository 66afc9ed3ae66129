// All that is due, round after round.
#pragma once

#include "plan.h"
#include "unit_pool.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace kestrine::build {

// What the last round has left.
struct RoundsResult {
    int code = 0;                    // exit code
    std::vector<std::string> errors; // "UNIT: what is wrong; what to do"
};

using Planner = std::function<Plan()>;
using Runner = std::function<std::vector<UnitResult>(std::span<const PlannedUnit>)>;

// Plans, carries out and plans again: what a unit does may bring others to light, as the check of a
// damaged account does. Ends when nothing is due any more; when a round has changed nothing; after
// a stop; and after some rounds in any case, since logs come all the time.
[[nodiscard]] RoundsResult carryOutRounds(const Planner& makePlan, const Runner& run);

} // namespace kestrine::build
