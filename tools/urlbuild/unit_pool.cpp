#include "unit_pool.h"

#include "frame/run_flag.h"
#include "frame/ticks.h"
#include "not_now.h"
#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <optional>

namespace kestrine::build {

namespace {

constexpr uint32_t g_step = 2; // ms between two looks at what runs

// Pauses before a unit that was refused is tried again: enough for another unit to end.
constexpr uint32_t g_firstPause = 1000; // ms, each twice the one before
constexpr uint32_t g_longestPause = 4000;

// "...: 1234567 visits read, 2 files merged", "...: 1 visit read, ..." -> 1234567, 1
uint64_t visitsOf(std::string_view line) {
    std::string_view text = line.substr(0, line.rfind(" read, "));
    text.remove_suffix(text.ends_with('s') ? 1 : 0);
    if (!text.ends_with(" visit")) {
        return 0;
    }
    text = text.substr(0, text.rfind(' '));
    text = text.substr(text.find_last_not_of("0123456789") + 1);
    uint64_t visits = 0;
    std::from_chars(text.data(), text.data() + text.size(), visits);
    return visits;
}

std::string reasonOf(const ChildEnd& end, std::string_view lastError) {
    if (!lastError.empty()) {
        return std::string(lastError);
    }
    return (end.killed ? "killed by " : "ended with exit code ") + std::to_string(end.code);
}

} // namespace

// One run.
struct UnitPool::Round {
    std::span<const PlannedUnit> units;
    UnitGraph graph;
    std::vector<UnitResult> results;
    std::vector<Running> running;
    std::vector<Waiting> waiting;
    std::map<size_t, uint32_t> pauses; // the last one of each unit that was refused
    bool stopping = false;
};

UnitPool::UnitPool(std::string program, std::vector<std::string> commonArguments,
                   uint32_t processes, PoolWatcher& watcher)
    : m_program(std::move(program)), m_commonArguments(std::move(commonArguments)),
      m_processes(processes), m_watcher(watcher) {}

std::vector<UnitResult> UnitPool::run(std::span<const PlannedUnit> units) {
    Round round{units, UnitGraph(units), std::vector<UnitResult>(units.size()), {}, {}, {}};
    for (;;) {
        if (stopRequested() && !round.stopping) {
            round.stopping = true;
            round.waiting.clear();
            for (const Running& running : round.running) {
                (void)running.child->askToStop(); // one that cannot be asked is waited for
            }
        }
        if (!round.stopping) {
            startNext(round);
        }
        if (round.running.empty() && round.waiting.empty()) {
            return round.results;
        }
        platform().sleep(g_step);
        std::erase_if(round.running, [&](Running& running) { return look(round, running); });
        m_watcher.goesOn(round.running.size());
    }
}

void UnitPool::startNext(Round& round) {
    const uint32_t now = platform().tickCount();
    while (round.running.size() < m_processes) {
        const auto rested = std::ranges::find_if(round.waiting, [now](const Waiting& waiting) {
            return elapsedTicks(waiting.since, now) >= waiting.pause;
        });
        if (rested != round.waiting.end()) {
            const size_t unit = rested->unit;
            round.waiting.erase(rested);
            start(round, unit);
        } else if (const std::optional<size_t> unit = round.graph.next()) {
            start(round, *unit);
        } else {
            return;
        }
    }
}

void UnitPool::start(Round& round, size_t unit) {
    std::vector<std::string> arguments = argumentsOf(round.units[unit]);
    arguments.insert(arguments.end(), m_commonArguments.begin(), m_commonArguments.end());
    std::unique_ptr<ChildProcess> child;
    if (platform().startProgram(m_program, arguments, child) != 0) {
        settle(round, unit,
               {Outcome::Failed, 0, m_program + " cannot be started: " + std::strerror(errno)});
        return;
    }
    round.running.push_back({unit, std::move(child), {}, {}, {}});
}

bool UnitPool::look(Round& round, Running& running) {
    ChildEnd end;
    const int ended = running.child->poll(end);
    running.child->takeOutput(running.output);
    takeLines(round, running, ended != 0);
    if (ended == 0) {
        return false;
    }
    if (ended < 0) {
        settle(round, running.unit,
               {Outcome::Failed, 0, std::string("cannot be waited for: ") + std::strerror(errno)});
        return true;
    }
    handleEnd(round, running, end);
    return true;
}

// `all`: also the last line, if it has no end.
void UnitPool::takeLines(const Round& round, Running& running, bool all) {
    for (;;) {
        const size_t end = running.output.find('\n');
        if (end == std::string::npos && (!all || running.output.empty())) {
            return;
        }
        const std::string line = running.output.substr(0, end);
        running.output.erase(0, end == std::string::npos ? end : end + 1);
        if (line.starts_with(g_errorPrefix)) {
            running.error = line.substr(g_errorPrefix.size());
        } else {
            running.last = line;
        }
        m_watcher.unitSays(round.units[running.unit], line);
    }
}

void UnitPool::handleEnd(Round& round, const Running& running, const ChildEnd& end) {
    const std::string reason = reasonOf(end, running.error);
    if (!end.killed && end.code == 0) {
        settle(round, running.unit, {Outcome::Done, visitsOf(running.last), {}});
    } else if (end.killed || end.code != g_notNow) {
        settle(round, running.unit, {Outcome::Failed, 0, reason});
    } else if (!round.stopping) {
        uint32_t& pause = round.pauses[running.unit];
        pause = pause == 0 ? g_firstPause : 2 * pause;
        if (pause > g_longestPause) {
            settle(round, running.unit, {Outcome::Refused, 0, reason});
        } else {
            round.waiting.push_back({running.unit, platform().tickCount(), pause});
        }
    }
}

void UnitPool::settle(Round& round, size_t unit, UnitResult result) {
    if (result.outcome == Outcome::Done) {
        round.graph.finish(unit);
    } else {
        for (const size_t user : round.graph.leaveOut(unit)) {
            round.results[user].outcome = Outcome::LeftOut;
            m_watcher.unitEnded(round.units[user], round.results[user]);
        }
    }
    round.results[unit] = std::move(result);
    m_watcher.unitEnded(round.units[unit], round.results[unit]);
}

} // namespace kestrine::build
