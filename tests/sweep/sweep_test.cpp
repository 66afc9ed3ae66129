// Every change of the disk as a fault point: the service goes wrong there, is started again over
// the tree that this left, and must end with what an undisturbed run writes.
#include "sweep_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <set>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;
using End = SweepWorld::End;

constexpr int g_reference = 1000; // place of the undisturbed run
constexpr int g_secondKill = 100; // added to a worker's place

uint64_t worldSize() {
    const char* const larger = std::getenv("KESTRINE_SWEEP_VISITS");
    return larger != nullptr ? std::strtoull(larger, nullptr, 10) : 150;
}

class Sweep : public testing::Test {
protected:
    static void SetUpTestSuite() {
        g_world = new SweepWorld(worldSize());
        g_world->clear(g_reference);
        const std::string calls = g_world->directory(g_reference) + "/calls";
        ASSERT_EQ(g_world->run(g_reference, {{}, false, calls}), End::Normal);
        g_wanted = snapshotOf(g_world->urlStatRoot(g_reference));
        std::ifstream lines(calls);
        for (std::string line; std::getline(lines, line);) {
            g_calls.push_back(line.substr(line.find(' ') + 1));
        }
        ASSERT_GT(g_calls.size(), 100u);
        uint64_t counted = 0;
        for (const auto& [name, content] : g_wanted) {
            if (name.ends_with("/daycrcsort")) {
                for (const std::string& line : content) {
                    counted += line.starts_with("/") ? 0 : std::stoull(line.substr(line.find(' ')));
                }
            }
        }
        ASSERT_EQ(counted, g_world->visits());
    }
    static void TearDownTestSuite() { delete g_world; }

    // Runs `point` for 1 to `points`, shared among worker processes; each returns what is wrong, or
    // nothing. Reports the first failures.
    static void forEveryPoint(uint64_t points,
                              const std::function<std::string(int, uint64_t)>& point) {
        const auto failures = tryAll(points, [&point](int worker, uint64_t n) {
            const std::string wrong = point(worker, n + 1);
            return wrong.empty()
                       ? wrong
                       : "at point " + std::to_string(n + 1) + " (" + nameOf(n + 1) + "): " + wrong;
        });
        for (size_t i = 0; i < std::min<size_t>(failures.size(), 5); ++i) {
            ADD_FAILURE() << failures[i];
        }
        std::cout << "tried " << points << " points\n";
    }

    static std::string nameOf(uint64_t n) { return g_calls[(n - 1) % g_calls.size()]; }

    // The tree right after a kill must be one that the start-up check can meet.
    static std::string impossibleState(int place) {
        for (const auto& entry : fs::recursive_directory_iterator(g_world->urlStatRoot(place))) {
            const std::string path = entry.path().generic_string();
            if (!path.ends_with("_backup")) {
                continue;
            }
            const std::string formal = path.substr(0, path.size() - 7);
            if (!fs::exists(formal) && fs::exists(formal + ".temp")) {
                return "backup and temp exist, but formal does not: " + formal;
            }
        }
        return {};
    }

    // What is wrong after the service was started again, undisturbed.
    static std::string recover(int place) {
        const End end = g_world->run(place, {});
        if (end != End::Normal) {
            return end == End::Failed ? "the next start failed" : "the next start crashed";
        }
        return difference(g_wanted, snapshotOf(g_world->urlStatRoot(place)));
    }

    // A kill leaves nothing damaged under a final name, so that nothing is ever set aside. Without
    // this a lost file would go unnoticed: the logs of the test are all still there to be read
    // again.
    static std::string setAside(int place) {
        const std::string debug = g_world->urlStatRoot(place) + "/debug";
        if (!fs::exists(debug)) {
            return {};
        }
        for (const auto& entry : fs::recursive_directory_iterator(debug)) {
            if (entry.is_regular_file()) {
                return "set aside: " + entry.path().generic_string();
            }
        }
        return {};
    }

    static std::string killAndRecover(int place, Fault fault, uint64_t n, uint64_t seed = 0) {
        const std::string wrong = disturbAndRecover(place, {fault, n, 0, false, seed});
        return wrong.empty() ? setAside(place) : wrong;
    }

    static std::string disturbAndRecover(int place, const FaultPlan& plan) {
        g_world->clear(place);
        const End end = g_world->run(place, {plan, false, {}});
        if (end == End::Crashed) {
            return "crashed";
        }
        const std::string state =
            fs::exists(g_world->urlStatRoot(place)) ? impossibleState(place) : "";
        return state.empty() ? recover(place) : state;
    }

    // Names and sizes of what a kill left, temporary trees aside: states that look alike are alike
    // to the start-up check.
    static std::string stateOf(int place) {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(g_world->urlStatRoot(place))) {
            const std::string path = entry.path().generic_string();
            if (path.find("/diskTemp/") == std::string::npos) {
                names.insert(path.substr(g_world->urlStatRoot(place).size()) + " " +
                             std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
            }
        }
        std::string all;
        for (const std::string& name : names) {
            all += name + "\n";
        }
        return all;
    }

    // Kills the start-up check over the tree of `place` at every change that it makes.
    static std::string killStartUpEverywhere(int place) {
        const int copy = place + g_secondKill;
        for (uint64_t m = 1;; ++m) {
            g_world->copy(place, copy);
            const End end = g_world->run(copy, {{Fault::Kill, m, 0, true}, true, {}});
            if (end == End::StartUpOver) {
                return {};
            }
            if (end != End::Killed) {
                return "start-up ended otherwise than by the kill at its change " +
                       std::to_string(m);
            }
            std::string wrong = impossibleState(copy);
            wrong = wrong.empty() ? recover(copy) : wrong;
            if (!wrong.empty()) {
                return "start-up killed at its change " + std::to_string(m) + ": " + wrong;
            }
        }
    }

    static SweepWorld* g_world;
    static Snapshot g_wanted;
    static std::vector<std::string> g_calls; // of the undisturbed run
};

SweepWorld* Sweep::g_world = nullptr;
Snapshot Sweep::g_wanted;
std::vector<std::string> Sweep::g_calls;

TEST_F(Sweep, Kill) {
    forEveryPoint(g_calls.size(),
                  [](int place, uint64_t n) { return killAndRecover(place, Fault::Kill, n); });
}

TEST_F(Sweep, KillAndKillInsideTheNextStartUp) {
    std::set<std::string> seen; // of one worker
    forEveryPoint(g_calls.size(), [&](int place, uint64_t n) -> std::string {
        g_world->clear(place);
        if (g_world->run(place, {{Fault::Kill, n, 0}, false, {}}) != End::Killed) {
            return "not killed";
        }
        if (!fs::exists(g_world->urlStatRoot(place)) || !seen.insert(stateOf(place)).second) {
            return {};
        }
        return killStartUpEverywhere(place);
    });
}

TEST_F(Sweep, PowerLoss) {
    // What is taken away is random: every change several times, the running number being the seed.
    forEveryPoint(g_calls.size() * 4, [](int place, uint64_t n) {
        return killAndRecover(place, Fault::PowerLoss, 1 + (n - 1) % g_calls.size(), n);
    });
}

TEST_F(Sweep, FailOnce) {
    constexpr std::array errors = {ENOSPC, EIO, EACCES, EBUSY};
    forEveryPoint(g_calls.size(), [&](int place, uint64_t n) {
        return disturbAndRecover(place, {Fault::FailOnce, n, errors[n % errors.size()]});
    });
}

TEST_F(Sweep, FailFromThenOn) {
    constexpr std::array errors = {EIO, ENOSPC, EACCES};
    forEveryPoint(g_calls.size(), [&](int place, uint64_t n) {
        return disturbAndRecover(place, {Fault::FailOn, n, errors[n % errors.size()]});
    });
}

TEST_F(Sweep, ShortWrite) {
    forEveryPoint(g_calls.size(), [](int place, uint64_t n) {
        return nameOf(n) == "write" ? disturbAndRecover(place, {Fault::ShortWrite, n, ENOSPC}) : "";
    });
}

} // namespace
} // namespace kestrine::test
