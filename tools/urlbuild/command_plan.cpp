#include "installation.h"
#include "plan_format.h"
#include "planning.h"
#include "session.h"

#include <memory>

namespace kestrine::build {

namespace {

int showPlan(bool json) {
    const Installation installation;
    const Plan plan = makePlan(installation.configuration());
    platform().writeConsole(json ? jsonText(plan) : tableText(plan), false);
    for (const std::string& report : plan.reports) {
        platform().writeConsole(report, true);
    }
    for (const std::string& account : plan.unclear) {
        platform().writeConsole("urlbuild: " + account +
                                    ": cannot be looked at as it is; carry out its check, and "
                                    "plan again\n",
                                true);
    }
    return 0;
}

} // namespace

void addPlan(Session& session) {
    const auto json = std::make_shared<bool>(false);
    session
        .addCommand("plan", "What is due, in units; reads only", "plan --json",
                    [json] { return showPlan(*json); })
        .flag("--json", *json, "For programs");
}

} // namespace kestrine::build
