#include "all_watcher.h"

#include "frame/run_flag.h"
#include "platform/platform.h"

#include <cinttypes>
#include <cstdio>

namespace kestrine::build {

namespace {

// A unit takes its time without anything to read, too; of the files that are yet to be made nobody
// knows the size.
uint64_t workOf(const PlannedUnit& unit) {
    constexpr uint64_t least = 65536;
    return unit.bytes + least;
}

} // namespace

void AllWatcher::beginRound(std::span<const PlannedUnit> units) {
    m_unitsOfRound = units.size();
    m_ended = 0;
    m_work = 0;
    m_workDone = 0;
    for (const PlannedUnit& unit : units) {
        m_work += workOf(unit);
    }
}

void AllWatcher::unitSays(const PlannedUnit& unit, const std::string& line) {
    const bool error = line.starts_with(g_errorPrefix);
    if (error) {
        std::string& last = m_errors[idOf(unit)];
        if (last == line) {
            return;
        }
        last = line;
    }
    // Errors that the service's own classes report do not name the unit.
    if (error || m_verbose || line.starts_with("E:")) {
        print(error ? line : idOf(unit) + ": " + line);
    }
}

void AllWatcher::unitEnded(const PlannedUnit& unit, const UnitResult& result) {
    ++m_ended;
    m_workDone += workOf(unit);
    m_unitsDone += result.outcome == Outcome::Done ? 1 : 0;
    m_visits += result.visits;
}

void AllWatcher::goesOn(size_t running) {
    if (stopRequested() && !m_stopTold) {
        m_stopTold = true;
        print("urlbuild: stops; waits for " + std::to_string(running) + " units to stop");
    }
    if (m_line.isDue()) {
        char words[120];
        std::snprintf(words, sizeof words, " %zu/%zu units  %" PRIu64 " visits  %.0f/s  ", m_ended,
                      m_unitsOfRound, m_visits, static_cast<double>(m_visits) / m_line.seconds());
        m_line.draw(m_workDone, m_work, words);
    }
}

std::string AllWatcher::summary() const {
    return std::to_string(m_unitsDone) + " units done, " + std::to_string(m_visits) +
           " visits read in " + durationText(static_cast<uint64_t>(m_line.seconds()));
}

void AllWatcher::print(const std::string& line) {
    m_line.erase();
    platform().writeConsole(line + "\n", true);
}

} // namespace kestrine::build
