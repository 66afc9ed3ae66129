// What "urlbuild all" shows while it works.
#pragma once

#include "progress.h"
#include "unit_pool.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace kestrine::build {

// On a terminal a line with how far the round is. Above it, and elsewhere alone, what units say:
// errors, which are said once, however often the unit is tried, or all of it.
class AllWatcher final : public PoolWatcher {
public:
    explicit AllWatcher(bool verbose) : m_verbose(verbose) {}

    void beginRound(std::span<const PlannedUnit> units);
    // Frees the line.
    void endRound() { m_line.erase(); }
    // ---- of all rounds
    [[nodiscard]] uint64_t unitsDone() const { return m_unitsDone; }
    [[nodiscard]] std::string summary() const;

    void unitSays(const PlannedUnit& unit, const std::string& line) override;
    void unitEnded(const PlannedUnit& unit, const UnitResult& result) override;
    void goesOn(size_t running) override;

private:
    void print(const std::string& line);

    static constexpr int g_wordsWidth = 62;

    bool m_verbose;
    ProgressLine m_line{g_wordsWidth};
    uint64_t m_unitsDone = 0;
    uint64_t m_visits = 0;
    size_t m_unitsOfRound = 0;
    size_t m_ended = 0;      // of the round, whatever became of them
    uint64_t m_work = 0;     // of the round, in bytes
    uint64_t m_workDone = 0; // of it
    bool m_stopTold = false;
    std::map<std::string, std::string> m_errors; // the last one of each unit
};

} // namespace kestrine::build
