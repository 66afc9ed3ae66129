// The law of repairs: a file gives way only to one that holds at least as much, and no repair ends
// with fewer visits, in any file, than were readable before it.
//
// A file of the statistics is harmed, with all logs there, or not. With them everything is exact in
// the end. Without them it is computed here what must be left: of a day the best copy and what
// waits beyond it; of a week or month that, or the sum of the days, whichever is more. Later visits
// are in every file, each once; only those of a node whose positions are lost with its logs cannot
// be found. With some of the logs it is no less.
#include "damages.h"
#include "trees.h"

#include "support/stat_tree.h"
#include "tree/names.h"

#include <algorithm>
#include <array>

namespace kestrine::test {
namespace {

constexpr int g_laterOfOldNodes = 3;
constexpr int g_laterOfNewNodes = 4;
constexpr std::string_view g_device = "/alice/devid_8/"; // that loses its logs

enum class Logs { There, Gone, DirectoriesLeft, FirstFilesGone, OneDeviceGone };
constexpr std::array g_logNames = {"logs there", "logs gone", "log directories left empty",
                                   "first logs gone", "logs of one device gone"};

struct Case {
    const Tree* tree;
    std::string file; // below the account's directory
    Damage damage;
    Logs logs;
    bool laterWithHarm;
    bool restart;

    [[nodiscard]] std::string name() const {
        return std::string(tree->name) + ", " + file + " " + damage.name + ", " +
               g_logNames[static_cast<size_t>(logs)] +
               (laterWithHarm ? ", later visits come with it" : ", later visits come afterwards") +
               (restart ? ", restart" : ", no restart");
    }
};

bool isDay(const std::string& name) {
    return name.ends_with("/daycrcsort");
}

// Whether what lies below "ACCOUNT/.../YYYYMMDD/" belongs into a file "ACCOUNT/weekBEGIN_END/...",
// or of a month or that day.
bool holds(const std::string& name, const std::string& dated) {
    const std::string date(names::lastComponent(names::parentOf(dated)));
    PeriodDir dir;
    return name.substr(0, name.find('/')) == dated.substr(0, dated.find('/')) &&
           names::parsePeriodDir(names::lastComponent(names::parentOf(name)), dir) &&
           date >= dir.begin && date <= dir.end;
}

class Law : public Trees {
protected:
    using Contents = SimWorld::Contents;

    // ---- what there is to read

    // What every file says, in its best copy that the harm leaves, with what waits beyond it.
    static Contents readable(const std::string& file, const Damage& damage) {
        Contents result;
        for (const auto& [name, unused] : g_world->own(0)) {
            const bool harmed = pathOf(file) == SimWorld::g_statRoot + ("/" + name);
            const std::string path = SimWorld::g_statRoot + ("/" + name);
            UrlFileContent copy;
            if (!harmed || !damage.file) {
                copy = readUrlFile(path, statusTypeOf(path));
            } else if (!damage.backup) {
                copy = readUrlFile(names::backupOf(path), statusTypeOf(path));
            }
            std::vector<TestRecords> parts = {copy.records};
            for (const std::string& waiting : g_world->disk.names(SimWorld::g_statRoot)) {
                const std::string place = SimWorld::g_statRoot + ("/" + waiting);
                const bool lost = damage.file && place == pathOf(file);
                if (!lost && holds(name, waiting) &&
                    names::newDayNumber(waiting) > upTo(copy, waiting)) {
                    parts.push_back(readUrlFile(place).records);
                }
            }
            result[name] = summed(parts);
        }
        // The days of a week or month may hold more together.
        for (auto& [name, records] : result) {
            std::vector<TestRecords> days;
            for (const auto& [day, visits] : result) {
                if (isDay(day) && holds(name, day)) {
                    days.push_back(visits);
                }
            }
            records = totalOf(summed(days)) > totalOf(records) ? summed(days) : records;
        }
        return result;
    }
    // The number up to which a copy holds a date's new-day files.
    static int32_t upTo(const UrlFileContent& copy, const std::string& waiting) {
        return copy.dayStatus ? copy.dayStatus->newCounter()
               : copy.weekMonStatus
                   ? copy.weekMonStatus->counterOfDate(std::string(names::parentOf(waiting)))
                   : -1;
    }

    // What every file holds in the end when no log of the rounds so far can be read again.
    struct Expected {
        Contents before; // the later visits come
        Contents least;
        Contents most; // with later visits of nodes whose positions may be lost
    };
    static Expected expectedWithoutLogs(const std::string& file, const Damage& damage) {
        const ScopedPlatform scope(g_world->disk);
        Expected expected;
        expected.before = expected.least = expected.most = readable(file, damage);
        for (const int round : {g_laterOfOldNodes, g_laterOfNewNodes}) {
            for (const auto& [day, visits] : g_world->own(round)) {
                const bool found = round == g_laterOfNewNodes || !isDay(day) ||
                                   expected.before.at(day) == counted(day);
                for (const auto& [name, unused] : g_world->own(g_laterOfNewNodes)) {
                    if (isDay(day) && holds(name, day)) {
                        TestRecords& least = expected.least[name];
                        least = found ? summed({least, visits}) : least;
                        expected.most[name] = summed({expected.most[name], visits});
                    }
                }
            }
        }
        return expected;
    }

    // What the logs say of a day up to the harm.
    static TestRecords counted(const std::string& day) {
        std::vector<TestRecords> parts;
        for (int round = 0; round < g_oldRounds; ++round) {
            parts.push_back(g_world->own(round).at(day));
        }
        return summed(parts);
    }

    // ---- what is done

    static void removeLogs(Logs logs) {
        for (int round = 0; round < g_oldRounds && logs != Logs::There; ++round) {
            for (const auto& [path, bytes] : g_world->logs(round)) {
                const bool log = path.ends_with(".dat") && path.starts_with(SimWorld::g_logData);
                const bool kept =
                    (logs == Logs::FirstFilesGone && !path.ends_with("/0.dat")) ||
                    (logs == Logs::OneDeviceGone && path.find(g_device) == std::string::npos);
                if (log && !kept) {
                    g_world->disk.files.erase(path);
                }
            }
        }
        if (logs == Logs::Gone) {
            std::erase_if(g_world->disk.directories, [](const std::string& path) {
                return path.starts_with(SimWorld::g_logData + std::string("/"));
            });
        }
    }

    static void harm(const Case& c) {
        c.damage.apply(g_world->disk, pathOf(c.file));
        removeLogs(c.logs);
    }

    // What is wrong after the service has met the case.
    static std::string meet(const Case& c, const Expected& expected) {
        restore(*c.tree);
        const auto strike = [&c] {
            harm(c);
            if (c.laterWithHarm) {
                later();
            }
        };
        if (c.restart) {
            strike();
        } else {
            startOver(*c.tree);
            const auto inPause = [&](int pass) {
                pass == 1 ? g_world->addRound() : pass == 2 ? strike() : later();
            };
            if (g_world->run({.passes = 4, .inPause = inPause}) == End::Normal) {
                later();
            }
        }
        if (!settle()) {
            return "fails again and again";
        }
        if (c.restart && c.damage.found && g_world->setAside().empty()) {
            return "nothing was set aside";
        }
        return c.logs == Logs::There ? g_world->wrong() : lawBroken(c, expected);
    }

    static std::string lawBroken(const Case& c, const Expected& expected) {
        const ScopedPlatform scope(g_world->disk);
        const bool exactly = c.logs == Logs::Gone || c.logs == Logs::DirectoriesLeft;
        std::string text;
        for (const auto& [name, lines] : g_world->tree()) {
            if (lines == Lines{"unexpected"}) {
                text += name + " is left over\n";
            }
        }
        // Where some logs can be read again, later visits of the same hosts may make up for lost
        // ones.
        const bool masked = !exactly && c.laterWithHarm;
        for (const auto& [name, least] : masked ? expected.before : expected.least) {
            const std::string path = SimWorld::g_statRoot + ("/" + name);
            const TestRecords found = readUrlFile(path, statusTypeOf(path)).records;
            expectPeriodFile(path, statusTypeOf(path), found);
            const TestRecords& most = expected.most.at(name);
            if (exactly ? found != least && found != most : !holdsAtLeast(found, least)) {
                text += name + " holds " + std::to_string(totalOf(found)) + " visits, not " +
                        std::to_string(totalOf(least)) + " to " + std::to_string(totalOf(most)) +
                        "\n";
            }
        }
        return text;
    }
    static bool holdsAtLeast(const TestRecords& file, const TestRecords& other) {
        return std::ranges::all_of(other, [&file](const TestRecord& record) {
            const auto same = std::ranges::find(file, record.key, &TestRecord::key);
            return same != file.end() && same->count >= record.count;
        });
    }

    // The last one waits, unless all is merged.
    static std::vector<std::string> filesOf(const Tree& tree) {
        std::vector<std::string> files = {g_day, g_week, g_month, g_waiting};
        files.resize(&tree == &g_trees[0] ? 3 : 4);
        return files;
    }

    // What may happen to the file, being replaced by that of another date or account included.
    static std::vector<Damage> damagesOf(const std::string& file) {
        static const std::map<std::string, std::string> others = {
            {g_day, "20131202/daycrcsort"},
            {g_week, "week20131124_20131130/weekcrcsort"},
            {g_month, "mon20131101_20131130/moncrcsort"},
            {g_waiting, "new/20131202/2.daycrcsortnew"}};
        const auto put = [](const std::string& from) {
            return [from](MemoryDisk& disk, const std::string& path) {
                disk.files[path] = MemoryDisk::Bytes(disk.files.at(from));
            };
        };
        std::vector<Damage> all = {
            {"replaced by that of another date", put(pathOf(others.at(file)))},
            {"replaced by that of another account", put(SimWorld::g_statRoot + ("/bob/" + file))}};
        std::ranges::copy_if(damages(), std::back_inserter(all), [&file](const Damage& damage) {
            return !damage.backup || file.ends_with("crcsort");
        });
        return all;
    }

    static void meetAll(const Tree& tree) {
        Report report(*g_world);
        size_t number = 0;
        for (const std::string& file : filesOf(tree)) {
            for (const Damage& damage : damagesOf(file)) {
                restore(tree);
                const Expected expected = expectedWithoutLogs(file, damage);
                for (size_t n = 0; n < g_logNames.size() * 4; ++n) {
                    const Case c = {&tree,      file,          damage, static_cast<Logs>(n / 4),
                                    n % 2 == 1, n / 2 % 2 == 0};
                    if (++number % static_cast<size_t>(stepOf()) == 0) {
                        report.add(c.name(), meet(c, expected));
                    }
                }
            }
        }
    }
};

// An error is not damage: whichever read of a file fails in a run, alone or with all later ones of
// the file, nothing is set aside, and all is there in the end though no log is.
TEST_F(Law, ReadsOfOneFileFail) {
    const Damage none = {"not harmed", {}, false};
    Report report(*g_world);
    const auto wrong = [](const Case& c, const Expected& expected, const Plan& plan) {
        restore(*c.tree);
        removeLogs(c.logs);
        later();
        (void)g_world->run(plan);
        return !settle()                      ? "fails again and again"
               : !g_world->setAside().empty() ? "set aside: " + *g_world->setAside().begin()
                                              : lawBroken(c, expected);
    };
    for (const Tree& tree : g_trees) {
        for (const std::string& file : filesOf(tree)) {
            restore(tree);
            const Expected expected = expectedWithoutLogs(file, none);
            const Case c = {&tree, file, none, Logs::Gone, true, true};
            for (const auto mode :
                 {FailingPlatform::Mode::Once, FailingPlatform::Mode::FromThenOn}) {
                Plan plan = {.mode = mode, .calls = FailingPlatform::Calls::Reading, .passes = 1};
                plan.only = pathOf(file);
                bool reached = true; // a run has so many reads of the file
                plan.onCall = [&](int number, const char*) {
                    reached = reached || number == plan.failAt;
                };
                for (plan.failAt = firstOf(); reached; plan.failAt += stepOf()) {
                    reached = false;
                    plan.error =
                        std::array{EIO, EACCES, ENOMEM}[static_cast<size_t>(plan.failAt) % 3];
                    report.add(c.name() + ", read " + std::to_string(plan.failAt),
                               wrong(c, expected, plan));
                }
            }
        }
    }
}

TEST_F(Law, EveryDamageOfEveryFile) {
    for (const Tree& tree : g_trees) {
        meetAll(tree);
    }
}

} // namespace
} // namespace kestrine::test
