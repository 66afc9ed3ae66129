// The law of repairs: a file gives way only to one that holds at least as much, and no repair ends
// with fewer visits, in any file, than were readable before it.
//
// A file of the statistics is harmed, with all logs there, or not. With them everything is exact in
// the end. Without them it is computed here what must be left: of a day the best copy and what
// waits beyond it; of a week or month that, or the sum of the days, whichever is more. Later visits
// are in every file, each once; only those of a node whose positions are lost with its logs cannot
// be found. With some of the logs it is no less.
#include "trees.h"

#include "support/damages.h"
#include "support/stat_tree.h"
#include "tree/names.h"

#include <algorithm>
#include <array>
#include <iostream>

namespace kestrine::test {
namespace {

using Counts = std::map<std::string, uint64_t>; // visits by key

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

void add(Counts& sum, const Counts& more) {
    for (const auto& [key, visits] : more) {
        sum[key] += visits;
    }
}

uint64_t total(const Counts& counts) {
    uint64_t sum = 0;
    for (const auto& [key, visits] : counts) {
        sum += visits;
    }
    return sum;
}

Counts countsOf(const TestRecords& records) {
    Counts counts;
    for (const TestRecord& record : records) {
        counts[std::to_string(record.key)] = record.count;
    }
    return counts;
}

// Of a text "KEY COUNT TYPE HOST" a record.
Counts countsOf(const Lines& lines) {
    Counts counts;
    for (const std::string& line : lines) {
        if (line.find(' ') == 16) {
            counts[std::to_string(std::stoull(line.substr(0, 16), nullptr, 16))] =
                std::stoull(line.substr(17));
        }
    }
    return counts;
}

bool isPeriodFile(const std::string& name) {
    return name.ends_with("/daycrcsort") || name.ends_with("/weekcrcsort") ||
           name.ends_with("/moncrcsort");
}

std::string dateOf(const std::string& path) {
    return path.substr(path.rfind('/', path.rfind('/') - 1) + 1, 8);
}

// Of "ACCOUNT/weekBEGIN_END/weekcrcsort" and the like.
bool holdsDate(const std::string& name, const std::string& date) {
    PeriodDir dir;
    return names::parsePeriodDir(names::lastComponent(names::parentOf(name)), dir) &&
           date >= dir.begin && date <= dir.end;
}

class Law : public Trees {
protected:
    // ---- what there is to read

    // A copy of a period's file, or nothing; the number up to which it holds a date.
    struct Copy {
        Counts counts;
        std::map<std::string, int32_t> held;
        [[nodiscard]] int32_t upTo(const std::string& date) const {
            const auto number = held.find(date);
            return number == held.end() ? -1 : number->second;
        }
    };
    static Copy read(const std::string& path) {
        const bool day = path.find("daycrcsort") != std::string::npos;
        Copy copy;
        if (!g_world->disk.files.contains(path)) {
            return copy;
        }
        const UrlFileContent content =
            readUrlFile(path, day ? g_dayStatusType : g_weekMonStatusType);
        EXPECT_TRUE(content.whole) << path;
        copy.counts = countsOf(content.records);
        if (day) {
            copy.held[dateOf(path)] = content.dayStatus->newCounter();
        } else {
            for (const DateEntry& entry : content.weekMonStatus->entries()) {
                copy.held[std::string(names::lastComponent(entry.path))] = entry.counter;
            }
        }
        return copy;
    }

    // The best copy of every file that the harm leaves, with what waits beyond it: by name.
    static std::map<std::string, Counts> readable(const std::string& file, const Damage& damage) {
        std::map<std::string, Counts> result;
        std::map<std::string, Counts> days; // sums of them, by the file that they are in
        for (const auto& [name, lines] : g_world->tree()) {
            if (!isPeriodFile(name)) {
                continue;
            }
            const bool harmed = name == "alice/" + file;
            const std::string path = SimWorld::g_statRoot + ("/" + name);
            Copy copy = !harmed || !damage.file ? read(path)
                        : !damage.backup        ? read(path + "_backup")
                                                : Copy();
            const std::string account = name.substr(0, name.find('/'));
            for (const auto& [waiting, bytes] : g_world->disk.files) {
                const std::string start = SimWorld::g_statRoot + ("/" + account + "/new/");
                const int32_t number = names::newDayNumber(waiting);
                const bool lost = damage.file && waiting == pathOf(file);
                if (waiting.starts_with(start) && number >= 0 && !lost &&
                    holdsDate(name, dateOf(waiting)) && number > copy.upTo(dateOf(waiting))) {
                    add(copy.counts, countsOf(readUrlFile(waiting).records));
                }
            }
            result[name] = copy.counts;
            if (name.ends_with("/daycrcsort")) {
                for (const auto& [holder, unused] : g_world->ownTree(0)) {
                    if (isPeriodFile(holder) && holder != name && holder.starts_with(account) &&
                        holdsDate(holder, dateOf(name))) {
                        add(days[holder], copy.counts);
                    }
                }
            }
        }
        for (const auto& [name, sum] : days) {
            result[name] = total(sum) > total(result[name]) ? sum : result[name];
        }
        return result;
    }

    // What every file holds in the end when no log of the rounds so far can be read again.
    struct Expected {
        std::map<std::string, Counts> before; // the later visits come
        std::map<std::string, Counts> least;
        // Later visits of nodes whose positions may be lost.
        std::map<std::string, Counts> perhaps;
    };
    static Expected expectedWithoutLogs(const std::string& file, const Damage& damage) {
        const ScopedPlatform scope(g_world->disk);
        Expected expected;
        expected.before = expected.least = readable(file, damage);
        for (const int round : {g_laterOfOldNodes, g_laterOfNewNodes}) {
            for (const auto& [day, lines] : g_world->ownTree(round)) {
                if (!day.ends_with("/daycrcsort")) {
                    continue;
                }
                const bool found =
                    round == g_laterOfNewNodes || expected.before.at(day) == counted(day);
                for (const auto& [name, unused] : g_world->ownTree(g_laterOfNewNodes)) {
                    if (isPeriodFile(name) && holdsDate(name, dateOf(day)) &&
                        name.substr(0, name.find('/')) == day.substr(0, day.find('/'))) {
                        add((found ? expected.least : expected.perhaps)[name], countsOf(lines));
                    }
                }
            }
        }
        return expected;
    }

    // What the logs say up to the harm.
    static Counts counted(const std::string& name) {
        Counts sum;
        for (int round = 0; round < g_oldRounds; ++round) {
            const TreeText& tree = g_world->ownTree(round);
            if (const auto file = tree.find(name); file != tree.end()) {
                add(sum, countsOf(file->second));
            }
        }
        return sum;
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
        const ScopedPlatform scope(g_world->disk);
        c.damage.apply(pathOf(c.file));
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
            const bool day = name.ends_with("/daycrcsort");
            const std::string path = SimWorld::g_statRoot + ("/" + name);
            const TestRecords records =
                readUrlFile(path, day ? g_dayStatusType : g_weekMonStatusType).records;
            expectPeriodFile(path, day ? g_dayStatusType : g_weekMonStatusType, records);
            const Counts found = countsOf(records);
            Counts most = least;
            if (const auto perhaps = expected.perhaps.find(name);
                perhaps != expected.perhaps.end()) {
                add(most, perhaps->second);
            }
            if (exactly ? found != least && found != most : !holdsAtLeast(found, least)) {
                text += name + " holds " + std::to_string(total(found)) + " visits, not " +
                        std::to_string(total(least)) + " to " + std::to_string(total(most)) + "\n";
            }
        }
        return text;
    }
    static bool holdsAtLeast(const Counts& file, const Counts& other) {
        return std::ranges::all_of(other, [&file](const auto& entry) {
            const auto visits = file.find(entry.first);
            return visits != file.end() && visits->second >= entry.second;
        });
    }

    // The file that waits with the last round of the date, if there is one.
    static std::vector<std::string> filesOf(const Tree& tree) {
        std::vector<std::string> files = {g_day, g_week, g_month};
        restore(tree);
        if (g_world->disk.files.contains(pathOf(g_waiting))) {
            files.emplace_back(g_waiting);
        }
        return files;
    }

    // Of another date and of another account.
    static std::vector<Damage> foreign(const std::string& file) {
        std::string other = file;
        const std::map<std::string, std::string> others = {
            {g_week, "week20131124_20131130/weekcrcsort"},
            {g_month, "mon20131101_20131130/moncrcsort"}};
        if (const auto found = others.find(file); found != others.end()) {
            other = found->second;
        } else {
            other.replace(other.find("20131201"), 8, "20131202");
        }
        const auto put = [](const std::string& from) {
            return [from](const std::string& path) { replaceBy(path, from); };
        };
        return {
            {"replaced by that of another date", put(pathOf(other))},
            {"replaced by that of another account", put(SimWorld::g_statRoot + ("/bob/" + file))}};
    }

    static void meetAll(const Tree& tree) {
        int cases = 0;
        int tried = 0;
        int wrong = 0;
        for (const std::string& file : filesOf(tree)) {
            std::vector<Damage> all = foreign(file);
            std::ranges::copy_if(damages(), std::back_inserter(all), [&file](const Damage& damage) {
                return !damage.backup || file.ends_with("crcsort");
            });
            for (const Damage& damage : all) {
                restore(tree);
                const Expected expected = expectedWithoutLogs(file, damage);
                for (size_t n = 0; n < g_logNames.size() * 4; ++n) {
                    if (++cases % stepOf() != 0) {
                        continue;
                    }
                    const Case c = {&tree,      file,          damage, static_cast<Logs>(n / 4),
                                    n % 2 == 1, n / 2 % 2 == 0};
                    ++tried;
                    if (const std::string text = meet(c, expected); !text.empty()) {
                        ++wrong;
                        ADD_FAILURE() << c.name() << ":\n"
                                      << text << "last errors:\n"
                                      << g_world->errors();
                    }
                }
            }
        }
        std::cout << "tried " << tried << " cases, " << wrong << " wrong\n";
    }
};

// An error is not damage: whichever read of a file fails in a run, alone or with all later ones of
// the file, nothing is set aside, and all is there in the end though no log is.
TEST_F(Law, ReadsOfOneFileFail) {
    const Damage none = {"not harmed", {}, false};
    int tried = 0;
    const auto tryOne = [&](const Case& c, const Expected& expected, Plan plan) {
        int made = 0;
        plan.onCall = [&made](int number, const char*) { made = number; };
        restore(*c.tree);
        removeLogs(c.logs);
        later();
        (void)g_world->run(plan);
        SCOPED_TRACE(c.name() + ", read " + std::to_string(plan.failAt));
        EXPECT_TRUE(settle()) << g_world->errors();
        EXPECT_EQ(g_world->setAside(), std::set<std::string>());
        EXPECT_EQ(lawBroken(c, expected), "");
        ++tried;
        return made >= plan.failAt;
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
                for (plan.failAt = 1; !HasFailure() && tryOne(c, expected, plan);) {
                    plan.failAt += stepOf();
                    plan.error = plan.failAt % 2 == 0 ? EIO : EACCES;
                }
            }
        }
    }
    std::cout << "tried " << tried << " cases\n";
}

TEST_F(Law, AllMerged) {
    meetAll(g_trees[0]);
}

TEST_F(Law, NewDayFilesWaiting) {
    meetAll(g_trees[1]);
}

TEST_F(Law, WeekAndMonthBehind) {
    meetAll(g_trees[2]);
}

} // namespace
} // namespace kestrine::test
