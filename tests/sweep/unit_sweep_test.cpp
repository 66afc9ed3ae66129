// The same for the units of tools/urlbuild: every call of the disk as the point where one of them
// goes wrong. It is run again, those behind it follow, and the end is what the logs hold; or the
// service takes over.
#include "sim_world.h"

#include "failure.h"
#include "frame/log.h"
#include "frame/run_flag.h"
#include "not_now.h"
#include "units.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace kestrine::test {
namespace {

using Mode = FailingPlatform::Mode;
using Calls = FailingPlatform::Calls;

struct Unit {
    const char* name;
    std::function<std::string(build::Installation&)> run;
};

Unit day(const char* date) {
    return {date, [date](build::Installation& place) { return runDay(place, "alice", date); }};
}

Unit period(const char* name, Period kind, const char* date) {
    return {name, [kind, date](build::Installation& place) {
                return runPeriod(place, kind, "alice", date);
            }};
}

const Unit g_check = {"check", [](build::Installation& place) { return runCheck(place, "alice"); }};

class UnitSweep : public testing::Test {
protected:
    // Two dates between which a week and a month end. All has been counted once, so that every file
    // is there and will be replaced.
    static void SetUpTestSuite() {
        reportErrorsToStderr(); // other lines are not even formatted
        g_world = std::make_unique<SimWorld>(smallLogs(150, 60, 2), 3);
        g_fresh = g_world->save();
    }
    static void TearDownTestSuite() { g_world.reset(); }

    // In an order in which each may be run.
    static const std::vector<Unit>& units() {
        static const std::vector<Unit> all = {day("20131130"),
                                              day("20131201"),
                                              period("week 1", Period::Week, "20131130"),
                                              period("week 2", Period::Week, "20131203"),
                                              period("month 1", Period::Month, "20131101"),
                                              period("month 2", Period::Month, "20131231")};
        return all;
    }

    // The exit code; `line` is what is printed.
    static int run(const Unit& unit, const Plan& plan = {}, std::string* line = nullptr) {
        int code = 0;
        g_end = g_world->run(plan, [&] {
            try {
                build::Installation place;
                const std::string text = unit.run(place);
                (line != nullptr ? *line : g_line) = text;
            } catch (const Failure& failure) {
                (line != nullptr ? *line : g_line) = failure.what();
                code = failure.code();
            }
            return code;
        });
        return code;
    }

    // What went wrong when the units from `from` on were run.
    static std::string runFrom(size_t from) {
        for (size_t i = from; i < units().size(); ++i) {
            if (run(units()[i]) != 0) {
                return std::string(units()[i].name) + " after it: " + g_line;
            }
        }
        return leftWrong();
    }

    static std::string leftWrong() {
        const auto setAside = g_world->setAside();
        return setAside.empty() ? g_world->wrong() : "set aside: " + *setAside.begin();
    }

    // Every unit goes wrong at every call of the kind, or is asked there to stop. `also` looks at
    // the exit code.
    static void sweep(Plan plan, const std::function<bool(int)>& also, bool stops = false) {
        Report report(*g_world);
        startOver();
        for (size_t i = 0; i < units().size(); ++i) {
            const SimWorld::State before = g_world->save();
            int calls = 0;
            const auto count = [&calls](int number, const char*) { calls = number; };
            ASSERT_EQ(run(units()[i], {.calls = plan.calls, .onCall = count}), 0) << g_line;
            const SimWorld::State after = g_world->save();
            ASSERT_GT(calls, 10);
            for (int point = firstOf(); point <= calls; point += stepOf()) {
                g_world->restore(before);
                if (stops) {
                    plan.onCall = [point](int number, const char*) {
                        g_isRunning = number == point ? 0 : g_isRunning.load();
                    };
                } else {
                    plan.failAt = point;
                }
                const int code = run(units()[i], plan);
                const std::string name =
                    std::string(units()[i].name) + ", call " + std::to_string(point);
                report.add(name, also(code) ? "" : "exit code " + std::to_string(code));
                const SimWorld::State left = g_world->save();
                report.add(name + ", units", runFrom(i));
                g_world->restore(left);
                report.add(name + ", service",
                           g_world->runs(2) ? leftWrong() : "the service failed");
            }
            g_world->restore(after);
        }
    }

    static void startOver() {
        g_world->restore(g_fresh);
        ASSERT_EQ(runFrom(0), "");
        g_world->addRound();
    }

    static inline std::unique_ptr<SimWorld> g_world;
    static inline SimWorld::State g_fresh;
    static inline End g_end = End::Normal;
    static inline std::string g_line;
};

// From nothing, over what the service has left, and the service over what they have left.
TEST_F(UnitSweep, UnitsAndTheServiceTakeTurns) {
    g_world->restore(g_fresh);
    ASSERT_EQ(runFrom(0), "");
    g_world->addRound();
    ASSERT_TRUE(g_world->runs(1));
    EXPECT_EQ(g_world->wrong(), "");
    g_world->addRound();
    std::string line;
    EXPECT_EQ(run(g_check, {}, &line), 0);
    EXPECT_EQ(line, "check alice: done");
    EXPECT_EQ(run(units()[0], {}, &line), 0);
    EXPECT_TRUE(line.starts_with("day alice 2013-11-30: ") &&
                line.ends_with(" visits read, 1 file merged"))
        << line;
    EXPECT_EQ(run(units()[0], {}, &line), 0);
    EXPECT_EQ(line, "day alice 2013-11-30: nothing due");
    ASSERT_EQ(runFrom(1), "");
    const uint64_t settled = g_world->fingerprint();
    EXPECT_EQ(runFrom(0), "");
    EXPECT_EQ(g_world->fingerprint(), settled) << "units with nothing to do have changed something";
}

// In any other order nothing is lost: a unit that comes too early refuses, and changes nothing.
TEST_F(UnitSweep, AUnitThatComesTooEarlyRefuses) {
    g_world->restore(g_fresh);
    ASSERT_EQ(runFrom(0), "");
    g_world->configure("daycrcsortInterval", "36000");
    g_world->configure("weekmoncrcsortInterval", "172800");
    ASSERT_TRUE(g_world->runs(2)); // in the second pass new-day files come, and wait
    const auto refuses = [](const Unit& unit, int code, const std::string& why) {
        const uint64_t before = g_world->fingerprint();
        EXPECT_EQ(run(unit), code) << unit.name << ": " << g_line;
        EXPECT_NE(g_line.find(why), std::string::npos) << g_line;
        EXPECT_EQ(g_world->fingerprint(), before) << unit.name;
    };
    refuses(units()[3], build::g_notNow, "run \"urlbuild day alice 2013-12-01\" first");
    ASSERT_EQ(run(units()[0]) + run(units()[1]), 0) << g_line;
    refuses(units()[5], build::g_notNow, "run \"urlbuild week alice 2013-12-01\" first");
    MemoryDisk::Bytes& month =
        g_world->disk.files.at("/w/stat/alice/mon20131201_20131231/moncrcsort");
    month.resize(month.size() - 1);
    refuses(units()[1], build::g_notNow, "run \"urlbuild check alice\" first");
    refuses({"day of nobody",
             [](build::Installation& place) { return runDay(place, "bob", "20131201"); }},
            g_dataWrong, "bob: is no account");
    ASSERT_EQ(run(g_check), 0) << g_line;
    ASSERT_EQ(run(units()[1]), 0) << g_line;
    EXPECT_EQ(g_world->setAside().size(), 1U);
    for (size_t i = 2; i < units().size(); ++i) {
        EXPECT_EQ(run(units()[i]), 0) << g_line;
    }
    EXPECT_EQ(g_world->wrong(), "");
    std::erase_if(g_world->disk.files,
                  [](const auto& file) { return file.first.starts_with(SimWorld::g_logData); });
    std::erase_if(g_world->disk.directories, [](const std::string& directory) {
        return directory.starts_with(SimWorld::g_logData);
    });
    refuses(units()[0], g_dataWrong, "the log data is not there");
}

TEST_F(UnitSweep, Kill) {
    sweep({.mode = Mode::Kill}, [](int) { return g_end == End::Killed || g_end == End::Normal; });
}

TEST_F(UnitSweep, Stop) {
    sweep(
        {}, [](int code) { return code == 0 || code == build::g_notNow; }, true);
}

TEST_F(UnitSweep, FailOnce) {
    sweep({.error = EIO}, [](int code) { return code == 0 || code == g_dataWrong; });
    sweep({.calls = Calls::Reading, .error = EIO},
          [](int code) { return code == 0 || code == g_dataWrong; });
}

} // namespace
} // namespace kestrine::test
