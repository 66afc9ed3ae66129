// When "urlbuild all" is at its end, by plans and results as they may come.
#include "frame/run_flag.h"
#include "rounds.h"

#include <gtest/gtest.h>

#include <numeric>

namespace kestrine::build {
namespace {

// A plan: the kinds of its units, and what is new about it ("cd", "cd2"); and how they end.
struct Round {
    std::string plan;
    std::string outcomes; // as in the order of Outcome
};

std::vector<PlannedUnit> unitsOf(const std::string& plan) {
    std::vector<PlannedUnit> units;
    for (const char c : plan.substr(0, plan.find_first_of("0123456789"))) {
        const size_t kind = std::string("cdwm").find(c);
        std::vector<size_t> needs(units.size()); // all before
        std::iota(needs.begin(), needs.end(), 0);
        units.push_back(
            {static_cast<UnitKind>(kind), "a", "20240305", "20240305", {}, needs, 1, plan.size()});
    }
    return units;
}

class UrlbuildRoundsTest : public testing::Test {
protected:
    ~UrlbuildRoundsTest() override { g_isRunning = 1; }

    // The exit code; the last round repeats itself.
    int run(const std::vector<Round>& rounds) {
        planned = 0;
        carried = 0;
        const auto current = [&](size_t number) {
            return rounds[std::min(number, rounds.size()) - 1];
        };
        const RoundsResult result = carryOutRounds(
            [&] {
                ++planned;
                std::string plan = current(planned).plan;
                if (plan.ends_with("+")) { // grows
                    plan.replace(plan.size() - 1, 1, std::string(planned, '1'));
                }
                return Plan{unitsOf(plan), {}, {}};
            },
            [&](std::span<const PlannedUnit> units) {
                ++carried;
                std::vector<UnitResult> results;
                for (const char c : current(planned).outcomes) {
                    const size_t outcome = std::string("-DFRL").find(c);
                    if (outcome == 0) {
                        g_isRunning = 0;
                    }
                    results.push_back({static_cast<Outcome>(outcome), 0, "why"});
                }
                EXPECT_EQ(results.size(), units.size());
                return results;
            });
        errors = result.errors;
        return result.code;
    }

    size_t planned = 0;
    size_t carried = 0;
    std::vector<std::string> errors;
};

TEST_F(UrlbuildRoundsTest, EndsWhenNothingIsDueOrNothingChanges) {
    // Rounds, exit code, how many were carried out, and the beginnings of what is told.
    struct Case {
        std::vector<Round> rounds;
        int code;
        size_t carried;
        std::vector<std::string> told;
    };
    const std::vector<Case> cases = {
        {{{"", ""}}, 0, 0, {}},
        {{{"cdwm", "DDDD"}, {"", ""}}, 0, 1, {}},
        // A check brings to light what is due; a failure of before is mended.
        {{{"c", "D"}, {"cdw", "DFL"}, {"cdw2", "DDD"}, {"", ""}}, 0, 3, {}},
        {{{"cddw", "DFDL"}, {"cdw", "DFL"}},
         1,
         2,
         {"day/a/20240305: failed: why", "1 units were left out"}},
        {{{"cd", "DR"}}, 3, 1, {"day/a/20240305: not now: why"}},
        {{{"cdw", "DRF"}}, 1, 1, {"week/a/20240305: failed: why", "day/a/20240305: not now: why"}},
        {{{"cdw", "DDD"}}, 1, 1, {"day/a/20240305: was carried out and is still due"}},
        {{{"c", "D"}}, 1, 1, {"check/a/20240305: was carried out and is still due"}},
        {{{"cd+", "DD"}}, 3, 5, {"more is due, since logs come all the time"}},
        {{{"cd", "D-"}}, 3, 1, {"stopped"}}};
    for (const Case& one : cases) {
        g_isRunning = 1;
        EXPECT_EQ(run(one.rounds), one.code) << one.rounds[0].plan;
        EXPECT_EQ(carried, one.carried);
        ASSERT_EQ(errors.size(), one.told.size()) << testing::PrintToString(errors);
        for (size_t i = 0; i < errors.size(); ++i) {
            EXPECT_TRUE(errors[i].starts_with(one.told[i])) << errors[i];
        }
    }
}

} // namespace
} // namespace kestrine::build
