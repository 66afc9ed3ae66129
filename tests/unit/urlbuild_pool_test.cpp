// Which units run when, with children that are none.
#include "all_watcher.h"
#include "frame/run_flag.h"
#include "support/forwarding_platform.h"
#include "unit_pool.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <map>
#include <set>

namespace kestrine::build {
namespace {

using Names = std::vector<std::string>;

// A run of a unit.
struct Act {
    int code = 0;
    bool killed = false;
    uint32_t takes = 100; // ms
    std::string says;
};

// Starts units, by the first letter of their kind and their account: "d1".
class Stage final : public test::FakeClockPlatform {
public:
    Stage() { ticks = UINT32_MAX - 1000; }

    int startProgram(const std::string& program, std::span<const std::string> arguments,
                     std::unique_ptr<ChildProcess>& child) override;

    int terminalWidth(bool) override { return width; }
    void writeConsole(std::string_view text, bool toError) override {
        EXPECT_TRUE(toError);
        console += text;
    }

    int width = 0; // of the terminal
    std::string console;
    std::map<std::string, std::deque<Act>> acts; // those of a unit that are not the usual one
    Names started;
    std::set<std::string> running;
    size_t most = 0;
    Names asked;
    Names arguments; // of the last one

private:
    ScopedPlatform m_scope{*this};
};

class Actor final : public ChildProcess {
public:
    Actor(Stage& stage, std::string name, Act act)
        : m_stage(stage), m_name(std::move(name)), m_act(std::move(act)),
          m_end(*stage.ticks + m_act.takes) {}
    ~Actor() override { m_stage.running.erase(m_name); }
    int poll(ChildEnd& end) override {
        // Across the wrap of the counter.
        if (static_cast<int32_t>(*m_stage.ticks - m_end) < 0) {
            return 0;
        }
        end = {m_act.killed, m_act.code};
        return 1;
    }
    void takeOutput(std::string& text) override { // one byte after the other
        if (!m_act.says.empty()) {
            text += m_act.says.front();
            m_act.says.erase(0, 1);
        }
        if (static_cast<int32_t>(*m_stage.ticks - m_end) >= 0) {
            text += std::exchange(m_act.says, {});
        }
    }
    int askToStop() override {
        m_stage.asked.push_back(m_name);
        m_act = {3, false, 0, ""};
        m_end = *m_stage.ticks + 500;
        return 0;
    }

private:
    Stage& m_stage;
    std::string m_name;
    Act m_act;
    uint32_t m_end;
};

int Stage::startProgram(const std::string& program, std::span<const std::string> words,
                        std::unique_ptr<ChildProcess>& child) {
    const std::string name = words[0].substr(0, 1) + words[1];
    started.push_back(name);
    arguments.assign(words.begin(), words.end());
    if (program != "urlbuild" || name == "d0") {
        errno = ENOENT;
        return -1;
    }
    Act act;
    if (auto& left = acts[name]; !left.empty()) {
        act = left.front();
        left.pop_front();
    }
    EXPECT_TRUE(running.insert(name).second) << name << " twice at once";
    most = std::max(most, running.size());
    child = std::make_unique<Actor>(*this, name, act);
    return 0;
}

class Listener final : public PoolWatcher {
public:
    void unitSays(const PlannedUnit& unit, const std::string& line) override {
        said.push_back(idOf(unit) + ": " + line);
    }
    void unitEnded(const PlannedUnit&, const UnitResult&) override { ++ended; }
    void goesOn(size_t) override {}
    Names said;
    size_t ended = 0;
};

PlannedUnit unit(UnitKind kind, const std::string& account, std::vector<size_t> needs,
                 uint64_t bytes) {
    const std::string date = kind == UnitKind::Check ? "" : "20240305";
    return {kind, account, date, date, {true, false, false}, std::move(needs), 1, bytes};
}

constexpr auto C = UnitKind::Check;
constexpr auto D = UnitKind::Day;
constexpr auto W = UnitKind::Week;

// d1 and d2 for w1, d3 for w3.
std::vector<PlannedUnit> samplePlan() {
    return {unit(C, "1", {}, 0),    unit(C, "2", {}, 0),    unit(D, "1", {0}, 10),
            unit(D, "2", {0}, 500), unit(D, "3", {1}, 100), unit(W, "1", {2, 3}, 50),
            unit(W, "3", {4}, 1000)};
}

class UrlbuildPoolTest : public testing::Test {
protected:
    ~UrlbuildPoolTest() override { g_isRunning = 1; }

    // "D" done, "F" failed, "R" refused, "L" left out, "-" not done; in the order of the plan.
    std::string run(uint32_t processes, const std::vector<PlannedUnit>& plan = samplePlan()) {
        UnitPool pool("urlbuild", {"--root", "/r"}, processes, listener);
        results = pool.run(plan);
        std::string text;
        for (const UnitResult& result : results) {
            text += "-DFRL"[static_cast<size_t>(result.outcome)];
        }
        return text;
    }

    Stage stage;
    Listener listener;
    std::vector<UnitResult> results;
};

TEST_F(UrlbuildPoolTest, OrderOfAPlanAndOfItsUnits) {
    // What leads to the longest way is first, whatever it is itself.
    const std::vector<PlannedUnit> plan = ordered(samplePlan());
    Names ids;
    for (size_t i = 0; i < plan.size(); ++i) {
        ids.push_back(idOf(plan[i]).substr(0, 1) + plan[i].account);
        for (const size_t needed : plan[i].needs) {
            EXPECT_LT(needed, i);
        }
    }
    EXPECT_EQ(ids, (Names{"c2", "d3", "w3", "c1", "d2", "d1", "w1"}));
    EXPECT_EQ(plan[6].needs, (std::vector<size_t>{5, 4}));
    EXPECT_EQ(run(1, plan), "DDDDDDD");
    EXPECT_EQ(stage.started, ids);
    EXPECT_EQ(stage.arguments.front(), "week");
    EXPECT_EQ(Names(stage.arguments.end() - 2, stage.arguments.end()), (Names{"--root", "/r"}));

    stage.started.clear();
    stage.acts["d3"] = {{0, false, 1000, "day 3: 12345678901 visits read, 1 files merged\n"}};
    EXPECT_EQ(run(2), "DDDDDDD");
    EXPECT_EQ(stage.started, (Names{"c2", "c1", "d3", "d2", "d1", "w1", "w3"}));
    EXPECT_EQ(stage.most, 2U);
    EXPECT_EQ(results[4].visits, 12345678901U);
    EXPECT_EQ(listener.said,
              Names{"day/3/20240305: day 3: 12345678901 visits read, 1 files merged"});
    EXPECT_EQ(run(50), "DDDDDDD");
}

TEST_F(UrlbuildPoolTest, AFailureLeavesOutWhatNeedsIt) {
    // How d2 ends, and what is told of it.
    const std::pair<Act, std::string> cases[] = {
        {{1, false, 100, "E:x 1 y\nurlbuild: no\nurlbuild: disk; buy one\nlast"}, "disk; buy one"},
        {{9, true, 100, "half a li"}, "killed by 9"},
        {{2, false, 100, ""}, "ended with exit code 2"}};
    for (const auto& [act, reason] : cases) {
        stage.acts["d2"] = {act};
        listener.ended = 0;
        EXPECT_EQ(run(2), "DDDFDLD");
        EXPECT_EQ(results[3].reason, reason);
        EXPECT_EQ(listener.ended, results.size());
    }
    EXPECT_EQ(run(2, {unit(C, "1", {}, 0), unit(D, "0", {0}, 1), unit(W, "0", {1}, 1)}), "DFL");
    EXPECT_NE(results[1].reason.find("cannot be started"), std::string::npos);
}

TEST_F(UrlbuildPoolTest, WhatIsRefusedIsTriedAgain) {
    const Act refused{3, false, 10, "urlbuild: held\n"};
    stage.acts["d3"] = {refused, refused, refused};
    EXPECT_EQ(run(1), "DDDDDDD");
    // The others run in its pauses.
    EXPECT_EQ(stage.started, (Names{"c2", "d3", "c1", "d2", "d1", "w1", "d3", "d3", "d3", "w3"}));
    EXPECT_GT(stage.slept, 7000U);
    stage.acts["c1"] = {refused, refused, refused, refused};
    EXPECT_EQ(run(2), "RDLLDLD");
    EXPECT_EQ(results[0].reason, "held");
}

TEST_F(UrlbuildPoolTest, AStopIsAskedForAndWaitedFor) {
    stage.acts["c1"] = {{3, false, 10, ""}}; // rests when the stop comes
    stage.acts["c2"] = {{0, false, 10, ""}};
    stage.acts["d3"] = {{0, false, 9000, ""}};
    stage.onSleep = [this] {
        if (stage.slept >= 200) {
            g_isRunning = 0;
        }
    };
    EXPECT_EQ(run(2), "-D-----");
    EXPECT_EQ(stage.started, (Names{"c2", "c1", "d3"}));
    EXPECT_EQ(stage.asked, Names{"d3"});
    EXPECT_GE(stage.slept, 700U);
    EXPECT_LE(stage.slept, 800U);
    EXPECT_EQ(run(2), "-------") << "nothing is begun any more";
    EXPECT_EQ(stage.started.size(), 3U);
}

// Runs the sample plan, in which d2 is refused twice and reads 500 visits.
std::string shownWhile(Stage& stage, int width, bool verbose) {
    const Act refused{3, false, 10, "I:x 1 y\nE:z 2 wrong\nurlbuild: held\n"};
    stage.acts["d2"] = {refused, refused, {0, false, 900, "day: 500 visits read, 1 file merged\n"}};
    stage.acts["w1"] = {{0, false, 400, ""}}; // so that it is drawn meanwhile
    stage.width = width;
    stage.console.clear();
    AllWatcher watcher(verbose);
    watcher.beginRound(samplePlan());
    EXPECT_EQ(UnitPool("urlbuild", {}, 2, watcher).run(samplePlan()).size(), 7U);
    watcher.endRound();
    EXPECT_EQ(watcher.summary(), "7 units done, 500 visits read in 0:04");
    return std::move(stage.console);
}

TEST_F(UrlbuildPoolTest, WhatIsShownOfIt) {
    const std::string wrong = "day/2/20240305: E:z 2 wrong\n";
    EXPECT_EQ(shownWhile(stage, 0, false), wrong + "urlbuild: held\n" + wrong);
    const std::string all = shownWhile(stage, 0, true);
    EXPECT_EQ(all.find("day/2/20240305: I:x 1 y\n"), 0U);
    EXPECT_NE(all.find("day/2/20240305: day: 500 visits read, 1 file merged\n"), std::string::npos);

    const std::string text = shownWhile(stage, 100, false);
    const std::string free = "\r\x1b[K";
    EXPECT_TRUE(text.ends_with(free));
    EXPECT_NE(text.find("] 5/7 units  0 visits  0/s  0:"), std::string::npos) << text;
    EXPECT_NE(text.find("] 6/7 units  500 visits  1"), std::string::npos) << text;
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
        const size_t line = text.rfind('\r', at);
        EXPECT_TRUE(line == std::string::npos || text.compare(line, free.size(), free) == 0);
    }
    for (size_t begin = 0; begin != std::string::npos; begin = text.find('\r', begin + 1)) {
        EXPECT_LT(text.find_first_of("\r\x1b", begin + 1) - begin, 101U) << "a line that breaks";
    }
}

} // namespace
} // namespace kestrine::build
