// Damaged, lost and half-written statistics files. Each is put into a tree that the service has
// made, before it starts or while it runs. The service is then started until it ends in order, and
// must have written what an undisturbed run writes; what was damaged and in the way lies in
// "debug", byte for byte. (W: who finds the damage; D: what the service does then.)
//
//   day file          W  start-up check, reader of positions, merge, list maker
//                     D  its backup takes its place, or nothing; its logs are read again from the
//                        positions that are left; week and month files are built anew
//   week, month file  W  start-up check, merge, list maker
//                     D  its backup takes its place, if it can be brought forward; otherwise it is
//                        built anew from day files
//   new-day file      W  start-up check, reader of positions, merge, list maker
//                     D  its logs and those of later new-day files are read again; when the day
//                        file holds it already, week and month files are built from day files
//   top list          W  start-up check
//                     D  all lists of the directory are made again
//   backup            W  start-up check, when it takes its file's place
//                     D  as if there were none
//   work file         W  nobody
//                     D  the start-up check removes it
//
// Not found, since the formats hold nothing to find it by: a text, a type, or a key that still
// stands in order, changed in a block that is stored uncompressed (no block here is). Accepted by
// design: a week or month status whose checksum is wrong.
#include "damages.h"
#include "sweep_world.h"

#include "support/stat_tree.h"
#include "support/url_file_helper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <random>
#include <set>

namespace kestrine::test {
namespace {

namespace fs = std::filesystem;
using End = SweepWorld::End;

constexpr int g_firstTree = 2000; // place of the first tree
constexpr size_t g_undisturbed = 2;
constexpr int g_mostStarts = 3;
constexpr uint64_t g_randomTries = 300;
constexpr uint64_t g_changes = 1400; // about as many as an undisturbed run makes

struct Tree {
    const char* name;
    bool bothRounds;
    bool keepsNewDay; // by the marker file
    SweepWorld::Settings settings;
};
const std::array<Tree, 6> g_trees = {{
    {"first round", false, false, {}},
    {"first round, new-day files kept", false, true, {}},
    {"both rounds", true, false, {}},
    {"both rounds, new-day files kept", true, true, {}},
    {"week and month files behind", true, false, {1, 100000, 1025}},
    {"new-day files waiting", true, false, {30000, 100000, 1025}},
}};

constexpr std::array g_files = {
    "20131201/daycrcsort",
    "week20131201_20131207/weekcrcsort",
    "mon20131201_20131231/moncrcsort",
    "20131201/topn/all.top",
    "mon20131201_20131231/topn/1.top",
    "new/20131201/0.daycrcsortnew",
    "new/20131201/1.daycrcsortnew",
};

enum class Moment {
    Start,         // before a start that finds all logs
    EarlyStart,    // before a start; the second round of logs comes after its first pass
    BetweenPasses, // while it runs; the second round comes then
    LongAgo,       // before a start that finds all logs, and does not look at files so old
};
constexpr std::array g_momentNames = {"start", "early start", "between passes", "long ago"};

struct Edit {
    std::string file;                  // below the account's directory
    std::function<void(Bytes&)> apply; // null: the file is removed
    bool found = true;                 // must lie in "debug" afterwards
};

struct Case {
    size_t tree;
    Moment moment;
    std::string name;
    std::vector<Edit> edits;
};

class Damaged : public testing::Test {
protected:
    static void SetUpTestSuite() {
        g_world = new SweepWorld(150, 3);
        for (size_t i = 0; i < g_trees.size(); ++i) {
            const Tree& tree = g_trees[i];
            const int place = placeOf(i);
            g_world->clear(place);
            g_world->writeSettings(place, tree.settings);
            if (tree.keepsNewDay) {
                std::ofstream(g_world->directory(place) + "/do_not_delete_daycrcsortnew");
            }
            SweepWorld::Run run;
            run.secondRound = false;
            run.onePass = !tree.bothRounds;
            ASSERT_EQ(g_world->run(place, run), End::Normal) << tree.name;
        }
        g_wanted = snapshotOf(rootOf(g_undisturbed));
    }
    static void TearDownTestSuite() { delete g_world; }

    static int placeOf(size_t tree) { return g_firstTree + static_cast<int>(tree); }
    static std::string rootOf(size_t tree) { return g_world->urlStatRoot(placeOf(tree)); }
    static std::string accountOf(const std::string& root) {
        for (const auto& entry : fs::directory_iterator(root)) {
            if (entry.is_directory() && entry.path().filename() != "debug") {
                return entry.path().generic_string();
            }
        }
        return {};
    }

    // What is wrong after the service has met the case.
    static std::string meet(int place, const Case& c) {
        g_world->copy(placeOf(c.tree), place);
        const std::string root = g_world->urlStatRoot(place);
        const std::string account = accountOf(root);
        std::vector<Bytes> damaged;
        const auto damage = [&] {
            for (const Edit& edit : c.edits) {
                const std::string path = account + "/" + edit.file;
                if (!edit.apply) {
                    fs::remove_all(path);
                    continue;
                }
                Bytes bytes = bytesOf(path);
                edit.apply(bytes);
                putBytes(path, bytes);
                if (edit.found) {
                    damaged.push_back(bytes);
                }
            }
        };
        SweepWorld::Run run;
        run.secondRound = c.moment == Moment::Start || c.moment == Moment::LongAgo;
        if (c.moment == Moment::BetweenPasses) {
            run.inPause = damage;
        } else {
            damage();
        }
        if (c.moment == Moment::LongAgo) {
            makeOld(root);
        }
        const std::string wrong = recover(place, run, c.moment == Moment::BetweenPasses);
        return wrong.empty() ? notSetAside(root, damaged) : wrong;
    }

    // What is wrong after the run and the starts that follow until one ends in order; `again`: at
    // least one follows.
    static std::string recover(int place, const SweepWorld::Run& run, bool again) {
        End end = g_world->run(place, run);
        for (int starts = 1; (again || end != End::Normal) && end != End::Crashed; ++starts) {
            if (starts == g_mostStarts) {
                return "fails again and again";
            }
            again = false;
            end = g_world->run(place, {});
        }
        return end == End::Crashed ? "crashed"
                                   : difference(g_wanted, snapshotOf(g_world->urlStatRoot(place)));
    }

    static std::string notSetAside(const std::string& root, const std::vector<Bytes>& damaged) {
        std::set<Bytes> kept;
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(root + "/debug", none)) {
            if (entry.is_regular_file()) {
                kept.insert(bytesOf(entry.path().generic_string()));
            }
        }
        for (const Bytes& bytes : damaged) {
            if (!kept.contains(bytes)) {
                return "the damaged file is not in debug";
            }
        }
        return {};
    }

    static void meetAll(const std::vector<Case>& cases) {
        tryAndReport(cases.size(), [&cases](int place, uint64_t n) {
            const Case& c = cases[n];
            return withName(std::string(g_trees[c.tree].name) + ", " +
                                g_momentNames[static_cast<size_t>(c.moment)] + ", " + c.name,
                            meet(place, c));
        });
    }

    static void tryAndReport(uint64_t number,
                             const std::function<std::string(int, uint64_t)>& attempt) {
        for (const std::string& wrong : tryAll(number, attempt)) {
            ADD_FAILURE() << wrong;
        }
        std::cout << "tried " << number << " cases\n";
    }

    static std::string withName(const std::string& name, const std::string& wrong) {
        return wrong.empty() ? wrong : name + ": " + wrong;
    }

    static SweepWorld* g_world;
    static Snapshot g_wanted;
};

SweepWorld* Damaged::g_world = nullptr;
Snapshot Damaged::g_wanted;

// The moments at which a damage is tried. New-day files that are kept do not matter to lists.
std::vector<Moment> momentsOf(size_t tree, std::string_view file, const Damage& damage) {
    const bool list = file.ends_with(".top");
    if (list && tree != 0 && tree != g_undisturbed) {
        return {};
    }
    if (damage.minor || !(tree <= 3)) {
        return {Moment::Start};
    }
    if (g_trees[tree].bothRounds || list) {
        return {Moment::Start, Moment::BetweenPasses};
    }
    return tree == 0 ? std::vector<Moment>{Moment::Start, Moment::EarlyStart, Moment::BetweenPasses,
                                           Moment::LongAgo}
                     : std::vector<Moment>{Moment::Start, Moment::BetweenPasses, Moment::LongAgo};
}

TEST_F(Damaged, OneFile) {
    std::vector<Case> cases;
    for (size_t tree = 0; tree < g_trees.size(); ++tree) {
        for (const char* const file : g_files) {
            const std::string path = accountOf(rootOf(tree)) + "/" + file;
            if (!fs::exists(path)) {
                continue;
            }
            ASSERT_TRUE(isCompressed(path)) << file;
            for (const Damage& damage : damagesOf(path)) {
                for (const Moment moment : momentsOf(tree, file, damage)) {
                    const bool found = damage.found && moment <= Moment::EarlyStart;
                    cases.push_back({tree,
                                     moment,
                                     std::string(file) + ", " + damage.name,
                                     {{file, damage.apply, found}}});
                }
            }
        }
    }
    meetAll(cases);
}

// Files lost together, and what may lie beside them.
TEST_F(Damaged, FilesTogether) {
    const auto spoil = [](Bytes& bytes) { bytes[bytes.size() / 3] ^= 0x10; };
    const auto rubbish = [](Bytes& bytes) { bytes.assign(3000, 0x5A); };
    std::vector<Case> cases;
    for (const size_t tree : {1U, 2U, 3U}) {
        const std::string account = accountOf(rootOf(tree));
        const auto add = [&](const std::string& name, const std::vector<Edit>& edits) {
            cases.push_back({tree, Moment::Start, name, edits});
        };
        for (const std::string formal : {g_files[0], g_files[1], g_files[2]}) {
            const std::string backup = formal + "_backup";
            const std::string lists = formal.substr(0, formal.find('/')) + "/topn";
            const Bytes good = bytesOf(account + "/" + formal);
            const Bytes all = bytesOf(account + "/" + lists + "/all.top");
            const auto copyOf = [](const Bytes& content) {
                return [content](Bytes& bytes) { bytes = content; };
            };
            add(formal + " lost with its backup", {{formal, nullptr}, {backup, nullptr}});
            if (fs::exists(account + "/" + backup)) {
                add(formal + " lost, backup spoilt", {{formal, nullptr}, {backup, spoil}});
                add(formal + " and backup spoilt", {{formal, spoil}, {backup, spoil}});
                add(formal + ", only its backup spoilt", {{backup, spoil, false}});
            }
            add(formal + " lost, work files there",
                {{formal, nullptr}, {formal + ".temp", copyOf(good), false}});
            add(formal + ", work files of rubbish",
                {{formal + ".temp", rubbish, false}, {formal + ".temp.temp", rubbish, false}});
            add(lists + " lost", {{lists, nullptr}});
            add(lists + " with a list too many", {{lists + "/99.top", copyOf(all), false}});
            add(lists + ", complete set spoilt", {{lists + ".temp/all.top", rubbish}});
            add(lists + " lost, complete set with one list",
                {{lists, nullptr}, {lists + ".temp/all.top", copyOf(all), false}});
            add(lists + ", incomplete set", {{lists + ".temp.temp/1.top", rubbish, false}});
        }
        const Bytes day = bytesOf(account + "/" + g_files[0]);
        add("new-day work file", {{"new/20131201/2.daycrcsortnew.temp", rubbish, false}});
        add("new-day file beyond a gap",
            {{"new/20131201/9.daycrcsortnew", [day](Bytes& bytes) { bytes = day; }}});
        add("all day, week and month files lost", {{"20131130", nullptr},
                                                   {"20131201", nullptr},
                                                   {"20131202", nullptr},
                                                   {"week20131201_20131207/weekcrcsort", nullptr},
                                                   {"mon20131201_20131231/moncrcsort", nullptr}});
        add("day and week file spoilt", {{g_files[0], spoil}, {g_files[1], spoil}});
        add("all spoilt", {{g_files[0], spoil},
                           {g_files[1], spoil},
                           {g_files[2], spoil},
                           {"20131202/daycrcsort", spoil},
                           {"20131130/daycrcsort", spoil}});
        add("everything lost", {{"", nullptr}});
    }
    meetAll(cases);
}

// Several files, picked and spoilt at random.
TEST_F(Damaged, SeveralFiles) {
    tryAndReport(g_randomTries, [](int place, uint64_t seed) {
        std::mt19937_64 random(seed);
        const size_t tree = random() % g_trees.size();
        const bool inPause = random() % 3 == 0;
        g_world->copy(placeOf(tree), place);
        const auto damage = [&] {
            for (uint64_t files = 1 + random() % 6; files > 0; --files) {
                damageSomehow(anyFile(accountOf(g_world->urlStatRoot(place)), random), random);
            }
        };
        SweepWorld::Run run;
        // Logs that were counted are there; those of the second round may come later only where
        // they were not.
        const bool counted = !std::string_view(g_trees[tree].name).starts_with("first round");
        run.secondRound = random() % 2 == 0 || counted;
        if (inPause) {
            run.inPause = damage;
        } else {
            damage();
        }
        return withName(std::string(g_trees[tree].name) + ", seed " + std::to_string(seed),
                        recover(place, run, inPause));
    });
}

// One file, be it a finished or a temporary one, at any change that the service makes.
TEST_F(Damaged, AtAnyMoment) {
    tryAndReport(g_randomTries, [](int place, uint64_t seed) {
        std::mt19937_64 random(seed);
        g_world->clear(place);
        const uint64_t moment = 20 + random() % g_changes;
        SweepWorld::Run run;
        run.secondRound = false;
        run.atChange = [&](uint64_t number) {
            if (number == moment) {
                const char* const disk = random() % 4 == 0 ? "/mem" : "/stat";
                damageSomehow(anyFile(g_world->directory(place) + disk, random), random);
            }
        };
        return withName("change " + std::to_string(moment), recover(place, run, true));
    });
}

// What holds of every good tree: the day files hold the visits of the logs, week and month files
// those of their days, top lists and totals are those of their file.
TEST_F(Damaged, LawOfTheUndisturbedTree) {
    const std::string account = accountOf(rootOf(g_undisturbed));
    std::map<std::string, TestRecords> days;
    uint64_t visits = 0;
    for (const std::string date : {"20131130", "20131201", "20131202"}) {
        const std::string path = account + "/" + date + "/daycrcsort";
        days[date] = readUrlFile(path).records;
        expectPeriodFile(path, g_dayStatusType, days[date]);
        for (const TestRecord& record : days[date]) {
            visits += record.count;
        }
    }
    EXPECT_EQ(visits, g_world->visits());
    const TestRecords december = summed({days["20131201"], days["20131202"]});
    for (const auto& [name, records] :
         std::map<std::string, TestRecords>{{"week20131124_20131130/weekcrcsort", days["20131130"]},
                                            {"mon20131101_20131130/moncrcsort", days["20131130"]},
                                            {"week20131201_20131207/weekcrcsort", december},
                                            {"mon20131201_20131231/moncrcsort", december}}) {
        expectPeriodFile(account + "/" + name, g_weekMonStatusType, records);
    }
}

} // namespace
} // namespace kestrine::test
