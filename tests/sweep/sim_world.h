// A machine in memory: an installation, log data that comes in rounds, and runs of the service in
// this process, whose disk may go wrong.
#pragma once

#include "support/expected_world.h"
#include "support/failing_platform.h"
#include "support/memory_disk.h"
#include "worldgen/world.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kestrine::test {

// Of the points of a sweep every so-manieth is tried: KESTRINE_SWEEP_STEP, 1 without it.
[[nodiscard]] int stepOf();
// The first of them, from 1 on. It differs between tests and from call to call, so that what one
// sweep leaves out another one tries.
[[nodiscard]] int firstOf();

// Few small logs, in one file for each node; from the last day of a week and of its month on.
[[nodiscard]] worldgen::WorldSettings smallLogs(uint64_t visits, uint32_t hosts, int days);

// How a run of the service ended.
enum class End { Normal, Failed, Killed, StartUpOver };

// A run: passes until a stop is requested, and the fault that it meets.
struct Plan {
    int failAt = 0; // number of the call, from 1; 0: none
    FailingPlatform::Mode mode = FailingPlatform::Mode::Once;
    FailingPlatform::Calls calls = FailingPlatform::Calls::Changing;
    int error = EIO;
    int passes = 3;
    bool startUpOnly = false;                   // ends before the first pass
    std::function<void(int pass)> inPause = {}; // after that pass, from 1; null: the next logs come
    std::function<void(int, const char*)> onCall = {}; // number and name
    std::string only = {}; // the one path whose calls count; else all of the service's
};

class SimWorld : private FakeClockPlatform {
public:
    static constexpr const char* g_statRoot = "/w/stat";
    static constexpr const char* g_logData = "/w/data/log_data";
    static constexpr const char* g_memoryDisk = "/w/mem/disk";

    // So many rounds of logs, each with files for every node; the first one is there. With
    // `newNodes` one more comes last, of new devices and with a new date.
    SimWorld(worldgen::WorldSettings settings, int rounds, bool newNodes = false);
    ~SimWorld() override;

    MemoryDisk disk{*this};
    void addRound(); // the next one, if there is one
    // Files that a round brings; what the day, week and month files of that round alone would hold,
    // by name ("alice/20131201/daycrcsort").
    using Files = std::map<std::string, MemoryDisk::Bytes>;
    using Contents = std::map<std::string, TestRecords>;
    [[nodiscard]] const Files& logs(int round) const { return m_rounds.at(round).files; }
    [[nodiscard]] const Contents& own(int round) const { return m_rounds.at(round).own; }
    void configure(const std::string& key, const std::string& value); // in urlstat.ini

    // The life of one process: what `main` does between start-up and end.
    End run(const Plan& plan = {});
    // The life of another process, with the plan's fault: `program` returns 0 or what failed.
    End run(const Plan& plan, const std::function<int()>& program);
    // A run without faults that leaves nothing to be done.
    [[nodiscard]] bool runs(int passes = 2) { return run({.passes = passes}) == End::Normal; }

    // What of the statistics is not as the logs of the rounds so far want it; empty when nothing
    // is. New-day files that wait are left out.
    [[nodiscard]] std::string wrong();
    [[nodiscard]] TreeText tree();
    // Files that were set aside.
    [[nodiscard]] std::set<std::string> setAside() const;
    [[nodiscard]] std::string errors() const;                 // the last lines of the last run
    [[nodiscard]] bool reported(std::string_view text) const; // in any line of it

    struct State {
        Files files;
        std::set<std::string> directories;
        std::map<std::string, int64_t> times;
        int round;
    };
    [[nodiscard]] State save() const;
    void restore(const State& state);
    // Of all that a start finds, but for what it removes first: the temporary trees.
    [[nodiscard]] uint64_t fingerprint() const;

private:
    struct Round {
        Files files;
        Contents own;
        TreeText expected; // when all before it are counted, too
    };

    void sleep(uint32_t milliseconds) override;
    uint32_t tickCount() override;
    void writeConsole(std::string_view text, bool toError) override;
    std::string resolvedPath(const std::string& path) override { return path; }
    bool isVolumeRoot(const std::string& path) override { return path == "/"; }
    LockResult lockFile(const std::string&, std::unique_ptr<NamedEvent>&) override {
        return LockResult::Locked;
    }
    LockResult lockFileShared(const std::string&, std::unique_ptr<NamedEvent>&) override {
        return LockResult::Locked;
    }
    LockResult lockFileBytes(const std::string&, uint64_t, uint64_t,
                             std::unique_ptr<NamedEvent>&) override {
        return LockResult::Locked;
    }
    void addLast(const Files& files, const worldgen::Totals& totals);
    void put(const Files& added);

    worldgen::Totals m_totals;     // of all rounds
    std::map<int, Round> m_rounds; // by number, from 0
    int m_round = 0;               // that is there
    const Plan* m_plan = nullptr;
    uint32_t m_pauseSteps = 0;
    bool m_startUpOver = false;
    std::vector<std::string> m_lines;
};

// Counts what was tried, and reports what is wrong, nothing being "".
class Report {
public:
    explicit Report(const SimWorld& world) : m_world(world) {}
    ~Report();
    void add(const std::string& name, const std::string& wrong);

private:
    const SimWorld& m_world;
    int m_tried = 0;
    int m_wrong = 0;
};

} // namespace kestrine::test
