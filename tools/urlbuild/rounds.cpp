#include "rounds.h"

#include "frame/run_flag.h"
#include "not_now.h"

#include <algorithm>
#include <set>

namespace kestrine::build {

namespace {

constexpr int g_mostRounds = 5;

void addRemains(const std::vector<PlannedUnit>& units, const std::vector<UnitResult>& results,
                Outcome outcome, const char* words, RoundsResult& result) {
    for (size_t i = 0; i < units.size(); ++i) {
        if (results[i].outcome == outcome) {
            result.errors.push_back(idOf(units[i]) + ": " + words + results[i].reason);
        }
    }
}

// Those that are due in their own right: not for what they need, and no check that is due for them.
void addStillDue(const std::vector<PlannedUnit>& units, RoundsResult& result) {
    std::set<size_t> needed;
    for (const PlannedUnit& unit : units) {
        needed.insert(unit.needs.begin(), unit.needs.end());
    }
    for (size_t i = 0; i < units.size(); ++i) {
        const bool own = std::ranges::all_of(units[i].needs, [&units](size_t other) {
            return units[other].kind == UnitKind::Check;
        });
        if (own && (units[i].kind != UnitKind::Check || !needed.contains(i))) {
            result.errors.push_back(idOf(units[i]) + ": was carried out and is still due; "
                                                     "\"--verbose\" tells more");
        }
    }
}

bool any(const std::vector<UnitResult>& results, Outcome outcome) {
    return std::ranges::any_of(
        results, [outcome](const UnitResult& result) { return result.outcome == outcome; });
}

// Of the last round, when something is still due.
RoundsResult remains(const std::vector<PlannedUnit>& units, const std::vector<UnitResult>& results,
                     bool changed) {
    RoundsResult result;
    addRemains(units, results, Outcome::Failed, "failed: ", result);
    addRemains(units, results, Outcome::Refused, "not now: ", result);
    const auto leftOut = std::ranges::count(results, Outcome::LeftOut, &UnitResult::outcome);
    if (leftOut > 0) {
        result.errors.push_back(std::to_string(leftOut) +
                                " units were left out, since these come before them; run "
                                "\"urlbuild all\" again when they are cured");
    }
    if (any(results, Outcome::Failed)) {
        result.code = g_dataWrong;
    } else if (any(results, Outcome::Refused)) {
        result.code = g_notNow;
    } else if (changed) {
        result.errors.emplace_back("more is due, since logs come all the time; run \"urlbuild "
                                   "all\" again, or start the service");
        result.code = g_notNow;
    } else {
        addStillDue(units, result);
        result.code = g_dataWrong;
    }
    return result;
}

} // namespace

RoundsResult carryOutRounds(const Planner& makePlan, const Runner& run) {
    std::vector<PlannedUnit> units;
    std::vector<UnitResult> results;
    for (int round = 0;; ++round) {
        if (stopRequested()) {
            return {g_notNow, {"stopped; \"urlbuild all\" goes on from here"}};
        }
        Plan plan = makePlan();
        if (plan.units.empty()) {
            return {};
        }
        const bool changed = plan.units != units;
        if (!changed || round == g_mostRounds) {
            return remains(units, results, changed);
        }
        units = std::move(plan.units);
        results = run(units);
    }
}

} // namespace kestrine::build
